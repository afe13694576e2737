// Stop storms: SIGTERM and SIGINT at random moments and in the middle of file operations. Every stop ends the
// process with status 0 within 2 seconds, and the next start goes on where it was.
//
// FW_STOP_ROUNDS sets the number of rounds, FW_SOAK_SEED the first seed.
#include "system/SoakTerminal.h"
#include <csignal>
#include <gtest/gtest.h>
#include <iostream>
#include <sqlite3.h>

namespace {

constexpr unsigned RoundsInCi = 10;
constexpr unsigned RoundsPerUpdate = 8;
constexpr Milliseconds UpdateTime{500};
constexpr unsigned AllBytes = 7; // verbosity of a daemon that fetches as fast as it can

// One stop.
struct Round {
    explicit Round(unsigned seed) {
        Random random(seed);
        signal = random() % 2 == 0 ? SIGTERM : SIGINT;
        life.verbosity = random() % 3 == 0 ? 6 : AllBytes;
        life.isInBackground = random() % 3 == 0;
        moment = randomTime(random, UpdateTime);
        if (random() % 3 != 0)
            return;
        const char* const operations[] = {
            "write body ",  "write image ",    "sync image ",    "rename image ",   "sync directory ",
            "unlink body ", "write database ", "sync database ", "write fragment ", "rename fragment "};
        const std::string operation = operations[random() % 10];
        const bool isWrite = operation.rfind("write", 0) == 0;
        life.point = (random() % 2 == 0 ? "before " : "after ") + operation +
                     std::to_string(isWrite ? 1 + random() % 6 : 1);
        life.stopSignal = signal;
        life.verbosity = AllBytes;
        life.isInBackground = false;
    }

    Life life;
    int signal = SIGTERM;
    Milliseconds moment{0};
};

TEST(Stop, EndsWellWheneverItComes) {
    SoakTerminal terminal;
    const unsigned rounds = numberFrom("FW_STOP_ROUNDS", RoundsInCi);
    unsigned points = 0;
    size_t requests = 0;
    for (unsigned seed = soakSeed(); seed < soakSeed() + rounds; ++seed) {
        const Round round(seed);
        SCOPED_TRACE("seed " + std::to_string(seed) + ": " + strsignal(round.signal) + " " +
                     (round.life.point.empty() ? std::to_string(round.moment.count()) : round.life.point));
        if (!round.life.point.empty() || seed % RoundsPerUpdate == 0)
            terminal.reset();
        terminal.start(round.life);
        ASSERT_TRUE(eventually([&] { return terminal.takesSignals(); })) << terminal.log();
        if (round.life.point.empty())
            std::this_thread::sleep_for(round.moment);
        else
            ASSERT_TRUE(eventually([&] { return terminal.pointTime() || terminal.isReady(); }))
                << terminal.log();
        if (const auto reached = terminal.pointTime()) {
            ++points;
            ASSERT_EQ(terminal.awaitStop(*reached), "");
        } else {
            ASSERT_EQ(terminal.stop(round.signal), "");
        }
        ASSERT_EQ(terminal.complaint(), "") << terminal.log();
        if (seed % RoundsPerUpdate == RoundsPerUpdate - 1) {
            terminal.start();
            ASSERT_EQ(terminal.untilReady(), "");
            ASSERT_EQ(terminal.stop(round.signal), "");
        }
        const size_t newRequests = terminal.newRequests();
        EXPECT_LE(newRequests, HotLoopRequests);
        requests += newRequests;
    }
    std::cout << "soak: " << rounds << " stops from seed " << soakSeed() << ", " << points
              << " of them amid file operations, slowest " << terminal.slowestStop().count() << " ms, "
              << requests << " requests\n";
}

// Something around the daemon holds up a worker where it cannot be cancelled.

TEST(Stop, IsNotHeldUpByALockedDatabase) {
    SoakTerminal terminal;
    terminal.lab().config()->setInstalledVersion("1.05 7"); // so that the flag is to be erased
    terminal.lab().config()->set("cfg.fw_ready_for_install", "/data/fw/old");
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open((terminal.work().database() + "/config.db").c_str(), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    terminal.start();
    EXPECT_TRUE(eventually([&] { return terminal.hasLogged("No firmware update needed"); }));
    std::this_thread::sleep_for(Milliseconds(100));
    EXPECT_EQ(terminal.stop(SIGTERM), "");
    sqlite3_close(database);
}

TEST(Stop, IsNotHeldUpByABusThatDoesNotAnswer) {
    SoakTerminal terminal;
    terminal.lab().bus()->stop();
    const lab::Descriptor silent =
        localSocket(terminal.lab().bus()->directory() + "/" + lab::PrivateBus::SocketName, SOCK_STREAM);
    ASSERT_EQ(listen(silent.get(), 10), 0);
    terminal.start();
    ASSERT_TRUE(eventually([&] { return terminal.takesSignals(); })) << terminal.log();
    std::this_thread::sleep_for(Milliseconds(100));
    EXPECT_EQ(terminal.stop(SIGTERM), "");
}

} // namespace
