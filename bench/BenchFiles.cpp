#include "bench/BenchFiles.h"

#include "bench/UpdateParts.h"
#include "imagefile/ImageBuilder.h"
#include <filesystem>
#include <fstream>

namespace {

constexpr size_t KernelBytes = 4 << 20;
constexpr size_t RootBytes = (71 << 20) - 1000;
constexpr size_t PartBytes = 1000;
constexpr int ManifestLines = 40;

imagefile::Bytes pattern(size_t size) {
    imagefile::Bytes bytes(size);
    uint32_t state = 1;
    for (uint8_t& byte : bytes) {
        state = state * 1103515245U + 12345U;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

imagefile::ImageBuilder startImage(const std::string& manifest) {
    imagefile::ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL-1.05-7", "Release 1.05-7\n", true);
    image.manifest(manifest);
    return image;
}

} // namespace

const BenchFiles& BenchFiles::get() {
    static const BenchFiles files;
    return files;
}

BenchFiles::BenchFiles() {
    imagefile::ImageBuilder image = startImage("2,kernel,0,-,-,4813,1.2.3,1\n4,root,0,/,ext4,-,1.2.3,1\n");
    image.software("kernel", {1, 2, 3}, "kern-build", pattern(KernelBytes));
    image.software("root", {1, 2, 3}, "root-build", pattern(RootBytes));
    image.write(largeImage());

    imagefile::ImageBuilder small;
    small.software("kernel", {1, 2, 3}, "kern-build", pattern(PartBytes));
    const imagefile::Bytes bytes = small.buildPart(0);
    std::ofstream(part(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));

    std::string lines;
    for (int i = 0; i < ManifestLines; ++i)
        lines += std::to_string(i) + ",pool,16777216,/mnt,ext4,4813,1.2." + std::to_string(i) + ",1\n";
    startImage(lines).write(manifestImage());

    std::filesystem::create_directory(updateParts());
    UpdateParts::cut(largeImage(), updateParts());
}
