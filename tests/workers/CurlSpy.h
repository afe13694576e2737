// Stands between the code under test and libcurl: counts handles, notes options, and changes a few of them.
#ifndef TESTS_WORKERS_CURLSPY_H
#define TESTS_WORKERS_CURLSPY_H

#include <atomic>
#include <curl/curl.h>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct CurlSpy {
    static CurlSpy& get();

    // Options set since the last call, in order, with their values; pointers without.
    using Options = std::vector<std::pair<CURLoption, std::string>>;
    Options takeOptions();

    // Handles that options were set on and that were not released.
    size_t liveHandles();

    std::atomic<bool> refusesHandles{false};
    std::atomic<long> lowSpeedSeconds{0};  // not 0: passed to libcurl in place of what was set
    std::atomic<long> speedFactor{1};      // the receive speed is passed to libcurl so many times as high
    std::atomic<bool> holdsLookups{false}; // of host names: they do not return while it is set
    std::atomic<int> lookups{0};           // that are held
    std::mutex mutex;
    Options options;         // guarded by mutex
    std::set<void*> handles; // guarded by mutex
};

#endif
