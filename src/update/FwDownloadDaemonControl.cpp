// Update control: routes requests between the workers and the update handler, and turns events into work.
#include "common/VexStreamLog.h"
#include "common/maskedurl.h"
#include "main/ArgParser.h"
#include "update/FwDownloadDaemon.h"
#include <cstdlib>
#include <string_view>

namespace {

// True for null, which is logged as a warning.
bool isNull(const FwWorkItem* item, const char* text) {
    if (item != nullptr)
        return false;
    VEX_LOG(LogWarning) << text;
    return true;
}

} // namespace

bool FwDownloadDaemon::hasUpdateHandler(const char* text) const {
    if (mUpdateHandler)
        return true;
    VEX_LOG(LogWarning) << text;
    return false;
}

// --- Requests

// A request from `pending` goes on to its worker by `send`, one with a result, up to `last`, to the update
// handler by `handle`. A row without text for a missing update handler can do without; one without text for
// an unknown status has none.
template <typename Request, typename Getter, typename Status, typename Send, typename Handle>
bool FwDownloadDaemon::route(FwWorkItem* item, const char* nullItem, const char* noHandler,
                             const char* unknown, Getter status, Status pending, Status last, Send send,
                             Handle handle) {
    if (isNull(item, nullItem) || (noHandler != nullptr && !hasUpdateHandler(noHandler)))
        return true;
    auto* const request = static_cast<Request*>(item);
    const std::string_view method(nullItem, std::string_view(nullItem).find(' '));
    VEX_LOG(LogDebug) << method << " " << request->getStatus();
    const Status now = (request->*status)();
    if (now == pending) {
        send(request);
    } else if (unknown == nullptr || (now > pending && now <= last)) {
        handle(request);
    } else {
        std::string text = unknown;
        text.replace(text.find("%s"), 2, request->getStatus());
        VEX_LOG(LogWarning) << text;
    }
    return true;
}

bool FwDownloadDaemon::routeRequest(FwWorkItem* item) {
    const auto toFiles = [this](auto* request) { mZempHandlerQueue.add(request); };
    switch (item->getWorkItemType()) {
    case FwWorkItem::FileScanRequest:
        return route<FileScanRequest>(item, "FwDownloadDaemon::onFileScanRequest() FileScanRequest is NULL!",
                                      "FwDownloadDaemon::onFileScanRequest() UpdateHandler is NULL!",
                                      "FwDownloadDaemon::onFileScanRequest() Cannot handle scan status %s.",
                                      &FileScanRequest::getFileScanStatus, FileScanRequest::ScanPending,
                                      FileScanRequest::ScanIsFailed, toFiles,
                                      [this](auto* request) { mUpdateHandler->onScanResult(request); });
    case FwWorkItem::DownloadRequest:
        return route<DownloadRequest>(
            item, "FwDownloadDaemon::onDownloadRequest() DownloadRequest is NULL!",
            "FwDownloadDaemon::onDownloadRequest() UpdateHandler is NULL!", nullptr,
            &DownloadRequest::getDownloadStatus, DownloadRequest::DownloadNotStarted,
            DownloadRequest::DownloadPermanentFailure, [this](auto* request) { sendDownload(request); },
            [this](auto* request) { mUpdateHandler->onDownloadResult(request); });
    case FwWorkItem::ParseFileRequest:
        return route<ParseFileRequest>(
            item, "FwDownloadDaemon::onParseFileRequest() WorkItem is NULL!",
            "FwDownloadDaemon::onParseFileRequest() UpdateHandler is NULL!",
            "FwDownloadDaemon::onParseFileRequest() Cannot handle parse status %s.",
            &ParseFileRequest::getParseStatus, ParseFileRequest::ParsePending, ParseFileRequest::ParseFailed,
            toFiles, [this](auto* request) { mUpdateHandler->onParseResult(request, knownSuuInfo()); });
    case FwWorkItem::IsUpdateNeededRequest:
        return route<IsUpdateNeededRequest>(
            item, "FwDownloadDaemon::onIsUpdateNeededRequest() Request is NULL!",
            "FwDownloadDaemon::onIsUpdateNeededRequest() UpdateHandler is NULL!",
            "FwDownloadDaemon::onIsUpdateNeededRequest() Cannot handle status %s",
            &IsUpdateNeededRequest::getQuestionStatus, IsUpdateNeededRequest::QuestionNotAnswered,
            IsUpdateNeededRequest::QuestionAnswered,
            [this](auto* request) {
                VEX_LOG(LogDebug) << "FwDownloadDaemon::onIsUpdateNeededRequest() Forward to Config monitor.";
                mConfigDbQueue.add(request);
            },
            [this](auto* request) {
                VEX_LOG(LogDebug) << "FwDownloadDaemon::onIsUpdateNeededRequest() Inform update "
                                     "handler of answer.";
                mUpdateHandler->onIsUpdateNeededRequest(request, mMasterQueue);
            });
    case FwWorkItem::CompileUpdateZempRequest:
        return route<CompileUpdateZempRequest>(
            item, "FwDownloadDaemon::onCompileUpdateZempFile() Request is NULL!",
            "FwDownloadDaemon::onCompileUpdateZempFile() UpdateHandler is NULL!",
            "FwDownloadDaemon::onCompileUpdateZempFile() Cannot handle compile status %s",
            &CompileUpdateZempRequest::getCompileStatus, CompileUpdateZempRequest::CompilePending,
            CompileUpdateZempRequest::CompileFailed, toFiles,
            [this](auto* request) { mUpdateHandler->onCompileZempResult(request, mMasterQueue); });
    case FwWorkItem::FileDeleteRequest:
        return route<FileDeleteRequest>(
            item, "FwDownloadDaemon::onFileDeleteRequest() WorkItem is NULL!",
            "FwDownloadDaemon::onFileDeleteRequest() UpdateHandler is NULL!",
            "FwDownloadDaemon::onFileDeleteRequest() Cannot handle delete status %s",
            &FileDeleteRequest::getFileDeleteStatus, FileDeleteRequest::FileDeletePending,
            FileDeleteRequest::FileDeleteFailed, toFiles,
            [this](auto* request) { mUpdateHandler->onFileDeleteResult(request); });
    case FwWorkItem::SetReadyForUpdateRequest:
        return route<SetReadyForUpdateRequest>(
            item, "FwDownloadDaemon::onSetReadyForUpdateRequest() Request is NULL!", nullptr,
            "FwDownloadDaemon::onSetReadyForUpdateRequest() Cannot handle compile status %s",
            &SetReadyForUpdateRequest::getSetReadyStatus, SetReadyForUpdateRequest::SetReadyPending,
            SetReadyForUpdateRequest::SetReadyFailed, [this](auto* request) { sendSetReady(request); },
            [this](auto* request) { onSetReadyResult(request); });
    default:
        return false;
    }
}

// What is different about a request or two:

void FwDownloadDaemon::sendDownload(DownloadRequest* request) {
    if (mUpdateHandler->holdBack(request))
        return;
    request->setWithDownloader(true);
    mDownloaderQueue.add(request);
}

void FwDownloadDaemon::sendSetReady(SetReadyForUpdateRequest* request) {
    if (!mUpdateHandler || !mUpdateHandler->dropStaleReadyRequest(request))
        mConfigDbQueue.add(request);
}

void FwDownloadDaemon::onSetReadyResult(SetReadyForUpdateRequest* request) {
    if (mUpdateHandler) {
        mUpdateHandler->onSetReadyResult(request);
    } else if (request->getSetReadyStatus() == SetReadyForUpdateRequest::SetReadyComplete) {
        VEX_LOG(LogWarning) << "FwDownloadDaemon::onSetReadyForUpdateRequest() ReadyForUpdate is set, but "
                               "update handler is NULL!";
    } else {
        VEX_LOG(LogError) << "FwDownloadDaemon::onSetReadyForUpdateRequest() Set ReadyForUpdate failed!";
        VEX_LOG(LogError)
            << "FwDownloadDaemon::onSetReadyForUpdateRequest() And update handler is NULL! Exit!";
        onWorkItem(new ExitRunLoop);
    }
}

// --- Events

void FwDownloadDaemon::onGotZempStartEvent(GotZempStartEvent* event) {
    if (isNull(event, "FwDownloadDaemon::onGotZempStartEvent() Event is NULL!") ||
        !hasUpdateHandler("FwDownloadDaemon::onGotZempStartEvent() UpdateHandler is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onGotZempStartEvent() Deleting the event.";
    delete event;
    mUpdateHandler->onGotZempStart(knownSuuInfo(), mMasterQueue, mDownloaderQueue);
}

void FwDownloadDaemon::onSuuInfoInvalidEvent(SuuInfoInvalidEvent* event) {
    if (isNull(event, "FwDownloadDaemon::onSuuInfoInvalidEvent() Event is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onSuuInfoInvalidEvent() Deleting the event.";
    delete event;
    retrySuuInfo();
}

void FwDownloadDaemon::onConfigDbStatusEvent(ConfigDbStatusEvent* event) {
    if (isNull(event, "FwDownloadDaemon::onConfigDbStatusEvent() Event is NULL!"))
        return;
    mConfigDbStatusEvent.reset(event);
    initializeSuuInfo();
    switch (event->getConfigDbStatus()) {
    case ConfigDbStatusEvent::ConfigNoUpdateNeeded:
    case ConfigDbStatusEvent::ConfigGetNewFirmware:
    case ConfigDbStatusEvent::ConfigStatusUnspecified:
        break;
    case ConfigDbStatusEvent::ConfigWaitForUpdate:
        return;
    }
    initializeUpdateHandler();
    const FwAction::NextAction action = setUpdateHandler(event->getUrl(), event->getVersion(),
                                                         event->isForceUpdate(), event->getConfigDbStatus());
    deleteSupersededUpdate(event->getDeleteReadyForUpdateFile());
    handOutRecordedScan(action);
    if (action == FwAction::ScanExistingFiles)
        onScanExistingFilesAction();
}

void FwDownloadDaemon::onNewFirmwareNeededEvent(NewFirmwareNeededEvent* event) {
    if (isNull(event, "FwDownloadDaemon::onNewFirmwareNeededEvent() Event is NULL!"))
        return;
    VEX_LOG(LogInfo) << "FwDownloadDaemon::onNewFirmwareNeededEvent(" << event->getVersion() << ", "
                     << maskedUrl(event->getUrl())
                     << (event->isForceUpdate() ? "ForceUpdate" : "not ForceUpdate") << ")";
    initializeSuuInfo();
    if (!mUpdateHandler) {
        VEX_LOG(LogWarning)
            << "FwDownloadDaemon::onNewFirmwareNeeded() No current UpdateHandler, create one.";
        initializeUpdateHandler();
    }
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onNewFirmwareNeeded() Update current UpdateHandler.";
    FwAction::NextAction action =
        setUpdateHandler(event->getUrl(), event->getVersion(), event->isForceUpdate(),
                         ConfigDbStatusEvent::ConfigGetNewFirmware);
    if (action == FwAction::NoAction && mUpdateHandler->isFlagMissing(event->getReadyFlag())) {
        VEX_LOG(LogInfo)
            << "FwDownloadDaemon::onNewFirmwareNeeded() The update image lost its flag, set it again.";
        mUpdateHandler->setNextAction(FwAction::Cause::FlagLost);
        action = FwAction::SetReadyForUpdate;
    }
    deleteSupersededUpdate(event->getDeleteReadyForUpdateFile());
    handOutRecordedScan(action);
    switch (action) {
    case FwAction::FindNeededParts:
        mUpdateHandler->clearSuumZempPartsMap();
        mUpdateHandler->onGotZempStart(knownSuuInfo(), mMasterQueue, mDownloaderQueue);
        break;
    case FwAction::SetReadyForUpdate:
        mConfigDbQueue.add(
            mUpdateHandler->createSetReadyForUpdateRequest(mUpdateHandler->getFwUpdateFilename()));
        break;
    case FwAction::ScanExistingFiles:
        mUpdateHandler->clearSuumZempPartsMap();
        onScanExistingFilesAction();
        break;
    default:
        VEX_LOG(LogInfo) << "FwDownloadDaemon::onNewFirmwareNeededEvent() Do nothing on NextAction="
                         << FwAction::getString(action);
        if (action == FwAction::NoAction)
            mUpdateHandler->askIfAtRest();
        break;
    }
    delete event;
}

// --- The update handler

void FwDownloadDaemon::initializeUpdateHandler() {
    if (mUpdateHandler) {
        VEX_LOG(LogWarning) << "FwDownloadDaemon::initializeUpdateHandler() An UpdateHandler already exist!";
        return;
    }
    VEX_LOG(LogDebug) << "FwDownloadDaemon::initializeUpdateHandler() Create new UpdateHandler.";
    mUpdateHandler = std::make_unique<UpdateHandler>(&mMasterQueue, mGate);
}

FwAction::NextAction FwDownloadDaemon::setUpdateHandler(const std::string& url, const std::string& version,
                                                        bool forceUpdate,
                                                        ConfigDbStatusEvent::ConfigDbStatus status) {
    if (!hasUpdateHandler("FwDownloadDaemon::setUpdateHandler() UpdateHandler is NULL!"))
        return FwAction::NoAction;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::setUpdateHandler() Configured URL=" << maskedUrl(url);
    VEX_LOG(LogDebug) << "FwDownloadDaemon::setUpdateHandler()        version=" << version;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::setUpdateHandler()  isForceUpdate="
                      << (forceUpdate ? "yes" : "no");
    VEX_LOG(LogDebug) << "FwDownloadDaemon::setUpdateHandler()         status="
                      << ConfigDbStatusEvent::getString(status);
    mUpdateHandler->setForced(forceUpdate);
    const bool statusChanged = mUpdateHandler->setConfigDbStatus(status);
    const bool versionChanged = mUpdateHandler->setVersionToDownload(url, version);
    if (!statusChanged && !versionChanged) {
        if (forceUpdate && mUpdateHandler->getNextAction() == FwAction::WaitForFwUpdate) {
            VEX_LOG(LogInfo) << "FwDownloadDaemon::setUpdateHandler() Ready for update with force flag, set "
                                "ready for update again.";
            mUpdateHandler->setNextAction(FwAction::Cause::ForcedAgain);
            return FwAction::SetReadyForUpdate;
        }
        VEX_LOG(LogDebug) << "FwDownloadDaemon::setUpdateHandler() No change in UpdateHandler.";
        return FwAction::NoAction;
    }
    if (!mUpdateHandler->isDownloadInProgress()) {
        if (mUpdateHandler->getFileFragment(version, FileFragment::ZempStart, ZempPart::UnspecifiedPart) !=
            nullptr) {
            VEX_LOG(LogInfo) << "FwDownloadDaemon::setUpdateHandler() Already have ZEMP start for version="
                             << version;
            mUpdateHandler->setNextAction(FwAction::Cause::WantedWithStart);
        } else {
            mUpdateHandler->setNextAction(FwAction::Cause::WantedWithoutStart);
        }
    }
    return mUpdateHandler->getNextAction();
}

void FwDownloadDaemon::onScanExistingFilesAction() {
    if (!hasUpdateHandler("FwDownloadDaemon::onScanExistingFilesAction() Update handler is NULL!"))
        return;
    FileScanRequest* request = mUpdateHandler->createFileScanRequest();
    if (request == nullptr) {
        VEX_LOG(LogWarning)
            << "FwDownloadDaemon::onScanExistingFilesAction() Update handler did not return a "
               "FileScanRequest!";
        return;
    }
    onWorkItem(request);
}

// The scan that a failed compile left behind must be served before anything else of another version goes on.
void FwDownloadDaemon::handOutRecordedScan(FwAction::NextAction action) {
    if (action != FwAction::ScanExistingFiles && mUpdateHandler && mUpdateHandler->hasScanToHandOut())
        onScanExistingFilesAction();
}

// Deletes an update image that is flagged no more, if it is one of ours.
void FwDownloadDaemon::deleteSupersededUpdate(const std::string& filename) {
    // The flag holds a resolved path.
    const std::string configured = ArgParser::getInstance()->getDownloadDirectory();
    const std::unique_ptr<char, decltype(&free)> resolved(realpath(configured.c_str(), nullptr), &free);
    const std::string directory = (resolved ? std::string(resolved.get()) : configured) + "/";
    if (filename.compare(0, directory.size(), directory) != 0 ||
        filename.find('/', directory.size()) != std::string::npos ||
        FileFragment::parseFragmentType(filename) != FileFragment::UpdateZempFile)
        return;
    mUpdateHandler->createFileDeleteRequest(filename);
}
