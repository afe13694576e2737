// The requests' status names and what little they do themselves; DownloadRequest has a source of its own.
#include "common/VexStreamLog.h"
#include "workitems/CompileUpdateZempRequest.h"
#include "workitems/FileDeleteRequest.h"
#include "workitems/FileScanRequest.h"
#include "workitems/IsUpdateNeededRequest.h"
#include "workitems/ParseFileRequest.h"
#include "workitems/SetReadyForUpdateRequest.h"

namespace {
constexpr const char* UnknownStatus = "<unknown status>";
}

std::string FileScanRequest::getStatus() const {
    switch (mFileScanStatus) {
    case ScanPending:
        return "ScanPending";
    case ScanIsDone:
        return "ScanIsDone";
    case ScanIsFailed:
        return "ScanIsFailed";
    }
    return UnknownStatus;
}

std::string ParseFileRequest::getStatus() const {
    switch (mParseStatus) {
    case ParsePending:
        return "ParsePending";
    case ParseCopmplete:
        return "ParseCopmplete";
    case ParseNoData:
        return "ParseNoData";
    case ParseFailed:
        return "ParseFailed";
    }
    return "<unknown parse status>";
}

std::string ParseFileRequest::getFilename() const {
    return mFileFragment != nullptr ? mFileFragment->getFilename() : "";
}

FileFragment::FragmentType ParseFileRequest::getFragmentType() const {
    return mFileFragment != nullptr ? mFileFragment->getFragmentType() : FileFragment::UnknownType;
}

std::string ParseFileRequest::toString() const {
    return std::string(FwWorkItem::getString(getWorkItemType())) + " (" + getFilename() + ") " + getStatus();
}

std::string IsUpdateNeededRequest::getStatus() const {
    switch (mQuestionStatus) {
    case QuestionNotAnswered:
        return "QuestionNotAnswered";
    case QuestionAnswered:
        return "QuestionAnswered";
    }
    return UnknownStatus;
}

void IsUpdateNeededRequest::setIsUpdateNeeded(bool needed) {
    mIsUpdateNeeded = needed;
    mQuestionStatus = QuestionAnswered;
}

CompileUpdateZempRequest::CompileUpdateZempRequest(const std::string& filename,
                                                   const std::map<const unsigned, ZempPart*>& parts,
                                                   std::shared_ptr<const seal::Voucher> voucher)
    : FwWorkItem(FwWorkItem::CompileUpdateZempRequest),
      mFilename(filename),
      mZempParts(parts),
      mVoucher(std::move(voucher)) {
    VEX_LOG(LogDebug) << "CompileUpdateZempFileRequest::CompileUpdateZempFileRequest(" << mFilename << ")";
}

CompileUpdateZempRequest::~CompileUpdateZempRequest() {
    VEX_LOG(LogDebug) << "CompileUpdateZempFileRequest::~CompileUpdateZempFileRequest(" << mFilename << ")";
}

std::string CompileUpdateZempRequest::getStatus() const {
    switch (mCompileStatus) {
    case CompilePending:
        return "CompilePending";
    case CompileComplete:
        return "CompileComplete";
    case CompileFailed:
        return "CompileFailed";
    }
    return UnknownStatus;
}

std::string SetReadyForUpdateRequest::getStatus() const {
    switch (mSetReadyStatus) {
    case SetReadyPending:
        return "SetReadyPending";
    case SetReadyComplete:
        return "SetReadyComplete";
    case SetReadyFailed:
        return "SetReadyFailed";
    }
    return UnknownStatus;
}

FileDeleteRequest::FileDeleteRequest(const std::string& filename)
    : FwWorkItem(FwWorkItem::FileDeleteRequest), mFilename(filename) {
    VEX_LOG(LogDebug) << "FileDeleteRequest::FileDeleteRequest(" << mFilename << ")";
}

FileDeleteRequest::~FileDeleteRequest() {
    VEX_LOG(LogDebug) << "FileDeleteRequest::~FileDeleteRequest(" << mFilename << ")";
}

std::string FileDeleteRequest::getStatus() const {
    switch (mFileDeleteStatus) {
    case FileDeletePending:
        return "FileDeletePending";
    case FileDeleteComplete:
        return "FileDeleteComplete";
    case FileDeleteFailed:
        return "FileDeleteFailed";
    }
    return UnknownStatus;
}
