// What a lab run may not do to the machine, and what it must not leave running.
#include "lab/Terminal.h"
#include "lab/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <csignal>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>

namespace {

class TerminalTest : public testing::Test {
  protected:
    // `keep` stays open in it. What it prints goes to the file "output".
    std::unique_ptr<lab::TerminalProcess> start(const std::string& script, int keep = -1) const {
        lab::ChildOptions options;
        options.arguments = {"sh", "-c", script};
        if (keep >= 0)
            options.keep = {keep};
        return startIn(mTerminal, options, mWork.file("output"));
    }

    // Whether nobody has the pipe open any more.
    bool isClosedSoon() const {
        pollfd watched = {mPipe.readEnd.get(), POLLIN, 0};
        char byte = 0;
        return poll(&watched, 1, static_cast<int>(VeryLong.count())) == 1 &&
               read(mPipe.readEnd.get(), &byte, 1) == 0;
    }

    const lab::TemporaryDirectory mDirectory;
    const lab::WorkDirectory mWork{mDirectory.path()};
    const lab::Terminal mTerminal{mWork, lab::Programs::find()};
    lab::Pipe mPipe;
};

TEST_F(TerminalTest, CannotWriteToTheMachine) {
    for (const std::string script : {"touch /usr/x || touch /etc/x || touch /bin/x",
                                     "test -e /home || test -e /root || test -e $HERE"}) {
        const auto process = start("HERE='" + mDirectory.path() + "'; " + script);
        ASSERT_TRUE(process->waitFor(VeryLong));
        EXPECT_TRUE(process->exitStatus()->isExit(1)) << script;
    }
}

TEST_F(TerminalTest, EndsWithAllProcessesInIt) {
    const auto process = start("setsid sleep 1000 & sleep 1000", mPipe.writeEnd.get());
    mPipe.writeEnd.close();
    process->kill();
    EXPECT_TRUE(isClosedSoon());
}

// The terminal as well as what the lab started beside it, like the bus.
TEST_F(TerminalTest, EndsWhenTheLabIsKilled) {
    const pid_t child = fork();
    if (child == 0) {
        lab::ChildOptions options;
        options.arguments = {"sleep", "1000"};
        options.keep = {mPipe.writeEnd.get()};
        const lab::ChildProcess beside(options);
        const auto process = start("echo ready; setsid sleep 1000", mPipe.writeEnd.get());
        mPipe.writeEnd.close();
        pause();
    }
    mPipe.writeEnd.close();
    EXPECT_TRUE(eventually([&] { return !readText(mWork.file("output")).empty(); }));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(isClosedSoon());
}

// A stray one would hold sockets and locks of the lab open.
TEST_F(TerminalTest, ProgramsInheritNoOtherDescriptors) {
    const lab::Descriptor stray(dup(mPipe.readEnd.get())); // not closed on exec
    lab::ChildOptions options;
    options.arguments = {"sh", "-c", "test ! -e /proc/$$/fd/" + std::to_string(stray.get())};
    lab::ChildProcess child(options);
    ASSERT_TRUE(child.waitFor(VeryLong));
    EXPECT_TRUE(child.exitStatus()->isExit(0));
}

TEST_F(TerminalTest, ProgramsThatCannotStartAreNamed) {
    lab::ChildOptions options;
    options.arguments = {"/etc/passwd"};
    EXPECT_THAT([&] { lab::ChildProcess none(options); },
                testing::ThrowsMessage<std::runtime_error>("cannot start '/etc/passwd': Permission denied"));
}

} // namespace
