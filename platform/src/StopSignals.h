// SIGTERM, SIGINT and SIGHUP, taken by an ordinary thread instead of a handler.
#ifndef PLATFORM_STOPSIGNALS_H
#define PLATFORM_STOPSIGNALS_H

#include <atomic>
#include <csignal>
#include <functional>
#include <pthread.h>

class StopSignals {
  public:
    // Blocks these signals in the calling thread and in all that it starts.
    StopSignals();

    // The signals stay blocked; see unblock(). The thread must have been stopped.
    ~StopSignals() = default;
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // Gives the calling thread its signal mask back.
    void unblock() const;

    // From now on what this process forks begins with the mask that was there before the constructor.
    void restoreInChildren() const;

    // Starts the thread, which calls `action` for each signal that comes. 0 or an error number.
    [[nodiscard]] int start(std::function<void()> action);

    // Ends the thread, after the action that it is in, and waits for it. Harmless when there is none.
    void stop();

  private:
    static void* waitForSignals(void* arg);

    sigset_t mSignals{};
    sigset_t mBefore{};
    std::function<void()> mAction; // constant while the thread runs
    pthread_t mThread{};
    bool mStarted = false;
    std::atomic<bool> mDone{false}; // set by stop(), read by the thread
};

#endif
