#include "vex/LinuxDaemon.h"
#include "lab/TemporaryDirectory.h"
#include "support/Faults.h"
#include "vex/FdLoop.h"
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

const auto contents = lab::TemporaryDirectory::read;

// Runs its loop until terminated, and writes what it does into a file.
class RecordingDaemon : public common::LinuxDaemon {
  public:
    explicit RecordingDaemon(const std::string& record) : mRecord(record) {}

    void init() override {
        note("init");
        if (onInit)
            onInit();
    }
    void run() override {
        note("run");
        common::FdLoopEventHandler breakOnly;
        if (!mLoop.fdRegister(mEvent.getFd(), breakOnly))
            note("unregistered");
        while (!mStop)
            mLoop.run();
    }
    void terminated() override {
        note("terminated");
        mStop = true;
        mEvent.interrupt();
    }
    void note(const std::string& word) const {
        const int fd = open(mRecord.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        const std::string text = word + " ";
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(fd, text.data(), text.size()));
        close(fd);
    }

    std::function<void()> onInit;

  private:
    const std::string mRecord;
    std::atomic<bool> mStop{false};
    common::FdLoop mLoop;
    common::FdLoopEvent mEvent;
};

// Starts daemons as a program would, and adopts them, so that their end can be seen.
class LinuxDaemon : public testing::Test {
  protected:
    LinuxDaemon() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
    ~LinuxDaemon() override {
        if (daemon > 0)
            kill(daemon, SIGKILL);
    }

    // The launching program's exit status: 0 when daemonize() was true. Its standard error goes to a file.
    int start(const std::function<void(RecordingDaemon&)>& prepare = {}) {
        const pid_t launcher = fork();
        if (launcher == 0) {
            const int errors = open(errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            dup2(errors, STDERR_FILENO);
            const pid_t self = getpid();
            RecordingDaemon program(recordFile);
            if (prepare)
                prepare(program);
            const bool good = program.daemonize(pidFile.c_str());
            if (getpid() != self) {
                program.note(access(pidFile.c_str(), F_OK) == 0 ? "pid file left" : "ended");
                kill(getpid(), SIGTERM); // one that comes too late
            }
            _exit(good ? 0 : 1);
        }
        const int status = waitFor(launcher);
        daemon = status == 0 ? atoi(contents(pidFile).c_str()) : daemon;
        return status;
    }

    void awaitRecorded(const char* word) const {
        while (contents(recordFile).find(word) == std::string::npos)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    static int waitFor(pid_t process) {
        int status = -1;
        EXPECT_EQ(process, waitpid(process, &status, 0));
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

    // Sends the signal and returns the daemon's exit status.
    int end(int signalNumber) {
        kill(daemon, signalNumber);
        const pid_t ended = daemon;
        daemon = -1;
        return waitFor(ended);
    }

    std::string standardDescriptor(int fd) const {
        char target[PATH_MAX] = "";
        const std::string link = "/proc/" + std::to_string(daemon) + "/fd/" + std::to_string(fd);
        return readlink(link.c_str(), target, sizeof target - 1) > 0 ? target : "";
    }

    lab::TemporaryDirectory directory;
    std::string pidFile = directory.file("test.pid");
    std::string recordFile = directory.file("record");
    std::string errorFile = directory.file("errors");
    pid_t daemon = -1;
};

TEST_F(LinuxDaemon, RunsDetachedUntilASignalAndCleansUp) {
    for (const int signalNumber : {SIGTERM, SIGINT}) {
        unlink(recordFile.c_str());
        ASSERT_EQ(0, start());
        ASSERT_GT(daemon, 0);
        EXPECT_EQ(std::to_string(daemon) + "\n", contents(pidFile));
        EXPECT_EQ(daemon, getsid(daemon));
        for (const int fd : {0, 1, 2})
            EXPECT_EQ("/dev/null", standardDescriptor(fd));
        awaitRecorded("run");
        EXPECT_EQ(0, end(signalNumber));
        EXPECT_EQ("init run terminated ended ", contents(recordFile));
        EXPECT_EQ("", contents(errorFile));
    }
}

TEST_F(LinuxDaemon, PidFileOfAKilledDaemonIsTakenOver) {
    ASSERT_EQ(0, start());
    EXPECT_EQ(1000 + SIGKILL, end(SIGKILL));
    EXPECT_NE("", contents(pidFile));
    ASSERT_EQ(0, start());
    EXPECT_EQ(std::to_string(daemon) + "\n", contents(pidFile));
    EXPECT_EQ(0, end(SIGTERM));
}

TEST_F(LinuxDaemon, UnwritablePidFileFailsTheStart) {
    pidFile = directory.file("no/such.pid");
    EXPECT_EQ(1, start());
    EXPECT_NE(std::string::npos, contents(errorFile).find("cannot open the pid file " + pidFile));
    pidFile = directory.path();
    EXPECT_EQ(1, start());
    pidFile = directory.file("fifo");
    ASSERT_EQ(0, mkfifo(pidFile.c_str(), 0600));
    EXPECT_EQ(1, start());
    EXPECT_EQ(0, access(pidFile.c_str(), F_OK)) << "not ours to remove";
    pidFile = directory.file("full.pid");
    EXPECT_EQ(1, start([](RecordingDaemon&) { static const support::FullDisk disk; }));
    EXPECT_NE(0, access(pidFile.c_str(), F_OK));
    EXPECT_EQ("", contents(recordFile));
}

TEST_F(LinuxDaemon, SignalBeforeRunIsNotLost) {
    ASSERT_EQ(0, start([this](RecordingDaemon& program) {
                  program.onInit = [this] {
                      kill(getpid(), SIGTERM);
                      awaitRecorded("terminated");
                      awaitRecorded("go");
                  };
              }));
    RecordingDaemon(recordFile).note("go"); // not before the pid file has been read
    EXPECT_EQ(0, end(0));
    // The parent's note may stand anywhere before the run.
    std::string record = contents(recordFile);
    const size_t go = record.find("go ");
    ASSERT_NE(go, std::string::npos) << record;
    EXPECT_LT(go, record.find("run")) << record;
    record.erase(go, strlen("go "));
    EXPECT_EQ(record, "init terminated run ended ");
}

TEST_F(LinuxDaemon, ChildrenOfTheDaemonCanBeTerminated) {
    ASSERT_EQ(0, start([](RecordingDaemon& program) {
                  signal(SIGINT, SIG_IGN); // as a shell does for what runs in the background
                  program.onInit = [&program] {
                      for (const int signalNumber : {SIGTERM, SIGINT}) {
                          const pid_t child = fork();
                          if (child == 0) {
                              pause();
                              _exit(0);
                          }
                          kill(child, signalNumber);
                          program.note(waitFor(child) == 1000 + signalNumber ? "killed" : "survived");
                      }
                  };
              }));
    awaitRecorded("run");
    EXPECT_EQ(0, end(SIGTERM));
    EXPECT_EQ("init killed killed run terminated ended ", contents(recordFile));
}

} // namespace
