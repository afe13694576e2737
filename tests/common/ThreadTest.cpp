#include "common/Thread.h"

#include "common/wqueue.h"
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

void waitFor(const std::atomic<bool>& flag) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!flag && Clock::now() < deadline)
        usleep(1000);
    ASSERT_TRUE(flag);
}

// Passes the items of its queue on; a null item ends it.
class Worker : public Thread {
  public:
    Worker(wqueue<int*>& in, wqueue<int*>& out) : mIn(in), mOut(out) {}
    ~Worker() override { cancelAndJoin(); }

    void* run() override {
        while (int* item = mIn.remove())
            mOut.add(item);
        return nullptr;
    }

  private:
    wqueue<int*>& mIn;
    wqueue<int*>& mOut;
};

TEST(Thread, DestroyingAWaitingWorkerIsPrompt) {
    wqueue<int*> in;
    wqueue<int*> out;
    auto worker = std::make_unique<Worker>(in, out);
    ASSERT_EQ(worker->start(), 0);
    usleep(20000); // it waits by now
    const auto begin = Clock::now();
    worker.reset();
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(1));
    // The cancelled wait has left the lock.
    int number = 1;
    in.add(&number);
    EXPECT_EQ(in.remove(), &number);
}

TEST(Thread, DestroyingAWorkerThatWasNotStartedOrHasEndedIsHarmless) {
    wqueue<int*> in;
    wqueue<int*> out;
    { const Worker idle(in, out); }
    Worker ended(in, out);
    ASSERT_EQ(ended.start(), 0);
    in.add(nullptr);
}

std::atomic<bool> sStarted{false};
std::atomic<bool> sEnded{false};

// Uses no member in its thread and leaves stopping it to the base class.
class Sleeper : public Thread {
  public:
    void* run() override {
        struct EndMark {
            ~EndMark() { sEnded = true; }
        } mark;
        sStarted = true;
        for (;;)
            pause();
    }
};

TEST(Thread, BaseDestructorCancelsARunningThread) {
    auto sleeper = std::make_unique<Sleeper>();
    ASSERT_EQ(sleeper->start(), 0);
    waitFor(sStarted);
    sleeper.reset();
    waitFor(sEnded);
}

std::atomic<bool> sBusy{false};
std::atomic<int> sSteps{0};

// Works without a wait, and may be stopped only where it says so.
class LongWorker : public Thread {
  public:
    ~LongWorker() override { cancelAndJoin(); }

    void* run() override {
        const CancellationBlock block;
        for (;;) {
            sSteps = 1;
            usleep(2000); // would be a cancellation point
            sSteps = 2;
            sBusy = true;
            CancellationPoint::test();
        }
    }
};

TEST(Thread, IsCancelledOnlyAtItsCancellationPoints) {
    {
        LongWorker worker;
        ASSERT_EQ(worker.start(), 0);
        waitFor(sBusy);
    }
    EXPECT_EQ(sSteps, 2);
}

} // namespace
