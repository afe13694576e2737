#include "update/RequestLedger.h"

#include <algorithm>

const RequestLedger::Entry* RequestLedger::find(const FwWorkItem* request) const {
    const auto entry = std::find_if(mEntries.begin(), mEntries.end(),
                                    [request](const Entry& e) { return e.item.get() == request; });
    return entry != mEntries.end() ? &*entry : nullptr;
}

bool RequestLedger::remove(const FwWorkItem* request) {
    const Entry* entry = find(request);
    if (entry == nullptr)
        return false;
    mEntries.erase(mEntries.begin() + (entry - mEntries.data()));
    return true;
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
    const Entry* entry = find(request);
    return entry != nullptr && entry->stale;
}

std::string RequestLedger::getVersion(const FwWorkItem* request) const {
    const Entry* entry = find(request);
    return entry != nullptr ? entry->version : "";
}

void RequestLedger::succeed(const FwWorkItem* request, const FwWorkItem* successor) {
    const Entry* from = find(request);
    auto* to = const_cast<Entry*>(find(successor));
    if (from == nullptr || to == nullptr)
        return;
    to->version = from->version;
    to->stale = from->stale;
}
