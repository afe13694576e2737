// fwctl itself, on a bus and a database of the test's own, and a status that the test writes.
#include "support/ShellOutput.h"
#include "support/TestPlatform.h"
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

using testing::HasSubstr;

namespace {

class Fwctl : public testing::Test {
  protected:
    Fwctl() { std::filesystem::create_directory(run() + "/fw_download"); }
    ~Fwctl() override { close(mPidFile); }

    const std::string& run() const { return mPlatform.directory().path(); }

    support::ShellOutput fwctl(const std::string& arguments) const {
        return support::runShell(FWCTL_PROGRAM " --run '" + run() + "' " + arguments + " 2>&1");
    }

    static std::string get(const std::string& key) {
        return support::runShell(VEXCTL_PROGRAM " config get " + key + " 2>&1").text;
    }

    void writeStatus(const std::string& members, long pid = getpid()) const {
        mPlatform.directory().write("fw_download/status.json",
                                    "{\"schema\": 1, \"pid\": " + std::to_string(pid) + ", " + members + "}");
    }

    // As the daemon has it while it runs.
    void lockPidFile() {
        mPlatform.directory().write("fw_download.pid", std::to_string(getpid()) + "\n");
        mPidFile = open((run() + "/fw_download.pid").c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(flock(mPidFile, LOCK_EX), 0);
    }

    support::TestPlatform mPlatform;
    int mPidFile = -1;
};

TEST_F(Fwctl, RefusesWhatIsNoVersionOrNoUrlAndWritesNothing) {
    for (const char* const order :
         {"1.05 http://h/i", "1.x-7 http://h/i", "1.05-a/b http://h/i", "1.05- http://h/i", "1.05-7 h/i",
          "1.05-7 ftp://h/i", "1.05-7 'http://h/a b'", "1.05-7 http://u:hush@/i"}) {
        const support::ShellOutput output = fwctl(std::string("update ") + order);
        EXPECT_EQ(output.status, 2) << order;
        EXPECT_EQ(output.text.rfind("fwctl: ", 0), 0U) << output.text;
        EXPECT_EQ(output.text.find("hush"), std::string::npos);
    }
    EXPECT_THAT(fwctl("pending").text, HasSubstr("No such file or directory"));
    EXPECT_FALSE(std::filesystem::exists(mPlatform.database()));
}

TEST_F(Fwctl, WritesOrdersAndTellsTheDaemon) {
    const std::string heard = mPlatform.directory().file("heard");
    support::runShell("{ " VEXCTL_PROGRAM " signal listen evt --count 1 --timeout 60 >'" + heard +
                      ".new'; mv '" + heard + ".new' '" + heard + "'; } >/dev/null 2>&1 &");
    while (!std::filesystem::exists(heard)) // nobody sees when a listener begins
        ASSERT_EQ(fwctl("update --force 1.05-7 http://u:p@h/i").status, 0);
    EXPECT_EQ(lab::TemporaryDirectory::read(heard), "evt.confd.updated\n");
    const std::string device = "cfg.device.configuration.";
    EXPECT_EQ(get(device + "major_version") + get(device + "minor_version") + get(device + "build_label"),
              "1\n5\n7\n");
    EXPECT_EQ(get(device + "sw_update_url"), "http://u:p@h/i\n");
    EXPECT_EQ(get("cfg.config.status") + get("cfg.fw_force"), "complete\n1\n");
    EXPECT_EQ(fwctl("disable").status, 0);
    EXPECT_EQ(get("state.fw_download.disabled"), "1\n");
    EXPECT_EQ(fwctl("enable").status, 0);
    EXPECT_EQ(get("state.fw_download.disabled"), "0\n");
    EXPECT_EQ(fwctl("pending").status, 1);
    support::runShell(VEXCTL_PROGRAM " config set cfg.fw_ready_for_install /data/fw/image");
    EXPECT_EQ(fwctl("pending").text, "/data/fw/image\n");

    mPlatform.bus().stop();
    const support::ShellOutput untold = fwctl("force");
    EXPECT_EQ(untold.status, 1);
    EXPECT_THAT(untold.text, HasSubstr("it is in the database, but the daemon could not be told"));
}

TEST_F(Fwctl, SaysWhenTheStatusIsNotThatOfADaemonThatRuns) {
    EXPECT_THAT(fwctl("status").text, HasSubstr("does not run\nthere is no status in"));
    writeStatus("\"state\": \"idle\"", 999999999);
    EXPECT_THAT(fwctl("status").text, HasSubstr("does not run; this is what it said last"));
    EXPECT_EQ(fwctl("status").status, 1);
    lockPidFile();
    EXPECT_THAT(fwctl("status").text, HasSubstr("this is from an earlier process"));
    EXPECT_EQ(fwctl("status").status, 1);
    mPlatform.directory().write("fw_download/status.json", "{\"schema\": 1,");
    EXPECT_THAT(fwctl("status").text, HasSubstr("is damaged"));
    writeStatus("\"state\": \"idle\", \"elements\": [1, null, {}], \"failures\": 3, \"version\": 7");
    EXPECT_EQ(fwctl("status").status, 0);
    EXPECT_THAT(fwctl("status --json").text, HasSubstr("\"running\": true"));
}

TEST_F(Fwctl, ShowsHowFarATransferIsAndWatchesItsEnd) {
    lockPidFile();
    writeStatus(
        "\"state\": \"fetching\", \"version\": \"1.05-7\", \"transfer\": {\"what\": \"root\", \"bytes\": "
        "250000, "
        "\"total\": 1000000, \"rate\": 25000}, \"elements\": [{\"name\": \"root\", \"version\": \"1.05-7\", "
        "\"needed\": true, \"bytes\": 250000, \"total\": 1000000}]");
    const std::string text = fwctl("status").text;
    EXPECT_THAT(text, HasSubstr("root 25 %, 250.0 kB of 1.0 MB, 25.0 kB/s, 30 s left\n"));
    EXPECT_THAT(text, HasSubstr("needed      250.0 kB of 1.0 MB\n"));

    FILE* const watch = popen((FWCTL_PROGRAM " --run '" + run() + "' status --watch").c_str(), "r");
    char line[200] = "";
    ASSERT_NE(fgets(line, sizeof line, watch), nullptr);
    EXPECT_THAT(line, HasSubstr("root 25 %"));
    writeStatus("\"state\": \"ready\", \"version\": \"1.05-7\", \"readyImage\": \"/data/fw/image\"");
    const support::ShellOutput rest = support::finish(watch);
    EXPECT_EQ(rest.text, "ready: /data/fw/image\n");
    EXPECT_EQ(rest.status, 0);
    writeStatus("\"state\": \"disabled\", \"sentence\": \"It is not allowed.\"");
    EXPECT_EQ(fwctl("status --watch").status, 1);
}

} // namespace
