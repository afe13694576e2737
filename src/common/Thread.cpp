#include "common/Thread.h"

Thread::~Thread() {
    if (mRunning == 1) {
        pthread_cancel(mTid);
        if (mDetached == 0) {
            pthread_detach(mTid);
            mDetached = 1;
        }
    }
}

int Thread::start() {
    const int result = pthread_create(&mTid, nullptr, runThread, this);
    if (result == 0)
        mRunning = 1;
    return result;
}

void* Thread::runThread(void* arg) {
    return static_cast<Thread*>(arg)->run();
}

void Thread::cancelAndJoin() {
    if (mRunning == 0)
        return;
    pthread_cancel(mTid);
    pthread_join(mTid, nullptr);
    mRunning = 0;
}

void CancellationPoint::test() {
    const CancellationPoint point;
    pthread_testcancel();
}
