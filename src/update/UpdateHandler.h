// The decisions of one update: what follows from each result that comes back from a worker.
//
// The image is fetched one piece at a time: its start, then, along the manifest, each part's header and, for
// a part that is needed, its body. When all is there the update image is compiled, flagged, and waits for the
// installer. Whenever nothing is out any more, the configuration monitor is asked whether an update is
// (still) needed, and a "yes" leads to the next step. The table of actions stands in FwAction.h.
//
// Main thread only. Every on...Result() takes over the item that came back; a null item is logged. A fatal
// decision puts an ExitRunLoop on the master queue.
#ifndef UPDATE_UPDATEHANDLER_H
#define UPDATE_UPDATEHANDLER_H

#include "update/UpdateRecords.h"
#include "workitems/CompileUpdateZempRequest.h"
#include "workitems/IsUpdateNeededRequest.h"
#include "workitems/SetReadyForUpdateRequest.h"

class SuuInfo;

class UpdateHandler : public UpdateRecords {
  public:
    enum WalkResult : int { StartUnusable = -2, NoSuuInfo = -1, AllPartsReady = 0, PartsMissing = 1 };

    using UpdateRecords::UpdateRecords;

    void onScanResult(FileScanRequest* request);
    void onIsUpdateNeededRequest(IsUpdateNeededRequest* request, wqueue<FwWorkItem*>& masterQueue);

    // Fetches the image start, resuming after what is on disk. `queue` is the master's or the downloader's.
    void reRequestZempStart(wqueue<FwWorkItem*>& queue);
    void onDownloadResult(DownloadRequest* request);

    // `suuInfo` is the installed software, or null while it is not known; here and below not owned.
    void onParseResult(ParseFileRequest* request, const SuuInfo* suuInfo);

    // Takes over the parser's parts as those of the file `filename`; their number.
    unsigned transferZempParts(ZempParser* parser, const std::string& filename, const SuuInfo* suuInfo);

    // The image start is on disk: fetches the next piece, or compiles when all is there.
    void onGotZempStart(const SuuInfo* suuInfo, wqueue<FwWorkItem*>& masterQueue,
                        wqueue<FwWorkItem*>& downloaderQueue);

    // Walks the manifest; a WalkResult.
    int findNeededParts(const SuuInfo* suuInfo, wqueue<FwWorkItem*>& downloaderQueue);
    void onCompileZempResult(CompileUpdateZempRequest* request, wqueue<FwWorkItem*>& masterQueue);
    void onSetReadyResult(SetReadyForUpdateRequest* request);
    void onFileDeleteResult(FileDeleteRequest* request);

    // Renames a parsed file and moves its fragment to the new name. False when the fragment is unknown or the
    // rename fails. A name that another file has to keep is no failure: then the file keeps its own.
    bool changeToVersionedFilename(const std::string& filename, ZempPart::PartType partType,
                                   const std::string& version);

    // A recorded request to flag the update image; the caller queues it.
    SetReadyForUpdateRequest* createSetReadyForUpdateRequest(const std::string& filename);

    // Whether the image that waits for the installer lost its flag.
    bool isFlagMissing(NewFirmwareNeededEvent::ReadyFlag flag) const;

    // Takes back a request that is still to be forwarded and whose version is no longer wanted, with its
    // image. False when it is to be forwarded.
    bool dropStaleReadyRequest(SetReadyForUpdateRequest* request);

    // Whether the update is forced.
    void setForced(bool isForced) { mIsForced = isForced; }

    // Asks again whether an update is needed, if the update rests: no action, nothing out.
    void askIfAtRest();

    // Keeps back a request that begins anew after several failures, so that it waits for the download timer,
    // and one that comes when the daemon has given up. False when it is to be forwarded.
    bool holdBack(DownloadRequest* request);

    // The download timer: makes sure of the directory, gives up requests that failed too often without coming
    // back, queues those that wait, and hands out the scan that a failed compile left behind.
    void onDownloadTimer(wqueue<FwWorkItem*>& downloaderQueue);

  private:
    // Where the walk stands: offset in the image of the element at `position`, and whether the walk must not
    // end in a compile.
    struct Walk {
        uint64_t offset;
        unsigned position;
        bool incomplete;
    };
    enum class Step { Next, Issued, Unusable };

    bool awaitsSeal(wqueue<FwWorkItem*>& queue);
    void onSealFetched(DownloadRequest* request);

    void exitRunLoop();
    void askIsUpdateNeeded();
    void askAgainWhenIdle();
    void askIfIdle();

    void scanFile(const std::string& filename, unsigned size);
    void deleteScannedFile(const std::string& filename, unsigned size, FileFragment::FragmentType type);
    void requestParse(FileFragment* fragment);

    void handOver(DownloadRequest* request, unsigned position, wqueue<FwWorkItem*>& queue);
    void fitStartRange(FileFragment* fragment);
    void forgetZempStart(FileFragment* fragment);
    void onDownloadFailure(DownloadRequest* request);
    void failTooOften(DownloadRequest* request, unsigned failures);
    void dropStaleDownload(DownloadRequest* request);

    void scanForSpace();
    bool isWorthItsSpace(const std::string& filename) const;
    const SuumBlob* findManifest() const;
    bool isNamedByManifest(const std::string& filename) const;
    void deleteFilesOf(const CompileUpdateZempRequest& request);
    bool deletePartsOfAnotherImage();
    bool doPartsAddUp(uint64_t end) const;
    void handOutScanOfFailedCompile();

    void onCompileFailure(const CompileUpdateZempRequest& request);

    void takeOverParsed(ParseFileRequest* request, const SuuInfo* suuInfo);
    void giveUpParsed(ParseFileRequest* request);
    bool mayReplace(const FileFragment* holder, const FileFragment* fragment) const;
    void deleteIfNotCurrent(ZempPart* part, const SuuInfo* suuInfo);
    void logPendingRequests() const;

    bool checkZempStart();
    void logOtherRelease() const;
    void logSuumZempParts() const;
    Step walkElement(const SuumBlob::Element& element, const SuuInfo& suuInfo, Walk& walk,
                     wqueue<FwWorkItem*>& downloaderQueue);
    ZempPart* findElementPart(const SuumBlob::Element& element);
    Step issue(DownloadRequest* request, const std::string& poolname, Walk& walk,
               wqueue<FwWorkItem*>& downloaderQueue);
    bool isCompleteButBad(const ZempPart* part, bool fullBlob) const;

    bool mIsForced = false;
    bool mAskAgain = false;     // a "yes" came while something was out
    bool mSpaceIsShort = false; // the next scan deletes what the manifest does not name
};

#endif
