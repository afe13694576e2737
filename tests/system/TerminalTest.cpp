#include "lab/Terminal.h"
#include "support/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>

namespace {

using lab::ChildOptions;
using lab::Milliseconds;
using lab::TerminalProcess;

constexpr Milliseconds Long{20000};

class TerminalTest : public testing::Test {
  protected:
    // The output of a script goes to the file "output".
    std::unique_ptr<TerminalProcess> start(const std::string& script, int keep = -1) const {
        ChildOptions options;
        options.arguments = {"sh", "-c", script};
        const lab::Descriptor output = lab::Descriptor::open(mWork.file("output"), O_WRONLY | O_CREAT);
        options.output = output.get();
        if (keep >= 0)
            options.keep = {keep};
        return mTerminal.start(options);
    }

    int run(const std::string& script) const {
        const auto process = start(script);
        EXPECT_TRUE(process->waitFor(Long));
        return process->exitStatus() ? WEXITSTATUS(process->exitStatus()->raw) : -1;
    }

    std::string output() const { return readText(mWork.file("output")); }

    const support::TemporaryDirectory mDirectory;
    const lab::WorkDirectory mWork{mDirectory.path()};
    const lab::Terminal mTerminal{mWork, lab::Programs::find()};
};

bool isClosedWithin(int fd, Milliseconds time) {
    pollfd watched = {fd, POLLIN, 0};
    char byte = 0;
    return poll(&watched, 1, static_cast<int>(time.count())) == 1 && read(fd, &byte, 1) == 0;
}

TEST_F(TerminalTest, ShowsDirectoriesOfItsOwnInPlaceOfTheMachines) {
    writeFile(mWork.temporary() + "/seen", {'1'});
    EXPECT_EQ(run("cat /tmp/seen; echo 2 >/data/fw/a; echo 3 >/var/run/b; ls /tmp /data"), 0);
    EXPECT_EQ(output(), "1/data:\nfw\n\n/tmp:\nseen\n");
    EXPECT_EQ(readText(mWork.downloads() + "/a"), "2\n");
    EXPECT_EQ(readText(mWork.run() + "/b"), "3\n");
    EXPECT_EQ(mWork.onMachine("/data/fw/a"), mWork.downloads() + "/a");
    EXPECT_EQ(mWork.onMachine("/etc/passwd"), "");
}

TEST_F(TerminalTest, CannotWriteToTheMachine) {
    EXPECT_EQ(run("touch /usr/x || touch /etc/x || touch /bin/x"), 1);
    EXPECT_EQ(run("test -e '" + mDirectory.path() + "' || test -e /home || test -e /root"), 1);
}

TEST_F(TerminalTest, TellsTheStatusOfTheLastProcess) {
    EXPECT_EQ(run("exit 7"), 7);
    EXPECT_EQ(run("kill -9 $$"), 128 + SIGKILL);
    EXPECT_EQ(run("(sleep 0.1; exit 5) & exit 0"), 5); // as of a program that became a daemon
}

TEST_F(TerminalTest, PassesSignalsOn) {
    const auto process = start("trap 'exit 9' TERM; echo ready; while :; do sleep 0.01; done");
    while (output().empty())
        usleep(1000);
    process->signal(SIGTERM);
    ASSERT_TRUE(process->waitFor(Long));
    EXPECT_TRUE(process->exitStatus()->isExit(9));
}

TEST_F(TerminalTest, EndsWithAllProcessesInIt) {
    lab::Pipe pipe;
    const auto process = start("setsid sleep 1000 & sleep 1000", pipe.writeEnd.get());
    pipe.writeEnd.close();
    process->kill();
    EXPECT_TRUE(isClosedWithin(pipe.readEnd.get(), Long));
}

TEST_F(TerminalTest, EndsWhenTheLabIsKilled) {
    lab::Pipe pipe;
    const pid_t child = fork();
    if (child == 0) {
        const auto process = start("echo ready; setsid sleep 1000", pipe.writeEnd.get());
        pipe.writeEnd.close();
        pause();
    }
    pipe.writeEnd.close();
    while (output().empty())
        usleep(1000);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(isClosedWithin(pipe.readEnd.get(), Long));
}

TEST_F(TerminalTest, CheckPassesHere) {
    EXPECT_NO_THROW(mTerminal.check());
}

} // namespace
