#include "workers/AppendFile.h"

#include "workers/WritePace.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// Data comes in pieces of at most 16 KiB; this saves most of the system calls.
constexpr size_t BufferSize = 131072; // bytes

constexpr mode_t NewFileMode = 0666; // less the process's mask

} // namespace

AppendFile::AppendFile(const std::string& path, uint64_t maximumSize, WritePace* pace,
                       std::function<void(uint64_t size)> onProgress)
    : mMaximumSize(maximumSize), mPace(pace), mOnProgress(std::move(onProgress)) {
    // Not blocking: a pipe that nobody reads would hold up the thread for ever.
    mDescriptor = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, NewFileMode);
    struct stat status = {};
    if (mDescriptor < 0 || fstat(mDescriptor, &status) != 0 || S_ISFIFO(status.st_mode)) {
        mError = mDescriptor >= 0 && S_ISFIFO(status.st_mode) ? ENXIO : errno;
        if (mDescriptor >= 0)
            ::close(mDescriptor);
        return;
    }
    mInitialSize = mSize = static_cast<uint64_t>(status.st_size);
    cookie_io_functions_t functions = {};
    functions.write = onWrite;
    functions.close = onClose;
    mStream = fopencookie(this, "a", functions);
    if (mStream == nullptr) {
        mError = errno;
        ::close(mDescriptor);
        return;
    }
    mBuffer = std::make_unique<char[]>(BufferSize);
    setvbuf(mStream, nullptr, _IONBF, 0); // the buffer is here, where a pace can be kept
}

AppendFile::~AppendFile() {
    if (mStream != nullptr)
        fclose(mStream);
}

bool AppendFile::close() {
    if (mStream != nullptr && fclose(mStream) != 0 && mError == 0)
        mError = errno;
    mStream = nullptr;
    return mError == 0;
}

ssize_t AppendFile::onWrite(void* cookie, const char* data, size_t size) {
    auto* file = static_cast<AppendFile*>(cookie);
    const bool taken = file->take(data, size);
    errno = file->mError;
    return taken ? static_cast<ssize_t>(size) : 0;
}

int AppendFile::onClose(void* cookie) {
    auto* file = static_cast<AppendFile*>(cookie);
    static_cast<void>(file->writeBuffered(1)); // interrupted or not, all is written
    const int result = ::close(file->mDescriptor);
    if (result != 0 && file->mError == 0)
        file->mError = errno;
    return result;
}

// False when a byte was lost, or the pace was interrupted.
bool AppendFile::take(const char* data, size_t size) {
    const uint64_t room = mSize < mMaximumSize ? mMaximumSize - mSize : 0;
    const bool fits = size <= room;
    size = fits ? size : static_cast<size_t>(room);
    const size_t lowest = mPace != nullptr ? mPace->size() : BufferSize;
    bool goesOn = true;
    while (mError == 0 && size > 0) {
        if (mOnProgress)
            mOnProgress(mSize);
        const size_t taken = std::min(size, BufferSize - mBuffered);
        memcpy(mBuffer.get() + mBuffered, data, taken);
        mBuffered += taken;
        mSize += taken;
        data += taken;
        size -= taken;
        goesOn = writeBuffered(lowest) && goesOn;
    }
    if (!fits) {
        goesOn = writeBuffered(1) && goesOn;
        if (mError == 0)
            mError = EFBIG;
    }
    return mError == 0 && goesOn;
}

// Writes from the buffer until it holds less than `lowest` bytes, at most a buffer's size. False when the
// pace was interrupted; what is written then, is written at once.
bool AppendFile::writeBuffered(size_t lowest) {
    const size_t most = mPace != nullptr ? mPace->size() : BufferSize;
    bool goesOn = true;
    size_t done = 0;
    while (mError == 0 && mBuffered - done >= lowest) {
        goesOn = (mPace == nullptr || mPace->wait()) && goesOn;
        const size_t size = std::min(mBuffered - done, most);
        writeAll(mBuffer.get() + done, size);
        done += size;
    }
    mBuffered -= done;
    memmove(mBuffer.get(), mBuffer.get() + done, mBuffered);
    return goesOn;
}

void AppendFile::writeAll(const char* data, size_t size) {
    while (mError == 0 && size > 0) {
        const ssize_t written = write(mDescriptor, data, size);
        if (written < 0) {
            if (errno != EINTR)
                mError = errno;
            continue;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
}
