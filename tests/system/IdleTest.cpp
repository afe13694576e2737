// Days without work, in seconds: memory, threads and descriptors stay what they were, and nothing is fetched.
//
// FW_IDLE_DAYS sets the number of days for each of the two states.
#include "lab/BusObserver.h"
#include "lab/LogTail.h"
#include "system/SoakTerminal.h"
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <iostream>

namespace fs = std::filesystem;

namespace {

constexpr double TimeScale = 100000;
constexpr unsigned DaysInCi = 2;
constexpr unsigned SecondsPerDay = 86400;
constexpr unsigned SecondsPerTick = 240; // of the download timer, which leaves a line in the log

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IsMemoryOurs = false; // a sanitizer keeps books that grow
#else
constexpr bool IsMemoryOurs = true;
#endif
constexpr long SlackKilobytes = 256; // pages that are touched once and late

struct Usage {
    long kilobytes = 0; // resident
    long threads = 0;
    long descriptors = 0;

    static Usage of(pid_t pid) {
        const std::string directory = "/proc/" + std::to_string(pid);
        const std::string status = readText(directory + "/status");
        const auto number = [&](const std::string& name) {
            return std::stol(status.substr(status.find("\n" + name) + 1 + name.size()));
        };
        return {number("VmRSS:"), number("Threads:"),
                std::distance(fs::directory_iterator(directory + "/fd"), fs::directory_iterator())};
    }
};

std::ostream& operator<<(std::ostream& out, const Usage& usage) {
    return out << usage.kilobytes << " kB, " << usage.threads << " threads, " << usage.descriptors
               << " descriptors";
}

class Idle : public testing::Test {
  protected:
    // Lets so many days pass, with a change notice now and then.
    void live(double days) {
        const auto ticks = static_cast<unsigned>(days * SecondsPerDay / SecondsPerTick);
        unsigned seen = 0;
        while (seen < ticks && !HasFatalFailure()) {
            mObserver.send("evt.confd.updated");
            const unsigned before = seen;
            ASSERT_TRUE(eventually([&] {
                for (const std::string& line : mLog.newLines())
                    seen += testing::Matches(testing::EndsWith(mTick))(line) ? 1 : 0;
                return seen - before >= SecondsPerDay / SecondsPerTick / 10 || seen >= ticks;
            }));
        }
    }

    void expectConstant(const char* state) {
        const unsigned days = numberFrom("FW_IDLE_DAYS", DaysInCi);
        ASSERT_NO_FATAL_FAILURE(live(0.5));
        mTerminal.newRequests();
        const pid_t pid = mTerminal.daemon().findProcesses("fw_download").at(0);
        const Usage before = Usage::of(pid);
        ASSERT_NO_FATAL_FAILURE(live(days));
        const Usage after = Usage::of(pid);
        std::cout << "soak: " << days << " days " << state << ": " << before << "; then " << after << "\n";
        EXPECT_GT(before.kilobytes, 0);
        EXPECT_TRUE(!IsMemoryOurs || after.kilobytes <= before.kilobytes + SlackKilobytes);
        EXPECT_EQ(after.threads, before.threads);
        EXPECT_EQ(after.descriptors, before.descriptors);
        EXPECT_EQ(mTerminal.newRequests(), 0U);
        EXPECT_EQ(mTerminal.stop(SIGTERM), "");
    }

    SoakTerminal mTerminal{TimeScale};
    lab::BusObserver mObserver;
    lab::LogTail mLog{mTerminal.lab().daemonLog()};
    const std::string mTick = "FwDownloadDaemon::onDownloadTimerTimeout()";
};

TEST_F(Idle, WithAnImageThatWaitsForItsInstallation) {
    mTerminal.start();
    ASSERT_EQ(mTerminal.untilReady(), "");
    expectConstant("with an image that waits");
}

TEST_F(Idle, WithTheConfiguredVersionInstalled) {
    mTerminal.lab().config()->setInstalledVersion("1.05 7");
    mTerminal.start();
    ASSERT_TRUE(eventually([&] { return mTerminal.hasLogged("No firmware update needed"); }));
    expectConstant("with nothing to do");
}

} // namespace
