#include "imagefile/HttpSource.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <strings.h>
#include <sys/mman.h>

namespace imagefile {

namespace {

constexpr uint64_t LeastBytes = 512;                                   // of one request: a header and more
constexpr uint64_t MostBytes = 8ULL * 1024 * 1024 * 1024;              // an image has 32-bit lengths
constexpr long ConnectSeconds = 30, StallSeconds = 30, LeastSpeed = 1; // bytes per second
constexpr long Partial = 206;
constexpr long Whole = 200;

} // namespace

struct HttpSource::Answer {
    std::string body;
    size_t limit = 0; // more is not taken
    bool hasRange = false;
    unsigned long long first = 0;
    unsigned long long last = 0;
    unsigned long long total = 0;
};

HttpSource::HttpSource(const std::string& url, std::function<bool()> isStopped)
    : ImageSource(url), mIsStopped(std::move(isStopped)), mHandle(curl_easy_init()) {
    if (mHandle == nullptr)
        fail("cannot set up a transfer");
    try {
        fetch(0, LeastBytes);
    } catch (...) {
        release();
        throw;
    }
}

HttpSource::~HttpSource() {
    release();
}

void HttpSource::release() {
    curl_easy_cleanup(mHandle);
    if (mData != nullptr)
        munmap(mData, static_cast<size_t>(mSize));
}

void HttpSource::fail(const std::string& reason) const {
    throw std::runtime_error(name() + ": " + reason);
}

size_t HttpSource::onBody(const char* data, size_t size, size_t count, void* userdata) {
    auto& answer = *static_cast<Answer*>(userdata);
    const size_t bytes = size * count;
    if (bytes > answer.limit - answer.body.size())
        return 0; // more than asked for: ends the transfer
    answer.body.append(data, bytes);
    return bytes;
}

size_t HttpSource::onHeader(const char* data, size_t size, size_t count, void* userdata) {
    auto& answer = *static_cast<Answer*>(userdata);
    const std::string line(data, size * count);
    constexpr char name[] = "Content-Range:";
    if (strncasecmp(line.c_str(), name, sizeof name - 1) == 0)
        answer.hasRange = sscanf(line.c_str() + sizeof name - 1, " bytes %llu-%llu/%llu", &answer.first,
                                 &answer.last, &answer.total) == 3;
    return size * count;
}

int HttpSource::onProgress(void* source, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const auto& isStopped = static_cast<HttpSource*>(source)->mIsStopped;
    return isStopped && isStopped() ? 1 : 0;
}

void HttpSource::fetch(uint64_t offset, uint64_t length) {
    Answer answer;
    answer.limit = static_cast<size_t>(length);
    const std::string range = std::to_string(offset) + "-" + std::to_string(offset + length - 1);
    curl_easy_setopt(mHandle, CURLOPT_URL, name().c_str());
    curl_easy_setopt(mHandle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(mHandle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(mHandle, CURLOPT_RANGE, range.c_str());
    curl_easy_setopt(mHandle, CURLOPT_CONNECTTIMEOUT, ConnectSeconds);
    curl_easy_setopt(mHandle, CURLOPT_LOW_SPEED_LIMIT, LeastSpeed);
    curl_easy_setopt(mHandle, CURLOPT_LOW_SPEED_TIME, StallSeconds);
    curl_easy_setopt(mHandle, CURLOPT_WRITEFUNCTION, &HttpSource::onBody);
    curl_easy_setopt(mHandle, CURLOPT_WRITEDATA, &answer);
    curl_easy_setopt(mHandle, CURLOPT_HEADERFUNCTION, &HttpSource::onHeader);
    curl_easy_setopt(mHandle, CURLOPT_HEADERDATA, &answer);
    curl_easy_setopt(mHandle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(mHandle, CURLOPT_XFERINFOFUNCTION, &HttpSource::onProgress);
    curl_easy_setopt(mHandle, CURLOPT_XFERINFODATA, this);
    char detail[CURL_ERROR_SIZE] = "";
    curl_easy_setopt(mHandle, CURLOPT_ERRORBUFFER, detail);
    const CURLcode code = curl_easy_perform(mHandle);
    curl_easy_setopt(mHandle, CURLOPT_ERRORBUFFER, nullptr);
    long status = 0;
    curl_easy_getinfo(mHandle, CURLINFO_RESPONSE_CODE, &status);
    if (status == Whole && answer.body.empty() && code == CURLE_OK)
        fail("is empty");
    if (status == Whole)
        fail("the server ignores byte ranges: it answered 200 with the whole file");
    if (status != 0 && status != Partial)
        fail("the server answered " + std::to_string(status));
    // The library's own text does not tell what is wrong with a certificate.
    if ((code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CONNECT_ERROR) && detail[0] != '\0')
        fail(detail);
    if (code != CURLE_OK && code != CURLE_WRITE_ERROR)
        fail(curl_easy_strerror(code));
    accept(answer, offset, length);
}

void HttpSource::accept(const Answer& answer, uint64_t offset, uint64_t length) {
    if (!answer.hasRange)
        fail("the server does not say which bytes of how many it sent");
    if (mData == nullptr)
        allocate(answer.total);
    else if (answer.total != mSize)
        fail("changed while it was read");
    const uint64_t end = std::min(offset + length, mSize);
    if (answer.first != offset || answer.last + 1 != end || answer.body.size() != end - offset)
        fail("the server sent other bytes than it was asked for");
    memcpy(mData + offset, answer.body.data(), answer.body.size());
    markLoaded(offset, end);
}

// Only pages that are written to take memory.
void HttpSource::allocate(uint64_t size) {
    if (size == 0 || size > MostBytes || size > SIZE_MAX)
        fail("is said to have " + std::to_string(size) + " bytes");
    void* data = mmap(nullptr, static_cast<size_t>(size), PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (data == MAP_FAILED)
        fail(strerror(errno));
    mData = static_cast<uint8_t*>(data);
    mSize = size;
}

uint64_t HttpSource::endOfLoaded(uint64_t offset) const {
    const auto next = mLoaded.upper_bound(offset);
    return next == mLoaded.begin() ? offset : std::max(offset, std::prev(next)->second);
}

void HttpSource::markLoaded(uint64_t offset, uint64_t end) {
    auto next = mLoaded.upper_bound(offset);
    if (next != mLoaded.begin() && std::prev(next)->second >= offset)
        --next;
    while (next != mLoaded.end() && next->first <= end) {
        offset = std::min(offset, next->first);
        end = std::max(end, next->second);
        next = mLoaded.erase(next);
    }
    mLoaded[offset] = end;
}

void HttpSource::load(uint64_t offset, uint64_t length) {
    const uint64_t begin = std::min(offset, mSize);
    const uint64_t end = begin + std::min(length, mSize - begin);
    const uint64_t missing = endOfLoaded(begin);
    if (missing < end)
        fetch(missing, std::max(std::min(LeastBytes, mSize - missing), end - missing));
}

} // namespace imagefile
