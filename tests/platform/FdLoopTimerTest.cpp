#include "LoopHelpers.h"
#include "support/TestPlatform.h"
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

using common::FdLoop;
using common::FdLoopTimer;
using support::ScopedEnvironment;

namespace {

using Clock = std::chrono::steady_clock;

// Ticks come late on a busy machine, so the middle one tells; with a drift they would be spread evenly.
TEST(FdLoopTimer, TicksKeepToTheirGrid) {
    StoppableLoop stoppable;
    std::vector<double> late;
    const auto start = Clock::now();
    const Ticking ticking(stoppable.loop, 20, [&] {
        late.push_back(std::fmod(elapsedMs(start), 20.0));
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // must not add up
        if (late.size() == 21)
            stoppable.event.interrupt();
        return true;
    });
    ASSERT_TRUE(stoppable.run());
    EXPECT_GE(elapsedMs(start), 420.0);
    std::sort(late.begin(), late.end());
    EXPECT_LT(late[10], 8.0);
}

TEST(FdLoopTimer, SlowHandlerMissesTicksInsteadOfCatchingUp) {
    StoppableLoop stoppable;
    int ticks = 0;
    const Ticking ticking(stoppable.loop, 20, [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(++ticks == 1 ? 205 : 0));
        return true;
    });
    const auto start = Clock::now();
    while (ticks < 3 && elapsedMs(start) < 10000) // on a busy machine it takes longer
        EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(310)));
    EXPECT_GE(ticks, 3);
    EXPECT_LE(ticks, (elapsedMs(start) - 205) / 20 + 2);
}

TEST(FdLoopTimer, AddedTwiceFiresOncePerInterval) {
    StoppableLoop stoppable;
    int ticks = 0;
    const auto start = Clock::now();
    Ticking ticking(stoppable.loop, 40, [&] { return ++ticks > 0; });
    ASSERT_TRUE(ticking.addTo(stoppable.loop));
    EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(100)));
    EXPECT_GE(ticks, 1);
    EXPECT_LE(ticks, elapsedMs(start) / 40);

    ticks = 0;
    FdLoop other;
    ASSERT_TRUE(ticking.addTo(other)) << "moves to the other loop";
    EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(60)));
    EXPECT_EQ(0, ticks);
}

TEST(FdLoopTimer, RemovalIsHarmlessWhateverItsState) {
    StoppableLoop stoppable;
    int ticks = 0;
    FdLoopTimer never;
    stoppable.loop.delTimer(never);
    Ticking once(stoppable.loop, 5, [&] { return ++ticks == 0; });
    EXPECT_FALSE(stoppable.loop.addTimer(never, &once.handler)) << "no interval yet";
    EXPECT_FALSE(stoppable.loop.addTimer(once.timer, nullptr));
    EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(60)));
    EXPECT_EQ(1, ticks) << "a handler that answers false is called once";
    stoppable.loop.delTimer(once.timer);
    ASSERT_TRUE(once.addTo(stoppable.loop));
    stoppable.loop.delTimer(once.timer);
    EXPECT_FALSE(stoppable.run(std::chrono::milliseconds(40)));
    EXPECT_EQ(1, ticks);
    {
        FdLoop shortLived;
        ASSERT_TRUE(once.addTo(shortLived));
    }
    stoppable.loop.delTimer(once.timer);
}

TEST(FdLoopTimer, HandlerMayRearmOrDestroyItsTimer) {
    StoppableLoop stoppable;
    std::vector<double> at;
    auto timer = std::make_unique<FdLoopTimer>();
    timer->setInterval(10);
    const auto start = Clock::now();
    OnTick last([&] {
        at.push_back(elapsedMs(start));
        timer.reset();
        stoppable.event.interrupt();
        return true;
    });
    OnTick first([&] {
        at.push_back(elapsedMs(start));
        timer->setInterval(40); // goes on with the new interval from now
        if (at.size() == 1)
            return true;
        EXPECT_TRUE(stoppable.loop.addTimer(*timer, &last));
        return false; // ends the old arming, not the new one
    });
    ASSERT_TRUE(stoppable.loop.addTimer(*timer, &first));
    ASSERT_TRUE(stoppable.run());
    ASSERT_EQ(3U, at.size());
    EXPECT_GE(at[0], 10.0);
    EXPECT_GE(at[1] - at[0], 40.0);
    EXPECT_GE(at[2] - at[1], 40.0);
}

TEST(FdLoopTimer, TimeScaleDividesIntervalsOnlyAndCountsAsOneWhenUnusable) {
    const auto timed = [](const char* scaleText, unsigned interval) {
        const ScopedEnvironment scale("VEX_TIME_SCALE", scaleText);
        StoppableLoop stoppable;
        const auto start = Clock::now();
        const Ticking ticking(stoppable.loop, interval, [&] {
            stoppable.event.interrupt();
            return true;
        });
        EXPECT_TRUE(stoppable.run(std::chrono::hours(3)));
        EXPECT_EQ(interval, ticking.timer.getInterval());
        return elapsedMs(start);
    };
    const double scaled = timed("1000", 240000);
    EXPECT_GE(scaled, 240.0);
    EXPECT_LT(scaled, 2000.0);
    for (const char* const text : {"0.5", "-3", "fast", "10x", "inf", "nan", ""})
        EXPECT_GE(timed(text, 30), 30.0) << text;
}

} // namespace
