// The daemon in the background: pid file, system log, and its end.
#include "system/SoakTerminal.h"
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>

namespace {

// A system log: a datagram socket, as it stands at /dev/log, that is read all the time, since one that is
// full would hold up whoever logs.
class SystemLog {
  public:
    explicit SystemLog(const std::string& path) : mSocket(localSocket(path, SOCK_DGRAM)) {
        mReader = std::thread([this] { readAll(); });
    }

    ~SystemLog() {
        shutdown(mSocket.get(), SHUT_RD);
        mReader.join();
    }
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    // The first line that ends with `text`; empty when there is none.
    std::string find(const std::string& text) const {
        const std::lock_guard<std::mutex> lock(mMutex);
        const size_t end = mText.find(text + "\n");
        const size_t begin = mText.rfind('\n', end) + 1;
        return end == std::string::npos ? "" : mText.substr(begin, end + text.size() - begin);
    }

  private:
    void readAll() {
        char buffer[8192];
        ssize_t count = 0;
        while ((count = recv(mSocket.get(), buffer, sizeof buffer, 0)) > 0) {
            const std::lock_guard<std::mutex> lock(mMutex);
            mText.append(buffer, static_cast<size_t>(count));
            if (mText.back() != '\n')
                mText += '\n';
        }
    }

    const lab::Descriptor mSocket;
    mutable std::mutex mMutex;
    std::string mText; // guarded by mMutex
    std::thread mReader;
};

TEST(DaemonMode, RecordsItsPidLogsToTheSystemLogAndEndsOnSigterm) {
    SoakTerminal terminal;
    const SystemLog log(terminal.work().file("log"));
    terminal.lab().terminal().bind({terminal.work().file("log"), "/dev/log", true});
    Life life;
    life.isInBackground = true;
    terminal.start(life);
    const std::string started = ": FwDownloadDaemon::run() FdLoop start looping ...";
    ASSERT_TRUE(eventually([&] { return !log.find(started).empty(); }));
    ASSERT_TRUE(eventually([&] { return terminal.takesSignals(); }));

    const std::string pidFile = terminal.work().run() + "/fw_download.pid";
    const std::string pid = readText(pidFile);
    ASSERT_EQ(pid.find_first_not_of("0123456789"), pid.size() - 1);
    EXPECT_EQ(pid.back(), '\n');
    const std::string ident = " fw_download[" + pid.substr(0, pid.size() - 1) + "]";
    EXPECT_EQ(log.find(started).rfind("<15>", 0), 0U); // facility user, priority debug
    EXPECT_NE(log.find(started).find(ident + started), std::string::npos) << log.find(started);
    EXPECT_EQ(log.find(": Start firmware download daemon.").rfind("<14>", 0), 0U);

    EXPECT_EQ(terminal.stop(SIGTERM), "");
    EXPECT_FALSE(std::filesystem::exists(pidFile));
    EXPECT_NE(log.find(": FwDownloadDaemon::run() Bye bye."), "");
}

TEST(DaemonMode, CanUpdateAsFwctlFindsUntilItsDiskIsFull) {
    SoakTerminal terminal;
    Life life;
    life.isInBackground = true;
    terminal.start(life);
    ASSERT_TRUE(eventually([&] { return terminal.takesSignals(); }));
    support::ShellOutput checked;
    EXPECT_TRUE(eventually([&] { return (checked = terminal.check()).status == 0; })) << checked.text;
    terminal.lab().terminal().useSmallDisk("/data/fw", 20000);
    checked = terminal.check();
    EXPECT_EQ(checked.status, 1);
    EXPECT_EQ(countIn(checked.text, "WRONG"), 1U) << checked.text;
    EXPECT_EQ(countIn(checked.text, "space          WRONG: /data/fw has 20 480 bytes, the update needs "),
              1U);
    EXPECT_EQ(terminal.stop(SIGTERM), "");
}

TEST(DaemonMode, StartsWithoutStandardDescriptorsAndEndsOnSighup) {
    SoakTerminal terminal;
    Life life;
    life.isInBackground = true;
    life.hasDescriptors = false;
    terminal.start(life);
    ASSERT_TRUE(eventually([&] { return terminal.takesSignals(); }));
    std::this_thread::sleep_for(Milliseconds(200));
    EXPECT_TRUE(eventually([&] { return terminal.daemon().findProcesses("fw_download").size() == 1; }));
    EXPECT_EQ(terminal.stop(SIGHUP), "");
    EXPECT_FALSE(std::filesystem::exists(terminal.work().run() + "/fw_download.pid"));
}

} // namespace
