// Writes and checks host configuration records: what a terminal's flash or backup file would hold. For tests
// and for the tools; the daemon itself only reads them.
//
// No function keeps state; any thread may call them.
#ifndef HOSTCONFIG_HOSTCONFIGRECORD_H
#define HOSTCONFIG_HOSTCONFIGRECORD_H

#include "installed/suul.h"
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace hostcfg {

using Bytes = std::vector<uint8_t>;

struct Version {
    uint8_t major = 0;
    uint8_t minor = 0;
    uint16_t build = 0;
};

inline constexpr uint8_t NoRelease = 255;

// An update set.
struct Set {
    std::string name;
    bool bootable = true;
    uint8_t releaseHeader = NoRelease; // index into Description::releases
    uint8_t references = 0;
};

struct Release {
    std::string name;
    Version version;
    uint32_t time = 0; // seconds since 1970-01-01 UTC
};

// A partition and what is installed on it.
struct Partition {
    std::string pool;
    uint8_t number = 0;
    uint32_t offset = 0; // on the flash, in bytes
    uint32_t size = 0;   // in bytes
    std::string mountPoint;
    std::string fsType;
    std::string contentName;
    Version version;
    std::string buildId;
    uint32_t length = 0; // of the content, in bytes
    uint32_t crc = 0;    // CRC-32 of the content
};

// A content part besides the SUU data.
struct Part {
    std::string name;
    Bytes body;
};

struct Description {
    std::vector<Set> sets;
    int activeSet = -1; // index, -1 for none
    std::vector<Release> releases;
    std::vector<Partition> partitions;

    // For records out of the ordinary.
    std::vector<Part> partsBefore; // the SUU data
    std::vector<Part> partsAfter;
    size_t unusedBytes = 0;                         // zero bytes of the body behind the last part
    std::function<void(suu_data_t&)> changeSuuData; // called before the checksums are made
};

// What a description asks for does not fit; the text says what.
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The record, at most 5120 bytes. Throws Error when a text, a number or the whole is too long.
Bytes build(const Description& description);

// Makes the main header's checksums right again after its body was changed; the main header has its ordinary
// length, and the record ends with the body.
void reseal(Bytes& record);

struct Finding {
    bool isError;  // the daemon refuses the record; otherwise it only looks wrong
    size_t offset; // in the record
    std::string text;
};

// What is wrong with a record, as the daemon would find it in a file; empty when it is good. The daemon
// refuses the record exactly if one of the findings is an error.
std::vector<Finding> check(const Bytes& record);

} // namespace hostcfg

#endif
