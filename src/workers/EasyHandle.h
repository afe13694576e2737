// A transfer handle of libcurl, released with its owner.
//
// Used by one thread at a time. That thread may be cancelled in the transfer, see perform().
#ifndef WORKERS_EASYHANDLE_H
#define WORKERS_EASYHANDLE_H

#include <cstdio>
#include <curl/curl.h>
#include <string>

class EasyHandle {
  public:
    EasyHandle() : mHandle(curl_easy_init()) {}

    // Releases the handle; one whose transfer was cancelled is kept to the end of the process instead.
    ~EasyHandle();
    EasyHandle(const EasyHandle&) = delete;
    EasyHandle& operator=(const EasyHandle&) = delete;

    // False when libcurl gave no handle; then nothing else may be called.
    bool isValid() const { return mHandle != nullptr; }

    // Sets an option; the value's type is what libcurl documents for it.
    template <typename T>
    [[nodiscard]] CURLcode set(CURLoption option, T value) {
        return curl_easy_setopt(mHandle, option, value);
    }

    // Runs the transfer to its end. The calling thread may be cancelled where the transfer waits for the
    // other side, and nowhere else.
    [[nodiscard]] CURLcode perform();

    // HTTP status of the answer, after the transfer; 0 without an answer, and with other protocols.
    long getHttpStatus() const;

  private:
    CURL* const mHandle;
    CURLM* mMulti = nullptr; // of the transfer that runs
};

#endif
