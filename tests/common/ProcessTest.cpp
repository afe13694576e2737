#include "common/process.h"
#include "common/instance.h"

#include "common/Scratch.h"
#include "common/SlogCapture.h"
#include "support/Faults.h"
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

// Number of open descriptors of this process.
long openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
}

// Content of a file that another process writes and renames; empty if it does not come within ten seconds.
std::string awaitFile(const std::string& path) {
    for (int i = 0; i < 1000 && !std::filesystem::exists(path); ++i)
        usleep(10000);
    return ScratchDir::read(path);
}

TEST(ProcRun, ReturnsTheExitStatusOrSignal) {
    EXPECT_EQ(proc_run("true"), 0);
    EXPECT_EQ(proc_run("sh -c 'exit 3'"), 3);
    EXPECT_EQ(proc_run("sh -c 'kill -9 $$'"), 9);
    EXPECT_EQ(proc_run("/no/such/program with arguments"), 127);
}

TEST(ProcSpawn, EmptyCommandStartsNothing) {
    for (const char* command : {"", "   ", "'"})
        EXPECT_EQ(proc_spawn(command), -1);
    EXPECT_EQ(proc_daemon(""), -1);
    EXPECT_EQ(proc_run(nullptr), -1);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(ProcSpawn, ChildIsAskedForAndWaitedFor) {
    const int child = proc_spawn("sh -c 'sleep 0.2; exit 5'");
    ASSERT_GT(child, 0);
    int status = 77;
    EXPECT_EQ(proc_checkpid(child, &status), 0);
    EXPECT_EQ(status, 77);
    EXPECT_EQ(proc_waitpid(child), 5);

    takeSlog();
    EXPECT_LT(proc_waitpid(child), 0);
    EXPECT_EQ(takeSlog(), "<3> _proc_checkpid: " + std::to_string(child) + ": No child processes\n");
}

TEST(ProcSpawn, WaitSurvivesAnInterruption) {
    const support::Interruptions interruptions;
    EXPECT_EQ(proc_waitpid(_proc_spawn(0, "sh -c 'sleep 0.2; exit 4'")), 4);
}

// Runs a shell test in a child with these flags; the test's exit status.
int shellStatus(int flags, const std::string& test) {
    return _proc_spawn(flags | ProcWait, ("sh -c '" + test + "'").c_str());
}

TEST(ProcSpawn, StandardStreamsByFlag) {
    const std::string null0 = "test /proc/self/fd/0 -ef /dev/null";
    const std::string null1 = "test /proc/self/fd/1 -ef /dev/null";
    const std::string null2 = "test /proc/self/fd/2 -ef /dev/null";
    const int saved = fcntl(STDIN_FILENO, F_DUPFD, 10);
    const int zeros = open("/dev/zero", O_RDONLY);
    dup2(zeros, STDIN_FILENO);
    close(zeros);
    EXPECT_NE(shellStatus(0, null0), 0);
    EXPECT_EQ(shellStatus(ProcNullStdin, null0), 0);
    EXPECT_EQ(shellStatus(ProcNullStderr, null2), 0);
    EXPECT_EQ(shellStatus(7, null0 + " && " + null1 + " && " + null2), 0);
    EXPECT_EQ(shellStatus(15, null0 + " && " + null1 + " && " + null2), 0);
    dup2(saved, STDIN_FILENO);
    close(saved);
    // The descriptor of /dev/null itself is not left open where another was asked for.
    EXPECT_EQ(shellStatus(ProcCloseFds | ProcNullStdout, null1 + " && ! test -e /proc/self/fd/0"), 0);
}

TEST(ProcSpawn, ClosesInheritedDescriptorsOnlyByFlag) {
    const int fd = fcntl(STDIN_FILENO, F_DUPFD, 9);
    ASSERT_GE(fd, 9);
    const std::string isOpen = "test -e /proc/self/fd/" + std::to_string(fd);
    EXPECT_EQ(shellStatus(0, isOpen), 0);
    EXPECT_NE(shellStatus(ProcCloseFds, isOpen), 0);
    close(fd);
}

TEST(ProcDaemon, RunsInASessionOfItsOwnAlsoWithoutStandardInput) {
    const ScratchDir scratch;
    const int saved = fcntl(STDIN_FILENO, F_DUPFD, 10);
    for (const bool closed : {false, true}) {
        const std::string file = scratch.file(closed ? "closed" : "open");
        std::string command = "sh -c 'cut -d\" \" -f1,4,6 /proc/$$/stat >F.t; mv F.t F'";
        for (size_t at = 0; (at = command.find('F', at)) != std::string::npos; at += file.size())
            command.replace(at, 1, file);
        if (closed)
            close(STDIN_FILENO);
        const long before = openDescriptors();
        const int pid = proc_daemon(command.c_str());
        EXPECT_EQ(openDescriptors(), before);
        dup2(saved, STDIN_FILENO);
        ASSERT_GT(pid, 0);
        int statPid = 0;
        int parent = 0;
        int session = 0;
        ASSERT_EQ(sscanf(awaitFile(file).c_str(), "%d %d %d", &statPid, &parent, &session), 3);
        EXPECT_EQ(statPid, pid);
        EXPECT_NE(parent, getpid());
        EXPECT_NE(session, getsid(0));
    }
    close(saved);
    EXPECT_GT(proc_daemon("/no/such/program"), 0); // does not hang
}

TEST(InstanceCheck, GivesOutEachSlotOnce) {
    const std::string name = "fwtest" + std::to_string(getpid());
    EXPECT_EQ(instance_check(name.c_str(), 0), 1);
    EXPECT_EQ(instance_check(name.c_str(), 1), 0);
    EXPECT_EQ(instance_check(name.c_str(), 1), 1);
    for (const int result : {0, 0, 1})
        EXPECT_EQ(instance_check(name.c_str(), 3), result);
    const pid_t other = fork(); // another process sees the slots busy too
    if (other == 0)
        _exit(instance_check(name.c_str(), 3));
    EXPECT_EQ(proc_waitpid(other), 1);
    for (const char* slot : {"0", "1", "2"})
        EXPECT_EQ(remove(("/tmp/lock-" + name + "-" + slot).c_str()), 0);
    EXPECT_EQ(instance_check("no/such", 2), 1) << "a slot that cannot be made is busy";
}

} // namespace
