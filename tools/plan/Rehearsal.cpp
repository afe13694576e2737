#include "plan/Rehearsal.h"

#include "common/VexStreamLog.h"
#include "image/SwBlob.h"
#include "image/ZempCreator.h"
#include "image/ZempParser.h"
#include "main/ArgParser.h"
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>

namespace plan {

namespace {

// Bytes of a part that are fetched from a web server to look at it: what the daemon's first request brings.
constexpr uint64_t HeadBytes = uint64_t{FileFragment::ContentPartInitialSize} + 1;

// For the image's start and an update image of headers, each at most 128 KiB and a release text.
constexpr uint64_t NeededSpace = 1000000;

constexpr size_t MaximumRequests = 1000; // far beyond what 40 elements take

std::string makeDirectory() {
    const char* const place = getenv("TMPDIR");
    std::string name = std::string(place != nullptr && *place != '\0' ? place : "/tmp") + "/fw_plan-XXXXXX";
    if (mkdtemp(&name[0]) == nullptr)
        throw std::runtime_error("cannot make a temporary directory '" + name + "': " + strerror(errno));
    return name;
}

// A disk that is full here must not be taken for a fault of the image.
void checkSpace(const std::string& directory) {
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(directory, error);
    if (!error && space.available < NeededSpace)
        throw std::runtime_error("'" + std::filesystem::path(directory).parent_path().string() +
                                 "' has less than " + std::to_string(NeededSpace) +
                                 " bytes free for temporary files");
}

// Lets the compiler write software parts as headers only, so that it needs none of their files.
class WithoutBodies {
  public:
    explicit WithoutBodies(const std::map<const unsigned, ZempPart*>& parts) {
        for (const auto& [index, part] : parts) {
            if (dynamic_cast<SwBlob*>(part) == nullptr || !part->isBodyValid())
                continue;
            mBytes += part->getSizeInZempFile() - part->getHeaderLength();
            mParts.push_back(part);
        }
        for (ZempPart* const part : mParts)
            part->setIsBodyValid(false);
    }
    ~WithoutBodies() {
        for (ZempPart* const part : mParts)
            part->setIsBodyValid(true);
    }
    WithoutBodies(const WithoutBodies&) = delete;
    WithoutBodies& operator=(const WithoutBodies&) = delete;

    // What the bodies take in an image.
    uint64_t bodyBytes() const { return mBytes; }

  private:
    uint64_t mBytes = 0;
    std::vector<ZempPart*> mParts; // whose bodies are valid
};

} // namespace

Rehearsal::Rehearsal(imagefile::ImageSource& image, const RecordPaths& record, UpdatePlan& plan)
    : mImage(image),
      mPlan(plan),
      mSavedDirectory(ArgParser::getInstance()->getDownloadDirectory()),
      mSavedTempFile(ZempCreator::getTempFilename()),
      mDirectory(makeDirectory()),
      mSavedLog(std::clog.rdbuf(mLog.rdbuf())),
      mDaemon(record) {
    ArgParser::setDownloadDirectory(mDirectory);
    ZempCreator::setTempFilename(mDirectory + "/zempparts");
    VexStreamLog::setLevel(LogWarning);
}

Rehearsal::~Rehearsal() {
    VexStreamLog::setLevel(static_cast<LogPriority>(-1)); // the daemon's last words are not wanted
    std::clog.rdbuf(mSavedLog);
    ArgParser::setDownloadDirectory(mSavedDirectory);
    ZempCreator::setTempFilename(mSavedTempFile);
    std::error_code ignored;
    std::filesystem::remove_all(mDirectory, ignored);
}

void Rehearsal::run(const std::function<bool()>& isStopped) {
    checkSpace(mDirectory);
    const std::string url = imagefile::isUrl(mPlan.image) ? mPlan.image : "http://server/image.zemp";
    mDaemon.mMasterQueue.add(
        new ConfigDbStatusEvent(ConfigDbStatusEvent::ConfigGetNewFirmware, mPlan.release, url, false));
    bool isBusy = true;
    while (isBusy && !mDaemon.isTerminated() && mPlan.requests.size() < MaximumRequests) {
        if (isStopped && isStopped())
            throw std::runtime_error("stopped");
        mDaemon.onFdLoopTimerTimeout();
        if (mDaemon.action() == FwAction::WaitForFwUpdate) {
            mPlan.isReady = true;
            return;
        }
        isBusy = serveFileHandler() || serveMonitor() || serveDownloader();
    }
    std::istringstream lines(mLog.str());
    for (std::string line; std::getline(lines, line);)
        if (std::find(mPlan.complaints.begin(), mPlan.complaints.end(), line) == mPlan.complaints.end())
            mPlan.complaints.push_back(line);
}

const SuumBlob* Rehearsal::manifest() const {
    return mDaemon.mUpdateHandler ? mDaemon.mUpdateHandler->getSuum() : nullptr;
}

bool Rehearsal::serveMonitor() {
    if (mDaemon.mConfigDbQueue.size() == 0)
        return false;
    FwWorkItem* const item = mDaemon.mConfigDbQueue.remove();
    if (item->getWorkItemType() == FwWorkItem::IsUpdateNeededRequest)
        static_cast<IsUpdateNeededRequest*>(item)->setIsUpdateNeeded(true);
    else
        static_cast<SetReadyForUpdateRequest*>(item)->setSetReadyStatus(
            SetReadyForUpdateRequest::SetReadyComplete);
    mDaemon.mMasterQueue.add(item);
    return true;
}

bool Rehearsal::serveFileHandler() {
    if (mDaemon.mZempHandlerQueue.size() == 0)
        return false;
    FwWorkItem* const item = mDaemon.mZempHandlerQueue.remove();
    switch (item->getWorkItemType()) {
    case FwWorkItem::FileScanRequest: // nothing there yet
        static_cast<FileScanRequest*>(item)->setFileScanStatus(FileScanRequest::ScanIsDone);
        break;
    case FwWorkItem::ParseFileRequest:
        parse(*static_cast<ParseFileRequest*>(item));
        break;
    case FwWorkItem::FileDeleteRequest:
        remove(static_cast<FileDeleteRequest*>(item)->getFilename().c_str());
        static_cast<FileDeleteRequest*>(item)->setFileDeleteStatus(FileDeleteRequest::FileDeleteComplete);
        break;
    case FwWorkItem::CompileUpdateZempRequest:
        static_cast<CompileUpdateZempRequest*>(item)->setCompileStatus(
            compile(*static_cast<CompileUpdateZempRequest*>(item)) ? CompileUpdateZempRequest::CompileComplete
                                                                   : CompileUpdateZempRequest::CompileFailed);
        break;
    default:
        throw std::logic_error("no work for the file handler: " + item->toString());
    }
    mDaemon.mMasterQueue.add(item);
    return true;
}

bool Rehearsal::serveDownloader() {
    if (mDaemon.mDownloaderQueue.size() == 0)
        return false;
    auto* const request = static_cast<DownloadRequest*>(mDaemon.mDownloaderQueue.remove());
    download(*request);
    mDaemon.mMasterQueue.add(request);
    return true;
}

void Rehearsal::download(DownloadRequest& item) {
    FileFragment& fragment = *item.getFileFragment();
    Request request;
    request.range = fragment.getCurlRange();
    request.first = uint64_t{fragment.getRangeStart()} + fragment.getFileSize();
    const uint64_t end = std::min<uint64_t>(uint64_t{fragment.getRangeEnd()} + 1, mImage.size());
    const bool isStart = fragment.getFragmentType() == FileFragment::ZempStart;
    const bool isMore = fragment.getFileSize() != 0;
    if (isStart)
        request.what = isMore ? Request::RestOfStart : Request::Start;
    else
        request.what = isMore ? Request::Body : Request::Header;
    if (end <= request.first) {
        VEX_LOG(LogWarning) << "The image has no bytes " << request.range << ".";
        item.setDownloadStatus(DownloadRequest::DownloadTransientFailure);
    } else {
        request.bytes = end - request.first;
        if (isStart) {
            mImage.load(request.first, request.bytes);
            std::ofstream(fragment.getFilename(), std::ios::binary | std::ios::app)
                .write(reinterpret_cast<const char*>(mImage.data() + request.first),
                       static_cast<std::streamsize>(request.bytes));
        }
        fragment.setFileSize(fragment.getFileSize() + static_cast<unsigned>(request.bytes));
        item.setDownloadStatus(DownloadRequest::DownloadComplete);
    }
    mRequestOf[&fragment] = mPlan.requests.size();
    mPlan.requests.push_back(request);
}

void Rehearsal::parse(ParseFileRequest& request) {
    const FileFragment& fragment = *request.getFileFragment();
    bool isParsed = false;
    if (fragment.getFragmentType() == FileFragment::ZempStart)
        isParsed = request.getZempParser()->parseFile(fragment.getFilename(), fragment.getFileSize(),
                                                      FileFragment::ZempStart);
    else
        isParsed = parsePart(request);
    request.setParseStatus(isParsed ? ParseFileRequest::ParseCopmplete : ParseFileRequest::ParseFailed);
}

// Parses a part in the image in place of the file that it would be in.
bool Rehearsal::parsePart(ParseFileRequest& request) {
    const FileFragment& fragment = *request.getFileFragment();
    ZempParser& parser = *request.getZempParser();
    const uint64_t offset = fragment.getRangeStart();
    const uint64_t onDisk = fragment.getFileSize();
    const uint64_t readable = mImage.isLocal() ? onDisk : std::min(onDisk, HeadBytes);
    mImage.load(offset, readable);
    const uint8_t* const data = mImage.data() + offset;
    // One part only: what follows it in the image is not looked at in a content part's file.
    const zemp_content_header_t* const header =
        parser.parseContentHeader(data, static_cast<uint32_t>(readable));
    if (header == nullptr)
        return false;
    const uint64_t size =
        uint64_t{header->hdr_length} + header->body_length + ZempFormat::padding(header->body_length);
    parser.parseContentParts(data, static_cast<uint32_t>(std::min(readable, size)), false);
    ZempPart* const part = parser.getZempPartAt(0);
    if (part == nullptr)
        return false;
    if (readable < onDisk && onDisk >= uint64_t{header->hdr_length} + header->body_length) {
        part->setIsBodyValid(true); // not fetched, so taken to be sound
        part->setUsedDataSize(part->getSizeInZempFile());
    }
    Request& noted = mPlan.requests[mRequestOf[&fragment]];
    noted.part = part->getPartname();
    if (noted.what == Request::Header && part->isBodyValid() && part->getBodyLength() > 0)
        noted.what = Request::HeaderAndBody;
    const bool isKnown = std::any_of(mPlan.parts.begin(), mPlan.parts.end(),
                                     [offset](const PlacedPart& known) { return known.offset == offset; });
    if (!isKnown)
        mPlan.parts.push_back({part->getPartname(), offset, size});
    return true;
}

// The real compiler writes an image of headers; what its bodies would take is added.
bool Rehearsal::compile(const CompileUpdateZempRequest& request) {
    const std::string file = mDirectory + "/update";
    const WithoutBodies withoutBodies(request.getZempParts());
    ZempCreator creator(request.getZempParts());
    if (!creator.createZemp(file))
        return false;
    mPlan.updateImageBytes = std::filesystem::file_size(file) + withoutBodies.bodyBytes();
    return true;
}

} // namespace plan
