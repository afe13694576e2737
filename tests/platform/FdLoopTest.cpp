#include "LoopHelpers.h"
#include "support/Faults.h"
#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using common::FdLoop;
using common::FdLoopEvent;
using common::FdLoopEventHandler;

namespace {

// Reads one byte from a pipe each time it is called.
class PipeReader : public common::AbstractFdLoopEventHandler {
  public:
    PipeReader() { EXPECT_EQ(0, pipe(ends.data())); }
    ~PipeReader() override {
        close(ends[0]);
        close(ends[1]);
    }
    void onFdLoopEvent(int fd) override {
        char byte = 0;
        EXPECT_EQ(1, read(fd, &byte, 1));
        seen += byte;
        if (seen.size() == 2)
            onSecondByte();
    }

    std::array<int, 2> ends{-1, -1};
    std::string seen;
    std::function<void()> onSecondByte;
};

FdLoopEvent* sSignalled = nullptr;

TEST(FdLoop, InterruptBeforeRunIsNotLostAndIsTakenOnce) {
    StoppableLoop stoppable;
    stoppable.event.interrupt();
    stoppable.event.interrupt();
    EXPECT_TRUE(stoppable.run());
    EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(50)));
}

TEST(FdLoop, InterruptFromSignalHandlerEndsWait) {
    StoppableLoop stoppable;
    sSignalled = &stoppable.event;
    const support::Interruptions alarm([](int) { sSignalled->interrupt(); });
    EXPECT_TRUE(stoppable.run());
}

TEST(FdLoop, EveryInterruptFromAnotherThreadArrivesAndNoneSpins) {
    StoppableLoop stoppable;
    constexpr int sRounds = 2000;
    std::atomic<int> returns{0};
    std::thread sender([&] {
        for (int round = 0; round < sRounds; ++round) {
            stoppable.event.interrupt();
            while (returns.load() <= round)
                std::this_thread::yield();
        }
    });
    for (int round = 0; round < sRounds; ++round) {
        stoppable.loop.run();
        ++returns;
    }
    sender.join();

    const double before = processorMs();
    EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(300)));
    EXPECT_LT(processorMs() - before, 50.0);
}

TEST(FdLoop, ReadableDescriptorReachesItsHandlerUntilUnregistered) {
    StoppableLoop stoppable;
    PipeReader reader;
    FdLoopEventHandler handler(&reader);
    ASSERT_TRUE(stoppable.loop.fdRegister(reader.ends[0], handler));
    EXPECT_FALSE(stoppable.loop.fdRegister(reader.ends[0], handler));
    reader.onSecondByte = [&] { stoppable.event.interrupt(); };
    ASSERT_EQ(3, write(reader.ends[1], "abc", 3));
    EXPECT_TRUE(stoppable.run());
    EXPECT_EQ("abc", reader.seen) << "what is due goes before the return";

    ASSERT_EQ(1, write(reader.ends[1], "d", 1));
    stoppable.loop.fdUnregister(reader.ends[0]);
    stoppable.loop.fdUnregister(reader.ends[0]);
    EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(50)));
    EXPECT_EQ(3U, reader.seen.size());
}

TEST(FdLoop, HandlerThatIsAlwaysDueCannotHoldUpAnInterrupt) {
    StoppableLoop stoppable;
    class Busy : public common::AbstractFdLoopEventHandler {
        void onFdLoopEvent(int) override {} // never reads
    } busy;
    FdLoopEventHandler handler(&busy);
    FdLoopEvent always;
    always.interrupt();
    ASSERT_TRUE(stoppable.loop.fdRegister(always.getFd(), handler));
    std::thread sender([&] { stoppable.event.interrupt(); });
    EXPECT_TRUE(stoppable.run());
    sender.join();
}

TEST(FdLoop, EndedDescriptorIsGivenUpAndAnUnusableOneRefused) {
    StoppableLoop stoppable;
    std::array<int, 2> ends{};
    ASSERT_EQ(0, pipe(ends.data()));
    FdLoopEventHandler breakOnly;
    ASSERT_TRUE(stoppable.loop.fdRegister(ends[0], breakOnly));
    close(ends[1]);
    EXPECT_TRUE(stoppable.run());
    EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(50)));
    close(ends[0]);
    EXPECT_FALSE(stoppable.loop.fdRegister(-1, breakOnly));
    EXPECT_FALSE(stoppable.loop.fdRegister(9999, breakOnly));
}

// The loop is used before and after the fork, in both processes; the child reports by its status.
TEST(FdLoop, WorksInTheChildOfAForkAndStillInTheParent) {
    StoppableLoop stoppable;
    int ticks = 0;
    Ticking ticking(stoppable.loop, 10, [&] {
        if (++ticks == 3)
            stoppable.event.interrupt();
        return true;
    });
    EXPECT_TRUE(stoppable.run());
    ticks = 0;

    const pid_t child = fork();
    if (child == 0) {
        FdLoopEvent own; // the inherited event is shared with the parent
        FdLoopEventHandler breakOnly;
        stoppable.loop.fdUnregister(stoppable.event.getFd());
        bool good = stoppable.loop.fdRegister(own.getFd(), breakOnly);
        const Ticking stop(stoppable.loop, 15, [&] {
            own.interrupt();
            return true;
        });
        good = good && stop.added;
        stoppable.loop.run();
        stoppable.loop.delTimer(ticking.timer);
        _exit(good && ticks >= 1 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_TRUE(stoppable.run());
    EXPECT_EQ(3, ticks);
}

// A thread that waits in run() ends at a cancellation, its stack unwound, and the loop is as good as before.
TEST(FdLoop, CancellationUnwindsTheWaitOnly) {
    static bool unwound;
    unwound = false;
    StoppableLoop stoppable;
    pthread_t thread{};
    const auto body = [](void* loop) -> void* {
        struct Unwind {
            ~Unwind() { unwound = true; }
        } const unwind;
        static_cast<FdLoop*>(loop)->run();
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, nullptr, body, &stoppable.loop));
    usleep(50000);
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(PTHREAD_CANCELED, result);
    EXPECT_TRUE(unwound);
    stoppable.event.interrupt();
    EXPECT_TRUE(stoppable.run());
}

} // namespace
