// Results of parses: the file gets its versioned name, its parts are taken over.
#include "common/VexStreamLog.h"
#include "image/SwBlob.h"
#include "image/ZempParser.h"
#include "installed/SuuInfo.h"
#include "update/UpdateHandler.h"
#include <iomanip>

namespace {

std::vector<ZempPart*> partsOf(const ZempParser* parser) {
    std::vector<ZempPart*> parts;
    for (uint32_t i = 0; parser != nullptr && i < parser->getNumberOfZempParts(); ++i) {
        if (ZempPart* part = parser->getZempPartAt(i))
            parts.push_back(part);
    }
    return parts;
}

} // namespace

void UpdateHandler::onParseResult(ParseFileRequest* request, const SuuInfo* suuInfo) {
    if (request == nullptr) {
        VEX_LOG(LogError) << "UpdateHandler::onParseResult() Response is NULL!";
        return;
    }
    const std::string filename = request->getFilename();
    switch (request->getParseStatus()) {
    case ParseFileRequest::ParsePending:
        VEX_LOG(LogWarning) << "UpdateHandler::onParseResult() Parse pending response (" << filename << ").";
        deleteParseFileRequest(request);
        askIfIdle();
        return;
    case ParseFileRequest::ParseNoData:
        VEX_LOG(LogWarning) << "UpdateHandler::onParseResult() No data response (" << filename << ").";
        giveUpParsed(request);
        askIsUpdateNeeded();
        break;
    case ParseFileRequest::ParseFailed:
        VEX_LOG(LogWarning) << "UpdateHandler::onParseResult() Negative response (" << filename << ").";
        giveUpParsed(request);
        askIsUpdateNeeded();
        break;
    case ParseFileRequest::ParseCopmplete:
        VEX_LOG(LogDebug) << "UpdateHandler::onParseResult() Parse complete response.";
        takeOverParsed(request, suuInfo);
        break;
    }

    logPendingRequests();
    const size_t parses = mRequests.count(FwWorkItem::ParseFileRequest);
    const size_t downloads = mRequests.count(FwWorkItem::DownloadRequest);
    if (mScanRequest != nullptr) {
        VEX_LOG(LogDebug) << "UpdateHandler::onParseResult() Still got a pending FileScanRequest.";
    } else if (parses > 0) {
        VEX_LOG(LogDebug) << "UpdateHandler::onParseResult() Pending parse file responses (" << parses
                          << ").";
    } else if (downloads > 0) {
        VEX_LOG(LogDebug) << "UpdateHandler::onParseResult() Pending file downloads (" << downloads << ").";
    } else {
        VEX_LOG(LogDebug) << "UpdateHandler::onParseResult() All scan, download and parse has completed.";
        setNextAction(FwAction::Cause::AllParsed);
        askIsUpdateNeeded();
    }
    askIfIdle();
}

// The file is of no use: it goes, and what was parsed of it too.
void UpdateHandler::giveUpParsed(ParseFileRequest* request) {
    const FileFragment* fragment = request->getFileFragment();
    if (fragment != nullptr && fragment->getFragmentType() == FileFragment::ZempStart &&
        !fragment->isExistingFile() && !mRequests.isStale(request))
        mSeal.forget(); // the start is as the server has it, so it may have another seal
    createFileDeleteRequest(request->getFilename());
    freeParsedParts(*request);
    deleteParseFileRequest(request);
}

void UpdateHandler::takeOverParsed(ParseFileRequest* request, const SuuInfo* suuInfo) {
    ZempParser* parser = request->getZempParser();
    FileFragment* fragment = request->getFileFragment();
    if (parser == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::onParseResult() No ZempParser in response!";
        giveUpParsed(request);
        return;
    }
    const std::vector<ZempPart*> parts = partsOf(parser);
    if (fragment == nullptr || parts.empty()) {
        VEX_LOG(LogWarning) << "UpdateHandler::onParseResult() No ZempParts in response!";
        giveUpParsed(request);
        return;
    }
    if (!changeToVersionedFilename(fragment->getFilename(), parts.front()->getPartType(),
                                   mRequests.getVersion(request))) {
        VEX_LOG(LogWarning) << "UpdateHandler::onParseResult() Failed to update filename of FileFragment!";
        giveUpParsed(request);
        return;
    }
    const unsigned expected = parser->getNumberOfZempParts();
    const unsigned transferred = transferZempParts(parser, fragment->getFilename(), suuInfo);
    deleteParseFileRequest(request);
    if (transferred != expected) {
        VEX_LOG(LogError) << "UpdateHandler::onParseResult() Transfer of ZEMP parts failed!";
        VEX_LOG(LogError) << "UpdateHandler::onParseResult() Expected=" << expected
                          << " transfered=" << transferred;
        VEX_LOG(LogError) << "UpdateHandler::onParseResult() Exit!";
        exitRunLoop();
        return;
    }
    VEX_LOG(LogInfo) << "UpdateHandler::onParseResult() Transfered " << transferred
                     << " ZEMP parts to update handler.";
}

unsigned UpdateHandler::transferZempParts(ZempParser* parser, const std::string& filename,
                                          const SuuInfo* suuInfo) {
    if (parser == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::transferZempParts() Parser is NULL!";
        return 0;
    }
    unsigned count = 0;
    for (uint32_t i = 0; i < parser->getNumberOfZempParts(); ++i) {
        ZempPart* part = parser->getZempPartAt(i);
        if (part == nullptr) {
            VEX_LOG(LogWarning) << "UpdateHandler::transferZempParts() Found NULL ZempPart in the parser!";
            continue;
        }
        part->setFilename(filename);
        switch (part->getPartType()) {
        case ZempPart::ZempHeader:
            updateZempHeader(static_cast<ZempHeaderPart*>(part));
            break;
        case ZempPart::KernelBlob:
        case ZempPart::Kernel4812Blob:
        case ZempPart::RootBlob:
        case ZempPart::AppBlob:
        case ZempPart::ThirdAppBlob:
        case ZempPart::UnspecifiedBlob:
            deleteIfNotCurrent(part, suuInfo);
            updateZempPart(part);
            break;
        case ZempPart::ReleaseHeader:
        case ZempPart::SuumBlob:
        case ZempPart::UnspecifiedSwBlob:
            updateZempPart(part);
            break;
        case ZempPart::UnspecifiedPart:
            VEX_LOG(LogWarning) << "UpdateHandler::transferZempParts() Unhandled ZempPart "
                                << ZempPart::getString(part->getPartType());
            delete part;
            continue;
        }
        ++count;
    }
    return count;
}

// While no update is needed, a part that is not the installed one is of no use.
void UpdateHandler::deleteIfNotCurrent(ZempPart* part, const SuuInfo* suuInfo) {
    const auto* blob = dynamic_cast<const SwBlob*>(part);
    if (mConfigDbStatus != ConfigDbStatusEvent::ConfigNoUpdateNeeded || suuInfo == nullptr ||
        blob == nullptr || !blob->isExtendedHeaderValid())
        return;
    const std::string name = part->getPartType() == ZempPart::Kernel4812Blob ? "kernel" : part->getPartname();
    if (!suuInfo->isCurrentContentPart(name, blob->getMajorVersion(), blob->getMinorVersion(),
                                       static_cast<unsigned char>(blob->getBuildVersion())))
        createFileDeleteRequest(part->getFilename());
}

bool UpdateHandler::changeToVersionedFilename(const std::string& filename, ZempPart::PartType partType,
                                              const std::string& version) {
    FileFragment* fragment = getFileFragment(filename);
    if (fragment == nullptr)
        return false;
    fragment->setZempPartType(partType);
    const std::string versioned =
        FileFragment::getVersionedFilename(version, fragment->getFragmentType(), partType);
    const FileFragment* holder = getFileFragment(versioned);
    if (holder != nullptr && holder != fragment && filename.find(version) == std::string::npos) {
        if (!mayReplace(holder, fragment)) {
            VEX_LOG(LogInfo) << "UpdateHandler::changeToVersionedFilename() '" << versioned
                             << "' is taken, keep '" << filename << "'.";
            return true;
        }
    }
    if (!fragment->changeFilename(version))
        return false;
    if (fragment->getFilename() != filename) {
        fragment->setIsFoundInScan(true); // a scan that is out may know it by its old name only
        if (holder != nullptr)
            deleteFileFragment(versioned); // its file has been overwritten
        mFragments.erase(filename);
        addFileFragment(fragment);
    }
    return true;
}

// Whether the file of `holder` may be overwritten by the parsed file of `fragment`: it holds the same part,
// is not in use, and nothing good in it would be lost.
bool UpdateHandler::mayReplace(const FileFragment* holder, const FileFragment* fragment) const {
    const std::string name = holder->getFilename();
    if (isFileFragmentInUse(holder) || isFileDeleteRequested(name))
        return false;
    std::map<std::string, const ZempPart*> newParts;
    for (const ParseFileRequest* request : mRequests.list<ParseFileRequest>(FwWorkItem::ParseFileRequest)) {
        if (request->getFileFragment() != fragment)
            continue;
        for (ZempPart* part : partsOf(request->getZempParser()))
            newParts.emplace(part->getMapKey(), part);
    }
    bool isSamePart = false;
    for (const auto& [key, part] : mZempParts) {
        if (part->getFilename() != name)
            continue;
        const auto newPart = newParts.find(key);
        isSamePart = isSamePart || newPart != newParts.end();
        if (part->isBodyValid() && (newPart == newParts.end() || !newPart->second->isBodyValid()))
            return false;
    }
    return isSamePart;
}

void UpdateHandler::logPendingRequests() const {
    if (VexStreamLog::getLevel() < LogDebug)
        return;
    const auto parses = mRequests.list<ParseFileRequest>(FwWorkItem::ParseFileRequest);
    const auto downloads = mRequests.list<DownloadRequest>(FwWorkItem::DownloadRequest);
    VEX_LOG(LogDebug) << "UpdateHandler::onParseResult() "
                      << (mScanRequest != nullptr ? "   1 pending scan request."
                                                  : "   0 pending scan request.");
    VEX_LOG(LogDebug) << std::setw(4) << parses.size() << " pending parse request.";
    for (const ParseFileRequest* request : parses)
        VEX_LOG(LogDebug) << "    - " << request->toString();
    VEX_LOG(LogDebug) << std::setw(4) << downloads.size() << " pending download request.";
    for (const DownloadRequest* request : downloads)
        VEX_LOG(LogDebug) << "    - " << request->toString();
}
