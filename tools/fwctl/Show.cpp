// The status, as it is and as it changes.
#include "Commands.h"
#include "fwctl/DaemonStatus.h"
#include <chrono>
#include <iostream>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds Interval{500};
constexpr std::chrono::seconds Patience{10};     // for a daemon that is being started, or told
constexpr std::chrono::seconds LineInterval{10}; // between two lines of one transfer, without a terminal
constexpr unsigned BarColumns = 30;

using Clock = std::chrono::steady_clock;

// Prints over the line before on a terminal; elsewhere a line now and then.
class Display {
  public:
    void show(const std::string& state, const std::string& line) {
        if (line == mLine)
            return;
        const Clock::time_point now = Clock::now();
        if (mIsTerminal)
            std::cout << '\r' << line << "\033[K" << std::flush;
        else if (state != mState || now - mTime >= LineInterval)
            std::cout << line << std::endl;
        else
            return;
        mState = state;
        mLine = line;
        mTime = now;
    }

    void end(const std::string& line) const {
        std::cout << (mIsTerminal ? "\r\033[K" : "") << line << std::endl;
    }

    unsigned barColumns() const { return mIsTerminal ? BarColumns : 0; }

  private:
    const bool mIsTerminal = isatty(STDOUT_FILENO) != 0;
    std::string mState;
    std::string mLine;
    Clock::time_point mTime;
};

} // namespace

int showStatus(const std::string& runDirectory, bool asJson) {
    const DaemonStatus status = readStatus(runDirectory);
    if (asJson) {
        nlohmann::json out = status.values;
        out["running"] = status.isRunning;
        out["stale"] = status.isStale;
        std::cout << out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    } else {
        for (const std::string& line : describe(status))
            std::cout << line << '\n';
    }
    std::cout.flush();
    if (!std::cout)
        return complain(sFailed, "cannot write to standard output");
    return status.isRunning && status.fault.empty() && !status.isStale ? sDone : sFailed;
}

int watchStatus(const std::string& runDirectory, const std::string& version) {
    Display display;
    Clock::time_point inOrder = Clock::now(); // when the status was last of use
    for (;; std::this_thread::sleep_for(Interval)) {
        const DaemonStatus status = readStatus(runDirectory);
        const bool isPatienceOver = Clock::now() - inOrder > Patience;
        if (!status.isRunning || status.isStale || !status.fault.empty()) {
            if (isPatienceOver) {
                for (const std::string& line : describe(status))
                    display.end(line);
                return sFailed;
            }
            continue;
        }
        const std::string state = status.text("state");
        const bool isSettled = state == "idle" || state == "disabled";
        const bool isOther = !version.empty() && status.text("version") != version;
        if (!version.empty() && (isSettled || isOther) && !isPatienceOver)
            continue; // the daemon may not have taken the order yet
        if (state == "ready" && !isOther) {
            display.end("ready: " + status.text("readyImage"));
            return sDone;
        }
        if (isSettled || isOther) {
            display.end(isOther ? "the daemon did not take version " + version : status.text("sentence"));
            return state == "idle" && !isOther ? sDone : sFailed;
        }
        inOrder = Clock::now();
        display.show(state + status.text("action"), describeProgress(status, display.barColumns()));
        if (!std::cout)
            return complain(sFailed, "cannot write to standard output");
    }
}
