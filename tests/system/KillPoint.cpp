// Preloaded into the daemon: counts what it does to its files, and at one of these points ends it, asks it to
// stop, or lets the operation fail, as named in the environment:
//
//   FW_POINT       "before write image 3": killed just before the third write to a file of that class. "amid"
//                  lets half of a write happen; "after" lets all of it happen.
//                  "fail write image 3": that one fails with EIO. "lasting": it and all after it, until there
//                  is a file /tmp/heal; writes with ENOSPC. "short": half of a write happens, a read finds
//                  the end of the file. "flip": one bit of what is read or written is wrong.
//   FW_POINT_LOG   gets a line for every operation, and at last one for the point.
//   FW_POINT_LOSS  what the disk keeps besides what was synced: "none" keeps all, as after a kill; "cut"
//                  loses all unsynced bytes at the end of the files written; "zero" keeps half of them and
//                  has zeros for the rest. Both also undo the rename of an image whose directory was not
//                  synced.
//   FW_POINT_DELAY_MS  lets the process go on for so long before it is killed.
//   FW_POINT_STOP  when set, the process gets this signal instead of being killed, and goes on.
#undef _FILE_OFFSET_BITS // 64-bit names are written out here
#undef _TIME_BITS
#undef _FORTIFY_SOURCE // it defines some of what is defined here
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr const char* Downloads = "/data/fw/";
constexpr const char* Undo = "/data/fw/.undo";
constexpr int StreamHasFailed = 0x20; // the C library's flag behind ferror()
constexpr const char* Heal = "/tmp/heal";

// The definition behind the one that is exported here.
template <typename Function>
Function* next(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// What a file is for; empty for one that is not watched.
std::string classOf(const std::string& path) {
    if (path + "/" == Downloads || path == Downloads)
        return "directory";
    if (path == "/tmp/zempparts")
        return "body";
    if (path.rfind("/lab/db/config.db", 0) == 0)
        return "database";
    if (path.rfind(Downloads, 0) != 0)
        return "";
    return path.find("fw_download_update.zemp") != std::string::npos ? "image" : "fragment";
}

std::string environmentText(const char* name) {
    const char* text = getenv(name);
    return text != nullptr ? text : "";
}

std::string pathOf(int fd) {
    std::error_code none;
    return fs::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
}

uintmax_t sizeOf(const std::string& path) {
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    return error ? 0 : size;
}

// The operations so far and what of them would survive a loss of power. Any thread.
class Journal {
  public:
    static Journal& get() {
        static auto* const journal = new Journal; // outlives every thread
        return *journal;
    }

    // The wanted position at this operation, or empty. What fails has errno set.
    std::string enter(const std::string& operation, const std::string& path) {
        const std::string type = classOf(path);
        if (type.empty())
            return "";
        const std::lock_guard<std::mutex> lock(mMutex);
        const std::string what = operation + " " + type;
        note(what);
        const std::string occurrence = what + " " + std::to_string(++mCounts[what]);
        for (const char* const position : {"before", "amid", "after", "fail", "short", "flip", "lasting"})
            if (mPoint == std::string(position).append(" ").append(occurrence)) {
                mFailing = position == std::string("lasting") ? what : "";
                noteTime();
                errno = EIO;
                return position;
            }
        if (mFailing != what || faccessat(AT_FDCWD, Heal, F_OK, 0) == 0)
            return "";
        errno = operation == "write" || operation == "sync" ? ENOSPC : EIO;
        return "lasting";
    }

    // Of a watched file.
    void onWritten(const std::string& path) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSynced.emplace(path, 0);
    }

    // Of a watched file.
    void onSynced(const std::string& path) {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (classOf(path) != "directory") {
            mSynced[path] = sizeOf(path);
        } else if (!mRenamedFrom.empty()) {
            mRenamedFrom.clear();
            next(unlink, "unlink")(Undo);
        }
    }

    void beforeRename(const std::string& from, const std::string& to) {
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto entry = mSynced.find(from);
        if (entry != mSynced.end()) {
            mSynced[to] = entry->second;
            mSynced.erase(from);
        }
        if (mLoss == "none" || classOf(to) != "image")
            return;
        mRenamedFrom = from;
        mRenamedTo = to;
        next(unlink, "unlink")(Undo);
        mHasUndo = link(to.c_str(), Undo) == 0;
    }

    void onUnlinked(const std::string& path) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSynced.erase(path);
    }

    // The point is reached.
    void act() {
        const std::lock_guard<std::mutex> lock(mMutex);
        mPoint.clear();
        if (mStop != 0)
            kill(getpid(), mStop);
        else if (mDelayMs > 0)
            std::thread([this] { loseAndDieLater(); }).detach();
        else
            loseAndDie();
    }

  private:
    Journal() = default;

    void loseAndDieLater() {
        std::this_thread::sleep_for(std::chrono::milliseconds(mDelayMs));
        const std::lock_guard<std::mutex> lock(mMutex);
        loseAndDie();
    }

    void loseAndDie() {
        if (mLoss != "none")
            lose();
        kill(getpid(), SIGKILL);
        pause();
    }

    void noteTime() const {
        const auto now = std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
        note("at " + std::to_string(now) + " ms " + mPoint);
    }

    void note(const std::string& text) const {
        const std::string line = text + "\n";
        if (mLog >= 0 && syscall(SYS_write, mLog, line.data(), line.size()) < 0)
            abort();
    }

    void lose() {
        if (!mRenamedFrom.empty()) {
            move(mRenamedTo, mRenamedFrom);
            if (mHasUndo)
                move(Undo, mRenamedTo);
            if (mSynced.count(mRenamedTo) != 0)
                mSynced[mRenamedFrom] = mSynced[mRenamedTo];
            mSynced.erase(mRenamedTo);
        }
        for (const auto& [path, synced] : mSynced) {
            const uintmax_t size = sizeOf(path);
            if (classOf(path) == "database" || size <= synced)
                continue;
            const bool zero = mLoss == "zero";
            fs::resize_file(path, zero ? synced + (size - synced) / 2 : synced);
            if (zero)
                fs::resize_file(path, size);
        }
    }

    void move(const std::string& from, const std::string& to) const {
        if (next(rename, "rename")(from.c_str(), to.c_str()) != 0)
            note("cannot rename " + from);
    }

    // Constant.
    const int mLog = next(open64, "open64")(environmentText("FW_POINT_LOG").c_str(),
                                            O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const std::string mLoss = environmentText("FW_POINT_LOSS");
    const int mDelayMs = atoi(environmentText("FW_POINT_DELAY_MS").c_str());
    const int mStop = atoi(environmentText("FW_POINT_STOP").c_str());

    std::mutex mMutex; // for all below
    std::string mPoint = environmentText("FW_POINT");
    std::string mFailing; // operation and class that fail from the point on
    std::map<std::string, int> mCounts;
    std::map<std::string, uintmax_t> mSynced; // bytes on disk of each file written
    std::string mRenamedFrom;                 // an image's rename that is not on disk yet
    std::string mRenamedTo;
    bool mHasUndo = false;
};

// While there is one thread: the thread sanitizer does not see what orders the threads that come later.
[[gnu::constructor]] void makeJournal() {
    Journal::get();
}

using Record = void (Journal::*)(const std::string& path);

// One operation with the point before, amid or after it, or failing there, errno kept. `operation` does
// `size` of it, or half of that; `record` follows when a watched file was changed.
template <typename Operation>
auto perform(const std::string& position, const std::string& path, const Operation& operation,
             Record record = nullptr, size_t size = 0) {
    if (position == "fail" || position == "lasting")
        return decltype(operation(size))(-1);
    if (position == "before")
        Journal::get().act();
    const auto result = operation(position == "amid" || position == "short" ? size / 2 : size);
    const int error = errno;
    if (result >= 0 && record != nullptr && !classOf(path).empty())
        (Journal::get().*record)(path);
    if (position == "amid" || position == "after")
        Journal::get().act();
    errno = error;
    return result;
}

template <typename Operation>
ssize_t performWrite(int fd, const void* data, size_t size, const Operation& operation) {
    const std::string path = pathOf(fd);
    const std::string position = Journal::get().enter("write", path);
    std::string bytes;
    if (position == "flip" && size > 0) {
        bytes.assign(static_cast<const char*>(data), size);
        bytes[size / 2] ^= 0x10;
        data = bytes.data();
    }
    return perform(
        position, path, [&](size_t part) { return operation(data, part); }, &Journal::onWritten, size);
}

template <typename Operation>
ssize_t performRead(int fd, void* data, size_t size, const Operation& operation) {
    const std::string path = pathOf(fd);
    const std::string position = Journal::get().enter("read", path);
    const ssize_t result = perform(
        position, path, [&](size_t) { return position == "short" ? 0 : operation(); }, nullptr, size);
    if (position == "flip" && result > 0)
        static_cast<char*>(data)[result / 2] ^= 0x10;
    return result;
}

template <typename Operation>
int performOpen(const char* path, const Operation& operation) {
    return perform(Journal::get().enter("open", path), path, [&](size_t) { return operation(); });
}

// The C library's own streams write without a call that can be caught here, so those of watched files are
// made of a descriptor and these functions. The library knows no descriptor of such a stream.
std::mutex sStreamsMutex;
std::map<FILE*, int> sStreams; // guarded by sStreamsMutex; those that are closed stay

} // namespace

extern "C" {

ssize_t write(int fd, const void* data, size_t size) {
    return performWrite(fd, data, size,
                        [fd](const void* from, size_t part) { return next(write, "write")(fd, from, part); });
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    return performWrite(fd, data, size, [fd, offset](const void* from, size_t part) {
        return next(pwrite64, "pwrite64")(fd, from, part, offset);
    });
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
    return pwrite64(fd, data, size, offset);
}

ssize_t read(int fd, void* data, size_t size) {
    return performRead(fd, data, size, [&] { return next(read, "read")(fd, data, size); });
}

ssize_t pread64(int fd, void* data, size_t size, off64_t offset) {
    return performRead(fd, data, size, [&] { return next(pread64, "pread64")(fd, data, size, offset); });
}

ssize_t pread(int fd, void* data, size_t size, off_t offset) {
    return pread64(fd, data, size, offset);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return performOpen(path, [&] { return next(open64, "open64")(path, flags, mode); });
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return performOpen(path, [&] { return next(open, "open")(path, flags, mode); });
}

int fsync(int fd) {
    const std::string path = pathOf(fd);
    return perform(
        Journal::get().enter("sync", path), path, [&](size_t) { return next(fsync, "fsync")(fd); },
        &Journal::onSynced);
}

int fdatasync(int fd) {
    const std::string path = pathOf(fd);
    return perform(Journal::get().enter("sync", path), path,
                   [&](size_t) { return next(fdatasync, "fdatasync")(fd); });
}

int rename(const char* from, const char* to) {
    return perform(Journal::get().enter("rename", to), to, [&](size_t) {
        if (!classOf(to).empty())
            Journal::get().beforeRename(from, to);
        return next(rename, "rename")(from, to);
    });
}

int unlink(const char* path) {
    return perform(
        Journal::get().enter("unlink", path), path, [&](size_t) { return next(unlink, "unlink")(path); },
        &Journal::onUnlinked);
}

// Streams to read from are the C library's own.
size_t fread(void* data, size_t size, size_t count, FILE* file) {
    const ssize_t result = performRead(next(fileno, "fileno")(file), data, size * count, [&] {
        return static_cast<ssize_t>(size * next(fread, "fread")(data, size, count, file));
    });
    if (result < 0)
        file->_flags |= StreamHasFailed;
    return result < 0 ? 0 : static_cast<size_t>(result) / size;
}

FILE* fdopen(int fd, const char* mode) {
    if (*mode != 'w' || classOf(pathOf(fd)).empty())
        return next(fdopen, "fdopen")(fd, mode);
    cookie_io_functions_t functions = {};
    functions.write = [](void* cookie, const char* data, size_t size) {
        return write(*static_cast<int*>(cookie), data, size);
    };
    functions.close = [](void* cookie) {
        const std::unique_ptr<int> descriptor(static_cast<int*>(cookie));
        return close(*descriptor);
    };
    auto cookie = std::make_unique<int>(fd);
    FILE* const file = fopencookie(cookie.get(), mode, functions);
    static_cast<void>(cookie.release()); // its close deletes it
    const std::lock_guard<std::mutex> lock(sStreamsMutex);
    sStreams[file] = fd;
    return file;
}

int fileno(FILE* file) {
    const int fd = next(fileno, "fileno")(file);
    const std::lock_guard<std::mutex> lock(sStreamsMutex);
    return fd < 0 && sStreams.count(file) != 0 ? sStreams[file] : fd;
}
}
