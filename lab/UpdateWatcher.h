// Follows one update of a lab from outside: by the daemon's log, the message bus, the web server's log, the
// files on disk and the configuration database.
#ifndef LAB_UPDATEWATCHER_H
#define LAB_UPDATEWATCHER_H

#include "lab/Lab.h"
#include "lab/LabEvent.h"
#include "lab/LogTail.h"
#include "vex/CBusConnection.h"
#include "vex/FdLoop.h"
#include <chrono>
#include <deque>
#include <string>
#include <vector>

namespace lab {

class UpdateWatcher : private common::CBusMessageHandler, private common::FdLoopTimeoutHandler {
  public:
    // Attaches to the bus of a lab whose services run. Throws std::runtime_error when it cannot. Lab and
    // observer must outlive the watcher.
    UpdateWatcher(Lab& lab, LabObserver& observer);
    ~UpdateWatcher() override = default;

    // Tells the observer of something that the lab did.
    void report(LabEvent::Kind kind, const std::string& text);

    // Raises "evt.confd.updated" until the daemon shows that it noticed. Throws std::runtime_error when a
    // process ends, the observer asks for a stop, or `deadline` passes.
    using Clock = std::chrono::steady_clock;
    void announce(Clock::time_point deadline);

    // Follows the update until an image is flagged ready, and returns its path in the terminal. The status
    // event that the daemon raises then is waited for too, though not for long. Throws as announce() does.
    std::string follow(Clock::time_point deadline);

    // Takes in what the logs have got since.
    void poll();

    // Seconds since the watcher was made.
    double elapsed() const;

    const std::vector<LabEvent>& requests() const { return mRequests; }

    // As the daemon's status tells; empty before there was one.
    const std::string& daemonVersion() const { return mDaemonVersion; }

  private:
    void onCBusSignal(const char* name, const void* data, unsigned length) override;
    bool onFdLoopTimerTimeout() override;

    // Lets the loop run until its next tick, and takes in what happened.
    void wait(Clock::time_point deadline, const std::string& waitingFor);
    void checkProcesses();
    void onLogLine(const std::string& line);
    void onRequest(const ServedRequest& request);
    void readStatus();
    std::string describeWait() const; // what the daemon does, and what it complained of last

    Lab& mLab;
    LabObserver& mObserver;
    const Clock::time_point mStart = Clock::now();
    const std::chrono::system_clock::time_point mStartDate = std::chrono::system_clock::now();
    const ScopedEnvironment mTimeScale{"VEX_TIME_SCALE", "1"}; // the lab's own timers run at real speed

    common::FdLoop mLoop;
    common::FdLoopEvent mTick;
    common::FdLoopEventHandler mTickHandler;
    common::FdLoopTimer mTimer;
    common::CBusConnection mBus;

    LogTail mDaemonLog;
    std::deque<std::string> mComplaints; // the last of the log, each once
    std::string mAction;
    std::string mSentence; // of the status, what the daemon is doing
    std::string mDaemonVersion;
    std::vector<LabEvent> mRequests;
    LabProgress mProgress;
    bool mNoticed = false;    // the daemon knows of the new version
    bool mReadyEvent = false; // it said on the bus that an update is ready
};

} // namespace lab

#endif
