// The master of the process: the event loop of the main thread, the queues to and from the workers, the
// timers, the installed-software view and the current update.
//
// One instance, made before main runs and destroyed at process exit. Everything runs on the thread that calls
// run(), except terminated(). The on...() handlers take a work item from the master queue: a request without
// a result goes on to the worker that serves it, one with a result to the update handler, which owns it;
// events are acted on and deleted here.
#ifndef UPDATE_FWDOWNLOADDAEMON_H
#define UPDATE_FWDOWNLOADDAEMON_H

#include "common/wqueue.h"
#include "installed/SuuInfo.h"
#include "update/UpdateHandler.h"
#include "vex/FdLoop.h"
#include "vex/LinuxDaemon.h"
#include <atomic>
#include <chrono>
#include <memory>

class FwDownloadDaemon;

// Paces downloads.
class DownloadTimerHandler : public common::FdLoopTimeoutHandler {
  public:
    explicit DownloadTimerHandler(FwDownloadDaemon* daemon) : mDaemon(daemon) {}
    bool onFdLoopTimerTimeout() override;

  private:
    FwDownloadDaemon* const mDaemon;
};

class FwDownloadDaemon : public common::LinuxDaemon, public common::FdLoopTimeoutHandler {
  public:
    static constexpr unsigned QueueIntervalMs = 1000;      // how soon a result is handled
    static constexpr unsigned DownloadIntervalMs = 240000; // how soon a failed download is tried again

    // Reads what is installed from the record there. `gate` says whether releases need a seal, and must
    // outlive the daemon.
    explicit FwDownloadDaemon(RecordPaths recordPaths = {}, seal::Gate& gate = seal::Gate::withoutKeys());
    ~FwDownloadDaemon() override;
    FwDownloadDaemon(const FwDownloadDaemon&) = delete;
    FwDownloadDaemon& operator=(const FwDownloadDaemon&) = delete;

    void init() override {}

    // Starts the workers and runs the loop; returns when it has been stopped and the workers have ended.
    void run() override;

    // Stops the loop, also one that has not begun. Safe from any thread.
    void terminated() override;

    // Drains the master queue.
    bool onFdLoopTimerTimeout() override;

    // Gives failed downloads to the downloader again.
    void onDownloadTimerTimeout();

    void onWorkItem(FwWorkItem* item);

    // Arms both timers; calling it again restarts them.
    void startTimers();

    // True when the installed software is known. The sixth failure in the process's life stops the daemon.
    bool initializeSuuInfo();

    // Milliseconds until the download timer comes, by the real clock; 0 while it does not run. Under a time
    // scale it is right from the timer's second interval on.
    unsigned getDownloadTimerLeftMs() const;

  protected: // for a rig that stands in for the workers, and for a report
    wqueue<FwWorkItem*> mDownloaderQueue;
    wqueue<FwWorkItem*> mMasterQueue;
    wqueue<FwWorkItem*> mZempHandlerQueue;
    wqueue<FwWorkItem*> mConfigDbQueue;
    std::unique_ptr<UpdateHandler> mUpdateHandler; // null until the first wanted version is known

    bool isTerminated() const { return mTerminated; }

    // The installed software, null while it is not known.
    const SuuInfo* knownSuuInfo() const;

    // The configuration as found at start, null before it is known.
    const ConfigDbStatusEvent* firstConfigDbStatus() const { return mConfigDbStatusEvent.get(); }

  private:
    int64_t getDownloadTimerElapsedMs() const;
    void onConfigDbStatusEvent(ConfigDbStatusEvent* event);
    void onNewFirmwareNeededEvent(NewFirmwareNeededEvent* event);
    void onGotZempStartEvent(GotZempStartEvent* event);
    void onSuuInfoInvalidEvent(SuuInfoInvalidEvent* event);
    void onExitRunLoop(ExitRunLoop* item);

    // False for an item that is no request.
    bool routeRequest(FwWorkItem* item);
    template <typename Request, typename Getter, typename Status, typename Send, typename Handle>
    bool route(FwWorkItem* item, const char* nullItem, const char* noHandler, const char* unknown,
               Getter status, Status pending, Status last, Send send, Handle handle);
    void sendDownload(DownloadRequest* request);
    void sendSetReady(SetReadyForUpdateRequest* request);
    void onSetReadyResult(SetReadyForUpdateRequest* request);

    void initializeUpdateHandler();
    FwAction::NextAction setUpdateHandler(const std::string& url, const std::string& version,
                                          bool forceUpdate, ConfigDbStatusEvent::ConfigDbStatus status);
    void onScanExistingFilesAction();
    void handOutRecordedScan(FwAction::NextAction action);
    void deleteSupersededUpdate(const std::string& filename);
    bool hasUpdateHandler(const char* text) const;

    void retrySuuInfo();
    void freeQueuedItems();

    std::atomic<bool> mRunning{false};    // set by the main thread and by terminated()
    std::atomic<bool> mTerminated{false}; // set by terminated(), so that one before run() is not lost
    const RecordPaths mRecordPaths;
    seal::Gate& mGate;
    std::unique_ptr<SuuInfo> mSuuInfo;
    unsigned mSuuInfoFailures = 0;
    bool mSuuInfoWanted = false; // a walk waits for it
    common::FdLoop mFdLoop;
    common::FdLoopEvent mFdLoopEvent; // wakes the loop
    common::FdLoopTimer mQueueTimer;
    common::FdLoopTimer mDownloadTimer;
    std::chrono::steady_clock::time_point mDownloadTimerBegin; // of its present interval
    int64_t mDownloadTimerMs = DownloadIntervalMs;             // length of the last, at most as set

    std::unique_ptr<ConfigDbStatusEvent> mConfigDbStatusEvent; // the last that came

    // Never deleted: others may still point at them when the process ends.
    DownloadTimerHandler* mDownloadTimerHandler = nullptr;
    ExitRunLoop* mExitRunLoop = nullptr; // stands in the workers' queues
};

#endif
