// Base of the workers: one thread that runs run().
//
// A worker that must not be stopped half-way through a file or a lock begins run() with a CancellationBlock:
// then it ends only inside a CancellationPoint, where it waits or where its long work says so.
#ifndef COMMON_THREAD_H
#define COMMON_THREAD_H

#include <pthread.h>

class Thread {
  public:
    Thread() = default;

    // Fallback for a class that did not stop its thread: cancels and detaches it. A derived class whose
    // thread uses its members calls cancelAndJoin() in its own destructor, since by now they are gone.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Starts the thread. 0, or an error number, and then no thread runs.
    [[nodiscard]] int start();

    // The thread's body.
    virtual void* run() = 0;

  protected:
    // Stops the thread at its next cancellation point, or lets it end by itself, and waits until it has
    // ended. Nothing happens when it was not started or has been joined. Not to be called by the thread
    // itself.
    void cancelAndJoin();

  private:
    static void* runThread(void* arg);

    pthread_t mTid = 0;
    int mRunning = 0;  // 1 once started, 0 again once joined
    int mDetached = 0; // 1 once detached
};

// Scope in which the calling thread may be cancelled. Put around a wait, nothing else: everything on the
// stack is unwound when it happens.
class CancellationPoint {
  public:
    CancellationPoint() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &mState); }
    ~CancellationPoint() { pthread_setcancelstate(mState, nullptr); }
    CancellationPoint(const CancellationPoint&) = delete;
    CancellationPoint& operator=(const CancellationPoint&) = delete;

    // For long work: ends here if a cancellation has come; else returns at once.
    static void test();

  private:
    int mState = PTHREAD_CANCEL_DISABLE;
};

// Scope in which the calling thread is not cancelled, for work inside a CancellationPoint that must not be
// cut off.
class CancellationBlock {
  public:
    CancellationBlock() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mState); }
    ~CancellationBlock() { pthread_setcancelstate(mState, nullptr); }
    CancellationBlock(const CancellationBlock&) = delete;
    CancellationBlock& operator=(const CancellationBlock&) = delete;

  private:
    int mState = PTHREAD_CANCEL_ENABLE;
};

#endif
