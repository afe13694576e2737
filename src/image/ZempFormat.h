// The ZEMP file format: the one place that knows its offsets, sizes, field layouts and type numbers.
//
// A file is the 8-byte magic, a main header, and a body of content parts back to back. A content part is a
// content header, for some types an extended header (both are covered by its `hdr_length`), `body_length`
// bytes of body, and zero bytes up to a multiple of 4. The host configuration record of the terminal uses the
// same container. All numbers are little-endian and may lie at any address; text fields have a fixed width,
// are filled up with zero bytes, and have no terminator when they fill the width.
#ifndef IMAGE_ZEMPFORMAT_H
#define IMAGE_ZEMPFORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "The structures below are the bytes of the file only on a little-endian machine."
#endif

// Packed: alignment 1, so a pointer into a file's bytes is a valid pointer to the structure. May alias: so
// that the compiler keeps reads through it in order with writes of those bytes.
#define ZEMP_ON_DISK __attribute__((packed, may_alias))

// Main header, at offset 8 of a file.
struct ZEMP_ON_DISK zemp_header_t {
    uint32_t hdr_crc;     // CRC-32 of header bytes 4 to hdr_length - 1
    uint8_t version;      // format version, 1
    uint8_t reserved;     // not interpreted
    uint16_t hdr_length;  // at least 16; the body begins at 8 + hdr_length
    uint32_t body_length; // bytes of body after the header
    uint32_t body_crc;    // CRC-32 of these bytes
};

// Start of every content part.
struct ZEMP_ON_DISK zemp_content_header_t {
    uint32_t hdr_crc;     // CRC-32 of bytes 4 to hdr_length - 1 of the part
    uint16_t type;        // ZempFormat::ContentType
    uint16_t hdr_length;  // content header plus extended header, at least 32
    uint32_t body_length; // bytes of body after the header, without the padding
    char name[16];
    uint32_t body_crc; // CRC-32 of the body_length bytes
};

// Extended header of a release header part.
struct ZEMP_ON_DISK zemp_content_release_header_t {
    uint8_t major;
    uint8_t minor;
    uint16_t build;
    uint32_t time; // seconds since 1970-01-01 UTC
    char name[36];
};

// Extended header of a software blob.
struct ZEMP_ON_DISK zemp_content_software_blob_t {
    uint8_t major;
    uint8_t minor;
    uint16_t build;
    char build_id[28];
};

namespace ZempFormat {

inline constexpr char Magic[] = "PMEZZEMP"; // its terminator does not stand in the file
inline constexpr uint32_t MagicSize = 8;
inline constexpr uint32_t HeaderSize = 16;
inline constexpr uint32_t ContentHeaderSize = 32;
inline constexpr uint32_t ReleaseHeaderSize = 44;
inline constexpr uint32_t SwBlobHeaderSize = 32;

inline constexpr uint32_t HeaderOffset = MagicSize; // of the main header in the file

// Bodies stand at fixed offsets from the part's start, whatever its hdr_length declares.
inline constexpr uint32_t BlobBodyOffset = ContentHeaderSize;
inline constexpr uint32_t ReleaseBodyOffset = ContentHeaderSize + ReleaseHeaderSize;
inline constexpr uint32_t SwBlobBodyOffset = ContentHeaderSize + SwBlobHeaderSize;

inline constexpr uint32_t CrcFieldSize = 4; // hdr_crc: the first bytes of both headers, not covered by it
inline constexpr uint8_t Version = 1;       // of the main header
inline constexpr uint32_t Alignment = 4;    // of parts, counted from the start of the part before

enum ContentType : uint16_t { ReleaseHeaderType = 1, BlobType = 3, SwBlobType = 4 };

// Name of the plain blob that is the software update manifest.
inline constexpr char ManifestName[] = "suum";

// Zero bytes that follow a body of `length` bytes.
constexpr uint32_t padding(uint32_t length) {
    return (Alignment - length % Alignment) % Alignment;
}

// Little-endian numbers at any address.
inline uint16_t getLe16(const uint8_t* at) {
    return static_cast<uint16_t>(at[0] | at[1] << 8);
}
inline uint32_t getLe32(const uint8_t* at) {
    return static_cast<uint32_t>(getLe16(at)) | static_cast<uint32_t>(getLe16(at + 2)) << 16;
}
inline void putLe16(uint8_t* at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value & 0xFFU);
    at[1] = static_cast<uint8_t>(value >> 8);
}
inline void putLe32(uint8_t* at, uint32_t value) {
    putLe16(at, static_cast<uint16_t>(value & 0xFFFFU));
    putLe16(at + 2, static_cast<uint16_t>(value >> 16));
}

// Text of a fixed-width field, with or without a terminator in it.
template <size_t Width>
std::string text(const char (&field)[Width]) {
    return std::string(field, strnlen(field, Width));
}

// Whether a fixed-width field holds exactly `value`.
template <size_t Width>
bool equals(const char (&field)[Width], const char* value) {
    return strncmp(field, value, Width) == 0;
}

static_assert(sizeof(Magic) - 1 == MagicSize);
static_assert(sizeof(zemp_header_t) == HeaderSize && alignof(zemp_header_t) == 1);
static_assert(sizeof(zemp_content_header_t) == ContentHeaderSize && alignof(zemp_content_header_t) == 1);
static_assert(sizeof(zemp_content_release_header_t) == ReleaseHeaderSize);
static_assert(sizeof(zemp_content_software_blob_t) == SwBlobHeaderSize);
static_assert(alignof(zemp_content_release_header_t) == 1 && alignof(zemp_content_software_blob_t) == 1);
static_assert(offsetof(zemp_header_t, hdr_length) == 6 && offsetof(zemp_header_t, body_crc) == 12);
static_assert(offsetof(zemp_content_header_t, hdr_length) == 6);
static_assert(offsetof(zemp_content_header_t, name) == 12 && offsetof(zemp_content_header_t, body_crc) == 28);
static_assert(offsetof(zemp_content_release_header_t, name) == 8);
static_assert(offsetof(zemp_content_software_blob_t, build_id) == 4);

} // namespace ZempFormat

#endif
