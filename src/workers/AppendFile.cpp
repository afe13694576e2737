#include "workers/AppendFile.h"

#include "common/Thread.h"
#include <cerrno>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Data comes in pieces of at most 16 KiB; this saves most of the system calls.
constexpr size_t BufferSize = 131072; // bytes

constexpr mode_t NewFileMode = 0666; // less the process's mask

} // namespace

AppendFile::AppendFile(const std::string& path, uint64_t maximumSize) : mMaximumSize(maximumSize) {
    mDescriptor = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, NewFileMode);
    struct stat status = {};
    if (mDescriptor < 0 || fstat(mDescriptor, &status) != 0) {
        mError = errno;
        if (mDescriptor >= 0)
            ::close(mDescriptor);
        return;
    }
    mSize = static_cast<uint64_t>(status.st_size);
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
    setvbuf(mStream, mBuffer.get(), _IOFBF, BufferSize);
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
    return static_cast<AppendFile*>(cookie)->writeAll(data, size) ? static_cast<ssize_t>(size) : 0;
}

int AppendFile::onClose(void* cookie) {
    auto* file = static_cast<AppendFile*>(cookie);
    const CancellationBlock block;
    const int result = ::close(file->mDescriptor);
    if (result != 0 && file->mError == 0)
        file->mError = errno;
    return result;
}

bool AppendFile::writeAll(const char* data, size_t size) {
    const CancellationBlock block; // a write that is cut off may or may not have happened
    if (mError == 0 && (mSize > mMaximumSize || size > mMaximumSize - mSize))
        mError = EFBIG;
    while (mError == 0 && size > 0) {
        const ssize_t written = write(mDescriptor, data, size);
        if (written < 0) {
            if (errno != EINTR)
                mError = errno;
            continue;
        }
        data += written;
        size -= static_cast<size_t>(written);
        mSize += static_cast<uint64_t>(written);
    }
    errno = mError;
    return mError == 0;
}
