#include "update/RequestLedger.h"

#include <algorithm>

std::vector<RequestLedger::Entry>::const_iterator RequestLedger::find(const FwWorkItem* request) const {
    return std::find_if(mEntries.begin(), mEntries.end(),
                        [request](const Entry& entry) { return entry.item.get() == request; });
}

bool RequestLedger::retire(const FwWorkItem* request) {
    const auto entry = find(request);
    if (entry == mEntries.end()) {
        delete request;
        return false;
    }
    const bool isStale = entry->stale;
    mEntries.erase(entry);
    return isStale;
}

size_t RequestLedger::count(FwWorkItem::WorkItemType type) const {
    return static_cast<size_t>(std::count_if(mEntries.begin(), mEntries.end(), [type](const Entry& e) {
        return e.item->getWorkItemType() == type;
    }));
}

bool RequestLedger::isBusy() const {
    return mEntries.size() > count(FwWorkItem::IsUpdateNeededRequest);
}

void RequestLedger::markAllStale() {
    for (Entry& entry : mEntries)
        entry.stale = true;
}

bool RequestLedger::isStale(const FwWorkItem* request) const {
    const auto entry = find(request);
    return entry != mEntries.end() && entry->stale;
}

std::string RequestLedger::getVersion(const FwWorkItem* request) const {
    const auto entry = find(request);
    return entry != mEntries.end() ? entry->version : "";
}

void RequestLedger::succeed(const FwWorkItem* request, const FwWorkItem* successor) {
    const auto from = find(request);
    const auto to = find(successor);
    if (from == mEntries.end() || to == mEntries.end())
        return;
    Entry& entry = mEntries[static_cast<size_t>(to - mEntries.begin())];
    entry.version = from->version;
    entry.stale = from->stale;
}
