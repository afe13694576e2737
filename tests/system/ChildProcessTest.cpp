#include "lab/ChildProcess.h"
#include "lab/Descriptor.h"
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>

namespace {

using lab::ChildOptions;
using lab::ChildProcess;
using lab::Milliseconds;

constexpr Milliseconds Long{10000};

ChildOptions shell(const std::string& script) {
    ChildOptions options;
    options.arguments = {"sh", "-c", script};
    return options;
}

std::string readToEnd(int fd) {
    std::string text;
    char buffer[256];
    ssize_t count = 0;
    while ((count = read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(count));
    return text;
}

// Whether all write ends of a pipe are closed within the time.
bool isClosedWithin(int fd, Milliseconds time) {
    pollfd watched = {fd, POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(time.count())) == 1 && readToEnd(fd).empty();
}

TEST(ChildProcess, RunsWithItsEnvironmentAndTellsHowItEnded) {
    lab::Pipe pipe;
    ChildOptions options = shell("echo $COLOR; cat; exit 3");
    options.environment = {{"COLOR", "green"}};
    options.output = pipe.writeEnd.get();
    ChildProcess child(options);
    pipe.writeEnd.close();
    EXPECT_EQ(readToEnd(pipe.readEnd.get()), "green\n");
    ASSERT_TRUE(child.waitFor(Long));
    EXPECT_TRUE(child.exitStatus()->isExit(3));
    EXPECT_EQ(child.exitStatus()->toString(), "with status 3");
}

TEST(ChildProcess, SaysWhyItCannotStart) {
    ChildOptions options;
    options.arguments = {"/etc/passwd"};
    EXPECT_THROW(
        {
            try {
                ChildProcess child(options);
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "cannot start '/etc/passwd': Permission denied");
                throw;
            }
        },
        std::runtime_error);
    options.arguments = {"no-such-program"};
    EXPECT_THROW(ChildProcess child(options), std::runtime_error);
}

// Only the descriptors that it was told to keep; a stray one would hold sockets and locks of the lab open.
TEST(ChildProcess, InheritsNoOtherDescriptors) {
    lab::Pipe kept;
    lab::Pipe output;
    const int stray = dup(kept.readEnd.get()); // not closed on exec
    ChildOptions options = shell("ls /proc/$$/fd");
    options.output = output.writeEnd.get();
    options.keep = {kept.writeEnd.get()};
    ChildProcess child(options);
    output.writeEnd.close();
    EXPECT_EQ(readToEnd(output.readEnd.get()), "0\n1\n2\n" + std::to_string(kept.writeEnd.get()) + "\n");
    close(stray);
}

TEST(ChildProcess, EndsWithItsObjectAndItsWholeGroup) {
    lab::Pipe pipe;
    ChildOptions options = shell("sleep 1000 & sleep 1000");
    options.keep = {pipe.writeEnd.get()};
    { const ChildProcess child(options); }
    pipe.writeEnd.close();
    EXPECT_TRUE(isClosedWithin(pipe.readEnd.get(), Long));
}

TEST(ChildProcess, EndsWhenTheProcessThatStartedItIsKilled) {
    lab::Pipe pipe;
    const pid_t parent = fork();
    if (parent == 0) {
        ChildOptions options =
            shell("echo started >&" + std::to_string(pipe.writeEnd.get()) + "; exec sleep 1000");
        options.keep = {pipe.writeEnd.get()};
        const ChildProcess child(options);
        pipe.writeEnd.close();
        pause();
    }
    pipe.writeEnd.close();
    char line[8];
    ASSERT_EQ(read(pipe.readEnd.get(), line, sizeof line), 8);
    kill(parent, SIGKILL);
    waitpid(parent, nullptr, 0);
    EXPECT_TRUE(isClosedWithin(pipe.readEnd.get(), Long));
}

TEST(ChildProcess, StartsWithDefaultSignals) {
    signal(SIGTERM, SIG_IGN);
    sigset_t mask;
    sigset_t before;
    sigemptyset(&mask);
    sigaddset(&mask, SIGTERM);
    sigprocmask(SIG_BLOCK, &mask, &before);
    ChildOptions options;
    options.arguments = {"sleep", "1000"};
    ChildProcess child(options);
    child.signal(SIGTERM);
    EXPECT_TRUE(child.waitFor(Long));
    EXPECT_EQ(child.exitStatus()->toString(), "by signal Terminated");
    sigprocmask(SIG_SETMASK, &before, nullptr);
    signal(SIGTERM, SIG_DFL);
}

} // namespace
