// The "SUU data" of the host configuration record: the table of update sets, partitions and what is installed
// on them. The one place that knows its layout; the loader, the queries and the tools that write records use
// it. All numbers are little-endian; texts are filled up with zero bytes and have no terminator when they
// fill their field, so they are read with ZempFormat::text().
#ifndef INSTALLED_SUUDATA_H
#define INSTALLED_SUUDATA_H

#include "image/ZempFormat.h"

// An update set: partitions that are updated and started together.
struct ZEMP_ON_DISK suu_set_t {
    char name[16];
    uint8_t bootable;
    uint8_t releaseHeader; // index into suu_data_t::releases
    uint8_t references;    // reference count
    uint8_t reserved[17];
};

struct ZEMP_ON_DISK suu_partition_t {
    char name[16]; // of its pool; empty: the record is unused
    uint8_t number;
    uint8_t reserved[3];
    uint32_t offset; // on the flash, in bytes
    uint32_t size;   // in bytes
    char mountPoint[32];
    char fsType[12];
};

// What is installed on a partition.
struct ZEMP_ON_DISK suu_content_t {
    zemp_content_header_t header; // name, length and CRC-32 of the content
    zemp_content_software_blob_t software;
};

struct ZEMP_ON_DISK suu_data_t {
    static constexpr unsigned SetCount = 3;
    static constexpr unsigned PartitionCount = 20;
    static constexpr uint8_t NoActiveSet = 255;

    suu_set_t sets[SetCount];
    uint8_t activeSet; // index of a set, or NoActiveSet
    uint8_t setCount;  // sets in use
    uint8_t reserved[2];
    suu_partition_t partitions[PartitionCount];
    zemp_content_release_header_t releases[SetCount];
    suu_content_t contents[PartitionCount]; // same index as the partition

    // Whether partition `index` holds exactly this version.
    bool holds(unsigned index, uint8_t major, uint8_t minor, uint16_t build) const {
        const zemp_content_software_blob_t& software = contents[index].software;
        return software.major == major && software.minor == minor && software.build == build;
    }
};

static_assert(sizeof(suu_set_t) == 36 && sizeof(suu_partition_t) == 72 && sizeof(suu_content_t) == 64);
static_assert(offsetof(suu_set_t, bootable) == 16 && offsetof(suu_set_t, references) == 18);
static_assert(offsetof(suu_partition_t, number) == 16 && offsetof(suu_partition_t, offset) == 20);
static_assert(offsetof(suu_partition_t, size) == 24 && offsetof(suu_partition_t, mountPoint) == 28);
static_assert(offsetof(suu_partition_t, fsType) == 60);
static_assert(offsetof(suu_data_t, activeSet) == 108 && offsetof(suu_data_t, setCount) == 109);
static_assert(offsetof(suu_data_t, partitions) == 112 && offsetof(suu_data_t, releases) == 1552);
static_assert(offsetof(suu_data_t, contents) + offsetof(suu_content_t, software) == 1716);
static_assert(sizeof(suu_data_t) == 2964 && alignof(suu_data_t) == 1);

#endif
