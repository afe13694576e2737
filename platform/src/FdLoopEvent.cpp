#include "vex/FdLoop.h"
#include "vex/kq.h"
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/eventfd.h>
#include <syslog.h>
#include <unistd.h>

namespace common {

FdLoopEvent::FdLoopEvent() : mFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (mFd < 0)
        kq_slog(LOG_ERR, "FdLoopEvent: no event descriptor: %s", strerror(errno));
}

FdLoopEvent::~FdLoopEvent() {
    if (mFd >= 0)
        close(mFd);
}

int FdLoopEvent::getFd() const {
    return mFd;
}

// A full counter (EAGAIN) is an interrupt that is still pending, so there is nothing to do about it.
void FdLoopEvent::interrupt() {
    const int savedErrno = errno;
    const uint64_t one = 1;
    while (write(mFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
    errno = savedErrno;
}

} // namespace common
