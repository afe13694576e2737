// Waits for SIGINT, SIGTERM and SIGHUP in an ordinary thread, so that what follows a signal may log and lock.
#ifndef MAIN_SIGNALTHREAD_H
#define MAIN_SIGNALTHREAD_H

#include "common/Thread.h"
#include <csignal>

class SignalThread : public Thread {
  public:
    // Blocks these signals in the calling thread and in all that it starts from now on, and calls `handler`
    // in a thread of its own for each one that comes. Made before any other thread exists.
    explicit SignalThread(void (*handler)(int));

    // Ends the thread, after a handler that is being called. The signals stay blocked.
    ~SignalThread() override;

    void* run() override;

  private:
    void (*const mHandler)(int);
    sigset_t mSignals;
};

#endif
