// Asks the configuration monitor to flag an update image as ready for installation.
#ifndef WORKITEMS_SETREADYFORUPDATEREQUEST_H
#define WORKITEMS_SETREADYFORUPDATEREQUEST_H

#include "workitems/FwWorkItem.h"

class SetReadyForUpdateRequest : public FwWorkItem {
  public:
    enum SetReadyStatus : int { SetReadyPending = 0, SetReadyComplete = 1, SetReadyFailed = 2 };

    explicit SetReadyForUpdateRequest(const std::string& filename)
        : FwWorkItem(FwWorkItem::SetReadyForUpdateRequest), mFilename(filename) {}

    std::string getStatus() const override;
    SetReadyStatus getSetReadyStatus() const { return mSetReadyStatus; }
    void setSetReadyStatus(SetReadyStatus status) { mSetReadyStatus = status; }

    std::string getFilename() const { return mFilename; }

    // Why it failed: the configured version is installed by now, so that there is nothing to be ready for.
    bool isNotNeeded() const { return mNotNeeded; }
    void setNotNeeded() { mNotNeeded = true; }

  private:
    SetReadyStatus mSetReadyStatus = SetReadyPending;
    const std::string mFilename;
    bool mNotNeeded = false;
};

#endif
