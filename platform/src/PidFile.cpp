#include "PidFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A predecessor may remove its file between our opening and locking it; then there is a new one to open.
constexpr int sAttempts = 10;

bool isRegularFile(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

PidFile::~PidFile() {
    if (mFd >= 0)
        close(mFd);
}

bool PidFile::lock(const char* path, std::string& error) {
    mPath = path;
    for (int attempt = 0; attempt < sAttempts; ++attempt) {
        // Not blocking: a fifo in its place shall be refused, not waited for.
        mFd = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
        if (mFd < 0) {
            error = "cannot open the pid file " + mPath + ": " + strerror(errno);
            return false;
        }
        const bool regular = isRegularFile(mFd);
        const bool locked = regular && flock(mFd, LOCK_EX | LOCK_NB) == 0;
        if (locked && isCurrent())
            return true;
        if (!regular)
            error = "the pid file " + mPath + " is not a regular file";
        else if (!locked)
            error = errno == EWOULDBLOCK ? "already running" + holder() + ", pid file " + mPath
                                         : "cannot lock the pid file " + mPath + ": " + strerror(errno);
        close(mFd);
        mFd = -1;
        if (!locked)
            return false;
    }
    error = "the pid file " + mPath + " changes all the time";
    return false;
}

bool PidFile::isCurrent() const {
    struct stat ours {};
    struct stat named {};
    return fstat(mFd, &ours) == 0 && stat(mPath.c_str(), &named) == 0 && ours.st_dev == named.st_dev &&
           ours.st_ino == named.st_ino;
}

// " as process N" when the file says so.
std::string PidFile::holder() const {
    char text[16];
    const ssize_t length = pread(mFd, text, sizeof text, 0);
    const std::string pid(text, length > 0 ? static_cast<size_t>(length) : 0);
    const size_t digits = std::min(pid.find_first_not_of("0123456789"), pid.size());
    return digits > 0 ? " as process " + pid.substr(0, digits) : "";
}

bool PidFile::record(std::string& error) {
    const std::string text = std::to_string(getpid()) + "\n";
    if (ftruncate(mFd, 0) == 0 &&
        pwrite(mFd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()))
        return true;
    error = "cannot write the pid file " + mPath + ": " + strerror(errno);
    return false;
}

void PidFile::remove() {
    if (mFd < 0)
        return;
    if (isCurrent())
        unlink(mPath.c_str());
    close(mFd);
    mFd = -1;
}
