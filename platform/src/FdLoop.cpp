#include "vex/FdLoop.h"

#include "CancellationBlock.h"
#include "FdLoopImpl.h"
#include "vex/kq.h"
#include <cerrno>
#include <cstring>
#include <iterator>
#include <poll.h>
#include <syslog.h>
#include <unistd.h>

namespace common {

namespace {

// How long run() rests when it cannot wait, so that a caller that calls it in a loop does not spin.
constexpr int sFailurePauseMs = 1000;

// Dispatches after an interrupt: enough for everything that is due by then, while a handler that is always
// due cannot hold up the return.
constexpr int sDispatchesAfterInterrupt = 64;

} // namespace

FdLoop::Impl::~Impl() {
    for (auto& entry : mArmings)
        entry.second.timer->loop = nullptr;
    if (mEvent == nullptr || mPid != getpid())
        return; // another process's loop: nothing of it may be touched here
    for (auto& entry : mArmings)
        sd_event_source_disable_unref(entry.second.source);
    for (auto& entry : mWatches)
        sd_event_source_disable_unref(entry.second.source);
    sd_event_unref(mEvent);
}

int FdLoop::Impl::ensureEvent() {
    const pid_t pid = getpid();
    if (mEvent != nullptr && mPid == pid)
        return 0;
    mEvent = nullptr; // what a fork left behind is given up, not released: it is shared with the parent
    const int result = sd_event_new(&mEvent);
    if (result < 0) {
        mEvent = nullptr;
        return result;
    }
    mPid = pid;
    mTimeScale = readTimeScale();
    reattachAll();
    return 0;
}

// A registration that cannot be taken over is dropped: the rest of the loop goes on.
void FdLoop::Impl::reattachAll() {
    for (auto it = mWatches.begin(); it != mWatches.end();) {
        const int result = attach(it->second);
        if (result < 0)
            kq_slog(LOG_ERR, "FdLoop: descriptor %d cannot be watched any more: %s", it->first,
                    strerror(-result));
        it = result < 0 ? mWatches.erase(it) : std::next(it);
    }
    for (auto it = mArmings.begin(); it != mArmings.end();) {
        const uint64_t id = it->first;
        it->second.source = nullptr;
        ++it;
        restartTimer(id);
    }
}

int FdLoop::Impl::attach(Watch& watch) {
    watch.source = nullptr;
    return sd_event_add_io(mEvent, &watch.source, watch.fd, POLLIN, onReadable, &watch);
}

int FdLoop::Impl::addWatch(int fd, AbstractFdLoopEventHandler* handler) {
    const int ensured = ensureEvent();
    if (ensured < 0)
        return ensured;
    const auto inserted = mWatches.emplace(fd, Watch{this, fd, handler, nullptr});
    if (!inserted.second)
        return -EEXIST;
    const int result = attach(inserted.first->second);
    if (result < 0)
        mWatches.erase(inserted.first);
    return result;
}

void FdLoop::Impl::removeWatch(int fd) {
    const auto it = mWatches.find(fd);
    if (it == mWatches.end())
        return;
    if (mPid == getpid())
        sd_event_source_disable_unref(it->second.source);
    mWatches.erase(it);
}

int FdLoop::Impl::onReadable(sd_event_source*, int fd, uint32_t, void* userdata) {
    const Watch& watch = *static_cast<Watch*>(userdata);
    if (watch.handler != nullptr)
        watch.handler->onFdLoopEvent(fd); // may unregister: the watch is not used after this
    else
        watch.loop->drain(fd);
    return 0;
}

// Takes the interrupt. One read empties an event descriptor; what else is left wakes the next run().
void FdLoop::Impl::drain(int fd) {
    mInterrupted = true;
    char bytes[512];
    const ssize_t count = read(fd, bytes, sizeof bytes);
    if (count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR)))
        return;
    kq_slog(LOG_WARNING, "FdLoop: descriptor %d has ended, no longer watched", fd);
    removeWatch(fd);
}

// One step of the sd-event loop. The wait is a poll of our own, so that a cancellation unwinds nothing but
// C++. `more` turns false when run() has done its work. 0 or more, or a negative error number.
int FdLoop::Impl::step(const CancellationBlock& block, bool& more) {
    int result = 0;
    switch (sd_event_get_state(mEvent)) {
    case SD_EVENT_INITIAL:
        return sd_event_prepare(mEvent);
    case SD_EVENT_ARMED:
        if (!mInterrupted) {
            pollfd waiting{sd_event_get_fd(mEvent), POLLIN, 0};
            const CancellationWindow window(block);
            if (poll(&waiting, 1, -1) < 0 && errno != EINTR)
                return -errno;
        }
        result = sd_event_wait(mEvent, 0);
        more = !(mInterrupted && result == 0);
        return result;
    case SD_EVENT_PENDING:
        return sd_event_dispatch(mEvent);
    default:
        return -EBUSY; // called from a handler
    }
}

void FdLoop::Impl::run() {
    const CancellationBlock block;
    int result = ensureEvent();
    mInterrupted = false;
    bool more = true;
    for (int dispatches = 0; result >= 0 && more;) {
        result = step(block, more);
        if (mInterrupted && sd_event_get_state(mEvent) == SD_EVENT_INITIAL)
            more = more && ++dispatches < sDispatchesAfterInterrupt;
    }
    if (result < 0) {
        kq_slog(LOG_ERR, "FdLoop: cannot wait: %s", strerror(-result));
        const CancellationWindow window(block);
        poll(nullptr, 0, sFailurePauseMs);
    }
}

FdLoop::FdLoop() : mImpl(std::make_unique<Impl>()) {}

FdLoop::~FdLoop() = default;

void FdLoop::run() {
    mImpl->run();
}

bool FdLoop::fdRegister(int fd, FdLoopEventHandler& handler) {
    const int result = mImpl->addWatch(fd, handler.getHandler());
    if (result < 0)
        kq_slog(LOG_ERR, "FdLoop: cannot watch descriptor %d: %s", fd, strerror(-result));
    return result >= 0;
}

void FdLoop::fdUnregister(int fd) {
    mImpl->removeWatch(fd);
}

bool FdLoop::addTimer(FdLoopTimer& timer, AbstractFdLoopTimeoutHandler* handler) {
    const int result = mImpl->addTimer(*timer.mImpl, handler);
    if (result < 0)
        kq_slog(LOG_ERR, "FdLoop: cannot arm a timer: %s", strerror(-result));
    return result >= 0;
}

void FdLoop::delTimer(FdLoopTimer& timer) {
    if (timer.mImpl->loop == mImpl.get())
        mImpl->removeTimer(timer.mImpl->armingId);
}

} // namespace common
