#include "common/File.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int CreateAttempts = 3; // somebody may take the name again while it is being freed

} // namespace

File::~File() {
    if (mFd >= 0)
        ::close(mFd);
}

bool File::openForReading(const std::string& filename) {
    mFd = ::open(filename.c_str(), O_RDONLY | O_CLOEXEC);
    return mFd >= 0;
}

bool File::openRegularForReading(const std::string& filename, Links links) {
    const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | (links == Links::Refuse ? O_NOFOLLOW : 0);
    mFd = ::open(filename.c_str(), flags);
    struct stat status = {};
    if (mFd < 0 || fstat(mFd, &status) != 0)
        return false;
    errno = EINVAL;
    return S_ISREG(status.st_mode);
}

bool File::createAnew(const std::string& filename, unsigned mode) {
    for (int attempt = 0; attempt < CreateAttempts && mFd < 0; ++attempt) {
        if (unlink(filename.c_str()) != 0 && errno != ENOENT)
            return false;
        mFd = ::open(filename.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        if (mFd < 0 && errno != EEXIST)
            return false;
    }
    return mFd >= 0;
}

size_t File::read(void* data, size_t size) {
    size_t done = 0;
    errno = 0;
    while (done < size) {
        const ssize_t count = ::read(mFd, static_cast<uint8_t*>(data) + done, size - done);
        if (count < 0 && errno == EINTR)
            continue;
        mHasFailed = mHasFailed || count < 0;
        if (count == 0)
            errno = 0;
        if (count <= 0)
            break;
        done += static_cast<size_t>(count);
    }
    return done;
}

bool File::write(const void* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t count = ::write(mFd, static_cast<const uint8_t*>(data) + done, size - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        done += static_cast<size_t>(count);
    }
    mPosition += size;
    return true;
}

bool File::seek(uint64_t position) {
    return lseek(mFd, static_cast<off_t>(position), SEEK_SET) >= 0;
}

bool File::sync() {
    return fsync(mFd) == 0;
}

bool File::close() {
    const int fd = mFd;
    mFd = -1;
    return ::close(fd) == 0;
}

bool File::syncDirectoryOf(const std::string& filename) {
    const size_t slash = filename.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : filename.substr(0, slash + 1);
    File opened;
    opened.mFd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return opened.mFd >= 0 && opened.sync();
}

bool File::replace(const std::string& filename, const void* data, size_t size, unsigned mode) {
    const std::string partial = filename + ".part";
    File file;
    if (!file.createAnew(partial, mode))
        return false;
    if (file.write(data, size) && file.sync() && file.close() &&
        rename(partial.c_str(), filename.c_str()) == 0)
        return syncDirectoryOf(filename);
    const int error = errno;
    unlink(partial.c_str());
    errno = error;
    return false;
}
