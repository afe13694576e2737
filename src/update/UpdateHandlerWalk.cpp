// The image start, and the walk along the manifest that fetches what is needed.
#include "common/VexStreamLog.h"
#include "common/maskedurl.h"
#include "image/ZempParser.h"
#include "installed/SuuInfo.h"
#include "update/StartRange.h"
#include "update/UpdateHandler.h"
#include <limits>

namespace {

// Fetches without progress; the last one ends the daemon.
constexpr unsigned GiveUpAt = FetchGovernor::ImmediateFetches + FetchGovernor::DelayedFetches + 1;
constexpr uint64_t MaximumOffset = std::numeric_limits<unsigned>::max();

} // namespace

// --- Image start

void UpdateHandler::reRequestZempStart(wqueue<FwWorkItem*>& queue) {
    if (awaitsSeal(queue))
        return;
    VEX_LOG(LogInfo) << "UpdateHandler::reRequestZempStart() Get ZEMP start from " << maskedUrl(mUrl);
    FileFragment* fragment = getFileFragment(mVersion, FileFragment::ZempStart, ZempPart::UnspecifiedPart);
    for (const DownloadRequest* existing : mRequests.list<DownloadRequest>(FwWorkItem::DownloadRequest)) {
        if (fragment == nullptr || existing->getFileFragment() != fragment || existing->getUrl() != mUrl)
            continue;
        VEX_LOG(LogInfo) << "UpdateHandler::reRequestZempStart() Request exist using same FileFragment!";
        VEX_LOG(LogInfo) << "UpdateHandler::reRequestZempStart() Existing " << existing->toString();
        return;
    }
    DownloadRequest* request = nullptr;
    if (fragment != nullptr) {
        fitStartRange(fragment);
        request = createDownloadRequest(mUrl, fragment);
    } else {
        clearFetchedSinceStart();
        request = createDownloadRequest(mUrl, 0, FileFragment::ZempStartSize, FileFragment::ZempStart);
    }
    if (request == nullptr) {
        VEX_LOG(LogError) << "UpdateHandler::reRequestZempStart() Failed to create download request, exit!";
        exitRunLoop();
        return;
    }
    handOver(request, FetchGovernor::StartPosition, queue);
}

// Gives the request to the queue, or to the timer when it brings nothing new, or gives it up.
void UpdateHandler::handOver(DownloadRequest* request, unsigned position, wqueue<FwWorkItem*>& queue) {
    switch (mGovernor.onFetch(position)) {
    case FetchGovernor::FetchNow:
        request->setWithDownloader(&queue != mMasterQueue);
        queue.add(request);
        return;
    case FetchGovernor::FetchLater:
        request->setDownloadStatus(DownloadRequest::DownloadTransientFailure);
        VEX_LOG(LogWarning) << "UpdateHandler::handOver() " << mGovernor.getWithoutProgress()
                            << " fetches brought the update no further, at " << GiveUpAt
                            << " it ends. The next one waits for the download timer, at most 240 s.";
        VEX_LOG(LogInfo) << "UpdateHandler::onDownloadResult() Reschedule, " << request->toString();
        return;
    case FetchGovernor::GiveUp:
        failTooOften(request, GiveUpAt);
        return;
    }
}

// A start that is on disk up to its range's end and still unusable either lacks the rest of a long manifest,
// or is worth nothing.
void UpdateHandler::fitStartRange(FileFragment* fragment) {
    const unsigned end = fragment->getRangeEnd() != 0 ? fragment->getRangeEnd() : FileFragment::ZempStartSize;
    const unsigned size = fragment->getFileSize();
    if (size <= end)
        return;
    const auto* release = dynamic_cast<const ReleaseHeaderPart*>(getZempPart("ReleaseHeader " + mVersion));
    const bool isReleaseGood = release != nullptr && release->isContentHeaderValid() &&
                               release->isReleaseHeaderValid() && release->isBodyValid() &&
                               release->getFilename() == fragment->getFilename();
    if (isZempHeaderValid() && isReleaseGood && getZempPart("suum " + mVersion) == nullptr) {
        const unsigned last = findLastByteOfManifest(fragment->getFilename(), *mZempHeader, *release);
        if (last >= size) {
            fragment->setDownloadRange(0, last);
            return;
        }
    }
    forgetZempStart(fragment);
}

// Empties the start so that it is fetched anew, and forgets what it said.
void UpdateHandler::forgetZempStart(FileFragment* fragment) {
    mSeal.forget();
    deleteZempPartsOfFile(fragment->getFilename());
    clearSuumZempPartsMap();
    clearFetchedSinceStart();
    fragment->truncateFile();
    fragment->setFileSize(0);
    fragment->setDownloadRange(0, FileFragment::ZempStartSize);
}

void UpdateHandler::onGotZempStart(const SuuInfo* suuInfo, wqueue<FwWorkItem*>& masterQueue,
                                   wqueue<FwWorkItem*>& downloaderQueue) {
    if (mNextAction == FwAction::WaitForFwUpdate || mGovernor.hasGivenUp())
        return;
    if (mRequests.isBusy()) {
        mAskAgain = true;
        return;
    }
    if (suuInfo == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::onGotZempStart() SuuInfo is NULL!";
        masterQueue.add(new SuuInfoInvalidEvent);
        return;
    }
    FileFragment* start = getFileFragment(mVersion, FileFragment::ZempStart, ZempPart::UnspecifiedPart);
    if (start != nullptr && mGovernor.takeStartDoubt()) {
        forgetZempStart(start);
        setNextAction(FwAction::Cause::StartDoubted);
        reRequestZempStart(downloaderQueue);
        return;
    }
    if (awaitsSeal(downloaderQueue))
        return;
    if (mSpaceIsShort && findManifest() != nullptr)
        return scanForSpace();
    if (mGovernor.isStartDoubtVain() && deletePartsOfAnotherImage())
        return askAgainWhenIdle();
    switch (findNeededParts(suuInfo, downloaderQueue)) {
    case StartUnusable:
        reRequestZempStart(downloaderQueue);
        break;
    case NoSuuInfo:
        VEX_LOG(LogWarning) << "UpdateHandler::onGotZempStart() SuuInfo is NULL!";
        masterQueue.add(new SuuInfoInvalidEvent);
        break;
    case PartsMissing:
        VEX_LOG(LogInfo) << "UpdateHandler::onGotZempStart() Need to download more before update to "
                         << mVersion << " from " << maskedUrl(mUrl);
        setNextAction(FwAction::Cause::PartsMissing);
        break;
    default:
        VEX_LOG(LogInfo) << "UpdateHandler::onGotZempStart() Ready to compile update zemp ("
                         << getFwUpdateFilename() << ").";
        setNextAction(FwAction::Cause::PartsReady);
        masterQueue.add(mRequests.add(std::make_unique<CompileUpdateZempRequest>(
                                          getFwUpdateFilename(), mSuumZempParts, mSeal.voucher()),
                                      mVersion));
        break;
    }
}

// --- Parts of another image

// Whether the parts along the manifest end where the main header of the start says that the image ends, give
// or take the padding of the last one. True as long as that is not known.
bool UpdateHandler::doPartsAddUp(uint64_t end) const {
    if (!mZempHeader || !isWantedStart(mZempHeader->getFilename()))
        return true;
    const uint64_t imageEnd = uint64_t{ZempPart::ZempFileIdentifierSize} + ZempPart::ZempHeaderSize +
                              mZempHeader->getZempHeader()->body_length;
    return imageEnd <= end && end - imageEnd < ZempFormat::Alignment;
}

// Parts are known by name and version, and another image may have had others under the same. Requests the
// deletion of all that were not fetched since the start that is in use; false when there are none.
bool UpdateHandler::deletePartsOfAnotherImage() {
    bool isAny = false;
    for (const auto& [name, fragment] : mFragments) {
        if (fragment->getFragmentType() != FileFragment::ContentPart || fragment->isFetchedSinceStart())
            continue;
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() '" << name
                            << "' may be of another image, request delete.";
        createFileDeleteRequest(name);
        isAny = true;
    }
    if (isAny)
        mGovernor.onPartsDoubted();
    return isAny;
}

// --- Walk

int UpdateHandler::findNeededParts(const SuuInfo* suuInfo, wqueue<FwWorkItem*>& downloaderQueue) {
    if (suuInfo == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() SuuInfo is NULL!";
        return NoSuuInfo;
    }
    if (!checkZempStart())
        return StartUnusable;
    logSuumZempParts();
    const SuumBlob* suum = getSuum();
    Walk walk = {ZempParser::getOffsetFirstSwBlob(getReleaseHeader()->getUsedSize(), suum->getUsedSize()), 0,
                 false};
    for (unsigned i = 0; i < suum->getNumberOfElements(); ++i) {
        const SuumBlob::Element* element = suum->getElementAt(i);
        if (element == nullptr)
            continue;
        walk.position = FetchGovernor::StartPosition + 1 + i;
        switch (walkElement(*element, *suuInfo, walk, downloaderQueue)) {
        case Step::Next:
            break;
        case Step::Issued:
            return PartsMissing;
        case Step::Unusable:
            return StartUnusable;
        }
    }
    if (!walk.incomplete && !doPartsAddUp(walk.offset))
        walk.incomplete = deletePartsOfAnotherImage();
    if (!walk.incomplete)
        return AllPartsReady;
    askAgainWhenIdle(); // when what was requested has been deleted
    return PartsMissing;
}

bool UpdateHandler::checkZempStart() {
    if (!isZempHeaderValid()) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() ZEMP header is invalid!";
        return false;
    }
    const ReleaseHeaderPart* release = getReleaseHeader();
    if (release == nullptr && addReleaseHeaderToSuumZempParts())
        release = getReleaseHeader();
    if (release == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() Release header is NULL!";
        logOtherRelease();
        return false;
    }
    if (!release->isContentHeaderValid() || !release->isBodyValid()) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() Release header is invalid!";
        return false;
    }
    const SuumBlob* suum = getSuum();
    if (suum == nullptr && addSuumToSuumZempParts())
        suum = getSuum();
    if (suum == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() SuumBlob is NULL!";
        return false;
    }
    if (!suum->isSuumValid()) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() SuumBlob is invalid!";
        return false;
    }
    if (suum->getNumberOfElements() == 0) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() SuumBlob has no elements!";
        return false;
    }
    return true;
}

// A version that is written in another way than the image prints it is none of the image's.
void UpdateHandler::logOtherRelease() const {
    for (const auto& [key, part] : mZempParts)
        if (part->getPartType() == ZempPart::ReleaseHeader)
            VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() The image is release "
                                << part->getPartVersion() << ", configured is " << mVersion << ".";
}

void UpdateHandler::logSuumZempParts() const {
    VEX_LOG(LogDebug) << "UpdateHandler::findNeededParts() Holding " << mSuumZempParts.size()
                      << " suum ZempParts.";
    for (const auto& [index, part] : mSuumZempParts) {
        if (part == nullptr)
            VEX_LOG(LogDebug) << "   Index=" << index << " is NULL.";
        else
            VEX_LOG(LogDebug) << "   Index=" << index << " UsedSize=" << part->getUsedSize()
                              << " SizeInZemp=" << part->getSizeInZempFile();
    }
}

UpdateHandler::Step UpdateHandler::walkElement(const SuumBlob::Element& element, const SuuInfo& suuInfo,
                                               Walk& walk, wqueue<FwWorkItem*>& downloaderQueue) {
    const std::string pool = element.getPoolname();
    const bool full = suuInfo.isDownloadNeeded(&element);
    if (full)
        VEX_LOG(LogInfo) << "UpdateHandler::findNeededParts() Update to version " << pool;
    else
        VEX_LOG(LogInfo) << "UpdateHandler::findNeededParts() Use current version " << pool << " @ "
                         << element.getMountPoint();
    if (walk.offset + FileFragment::ContentPartInitialSize > MaximumOffset) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() " << pool << " is out of range!";
        return Step::Unusable;
    }
    const auto offset = static_cast<unsigned>(walk.offset);
    ZempPart* part = findElementPart(element);
    if (part != nullptr && part->getPartname() != partName(element)) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() " << pool << " has the index of "
                            << part->toString() << "!";
        return Step::Unusable;
    }
    if (part == nullptr || !part->isVersion(element.getMajor(), element.getMinor(), element.getBuild()))
        return issue(createDownloadRequest(offset, full), pool, walk, downloaderQueue);

    const unsigned size = part->getSizeInZempFile();
    if (!FileFragment::isMaximumFileSize(size) || walk.offset + size > MaximumOffset) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() " << pool << " is too large (" << size
                            << ")!";
        return Step::Unusable;
    }
    if (isPartReady(part, full)) {
        VEX_LOG(LogInfo) << "UpdateHandler::findNeededParts() " << pool << " is ready.";
        walk.offset += size;
        return Step::Next;
    }
    if (isPartOverSize(part, full) || isCompleteButBad(part, full)) {
        VEX_LOG(LogWarning) << "UpdateHandler::findNeededParts() " << pool
                            << " is over size, request delete.";
        createFileDeleteRequest(part->getFilename());
        walk.incomplete = true;
        walk.offset += size;
        return Step::Next;
    }
    VEX_LOG(LogInfo) << "UpdateHandler::findNeededParts() Finish download of " << pool;
    return issue(createDownloadRequest(part, offset), pool, walk, downloaderQueue);
}

// The element's part, put into the manifest parts if it was known only by name; null when it is not known.
ZempPart* UpdateHandler::findElementPart(const SuumBlob::Element& element) {
    const unsigned index = element.getContentIndex();
    const std::string pool = element.getPoolname();
    ZempPart* known = getZempPart(index);
    if (known != nullptr && !isInStart(known))
        return known;
    VEX_LOG(LogDebug) << "UpdateHandler::findNeededParts() Look for a " << pool << " in all parts map.";
    ZempPart* part = getZempPart(element);
    if (part == nullptr || isInStart(part)) {
        VEX_LOG(LogDebug) << "UpdateHandler::findNeededParts() ZempPart " << pool << " not in all parts map.";
        return nullptr;
    }
    VEX_LOG(LogDebug) << "UpdateHandler::findNeededParts() Insert " << pool << " in suum parts map.";
    mSuumZempParts[index] = part;
    return part;
}

// The manifest of the wanted version, also before a walk; null when it is not known.
const SuumBlob* UpdateHandler::findManifest() const {
    const auto* suum = dynamic_cast<const SuumBlob*>(getZempPart("suum " + mVersion));
    return suum != nullptr && suum->isSuumValid() ? suum : nullptr;
}

bool UpdateHandler::isNamedByManifest(const std::string& filename) const {
    const SuumBlob* suum = findManifest();
    for (unsigned i = 0; suum != nullptr && i < suum->getNumberOfElements(); ++i) {
        const SuumBlob::Element* element = suum->getElementAt(i);
        const ZempPart* part = element == nullptr ? nullptr : getZempPart(*element);
        if (part != nullptr && part->getFilename() == filename)
            return true;
    }
    return false;
}

UpdateHandler::Step UpdateHandler::issue(DownloadRequest* request, const std::string& pool, Walk& walk,
                                         wqueue<FwWorkItem*>& downloaderQueue) {
    if (request == nullptr) {
        VEX_LOG(LogError) << "UpdateHandler::findNeededParts() Failed to create download request for " << pool
                          << "! Exit.";
        exitRunLoop();
        walk.incomplete = true;
        return Step::Next;
    }
    handOver(request, walk.position, downloaderQueue);
    return Step::Issued;
}

// All bytes of the part are on disk, and they are not right.
bool UpdateHandler::isCompleteButBad(const ZempPart* part, bool fullBlob) const {
    const FileFragment* fragment = getFileFragment(part->getFilename());
    return fullBlob && fragment != nullptr && part->isContentHeaderValid() && !part->isBodyValid() &&
           fragment->getFileSize() >= uint64_t{part->getHeaderLength()} + part->getBodyLength();
}
