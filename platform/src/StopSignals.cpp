#include "StopSignals.h"

#include <mutex>
#include <utility>

namespace {

sigset_t sMaskOfChildren;
std::atomic<bool> sMaskIsSet{false};

void restoreMask() {
    if (sMaskIsSet)
        pthread_sigmask(SIG_SETMASK, &sMaskOfChildren, nullptr);
}

} // namespace

StopSignals::StopSignals() {
    sigemptyset(&mSignals);
    sigaddset(&mSignals, SIGTERM);
    sigaddset(&mSignals, SIGINT);
    sigaddset(&mSignals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &mSignals, &mBefore);
}

void StopSignals::unblock() const {
    pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
}

void StopSignals::restoreInChildren() const {
    static std::once_flag sRegistered;
    sMaskOfChildren = mBefore;
    sMaskIsSet = true;
    std::call_once(sRegistered, [] { pthread_atfork(nullptr, nullptr, restoreMask); });
}

int StopSignals::start(std::function<void()> action) {
    // A shell may have started us with an interrupt ignored; our children shall not inherit that.
    signal(SIGTERM, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    signal(SIGHUP, SIG_DFL);
    mAction = std::move(action);
    const int result = pthread_create(&mThread, nullptr, waitForSignals, this);
    mStarted = result == 0;
    return result;
}

void StopSignals::stop() {
    if (!mStarted)
        return;
    mDone = true;
    pthread_kill(mThread, SIGINT); // to that thread alone: it wakes and sees that it is done
    pthread_join(mThread, nullptr);
    mStarted = false;
}

void* StopSignals::waitForSignals(void* arg) {
    auto* const self = static_cast<StopSignals*>(arg);
    int signalNumber = 0;
    while (sigwait(&self->mSignals, &signalNumber) == 0 && !self->mDone)
        self->mAction();
    return nullptr;
}
