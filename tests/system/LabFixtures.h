// Small images and terminals for the tests of the lab.
#ifndef TESTS_SYSTEM_LABFIXTURES_H
#define TESTS_SYSTEM_LABFIXTURES_H

#include "hostconfig/HostConfigRecord.h"
#include "image/ImageFixtures.h"
#include "lab/SampleImage.h"
#include <fstream>
#include <iterator>
#include <string>

inline std::string readText(const std::string& filename) {
    std::ifstream file(filename, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Release 1.05-7 with a kernel and a root of these sizes, both 1.02-3.
inline imagefile::ImageBuilder twoPartImage(size_t kernelSize, size_t rootSize) {
    imagefile::ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL-1.05-7", "Release 1.05-7\n", true);
    image.manifest("2,kernel,0,-,-,4813,1.2.3,1\n4,root,0,/,ext4,-,1.2.3,1\n");
    image.software("kernel", {1, 2, 3}, "kern-build", lab::patternBytes(kernelSize, 1));
    image.software("root", {1, 2, 3}, "root-build", lab::patternBytes(rootSize, 2));
    return image;
}

// The record of a terminal that runs release 1.04-3, with kernel 1.02-2, and root of the given version.
inline Bytes recordWithRoot(hostcfg::Version root) {
    hostcfg::Description record;
    record.releases = {{"REL-1.04-3", {1, 4, 3}, 0}};
    record.sets = {{"set1", true, 0, 1}};
    record.activeSet = 0;
    for (const auto& [pool, version] : {std::pair<const char*, hostcfg::Version>{"kernel", {1, 2, 2}},
                                        std::pair<const char*, hostcfg::Version>{"root", root}}) {
        hostcfg::Partition partition;
        partition.pool = pool;
        partition.version = version;
        record.partitions.push_back(partition);
    }
    return hostcfg::build(record);
}

#endif
