// What stands behind FdLoop and FdLoopTimer; for the loop's own sources and the bus connection.
//
// The sd-event loop belongs to the process that made it: after a fork every call on it fails in the child. So
// the registrations are kept here and a new sd-event loop is made from them when the process has changed.
#ifndef PLATFORM_FDLOOPIMPL_H
#define PLATFORM_FDLOOPIMPL_H

#include "vex/FdLoop.h"
#include <cstdint>
#include <map>
#include <sys/types.h>
#include <systemd/sd-event.h>

class CancellationBlock;

namespace common {

struct [[gnu::visibility("hidden")]] FdLoopTimer::Impl {
    unsigned interval = 0;        // milliseconds
    FdLoop::Impl* loop = nullptr; // where it is armed, else null
    uint64_t armingId = 0;        // there
};

struct [[gnu::visibility("hidden")]] FdLoop::Impl {
    // One addTimer(). A timer armed again is a new arming, so a handler can be told from its successor.
    struct Arming {
        Impl* loop = nullptr;
        uint64_t id = 0;
        FdLoopTimer::Impl* timer = nullptr;
        AbstractFdLoopTimeoutHandler* handler = nullptr;
        sd_event_source* source = nullptr;
        uint64_t due = 0;     // microseconds of the monotonic clock
        bool changed = false; // the interval was set since the last tick began
    };

    // One fdRegister().
    struct Watch {
        Impl* loop = nullptr;
        int fd = -1;
        AbstractFdLoopEventHandler* handler = nullptr;
        sd_event_source* source = nullptr;
    };

    Impl() = default;
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // Makes the sd-event loop unless this process has it already. 0 or a negative error number.
    [[nodiscard]] int ensureEvent();

    // The sd-event loop; only after a successful ensureEvent(). Owned.
    sd_event* event() const {
        return mEvent;
    }

    void run();

    [[nodiscard]] int addWatch(int fd, AbstractFdLoopEventHandler* handler);
    void removeWatch(int fd);

    [[nodiscard]] int addTimer(FdLoopTimer::Impl & timer, AbstractFdLoopTimeoutHandler * handler);
    void removeTimer(uint64_t id);
    void restartTimer(uint64_t id); // one interval from now

  private:
    [[nodiscard]] int attach(Watch & watch);
    [[nodiscard]] int schedule(Arming & arming, uint64_t due);
    void reattachAll();
    int step(const CancellationBlock& block, bool& more);
    void drain(int fd);
    void fire(uint64_t id);
    uint64_t intervalUs(const Arming& arming) const;

    static double readTimeScale();
    static int onReadable(sd_event_source * source, int fd, uint32_t revents, void* userdata);
    static int onTime(sd_event_source * source, uint64_t time, void* userdata);

    sd_event* mEvent = nullptr;
    pid_t mPid = 0; // the process that made mEvent
    double mTimeScale = 1.0;
    bool mInterrupted = false; // a descriptor without a handler was readable in this run()
    uint64_t mLastId = 0;
    std::map<int, Watch> mWatches;
    std::map<uint64_t, Arming> mArmings;
};

} // namespace common

#endif
