// The daemon in the foreground: how it stops.
#include "system/DaemonFixture.h"
#include <csignal>
#include <filesystem>

namespace {

lab::LabOptions atInfoLevel() {
    lab::LabOptions options;
    options.verbosity = 6; // 25000 bytes per second
    return options;
}

class ConsoleMode : public DaemonTest {};

class SlowConsoleMode : public DaemonTest {
  protected:
    SlowConsoleMode() : DaemonTest(atInfoLevel()) {}
};

TEST_F(ConsoleMode, StopsAtOnce) {
    mLab->startServices();
    const std::pair<int, const char*> signals[] = {{SIGINT, "Interrupt"}, {SIGTERM, "Terminated"}};
    for (const auto& [signal, name] : signals) {
        std::filesystem::remove(mLab->daemonLog());
        mLab->startDaemon();
        ASSERT_TRUE(eventually([&] { return hasLogged("FwDownloadDaemon::run()"); }));
        expectStop(signal);
        EXPECT_TRUE(hasLogged(std::string("Received signal(") + name + " Terminating fw_download ..."));
        EXPECT_TRUE(hasLogged("FwDownloadDaemon::run() Bye bye."));
    }
}

TEST_F(ConsoleMode, StopsAfterAWhile) {
    mLab->startServices();
    mLab->startDaemon();
    ASSERT_TRUE(eventually([&] { return hasLogged("UpdateHandler"); }));
    expectStop(SIGINT);
}

TEST_F(ConsoleMode, StopsWhileItWaitsForABus) {
    mLab->startServices();
    mLab->bus()->stop();
    mLab->startDaemon();
    ASSERT_TRUE(eventually([&] { return hasLogged("Failure connecting to cbus, retrying."); }));
    expectStop(SIGINT);
}

TEST_F(SlowConsoleMode, StopsInTheMiddleOfADownload) {
    mLab->startServices();
    mLab->configure();
    mLab->startDaemon(); // sends its first status soon, at this time scale
    ASSERT_TRUE(eventually([&] { return mLab->fetchedBytes() > 20000; }));
    expectStop(SIGINT);
    EXPECT_LT(mLab->fetchedBytes(), mLab->plan().fetchBytes());
}

} // namespace
