// Asks the file handler for the system's files in a directory.
#ifndef WORKITEMS_FILESCANREQUEST_H
#define WORKITEMS_FILESCANREQUEST_H

#include "workitems/FwWorkItem.h"
#include <utility>
#include <vector>

class FileScanRequest : public FwWorkItem {
  public:
    enum FileScanStatus : int { ScanPending = 0, ScanIsDone = 1, ScanIsFailed = 2 };

    // Path and size in bytes; 0xFFFFFFFF stands for 2 GiB and more.
    using FileList = std::vector<std::pair<std::string, unsigned>>;

    explicit FileScanRequest(const std::string& directory)
        : FwWorkItem(FwWorkItem::FileScanRequest), mDirectory(directory) {}

    std::string getStatus() const override;
    FileScanStatus getFileScanStatus() const { return mFileScanStatus; }
    void setFileScanStatus(FileScanStatus status) { mFileScanStatus = status; }

    std::string getDirectory() const { return mDirectory; }

    // A copy, in the order of addFile().
    FileList getFileList() const { return mFileList; }
    void addFile(const std::string& name, unsigned size) { mFileList.emplace_back(name, size); }

  private:
    FileScanStatus mFileScanStatus = ScanPending;
    const std::string mDirectory;
    FileList mFileList;
};

#endif
