#include "support/ShellOutput.h"
#include "support/TestPlatform.h"
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>

namespace {

// The tool itself, on a bus and a database of the test's own. Arguments are shell text.
class Vexctl : public testing::Test {
  protected:
    struct Result {
        int status;
        std::string out;
        std::string error;
    };

    FILE* begin(const std::string& arguments, const std::string& errors = "&1") const {
        return popen((VEXCTL_PROGRAM " " + arguments + " 2>" + errors).c_str(), "r");
    }

    Result run(const std::string& arguments) const {
        const std::string errors = platform.directory().file("errors");
        const support::ShellOutput output = support::finish(begin(arguments, errors));
        return {output.status, output.text, lab::TemporaryDirectory::read(errors)};
    }

    // One line that begins with the tool's name and names the thing.
    static bool complains(const Result& result, const char* text) {
        return result.out.empty() && result.error.rfind("vexctl: ", 0) == 0 &&
               result.error.find('\n') == result.error.size() - 1 &&
               result.error.find(text) != std::string::npos;
    }

    // Sends signals over and over, for nobody sees when a listener begins, until `wait` has returned.
    template <typename Wait>
    void sendUntilDone(Wait wait) const {
        std::atomic<bool> done{false};
        std::thread waiter([&] {
            wait();
            done = true;
        });
        while (!done) {
            EXPECT_EQ(0, run("signal send other.x 00").status);
            EXPECT_EQ(0, run("signal send evt.a 00fF7e").status);
            EXPECT_EQ(0, run("signal send evt").status);
            EXPECT_EQ(0, run("signal send event_handler.forwardEventReport 01000100" + std::string(16, '0') +
                             "02000000")
                             .status);
        }
        waiter.join();
    }

    support::TestPlatform platform;
};

TEST_F(Vexctl, SetsGetsListsAndErases) {
    EXPECT_EQ(0, run("config set cfg.b x").status);
    EXPECT_TRUE(complains(run("config get cfg.a"), "there is no key cfg.a"));
    EXPECT_EQ(1, run("config get cfg.a").status);
    EXPECT_EQ(0, run("config set cfg.a 'two words' cfg.b '' state.c -5 state.d '[x,y]'").status);
    EXPECT_EQ(0, run("config set cfg.e -- --help").status);
    EXPECT_EQ("two words\n", run("config get cfg.a").out);
    EXPECT_EQ("cfg.a=two words\ncfg.b=\ncfg.e=--help\n", run("config list cfg.").out);
    EXPECT_EQ("state.c=-5\nstate.d=[x,y]\n", run("config list state").out);
    EXPECT_EQ(0, run("config erase cfg.a absent state.c state.d cfg.e").status);
    EXPECT_EQ("cfg.b=\n", run("config list").out);
    EXPECT_EQ(0, run("config set cfg.a \"$(printf 'x\\ny=\"1\"')\" cfg.c '\"' cfg.d ' '").status);
    EXPECT_EQ("cfg.a=\"x\\ny=\\\"1\\\"\"\ncfg.b=\ncfg.c=\"\\\"\"\ncfg.d=\" \"\n", run("config list").out)
        << "each line is one value";
    EXPECT_EQ(0, run("config set k=l v").status);
    EXPECT_EQ("\"k=l\"=v\n", run("config list k").out);
    EXPECT_EQ("{\n  \"cfg.a\": \"x\\ny=\\\"1\\\"\"\n}\n", run("config list --json cfg.a").out);
    const Result slip = run("config set cfg.fw_forse 1 cfg.fw_force 1");
    EXPECT_EQ(0, slip.status);
    EXPECT_TRUE(complains(slip, "reads no key 'cfg.fw_forse'; is 'cfg.fw_force' meant?")) << slip.error;
}

TEST_F(Vexctl, WrongUseIsTwoAndChangesNothing) {
    for (const char* const arguments :
         {"", "config", "config set", "config set a 1 b", "config erase", "config get", "config get a b",
          "config bogus", "signal", "signal send", "signal send a 123", "signal send a 0g", "config get ''",
          "config set '' 1", "signal listen --count 0", "signal listen --count x",
          "signal listen --timeout 0"}) {
        const Result result = run(arguments);
        EXPECT_EQ(2, result.status) << arguments;
        EXPECT_TRUE(complains(result, "")) << arguments << ": " << result.error;
    }
    for (const char* const look : {"config list", "config get cfg.a"}) {
        const Result result = run(look);
        EXPECT_EQ(1, result.status) << look;
        EXPECT_TRUE(complains(result, "No such file or directory")) << result.error;
    }
    EXPECT_NE(0, access(platform.database().c_str(), F_OK)) << "who only looks makes no database";
    platform.directory().write("config.db", "");
    EXPECT_TRUE(complains(run("config list"), "it is empty"));
    EXPECT_EQ(0U, std::filesystem::file_size(platform.database())) << "nor one of an empty file";
    std::filesystem::remove(platform.database());
    EXPECT_EQ(0, run("config set --help").status);
}

TEST_F(Vexctl, FailuresNameTheThingAndTheReason) {
    platform.bus().stop();
    const Result send = run("signal send evt.a");
    EXPECT_EQ(1, send.status);
    EXPECT_TRUE(complains(send, platform.bus().address().c_str())) << send.error;
    const support::ScopedEnvironment missing("VEX_CONFIGDB", platform.directory().file("no/such.db"));
    const Result get = run("config get a");
    EXPECT_EQ(1, get.status);
    EXPECT_TRUE(complains(get, "no/such.db: No such file or directory")) << get.error;
}

TEST_F(Vexctl, ListenersPrintWhatOthersSendUpToTheirCount) {
    FILE* const filtered = begin("signal listen evt --count 2 --timeout 60");
    FILE* const all = begin("signal listen --count 6 --timeout 60");
    support::ShellOutput ofFiltered{};
    support::ShellOutput ofAll{};
    sendUntilDone([&] {
        ofFiltered = support::finish(filtered);
        ofAll = support::finish(all);
    });
    EXPECT_EQ(0, ofFiltered.status);
    EXPECT_THAT(ofFiltered.text, testing::AnyOf("evt.a 00ff7e\nevt\n", "evt\nevt.a 00ff7e\n"));
    EXPECT_EQ(0, ofAll.status);
    EXPECT_THAT(ofAll.text, testing::HasSubstr("other.x 00\nevt.a 00ff7e\nevt\n"));
    EXPECT_THAT(ofAll.text, testing::HasSubstr("02000000 (update ready on)\n"));
}

TEST_F(Vexctl, ListenerPrintsAtOnceAndNoticesTheEndOfTheBus) {
    FILE* const listener = begin("signal listen evt.a");
    std::array<char, 100> line{};
    sendUntilDone([&] { EXPECT_NE(nullptr, fgets(line.data(), line.size(), listener)); });
    EXPECT_STREQ("evt.a 00ff7e\n", line.data());
    platform.bus().stop();
    const support::ShellOutput lost = support::finish(listener);
    EXPECT_EQ(1, lost.status);
    EXPECT_EQ("vexctl: the bus is gone\n", lost.text);
}

TEST_F(Vexctl, ListenerFailsWhenItsSecondsAreOver) {
    const support::ScopedEnvironment scale("VEX_TIME_SCALE", "1000");
    const auto start = std::chrono::steady_clock::now();
    const Result late = run("signal listen evt --count 1 --timeout 0.3");
    EXPECT_EQ(1, late.status);
    EXPECT_TRUE(complains(late, "time is over after 0 of 1 signals")) << late.error;
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300)) << "real seconds";
    EXPECT_EQ(0, run("signal listen evt --timeout 0.1").status) << "nothing was counted";
}

} // namespace
