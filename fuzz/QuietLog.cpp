#include "fuzz/QuietLog.h"

#include "common/VexStreamLog.h"
#include "image/zemp_validate.h"
#include <iostream>

namespace {

// Takes everything and keeps nothing.
class NullBuffer : public std::streambuf {
  protected:
    int overflow(int c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }
};

} // namespace

void fuzz::quietLog(const uint8_t* data, size_t size) {
    static const auto* const previous = std::clog.rdbuf(new NullBuffer); // std::clog lives until the very end
    (void)previous;
    VexStreamLog::setLevel(crc32_calc(0, data, size) % 8 == 0 ? LogDebug : LogEmergency);
}
