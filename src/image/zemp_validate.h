// Checks of ZEMP headers and bodies in memory, for images and for the host configuration record.
//
// Any thread may call them. They take no length: the caller has made sure that `hdr_length` and `body_length`
// bytes are there. They never allocate and never log; a null pointer, except where stated, is a programming
// fault and ends the process.
#ifndef IMAGE_ZEMP_VALIDATE_H
#define IMAGE_ZEMP_VALIDATE_H

#include "image/ZempFormat.h"

extern "C" {

// Results of the checks.
enum ZempValidity {
    ZempValid = 1,
    ZempBadVersion = -65,       // main header version other than 1
    ZempBadHeaderLength = -128, // shorter than the header's fixed part
    ZempBadHeaderCrc = -129,
    ZempBadBodyCrc = -192
};

// CRC-32 (IEEE 802.3, reflected, inverted) of `length` bytes. `crc` is the result over the bytes before, 0 to
// start, so that calls chain over consecutive buffers. A length of 0 returns `crc`, and `data` may be null.
uint32_t crc32_calc(uint32_t crc, const void* data, size_t length);

// CRC-32 of one range of bytes followed by another, from those of the two; `length` is the second one's.
uint32_t crc32_combine(uint32_t crc, uint32_t next, uint64_t length);

int zemp_validate_header(const zemp_header_t* header);

// `header` and `body` are not tested for null.
int zemp_validate_body(const zemp_header_t* header, const void* body);

int zemp_validate_content_header(const zemp_content_header_t* header);
int zemp_validate_content_body(const zemp_content_header_t* header, const void* body);

// The header, and the body when the header is valid.
int zemp_validate_content_part(const zemp_content_header_t* header, const void* body);
}

#endif
