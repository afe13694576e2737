#include "lab/SampleImage.h"

#include "hostconfig/HostConfigRecord.h"
#include <fstream>
#include <stdexcept>

namespace lab {

namespace {

constexpr imagefile::Version sNewVersion = {1, 5, 7};
constexpr imagefile::Version sOldVersion = {1, 4, 3};
constexpr uint32_t sReleaseTime = 1700000000; // a day in November 2023
constexpr uint32_t sPartitionSize = 16U << 20;

// A part of the sample, and what the sample terminal has in its place.
struct SamplePart {
    int contentIndex;
    const char* name;
    const char* pool;
    const char* platform;
    const char* mountPoint;
    const char* filesystem;
    size_t size; // of the body, in bytes
    imagefile::Version version;
    imagefile::Version installed;
};

constexpr SamplePart sParts[] = {
    {2, "kernel", "kernel", "4813", "-", "-", 412345, sNewVersion, sOldVersion},
    {3, "kernel4812", "kernel", "4812", "-", "-", 398765, sNewVersion, sOldVersion},
    {4, "root", "root", "-", "/", "ext4", 876543, sNewVersion, sOldVersion},
    {5, "app", "app", "-", "/app", "ext4", 612345, {2, 0, 1}, {2, 0, 1}},
    {6, "3rdapp", "3rdapp", "-", "/3rdapp", "ext4", 345678, {1, 0, 9}, {1, 0, 9}},
};

hostcfg::Version toRecord(imagefile::Version version) {
    return {version.major, version.minor, version.build};
}

hostcfg::Partition makePartition(size_t index, const std::string& pool, imagefile::Version version) {
    hostcfg::Partition partition;
    partition.pool = pool;
    partition.number = static_cast<uint8_t>(index + 1);
    partition.offset = static_cast<uint32_t>(index) * sPartitionSize;
    partition.size = sPartitionSize;
    partition.contentName = pool;
    partition.version = toRecord(version);
    return partition;
}

hostcfg::Description makeRecord(const std::string& releaseName, imagefile::Version release) {
    hostcfg::Description record;
    record.releases = {{releaseName, toRecord(release), sReleaseTime}};
    record.sets = {{"set1", true, 0, 1}};
    record.activeSet = 0;
    return record;
}

void writeRecord(const std::string& filename, const hostcfg::Description& description) {
    const hostcfg::Bytes record = hostcfg::build(description);
    std::ofstream file(filename, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(record.data()), static_cast<std::streamsize>(record.size()));
    file.close();
    if (!file)
        throw std::runtime_error("cannot write '" + filename + "'");
}

} // namespace

imagefile::Bytes patternBytes(size_t size, uint32_t seed) {
    imagefile::Bytes bytes(size);
    uint32_t state = seed * 2654435761U + 1;
    for (uint8_t& byte : bytes) {
        state = state * 1103515245U + 12345U;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

void writeSampleImage(const std::string& filename) {
    imagefile::ImageBuilder image;
    image.release(sNewVersion, sReleaseTime, "SAMPLE-1.05-7", "Sample release 1.05-7\n", true);
    std::vector<imagefile::ManifestElement> manifest;
    for (const SamplePart& part : sParts)
        manifest.push_back({part.contentIndex, part.pool, static_cast<int>(part.size), part.mountPoint,
                            part.filesystem, part.platform, part.version, 1, false});
    image.manifest(manifest);
    for (const SamplePart& part : sParts)
        image.software(part.name, part.version, std::string(part.name) + "-build",
                       patternBytes(part.size, static_cast<uint32_t>(part.contentIndex)));
    image.write(filename);
}

void writeSampleRecord(const std::string& filename) {
    hostcfg::Description record = makeRecord("SAMPLE-1.04-3", sOldVersion);
    for (const SamplePart& part : sParts)
        if (std::string(part.platform) != "4812")
            record.partitions.push_back(makePartition(record.partitions.size(), part.pool, part.installed));
    writeRecord(filename, record);
}

void writeEmptyRecord(const std::string& filename) {
    writeRecord(filename, makeRecord("EMPTY", {}));
}

} // namespace lab
