#include "workers/EasyHandle.h"

#include "common/Thread.h"
#include <mutex>
#include <vector>

namespace {

constexpr int LongestWaitMs = 1000; // libcurl's own timers end it earlier

// Handles whose transfer was cut off. Releasing one may wait for a name lookup, so they stay as they are,
// reachable, until the process ends. At most one pair per stopped worker.
struct GivenUp {
    std::mutex mutex;
    std::vector<void*> handles; // guarded by mutex
};

void giveUp(CURL* handle, CURLM* multi) {
    static auto* const givenUp = new GivenUp; // never freed
    const std::lock_guard<std::mutex> lock(givenUp->mutex);
    givenUp->handles.insert(givenUp->handles.end(), {handle, multi});
}

// The result of the one transfer, which has ended.
CURLcode getResult(CURLM* multi) {
    int left = 0;
    const CURLMsg* message = curl_multi_info_read(multi, &left);
    return message != nullptr && message->msg == CURLMSG_DONE ? message->data.result
                                                              : CURLE_BAD_FUNCTION_ARGUMENT;
}

} // namespace

EasyHandle::~EasyHandle() {
    if (mMulti != nullptr)
        giveUp(mHandle, mMulti);
    else if (mHandle != nullptr)
        curl_easy_cleanup(mHandle);
}

// What curl_easy_perform() does; but a thread that is cancelled there may be anywhere in libcurl, with memory
// that nobody knows of any more. Here it is cancelled in the wait between two steps.
CURLcode EasyHandle::perform() {
    mMulti = curl_multi_init();
    if (mMulti == nullptr)
        return CURLE_OUT_OF_MEMORY;
    CURLMcode code = curl_multi_add_handle(mMulti, mHandle);
    int running = 1;
    while (code == CURLM_OK && running != 0) {
        code = curl_multi_perform(mMulti, &running);
        if (code == CURLM_OK && running != 0) {
            const CancellationPoint point;
            code = curl_multi_poll(mMulti, nullptr, 0, LongestWaitMs, nullptr);
        }
    }
    const CURLcode result = code == CURLM_OK              ? getResult(mMulti)
                            : code == CURLM_OUT_OF_MEMORY ? CURLE_OUT_OF_MEMORY
                                                          : CURLE_BAD_FUNCTION_ARGUMENT;
    curl_multi_remove_handle(mMulti, mHandle);
    curl_multi_cleanup(mMulti);
    mMulti = nullptr;
    return result;
}

long EasyHandle::getHttpStatus() const {
    long version = CURL_HTTP_VERSION_NONE;
    long status = 0;
    const bool isHttp = curl_easy_getinfo(mHandle, CURLINFO_HTTP_VERSION, &version) == CURLE_OK &&
                        version != CURL_HTTP_VERSION_NONE;
    return isHttp && curl_easy_getinfo(mHandle, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK ? status : 0;
}
