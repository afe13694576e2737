#include "image/zemp_validate.h"

#include "vex/kq.h"
#include <libdeflate.h>

#define ZEMP_ASSERT(condition)                                                                               \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            kq_panic("ASSERT in %s at %d\n", "zemp_validate.c", __LINE__);                                   \
    } while (0)

namespace {

// Of header bytes 4 to hdr_length - 1.
uint32_t headerCrc(const void* header, uint16_t hdrLength) {
    return crc32_calc(0, static_cast<const uint8_t*>(header) + ZempFormat::CrcFieldSize,
                      hdrLength - ZempFormat::CrcFieldSize);
}

// Product of two polynomials modulo that of CRC-32; the highest bit is the coefficient of x to the 0.
uint32_t multiply(uint32_t a, uint32_t b) {
    constexpr uint32_t crcPolynomial = 0xEDB88320;
    uint32_t product = 0;
    for (; a != 0; a <<= 1) {
        product ^= (a >> 31) != 0 ? b : 0;
        b = b >> 1 ^ ((b & 1) != 0 ? crcPolynomial : 0);
    }
    return product;
}

} // namespace

uint32_t crc32_calc(uint32_t crc, const void* data, size_t length) {
    return length == 0 ? crc : libdeflate_crc32(crc, data, length);
}

uint32_t crc32_combine(uint32_t crc, uint32_t next, uint64_t length) {
    uint32_t factor = 1U << 23; // x to the 8th: one byte, then two, four, ...
    for (; length != 0; length >>= 1) {
        crc = (length & 1) != 0 ? multiply(factor, crc) : crc;
        factor = multiply(factor, factor);
    }
    return crc ^ next;
}

int zemp_validate_header(const zemp_header_t* header) {
    ZEMP_ASSERT(header != nullptr);
    if (header->version != ZempFormat::Version)
        return ZempBadVersion;
    if (header->hdr_length < ZempFormat::HeaderSize)
        return ZempBadHeaderLength;
    return headerCrc(header, header->hdr_length) == header->hdr_crc ? ZempValid : ZempBadHeaderCrc;
}

int zemp_validate_body(const zemp_header_t* header, const void* body) {
    return crc32_calc(0, body, header->body_length) == header->body_crc ? ZempValid : ZempBadBodyCrc;
}

int zemp_validate_content_header(const zemp_content_header_t* header) {
    ZEMP_ASSERT(header != nullptr);
    if (header->hdr_length < ZempFormat::ContentHeaderSize)
        return ZempBadHeaderLength;
    return headerCrc(header, header->hdr_length) == header->hdr_crc ? ZempValid : ZempBadHeaderCrc;
}

int zemp_validate_content_body(const zemp_content_header_t* header, const void* body) {
    ZEMP_ASSERT(header != nullptr);
    ZEMP_ASSERT(body != nullptr);
    return crc32_calc(0, body, header->body_length) == header->body_crc ? ZempValid : ZempBadBodyCrc;
}

int zemp_validate_content_part(const zemp_content_header_t* header, const void* body) {
    const int result = zemp_validate_content_header(header);
    return result == ZempValid ? zemp_validate_content_body(header, body) : result;
}
