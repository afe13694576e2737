// The daemon in the background: pid file, system log, and its end.
#include "system/DaemonFixture.h"
#include <csignal>
#include <filesystem>
#include <mutex>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace {

// A system log: a datagram socket, as it stands at /dev/log, that is read all the time, since one that is
// full would hold up whoever logs.
class SystemLog {
  public:
    explicit SystemLog(const std::string& path) : mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (bind(mSocket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot bind " + path);
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
        for (const std::string& line : mLines)
            if (line.size() >= text.size() && line.compare(line.size() - text.size(), text.size(), text) == 0)
                return line;
        return "";
    }

  private:
    void readAll() {
        char buffer[8192];
        ssize_t count = 0;
        while ((count = recv(mSocket.get(), buffer, sizeof buffer, 0)) > 0) {
            std::string line(buffer, static_cast<size_t>(count));
            line.erase(line.find_last_not_of('\n') + 1);
            const std::lock_guard<std::mutex> lock(mMutex);
            mLines.push_back(line);
        }
    }

    const lab::Descriptor mSocket;
    mutable std::mutex mMutex;
    std::vector<std::string> mLines; // guarded by mMutex
    std::thread mReader;
};

class DaemonMode : public DaemonTest {
  protected:
    DaemonMode() { mLab->terminal().bind({mDirectory.file("log"), "/dev/log", true}); }

    std::unique_ptr<lab::TerminalProcess> start() {
        lab::ChildOptions options;
        options.arguments = {lab::Terminal::DaemonPath, "-v", "7"};
        options.environment = mLab->daemonEnvironment();
        return mLab->terminal().start(options);
    }

    std::string pidFile() const { return readText(mWork.run() + "/fw_download.pid"); }

    SystemLog mLog{mDirectory.file("log")};
};

TEST_F(DaemonMode, RecordsItsPidLogsToTheSystemLogAndEndsOnSigterm) {
    mLab->startServices();
    const auto daemon = start();
    const std::string started = ": FwDownloadDaemon::run() FdLoop start looping ...";
    ASSERT_TRUE(eventually([&] { return !mLog.find(started).empty(); }));
    EXPECT_TRUE(daemon->running());

    const std::string pid = pidFile();
    ASSERT_EQ(pid.find_first_not_of("0123456789"), pid.size() - 1);
    EXPECT_EQ(pid.back(), '\n');
    const std::string ident = " fw_download[" + pid.substr(0, pid.size() - 1) + "]";
    EXPECT_EQ(mLog.find(started).rfind("<15>", 0), 0U); // facility user, priority debug
    EXPECT_NE(mLog.find(started).find(ident + started), std::string::npos) << mLog.find(started);
    EXPECT_EQ(mLog.find(": Start firmware download daemon.").rfind("<14>", 0), 0U);

    const auto begin = std::chrono::steady_clock::now();
    daemon->signal(SIGTERM);
    ASSERT_TRUE(daemon->waitFor(Long));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, StopTime);
    EXPECT_TRUE(daemon->exitStatus()->isExit(0)) << daemon->exitStatus()->toString();
    EXPECT_FALSE(std::filesystem::exists(mWork.run() + "/fw_download.pid"));
    EXPECT_NE(mLog.find(": FwDownloadDaemon::run() Bye bye."), "");
}

TEST_F(DaemonMode, UpdatesLikeInTheForeground) {
    mLab->startServices();
    mLab->configure();
    const auto daemon = start(); // sends its first status soon, at this time scale
    EXPECT_TRUE(eventually([&] { return !mLab->config()->readyForInstall().empty(); }));
    EXPECT_EQ(mLab->config()->readyForInstall(), "/data/fw/fw_download_update.zemp-1.05-7");
}

} // namespace
