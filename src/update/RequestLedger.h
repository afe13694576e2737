// The requests of one update that are out with a worker or wait in a queue: owned here until their results
// have been handled, counted by type, and marked stale when the version or URL that they serve is given up.
//
// Main thread only. An owned item may be in a worker's hands meanwhile; the ledger never touches its content.
#ifndef UPDATE_REQUESTLEDGER_H
#define UPDATE_REQUESTLEDGER_H

#include "workitems/FwWorkItem.h"
#include <memory>
#include <string>
#include <vector>

class RequestLedger {
  public:
    // Takes over a new request made for `version`, and returns it.
    template <typename Request>
    Request* add(std::unique_ptr<Request> request, const std::string& version) {
        Request* item = request.get();
        mEntries.push_back({std::move(request), version, false});
        return item;
    }

    // Destroys the request, also one that is not in the ledger. Whether it was stale.
    bool retire(const FwWorkItem* request);

    bool contains(const FwWorkItem* request) const { return find(request) != mEntries.end(); }

    // Requests of one type, oldest first. `Request` is the class of that type.
    template <typename Request>
    std::vector<Request*> list(FwWorkItem::WorkItemType type) const {
        std::vector<Request*> requests;
        for (const Entry& entry : mEntries) {
            if (entry.item->getWorkItemType() == type)
                requests.push_back(static_cast<Request*>(entry.item.get()));
        }
        return requests;
    }

    size_t count(FwWorkItem::WorkItemType type) const;

    // Whether anything but questions is out: while it is, files and parts may change under a decision.
    bool isBusy() const;

    // Marks all that is out as made for a version or URL that is no longer wanted.
    void markAllStale();
    bool isStale(const FwWorkItem* request) const;

    // The version the request was made for; empty when it is not in the ledger.
    std::string getVersion(const FwWorkItem* request) const;

    // Lets `successor` serve the version of `request`, and be as stale.
    void succeed(const FwWorkItem* request, const FwWorkItem* successor);

  private:
    struct Entry {
        std::unique_ptr<FwWorkItem> item;
        std::string version;
        bool stale;
    };

    // Its place in the entries, or their end.
    std::vector<Entry>::const_iterator find(const FwWorkItem* request) const;

    std::vector<Entry> mEntries;
};

#endif
