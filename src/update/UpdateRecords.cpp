// What is wanted, the download directory, and the requests.
#include "update/UpdateRecords.h"

#include "common/VexStreamLog.h"
#include "common/maskedurl.h"
#include "main/ArgParser.h"
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ios>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t DirectoryMode = 0x770; // hexadecimal, octal 3560

bool isFile(const std::string& filename) {
    const std::unique_ptr<char, decltype(&free)> resolved(ArgParser::verifyIsFile(filename), &free);
    struct stat status = {};
    return resolved && stat(resolved.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// A file that went away, as with its directory, is fetched from its first byte.
void forgetLostBytes(FileFragment& fragment) {
    if (fragment.getFileSize() != 0 && access(fragment.getFilename().c_str(), F_OK) != 0)
        fragment.setFileSize(0);
}

} // namespace

UpdateRecords::UpdateRecords(wqueue<FwWorkItem*>* masterQueue, const seal::Gate& gate)
    : mSeal(gate), mMasterQueue(masterQueue) {
    VEX_LOG(LogDebug) << "UpdateHandler::UpdateHandler(" << maskedUrl(mUrl) << ", " << mVersion << ")";
}

UpdateRecords::~UpdateRecords() {
    VEX_LOG(LogDebug) << "UpdateHandler::~UpdateHandler(" << maskedUrl(mUrl) << ", " << mVersion << ", "
                      << whatToDo() << ")";
    deleteAllDownloadRequests();
    deleteAllParseFileRequests();
    deleteAllFileFragments();
    clearSuumZempPartsMap();
    deleteAllZempParts();
}

bool UpdateRecords::setVersionToDownload(const std::string& url, const std::string& version) {
    VEX_LOG(LogDebug) << "UpdateHandler::setVersionToDownload() Version " << version << ", URL='"
                      << maskedUrl(url) << "'.";
    if (url.empty()) {
        VEX_LOG(LogWarning) << "UpdateHandler::setVersionToDownload() URL is empty!";
        return false;
    }
    if (version.empty()) {
        VEX_LOG(LogWarning) << "UpdateHandler::setVersionToDownload() Version is empty!";
        return false;
    }
    if (url == mUrl && version == mVersion) {
        VEX_LOG(LogInfo) << "UpdateHandler::setVersionToDownload() Already handling URL='" << maskedUrl(url)
                         << "' version='" << version << "'.";
        return false;
    }
    if (url == mUrl)
        VEX_LOG(LogDebug) << "UpdateHandler::setVersionToDownload() URL already set to '" << maskedUrl(url)
                          << "'.";
    else if (mUrl.empty())
        VEX_LOG(LogInfo) << "UpdateHandler::setVersionToDownload() Set URL='" << maskedUrl(url) << "'.";
    else
        VEX_LOG(LogInfo) << "UpdateHandler::setVersionToDownload() Replacing current URL='" << maskedUrl(mUrl)
                         << "' with URL='" << maskedUrl(url);
    mUrl = url;
    if (version == mVersion)
        VEX_LOG(LogDebug) << "UpdateHandler::setVersionToDownload() Version already set to '" << version
                          << "'.";
    else if (mVersion.empty())
        VEX_LOG(LogInfo) << "UpdateHandler::setVersionToDownload() Set version='" << version << "'.";
    else
        VEX_LOG(LogInfo) << "UpdateHandler::setVersionToDownload() Replacing current version='" << mVersion
                         << "' with version='" << version;
    if (version != mVersion)
        clearSuumZempPartsMap();
    mVersion = version;
    mSeal.forget();
    mGovernor.reset();
    mCompilePace.reset();
    clearFetchedSinceStart();
    mRequests.markAllStale();
    dropWaitingDownloads();
    mScanToHandOut = mScanIsRecordedOnly;
    VEX_LOG(LogDebug) << "UpdateHandler::setVersionToDownload() Now set for URL " << maskedUrl(mUrl)
                      << " version " << mVersion << ".";
    return true;
}

bool UpdateRecords::setConfigDbStatus(ConfigDbStatusEvent::ConfigDbStatus status) {
    VEX_LOG(LogDebug) << "UpdateHandler::setConfigDbStatus() " << ConfigDbStatusEvent::getString(status);
    const bool changed = status != mConfigDbStatus;
    mConfigDbStatus = status;
    return changed;
}

void UpdateRecords::setNextAction(FwAction::NextAction action) {
    mPreviousAction = mNextAction;
    mNextAction = action;
}

void UpdateRecords::setNextAction(FwAction::Cause cause) {
    const FwAction::Transition& transition = FwAction::find(cause);
    if (!transition.from.contains(mNextAction))
        VEX_LOG(LogError) << "UpdateHandler::setNextAction() " << FwAction::getString(mNextAction)
                          << " is not left when " << transition.event << ".";
    setNextAction(transition.to);
}

bool UpdateRecords::initDirName() {
    if (!mDirName.empty()) {
        if (ArgParser::verifyIsDirectory(mDirName))
            return true;
        VEX_LOG(LogWarning) << "UpdateHandler::initDirName() Reinitialize, '" << mDirName
                            << "' is not a directory.";
    }
    const std::string directory = ArgParser::getInstance()->getDownloadDirectory();
    VEX_LOG(LogDebug) << "UpdateHandler::initDirName() Try create directory '" << directory << "' mode "
                      << std::oct << DirectoryMode;
    if (mkdir(directory.c_str(), DirectoryMode) == 0) {
        VEX_LOG(LogInfo) << "UpdateHandler::initDirName() Created directory '" << directory << "'.";
    } else if (errno != EEXIST) {
        VEX_LOG(LogWarning) << "UpdateHandler::initDirName() Failure creating directory '" << directory
                            << "' (" << strerror(errno) << ").";
        return false;
    } else if (ArgParser::verifyIsDirectory(directory)) {
        VEX_LOG(LogDebug) << "UpdateHandler::initDirName() Directory '" << directory << "' already exist.";
    } else {
        VEX_LOG(LogWarning) << "UpdateHandler::initDirName() Failure creating directory '" << directory
                            << "' as file already exist!";
        return false;
    }
    mDirName = directory;
    return true;
}

std::string UpdateRecords::getDirName() {
    initDirName();
    return mDirName;
}

std::string UpdateRecords::getFwUpdateFilename() {
    return getDirName() + "/" + ArgParser::getFwUpdateBaseFilename() + "-" + mVersion;
}

FileScanRequest* UpdateRecords::createFileScanRequest() {
    if (mScanRequest != nullptr) {
        if (!mScanToHandOut)
            return nullptr;
    } else {
        mScanRequest = mRequests.add(std::make_unique<FileScanRequest>(getDirName()), mVersion);
    }
    mScanIsRecordedOnly = false;
    mScanToHandOut = false;
    for (const auto& [name, fragment] : mFragments)
        fragment->setIsFoundInScan(false);
    return mScanRequest;
}

void UpdateRecords::recordFileScanRequest() {
    if (createFileScanRequest() != nullptr)
        mScanIsRecordedOnly = true;
}

void UpdateRecords::deleteFileScanRequest(FileScanRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::deleteFileScanRequest() Scan request is NULL!";
        return;
    }
    if (request == mScanRequest) {
        VEX_LOG(LogDebug) << "UpdateHandler::deleteFileScanRequest() Pointer match.";
        mScanRequest = nullptr;
    } else {
        VEX_LOG(LogDebug) << "UpdateHandler::deleteFileScanRequest() Pointer mismatch, only deleting given.";
    }
    mRequests.retire(request);
}

void UpdateRecords::createFileDeleteRequest(const std::string& filename) {
    if (filename.empty())
        return;
    mMasterQueue->add(mRequests.add(std::make_unique<FileDeleteRequest>(filename), mVersion));
    const std::string seal = mSeal.gate().keptName(filename);
    if (seal != filename && access(seal.c_str(), F_OK) == 0 && !isFileDeleteRequested(seal))
        mMasterQueue->add(mRequests.add(std::make_unique<FileDeleteRequest>(seal), mVersion));
}

bool UpdateRecords::isFileDeleteRequested(const std::string& filename) const {
    const auto requests = mRequests.list<FileDeleteRequest>(FwWorkItem::FileDeleteRequest);
    return std::any_of(requests.begin(), requests.end(),
                       [&](const FileDeleteRequest* request) { return request->getFilename() == filename; });
}

ParseFileRequest* UpdateRecords::createParseFileRequest(FileFragment* fragment) {
    if (fragment == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::createParseFileRequest() FileFragment is NULL!";
        return nullptr;
    }
    auto* request = mRequests.add(std::make_unique<ParseFileRequest>(fragment), mVersion);
    request->initializeZempParser();
    request->getZempParser()->setVoucher(mSeal.voucher());
    return request;
}

void UpdateRecords::deleteParseFileRequest(ParseFileRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::deleteParseFileRequest() Parse request is NULL!";
        return;
    }
    mRequests.retire(request);
    freeForgottenFragments();
}

void UpdateRecords::deleteAllParseFileRequests() {
    const auto requests = mRequests.list<ParseFileRequest>(FwWorkItem::ParseFileRequest);
    VEX_LOG(LogDebug) << "UpdateHandler::deleteAllParseFileRequests() Deleting " << requests.size()
                      << " ParseFileRequests.";
    for (ParseFileRequest* request : requests) {
        freeParsedParts(*request);
        deleteParseFileRequest(request);
    }
}

void UpdateRecords::freeParsedParts(const ParseFileRequest& request) {
    const ZempParser* parser = request.getZempParser();
    for (uint32_t i = 0; parser != nullptr && i < parser->getNumberOfZempParts(); ++i)
        delete parser->getZempPartAt(i);
}

DownloadRequest* UpdateRecords::createDownloadRequest(const std::string& url, FileFragment* fragment) {
    if (fragment == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::createDownloadRequest() FileFragment is NULL!";
        return nullptr;
    }
    if (fragment->getFilename().empty()) {
        VEX_LOG(LogDebug) << "UpdateHandler::createDownloadRequest() Filename is zero, initializing it.";
        fragment->initFilename();
    } else if (!isFile(fragment->getFilename())) {
        VEX_LOG(LogDebug)
            << "UpdateHandler::createDownloadRequest() Filename is not a file, initializing it.";
        fragment->initFilename();
    }
    if (fragment->getFilename().empty() || !isFile(fragment->getFilename())) {
        VEX_LOG(LogError) << "UpdateHandler::createDownloadRequest() Unable to create download file, exit!";
        mMasterQueue->add(new ExitRunLoop);
        return nullptr;
    }
    return mRequests.add(std::make_unique<DownloadRequest>(url, fragment), mVersion);
}

// Gives a new fragment its name, keeps it and makes a request for it; null when any of that fails.
DownloadRequest* UpdateRecords::nameAndRequest(const std::string& url,
                                               std::unique_ptr<FileFragment> fragment) {
    fragment->initFilename();
    DownloadRequest* request = createDownloadRequest(url, fragment.get()); // tries the name once more
    if (request == nullptr)
        return nullptr;
    if (!addFileFragment(fragment.get())) {
        deleteDownloadRequest(request);
        return nullptr;
    }
    static_cast<void>(fragment.release());
    return request;
}

DownloadRequest* UpdateRecords::createDownloadRequest(const std::string& url, unsigned int rangeStart,
                                                      unsigned int rangeEnd,
                                                      FileFragment::FragmentType type) {
    initDirName();
    DownloadRequest* request =
        nameAndRequest(url, std::make_unique<FileFragment>(type, rangeStart, rangeEnd));
    if (request == nullptr)
        VEX_LOG(LogWarning) << "UpdateHandler::createDownloadRequest() Failed to create FileFragment("
                            << FileFragment::getString(type) << ", " << rangeStart << ", " << rangeEnd
                            << ") !";
    return request;
}

DownloadRequest* UpdateRecords::createDownloadRequest(unsigned int offset, bool fullBlob) {
    initDirName();
    auto fragment = std::make_unique<FileFragment>(FileFragment::ContentPart, offset,
                                                   offset + FileFragment::ContentPartInitialSize);
    fragment->setIsFetchedSinceStart(true);
    if (fullBlob)
        fragment->setFullBlobNeeded();
    return nameAndRequest(mUrl, std::move(fragment));
}

DownloadRequest* UpdateRecords::createDownloadRequest(const ZempPart* part, unsigned int offset) {
    if (part == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::createDownloadRequest() ZempPart is NULL!";
        return nullptr;
    }
    FileFragment* fragment = getFileFragment(part->getFilename());
    if (fragment == nullptr || fragment->getFragmentType() != FileFragment::ContentPart)
        return nullptr;
    fragment->setFullBlobNeeded();
    fragment->setDownloadRange(offset, part->getSizeInZempFile());
    return createDownloadRequest(mUrl, fragment);
}

void UpdateRecords::deleteDownloadRequest(DownloadRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::deleteDownloadRequest() Download request is NULL!";
        return;
    }
    const bool known = mRequests.contains(request);
    VEX_LOG(LogDebug) << (known ? "UpdateHandler::deleteDownloadRequest() Delete "
                                : "UpdateHandler::deleteDownloadRequest() Did not find ")
                      << request->toString();
    mRequests.retire(request);
    freeForgottenFragments();
}

void UpdateRecords::deleteAllDownloadRequests() {
    const auto requests = mRequests.list<DownloadRequest>(FwWorkItem::DownloadRequest);
    VEX_LOG(LogDebug) << "UpdateHandler::deleteAllDownloadRequests() Deleting " << requests.size()
                      << " requests.";
    for (DownloadRequest* request : requests)
        deleteDownloadRequest(request);
}

void UpdateRecords::restartDownload(wqueue<FwWorkItem*>& downloaderQueue) {
    for (DownloadRequest* request : mRequests.list<DownloadRequest>(FwWorkItem::DownloadRequest)) {
        if (request == nullptr) {
            VEX_LOG(LogWarning)
                << "UpdateHandler::restartDownload() Found NULL entry in DownloadRequest map!";
        } else if (isWaitingForTimer(*request)) {
            VEX_LOG(LogInfo) << "UpdateHandler::restartDownload() Resubmit '" << request->toString() << "'.";
            forgetLostBytes(*request->getFileFragment());
            request->setHeldBack(false);
            request->setWithDownloader(true);
            downloaderQueue.add(request);
        } else {
            VEX_LOG(LogDebug) << "UpdateHandler::restartDownload() Skip '" << request->toString() << "'.";
        }
    }
}

bool UpdateRecords::isWaitingForTimer(const DownloadRequest& request) {
    return !request.isWithDownloader() &&
           (request.isHeldBack() || request.getDownloadStatus() == DownloadRequest::DownloadTransientFailure);
}

bool UpdateRecords::isDownloadInProgress() const {
    for (const DownloadRequest* request : mRequests.list<DownloadRequest>(FwWorkItem::DownloadRequest)) {
        const DownloadRequest::DownloadStatus status = request->getDownloadStatus();
        if (status == DownloadRequest::DownloadStarted ||
            status == DownloadRequest::DownloadTransientFailure || request->isHeldBack()) {
            VEX_LOG(LogDebug) << "UpdateHandler::restartDownloadRequest() Found active download request '"
                              << request->toString() << "'.";
            return true;
        }
    }
    return false;
}

// Downloads that wait for the timer serve nobody once another version or URL is wanted.
void UpdateRecords::dropWaitingDownloads() {
    for (DownloadRequest* request : mRequests.list<DownloadRequest>(FwWorkItem::DownloadRequest)) {
        if (!isWaitingForTimer(*request))
            continue;
        createFileDeleteRequest(request->getFileFragment()->getFilename());
        deleteDownloadRequest(request);
    }
}
