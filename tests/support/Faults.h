// What makes system calls of this process fail or end early, for as long as it lives.
#ifndef SUPPORT_FAULTS_H
#define SUPPORT_FAULTS_H

#include <csignal>
#include <sys/resource.h>
#include <sys/time.h>

namespace support {

// Files cannot grow beyond this size: stands for a full disk.
class FullDisk {
  public:
    explicit FullDisk(rlim_t bytes = 0) : mPrevious(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &mSaved);
        const rlimit limit{bytes, mSaved.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &mSaved);
        signal(SIGXFSZ, mPrevious);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

  private:
    rlimit mSaved{};
    void (*const mPrevious)(int);
};

// A signal every few milliseconds, whose handler lets system calls end with EINTR. It calls `handler`.
class Interruptions {
  public:
    explicit Interruptions(void (*handler)(int) = [](int) {}) {
        struct sigaction action {};
        action.sa_handler = handler; // without SA_RESTART
        sigaction(SIGALRM, &action, &mSaved);
        const itimerval often{{0, 5000}, {0, 20000}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~Interruptions() {
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &mSaved, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

  private:
    struct sigaction mSaved {};
};

} // namespace support

#endif
