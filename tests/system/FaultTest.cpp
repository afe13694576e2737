// What fails around the daemon and comes back: space on the disk, the update server, bus and database; and a
// second daemon beside the first.
#include "system/SoakTerminal.h"
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>

namespace fs = std::filesystem;

namespace {

constexpr unsigned FailuresToTheEnd = 43;

// --- Disk full

constexpr unsigned DiskSize = 8 << 20;
constexpr unsigned ImageSize = 1300000; // what the sample terminal fetches; its update image is as large

struct FullDisk {
    const char* name;
    const char* directory;   // where space is short
    unsigned free;           // bytes
    const char* consequence; // logged when the shortage is felt

    friend std::ostream& operator<<(std::ostream& out, const FullDisk& disk) { return out << disk.name; }
};

class DiskFull : public testing::TestWithParam<FullDisk> {
  protected:
    // A supervisor that starts the daemon again whenever it has ended.
    void startSupervised() {
        lab::Terminal& terminal = mTerminal.lab().terminal();
        terminal.useSmallDisk("/data/fw", DiskSize);
        terminal.useSmallDisk("/tmp", DiskSize);
        terminal.bind({mTerminal.work().temporary() + "/hostcfg.backup", "/tmp/hostcfg.backup"});
        lab::ChildOptions options = mTerminal.options({});
        std::string command;
        for (const std::string& argument : options.arguments)
            command += argument + " ";
        options.arguments = {"sh", "-c",
                             "until [ -e /tmp/go ]; do sleep 0.01; done; while :; do " + command +
                                 "; echo ended with $?; sleep 0.01; done"};
        mBox = startIn(terminal, options, mTerminal.lab().daemonLog());
    }

    // A file on one of the small disks, as this machine names it.
    std::string onDisk(const std::string& path) const { return mBox->rootDirectory() + path; }

    void fill(const std::string& directory, unsigned free) const {
        std::ofstream file(onDisk(directory) + "/ballast", std::ios::binary);
        file << std::string(DiskSize - free, 'x');
        file.close();
        ASSERT_TRUE(file.good());
    }

    SoakTerminal mTerminal;
    std::unique_ptr<lab::TerminalProcess> mBox;
};

TEST_P(DiskFull, FlagsNothingAndRecoversWithSpace) {
    const FullDisk& row = GetParam();
    startSupervised();
    ASSERT_NO_FATAL_FAILURE(fill(row.directory, row.free));
    std::ofstream(onDisk("/tmp/go")).put('1');
    ASSERT_TRUE(eventually([&] { return mTerminal.hasLogged(row.consequence); })) << mTerminal.log();
    EXPECT_EQ(mTerminal.lab().config()->readyForInstall(), "");
    const std::string flagged = "/data/fw/fw_download_update.zemp-1.05-7";
    EXPECT_TRUE(eventually([&] { // what a compile has begun is gone
        return !fs::exists(onDisk(flagged)) && !fs::exists(onDisk(flagged + ".part")) &&
               !fs::exists(onDisk("/tmp/zempparts"));
    }));

    fs::remove(onDisk(row.directory) + "/ballast");
    ASSERT_TRUE(eventually([&] { return !mTerminal.lab().config()->readyForInstall().empty(); }))
        << mTerminal.log();
    EXPECT_EQ(mTerminal.lab().config()->readyForInstall(), flagged);
    EXPECT_THAT(lab::judgeImage(onDisk(flagged), mTerminal.lab().image(), mTerminal.lab().parts()).faults,
                testing::IsEmpty());
    EXPECT_EQ(countIn(mTerminal.log(), "ended with"), countIn(mTerminal.log(), "ended with 0"));
}

INSTANTIATE_TEST_SUITE_P(
    Stages, DiskFull,
    testing::Values(FullDisk{"FromTheStart", "/data/fw", 0, "Terminal failure ("},
                    FullDisk{"AmidABody", "/data/fw", 200000, "Terminal failure ("},
                    FullDisk{"WhileTheBodyIsPutTogether", "/tmp", 600000, "Failure to compile"},
                    FullDisk{"WhileTheImageIsWritten", "/data/fw", ImageSize + 600000, "Failure to compile"}),
    [](const auto& row) { return std::string(row.param.name); });

// --- Link

TEST(Link, UpdateGoesOnWhenTheServerAnswersAgain) {
    SoakTerminal terminal;
    terminal.lab().webServer()->stop();
    terminal.start();
    ASSERT_TRUE(eventually([&] { return countIn(terminal.log(), "Reschedule,") >= 3; })) << terminal.log();
    terminal.lab().webServer()->start();
    EXPECT_EQ(terminal.untilReady(), "");
    EXPECT_TRUE(terminal.daemon().running());
}

TEST(Link, EndsAfterTooManyFailuresAndCompletesAfterARestart) {
    SoakTerminal terminal(10000);
    terminal.lab().webServer()->stop();
    terminal.start();
    ASSERT_TRUE(terminal.daemon().waitFor(VeryLong));
    EXPECT_TRUE(terminal.daemon().exitStatus()->isExit(0)) << terminal.daemon().exitStatus()->toString();
    EXPECT_EQ(countIn(terminal.log(), "Curl command failed!"), FailuresToTheEnd) << terminal.log();
    terminal.lab().webServer()->start();
    terminal.start();
    EXPECT_EQ(terminal.untilReady(), "");
}

TEST(Link, ResumesABodyThatWasCutSeveralTimes) {
    SoakTerminal terminal(SoakTimeScale, 600000); // two bodies of 1.3 MB in all take two seconds
    terminal.start();
    for (const uint64_t bytes : {120000U, 500000U, 800000U}) { // the first is within the first body
        ASSERT_TRUE(eventually([&] { return terminal.lab().fetchedBytes() > bytes; })) << terminal.log();
        terminal.lab().webServer()->stop();
        std::this_thread::sleep_for(Milliseconds(50));
        terminal.lab().webServer()->start();
    }
    EXPECT_EQ(terminal.untilReady(), "");
    EXPECT_GE(countIn(terminal.log(), "Curl command failed!"), 3U) << terminal.log();
    EXPECT_LE(terminal.newRequests(), HotLoopRequests);
}

// --- Bus and database

TEST(Surroundings, BusComesLate) {
    SoakTerminal terminal;
    terminal.lab().bus()->stop();
    terminal.start();
    ASSERT_TRUE(eventually([&] { return terminal.hasLogged("Failure connecting to cbus, retrying."); }));
    terminal.lab().bus()->start();
    EXPECT_EQ(terminal.untilReady(), "");
}

TEST(Surroundings, BusGoesAmidAnUpdate) {
    SoakTerminal terminal;
    terminal.lab().webServer()->stop();
    terminal.start();
    ASSERT_TRUE(eventually([&] { return terminal.hasLogged("Reschedule,"); })) << terminal.log();
    terminal.lab().bus()->stop();
    terminal.lab().webServer()->start();
    EXPECT_EQ(terminal.untilReady(), "");
    EXPECT_EQ(terminal.stop(SIGTERM), "");
}

// The database stands behind a link that is put up late.
class Database : public testing::Test {
  protected:
    Database() {
        mLife.environment = mTerminal.lab().daemonEnvironment();
        for (auto& [name, value] : mLife.environment)
            if (name == "VEX_CONFIGDB")
                value = "/lab/db/late/config.db";
    }

    void putUp() { fs::create_directory_symlink(".", mTerminal.work().database() + "/late"); }

    SoakTerminal mTerminal;
    Life mLife;
};

TEST_F(Database, ComesLate) {
    mTerminal.start(mLife);
    ASSERT_TRUE(eventually([&] { return mTerminal.hasLogged("connecting to configdb, retrying."); }));
    putUp();
    EXPECT_EQ(mTerminal.untilReady(), "");
}

TEST_F(Database, ComesTooLateAndIsThereAfterARestart) {
    mTerminal.start(mLife);
    ASSERT_TRUE(eventually([&] { return mTerminal.hasLogged("connecting to configdb, giving up."); }));
    putUp();
    EXPECT_EQ(mTerminal.stop(SIGTERM), "");
    EXPECT_EQ(mTerminal.newRequests(), 0U);
    mTerminal.start(mLife);
    EXPECT_EQ(mTerminal.untilReady(), "");
}

// --- Second instance

class SecondInstance : public testing::Test {
  protected:
    void startSecond(const Life& life) {
        mSecond = startIn(mTerminal.lab().terminal(), mTerminal.options(life), mLog);
    }

    // Its log, when it has ended.
    std::string end() {
        EXPECT_TRUE(mSecond->waitFor(VeryLong));
        EXPECT_TRUE(mSecond->exitStatus()->isExit(0)) << mSecond->exitStatus()->toString();
        return readText(mLog);
    }

    SoakTerminal mTerminal;
    const std::string mLog = mTerminal.work().file("second.log");
    std::unique_ptr<lab::TerminalProcess> mSecond;
};

TEST_F(SecondInstance, OfTheBackgroundIsRefused) {
    Life life;
    life.isInBackground = true;
    mTerminal.start(life);
    ASSERT_TRUE(eventually([&] { return mTerminal.takesSignals(); })) << mTerminal.log();
    startSecond(life);
    EXPECT_THAT(end(), testing::HasSubstr("already running"));
    EXPECT_TRUE(eventually([&] { return !mTerminal.lab().config()->readyForInstall().empty(); }));
    EXPECT_EQ(mTerminal.complaint(true), "");
    EXPECT_EQ(mTerminal.stop(SIGTERM), "");
}

TEST_F(SecondInstance, InTheForegroundFetchesNothing) {
    mTerminal.start();
    ASSERT_TRUE(eventually([&] { return mTerminal.hasLogged("Connected to configdb."); }));
    startSecond({});
    EXPECT_EQ(mTerminal.untilReady(), "");
    EXPECT_TRUE(eventually([&] { return countIn(readText(mLog), "connecting to cbus, retrying.") > 0; }))
        << readText(mLog);
    mSecond->signal(SIGTERM);
    EXPECT_THAT(end(), testing::Not(testing::HasSubstr("Downloader::download()")));
}

} // namespace
