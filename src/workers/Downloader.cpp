#include "workers/Downloader.h"

#include "common/Noticeboard.h"
#include "common/VexStreamLog.h"
#include "update/FileFragment.h"
#include "workers/AppendFile.h"
#include "workers/EasyHandle.h"
#include "workitems/DownloadRequest.h"
#include "workitems/Events.h"
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr long HttpOk = 200;
constexpr long HttpPartialContent = 206;

// Failures that another try may cure. All other codes but CURLE_OK are permanent.
constexpr CURLcode TransientCodes[] = {
    CURLE_COULDNT_RESOLVE_HOST, CURLE_COULDNT_CONNECT,      CURLE_PARTIAL_FILE,
    CURLE_OPERATION_TIMEDOUT,   CURLE_BAD_CONTENT_ENCODING,
};

bool isTransient(CURLcode code) {
    return std::find(std::begin(TransientCodes), std::end(TransientCodes), code) != std::end(TransientCodes);
}

// Prepares the transfer of `range`, or of the whole resource when it is empty. Not CURLE_OK when the transfer
// could not be what was asked for.
CURLcode setOptions(EasyHandle& handle, const std::string& url, const std::string& range, FILE* stream,
                    bool isPaced) {
    CURLcode code = handle.set(CURLOPT_URL, url.c_str());
    if (code == CURLE_OK && isPaced)
        code = handle.set(CURLOPT_MAX_RECV_SPEED_LARGE, curl_off_t{Downloader::MaximumReceiveSpeed});
    if (handle.set(CURLOPT_LOW_SPEED_LIMIT, Downloader::LowSpeedLimit) != CURLE_OK) {
        VEX_LOG(LogInfo) << "Downloader::download() Failed to set low speed limit.";
    }
    if (handle.set(CURLOPT_LOW_SPEED_TIME, Downloader::LowSpeedSeconds) != CURLE_OK) {
        VEX_LOG(LogInfo) << "Downloader::download() Failed to set low speed time.";
    }
    if (code == CURLE_OK)
        code = handle.set(CURLOPT_WRITEDATA, stream);
    if (code == CURLE_OK && !range.empty())
        code = handle.set(CURLOPT_RANGE, range.c_str());
    return code;
}

// Says now and then how far a transfer is.
class ProgressLog {
  public:
    // `total` is 0 when it is not known.
    ProgressLog(uint64_t total, std::chrono::microseconds interval) : mTotal(total), mInterval(interval) {}

    void operator()(uint64_t size) {
        const Clock::time_point now = Clock::now();
        if (mHasBegun && now - mTime < mInterval)
            return;
        if (mHasBegun) {
            const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now - mTime).count();
            VEX_LOG(LogInfo) << "Downloader::download() " << size << " of "
                             << (mTotal != 0 ? std::to_string(mTotal) : "?") << " bytes, "
                             << (size - mSize) * 1000 / static_cast<uint64_t>(std::max<int64_t>(ms, 1))
                             << " bytes per second.";
        }
        mHasBegun = true;
        mTime = now;
        mSize = size;
    }

  private:
    using Clock = std::chrono::steady_clock;

    const uint64_t mTotal;
    const std::chrono::microseconds mInterval;
    bool mHasBegun = false;
    Clock::time_point mTime; // of the last line, or the begin
    uint64_t mSize = 0;      // then
};

} // namespace

Downloader::Downloader(wqueue<FwWorkItem*>& in, wqueue<FwWorkItem*>& master,
                       std::chrono::microseconds pieceInterval, std::chrono::microseconds progressInterval)
    : workQueue(in),
      masterQueue(master),
      mProgressInterval(progressInterval),
      mPace(PieceSize, pieceInterval) {}

Downloader::~Downloader() {
    mPace.interrupt();
    cancelAndJoin();
}

void* Downloader::run() {
    const CancellationBlock block;
    VEX_LOG(LogDebug) << "Downloader::run()";
    running = true;
    while (running) {
        FwWorkItem* item = workQueue.remove();
        if (item != nullptr) {
            onWorkItem(item);
        } else {
            VEX_LOG(LogWarning) << "Downloader::run() Got NULL pointer work item from queue!";
        }
    }
    VEX_LOG(LogInfo) << "Downloader::run() Stopped.";
    return nullptr;
}

void Downloader::onWorkItem(FwWorkItem* item) {
    if (item == nullptr) {
        VEX_LOG(LogDebug) << "Downloader::onWorkItem() Work item is NULL!";
        return;
    }
    VEX_LOG(LogDebug) << "Downloader::onWorkItem(" << item->toString() << ").";
    switch (item->getWorkItemType()) {
    case FwWorkItem::DownloadRequest:
        onDownloadRequest(static_cast<DownloadRequest*>(item));
        break;
    case FwWorkItem::ExitRunLoop:
        onStopWork(static_cast<ExitRunLoop*>(item));
        break;
    default:
        VEX_LOG(LogInfo) << "Downloader::onWorkItem() No handling of " << item->toString() << ".";
        break;
    }
}

void Downloader::onStopWork(ExitRunLoop* /*item*/) {
    VEX_LOG(LogWarning) << "Downloader::onStopWork()";
    running = false;
}

void Downloader::onDownloadRequest(DownloadRequest* request) {
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "Downloader::onDownloadRequest() DownloadRequest is NULL!";
        return;
    }
    bool handBack = false;
    switch (request->getDownloadStatus()) {
    case DownloadRequest::DownloadNotStarted:
    case DownloadRequest::DownloadTransientFailure:
        handBack = download(request);
        break;
    case DownloadRequest::DownloadStarted:
        VEX_LOG(LogWarning) << "Downloader::onDownloadRequest() Already started " << request->toString()
                            << " " << request->getStatus() << "'!";
        break;
    case DownloadRequest::DownloadComplete:
        VEX_LOG(LogWarning) << "Downloader::onDownloadRequest() Why is a complete request here? "
                            << request->toString() << " " << request->getStatus() << "'!";
        handBack = true;
        break;
    case DownloadRequest::DownloadPermanentFailure:
        VEX_LOG(LogWarning) << "Downloader::onDownloadRequest() Why is a permanent failure request here? "
                            << request->toString() << " " << request->getStatus() << "'!";
        handBack = true;
        break;
    }
    // The last touch: from here on the request is the master's again.
    if (handBack)
        masterQueue.add(request);
    else
        request->setWithDownloader(false);
}

// What cannot be transferred at all fails for good.
bool Downloader::checkRequest(DownloadRequest* request) {
    if (request->getUrl().empty()) {
        VEX_LOG(LogWarning) << "Downloader::download() No URL defined in DownloadRequest!";
    } else if (request->getFileFragment() == nullptr) {
        VEX_LOG(LogWarning) << "Downloader::download() FileFragment is NULL!";
    } else if (request->getFileFragment()->getFilename().empty()) {
        VEX_LOG(LogWarning) << "Downloader::download() No filename defined in FileFragment!";
    } else {
        return true;
    }
    request->setDownloadStatus(DownloadRequest::DownloadPermanentFailure);
    return false;
}

bool Downloader::download(DownloadRequest* request) {
    VEX_LOG(LogDebug) << "Downloader::download().";
    if (request == nullptr) {
        VEX_LOG(LogWarning) << "Downloader::download() DownloadRequest is NULL!";
        return false;
    }
    if (!checkRequest(request))
        return true;
    const bool handBack = transfer(request);
    mFile.reset();
    mHandle.reset();
    return handBack;
}

bool Downloader::transfer(DownloadRequest* request) {
    FileFragment* const fragment = request->getFileFragment();
    const std::string name = fragment->getFilename();

    mHandle = std::make_unique<EasyHandle>();
    if (!mHandle->isValid()) {
        VEX_LOG(LogWarning) << "Downloader::download() Failed to init curl!";
        return false;
    }
    const bool isPaced = VexStreamLog::getLevel() < LogDebug; // at debug level an engineer watches
    const bool isCut = fragment->cutSurplus();
    const uint64_t rangeSize = fragment->getRangeSize();
    mFile = std::make_unique<AppendFile>(
        name, (rangeSize != 0 ? rangeSize : uint64_t{FileFragment::MaximumFileSize}) + AnswerSlack,
        isPaced ? &mPace : nullptr, ProgressLog(rangeSize, mProgressInterval));
    if (mFile->stream() == nullptr) {
        VEX_LOG(LogWarning) << "Downloader::download() Failure opening file '" << name << "'.";
        VEX_LOG(LogWarning) << "Downloader::download() " << strerror(mFile->error());
        Noticeboard::instance().postFailure(Noticeboard::Failure::File,
                                            name + ": " + strerror(mFile->error()));
        request->setDownloadStatus(DownloadRequest::DownloadTransientFailure);
        return false;
    }
    if (!isCut) {
        request->setDownloadStatus(DownloadRequest::DownloadTransientFailure);
        return true;
    }
    if (fragment->isRangeOnDisk()) {
        VEX_LOG(LogInfo) << "Downloader::download() Nothing left to download to '" << name << "'.";
        request->setDownloadStatus(DownloadRequest::DownloadComplete);
        return true;
    }
    const std::string range = fragment->getCurlRange();
    VEX_LOG(LogInfo) << "Downloader::download() Download " << range << " to '" << name << "'.";
    Noticeboard::instance().postTransfer({name, range, rangeSize});
    CURLcode code = setOptions(*mHandle, request->getUrl(), range, mFile->stream(), isPaced);
    request->setDownloadStatus(DownloadRequest::DownloadStarted);
    if (code == CURLE_OK)
        code = mHandle->perform();
    waitIfStopped();
    checkStatus(fragment);
    setResult(request, code, *mFile);
    waitIfStopped();
    recordFileSize(fragment);
    return true;
}

// A pause that was interrupted spoils the transfer, which must not be answered: the thread is about to be
// cancelled.
void Downloader::waitIfStopped() {
    while (mPace.isInterrupted()) {
        const CancellationPoint point;
        pause();
    }
}

// An answer of another status than asked for has other bytes than asked for, unless it is the whole image and
// the image's first bytes were asked for.
void Downloader::checkStatus(FileFragment* fragment) {
    const long status = mHandle->getHttpStatus();
    const bool isRange = fragment->getRangeSize() != 0;
    if (status == 0)
        return;
    if (status == (isRange ? HttpPartialContent : HttpOk)) {
        Noticeboard::instance().postSuccess(Noticeboard::Failure::Http);
        return;
    }
    Noticeboard::instance().postFailure(Noticeboard::Failure::Http,
                                        "the server answered with status " + std::to_string(status) +
                                            (status == HttpOk ? ", it ignores byte ranges" : ""));
    if (status == HttpOk)
        VEX_LOG(LogWarning) << "Downloader::download() The server answered with status " << status
                            << ", the server ignores byte ranges.";
    else
        VEX_LOG(LogWarning) << "Downloader::download() The server answered with status " << status << ".";
    const uint64_t sizeBefore = mFile->initialSize();
    if (status != HttpOk || sizeBefore != 0 || fragment->getRangeStart() != 0)
        fragment->setForeignFrom(static_cast<unsigned>(sizeBefore));
}

// Closes the file and sets the request's status. Bytes that did not reach the file make a success a failure.
void Downloader::setResult(DownloadRequest* request, int result, AppendFile& file) {
    const bool written = file.close();
    const auto code = static_cast<CURLcode>(result);
    request->setOutOfSpace(file.error() == ENOSPC || file.error() == EDQUOT);
    if (!written) {
        VEX_LOG(LogWarning) << "Downloader::download() Failure writing file '"
                            << request->getFileFragment()->getFilename() << "' (" << strerror(file.error())
                            << ").";
        Noticeboard::instance().postFailure(Noticeboard::Failure::File,
                                            request->getFileFragment()->getFilename() + ": " +
                                                strerror(file.error()));
    } else {
        Noticeboard::instance().postSuccess(Noticeboard::Failure::File);
    }
    if (code == CURLE_OK) {
        Noticeboard::instance().postSuccess(Noticeboard::Failure::Transfer);
        request->setDownloadStatus(written ? DownloadRequest::DownloadComplete
                                           : DownloadRequest::DownloadPermanentFailure);
        return;
    }
    const bool transient = isTransient(code);
    VEX_LOG(LogInfo) << "Downloader::download() Curl command failed! (Code=" << curl_easy_strerror(code)
                     << ", " << result << (transient ? ") Transient." : ") Permanent.");
    if (written) // else the failed write is what the library complains about
        Noticeboard::instance().postFailure(Noticeboard::Failure::Transfer, curl_easy_strerror(code));
    request->setDownloadStatus(transient ? DownloadRequest::DownloadTransientFailure
                                         : DownloadRequest::DownloadPermanentFailure);
}

// Whatever the result, so that the next fetch goes on where this one ended.
void Downloader::recordFileSize(FileFragment* fragment) {
    const std::string name = fragment->getFilename();
    struct stat status = {};
    if (stat(name.c_str(), &status) != 0) {
        VEX_LOG(LogError) << "Downloader::download() Cannot stat filename='" << name << "'!";
        return;
    }
    if (status.st_size < 0 || status.st_size > INT32_MAX) { // sizes have 31 bits on the terminal
        VEX_LOG(LogWarning) << "Downloader::download() Filename='" << name << "' has negative size! ("
                            << status.st_size << ").";
        return;
    }
    VEX_LOG(LogDebug) << "Downloader::download() Filename='" << name << "' has size " << status.st_size
                      << ".";
    fragment->setFileSize(static_cast<unsigned>(status.st_size));
}
