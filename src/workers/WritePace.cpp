#include "workers/WritePace.h"

bool WritePace::wait() {
    std::unique_lock<std::mutex> lock(mMutex);
    if (mChanged.wait_until(lock, mNext, [this] { return mInterrupted; }))
        return false;
    mNext = std::chrono::steady_clock::now() + mInterval;
    return true;
}

void WritePace::interrupt() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mInterrupted = true;
    mChanged.notify_all();
}

bool WritePace::isInterrupted() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mInterrupted;
}
