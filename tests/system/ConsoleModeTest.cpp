// The daemon in the foreground: how it stops.
#include "lab/ImageVerdict.h"
#include "system/DaemonFixture.h"
#include <csignal>
#include <filesystem>

namespace {

constexpr size_t PartSize = 400000;
constexpr size_t StartSize = 512; // of the image, fetched first

lab::LabOptions overASlowLink() {
    lab::LabOptions options;
    options.speed = 400000; // a second for a part
    return options;
}

class ConsoleMode : public DaemonTest {};

class ConsoleModeOverASlowLink : public DaemonTest {
  protected:
    ConsoleModeOverASlowLink() : DaemonTest(PartSize, overASlowLink()) {}
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

TEST_F(ConsoleModeOverASlowLink, StopsInTheMiddleOfADownloadAndGoesOnThere) {
    mLab->startServices();
    mLab->configure();
    mLab->startDaemon(); // sends its first status soon, at this time scale
    ASSERT_TRUE(eventually([&] { return mLab->fetchedBytes() > 5000; }));
    expectStop(SIGINT);
    const uint64_t onDisk = mLab->fetchedBytes() - StartSize; // of the first part
    EXPECT_LT(onDisk, PartSize);

    mLab->startDaemon();
    ASSERT_TRUE(eventually([&] { return !mLab->config()->readyForInstall().empty(); }));
    expectStop(SIGINT);
    const std::string file = mWork.onMachine(mLab->config()->readyForInstall());
    EXPECT_TRUE(lab::judgeImage(file, mLab->image(), mLab->plan()).isGood());
    const std::string resumed = std::to_string(mLab->plan().parts().front().part->offset + onDisk) + "-";
    bool isResumed = false;
    for (const lab::ServedRequest& request : mLab->webServer()->newRequests())
        isResumed = isResumed || request.range.rfind(resumed, 0) == 0;
    EXPECT_TRUE(isResumed) << "no request for bytes from " << resumed;
}

} // namespace
