#include "image/StdioFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned PublicMode = 0666; // less the process's mask
constexpr unsigned PrivateMode = 0600;

// 0, or the error number that tells why an open file is not to be used. Empties it on the way if asked to.
int ownFileError(int fd, bool truncate) {
    struct stat status {};
    if (fstat(fd, &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode) || status.st_nlink != 1 || status.st_uid != geteuid())
        return EPERM;
    // Some file systems write a file that was emptied to disk when it is closed, so a new one is left alone.
    return truncate && status.st_size > 0 && ftruncate(fd, 0) != 0 ? errno : 0;
}

} // namespace

StdioFile::~StdioFile() {
    if (mFile != nullptr)
        fclose(mFile);
}

bool StdioFile::open(const std::string& filename, int flags, unsigned mode) {
    const int fd = ::open(filename.c_str(), flags | O_CLOEXEC, mode);
    if (fd < 0)
        return false;
    mFile = fdopen(fd, (flags & O_ACCMODE) == O_RDONLY ? "rb" : "wb");
    if (mFile == nullptr) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return false;
    }
    setvbuf(mFile, nullptr, _IONBF, 0);
    return true;
}

bool StdioFile::openOwn(const std::string& filename, int flags) {
    // Not blocking: a planted pipe must not hold us up.
    if (!open(filename, flags | O_NOFOLLOW | O_NONBLOCK, PrivateMode))
        return false;
    const int error = ownFileError(fileno(mFile), (flags & O_ACCMODE) != O_RDONLY);
    if (error == 0)
        return true;
    fclose(mFile);
    mFile = nullptr;
    errno = error;
    return false;
}

bool StdioFile::openForReading(const std::string& filename) {
    return open(filename, O_RDONLY, 0);
}

bool StdioFile::createForWriting(const std::string& filename) {
    return open(filename, O_WRONLY | O_CREAT | O_TRUNC, PublicMode);
}

bool StdioFile::openOwnForReading(const std::string& filename) {
    return openOwn(filename, O_RDONLY);
}

bool StdioFile::createOwnForWriting(const std::string& filename) {
    return openOwn(filename, O_WRONLY | O_CREAT);
}

size_t StdioFile::read(void* data, size_t size) {
    errno = 0;
    return fread(data, 1, size, mFile);
}

bool StdioFile::hasFailed() const {
    return ferror(mFile) != 0;
}

bool StdioFile::write(const void* data, size_t size) {
    mPosition += size;
    return fwrite(data, 1, size, mFile) == size;
}

bool StdioFile::sync() {
    return fflush(mFile) == 0 && fsync(fileno(mFile)) == 0;
}

bool StdioFile::close() {
    FILE* const file = mFile;
    mFile = nullptr;
    return fclose(file) == 0;
}
