#include "lab/UpdateWatcher.h"

#include "fwctl/DaemonStatus.h"
#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace lab {

namespace {

constexpr unsigned sPollIntervalMs = 50;
constexpr Milliseconds sAnnounceInterval{200}; // a signal that comes before the daemon listens is lost

constexpr const char* sUpdatedSignal = "evt.confd.updated";
constexpr const char* sStatusSignal = "event_handler.forwardEventReport";

// Layout of a status event.
constexpr unsigned sStatusEventSize = 16;
constexpr unsigned sStatusStateOffset = 12;
constexpr uint32_t sStatusOn = 2;
constexpr uint32_t sUpdateReady = 0x10001;
constexpr Milliseconds sReadyEventTime{2000}; // between the ready flag and the event

// Lines that only a daemon writes that has heard of the new version.
constexpr const char* sNoticedTexts[] = {"onCBusSignal() Got", "onNewFirmwareNeededEvent("};
constexpr const char* sComplaints[] = {"LOG_WARN", "LOG_ERR", "LOG_CRIT", "LOG_ALERT", "LOG_EMERG"};
constexpr size_t sShownComplaints = 3;
constexpr const char* sDownloadText = "Downloader::download() Download ";

bool contains(const std::string& text, const char* what) {
    return text.find(what) != std::string::npos;
}

} // namespace

UpdateWatcher::UpdateWatcher(Lab& lab, LabObserver& observer)
    : mLab(lab), mObserver(observer), mDaemonLog(lab.daemonLog()) {
    mProgress.expected = lab.plan().fetchedBytes();
    mTimer.setInterval(sPollIntervalMs);
    if (!mLoop.fdRegister(mTick.getFd(), mTickHandler) || !mLoop.addTimer(mTimer, getFdLoopTimeoutCalback()))
        throw std::runtime_error("no event loop");
    if (!mBus.connect("fw_lab", mLoop) || !mBus.addFilter("event_handler") || !mBus.addFilter("request") ||
        !mBus.registerSignalHandler(nullptr, this))
        throw std::runtime_error(mBus.lastError());
}

double UpdateWatcher::elapsed() const {
    return std::chrono::duration<double>(Clock::now() - mStart).count();
}

void UpdateWatcher::report(LabEvent::Kind kind, const std::string& text) {
    LabEvent event;
    event.time = elapsed();
    event.kind = kind;
    event.text = text;
    mObserver.onEvent(event);
}

bool UpdateWatcher::onFdLoopTimerTimeout() {
    mTick.interrupt();
    return true;
}

void UpdateWatcher::onCBusSignal(const char* name, const void* data, unsigned length) {
    std::string text = name;
    if (text == sStatusSignal && length == sStatusEventSize) {
        const auto* const bytes = static_cast<const uint8_t*>(data);
        const uint32_t id = ZempFormat::getLe32(bytes);
        const bool on = ZempFormat::getLe32(bytes + sStatusStateOffset) == sStatusOn;
        char event[32];
        snprintf(event, sizeof event, " 0x%x %s", id, on ? "on" : "off");
        text += event;
        mReadyEvent = id == sUpdateReady ? on : mReadyEvent;
    }
    report(LabEvent::Signal, text);
}

void UpdateWatcher::onLogLine(const std::string& line) {
    // "fw_download(LOG_INFO): text"
    LabEvent event;
    event.time = elapsed();
    event.kind = LabEvent::Log;
    event.text = line;
    const size_t open = line.find('(');
    const size_t end = line.find("): ");
    if (open != std::string::npos && end != std::string::npos && open < end) {
        event.priority = line.substr(open + 1, end - open - 1);
        event.text = line.substr(end + 3);
    }
    const bool isComplaint =
        std::any_of(std::begin(sComplaints), std::end(sComplaints),
                    [&](const char* priority) { return event.priority.rfind(priority, 0) == 0; });
    if (isComplaint && std::find(mComplaints.begin(), mComplaints.end(), event.text) == mComplaints.end())
        mComplaints.push_back(event.text);
    if (mComplaints.size() > sShownComplaints)
        mComplaints.pop_front();
    for (const char* const noticed : sNoticedTexts)
        mNoticed = mNoticed || contains(event.text, noticed);
    if (event.text.rfind(sDownloadText, 0) == 0) {
        const std::string range = event.text.substr(std::string(sDownloadText).size());
        mProgress.current = mLab.describeRange(range.substr(0, range.find(' ')));
    }
    mObserver.onEvent(event);
}

void UpdateWatcher::onRequest(const ServedRequest& request) {
    LabEvent event;
    event.time = request.time - std::chrono::duration<double>(mStartDate.time_since_epoch()).count();
    event.kind = LabEvent::Request;
    event.text = mLab.describeRange(request.range);
    event.request = request;
    mNoticed = true;
    mRequests.push_back(event);
    mObserver.onEvent(event);
}

void UpdateWatcher::readStatus() {
    const DaemonStatus status = ::readStatus(mLab.directory().run());
    if (!status.fault.empty())
        return;
    mSentence = status.text("sentence");
    mDaemonVersion = status.text("program");
    if (status.text("action") == mAction || status.text("action").empty())
        return;
    mAction = status.text("action");
    report(LabEvent::Action, mAction);
}

std::string UpdateWatcher::describeWait() const {
    std::string text = mSentence.empty() ? "" : "; the daemon's status: " + mSentence;
    for (size_t i = 0; i < mComplaints.size(); ++i)
        text += (i == 0 ? "; its last warnings: " : " | ") + mComplaints[i];
    return text;
}

void UpdateWatcher::poll() {
    readStatus();
    for (const std::string& line : mDaemonLog.newLines())
        onLogLine(line);
    for (const ServedRequest& request : mLab.webServer()->newRequests())
        onRequest(request);
    mProgress.fetched = mLab.fetchedBytes();
    mNoticed = mNoticed || mProgress.fetched > 0;
    mObserver.onProgress(mProgress);
}

void UpdateWatcher::checkProcesses() {
    if (mLab.daemon() != nullptr && !mLab.daemon()->running())
        throw std::runtime_error("fw_download ended " + mLab.daemon()->exitStatus()->toString());
    if (!mLab.bus()->running())
        throw std::runtime_error("dbus-daemon ended");
    if (!mLab.webServer()->running())
        throw std::runtime_error("the web server ended: " + mLab.webServer()->errors());
}

void UpdateWatcher::wait(Clock::time_point deadline, const std::string& waitingFor) {
    mLoop.run();
    poll();
    if (mObserver.isStopRequested())
        throw std::runtime_error("stopped from outside");
    checkProcesses();
    if (Clock::now() >= deadline)
        throw std::runtime_error("the time limit has passed while waiting for " + waitingFor +
                                 describeWait());
}

void UpdateWatcher::announce(Clock::time_point deadline) {
    Clock::time_point next = Clock::now();
    while (!mNoticed) {
        if (Clock::now() >= next) {
            if (!mBus.sendSignal(sUpdatedSignal, nullptr, 0))
                throw std::runtime_error(mBus.lastError());
            next = Clock::now() + sAnnounceInterval;
        }
        wait(deadline, "the daemon to notice the new version");
    }
}

std::string UpdateWatcher::follow(Clock::time_point deadline) {
    std::string ready;
    while ((ready = mLab.config()->readyForInstall()).empty())
        wait(deadline, "cfg.fw_ready_for_install (last fetch: " +
                           (mProgress.current.empty() ? "none" : mProgress.current) + ")");
    const Clock::time_point eventDeadline = Clock::now() + sReadyEventTime;
    while (!mReadyEvent && Clock::now() < eventDeadline)
        wait(Clock::time_point::max(), "");
    if (!mReadyEvent)
        report(LabEvent::Warning, "no status event on the bus says that the update is ready");
    return ready;
}

} // namespace lab
