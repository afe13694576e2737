#include "update/rig/Samples.h"

#include "image/zemp_validate.h"
#include <array>

#include <cstring>

namespace rig {

namespace {

constexpr size_t FirstSpan = 512; // bytes of a start, and of a part's first fetch

bool isOurs(const PoolSpec& spec) {
    return strcmp(spec.platform, "4812") != 0;
}

std::string range(uint64_t first, uint64_t last) {
    return std::to_string(first) + "-" + std::to_string(last);
}

} // namespace

imagefile::Bytes bodyOf(size_t size, unsigned seed) {
    imagefile::Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>((i * 31 + (i >> 8) * 7 + size_t{seed} * 13) & 0xff);
    return bytes;
}

// One bit is changed, and the first four bytes make up for it.
imagefile::Bytes forgeBody(const imagefile::Bytes& body) {
    const auto crcOf = [](const imagefile::Bytes& bytes) {
        return crc32_calc(0, bytes.data(), bytes.size());
    };
    imagefile::Bytes forged = body;
    forged.at(100) ^= 1;
    std::array<uint64_t, 32>
        rows{}; // by the highest bit of a change of the CRC: it, and the bits that make it
    for (unsigned bit = 0; bit < 32; ++bit) {
        imagefile::Bytes changed = forged;
        changed[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
        uint64_t row = uint64_t{crcOf(changed) ^ crcOf(forged)} << 32 | 1U << bit;
        for (unsigned high = 32; high-- > 0;) {
            if ((row >> (32 + high) & 1) == 0)
                continue;
            if (rows.at(high) == 0) {
                rows.at(high) = row;
                break;
            }
            row ^= rows.at(high);
        }
    }
    uint64_t wanted = uint64_t{crcOf(body) ^ crcOf(forged)} << 32;
    for (unsigned high = 32; high-- > 0;)
        wanted ^= (wanted >> (32 + high) & 1) != 0 ? rows.at(high) : 0;
    for (unsigned i = 0; i < 4; ++i)
        forged[i] ^= static_cast<uint8_t>(wanted >> 8 * i);
    return forged;
}

std::vector<PoolSpec> standardPools() {
    return {{2, "kernel", "4813", 3000, false},
            {3, "kernel", "4812", 700, false},
            {4, "root", "-", 5000, true},
            {5, "app", "-", 1201, false},
            {6, "3rdapp", "-", 449, false}};
}

std::string versionOf(uint16_t build) {
    return "1.05-" + std::to_string(build);
}

imagefile::ImageBuilder makeImage(uint16_t build, const std::vector<PoolSpec>& pools,
                                  const std::string& text) {
    imagefile::ImageBuilder image;
    image.release({1, 5, build}, 0, "REL-" + versionOf(build), text, true);
    std::vector<imagefile::ManifestElement> manifest;
    for (const PoolSpec& spec : pools) {
        imagefile::ManifestElement element;
        element.contentIndex = spec.index;
        element.poolname = spec.pool;
        element.platform = spec.platform;
        const uint16_t own = spec.partBuild != 0 ? spec.partBuild : build;
        element.version = {1, 2, spec.isInstalled ? uint16_t{1} : own};
        manifest.push_back(element);
    }
    image.manifest(manifest);
    for (size_t i = 0; i < pools.size(); ++i) {
        const std::string name = isOurs(pools[i]) ? pools[i].pool : "kernel4812";
        image.software(name, manifest[i].version, name + "-build",
                       bodyOf(pools[i].bodySize, build + static_cast<unsigned>(i)));
    }
    return image;
}

hostcfg::Description installedFor(const std::vector<PoolSpec>& pools) {
    hostcfg::Description description;
    for (const PoolSpec& spec : pools) {
        hostcfg::Partition partition;
        partition.pool = spec.pool;
        partition.version = {1, 2, spec.isInstalled ? uint16_t{1} : uint16_t{0}};
        if (isOurs(spec))
            description.partitions.push_back(partition);
    }
    return description;
}

std::vector<std::string> expectedRanges(const imagefile::ImageBuilder& image,
                                        const std::vector<PoolSpec>& pools) {
    std::vector<std::string> ranges = {range(0, FirstSpan - 1)};
    for (size_t i = 0; i < pools.size(); ++i) {
        const uint64_t offset = image.offsetOf(i + 2);
        const uint64_t size = image.sizeOf(i + 2);
        ranges.push_back(range(offset, offset + FirstSpan - 1));
        const bool isNeeded = isOurs(pools[i]) && !pools[i].isInstalled;
        if (isNeeded && 64 + pools[i].bodySize > FirstSpan)
            ranges.push_back(range(offset + FirstSpan, offset + size));
    }
    return ranges;
}

} // namespace rig
