#include "update/rig/ScriptedServer.h"

#include "update/FileFragment.h"
#include "workers/AppendFile.h"
#include <algorithm>
#include <stdexcept>
#include <sys/stat.h>

namespace rig {

namespace {

constexpr uint64_t MaximumSpace = 1 << 30;
const std::string ErrorPage = "<html><body><h1>404 Not Found</h1></body></html>\n";

// The answer to a range as a server gives it: what there is of it, or an error page when nothing is.
imagefile::Bytes answerTo(const imagefile::Bytes& image, const std::string& range) {
    const size_t dash = range.find('-');
    const uint64_t first = std::stoull(range.substr(0, dash));
    const uint64_t last = std::min<uint64_t>(std::stoull(range.substr(dash + 1)), image.size() - 1);
    if (std::stoull(range.substr(dash + 1)) < first)
        throw std::runtime_error(range + " is asked for");
    if (first >= image.size())
        return imagefile::bytesOf(ErrorPage);
    return {image.begin() + static_cast<long>(first), image.begin() + static_cast<long>(last) + 1};
}

} // namespace

bool ScriptedServer::serve(DownloadRequest& request) {
    Fault now = fault;
    if (!faults.empty()) {
        now = faults.front();
        faults.pop_front();
    }
    FileFragment& fragment = *request.getFileFragment();
    const bool isCut = fragment.cutSurplus();
    if (now == Fault::OpenFails || !isCut) {
        request.setDownloadStatus(DownloadRequest::DownloadTransientFailure);
        request.setWithDownloader(!isCut);
        return !isCut;
    }
    if (fragment.isRangeOnDisk()) {
        request.setDownloadStatus(DownloadRequest::DownloadComplete);
        return true;
    }
    AppendFile file(fragment.getFilename(), fragment.getFileSize() + std::min(space, MaximumSpace));
    if (file.stream() == nullptr) {
        request.setDownloadStatus(DownloadRequest::DownloadTransientFailure);
        request.setWithDownloader(false);
        return false;
    }
    const std::string range = fragment.getCurlRange();
    mRanges.push_back(range);
    request.setDownloadStatus(DownloadRequest::DownloadStarted);
    const auto image = images.find(request.getUrl());
    imagefile::Bytes answer = imagefile::bytesOf(ErrorPage);
    if (image != images.end() && now != Fault::NotFound)
        answer = now == Fault::WholeFile ? image->second : answerTo(image->second, range);
    if (alter)
        alter(answer);
    const bool isForeign = now == Fault::WholeFile || answer == imagefile::bytesOf(ErrorPage);
    auto status = DownloadRequest::DownloadComplete;
    if (now == Fault::FlipBit && !answer.empty())
        answer[answer.size() / 2] ^= 0x10;
    if (now == Fault::Cut || now == Fault::Reset)
        answer.resize(answer.size() / 2);
    if (now == Fault::Stall || now == Fault::Refused)
        answer.clear();
    if (now == Fault::Cut || now == Fault::Stall || now == Fault::Refused)
        status = DownloadRequest::DownloadTransientFailure;
    if (now == Fault::Reset)
        status = DownloadRequest::DownloadPermanentFailure;
    if (isForeign)
        fragment.setForeignFrom(fragment.getFileSize());
    fwrite(answer.data(), 1, answer.size(), file.stream());
    request.setOutOfSpace(!file.close());
    if (request.isOutOfSpace())
        status = DownloadRequest::DownloadPermanentFailure;
    request.setDownloadStatus(status);
    struct stat written = {};
    if (stat(fragment.getFilename().c_str(), &written) == 0)
        fragment.setFileSize(static_cast<unsigned>(written.st_size));
    return true;
}

} // namespace rig
