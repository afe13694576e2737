// Asks the file handler to remove a file.
#ifndef WORKITEMS_FILEDELETEREQUEST_H
#define WORKITEMS_FILEDELETEREQUEST_H

#include "workitems/FwWorkItem.h"

class FileDeleteRequest : public FwWorkItem {
  public:
    enum FileDeleteStatus : int { FileDeletePending = 0, FileDeleteComplete = 1, FileDeleteFailed = 2 };

    explicit FileDeleteRequest(const std::string& filename);
    ~FileDeleteRequest() override;

    std::string getStatus() const override;
    FileDeleteStatus getFileDeleteStatus() const { return mFileDeleteStatus; }
    void setFileDeleteStatus(FileDeleteStatus status) { mFileDeleteStatus = status; }

    std::string getFilename() const { return mFilename; }

  private:
    FileDeleteStatus mFileDeleteStatus = FileDeletePending;
    const std::string mFilename;
};

#endif
