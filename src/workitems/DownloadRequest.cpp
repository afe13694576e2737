#include "workitems/DownloadRequest.h"

#include "common/VexStreamLog.h"
#include "common/maskedurl.h"
#include "update/FileFragment.h"

DownloadRequest::DownloadRequest(const std::string& url, FileFragment* fragment)
    : FwWorkItem(FwWorkItem::DownloadRequest), mUrl(url), mFileFragment(fragment) {
    VEX_LOG(LogDebug) << "DownloadRequest::DownloadRequest(" << maskedUrl(mUrl) << ", " << toString() << ")";
}

DownloadRequest::~DownloadRequest() {
    VEX_LOG(LogDebug) << "DownloadRequest::~DownloadRequest(" << maskedUrl(mUrl) << ", " << getStatus()
                      << ")";
}

const char* DownloadRequest::getString(DownloadStatus status) {
    switch (status) {
    case DownloadNotStarted:
        return "DownloadNotStarted";
    case DownloadStarted:
        return "DownloadStarted";
    case DownloadComplete:
        return "DownloadComplete";
    case DownloadTransientFailure:
        return "DownloadTransientFailure";
    case DownloadPermanentFailure:
        return "DownloadPermanentFailure";
    }
    return "<unknown download status>";
}

void DownloadRequest::setDownloadStatus(DownloadStatus status) {
    mDownloadStatus = status;
    if (status == DownloadTransientFailure || status == DownloadPermanentFailure)
        ++mDownloadFailures;
}

void DownloadRequest::resetRequest() {
    VEX_LOG(LogDebug) << "DownloadRequest::DownloadRequest() Resetting request " << toString() << ".";
    mDownloadStatus = DownloadNotStarted;
    if (mFileFragment != nullptr)
        mFileFragment->truncateFile();
}

std::string DownloadRequest::toString() const {
    return std::string(FwWorkItem::getString(getWorkItemType())) + " (" +
           (mFileFragment != nullptr ? mFileFragment->toString() : "<NULL>") + ") " + getStatus();
}
