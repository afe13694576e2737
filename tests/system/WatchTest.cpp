// What an operator sees while an update is fetched.
#include "system/SoakTerminal.h"
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <pty.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned ServerSpeed =
    50000; // bytes per second; the daemon takes half of that at its default level
constexpr int DefaultLevel = 6;
constexpr size_t KernelSize = 5000;
constexpr size_t RootSize = 250000; // ten seconds
constexpr double Tolerance = 0.1;
constexpr double ShortestLook = 3; // seconds
constexpr int BarColumns = 30;

// fwctl on a terminal line of its own.
class Watch {
  public:
    explicit Watch(const std::string& run) {
        const std::string program =
            std::filesystem::path(lab::Programs::find().daemon).parent_path() / "fwctl";
        mPid = forkpty(&mLine, nullptr, nullptr, nullptr);
        if (mPid == 0) {
            execl(program.c_str(), "fwctl", "--run", run.c_str(), "status", "--watch", nullptr);
            _exit(127);
        }
    }
    ~Watch() {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        close(mLine);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // The next line that it writes over the one before; empty at its end.
    std::string next() const {
        std::string line;
        char c = 0;
        while (read(mLine, &c, 1) == 1)
            if (c != '\r')
                line += c;
            else if (!line.empty())
                break;
        return line;
    }

  private:
    pid_t mPid = -1;
    int mLine = -1;
};

// What a line says.
struct Progress {
    explicit Progress(const std::string& line) {
        isOfRoot = line.rfind("root [", 0) == 0 &&
                   sscanf(line.c_str() + line.find(']') + 1, " %d %%, %*f kB of %*f kB, %lf kB/s, %d s left",
                          &percent, &rate, &left) == 3;
        marks = static_cast<int>(std::count(line.begin(), line.end(), '#'));
    }

    bool isOfRoot = false;
    int marks = 0;
    int percent = 0;
    double rate = 0; // kB a second
    int left = 0;    // seconds
};

TEST(Watch, ShowsPartBarRateAndTimeLeftAsTheyAre) {
    const lab::TemporaryDirectory directory;
    twoPartImage(KernelSize, RootSize).write(directory.file("image"));
    SoakTerminal terminal(10, ServerSpeed, directory.file("image"));
    std::filesystem::create_directory(terminal.work().run() + "/fw_download");
    Life life;
    life.isInBackground = true;
    life.verbosity = DefaultLevel;
    terminal.start(life);
    const Watch watch(terminal.work().run());
    ASSERT_TRUE(eventually([&] {
        terminal.announce();
        return terminal.lab().fetchedBytes() > KernelSize;
    })) << terminal.log();

    // A machine that is busy reads lines late, and several at once: a look at the middle takes some seconds.
    std::string line;
    Progress progress(line);
    Clock::time_point begin;
    uint64_t before = 0;
    double seconds = 0;
    do {
        line = watch.next();
        ASSERT_NE(line, "") << terminal.log();
        progress = Progress(line);
        if (progress.isOfRoot && before == 0) {
            begin = Clock::now();
            before = terminal.lab().fetchedBytes();
        }
        seconds = before == 0 ? 0 : std::chrono::duration<double>(Clock::now() - begin).count();
    } while (!progress.isOfRoot || progress.percent < 50 || seconds < ShortestLook);
    const double rate = static_cast<double>(terminal.lab().fetchedBytes() - before) / 1000 / seconds;

    EXPECT_LT(progress.percent, 90) << line;
    EXPECT_NEAR(progress.marks, 0.01 * progress.percent * BarColumns, 1) << line;
    EXPECT_NEAR(progress.rate, rate, rate * Tolerance) << line;
    const double left = RootSize / 1000.0 * (100 - progress.percent) / 100 / rate;
    EXPECT_NEAR(progress.left, left, left * Tolerance + 1) << line; // whole seconds
}

} // namespace
