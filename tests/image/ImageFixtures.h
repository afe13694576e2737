// Small images for the tests of this folder, and what owns the parts that a parse makes.
#ifndef TESTS_IMAGE_IMAGEFIXTURES_H
#define TESTS_IMAGE_IMAGEFIXTURES_H

#include "image/ZempParser.h"
#include "imagefile/ImageBuilder.h"
#include "lab/TemporaryDirectory.h"
#include "support/LogCapture.h"
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

using imagefile::Bytes;
using imagefile::bytesOf;
using imagefile::ImageBuilder;

// Keeps the log silent.
class Quiet {
    support::LogCapture mLog{LogEmergency};
};

// Release header, manifest, a kernel at 212 and a root at 284; 356 bytes.
inline ImageBuilder goldenBuilder() {
    ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL-1.05-7", "Release 1.05-7\n");
    image.manifest("# suum\n2,kernel,0,-,-,4813,1.2.3,1\n4,root,0,/,ext4,-,1.2.3,1\n");
    image.software("kernel", {1, 2, 3}, "kern-build", bytesOf("KERN!"));
    image.software("root", {1, 2, 3}, "root-build", bytesOf("ROOTFS!!"));
    return image;
}

constexpr size_t KernelOffset = 212;
constexpr size_t RootOffset = 284;

// Bytes that depend on their offset, so that a splice shows.
inline Bytes pattern(size_t size) {
    Bytes bytes(size);
    uint32_t state = 1;
    for (uint8_t& byte : bytes) {
        state = state * 1103515245U + 12345U;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

inline void writeFile(const std::string& filename, const Bytes& bytes) {
    std::ofstream file(filename, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline Bytes readFile(const std::string& filename) {
    std::ifstream file(filename, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

// A parse whose parts are freed with it.
class Parse {
  public:
    Parse() = default;

    // Of a file's first `size` bytes.
    Parse(const std::string& filename, uint32_t size, FileFragment::FragmentType type)
        : isParsed(mParser.parseFile(filename, size, type)) {}

    // Of a file with these bytes.
    Parse(const Bytes& bytes, FileFragment::FragmentType type) {
        const lab::TemporaryDirectory directory;
        writeFile(directory.file("image"), bytes);
        isParsed = mParser.parseFile(directory.file("image"), 0, type);
    }

    ~Parse() {
        for (size_t i = 0; i < count(); ++i)
            delete at(i);
    }
    Parse(const Parse&) = delete;
    Parse& operator=(const Parse&) = delete;

    ZempParser& parser() { return mParser; }
    size_t count() const { return mParser.getNumberOfZempParts(); }
    ZempPart* at(size_t index) const { return mParser.getZempPartAt(static_cast<uint32_t>(index)); }

    // The listing of all parts, body validity included: "kernel 1.02-3, kern-build ok".
    std::vector<std::string> listing() const {
        std::vector<std::string> lines;
        for (size_t i = 0; i < count(); ++i)
            lines.push_back(at(i)->toString() + (at(i)->isBodyValid() ? " ok" : " bad"));
        return lines;
    }

  private:
    ZempParser mParser;

  public:
    bool isParsed = false;
};

#endif
