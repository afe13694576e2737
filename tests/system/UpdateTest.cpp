// Whole updates: real daemon, bus, database and web server.
#include "lab/LabRun.h"
#include "support/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <filesystem>
#include <gtest/gtest.h>

namespace {

class Recorder : public lab::LabObserver {
  public:
    void onEvent(const lab::LabEvent& event) override { events.push_back(event); }
    std::vector<lab::LabEvent> events;
};

class Update : public testing::Test {
  protected:
    Update() {
        twoPartImage(50001, 9000).write(mDirectory.file("image"));
        options.image = mDirectory.file("image");
        options.timeScale = 100;
        options.timeout = std::chrono::seconds(60);
    }

    lab::LabResult run() {
        const lab::WorkDirectory work(mDirectory.file("work"));
        return lab::runLab(options, work, recorder);
    }

    static std::vector<std::string> ranges(const lab::LabResult& result) {
        std::vector<std::string> all;
        for (const lab::LabEvent& event : result.requests)
            all.push_back(event.text + " " + event.request.range);
        return all;
    }

    const support::TemporaryDirectory mDirectory;
    lab::LabOptions options;
    Recorder recorder;
};

// The first part begins at 8 + 16 + (76 + 16) + (32 + 54 + 2) = 204.
TEST_F(Update, FetchesAllOfAnImageForAnEmptyTerminal) {
    const lab::LabResult result = run();
    ASSERT_TRUE(result.isGood()) << lab::getName(result.step) << ": " << result.failure << "\n"
                                 << readText(result.daemonLog);
    EXPECT_EQ(ranges(result),
              (std::vector<std::string>{"image start 0-511", "kernel header 204-715", "kernel body 716-50272",
                                        "root header 50272-50783", "root body 50784-59336"}));
    EXPECT_EQ(result.imageBytes, 59336U);
    EXPECT_EQ(result.fetchedBytes, 512U + (50272 - 204 + 1) + (59336 - 50272));
    EXPECT_EQ(result.readyFile, "/data/fw/fw_download_update.zemp-1.05-7");
    EXPECT_EQ(result.verdict.size, result.imageBytes);
}

TEST_F(Update, LeavesOutWhatIsInstalled) {
    writeFile(mDirectory.file("record"), recordWithRoot({1, 2, 3}));
    options.installed = mDirectory.file("record");
    options.verbosity = 6; // where the log tells less
    const lab::LabResult result = run();
    ASSERT_TRUE(result.isGood()) << lab::getName(result.step) << ": " << result.failure << "\n"
                                 << readText(result.daemonLog);
    EXPECT_EQ(ranges(result), (std::vector<std::string>{"image start 0-511", "kernel header 204-715",
                                                        "kernel body 716-50272", "root header 50272-50783"}));
    EXPECT_EQ(result.verdict.rows.back().finding, "not needed, header only");
}

TEST_F(Update, SaysWhichStepFailedAndKeepsTheLog) {
    options.version = "9.09-9"; // which the image is not
    options.timeout = std::chrono::seconds(2);
    const lab::LabResult late = run();
    EXPECT_EQ(late.step, lab::LabResult::Update);
    EXPECT_NE(late.failure.find("time limit"), std::string::npos) << late.failure;
    EXPECT_NE(readText(late.daemonLog), "");
    EXPECT_FALSE(late.isGood());

    options.version = "0.00-0"; // which is installed
    const lab::LabResult same = run();
    EXPECT_EQ(same.step, lab::LabResult::Prepare);
    EXPECT_FALSE(same.isGood());
}

} // namespace
