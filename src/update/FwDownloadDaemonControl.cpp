// Update control: routes requests between the workers and the update handler, and turns events into work.
#include "common/VexStreamLog.h"
#include "common/maskedurl.h"
#include "main/ArgParser.h"
#include "update/FwDownloadDaemon.h"
#include <cstdlib>

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

void FwDownloadDaemon::onFileScanRequest(FileScanRequest* request) {
    if (isNull(request, "FwDownloadDaemon::onFileScanRequest() FileScanRequest is NULL!") ||
        !hasUpdateHandler("FwDownloadDaemon::onFileScanRequest() UpdateHandler is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onFileScanRequest() " << request->getStatus();
    switch (request->getFileScanStatus()) {
    case FileScanRequest::ScanPending:
        mZempHandlerQueue.add(request);
        return;
    case FileScanRequest::ScanIsDone:
    case FileScanRequest::ScanIsFailed:
        mUpdateHandler->onScanResult(request);
        return;
    }
    VEX_LOG(LogWarning) << "FwDownloadDaemon::onFileScanRequest() Cannot handle scan status "
                        << request->getStatus() << ".";
}

void FwDownloadDaemon::onDownloadRequest(DownloadRequest* request) {
    if (isNull(request, "FwDownloadDaemon::onDownloadRequest() DownloadRequest is NULL!") ||
        !hasUpdateHandler("FwDownloadDaemon::onDownloadRequest() UpdateHandler is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onDownloadRequest() " << request->getStatus();
    if (request->getDownloadStatus() != DownloadRequest::DownloadNotStarted) {
        mUpdateHandler->onDownloadResult(request);
        return;
    }
    if (mUpdateHandler->holdBack(request))
        return;
    request->setWithDownloader(true);
    mDownloaderQueue.add(request);
}

void FwDownloadDaemon::onParseFileRequest(ParseFileRequest* request) {
    if (isNull(request, "FwDownloadDaemon::onParseFileRequest() WorkItem is NULL!") ||
        !hasUpdateHandler("FwDownloadDaemon::onParseFileRequest() UpdateHandler is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onParseFileRequest() " << request->getStatus();
    switch (request->getParseStatus()) {
    case ParseFileRequest::ParsePending:
        mZempHandlerQueue.add(request);
        return;
    case ParseFileRequest::ParseCopmplete:
    case ParseFileRequest::ParseNoData:
    case ParseFileRequest::ParseFailed:
        mUpdateHandler->onParseResult(request, knownSuuInfo());
        return;
    }
    VEX_LOG(LogWarning) << "FwDownloadDaemon::onParseFileRequest() Cannot handle parse status "
                        << request->getStatus() << ".";
}

void FwDownloadDaemon::onIsUpdateNeededRequest(IsUpdateNeededRequest* request) {
    if (isNull(request, "FwDownloadDaemon::onIsUpdateNeededRequest() Request is NULL!") ||
        !hasUpdateHandler("FwDownloadDaemon::onIsUpdateNeededRequest() UpdateHandler is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onIsUpdateNeededRequest() " << request->getStatus();
    switch (request->getQuestionStatus()) {
    case IsUpdateNeededRequest::QuestionNotAnswered:
        VEX_LOG(LogDebug) << "FwDownloadDaemon::onIsUpdateNeededRequest() Forward to Config monitor.";
        mConfigDbQueue.add(request);
        return;
    case IsUpdateNeededRequest::QuestionAnswered:
        VEX_LOG(LogDebug) << "FwDownloadDaemon::onIsUpdateNeededRequest() Inform update handler of answer.";
        mUpdateHandler->onIsUpdateNeededRequest(request, mMasterQueue);
        return;
    }
    VEX_LOG(LogWarning) << "FwDownloadDaemon::onIsUpdateNeededRequest() Cannot handle status "
                        << request->getStatus();
}

void FwDownloadDaemon::onCompileUpdateZempFile(CompileUpdateZempRequest* request) {
    if (isNull(request, "FwDownloadDaemon::onCompileUpdateZempFile() Request is NULL!") ||
        !hasUpdateHandler("FwDownloadDaemon::onCompileUpdateZempFile() UpdateHandler is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onCompileUpdateZempFile() " << request->getStatus();
    switch (request->getCompileStatus()) {
    case CompileUpdateZempRequest::CompilePending:
        mZempHandlerQueue.add(request);
        return;
    case CompileUpdateZempRequest::CompileComplete:
    case CompileUpdateZempRequest::CompileFailed:
        mUpdateHandler->onCompileZempResult(request, mMasterQueue);
        return;
    }
    VEX_LOG(LogWarning) << "FwDownloadDaemon::onCompileUpdateZempFile() Cannot handle compile status "
                        << request->getStatus();
}

void FwDownloadDaemon::onFileDeleteRequest(FileDeleteRequest* request) {
    if (isNull(request, "FwDownloadDaemon::onFileDeleteRequest() WorkItem is NULL!") ||
        !hasUpdateHandler("FwDownloadDaemon::onFileDeleteRequest() UpdateHandler is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onFileDeleteRequest() " << request->getStatus();
    switch (request->getFileDeleteStatus()) {
    case FileDeleteRequest::FileDeletePending:
        mZempHandlerQueue.add(request);
        return;
    case FileDeleteRequest::FileDeleteComplete:
    case FileDeleteRequest::FileDeleteFailed:
        mUpdateHandler->onFileDeleteResult(request);
        return;
    }
    VEX_LOG(LogWarning) << "FwDownloadDaemon::onFileDeleteRequest() Cannot handle delete status "
                        << request->getStatus();
}

void FwDownloadDaemon::onSetReadyForUpdateRequest(SetReadyForUpdateRequest* request) {
    if (isNull(request, "FwDownloadDaemon::onSetReadyForUpdateRequest() Request is NULL!"))
        return;
    VEX_LOG(LogDebug) << "FwDownloadDaemon::onSetReadyForUpdateRequest() " << request->getStatus();
    switch (request->getSetReadyStatus()) {
    case SetReadyForUpdateRequest::SetReadyPending:
        if (!mUpdateHandler || !mUpdateHandler->dropStaleReadyRequest(request))
            mConfigDbQueue.add(request);
        return;
    case SetReadyForUpdateRequest::SetReadyComplete:
        if (hasUpdateHandler("FwDownloadDaemon::onSetReadyForUpdateRequest() ReadyForUpdate is set, but "
                             "update handler is NULL!"))
            mUpdateHandler->onSetReadyResult(request);
        return;
    case SetReadyForUpdateRequest::SetReadyFailed:
        if (mUpdateHandler) {
            mUpdateHandler->onSetReadyResult(request);
            return;
        }
        VEX_LOG(LogError) << "FwDownloadDaemon::onSetReadyForUpdateRequest() Set ReadyForUpdate failed!";
        VEX_LOG(LogError)
            << "FwDownloadDaemon::onSetReadyForUpdateRequest() And update handler is NULL! Exit!";
        onWorkItem(new ExitRunLoop);
        return;
    }
    VEX_LOG(LogWarning) << "FwDownloadDaemon::onSetReadyForUpdateRequest() Cannot handle compile status "
                        << request->getStatus();
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
