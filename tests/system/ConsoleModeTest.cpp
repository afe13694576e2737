// The daemon in the foreground: how it stops.
#include "system/SoakTerminal.h"
#include <csignal>
#include <gmock/gmock.h>

namespace {

constexpr unsigned SlowLink = 800000; // bytes per second: half a second for the first part
constexpr size_t StartSize = 512;     // of the image, fetched first

TEST(ConsoleMode, StopsAtOnce) {
    SoakTerminal terminal;
    const std::pair<int, std::string> signals[] = {{SIGINT, "Interrupt"}, {SIGTERM, "Terminated"}};
    for (const auto& [signal, name] : signals) {
        terminal.start();
        ASSERT_TRUE(eventually([&] { return terminal.hasLogged("FwDownloadDaemon::run()"); }));
        EXPECT_EQ(terminal.stop(signal), "");
        EXPECT_TRUE(
            terminal.hasLogged(std::string("Received signal(") + name + " Terminating fw_download ..."));
        EXPECT_TRUE(terminal.hasLogged("FwDownloadDaemon::run() Bye bye."));
    }
}

TEST(ConsoleMode, StopsWhileItWaitsForABus) {
    SoakTerminal terminal;
    terminal.lab().bus()->stop();
    terminal.start();
    ASSERT_TRUE(eventually([&] { return terminal.hasLogged("Failure connecting to cbus, retrying."); }));
    EXPECT_EQ(terminal.stop(SIGINT), "");
}

TEST(ConsoleMode, StopsInTheMiddleOfADownloadAndGoesOnThere) {
    SoakTerminal terminal(SoakTimeScale, SlowLink);
    const imagefile::ImagePart& first = *terminal.lab().parts().front().part;
    terminal.start();
    ASSERT_TRUE(eventually([&] { return terminal.lab().fetchedBytes() > 5000; }));
    EXPECT_EQ(terminal.stop(SIGINT), "");
    const uint64_t onDisk = terminal.lab().fetchedBytes() - StartSize; // of the first part
    EXPECT_LT(onDisk, first.size());

    terminal.start();
    EXPECT_EQ(terminal.untilReady(), "");
    const std::string resumed = std::to_string(first.offset + onDisk) + "-";
    EXPECT_THAT(terminal.lab().webServer()->newRequests(),
                testing::Contains(testing::Field(&lab::ServedRequest::range, testing::StartsWith(resumed))));
}

} // namespace
