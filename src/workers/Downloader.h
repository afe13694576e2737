// Worker that fetches bytes from the update server into the files of fragments.
//
// It neither decides what to fetch nor whether to try again: it answers each request with the result of one
// transfer. Public methods but the constructor run on the worker's own thread.
#ifndef WORKERS_DOWNLOADER_H
#define WORKERS_DOWNLOADER_H

#include "common/Thread.h"
#include "common/wqueue.h"
#include "workers/WritePace.h"
#include "workitems/FwWorkItem.h"
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

class AppendFile;
class DownloadRequest;
class EasyHandle;
class ExitRunLoop;
class FileFragment;

class Downloader : public Thread {
  public:
    // Bytes per second, while the log level is below debug. libcurl is told so too, but lets a burst through
    // and then takes its own long pause for a stall; so no more than this goes to the disk in any 2 s, in
    // small even pieces, and what libcurl sees is a link of this speed.
    static constexpr long long MaximumReceiveSpeed = 25000;
    static constexpr std::chrono::milliseconds PieceInterval{100};
    static constexpr size_t PieceSize = MaximumReceiveSpeed / 10;

    // A transfer slower than this many bytes per second for that many seconds is given up.
    static constexpr long LowSpeedLimit = 50;
    static constexpr long LowSpeedSeconds = 60;

    // Between two lines of the log about a transfer that runs.
    static constexpr std::chrono::milliseconds ProgressInterval{60000};

    // Bytes a file may have beyond its range, or beyond the largest image: an error page fits.
    static constexpr unsigned AnswerSlack = 65536;

    // Takes requests from `workQueue` and answers into `masterQueue`; both must outlive the worker. libcurl
    // must be initialised. Other intervals are for tests, which cannot wait for large files.
    Downloader(wqueue<FwWorkItem*>& workQueue, wqueue<FwWorkItem*>& masterQueue,
               std::chrono::microseconds pieceInterval = PieceInterval,
               std::chrono::microseconds progressInterval = ProgressInterval);

    // Stops the thread wherever it waits, also in the middle of a transfer, and joins it. What was received
    // by then is written to the file and the file closed; the request is not answered.
    ~Downloader() override;

    // Handles items until one says stop.
    void* run() override;

    // Dispatches by type; deletes nothing.
    void onWorkItem(FwWorkItem* item);

    // Downloads and hands back, or drops the request with its mark of being here taken off.
    void onDownloadRequest(DownloadRequest* request);

    // One transfer, appending to the fragment's file; none when the range is on disk already. True when the
    // request has its result in its status and goes back to the master; false when it is not to be answered.
    [[nodiscard]] bool download(DownloadRequest* request);

    // Ends run() after the present item. Does not touch the item.
    void onStopWork(ExitRunLoop* item);

  private:
    [[nodiscard]] static bool checkRequest(DownloadRequest* request);
    static void setResult(DownloadRequest* request, int code, AppendFile& file);
    static void recordFileSize(FileFragment* fragment);

    void waitIfStopped();
    void checkStatus(FileFragment* fragment);
    [[nodiscard]] bool transfer(DownloadRequest* request);

    wqueue<FwWorkItem*>& workQueue;
    wqueue<FwWorkItem*>& masterQueue;
    std::atomic<bool> running{false};

    const std::chrono::microseconds mProgressInterval;
    WritePace mPace;

    // What a running transfer holds. Used by the worker's thread, and by the destructor when it has ended.
    // Not locals: where libcurl has no unwind tables, which is usual on ARM, a thread that is cancelled in
    // its wait ends without unwinding, and its stack is gone while the stream is still open.
    std::unique_ptr<EasyHandle> mHandle;
    std::unique_ptr<AppendFile> mFile;
};

#endif
