// The master loop: start and stop, timers, dispatch, the installed-software view.
#include "update/FwDownloadDaemon.h"

#include "common/Noticeboard.h"
#include "common/Thread.h"
#include "common/VexStreamLog.h"
#include "workers/ConfigDbMonitor.h"
#include "workers/Downloader.h"
#include "workers/ZempHandler.h"
#include <algorithm>
#include <new>

namespace {

constexpr unsigned MaximumSuuInfoFailures = 6; // the last one stops the daemon
constexpr unsigned MsPerSecond = 1000;

[[nodiscard]] bool startWorker(Thread& worker, const char* name) {
    const int result = worker.start();
    if (result != 0) {
        VEX_LOG(LogError) << "FwDownloadDaemon::run() Failed to start " << name << " (error " << result
                          << ").";
    }
    return result == 0;
}

} // namespace

bool DownloadTimerHandler::onFdLoopTimerTimeout() {
    if (mDaemon != nullptr)
        mDaemon->onDownloadTimerTimeout();
    return true;
}

FwDownloadDaemon::FwDownloadDaemon(RecordPaths recordPaths, seal::Gate& gate)
    : mRecordPaths(std::move(recordPaths)), mGate(gate) {}

FwDownloadDaemon::~FwDownloadDaemon() {
    VEX_LOG(LogDebug) << "FwDownloadDaemon::~FwDownloadDaemon()";
    freeQueuedItems();
}

void FwDownloadDaemon::run() {
    VEX_LOG(LogDebug) << "FwDownloadDaemon::run()";
    mGate.readKeys();
    startTimers();
    // Destroyed in reverse order; each one's destructor stops its thread and waits for it.
    auto monitor = std::make_unique<ConfigDbMonitor>(mConfigDbQueue, mMasterQueue, mGate);
    bool isComplete = startWorker(*monitor, "ConfigDbMonitor");
    auto downloader = std::make_unique<Downloader>(mDownloaderQueue, mMasterQueue);
    isComplete = startWorker(*downloader, "Downloader") && isComplete;
    auto zempHandler = std::make_unique<ZempHandler>(mZempHandlerQueue, mMasterQueue);
    isComplete = startWorker(*zempHandler, "ZempHandler") && isComplete;
    common::FdLoopEventHandler eventHandler;
    if (!mFdLoop.fdRegister(mFdLoopEvent.getFd(), eventHandler)) {
        VEX_LOG(LogError) << "FwDownloadDaemon::run() Failed to watch the stop event.";
        isComplete = false;
    }
    if (!isComplete) // an update would never end
        mTerminated = true;
    mRunning = !mTerminated;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::run() FdLoop start looping ...";
    while (mRunning && !mTerminated)
        mFdLoop.run();
    mExitRunLoop = new ExitRunLoop;
    mConfigDbQueue.add(mExitRunLoop);
    mDownloaderQueue.add(mExitRunLoop);
    mZempHandlerQueue.add(mExitRunLoop);
    VEX_LOG(LogInfo) << "FwDownloadDaemon::run() Bye bye.";
    mFdLoop.fdUnregister(mFdLoopEvent.getFd());
    zempHandler.reset();
    downloader.reset();
    monitor.reset();
    mFdLoop.delTimer(mQueueTimer);
    mFdLoop.delTimer(mDownloadTimer);
}

void FwDownloadDaemon::terminated() {
    VEX_LOG(LogDebug) << "FwDownloadDaemon::terminated()";
    mTerminated = true;
    mRunning = false;
    mFdLoopEvent.interrupt();
}

void FwDownloadDaemon::startTimers() {
    mFdLoop.delTimer(mQueueTimer);
    mQueueTimer.setInterval(QueueIntervalMs);
    if (!mFdLoop.addTimer(mQueueTimer, getFdLoopTimeoutCalback()))
        VEX_LOG(LogError) << "FwDownloadDaemon::startTimers() Failed to start the queue timer.";
    if (mDownloadTimerHandler == nullptr)
        mDownloadTimerHandler = new DownloadTimerHandler(this);
    mFdLoop.delTimer(mDownloadTimer);
    mDownloadTimer.setInterval(DownloadIntervalMs);
    if (!mFdLoop.addTimer(mDownloadTimer, mDownloadTimerHandler->getFdLoopTimeoutCalback()))
        VEX_LOG(LogError) << "FwDownloadDaemon::startTimers() Failed to start the download timer.";
    mDownloadTimerBegin = std::chrono::steady_clock::now();
}

int64_t FwDownloadDaemon::getDownloadTimerElapsedMs() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 mDownloadTimerBegin)
        .count();
}

unsigned FwDownloadDaemon::getDownloadTimerLeftMs() const {
    return static_cast<unsigned>(std::max<int64_t>(mDownloadTimerMs - getDownloadTimerElapsedMs(), 0));
}

bool FwDownloadDaemon::onFdLoopTimerTimeout() {
    int size = 0;
    while ((size = mMasterQueue.size()) > 0) {
        VEX_LOG(LogDebug) << "FwDownloadDaemon::onFdLoopTimerTimeout() Queue size=" << size << ".";
        FwWorkItem* item = mMasterQueue.remove();
        if (item == nullptr)
            VEX_LOG(LogWarning) << "FwDownloadDaemon::onFdLoopTimerTimeout() Item is NULL!";
        else
            onWorkItem(item);
    }
    return true;
}

void FwDownloadDaemon::onWorkItem(FwWorkItem* item) {
    if (item == nullptr) {
        VEX_LOG(LogWarning) << "FwDownloadDaemon::onWorkItem() Received NULL work item!";
        return;
    }
    switch (item->getWorkItemType()) {
    case FwWorkItem::ConfigDbStatusEvent:
        return onConfigDbStatusEvent(static_cast<ConfigDbStatusEvent*>(item));
    case FwWorkItem::NewFirmwareNeededEvent:
        return onNewFirmwareNeededEvent(static_cast<NewFirmwareNeededEvent*>(item));
    case FwWorkItem::GotZempStartEvent:
        return onGotZempStartEvent(static_cast<GotZempStartEvent*>(item));
    case FwWorkItem::SuuInfoInvalidEvent:
        return onSuuInfoInvalidEvent(static_cast<SuuInfoInvalidEvent*>(item));
    case FwWorkItem::ExitRunLoop:
        return onExitRunLoop(static_cast<ExitRunLoop*>(item));
    default:
        break;
    }
    if (!routeRequest(item))
        VEX_LOG(LogInfo) << "FwDownloadDaemon::onWorkItem() No handling of " << item->toString() << ".";
}

void FwDownloadDaemon::onExitRunLoop(ExitRunLoop* item) {
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onWorkItem() Stop item, terminate ...";
    delete item;
    terminated();
}

// --- Installed software

bool FwDownloadDaemon::initializeSuuInfo() {
    if (!mSuuInfo) {
        mSuuInfo.reset(new (std::nothrow) SuuInfo(mRecordPaths));
        if (!mSuuInfo) {
            ++mSuuInfoFailures;
            VEX_LOG(LogError) << "FwDownloadDaemon::initializeSuuInfo() Failed " << mSuuInfoFailures
                              << " times to create SuuInfo instance!";
            if (mSuuInfoFailures < MaximumSuuInfoFailures)
                return false;
            VEX_LOG(LogError) << "FwDownloadDaemon::initializeSuuInfo() Terminating after "
                              << mSuuInfoFailures << " failed initialization attempt!";
            terminated();
            return false;
        }
    }
    if (mSuuInfo->isInitialized())
        return true;
    if (mSuuInfo->initialize()) {
        Noticeboard::instance().postSuccess(Noticeboard::Failure::Record);
        mSuuInfo->logSuuInfo();
        return true;
    }
    ++mSuuInfoFailures;
    Noticeboard::instance().postFailure(Noticeboard::Failure::Record,
                                        "the host configuration record cannot be read or is damaged");
    VEX_LOG(LogError) << "FwDownloadDaemon::onInitSuuInfo() Failed " << mSuuInfoFailures
                      << " times to initialize SuuInfo instance!";
    if (mSuuInfoFailures < MaximumSuuInfoFailures)
        return false;
    VEX_LOG(LogError) << "FwDownloadDaemon::onInitSuuInfo() Terminating after " << mSuuInfoFailures
                      << " failed initialization attempt!";
    terminated();
    return false;
}

const SuuInfo* FwDownloadDaemon::knownSuuInfo() const {
    return mSuuInfo && mSuuInfo->isInitialized() ? mSuuInfo.get() : nullptr;
}

// A walk waits for the installed software: goes on with it, or tries again on the download timer.
void FwDownloadDaemon::retrySuuInfo() {
    mSuuInfoWanted = !initializeSuuInfo();
    if (!mSuuInfoWanted)
        mMasterQueue.add(new GotZempStartEvent);
}

void FwDownloadDaemon::onDownloadTimerTimeout() {
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onDownloadTimerTimeout()";
    // Measured, since a desk's timers may be faster.
    mDownloadTimerMs = std::min<int64_t>(getDownloadTimerElapsedMs(), DownloadIntervalMs);
    mDownloadTimerBegin = std::chrono::steady_clock::now();
    if (!mUpdateHandler) {
        VEX_LOG(LogWarning) << "FwDownloadDaemon::onDownloadTimerTimeout() Update handler is NULL!";
        return;
    }
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onDownloadTimerTimeout() Current action='"
                      << mUpdateHandler->whatToDo()
                      << "' Interval=" << mDownloadTimer.getInterval() / MsPerSecond << " secods.";
    mUpdateHandler->onDownloadTimer(mDownloaderQueue);
    if (mSuuInfoWanted)
        retrySuuInfo();
}

// --- End

// What nobody took. Requests belong to the update handler; the workers' stop item stays.
void FwDownloadDaemon::freeQueuedItems() {
    for (auto* queue : {&mMasterQueue, &mConfigDbQueue, &mDownloaderQueue, &mZempHandlerQueue}) {
        while (queue->size() > 0) {
            FwWorkItem* item = queue->remove();
            if (item == nullptr || item == mExitRunLoop)
                continue;
            switch (item->getWorkItemType()) {
            case FwWorkItem::ConfigDbStatusEvent:
            case FwWorkItem::NewFirmwareNeededEvent:
            case FwWorkItem::GotZempStartEvent:
            case FwWorkItem::SuuInfoInvalidEvent:
            case FwWorkItem::ExitRunLoop:
                delete item;
                break;
            default:
                break;
            }
        }
    }
}
