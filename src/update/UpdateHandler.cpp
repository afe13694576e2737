// Results of scans, questions, downloads, compiles, ready flags and deletes.
#include "update/UpdateHandler.h"

#include "common/VexStreamLog.h"

namespace {

// So much that it counts as short space, whatever the disk has: an image and its parts take a quarter of it
// at most, and two versions of 40 parts are fewer files.
constexpr uint64_t MaximumBytes = 314572800; // 300 MiB
constexpr size_t MaximumFiles = 200;

bool isTooMuch(const FileScanRequest::FileList& files) {
    uint64_t bytes = 0;
    for (const auto& file : files)
        bytes += file.second;
    return bytes > MaximumBytes || files.size() > MaximumFiles;
}

// True for null, which is logged as an error.
bool isNull(const FwWorkItem* item, const char* text) {
    if (item != nullptr)
        return false;
    VEX_LOG(LogError) << text;
    return true;
}

} // namespace

void UpdateHandler::exitRunLoop() {
    addToMasterQueue(new ExitRunLoop);
}

void UpdateHandler::askIsUpdateNeeded() {
    mAskAgain = false;
    addToMasterQueue(mRequests.add(std::make_unique<IsUpdateNeededRequest>(), mVersion));
}

// One question at a time: a "yes" is acted on only while nothing is out.
void UpdateHandler::askAgainWhenIdle() {
    mAskAgain = true;
    askIfIdle();
}

void UpdateHandler::askIfIdle() {
    if (!mAskAgain || mRequests.isBusy())
        return;
    askIsUpdateNeeded();
}

void UpdateHandler::askIfAtRest() {
    if (mNextAction == FwAction::NoAction && !mRequests.isBusy() &&
        mRequests.count(FwWorkItem::IsUpdateNeededRequest) == 0)
        askIsUpdateNeeded();
}

// --- Scan

void UpdateHandler::onScanResult(FileScanRequest* request) {
    if (isNull(request, "UpdateHandler::onScanResult() Response is NULL!"))
        return;
    const FileScanRequest::FileList files = request->getFileList();
    VEX_LOG(LogDebug) << "UpdateHandler::onScanResult() Scan status " << request->getStatus() << ", found "
                      << files.size() << " files.";
    for (const auto& [name, size] : files)
        VEX_LOG(LogDebug) << "UpdateHandler::onScanResult() Name='" << name << "', size=" << size;
    if (request->getFileScanStatus() != FileScanRequest::ScanIsDone) {
        VEX_LOG(LogError) << "UpdateHandler::onScanResult() Negative response, exit.";
        deleteFileScanRequest(request);
        exitRunLoop();
        return;
    }
    const bool reclaims = mSpaceIsShort;
    mSpaceIsShort = !reclaims && isTooMuch(files);
    for (const auto& [name, size] : files) {
        if (!reclaims || isWorthItsSpace(name)) {
            scanFile(name, size);
        } else if (!isFileDeleteRequested(name)) {
            VEX_LOG(LogInfo) << "UpdateHandler::onScanResult() Make space, delete '" << name << "'.";
            createFileDeleteRequest(name);
        }
    }
    deleteNotFoundFileFragments();
    deleteStrayZempParts();
    deleteFileScanRequest(request);
    if (mNextAction == FwAction::ScanExistingFiles) {
        askIsUpdateNeeded();
        VEX_LOG(LogDebug) << "UpdateHandler::onScanResult() Wait for response to IsUpdateNeededRequest.";
        setNextAction(FwAction::Cause::ScanDone);
    } else if (reclaims) {
        mAskAgain = true;
    }
    askIfIdle();
}

void UpdateHandler::scanFile(const std::string& name, unsigned size) {
    const FileFragment::FragmentType type = FileFragment::parseFragmentType(name);
    if (type == FileFragment::UnknownType || type == FileFragment::ZempFile)
        return;
    if (mConfigDbStatus == ConfigDbStatusEvent::ConfigNoUpdateNeeded) {
        deleteScannedFile(name, size, type);
        return;
    }
    VEX_LOG(LogInfo) << "UpdateHandler::onScanResult() Deferred file delete, ConfigDb status="
                     << ConfigDbStatusEvent::getString(mConfigDbStatus);
    if (!FileFragment::isMaximumFileSize(size)) {
        VEX_LOG(LogInfo) << "UpdateHandler::onScanResult() To big file '" << name << "', request delete.";
        createFileDeleteRequest(name);
        return;
    }
    if (type == FileFragment::UpdateZempFile)
        return;
    FileFragment* fragment = getFileFragment(name);
    if (fragment == nullptr) {
        VEX_LOG(LogDebug) << "UpdateHandler::onScanResult() New file '" << name << "', create FileFragment.";
        fragment = new FileFragment(name, size);
        addFileFragment(fragment);
        fragment->setIsFoundInScan(true);
        requestParse(fragment);
        return;
    }
    VEX_LOG(LogDebug) << "UpdateHandler::onScanResult() Know about file '" << name << "'.";
    fragment->setIsFoundInScan(true);
    // A file that is being fetched or parsed gets its result anyway, and must not be renamed meanwhile.
    if (fragment->getFileSize() == size || isFileFragmentInUse(fragment))
        return;
    VEX_LOG(LogDebug) << "UpdateHandler::onScanResult() Need to parse '" << name << "' again size mismatch.";
    requestParse(fragment);
}

void UpdateHandler::deleteScannedFile(const std::string& name, unsigned size,
                                      FileFragment::FragmentType type) {
    if (!FileFragment::isMinimumFileSize(size))
        VEX_LOG(LogInfo) << "UpdateHandler::onScanResult() Delete empty file '" << name << "'.";
    else if (type == FileFragment::UpdateZempFile)
        VEX_LOG(LogInfo) << "UpdateHandler::onScanResult() Delete ZEMP update '" << name << "'.";
    else if (type == FileFragment::ZempStart)
        VEX_LOG(LogInfo) << "UpdateHandler::onScanResult() Delete ZempStart '" << name << "'.";
    else
        VEX_LOG(LogInfo) << "UpdateHandler::onScanResult() Delete ContentPart '" << name << "'.";
    if (!isFileDeleteRequested(name)) // as an update image that is installed by now is
        createFileDeleteRequest(name);
}

void UpdateHandler::requestParse(FileFragment* fragment) {
    addToMasterQueue(createParseFileRequest(fragment));
    setNextAction(FwAction::Cause::ScanFoundFile);
}

// --- Question

void UpdateHandler::onIsUpdateNeededRequest(IsUpdateNeededRequest* request,
                                            wqueue<FwWorkItem*>& masterQueue) {
    if (isNull(request, "UpdateHandler::onIsUpdateNeededRequest() Response is NULL!"))
        return;
    const bool answered = request->getQuestionStatus() == IsUpdateNeededRequest::QuestionAnswered;
    const bool needed = request->isUpdateNeeded();
    mRequests.retire(request);
    if (!answered) {
        VEX_LOG(LogWarning) << "UpdateHandler::onIsUpdateNeededRequest() Question has not been answered!";
        return;
    }
    if (!needed) {
        VEX_LOG(LogInfo) << "UpdateHandler::onIsUpdateNeededRequest() No need for update.";
        setNextAction(FwAction::Cause::NotNeeded);
        return;
    }
    VEX_LOG(LogInfo) << "UpdateHandler::onIsUpdateNeededRequest() Need to update to version " << mVersion;
    if (mNextAction == FwAction::WaitForFwUpdate || mGovernor.hasGivenUp())
        return; // the image is flagged, and only another version leads on; or the daemon ends
    if (mRequests.isBusy()) {
        mAskAgain = true;
        return;
    }
    if (mUrl.empty() || mVersion.empty()) {
        VEX_LOG(LogWarning) << "UpdateHandler::onIsUpdateNeededRequest() No URL or version to update to!";
        setNextAction(FwAction::Cause::NothingToFetch);
        return;
    }
    if (getFileFragment(mVersion, FileFragment::ZempStart, ZempPart::UnspecifiedPart) == nullptr) {
        setNextAction(FwAction::Cause::NeededWithoutStart);
        reRequestZempStart(masterQueue);
    } else {
        setNextAction(FwAction::Cause::NeededWithStart);
        masterQueue.add(new GotZempStartEvent);
    }
}

// --- Download

void UpdateHandler::onDownloadResult(DownloadRequest* request) {
    if (isNull(request, "UpdateHandler::onDownloadResult() Response is NULL!"))
        return;
    request->setWithDownloader(false);
    FileFragment* fragment = request->getFileFragment();
    if (fragment == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::onDownloadResult() File fragment is NULL!";
        deleteDownloadRequest(request);
        askIsUpdateNeeded();
        return;
    }
    switch (request->getDownloadStatus()) {
    case DownloadRequest::DownloadNotStarted:
        VEX_LOG(LogWarning)
            << "UpdateHandler::onDownloadResult() Received status=DownloadNotStarted! Return to master.";
        addToMasterQueue(request);
        break;
    case DownloadRequest::DownloadStarted:
        break;
    case DownloadRequest::DownloadComplete: {
        if (fragment->getFragmentType() == FileFragment::SealFile) {
            onSealFetched(request);
            break;
        }
        ParseFileRequest* parse = createParseFileRequest(fragment);
        mRequests.succeed(request, parse);
        deleteDownloadRequest(request);
        if (parse == nullptr) {
            VEX_LOG(LogError)
                << "UpdateHandler::onDownloadResult() Unable to create parse file request, exit!";
            exitRunLoop();
            break;
        }
        setNextAction(FwAction::Cause::DownloadComplete);
        addToMasterQueue(parse);
        break;
    }
    case DownloadRequest::DownloadTransientFailure:
    case DownloadRequest::DownloadPermanentFailure:
        onDownloadFailure(request);
        break;
    }
}

void UpdateHandler::onDownloadFailure(DownloadRequest* request) {
    FileFragment* fragment = request->getFileFragment();
    if (mRequests.isStale(request)) {
        dropStaleDownload(request);
        return;
    }
    const unsigned failures = request->getDownloadFailures();
    if (failures > FetchGovernor::MaximumFailures) {
        failTooOften(request, failures);
    } else if (request->getDownloadStatus() == DownloadRequest::DownloadTransientFailure) {
        VEX_LOG(LogInfo) << "UpdateHandler::onDownloadResult() Reschedule, " << request->toString();
    } else {
        VEX_LOG(LogWarning) << "UpdateHandler::onDownloadResult() Terminal failure (" << request->toString()
                            << ") ! Reset download request.";
        request->resetRequest();
        fragment->setFileSize(0); // so that the range fits the emptied file
        if (request->isOutOfSpace())
            scanForSpace();
        addToMasterQueue(request);
    }
}

void UpdateHandler::dropStaleDownload(DownloadRequest* request) {
    VEX_LOG(LogInfo) << "UpdateHandler::onDownloadResult() No longer wanted, " << request->toString();
    createFileDeleteRequest(request->getFileFragment()->getFilename());
    deleteDownloadRequest(request);
    askAgainWhenIdle();
}

bool UpdateHandler::holdBack(DownloadRequest* request) {
    if (mGovernor.hasGivenUp())
        return true;
    if (request->getDownloadFailures() <= FetchGovernor::ImmediateFetches && !request->isOutOfSpace())
        return false;
    if (mRequests.isStale(request)) {
        dropStaleDownload(request);
        return true;
    }
    VEX_LOG(LogInfo) << "UpdateHandler::onDownloadResult() Reschedule, " << request->toString();
    request->setHeldBack(true);
    return true;
}

void UpdateHandler::onDownloadTimer(wqueue<FwWorkItem*>& downloaderQueue) {
    if (mGovernor.hasGivenUp())
        return;
    initDirName();
    for (DownloadRequest* request : mRequests.list<DownloadRequest>(FwWorkItem::DownloadRequest)) {
        const unsigned failures = request->getDownloadFailures();
        if (isWaitingForTimer(*request) && failures > FetchGovernor::MaximumFailures)
            failTooOften(request, failures); // such as one whose file could not be opened
    }
    restartDownload(downloaderQueue);
    handOutScanOfFailedCompile();
}

void UpdateHandler::failTooOften(DownloadRequest* request, unsigned failures) {
    VEX_LOG(LogError) << "UpdateHandler::onDownloadResult() Failed " << failures << " times, "
                      << request->toString();
    VEX_LOG(LogError) << "UpdateHandler::onDownloadResult() To download many failures, exit!";
    mGovernor.giveUp();
    deleteDownloadRequest(request);
    exitRunLoop();
}

// --- Compile, ready flag, delete

void UpdateHandler::onCompileZempResult(CompileUpdateZempRequest* request, wqueue<FwWorkItem*>& masterQueue) {
    if (isNull(request, "UpdateHandler::onCompileZempResult() Response is NULL!"))
        return;
    const bool complete = request->getCompileStatus() == CompileUpdateZempRequest::CompileComplete;
    const std::string filename = request->getFilename();
    if (!complete && !mRequests.isStale(request))
        onCompileFailure(*request);
    if (mRequests.retire(request)) {
        VEX_LOG(LogInfo) << "UpdateHandler::onCompileZempResult() No longer wanted, '" << filename << "'";
        createFileDeleteRequest(filename);
        askAgainWhenIdle();
        return;
    }
    if (complete) {
        VEX_LOG(LogInfo) << "UpdateHandler::onCompileZempResult() Ready to update from '" << filename << "'";
        setNextAction(FwAction::Cause::CompileComplete);
        masterQueue.add(createSetReadyForUpdateRequest(filename));
        mCompilePace.reset();
    }
}

// The scan that is recorded is handed out by the timer, or to another version.
void UpdateHandler::onCompileFailure(const CompileUpdateZempRequest& request) {
    VEX_LOG(LogWarning) << "UpdateHandler::onCompileZempResult() Failure to compile '"
                        << request.getFilename() << "'";
    setNextAction(FwAction::Cause::CompileFailed);
    recordFileScanRequest();
    mCompilePace.onFailure();
    if (request.getFailure() == ZempCreator::Failure::Space)
        mSpaceIsShort = true;
    else if (request.getFailure() == ZempCreator::Failure::Parts)
        deleteFilesOf(request);
}

bool UpdateHandler::isFlagMissing(NewFirmwareNeededEvent::ReadyFlag flag) const {
    return mNextAction == FwAction::WaitForFwUpdate && flag == NewFirmwareNeededEvent::ReadyFlagAbsent;
}

SetReadyForUpdateRequest* UpdateHandler::createSetReadyForUpdateRequest(const std::string& filename) {
    return mRequests.add(std::make_unique<SetReadyForUpdateRequest>(filename), mVersion);
}

bool UpdateHandler::dropStaleReadyRequest(SetReadyForUpdateRequest* request) {
    if (!mRequests.isStale(request))
        return false;
    VEX_LOG(LogInfo) << "UpdateHandler::onSetReadyResult() No longer wanted, '" << request->getFilename()
                     << "'";
    createFileDeleteRequest(request->getFilename());
    mRequests.retire(request);
    askAgainWhenIdle();
    return true;
}

void UpdateHandler::onSetReadyResult(SetReadyForUpdateRequest* request) {
    if (isNull(request, "UpdateHandler::onSetReadyResult() Response is NULL!"))
        return;
    VEX_LOG(LogDebug) << "UpdateHandler::onSetReadyResult() Set status " << request->getStatus();
    const bool complete = request->getSetReadyStatus() == SetReadyForUpdateRequest::SetReadyComplete;
    const bool notNeeded = request->isNotNeeded();
    const std::string filename = request->getFilename();
    if (mRequests.retire(request))
        return askAgainWhenIdle();
    if (notNeeded) {
        VEX_LOG(LogInfo) << "UpdateHandler::onSetReadyResult() Installed already, '" << filename << "'";
        createFileDeleteRequest(filename);
        setNextAction(FwAction::Cause::InstalledAlready);
        return;
    }
    if (!complete) {
        VEX_LOG(LogError) << "UpdateHandler::onSetReadyResult() Failed set ReadyForUpdate !!! Exit!";
        exitRunLoop();
        return;
    }
    VEX_LOG(LogInfo) << "UpdateHandler::onSetReadyResult() Wait for update from '" << filename << "'";
    setNextAction(FwAction::Cause::FlagWritten);
    mAskAgain = false;
}

void UpdateHandler::onFileDeleteResult(FileDeleteRequest* request) {
    if (isNull(request, "UpdateHandler::onFileDeleteResult() Response is NULL!"))
        return;
    const std::string filename = request->getFilename();
    VEX_LOG(LogDebug) << "UpdateHandler::onFileDeleteResult() Delete status " << request->getStatus() << " '"
                      << filename << "'";
    mRequests.retire(request);
    // Also after a failed delete, so that the file is looked at anew by the next scan.
    deleteZempPartsOfFile(filename);
    deleteFileFragment(filename);
    askIfIdle();
}
