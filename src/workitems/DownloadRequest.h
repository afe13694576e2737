// Asks the downloader for the bytes that a fragment still lacks.
//
// Status, failure count and the mark of being with the downloader may be read by the main thread while the
// downloader works; everything else belongs to the thread that holds the request.
#ifndef WORKITEMS_DOWNLOADREQUEST_H
#define WORKITEMS_DOWNLOADREQUEST_H

#include "workitems/FwWorkItem.h"
#include <atomic>

class FileFragment;

class DownloadRequest : public FwWorkItem {
  public:
    enum DownloadStatus : int {
        DownloadNotStarted = 0,
        DownloadStarted = 1,
        DownloadComplete = 2,
        DownloadTransientFailure = 3,
        DownloadPermanentFailure = 4
    };

    // `fragment` is not owned, must outlive the request, and may be null.
    DownloadRequest(const std::string& url, FileFragment* fragment);
    ~DownloadRequest() override;

    std::string getStatus() const override { return getString(getDownloadStatus()); }

    // Printed name of a status; "<unknown download status>" outside the enumeration.
    static const char* getString(DownloadStatus status);

    std::string getUrl() const { return mUrl; }
    FileFragment* getFileFragment() const { return mFileFragment; }
    DownloadStatus getDownloadStatus() const { return mDownloadStatus; }

    // Either failure status counts one more failure.
    void setDownloadStatus(DownloadStatus status);

    // Failures in the life of the request; never reset.
    unsigned getDownloadFailures() const { return mDownloadFailures; }

    // True from the moment the request is queued to the downloader until its answer has been handled, or the
    // downloader dropped it. Such a request must not be queued again.
    bool isWithDownloader() const { return mWithDownloader; }
    void setWithDownloader(bool with) { mWithDownloader = with; }

    // Whether a request that begins anew waits for the download timer. Main thread only.
    bool isHeldBack() const { return mHeldBack; }
    void setHeldBack(bool held) { mHeldBack = held; }

    // Whether the last transfer failed because the disk or the quota is full.
    bool isOutOfSpace() const { return mOutOfSpace; }
    void setOutOfSpace(bool out) { mOutOfSpace = out; }

    // Back to not started, with an emptied file, so that the download begins anew. The fragment's recorded
    // size is left to the caller.
    void resetRequest();

    // "DownloadRequest (", the fragment or "<NULL>", ") " and the status. Hides the base form.
    std::string toString() const;

  private:
    const std::string mUrl;
    FileFragment* const mFileFragment;
    std::atomic<DownloadStatus> mDownloadStatus{DownloadNotStarted}; // set by either thread
    std::atomic<unsigned> mDownloadFailures{0};                      // set by either thread
    std::atomic<bool> mWithDownloader{false};                        // set by either thread
    bool mOutOfSpace = false;                                        // by whoever holds the request
    bool mHeldBack = false;                                          // by the main thread
};

#endif
