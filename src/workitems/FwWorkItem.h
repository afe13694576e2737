// Base of every message between the master and the workers.
//
// Items travel by raw pointer through wqueue<FwWorkItem*>; whoever holds the pointer owns the item. A request
// starts with its pending status, the worker sets one result and posts the same object back; an event travels
// one way. An item is touched by one thread at a time unless its class says otherwise.
#ifndef WORKITEMS_FWWORKITEM_H
#define WORKITEMS_FWWORKITEM_H

#include <string>

class FwWorkItem {
  public:
    enum WorkItemType {
        UnspecifiedWorkItemType = 0,
        ConfigDbStatusEvent = 1,
        NewFirmwareNeededEvent = 2,
        FileScanRequest = 3,
        DownloadRequest = 4,
        ParseFileRequest = 5,
        GotZempStartEvent = 6,
        SuuInfoInvalidEvent = 7,
        IsUpdateNeededRequest = 8,
        CompileUpdateZempRequest = 9,
        SetReadyForUpdateRequest = 10,
        FileDeleteRequest = 11,
        ExitRunLoop = 12
    };

    virtual ~FwWorkItem() = default;
    FwWorkItem(const FwWorkItem&) = delete;
    FwWorkItem& operator=(const FwWorkItem&) = delete;

    // Printed name of the item's status; "No status" for an item without one.
    virtual std::string getStatus() const = 0;

    WorkItemType getWorkItemType() const { return mWorkItemType; }

    // Printed name of a type; "<unknown WorkItem type>" outside the enumeration.
    static const char* getString(WorkItemType type);

    // Type name and status. Derived classes with a text of their own hide this one.
    std::string toString() const;

  protected:
    explicit FwWorkItem(WorkItemType type) : mWorkItemType(type) {}

  private:
    const WorkItemType mWorkItemType;
};

#endif
