// Event loop of one thread: descriptors, periodic timers and a wake-up event.
//
// A loop, its timers and its handlers belong to the thread that calls FdLoop::run(); everything may be
// constructed earlier and elsewhere (also before a fork), since the resources behind it are made on first use
// in the running thread. Only FdLoopEvent::interrupt() may be called from other threads and signal handlers.
#ifndef VEX_FDLOOP_H
#define VEX_FDLOOP_H

#include "vex/Export.h"
#include <memory>

namespace common {

// What a timer calls.
class VEX_PUBLIC AbstractFdLoopTimeoutHandler {
  public:
    virtual ~AbstractFdLoopTimeoutHandler() = default;

    // Called on the loop's thread each time the interval has passed. True keeps the timer, false removes it.
    virtual bool onFdLoopTimerTimeout() = 0;
};

// Base for objects that are their own timer handler.
class VEX_PUBLIC FdLoopTimeoutHandler : public AbstractFdLoopTimeoutHandler {
  public:
    // The handler to give to FdLoop::addTimer(): this object. Never null.
    AbstractFdLoopTimeoutHandler* getFdLoopTimeoutCalback() { return this; }
};

// What a descriptor calls.
class VEX_PUBLIC AbstractFdLoopEventHandler {
  public:
    virtual ~AbstractFdLoopEventHandler() = default;

    // Called on the loop's thread when `fd` is readable. The handler reads it.
    virtual void onFdLoopEvent(int fd) = 0;
};

// Registration of a descriptor. Without an event handler behind it, readability only ends the loop's wait:
// the loop drains the descriptor itself and run() returns.
class VEX_PUBLIC FdLoopEventHandler {
  public:
    // `handler` may be null; it is not owned and must outlive the registration.
    explicit FdLoopEventHandler(AbstractFdLoopEventHandler* handler = nullptr) : mHandler(handler) {}

    AbstractFdLoopEventHandler* getHandler() const { return mHandler; }

  private:
    AbstractFdLoopEventHandler* const mHandler;
};

// A periodic interval. Holds no resource until it is added to a loop; removed from its loop when destroyed.
class VEX_PUBLIC FdLoopTimer {
  public:
    FdLoopTimer();
    ~FdLoopTimer();
    FdLoopTimer(const FdLoopTimer&) = delete;
    FdLoopTimer& operator=(const FdLoopTimer&) = delete;

    // Milliseconds; 0 counts as 1. A timer that is armed goes on with the new interval from now.
    void setInterval(unsigned milliseconds);

    // The interval as set, in milliseconds, 0 before that; not divided by any time scale.
    unsigned getInterval() const;

  private:
    friend class FdLoop;
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

// A descriptor that becomes readable when interrupted.
class VEX_PUBLIC FdLoopEvent {
  public:
    FdLoopEvent();
    ~FdLoopEvent();
    FdLoopEvent(const FdLoopEvent&) = delete;
    FdLoopEvent& operator=(const FdLoopEvent&) = delete;

    // The descriptor, open from construction to destruction; -1 if the system gave none.
    int getFd() const;

    // Makes the descriptor readable. Safe from any thread and from a signal handler; keeps errno. An
    // interrupt that comes before the loop waits is not lost.
    void interrupt();

  private:
    int mFd;
};

class VEX_PUBLIC FdLoop {
  public:
    FdLoop();
    ~FdLoop();
    FdLoop(const FdLoop&) = delete;
    FdLoop& operator=(const FdLoop&) = delete;

    // Waits and dispatches until a registered descriptor without an event handler (an interrupt) became
    // readable; everything else that is due at that moment is dispatched first. Also returns, after a pause
    // of at most 1 s, when the loop cannot wait at all; the caller's flag decides whether to call it again.
    // If the calling thread may be cancelled, the wait is a cancellation point; handlers are never cancelled.
    void run();

    // Watches `fd` for reading. What `handler` calls is not owned and must live until fdUnregister() or the
    // last run(). False when the descriptor cannot be watched or is registered already.
    [[nodiscard]] bool fdRegister(int fd, FdLoopEventHandler& handler);

    // Stops watching; harmless for a descriptor that is not registered.
    void fdUnregister(int fd);

    // Arms `timer` with its interval, to fire first one interval from now. Neither is owned. A timer that is
    // armed already is armed anew, never twice. Ticks that a slow handler missed are left out. False when the
    // timer cannot be armed: no handler, no interval, no resources. $VEX_TIME_SCALE (a number of at least 1,
    // read when the loop is first used) divides the interval, down to 100 microseconds.
    [[nodiscard]] bool addTimer(FdLoopTimer& timer, AbstractFdLoopTimeoutHandler* handler);

    // Disarms; harmless for a timer that was never added.
    void delTimer(FdLoopTimer& timer);

  private:
    friend class FdLoopTimer;
    friend class CBusConnection;
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

} // namespace common

#endif
