// Preloaded into the daemon: counts what it does to its files, and ends it or asks it to stop at one of these
// points, named in the environment:
//
//   FW_POINT       "before write image 3": just before the third write to a file of that class. "amid" lets
//                  half of a write happen; "after" lets all of it happen.
//   FW_POINT_LOG   gets a line for every operation, and at last one for the point.
//   FW_POINT_LOSS  what the disk keeps besides what was synced: "none" keeps all, as after a kill; "cut"
//   loses
//                  all unsynced bytes at the end of the files written; "zero" keeps half of them and has
//                  zeros for the rest. Both also undo the rename of an image whose directory was not synced.
//   FW_POINT_DELAY_MS  lets the process go on for so long before it is killed.
//   FW_POINT_STOP  when set, the process gets this signal instead of being killed, and goes on.
#undef _FILE_OFFSET_BITS // 64-bit names are written out here
#undef _TIME_BITS
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr const char* Downloads = "/data/fw/";
constexpr const char* Undo = "/data/fw/.undo";

// The next definition of a function behind the one that is exported here.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// What a file is for; empty for one that is not watched.
std::string classOf(const std::string& path) {
    if (path + "/" == Downloads || path == Downloads)
        return "directory";
    if (path == "/tmp/zempparts")
        return "body";
    if (startsWith(path, "/lab/db/config.db"))
        return "database";
    if (!startsWith(path, Downloads))
        return "";
    return path.find("fw_download_update.zemp") != std::string::npos ? "image" : "fragment";
}

std::string environmentText(const char* name) {
    const char* text = getenv(name);
    return text != nullptr ? text : "";
}

std::string pathOf(int fd) {
    char path[512];
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
    return {path, length > 0 ? static_cast<size_t>(length) : 0};
}

off64_t sizeOf(const std::string& path) {
    struct stat64 status {};
    return stat64(path.c_str(), &status) == 0 ? status.st_size : 0;
}

// The operations so far and what of them would survive a loss of power. Any thread.
class Journal {
  public:
    static Journal& get() {
        static auto* const journal = new Journal; // outlives every thread
        return *journal;
    }

    // The wanted position at this operation: "before", "amid", "after", or empty.
    std::string enter(const std::string& operation, const std::string& path) {
        const std::string type = classOf(path);
        if (type.empty())
            return "";
        const std::lock_guard<std::mutex> lock(mMutex);
        std::string what = operation;
        what += " " + type;
        note(what);
        what += " " + std::to_string(++mCounts[what]);
        for (const char* const position : {"before", "amid", "after"})
            if (mPoint == std::string(position) + " " + what)
                return position;
        return "";
    }

    void onWritten(const std::string& path) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSynced.emplace(path, 0);
    }

    void onSynced(const std::string& path) {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (classOf(path) != "directory") {
            mSynced[path] = sizeOf(path);
        } else if (!mRenamedFrom.empty()) {
            mRenamedFrom.clear();
            next<int(const char*)>("unlink")(Undo);
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
        next<int(const char*)>("unlink")(Undo);
        mHasUndo = link(to.c_str(), Undo) == 0;
    }

    void onUnlinked(const std::string& path) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSynced.erase(path);
    }

    // The point is reached.
    void act() {
        const std::lock_guard<std::mutex> lock(mMutex);
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        note("at " + std::to_string(now.tv_sec * 1000 + now.tv_nsec / 1000000) + " ms " + mPoint);
        mPoint.clear();
        if (mStop != 0) {
            kill(getpid(), mStop);
            return;
        }
        if (mDelayMs > 0)
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

    void note(const std::string& text) const {
        if (mLog < 0)
            return;
        const std::string line = text + "\n";
        if (syscall(SYS_write, mLog, line.data(), line.size()) < 0)
            abort();
    }

    void lose() {
        if (!mRenamedFrom.empty()) {
            rename(mRenamedTo, mRenamedFrom);
            if (mHasUndo)
                rename(Undo, mRenamedTo);
            if (mSynced.count(mRenamedTo) != 0)
                mSynced[mRenamedFrom] = mSynced[mRenamedTo];
            mSynced.erase(mRenamedTo);
        }
        for (const auto& [path, synced] : mSynced) {
            const off64_t size = sizeOf(path);
            if (classOf(path) == "database" || size <= synced)
                continue;
            const bool zero = mLoss == "zero";
            if (truncate64(path.c_str(), zero ? synced + (size - synced) / 2 : synced) != 0 ||
                (zero && truncate64(path.c_str(), size) != 0))
                note("cannot lose bytes of " + path);
        }
    }

    void rename(const std::string& from, const std::string& to) const {
        if (next<int(const char*, const char*)>("rename")(from.c_str(), to.c_str()) != 0)
            note("cannot rename " + from);
    }

    const int mLog =
        open64(environmentText("FW_POINT_LOG").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
               0644); // constant
    const std::string mLoss = environmentText("FW_POINT_LOSS");
    const int mDelayMs = atoi(environmentText("FW_POINT_DELAY_MS").c_str());
    const int mStop = atoi(environmentText("FW_POINT_STOP").c_str());

    std::mutex mMutex; // for all below
    std::string mPoint = environmentText("FW_POINT");
    std::map<std::string, int> mCounts;
    std::map<std::string, off64_t> mSynced; // bytes on disk of each file written
    std::string mRenamedFrom;               // an image's rename that is not on disk yet
    std::string mRenamedTo;
    bool mHasUndo = false;
};

// One operation with the point before or after it, errno kept.
template <typename Operation>
auto perform(const char* name, const std::string& path, const Operation& operation) {
    const std::string position = Journal::get().enter(name, path);
    if (position == "before")
        Journal::get().act();
    const auto result = operation();
    const int error = errno;
    if (position == "after")
        Journal::get().act();
    errno = error;
    return result;
}

// `write` takes a number of bytes from the front of the data.
template <typename Write>
ssize_t performWrite(const std::string& path, size_t size, const Write& write) {
    const std::string position = Journal::get().enter("write", path);
    if (position == "before")
        Journal::get().act();
    ssize_t result = write(position == "amid" ? size / 2 : size);
    const int error = errno;
    if (!classOf(path).empty())
        Journal::get().onWritten(path);
    if (position == "after" || position == "amid")
        Journal::get().act();
    errno = error;
    return result;
}

ssize_t plainWrite(int fd, const void* data, size_t size) {
    return next<ssize_t(int, const void*, size_t)>("write")(fd, data, size);
}

// The C library's own streams write without a call that can be caught here, so those of watched files are
// made of a descriptor and these functions.
struct Stream {
    int fd;
};

std::mutex sStreamsMutex;
std::map<FILE*, int> sStreams; // their descriptors, guarded by sStreamsMutex

ssize_t writeStream(void* cookie, const char* data, size_t size) {
    const int fd = static_cast<Stream*>(cookie)->fd;
    return write(fd, data, size);
}

int closeStream(void* cookie) {
    const std::unique_ptr<Stream> stream(static_cast<Stream*>(cookie));
    const std::lock_guard<std::mutex> lock(sStreamsMutex);
    for (auto it = sStreams.begin(); it != sStreams.end(); ++it) {
        if (it->second == stream->fd) {
            sStreams.erase(it);
            break;
        }
    }
    return close(stream->fd);
}

} // namespace

extern "C" {

ssize_t write(int fd, const void* data, size_t size) {
    return performWrite(pathOf(fd), size, [&](size_t part) { return plainWrite(fd, data, part); });
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    return performWrite(pathOf(fd), size, [&](size_t part) {
        return next<ssize_t(int, const void*, size_t, off64_t)>("pwrite64")(fd, data, part, offset);
    });
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
    return pwrite64(fd, data, size, offset);
}

int fsync(int fd) {
    const std::string path = pathOf(fd);
    return perform("sync", path, [&] {
        const int result = next<int(int)>("fsync")(fd);
        if (result == 0 && !classOf(path).empty())
            Journal::get().onSynced(path);
        return result;
    });
}

int fdatasync(int fd) {
    return perform("sync", pathOf(fd), [&] { return next<int(int)>("fdatasync")(fd); });
}

int rename(const char* from, const char* to) {
    return perform("rename", to, [&] {
        if (!classOf(to).empty())
            Journal::get().beforeRename(from, to);
        return next<int(const char*, const char*)>("rename")(from, to);
    });
}

int unlink(const char* path) {
    return perform("unlink", path, [&] {
        Journal::get().onUnlinked(path);
        return next<int(const char*)>("unlink")(path);
    });
}

FILE* fdopen(int fd, const char* mode) {
    if (*mode != 'w' || classOf(pathOf(fd)).empty())
        return next<FILE*(int, const char*)>("fdopen")(fd, mode);
    auto stream = std::make_unique<Stream>(Stream{fd});
    cookie_io_functions_t functions = {};
    functions.write = writeStream;
    functions.close = closeStream;
    FILE* const file = fopencookie(stream.get(), mode, functions);
    if (file == nullptr)
        return nullptr;
    static_cast<void>(stream.release()); // closeStream() deletes it
    const std::lock_guard<std::mutex> lock(sStreamsMutex);
    sStreams[file] = fd;
    return file;
}

int fileno(FILE* file) {
    {
        const std::lock_guard<std::mutex> lock(sStreamsMutex);
        const auto stream = sStreams.find(file);
        if (stream != sStreams.end())
            return stream->second;
    }
    return next<int(FILE*)>("fileno")(file);
}
}
