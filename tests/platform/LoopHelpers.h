// Small handlers and clocks that the loop's tests share.
#ifndef PLATFORM_LOOPHELPERS_H
#define PLATFORM_LOOPHELPERS_H

#include "vex/FdLoop.h"
#include <chrono>
#include <ctime>
#include <functional>
#include <utility>

// A timer handler made of a function that says whether to keep the timer.
class OnTick : public common::FdLoopTimeoutHandler {
  public:
    explicit OnTick(std::function<bool()> action) : mAction(std::move(action)) {}
    bool onFdLoopTimerTimeout() override { return mAction(); }

  private:
    const std::function<bool()> mAction;
};

// A timer of this interval that calls a function on the loop.
struct Ticking {
    Ticking(common::FdLoop& loop, unsigned milliseconds, std::function<bool()> action)
        : handler(std::move(action)) {
        timer.setInterval(milliseconds);
        added = addTo(loop);
    }
    bool addTo(common::FdLoop& loop) { return loop.addTimer(timer, &handler); }

    OnTick handler;
    common::FdLoopTimer timer;
    bool added = false;
};

// A loop with an event that ends its run().
struct StoppableLoop {
    common::FdLoop loop;
    common::FdLoopEvent event;
    common::FdLoopEventHandler breakOnly;
    bool registered = loop.fdRegister(event.getFd(), breakOnly);

    // Runs until interrupted, at most `limit`; true when it was interrupted before that.
    bool run(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        bool late = false;
        const Ticking onLimit(loop, static_cast<unsigned>(limit.count()), [&] {
            late = true;
            event.interrupt();
            return false;
        });
        if (!registered || !onLimit.added)
            return false;
        loop.run();
        return !late;
    }
};

inline double elapsedMs(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - since).count();
}

// Processor time of the calling thread.
inline double processorMs() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

#endif
