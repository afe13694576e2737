// The seal of a release: on a terminal with keys it is fetched before anything else.
#include "common/VexStreamLog.h"
#include "common/maskedurl.h"
#include "update/UpdateHandler.h"

namespace {

constexpr unsigned LastSealByte = 65536; // one more than a seal may have, so that it shows

} // namespace

// Whether something has to come before the release is used: its seal is asked for, or what is on disk has to
// be compared with it.
bool UpdateHandler::awaitsSeal(wqueue<FwWorkItem*>& queue) {
    if (!mSeal.voucher()) {
        VEX_LOG(LogInfo) << "UpdateHandler::awaitsSeal() Get the seal of " << maskedUrl(mUrl);
        DownloadRequest* const request =
            createDownloadRequest(mSeal.gate().sealUrl(mUrl), 0, LastSealByte, FileFragment::SealFile);
        if (request != nullptr)
            handOver(request, FetchGovernor::StartPosition, queue);
        return true;
    }
    if (!mSeal.takeIsNew())
        return false;
    deleteAllFileFragments();
    clearSuumZempPartsMap();
    deleteAllZempParts();
    mZempHeader.reset();
    setNextAction(FwAction::Cause::SealRead);
    if (FileScanRequest* scan = createFileScanRequest())
        addToMasterQueue(scan);
    return true;
}

void UpdateHandler::onSealFetched(DownloadRequest* request) {
    const FileFragment* fragment = request->getFileFragment();
    const std::string filename = fragment->getFilename();
    if (!mRequests.isStale(request))
        mSeal.read(filename, fragment->hasForeignBytes() ? "the server has none" : "", mVersion, mIsForced);
    createFileDeleteRequest(filename);
    deleteDownloadRequest(request);
    askAgainWhenIdle();
}
