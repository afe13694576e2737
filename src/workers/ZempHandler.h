// Worker that does the slow file work: scans the download directory, parses and deletes files, and compiles
// the update image.
//
// Every request that is not null gets a result and goes back to the master. Public methods but the
// constructor run on the worker's own thread.
#ifndef WORKERS_ZEMPHANDLER_H
#define WORKERS_ZEMPHANDLER_H

#include "common/Thread.h"
#include "common/wqueue.h"
#include "workitems/ParseFileRequest.h"
#include <atomic>
#include <string>

class CompileUpdateZempRequest;
class ExitRunLoop;
class FileDeleteRequest;
class FileScanRequest;

class ZempHandler : public Thread {
  public:
    // Takes requests from `workQueue` and answers into `masterQueue`; both must outlive the worker.
    ZempHandler(wqueue<FwWorkItem*>& workQueue, wqueue<FwWorkItem*>& masterQueue);

    // Stops the thread where it waits or between two steps of a long parse or compile, and joins it. A
    // request in work is not answered.
    ~ZempHandler() override;

    // Handles items until one says stop.
    void* run() override;

    // Dispatches by type; deletes nothing.
    void onWorkItem(FwWorkItem* item);

    // Lists image starts, content parts and update images of the directory, with their sizes in bytes;
    // 0xFFFFFFFF stands for 2 GiB and more.
    void onFileScanRequest(FileScanRequest* request);

    // Parses the file with the request's parser, which keeps the parts found.
    void onParseFileRequest(ParseFileRequest* request);

    // Removes the file, never a directory. Of a link, the link is removed.
    void onFileDeleteRequest(FileDeleteRequest* request);

    // Writes the update image.
    void onCompileUpdateZempFile(CompileUpdateZempRequest* request);

    // Ends run() after the present item. Does not touch the item.
    void onStopWork(ExitRunLoop* item);

  private:
    [[nodiscard]] static bool scanDirectory(const std::string& directory, FileScanRequest& request);
    static void scanEntry(const std::string& directory, const std::string& name, FileScanRequest& request);
    [[nodiscard]] static ParseFileRequest::ParseStatus parse(const ParseFileRequest& request);
    [[nodiscard]] static bool removeFile(const std::string& name);

    wqueue<FwWorkItem*>& mWorkQueue;
    wqueue<FwWorkItem*>& mMasterQueue;
    std::atomic<bool> mRunning{false};
};

#endif
