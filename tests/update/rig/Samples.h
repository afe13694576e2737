// Images and terminals that the update tests share.
#ifndef TESTS_UPDATE_RIG_SAMPLES_H
#define TESTS_UPDATE_RIG_SAMPLES_H

#include "hostconfig/HostConfigRecord.h"
#include "imagefile/ImageBuilder.h"
#include <string>
#include <vector>

namespace rig {

// Bytes that depend on their offset and on `seed`, so that a splice shows.
imagefile::Bytes bodyOf(size_t size, unsigned seed);

// Another body of the same length and CRC-32, so that the header of its part fits both. At least 101 bytes.
imagefile::Bytes forgeBody(const imagefile::Bytes& body);

struct PoolSpec {
    int index;
    const char* pool;
    const char* platform;
    size_t bodySize;
    bool isInstalled;       // the installed version equals the image's
    uint16_t partBuild = 0; // of a part that is needed; 0: the image's
};

// kernel, kernel for another platform, root (installed), app, 3rdapp.
std::vector<PoolSpec> standardPools();

// An image of release 1.05-`build`, all parts of version 1.02-`build` unless their pool says else; installed
// pools keep version 1.02-1. `text` is the release text, at least one line.
imagefile::ImageBuilder makeImage(uint16_t build, const std::vector<PoolSpec>& pools = standardPools(),
                                  const std::string& text = "Release\n");
std::string versionOf(uint16_t build);

// What the terminal has before: every pool at 1.02-1 if it is marked installed, else at 1.02-0.
hostcfg::Description installedFor(const std::vector<PoolSpec>& pools);

// The requests a fresh terminal sends for an image without faults.
std::vector<std::string> expectedRanges(const imagefile::ImageBuilder& image,
                                        const std::vector<PoolSpec>& pools);

} // namespace rig

#endif
