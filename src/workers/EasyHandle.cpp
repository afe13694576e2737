#include "workers/EasyHandle.h"

#include "common/Thread.h"
#include <mutex>
#include <vector>

namespace {

// Handles whose transfer was cut off. libcurl may have been anywhere in it, and releasing one may wait for a
// name lookup, so they stay as they are, reachable, until the process ends. At most one per stopped worker.
struct GivenUp {
    std::mutex mutex;
    std::vector<CURL*> handles; // guarded by mutex
};

void giveUp(CURL* handle) {
    static auto* const givenUp = new GivenUp; // never freed
    const std::lock_guard<std::mutex> lock(givenUp->mutex);
    givenUp->handles.push_back(handle);
}

} // namespace

EasyHandle::~EasyHandle() {
    if (mInTransfer)
        giveUp(mHandle);
    else if (mHandle != nullptr)
        curl_easy_cleanup(mHandle);
}

CURLcode EasyHandle::perform() {
    mInTransfer = true;
    CURLcode code = CURLE_OK;
    {
        const CancellationPoint point;
        code = curl_easy_perform(mHandle);
    }
    mInTransfer = false;
    return code;
}
