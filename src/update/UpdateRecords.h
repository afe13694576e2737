// The bookkeeping of one update: which version is wanted from where, what comes next, every local file, every
// parsed part of the remote image, and every request that is out. The decisions stand in UpdateHandler.
//
// Main thread only. Owns its fragments, parts and requests, also those that a queue's reader works on until
// they come back; destroying it removes no file. Null arguments are logged and ignored.
#ifndef UPDATE_UPDATERECORDS_H
#define UPDATE_UPDATERECORDS_H

#include "common/wqueue.h"
#include "image/ReleaseHeaderPart.h"
#include "image/SuumBlob.h"
#include "image/ZempHeaderPart.h"
#include "update/FetchGovernor.h"
#include "update/FileFragment.h"
#include "update/FwAction.h"
#include "update/ReleaseSeal.h"
#include "update/RequestLedger.h"
#include "update/RetryPace.h"
#include "update/UpdateBooks.h"
#include "workitems/DownloadRequest.h"
#include "workitems/Events.h"
#include "workitems/FileDeleteRequest.h"
#include "workitems/FileScanRequest.h"
#include "workitems/ParseFileRequest.h"
#include <map>
#include <memory>
#include <string>
#include <vector>

class UpdateRecords {
  public:
    // `masterQueue` is the daemon's own queue; `gate` says whether releases need a seal. Neither is owned.
    explicit UpdateRecords(wqueue<FwWorkItem*>* masterQueue,
                           const seal::Gate& gate = seal::Gate::withoutKeys());
    ~UpdateRecords();
    UpdateRecords(const UpdateRecords&) = delete;
    UpdateRecords& operator=(const UpdateRecords&) = delete;

    // --- What is wanted

    std::string getUrl() const { return mUrl; }
    std::string getVersion() const { return mVersion; }

    // True when this changed anything; empty arguments change nothing. A change marks everything that is out
    // as stale and drops downloads that wait for the timer; another version also forgets which parts the
    // manifest named.
    bool setVersionToDownload(const std::string& url, const std::string& version);

    ConfigDbStatusEvent::ConfigDbStatus getConfigDbStatus() const { return mConfigDbStatus; }

    // True when the status changed.
    bool setConfigDbStatus(ConfigDbStatusEvent::ConfigDbStatus status);

    FwAction::NextAction getNextAction() const { return mNextAction; }
    FwAction::NextAction getPreviousAction() const { return mPreviousAction; }
    void setNextAction(FwAction::NextAction action);

    // The same by the table of transitions; a change that it does not foresee is logged as an error.
    void setNextAction(FwAction::Cause cause);

    // For a report.
    UpdateBooks books() const {
        return {mRequests, mGovernor, mFragments, mZempParts, mSuumZempParts, mScanIsRecordedOnly};
    }

    // Printed name of the next action.
    std::string whatToDo() const { return FwAction::getString(mNextAction); }

    // --- The download directory

    // Makes sure that the directory exists. False, with the reason logged, when it cannot be made.
    bool initDirName();

    // The directory, empty while there is none.
    std::string getDirName();

    // Full path of the compiled update image of the wanted version.
    std::string getFwUpdateFilename();

    // --- Requests: each is recorded before it is returned, each delete...() destroys it

    // Null while a scan is out, unless that one was recorded by a failed compile and another version has been
    // set since: then it is handed out at last.
    FileScanRequest* createFileScanRequest();

    // Records a scan that is never queued, if none is out.
    void recordFileScanRequest();

    // Whether a scan waits that createFileScanRequest() would hand out.
    bool hasScanToHandOut() const { return mScanToHandOut; }
    void deleteFileScanRequest(FileScanRequest* request);

    // Queues a delete request to the master; an empty name does nothing. The seal that is kept beside an
    // update image goes with it.
    void createFileDeleteRequest(const std::string& filename);

    // Whether a file is to be deleted already.
    bool isFileDeleteRequested(const std::string& filename) const;

    // The caller queues it. Null without a fragment.
    ParseFileRequest* createParseFileRequest(FileFragment* fragment);
    void deleteParseFileRequest(ParseFileRequest* request);

    // The same for all of them, with the parts that their parsers found.
    void deleteAllParseFileRequests();

    // Frees the parts that a request's parser found and that nobody took over.
    static void freeParsedParts(const ParseFileRequest& request);

    // Download of what `fragment` lacks, making its file first if it has none. Null when that fails; an
    // ExitRunLoop is on the master queue then.
    DownloadRequest* createDownloadRequest(const std::string& url, FileFragment* fragment);

    // Download of the bytes `rangeStart` to `rangeEnd` (inclusive) into a new fragment.
    DownloadRequest* createDownloadRequest(const std::string& url, unsigned int rangeStart,
                                           unsigned int rangeEnd, FileFragment::FragmentType type);

    // Download of a content part's header at `offset` of the image; `fullBlob` when its body is needed too.
    DownloadRequest* createDownloadRequest(unsigned int offset, bool fullBlob);

    // Download of the rest of a part that begins at `offset` of the image. Null when its file is unknown.
    DownloadRequest* createDownloadRequest(const ZempPart* part, unsigned int offset);
    void deleteDownloadRequest(DownloadRequest* request);
    void deleteAllDownloadRequests();

    // Queues every request that waits for the download timer.
    void restartDownload(wqueue<FwWorkItem*>& downloaderQueue);

    // Whether a request waits for the download timer: it failed transiently or is held back, and is not with
    // the downloader.
    static bool isWaitingForTimer(const DownloadRequest& request);

    // Whether a download has begun and not ended for good.
    bool isDownloadInProgress() const;

    // --- Fragments

    // Takes over a fragment under its file name. False, and the caller keeps it, when the name is taken.
    bool addFileFragment(FileFragment* fragment);
    FileFragment* getFileFragment(const std::string& filename) const;

    // The fragment that has the versioned name, and the type, and the part type unless that is unspecified.
    FileFragment* getFileFragment(const std::string& version, FileFragment::FragmentType type,
                                  ZempPart::PartType partType) const;

    // Forgets a fragment; its file stays. One that a request points at lives until the request is done.
    void deleteFileFragment(const std::string& filename);
    void deleteAllFileFragments();

    // After a scan: forgets the fragments that it did not find and that no request points at.
    void deleteNotFoundFileFragments();

    // Another image start is in use from now on: nothing has been fetched since.
    void clearFetchedSinceStart();

    // Whether a request points at the fragment.
    bool isFileFragmentInUse(const FileFragment* fragment) const;

    // --- Parts: update...() take the part over

    void updateZempHeader(ZempHeaderPart* part);
    bool isZempHeaderValid() const;
    void updateZempPart(ZempPart* part);

    // Whether the part was found in the file of an image start. Its body is never taken from there.
    static bool isInStart(const ZempPart* part);
    ZempPart* getZempPart(const std::string& key) const;
    ZempPart* getZempPart(unsigned int index) const;
    ZempPart* getZempPart(const SuumBlob::Element& element) const;

    // Name of the content part that a manifest element stands for, and the key of that part.
    static std::string partName(const SuumBlob::Element& element);
    static std::string partKey(const SuumBlob::Element& element);
    SuumBlob* getSuum() const;
    ReleaseHeaderPart* getReleaseHeader() const;

    // Insert what belongs to the wanted version into the manifest parts; false when it is not known.
    bool addSuumToSuumZempParts();
    bool addReleaseHeaderToSuumZempParts();

    // Bytes that a manifest part occupies in the image; 0 when it is not known.
    unsigned int getSizeInZempFile(unsigned int index) const;

    bool isPartReady(const ZempPart* part, bool fullBlob) const;
    bool isPartOverSize(const ZempPart* part, bool fullBlob) const;
    void deleteZempPart(const std::string& key);
    void deleteAllZempParts();
    void clearSuumZempPartsMap();

    // After a scan: forgets the parts whose file is no fragment any more.
    void deleteStrayZempParts();

    // Forgets the parts that lie in a file, in both maps and under every index.
    void deleteZempPartsOfFile(const std::string& filename);

  protected:
    static constexpr unsigned int sMaximumDownloadFailures = 5; // declared; the limit in use is the handler's

    void addToMasterQueue(FwWorkItem* item) { mMasterQueue->add(item); }
    bool isWantedStart(const std::string& filename) const;

    std::string mUrl;
    std::string mVersion;
    ReleaseSeal mSeal; // of the wanted version
    FwAction::NextAction mNextAction = FwAction::Unspecified;
    FwAction::NextAction mPreviousAction = FwAction::Unspecified;
    ConfigDbStatusEvent::ConfigDbStatus mConfigDbStatus = ConfigDbStatusEvent::ConfigNoUpdateNeeded;
    wqueue<FwWorkItem*>* const mMasterQueue;
    RequestLedger mRequests;
    std::map<std::string, FileFragment*> mFragments;    // by file name, owned
    std::vector<FileFragment*> mForgottenFragments;     // owned, until no request points at them
    FileScanRequest* mScanRequest = nullptr;            // owned by mRequests
    bool mScanIsRecordedOnly = false;                   // mScanRequest was never queued
    bool mScanToHandOut = false;                        // ... and another version was set since
    std::map<std::string, ZempPart*> mZempParts;        // by map key, owned
    std::map<const unsigned, ZempPart*> mSuumZempParts; // by content index, not owned
    std::unique_ptr<ZempHeaderPart> mZempHeader;
    std::string mDirName;
    FetchGovernor mGovernor;
    RetryPace mCompilePace;

  private:
    bool keepsExisting(const ZempPart& existing, const ZempPart& part) const;
    DownloadRequest* nameAndRequest(const std::string& url, std::unique_ptr<FileFragment> fragment);
    void dropWaitingDownloads();
    void freeForgottenFragments();
    bool addToSuumZempParts(const std::string& key, ZempPart::PartType type, const char* line);
};

#endif
