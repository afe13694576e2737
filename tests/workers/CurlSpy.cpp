#include "workers/CurlSpy.h"

#include <cstdarg>
#include <dlfcn.h>
#include <netdb.h>
#include <unistd.h>

#undef curl_easy_setopt

namespace {

// libcurl's own function of this name.
template <typename Function>
Function* theirs(const char* name, Function*) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void note(CURL* handle, CURLoption option, const std::string& value) {
    CurlSpy& spy = CurlSpy::get();
    const std::lock_guard<std::mutex> lock(spy.mutex);
    spy.options.emplace_back(option, value);
    spy.handles.insert(handle);
}

} // namespace

// Read by the thread sanitizer. A lookup that is given up with its transfer has a thread that nobody joins.
extern "C" const char* __tsan_default_suppressions() {
    return "thread:libcurl.so";
}

CurlSpy& CurlSpy::get() {
    static CurlSpy spy;
    return spy;
}

CurlSpy::Options CurlSpy::takeOptions() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(options, {});
}

size_t CurlSpy::liveHandles() {
    const std::lock_guard<std::mutex> lock(mutex);
    return handles.size();
}

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    CurlSpy& spy = CurlSpy::get();
    ++spy.lookups;
    while (spy.holdsLookups)
        usleep(1000);
    --spy.lookups;
    return theirs("getaddrinfo", &getaddrinfo)(node, service, hints, result);
}

extern "C" CURL* curl_easy_init(void) {
    if (CurlSpy::get().refusesHandles)
        return nullptr;
    return theirs("curl_easy_init", &curl_easy_init)();
}

extern "C" void curl_easy_cleanup(CURL* handle) {
    {
        CurlSpy& spy = CurlSpy::get();
        const std::lock_guard<std::mutex> lock(spy.mutex);
        spy.handles.erase(handle);
    }
    theirs("curl_easy_cleanup", &curl_easy_cleanup)(handle);
}

extern "C" CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    auto* const set = theirs("curl_easy_setopt", &curl_easy_setopt);
    va_list arguments;
    va_start(arguments, option);
    CURLcode code = CURLE_OK;
    if (option >= CURLOPTTYPE_OFF_T) {
        const curl_off_t value = va_arg(arguments, curl_off_t);
        note(handle, option, std::to_string(value));
        code = set(handle, option, value * CurlSpy::get().speedFactor);
    } else if (option >= CURLOPTTYPE_OBJECTPOINT) {
        void* const value = va_arg(arguments, void*);
        const bool isText = option == CURLOPT_URL || option == CURLOPT_RANGE;
        note(handle, option, isText ? static_cast<const char*>(value) : "");
        code = set(handle, option, value);
    } else {
        long value = va_arg(arguments, long);
        note(handle, option, std::to_string(value));
        const long replaced = CurlSpy::get().lowSpeedSeconds;
        if (option == CURLOPT_LOW_SPEED_TIME && replaced != 0)
            value = replaced;
        code = set(handle, option, value);
    }
    va_end(arguments);
    return code;
}
