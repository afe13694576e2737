// An image on a web server, fetched by byte ranges as they are needed.
#ifndef IMAGEFILE_HTTPSOURCE_H
#define IMAGEFILE_HTTPSOURCE_H

#include "imagefile/ImageSource.h"
#include <curl/curl.h>
#include <map>

namespace imagefile {

class HttpSource : public ImageSource {
  public:
    // Fetches the first bytes, and with them the size. See openImage().
    HttpSource(const std::string& url, std::function<bool()> isStopped);
    ~HttpSource() override;

    const uint8_t* data() const override { return mData; }
    uint64_t size() const override { return mSize; }
    bool isLocal() const override { return false; }
    void load(uint64_t offset, uint64_t length) override;

  private:
    struct Answer; // of one transfer, while it comes in

    void release();
    void fetch(uint64_t offset, uint64_t length);
    void accept(const Answer& answer, uint64_t offset, uint64_t length);
    void allocate(uint64_t size);
    // Where the bytes that are there from `offset` on end.
    uint64_t endOfLoaded(uint64_t offset) const;
    void markLoaded(uint64_t offset, uint64_t end);
    [[noreturn]] void fail(const std::string& reason) const;

    static size_t onBody(const char* data, size_t size, size_t count, void* answer);
    static size_t onHeader(const char* data, size_t size, size_t count, void* answer);
    static int onProgress(void* source, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

    const std::function<bool()> mIsStopped;
    CURL* const mHandle;
    uint8_t* mData = nullptr; // the mapping
    uint64_t mSize = 0;
    std::map<uint64_t, uint64_t> mLoaded; // begin and end of what is there, apart from each other
};

} // namespace imagefile

#endif
