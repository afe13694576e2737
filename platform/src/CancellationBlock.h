// Scopes that say where the calling thread may be cancelled.
//
// The libraries below are C: a cancellation inside them would leave their state torn. So every call into them
// that may block stands in a CancellationBlock, and only the loop's own wait opens a window in it.
#ifndef PLATFORM_CANCELLATIONBLOCK_H
#define PLATFORM_CANCELLATIONBLOCK_H

#include <pthread.h>

// The calling thread is not cancelled within the scope.
class CancellationBlock {
  public:
    CancellationBlock() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mState); }
    ~CancellationBlock() { pthread_setcancelstate(mState, nullptr); }
    CancellationBlock(const CancellationBlock&) = delete;
    CancellationBlock& operator=(const CancellationBlock&) = delete;

    // What the thread had chosen before.
    int callersState() const { return mState; }

  private:
    int mState = PTHREAD_CANCEL_ENABLE;
};

// Within a block: the caller's choice holds again in this scope.
class CancellationWindow {
  public:
    explicit CancellationWindow(const CancellationBlock& block) {
        pthread_setcancelstate(block.callersState(), nullptr);
    }
    ~CancellationWindow() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }
    CancellationWindow(const CancellationWindow&) = delete;
    CancellationWindow& operator=(const CancellationWindow&) = delete;
};

#endif
