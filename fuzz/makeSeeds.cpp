// Writes the seeds of the binary targets into their corpora: fuzz_seeds CORPUS-DIRECTORY. The result stands
// in the tree; this is how it came about, for when the format or the targets change.

#include "hostconfig/HostConfigRecord.h"
#include "imagefile/ImageBuilder.h"
#include <cstdio>
#include <filesystem>
#include <fstream>

using imagefile::Bytes;
using imagefile::bytesOf;
using imagefile::ImageBuilder;

namespace {

const char* const Manifest = "# suum\n2,kernel,0,-,-,4813,1.2.3,1\n4,root,0,/,ext4,-,1.2.3,1\n";

std::filesystem::path sCorpus;

void write(const std::string& name, const Bytes& bytes) {
    std::ofstream file(sCorpus / name, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file)
        throw std::runtime_error("cannot write " + name);
}

// Bytes that depend on their offset, so that a splice shows.
Bytes pattern(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + i / 256);
    return bytes;
}

Bytes prefix(const Bytes& bytes, size_t size) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

// Release header, manifest, a kernel and a root.
ImageBuilder golden() {
    ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL-1.05-7", "Release 1.05-7\n");
    image.manifest(Manifest);
    image.software("kernel", {1, 2, 3}, "kern-build", bytesOf("KERN!"));
    image.software("root", {1, 2, 3}, "root-build", bytesOf("ROOTFS!!"));
    return image;
}

void writeImages() {
    write("image/golden", golden().build());
    write("image/start", prefix(golden().build(), 230));
    write("image/cut-in-body", prefix(golden().build(), 350));

    ImageBuilder all;
    all.release({255, 99, 65535}, 0xFFFFFFFF, "A name that fills all its 36 bytes..", "Text", true);
    all.manifest("2,kernel,1,-,-,-,01020003,1\n");
    all.software("kernel", {1, 2, 3}, "", pattern(3));
    all.software("kernel4812", {0, 0, 0}, "id that fills its 28 bytes..", {});
    all.software("root", {1, 2, 65535}, "id", pattern(5000)); // more than is read ahead
    all.software("app", {2, 0, 1}, "id", pattern(64));
    all.software("3rdapp", {3, 0, 1}, "id", pattern(1));
    all.software("sixteen letters.", {1, 0, 0}, "id", pattern(2));
    write("image/every-kind", all.build());

    ImageBuilder odd = golden();
    odd.header.extension = pattern(20);
    odd.header.reserved = 0x5A;
    odd.at(2).extension.resize(36); // longer than a software blob's
    odd.at(3).headerLength = 32;    // shorter: the CRC leaves the extended header out
    write("image/odd-header-lengths", odd.build());

    ImageBuilder others;
    others.blob("note", pattern(9));
    others.add({2, "unknown type", {}, pattern(8), "", true, {}, {}, {}, {}});
    write("image/other-parts", others.build());

    ImageBuilder swapped;
    swapped.software("app", {1, 0, 0}, "id", pattern(8));
    swapped.manifest(Manifest);
    swapped.release({1, 5, 7}, 0, "REL", "Release", true);
    write("image/unusual-order", swapped.build());
}

void writeContentParts() {
    const ImageBuilder image = golden();
    const char* const names[] = {"release", "manifest", "kernel", "root"};
    for (size_t i = 0; i < image.count(); ++i)
        write(std::string("contentpart/") + names[i], image.buildPart(i));
    write("contentpart/kernel-headers-only", prefix(image.buildPart(2), 64));
    write("contentpart/root-cut", prefix(image.buildPart(3), 70));

    ImageBuilder more;
    more.blob("note", pattern(9));
    more.software("root", {1, 2, 65535}, "id", pattern(5000));
    write("contentpart/other-blob", more.buildPart(0));
    Bytes longer = more.buildPart(1);
    longer.resize(longer.size() + 64, 0xEE); // as after a range that was one byte too long, and more
    write("contentpart/root-and-more", longer);
    more.at(1).headerLength = 32;
    write("contentpart/short-header", more.buildPart(1));
}

hostcfg::Partition partition(const std::string& pool, uint8_t number, hostcfg::Version version) {
    hostcfg::Partition made;
    made.pool = pool;
    made.number = number;
    made.offset = number * 0x100000U;
    made.size = 0x100000;
    made.mountPoint = "/" + pool;
    made.fsType = "ext4";
    made.contentName = pool;
    made.version = version;
    made.buildId = pool + "-build";
    made.length = 4711;
    made.crc = 0x12345678;
    return made;
}

hostcfg::Description terminal() {
    hostcfg::Description description;
    description.sets = {{"set A", true, 0, 1}, {"set B", false, 1, 0}};
    description.activeSet = 0;
    description.releases = {{"REL-1.04-1", {1, 4, 1}, 1600000000}, {"REL-1.05-7", {1, 5, 7}, 0}};
    description.partitions = {partition("kernel", 1, {1, 2, 3}), partition("root", 2, {1, 2, 3}),
                              partition("kernel", 3, {1, 2, 4}), partition("app", 4, {2, 0, 300})};
    return description;
}

void writeRecords() {
    write("hostconfig/terminal", hostcfg::build(terminal()));

    hostcfg::Description parts = terminal();
    parts.partsBefore = {{"boot", pattern(21)}, {"SUU", pattern(4)}};
    parts.partsAfter = {{"SUU data 2", pattern(100)}};
    parts.unusedBytes = 32;
    write("hostconfig/more-parts", hostcfg::build(parts));

    hostcfg::Description full;
    for (uint8_t i = 0; i < suu_data_t::PartitionCount; ++i)
        full.partitions.push_back(partition("pool " + std::to_string(i % 16), i, {i, i, i}));
    full.partitions[0].pool = "0123456789abcde-";
    full.partitions[1].pool = "control\n\x7f";
    full.partitions.back().pool = "0123456789abcdef";
    full.partitions.back().mountPoint = "/a/mount/point/that/fills/its/32";
    full.partitions.back().fsType = "12characters";
    full.changeSuuData = [](suu_data_t& data) {
        data.setCount = 200;
        data.activeSet = 2;
        data.sets[2].releaseHeader = 2;
        data.releases[2].time = 0xFFFFFFFF;
    };
    write("hostconfig/all-partitions", hostcfg::build(full));

    // The SUU data is cut short by a smaller body; what is missing is zero.
    ImageBuilder image;
    image.blob("SUU data", pattern(200));
    write("hostconfig/short-data", image.build());
    for (int i = 0; i < 25; ++i)
        image.blob("part " + std::to_string(i), pattern(3));
    write("hostconfig/many-parts", image.build());
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s CORPUS-DIRECTORY\n", argv[0]);
        return 2;
    }
    sCorpus = argv[1];
    for (const char* const name : {"image", "contentpart", "hostconfig"})
        std::filesystem::create_directories(sCorpus / name);
    writeImages();
    writeContentParts();
    writeRecords();
    return 0;
}
