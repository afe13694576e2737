// Whole updates: real daemon, bus, database and web server, also one that misbehaves by name.
#include "lab/FaultServer.h"
#include "lab/TemporaryDirectory.h"
#include "support/ShellOutput.h"
#include "system/LabFixtures.h"
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using Lines = std::vector<std::string>;

class Update : public testing::Test {
  protected:
    Update() {
        twoPartImage(50001, 9000).write(mDirectory.file("image"));
        options.image = mDirectory.file("image");
        options.timeScale = 100;
        options.timeout = std::chrono::seconds(60);
    }

    static Lines ranges(const lab::LabResult& result) {
        Lines all;
        for (const lab::LabEvent& event : result.requests)
            all.push_back(event.text + " " + event.request.range);
        return all;
    }

    const lab::TemporaryDirectory mDirectory;
    lab::LabOptions options;
};

// The first part begins at 8 + 16 + (76 + 16) + (32 + 54 + 2) = 204.
TEST_F(Update, FetchesAllOfAnImageForAnEmptyTerminal) {
    const lab::LabResult result = runLab(options, mDirectory.file("work"));
    ASSERT_EQ(failureOf(result), "");
    EXPECT_EQ(ranges(result), (Lines{"image start 0-511", "kernel header 204-715", "kernel body 716-50272",
                                     "root header 50272-50783", "root body 50784-59336"}));
    EXPECT_EQ(result.imageBytes, 59336U);
    EXPECT_EQ(result.fetchedBytes, 512U + (50272 - 204 + 1) + (59336 - 50272));
    EXPECT_EQ(result.readyFile, "/data/fw/fw_download_update.zemp-1.05-7");
    EXPECT_EQ(result.verdict.size, result.imageBytes);
    EXPECT_EQ(readText(result.daemonLog).find("LOG_ERR"), std::string::npos); // all went well
    EXPECT_EQ(result.facts.imageSha256,
              support::runShell("sha256sum <'" + options.image + "'").text.substr(0, 64));
    EXPECT_NE(result.facts.daemonVersion, "");
}

TEST_F(Update, LeavesOutWhatIsInstalled) {
    writeFile(mDirectory.file("record"), recordWithRoot({1, 2, 3}));
    options.installed = mDirectory.file("record");
    options.verbosity = 6; // where the log tells less
    const lab::LabResult result = runLab(options, mDirectory.file("work"));
    ASSERT_EQ(failureOf(result), "");
    EXPECT_EQ(ranges(result), (Lines{"image start 0-511", "kernel header 204-715", "kernel body 716-50272",
                                     "root header 50272-50783"}));
    EXPECT_EQ(result.verdict.rows.back().finding, "not needed, header only");
}

TEST_F(Update, SaysWhichStepFailedAndKeepsTheLog) {
    options.version = "9.09-9"; // which the image is not
    options.timeout = std::chrono::seconds(2);
    const lab::LabResult late = runLab(options, mDirectory.file("work"));
    EXPECT_EQ(late.step, lab::LabResult::Update);
    for (const char* const told : {"time limit", "the daemon's status: ", "; its last warnings: ",
                                   "The image is release 1.05-7, configured is 9.09-9."})
        EXPECT_NE(late.failure.find(told), std::string::npos) << late.failure;
    EXPECT_NE(readText(late.daemonLog), "");

    options.version = "";
    std::string damaged = readText(options.image);
    damaged[300] ^= 1; // in the kernel's body
    options.image = mDirectory.write("damaged", damaged);
    options.timeout = std::chrono::seconds(60);
    const lab::LabResult futile = runLab(options, mDirectory.file("work"));
    EXPECT_EQ(futile.step, lab::LabResult::Prepare);
    EXPECT_NE(futile.failure.find("the body of 'kernel' at offset 204 is damaged"), std::string::npos)
        << futile.failure;

    options.image = mDirectory.file("image");
    options.version = "0.00-0"; // which is installed
    EXPECT_EQ(runLab(options, mDirectory.file("work")).step, lab::LabResult::Prepare);
    for (const char* const version : {"1", "1.05", "1.05-", "1-7.5", "x.05-7", "1.-7", "1.05 7"}) {
        options.version = version;
        EXPECT_EQ(runLab(options, mDirectory.file("work")).step, lab::LabResult::Prepare) << version;
    }
}

// One fault of each group, on the body of the first part, bytes 716 to 50272.
TEST_F(Update, OvercomesAndShowsWhatTheServerDoesWrong) {
    const struct {
        const char* fault;
        Lines requests; // the one with the fault, and those until the next part
    } rows[] = {
        {"not-found=2", {"716-50272 404 48 not-found", "716-50272 404 48 not-found", "716-50272 206 49557 "}},
        {"close-in-head", {"716-50272 0 0 close-in-head", "716-50272 206 49557 "}},
        {"reset-mid-body", {"716-50272 206 24778 reset-mid-body", "204-50272 206 50069 "}},
        {"close-mid-body", {"716-50272 206 24778 close-mid-body", "25494-50272 206 24779 "}},
        {"ignore-range", {"716-50272 200 59336 ignore-range"}},
        {"damage", {"716-50272 206 49557 damage"}},
        {"drip", {"716-50272 206 49557 drip"}},
    };
    options.timeScale = 1000;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fault);
        options.faults = {"none=2", row.fault};
        const lab::LabResult result = runLab(options, mDirectory.file(row.fault));
        ASSERT_EQ(failureOf(result), "");
        Lines expected = {"0-511 206 512 ", "204-715 206 512 "};
        expected.insert(expected.end(), row.requests.begin(), row.requests.end());
        expected.emplace_back("50272-50783 206 512 ");
        Lines found;
        for (const lab::LabEvent& event : result.requests)
            found.push_back(event.request.range + " " + std::to_string(event.request.status) + " " +
                            std::to_string(event.request.bytes) + " " + event.request.fault);
        found.resize(std::min(found.size(), expected.size()));
        EXPECT_EQ(found, expected);
    }
}

TEST(LabProgram, PrintsAResultForPrograms) {
    const std::string command = lab::Programs::find().lab + " run --time-scale 100 --json";
    const support::ShellOutput output = support::runShell(command + " 2>/dev/null");
    EXPECT_EQ(output.status, 0);
    const nlohmann::json result = nlohmann::json::parse(output.text);
    EXPECT_EQ(result["good"], true);
    EXPECT_EQ(result["run"]["commandLine"], command);
    EXPECT_EQ(result["actions"].back()["action"], "WaitForFwUpdate");
}

TEST(LabProgram, OpensAShellOnATerminalThatEndsWithIt) {
    const support::ShellOutput output = support::runShell(
        "echo 'until fwctl status >/dev/null; do sleep 0.05; done; fwctl check; sleep 1000 & exit 3' | " +
        lab::Programs::find().lab + " shell 2>/dev/null");
    EXPECT_EQ(output.status, 3);
    EXPECT_NE(output.text.find("daemon         ok: process "), std::string::npos) << output.text;
}

TEST(FaultNames, AreReadWithTheirCounts) {
    EXPECT_EQ(lab::Fault::parse("stall").count, 1U);
    EXPECT_EQ(lab::Fault::parse("stall=10000").count, 10000U);
    for (const lab::Fault& fault : lab::Fault::all())
        EXPECT_EQ(lab::Fault::parse(fault.name + "=2").name, fault.name);
    for (const char* const wrong : {"", "=1", "unheard-of", "stall=", "stall=0", "stall=10001", "stall=-1",
                                    "stall=1x", "stall=99999999999"})
        EXPECT_THROW(lab::Fault::parse(wrong), std::runtime_error) << wrong;
}

} // namespace
