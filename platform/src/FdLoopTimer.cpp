#include "FdLoopImpl.h"
#include "vex/kq.h"
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <syslog.h>
#include <unistd.h>

namespace common {

namespace {

// The loop's default slack of 250 ms would make a tick of 1 s one of 1.25 s.
constexpr uint64_t sAccuracyUs = 1000;

// Shortest interval under a time scale: leaves the processor to others.
constexpr uint64_t sMinimumIntervalUs = 100;

uint64_t nowUs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000U + static_cast<uint64_t>(now.tv_nsec) / 1000U;
}

} // namespace

double FdLoop::Impl::readTimeScale() {
    const char* const text = getenv("VEX_TIME_SCALE");
    if (text == nullptr || *text == '\0')
        return 1.0;
    double scale = 0.0;
    const char* const end = text + strlen(text);
    const auto parsed = std::from_chars(text, end, scale);
    if (parsed.ec == std::errc() && parsed.ptr == end && std::isfinite(scale) && scale >= 1.0)
        return scale;
    kq_slog(LOG_WARNING, "FdLoop: VEX_TIME_SCALE '%s' is not a number of at least 1, ignored", text);
    return 1.0;
}

uint64_t FdLoop::Impl::intervalUs(const Arming& arming) const {
    const double scaled = static_cast<double>(arming.timer->interval) * 1000.0 / mTimeScale;
    return std::max(static_cast<uint64_t>(scaled), sMinimumIntervalUs);
}

int FdLoop::Impl::schedule(Arming& arming, uint64_t due) {
    arming.due = due;
    if (arming.source == nullptr)
        return sd_event_add_time(mEvent, &arming.source, CLOCK_MONOTONIC, due, sAccuracyUs, onTime, &arming);
    const int result = sd_event_source_set_time(arming.source, due);
    return result < 0 ? result : sd_event_source_set_enabled(arming.source, SD_EVENT_ONESHOT);
}

int FdLoop::Impl::addTimer(FdLoopTimer::Impl& timer, AbstractFdLoopTimeoutHandler* handler) {
    if (handler == nullptr || timer.interval == 0)
        return -EINVAL;
    const int ensured = ensureEvent();
    if (ensured < 0)
        return ensured;
    if (timer.loop != nullptr)
        timer.loop->removeTimer(timer.armingId);

    const uint64_t id = ++mLastId;
    Arming& arming = mArmings[id];
    arming.loop = this;
    arming.id = id;
    arming.timer = &timer;
    arming.handler = handler;
    timer.loop = this;
    timer.armingId = id;
    const int result = schedule(arming, nowUs() + intervalUs(arming));
    if (result < 0)
        removeTimer(id);
    return result;
}

void FdLoop::Impl::removeTimer(uint64_t id) {
    const auto it = mArmings.find(id);
    if (it == mArmings.end())
        return;
    it->second.timer->loop = nullptr;
    if (mPid == getpid())
        sd_event_source_disable_unref(it->second.source);
    mArmings.erase(it);
}

void FdLoop::Impl::restartTimer(uint64_t id) {
    const auto it = mArmings.find(id);
    if (it == mArmings.end() || mPid != getpid())
        return; // after a fork all timers are restarted when the loop is made anew
    it->second.changed = true;
    const int result = schedule(it->second, nowUs() + intervalUs(it->second));
    if (result < 0) {
        kq_slog(LOG_ERR, "FdLoop: cannot arm a timer again: %s", strerror(-result));
        removeTimer(id);
    }
}

int FdLoop::Impl::onTime(sd_event_source*, uint64_t, void* userdata) {
    const Arming& arming = *static_cast<Arming*>(userdata);
    arming.loop->fire(arming.id);
    return 0;
}

// The handler may remove, re-arm or destroy its timer; only the id tells afterwards.
void FdLoop::Impl::fire(uint64_t id) {
    auto it = mArmings.find(id);
    if (it == mArmings.end())
        return;
    it->second.changed = false;
    const bool keep = it->second.handler->onFdLoopTimerTimeout();
    it = mArmings.find(id);
    if (it == mArmings.end() || (keep && it->second.changed))
        return;
    if (!keep) {
        removeTimer(id);
        return;
    }
    // The ticks keep to the grid that addTimer() laid, so they do not drift.
    const uint64_t interval = intervalUs(it->second);
    const uint64_t now = nowUs();
    uint64_t due = it->second.due + interval;
    if (due <= now)
        due = now + interval - (now - due) % interval;
    const int result = schedule(it->second, due);
    if (result < 0) {
        kq_slog(LOG_ERR, "FdLoop: cannot arm a timer again: %s", strerror(-result));
        removeTimer(id);
    }
}

FdLoopTimer::FdLoopTimer() : mImpl(std::make_unique<Impl>()) {}

FdLoopTimer::~FdLoopTimer() {
    if (mImpl->loop != nullptr)
        mImpl->loop->removeTimer(mImpl->armingId);
}

void FdLoopTimer::setInterval(unsigned milliseconds) {
    mImpl->interval = std::max(milliseconds, 1U);
    if (mImpl->loop != nullptr)
        mImpl->loop->restartTimer(mImpl->armingId);
}

unsigned FdLoopTimer::getInterval() const {
    return mImpl->interval;
}

} // namespace common
