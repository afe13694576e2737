// The monitor's thread: connecting, the loop, and the items it handles. What it decides from the database's
// values stands in ConfigDbDecisions.cpp.
#include "workers/ConfigDbMonitor.h"

#include "common/Noticeboard.h"
#include "common/VexStreamLog.h"
#include "vex/concurrency.h"
#include "workers/ConfigNames.h"
#include "workitems/Events.h"
#include "workitems/IsUpdateNeededRequest.h"
#include "workitems/SetReadyForUpdateRequest.h"
#include <cstring>
#include <ctime>

unsigned ConfigDbMonitor::sConnectPauseMs = 1000;

ConfigDbMonitor::ConfigDbMonitor(wqueue<FwWorkItem*>& in, wqueue<FwWorkItem*>& master,
                                 const seal::Gate& sealGate)
    : workQueue(in), masterQueue(master), gate(sealGate) {
    pthread_mutex_init(&mutex, nullptr);
}

ConfigDbMonitor::~ConfigDbMonitor() {
    stopping = true;
    running = false;
    stopEvent.interrupt();
    cancelAndJoin();
    if (configDb != nullptr)
        configDb->disconnect();
    cbus.disconnect();
    pthread_mutex_destroy(&mutex);
}

void* ConfigDbMonitor::run() {
    const CancellationBlock block;
    VEX_LOG(LogDebug) << "ConfigDbMonitor::run()";
    if (initialize())
        startMonitoring();
    if (fdLoop.fdRegister(stopEvent.getFd(), wakeOnly)) {
        running = true;
        VEX_LOG(LogDebug) << "ConfigDbMonitor::run() FdLoop start looping ...";
        while (running && !stopping)
            fdLoop.run();
    } else { // a loop that cannot be ended must not be begun
        VEX_LOG(LogError) << "ConfigDbMonitor::run() Failure registering the stop event.";
    }
    VEX_LOG(LogInfo) << "ConfigDbMonitor::run() Stopped.";
    return nullptr;
}

bool ConfigDbMonitor::initialize() {
    VEX_LOG(LogDebug) << "ConfigDbMonitor::initialize()";
    if (configDb == nullptr && !connect())
        return false;
    logSwVer();
    armTimer(StartIntervalMs);
    return true;
}

bool ConfigDbMonitor::connect() {
    for (unsigned attempt = 1; !cbus.connect(BusName::Client, fdLoop); ++attempt) {
        if (attempt == BusAttempts) {
            VEX_LOG(LogError) << "ConfigDbMonitor::connect() Failure connecting to cbus, giving up.";
            return false;
        }
        VEX_LOG(LogError) << "ConfigDbMonitor::connect() Failure connecting to cbus, retrying.";
        Noticeboard::instance().postFailure(Noticeboard::Failure::Bus, "the message bus cannot be reached");
        pauseBeforeRetry();
    }
    Noticeboard::instance().postSuccess(Noticeboard::Failure::Bus);
    configDb = common::ConfigDatabaseConnection::getInstance();
    for (unsigned attempt = 1; !configDb->connect(cbus); ++attempt) {
        if (attempt == DatabaseAttempts) {
            VEX_LOG(LogError) << "ConfigDbMonitor::connect() Failure connecting to configdb, giving up.";
            configDb = nullptr;
            return false;
        }
        VEX_LOG(LogError) << "ConfigDbMonitor::connect() Failure connecting to configdb, retrying.";
        Noticeboard::instance().postFailure(Noticeboard::Failure::Database,
                                            "the configuration database cannot be opened");
        pauseBeforeRetry();
    }
    Noticeboard::instance().postSuccess(Noticeboard::Failure::Database);
    VEX_LOG(LogDebug) << "ConfigDbMonitor::connect() Connected to configdb.";
    return true;
}

void ConfigDbMonitor::pauseBeforeRetry() {
    timespec pause = {};
    pause.tv_sec = static_cast<time_t>(sConnectPauseMs / 1000);
    pause.tv_nsec = static_cast<long>(sConnectPauseMs % 1000) * 1000000;
    const CancellationPoint point;
    nanosleep(&pause, nullptr);
}

void ConfigDbMonitor::disconnect() {
    VEX_LOG(LogInfo) << "ConfigDbMonitor::disconnect()";
    if (configDb != nullptr) {
        configDb->disconnect();
        configDb = nullptr;
    }
    cbus.disconnect();
    listenersRegistered = false;
}

bool ConfigDbMonitor::startMonitoring() {
    VEX_LOG(LogDebug) << "ConfigDbMonitor::startMonitoring()";
    return registerListeners();
}

bool ConfigDbMonitor::registerListeners() {
    if (listenersRegistered) {
        VEX_LOG(LogDebug) << "ConfigDbMonitor::registerListeners() Listeners already registered.";
        return true;
    }
    if (!cbus.addFilter(BusName::EventFilter) || !cbus.registerSignalHandler(BusName::ConfigUpdated, this) ||
        !cbus.registerSignalHandler(BusName::ConfigPushed, this)) {
        VEX_LOG(LogError) << "ConfigDbMonitor::registerListeners() Failure registering change listeners.";
        return false;
    }
    listenersRegistered = true;
    VEX_LOG(LogDebug) << "ConfigDbMonitor::registerListeners() Change listeners registered.";
    return true;
}

void ConfigDbMonitor::armTimer(unsigned intervalMs) {
    fdLoop.delTimer(timer);
    timer.setInterval(intervalMs);
    if (!fdLoop.addTimer(timer, getFdLoopTimeoutCalback())) {
        VEX_LOG(LogError) << "ConfigDbMonitor::armTimer() Failure arming the timer.";
    }
}

void ConfigDbMonitor::resetTimerToRunningInterval() {
    VEX_LOG(LogInfo) << "ConfigDbMonitor::resetTimerToRunningInterval() Changing timer interval to "
                     << RunningIntervalMs / 1000 << " s.";
    armTimer(RunningIntervalMs);
}

bool ConfigDbMonitor::onFdLoopTimerTimeout() {
    if (timer.getInterval() == StartIntervalMs) {
        VEX_LOG(LogDebug) << "ConfigDbMonitor::onFdLoopTimerTimeout() Changing timer interval to "
                          << RunningIntervalMs / 1000 << " s.";
        timer.setInterval(RunningIntervalMs);
        if (!statusSent) {
            sendConfigDbStatus();
            statusSent = true;
        }
    }
    const int count = workQueue.size();
    if (count == 0)
        return true;
    VEX_LOG(LogDebug) << "ConfigDbMonitor::onFdLoopTimerTimeout() Queue size=" << count << ".";
    FwWorkItem* item = workQueue.remove(); // there is one, and nobody else takes any
    if (item != nullptr) {
        onWorkItem(item);
    } else {
        VEX_LOG(LogWarning) << "ConfigDbMonitor::onFdLoopTimerTimeout() Item is NULL!";
    }
    return true;
}

void ConfigDbMonitor::onWorkItem(FwWorkItem* item) {
    if (item == nullptr) {
        VEX_LOG(LogDebug) << "Downloader::onWorkItem() Work item is NULL!"; // the other worker's text
        return;
    }
    VEX_LOG(LogDebug) << "ConfigDbMonitor::onWorkItem(" << item->toString() << ").";
    switch (item->getWorkItemType()) {
    case FwWorkItem::SetReadyForUpdateRequest:
        onSetReadyForUpdateRequest(static_cast<SetReadyForUpdateRequest*>(item));
        break;
    case FwWorkItem::IsUpdateNeededRequest:
        onIsUpdateNeededRequest(static_cast<IsUpdateNeededRequest*>(item));
        break;
    case FwWorkItem::ExitRunLoop:
        onStopWork(static_cast<ExitRunLoop*>(item));
        break;
    default:
        VEX_LOG(LogInfo) << "ConfigDbMonitor::onWorkItem() No handling of " << item->toString() << ".";
        break;
    }
}

void ConfigDbMonitor::onIsUpdateNeededRequest(IsUpdateNeededRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "ConfigDbMonitor::onIsUpdateNeededRequest() Request is NULL!";
        return;
    }
    request->setIsUpdateNeeded(isNewFirmwareNeeded());
    VEX_LOG(LogInfo) << "ConfigDbMonitor::onIsUpdateNeededRequest() Reply to master: "
                     << (request->isUpdateNeeded() ? "yes" : "no") << " update is needed.";
    masterQueue.add(request);
}

void ConfigDbMonitor::onSetReadyForUpdateRequest(SetReadyForUpdateRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "ConfigDbMonitor::onSetReadyForUpdateRequest() Request is NULL!";
        return;
    }
    const std::string filename = request->getFilename();
    const bool isInstalled = isConfiguredVersionInstalled();
    if (isInstalled) {
        VEX_LOG(LogInfo)
            << "ConfigDbMonitor::onSetReadyForUpdateRequest() The configured version is installed, "
            << filename << " is not needed.";
        request->setNotNeeded();
    }
    if (!isInstalled && setReadyForFirmwareInstall(filename)) {
        VEX_LOG(LogInfo) << "ConfigDbMonitor::onSetReadyForUpdateRequest() Set " << filename << ".";
        setCsmEvent(CsmEvent::UpdateReady, true);
        request->setSetReadyStatus(SetReadyForUpdateRequest::SetReadyComplete);
    } else {
        VEX_LOG(LogWarning) << "ConfigDbMonitor::onSetReadyForUpdateRequest() Failed to set ReadyForUpdate!";
        request->setSetReadyStatus(SetReadyForUpdateRequest::SetReadyFailed);
        setCsmEvent(CsmEvent::UpdateReady, false);
    }
    masterQueue.add(request);
}

void ConfigDbMonitor::onStopWork(ExitRunLoop* /*item*/) {
    VEX_LOG(LogWarning) << "ConfigDbMonitor::onStopWork()";
    running = false;
    stopEvent.interrupt();
}

void ConfigDbMonitor::onCBusSignal(const char* name, const void* /*data*/, unsigned /*length*/) {
    if (name == nullptr)
        return;
    const bool updated = strcmp(name, BusName::ConfigUpdated) == 0;
    if (!updated && strcmp(name, BusName::ConfigPushed) != 0)
        return;
    VEX_LOG(LogDebug) << "ConfigDbMonitor::onCBusSignal() Got '" << name << "'.";
    if (updated) {
        onConfigUpdated();
    } else {
        eraseKeyLocked(ConfigKey::Force);
    }
}
