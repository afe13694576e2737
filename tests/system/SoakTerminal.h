// A terminal that lives through many starts, kills and stops of its daemon on the same state, and tells
// whether what it has flagged is right. Used by one thread.
#ifndef TESTS_SYSTEM_SOAKTERMINAL_H
#define TESTS_SYSTEM_SOAKTERMINAL_H

#include "lab/Lab.h"
#include "lab/TemporaryDirectory.h"
#include "support/ShellOutput.h"
#include "system/LabFixtures.h"
#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

constexpr Milliseconds LongestStop{2000}; // a promise
constexpr unsigned HotLoopRequests = 150; // more of them within one life are a hot loop
constexpr double SoakTimeScale = 1000;    // an update takes about 0.3 s

using Random = std::mt19937;

// The number in an environment variable, or `otherwise`.
unsigned numberFrom(const char* variable, unsigned otherwise);

// FW_SOAK_SEED, with which every run is the same again but for the machine's timing.
unsigned soakSeed();

// A time from 0 to `most`.
Milliseconds randomTime(Random& random, Milliseconds most);

// How one life of the daemon begins.
struct Life {
    bool isInBackground = false;
    bool hasDescriptors = true; // 0 to 2 are open
    int verbosity = 7;          // below 7 it fetches 25000 bytes per second
    std::string point = {}; // where it is killed, stopped or failed, as KillPoint.cpp has it; empty: nowhere
    std::string loss = "none"; // what the disk loses then
    int stopSignal = 0;        // sent at the point instead of a kill
    Milliseconds delay{0};     // of a kill behind its point
    bool isWatched = false;    // record the operations although there is no point
    std::vector<std::pair<std::string, std::string>> environment = {}; // in place of the lab's
};

class SoakTerminal {
  public:
    // With the services running and a new version configured. `speed` is the web server's, as in LabOptions;
    // without an `image` it is the lab's sample.
    explicit SoakTerminal(double timeScale = SoakTimeScale, unsigned speed = 0,
                          const std::string& image = "");

    lab::Lab& lab() { return *mLab; }
    const lab::WorkDirectory& work() const { return mWork; }

    // Starts the daemon. A running one is killed first. Its log and that of its operations begin anew.
    void start(const Life& life = {});

    // How a program in the terminal is started as such a daemon.
    lab::ChildOptions options(const Life& life) const;

    lab::TerminalProcess& daemon() { return *mDaemon; }
    void kill() { mDaemon->kill(); }

    // The daemon's state as its log shows it.
    bool hasLogged(const std::string& text) const;
    bool takesSignals() const; // from now on a signal is a stop
    bool isReady() const;      // an image is flagged, and the daemon waits for its installation

    // Announces the configuration once more.
    void announce();

    // Why what is flagged is not right, or is missing although `isRequired`; empty when all is well.
    std::string complaint(bool isRequired = false);

    // Lets the daemon run until it is ready; why that did not happen, or complaint(). Empty when all is well.
    std::string untilReady();

    // Sends the signal and waits for the end. Why the stop was not as promised; empty when it was.
    std::string stop(int signal);

    // As stop(), of a daemon that was sent its signal at `begin`.
    std::string awaitStop(std::chrono::steady_clock::time_point begin);

    // What `fwctl check` prints there, in a box of its own.
    support::ShellOutput check() const;

    // A terminal that has fetched nothing and flagged nothing. The daemon is killed.
    void reset();

    // As if the flag had been erased while no daemon runs.
    void unflag();

    // The operations of this life, each as "write image".
    std::vector<std::string> operations() const;

    // Ends a fault that lasts from its point on.
    void heal() const;

    // When the point was reached, if it was.
    std::optional<std::chrono::steady_clock::time_point> pointTime() const;

    // Requests that the server got since the last call.
    size_t newRequests() { return mLab->webServer()->newRequests().size(); }

    Milliseconds slowestStop() const { return mSlowestStop; }

    // The download directory has an image that is being written.
    bool hasPartialImage() const;

    // The daemon's log, for messages.
    std::string log() const;

  private:
    const lab::TemporaryDirectory mDirectory;
    const lab::WorkDirectory mWork{mDirectory.file("work")};
    std::unique_ptr<lab::Lab> mLab;
    std::unique_ptr<lab::TerminalProcess> mDaemon;
    Milliseconds mSlowestStop{0};
};

#endif
