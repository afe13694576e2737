// Host configuration records for tests.
#ifndef TESTS_INSTALLED_RECORDS_H
#define TESTS_INSTALLED_RECORDS_H

#include "hostconfig/HostConfigRecord.h"

#include "common/Scratch.h"

inline hostcfg::Partition partition(const std::string& pool, hostcfg::Version version,
                                    const std::string& mountPoint = "") {
    hostcfg::Partition partition;
    partition.pool = pool;
    partition.version = version;
    partition.mountPoint = mountPoint;
    return partition;
}

inline hostcfg::Description partitions(const std::vector<std::string>& pools) {
    hostcfg::Description description;
    for (const std::string& pool : pools)
        description.partitions.push_back(partition(pool, {1, 2, 3}));
    return description;
}

// A part whose bytes depend on their offset.
inline hostcfg::Part part(const std::string& name, size_t size) {
    hostcfg::Part made{name, hostcfg::Bytes(size)};
    for (size_t i = 0; i < size; ++i)
        made.body[i] = static_cast<uint8_t>(i * 5 + 1);
    return made;
}

// Writes a record and returns its path.
inline std::string writeRecord(const ScratchDir& scratch, const std::string& name,
                               const hostcfg::Bytes& record) {
    return scratch.write(name, {record.begin(), record.end()});
}

#endif
