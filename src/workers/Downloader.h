// Worker that fetches bytes from the update server into the files of fragments.
//
// It neither decides what to fetch nor whether to try again: it answers each request with the result of one
// transfer. Public methods but the constructor run on the worker's own thread.
#ifndef WORKERS_DOWNLOADER_H
#define WORKERS_DOWNLOADER_H

#include "common/Thread.h"
#include "common/wqueue.h"
#include "workitems/FwWorkItem.h"
#include <atomic>
#include <memory>
#include <string>

class AppendFile;
class DownloadRequest;
class EasyHandle;
class ExitRunLoop;
class FileFragment;

class Downloader : public Thread {
  public:
    // Bytes per second, while the log level is below debug.
    static constexpr long long MaximumReceiveSpeed = 25000;

    // A transfer slower than this many bytes per second for that many seconds is given up.
    static constexpr long LowSpeedLimit = 50;
    static constexpr long LowSpeedSeconds = 60;

    // Bytes a file may have beyond the largest image, for a last answer that is longer than asked for.
    static constexpr unsigned FileSizeSlack = 65536;

    // Takes requests from `workQueue` and answers into `masterQueue`; both must outlive the worker. libcurl
    // must be initialised.
    Downloader(wqueue<FwWorkItem*>& workQueue, wqueue<FwWorkItem*>& masterQueue);

    // Stops the thread wherever it waits, also in the middle of a transfer, and joins it. What was received
    // by then is written to the file and the file closed; the request is not answered.
    ~Downloader() override;

    // Handles items until one says stop.
    void* run() override;

    // Dispatches by type; deletes nothing.
    void onWorkItem(FwWorkItem* item);

    // Downloads and hands back, or drops the request with its mark of being here taken off.
    void onDownloadRequest(DownloadRequest* request);

    // One transfer, appending to the fragment's file. True when the request has its result in its status and
    // goes back to the master; false when it is not to be answered.
    [[nodiscard]] bool download(DownloadRequest* request);

    // Ends run() after the present item. Does not touch the item.
    void onStopWork(ExitRunLoop* item);

  private:
    [[nodiscard]] static bool checkRequest(DownloadRequest* request);
    static void setResult(DownloadRequest* request, int code, AppendFile& file);
    static void recordFileSize(FileFragment* fragment);

    [[nodiscard]] bool transfer(DownloadRequest* request);

    wqueue<FwWorkItem*>& workQueue;
    wqueue<FwWorkItem*>& masterQueue;
    std::atomic<bool> running{false};

    // What a running transfer holds. Used by the worker's thread, and by the destructor when it has ended.
    // Not locals: where libcurl has no unwind tables, which is usual on ARM, a thread that is cancelled
    // inside it ends without unwinding, and its stack is gone while the stream is still open.
    std::unique_ptr<EasyHandle> mHandle;
    std::unique_ptr<AppendFile> mFile;
};

#endif
