#include "workers/ZempHandler.h"

#include "common/Noticeboard.h"
#include "common/VexStreamLog.h"
#include "image/ZempCreator.h"
#include "update/FileFragment.h"
#include "workers/Downloader.h"
#include "workers/RegularFile.h"
#include "workitems/CompileUpdateZempRequest.h"
#include "workitems/Events.h"
#include "workitems/FileDeleteRequest.h"
#include "workitems/FileScanRequest.h"
#include "workitems/ParseFileRequest.h"
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Sizes have 31 bits on the terminal.
constexpr off_t MaximumSize = INT32_MAX;
constexpr off_t MaximumStartFileSize = FileFragment::MaximumZempStartSize + Downloader::AnswerSlack;
constexpr unsigned OversizeMark = 0xFFFFFFFF;

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

const char* failureText(ZempCreator::Failure failure) {
    switch (failure) {
    case ZempCreator::Failure::Parts:
        return "a part is missing or damaged";
    case ZempCreator::Failure::Space:
        return "the disk or the quota is full";
    case ZempCreator::Failure::None:
    case ZempCreator::Failure::Surroundings:
        break;
    }
    return "it cannot be written";
}

} // namespace

ZempHandler::ZempHandler(wqueue<FwWorkItem*>& workQueue, wqueue<FwWorkItem*>& masterQueue)
    : mWorkQueue(workQueue), mMasterQueue(masterQueue) {}

ZempHandler::~ZempHandler() {
    cancelAndJoin();
}

void* ZempHandler::run() {
    const CancellationBlock block;
    mRunning = true;
    while (mRunning) {
        FwWorkItem* item = mWorkQueue.remove();
        if (item != nullptr) {
            onWorkItem(item);
        } else {
            VEX_LOG(LogWarning) << "ZempHandler::run() Got NULL pointer work item from queue!";
        }
    }
    VEX_LOG(LogInfo) << "ZempHandler::run() Stopped.";
    return nullptr;
}

void ZempHandler::onWorkItem(FwWorkItem* item) {
    if (item == nullptr) {
        VEX_LOG(LogDebug) << "ZempHandler::onWorkItem() Work item is NULL!";
        return;
    }
    VEX_LOG(LogDebug) << "ZempHandler::onWorkItem(" << item->toString() << ").";
    switch (item->getWorkItemType()) {
    case FwWorkItem::FileScanRequest:
        onFileScanRequest(static_cast<FileScanRequest*>(item));
        break;
    case FwWorkItem::ParseFileRequest:
        onParseFileRequest(static_cast<ParseFileRequest*>(item));
        break;
    case FwWorkItem::CompileUpdateZempRequest:
        onCompileUpdateZempFile(static_cast<CompileUpdateZempRequest*>(item));
        break;
    case FwWorkItem::FileDeleteRequest:
        onFileDeleteRequest(static_cast<FileDeleteRequest*>(item));
        break;
    case FwWorkItem::ExitRunLoop:
        onStopWork(static_cast<ExitRunLoop*>(item));
        break;
    default:
        VEX_LOG(LogInfo) << "ZempHandler::onWorkItem() No handling of " << item->toString() << ".";
        break;
    }
}

void ZempHandler::onStopWork(ExitRunLoop* /*item*/) {
    mRunning = false;
    VEX_LOG(LogWarning) << "ZempHandler::onStopWork()";
}

void ZempHandler::onFileScanRequest(FileScanRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogError) << "ZempHandler::onFileScanRequest() FileScanRequest is NULL!";
        return;
    }
    const std::string directory = request->getDirectory();
    bool scanned = false;
    if (directory.empty()) {
        VEX_LOG(LogWarning) << "ZempHandler::onFileScanRequest() Directory in FileScanRequest is empty!";
    } else {
        scanned = scanDirectory(directory, *request);
    }
    request->setFileScanStatus(scanned ? FileScanRequest::ScanIsDone : FileScanRequest::ScanIsFailed);
    mMasterQueue.add(request);
}

bool ZempHandler::scanDirectory(const std::string& directory, FileScanRequest& request) {
    const std::unique_ptr<DIR, DirectoryCloser> stream(opendir(directory.c_str()));
    if (!stream) {
        VEX_LOG(LogWarning) << "ZempHandler::onFileScanRequest() Failed to open directory '" << directory
                            << "' (" << strerror(errno) << ").";
        return false;
    }
    VEX_LOG(LogInfo) << "ZempHandler::onFileScanRequest() Scanning directory='" << directory << "'.";
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream.get());
        if (entry == nullptr)
            break;
        scanEntry(directory, entry->d_name, request);
    }
    if (errno == 0)
        return true;
    VEX_LOG(LogWarning) << "ZempHandler::onFileScanRequest() Failed to read directory '" << directory << "' ("
                        << strerror(errno) << ").";
    return false;
}

void ZempHandler::scanEntry(const std::string& directory, const std::string& name, FileScanRequest& request) {
    const std::string path = directory + "/" + name;
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return;
    if (!S_ISREG(status.st_mode)) {
        VEX_LOG(LogDebug) << "ZempHandler::onFileScanRequest() Ignoring '" << name << "'.";
        return;
    }
    const unsigned size = status.st_size > MaximumSize ? OversizeMark : static_cast<unsigned>(status.st_size);
    VEX_LOG(LogDebug) << "ZempHandler::onFileScanRequest() Found file '" << name << "', size=" << size << ".";
    switch (FileFragment::parseFragmentType(name)) {
    case FileFragment::UnknownType:
    case FileFragment::SealFile: // which no name tells
        VEX_LOG(LogDebug) << "ZempHandler::onFileScanRequest() Not one of our files ('" << name << "').";
        break;
    case FileFragment::UpdateZempFile:
        VEX_LOG(LogInfo) << "ZempHandler::onFileScanRequest() Add Update ZEMP file '" << name
                         << "', size=" << size << ".";
        request.addFile(path, size);
        break;
    case FileFragment::ZempFile: // a whole image is not the update's business
        VEX_LOG(LogDebug) << "ZempHandler::onFileScanRequest() Ignore ZEMP file '" << name
                          << "', size=" << size << ".";
        break;
    case FileFragment::ZempStart:
    case FileFragment::ContentPart:
        VEX_LOG(LogInfo) << "ZempHandler::onFileScanRequest() Add file '" << name << "', size=" << size
                         << ".";
        request.addFile(path, size);
        break;
    }
}

void ZempHandler::onParseFileRequest(ParseFileRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogDebug) << "ZempHandler::onParseFileRequest() Parse request is NULL!";
        return;
    }
    request->setParseStatus(parse(*request));
    mMasterQueue.add(request);
}

ParseFileRequest::ParseStatus ZempHandler::parse(const ParseFileRequest& request) {
    const std::string name = request.getFilename();
    if (name.empty()) {
        VEX_LOG(LogDebug) << "ZempHandler::onParseFileRequest() Filename is empty in parse request!";
        return ParseFileRequest::ParseNoData;
    }
    struct stat status = {};
    if (stat(name.c_str(), &status) != 0) {
        VEX_LOG(LogWarning) << "ZempHandler::onParseFileRequest() Cannot stat filename='" << name << "'!";
        return ParseFileRequest::ParseNoData;
    }
    if (status.st_size <= 0 || status.st_size > MaximumSize) {
        VEX_LOG(LogWarning) << "ZempHandler::onParseFileRequest() Filename='" << name << "' has zero size! ("
                            << status.st_size << ").";
        return ParseFileRequest::ParseNoData;
    }
    if (request.getFragmentType() == FileFragment::ZempStart && status.st_size > MaximumStartFileSize) {
        VEX_LOG(LogWarning) << "ZempHandler::onParseFileRequest() Filename='" << name
                            << "' is too large for the start of an image! (" << status.st_size << ").";
        return ParseFileRequest::ParseFailed;
    }
    ZempParser* const parser = request.getZempParser();
    const auto size = static_cast<uint32_t>(status.st_size);
    if (parser != nullptr && parser->parseFile(name, size, request.getFragmentType())) {
        VEX_LOG(LogDebug) << "ZempHandler::onParseFileRequest() Successful parse of file='" << name << "'.";
        return ParseFileRequest::ParseCopmplete;
    }
    VEX_LOG(LogWarning) << "ZempHandler::onParseFileRequest() Failed parse of file='" << name << "'!";
    return ParseFileRequest::ParseFailed;
}

void ZempHandler::onFileDeleteRequest(FileDeleteRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "ZempHandler::onFileDeleteRequest() Request is NULL!";
        return;
    }
    request->setFileDeleteStatus(removeFile(request->getFilename()) ? FileDeleteRequest::FileDeleteComplete
                                                                    : FileDeleteRequest::FileDeleteFailed);
    mMasterQueue.add(request);
}

bool ZempHandler::removeFile(const std::string& name) {
    if (resolveRegularFile(name).empty()) {
        VEX_LOG(LogWarning) << "ZempHandler::onFileDeleteRequest() " << name << " is NOT a file!";
        return false;
    }
    if (unlink(name.c_str()) != 0) {
        const int error = errno;
        VEX_LOG(LogWarning) << "ZempHandler::onFileDeleteRequest() Failed to remove " << name << ".";
        VEX_LOG(LogWarning) << "ZempHandler::onFileDeleteRequest()  Error: " << strerror(error) << ".";
        return false;
    }
    return true;
}

void ZempHandler::onCompileUpdateZempFile(CompileUpdateZempRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "ZempHandler::onCompileUpdateZempFile() CompileUpdateZempRequest is NULL!";
        return;
    }
    request->setCompileStatus(CompileUpdateZempRequest::CompilePending);
    ZempCreator creator(request->getZempParts(), request->getVoucher());
    request->setCompileStatus(creator.createZemp(request->getFilename())
                                  ? CompileUpdateZempRequest::CompileComplete
                                  : CompileUpdateZempRequest::CompileFailed);
    request->setFailure(creator.getFailure());
    const std::string failure = failureText(creator.getFailure());
    if (request->getCompileStatus() == CompileUpdateZempRequest::CompileComplete)
        Noticeboard::instance().postSuccess(Noticeboard::Failure::Compile);
    else
        Noticeboard::instance().postFailure(Noticeboard::Failure::Compile,
                                            request->getFilename() + ": " + failure);
    mMasterQueue.add(request);
}
