#include "fuzz/CompileChecks.h"

#include "fuzz/FuzzTarget.h"
#include "fuzz/MemoryFile.h"
#include "image/ZempCreator.h"
#include "lab/TemporaryDirectory.h"
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

namespace fuzz {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t LastSoftwareIndex = 6;
constexpr uint32_t HeaderKey = 100; // the main header's, behind all other parts
constexpr size_t MinimumParts = 3;

// One part of the map, and what is expected of it in the image.
struct Expected {
    ZempPart* part;
    Bytes bytes; // as it stood in the input, without padding
};

// Whether the compiler can write the part; no other header than the ordinary one can be.
bool isWritable(ZempPart* part) {
    if (part->getHeaderLength() != bodyOffsetOf(*part))
        return false;
    if (const auto* const suum = dynamic_cast<SuumBlob*>(part))
        return suum->isSuumValid();
    return dynamic_cast<ReleaseHeaderPart*>(part) == nullptr || part->isBodyValid();
}

// The release text is written as text and one zero byte, which is what its header says only then.
bool isReleaseReadable(const ReleaseHeaderPart& part) {
    const size_t length = part.getReleaseHeaderBody().size() + 1;
    return length == part.getBodyLength() && length % ZempFormat::Alignment == 0;
}

// The compiler's own files, on a real file system: it tests for links.
struct Workplace {
    const lab::TemporaryDirectory directory;
    const std::string image = directory.file("image");
    Workplace() { ZempCreator::setTempFilename(directory.file("parts")); }
};

Bytes readImage(const std::string& filename) {
    std::ifstream file(filename, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Bytes copyOf(const View& bytes, size_t begin, size_t length) {
    Bytes copy(length);
    for (size_t i = 0; i < length; ++i)
        copy[i] = bytes[begin + i];
    return copy;
}

bool isNeeded(const ZempPart* part, unsigned unneeded) {
    return part->isBodyValid() && (unneeded >> part->getContentIndex() & 1U) == 0;
}

void checkSoftware(ZempPart* written, const Expected& expected, const View& image, size_t offset) {
    auto* const blob = dynamic_cast<SwBlob*>(written);
    FUZZ_REQUIRE(blob != nullptr && blob->isBodyValid());
    FUZZ_REQUIRE(blob->getPartType() == expected.part->getPartType());
    FUZZ_REQUIRE(blob->getPartVersion() == expected.part->getPartVersion());
    if (!expected.part->isBodyValid()) {
        FUZZ_REQUIRE(blob->getBodyLength() == 0 && blob->getBodyCrc() == 0);
        return;
    }
    FUZZ_REQUIRE(copyOf(image, offset, expected.bytes.size()) == expected.bytes);
}

// Reads the image again and compares it with what went in, part by part.
void checkImage(const Bytes& image, const std::map<uint32_t, Expected>& expected) {
    const View bytes(image.data(), image.size());
    FUZZ_REQUIRE(image.size() >= ZempFormat::HeaderOffset + ZempFormat::HeaderSize);
    Parts parts;
    parts.parseImage(bytes);
    const std::vector<size_t> offsets = checkImageParts(parts, bytes);
    FUZZ_REQUIRE(parts.count() > 0);
    const zemp_header_t header = *static_cast<ZempHeaderPart*>(parts.at(0))->getZempHeader();
    const size_t body = ZempFormat::HeaderOffset + ZempFormat::HeaderSize;
    FUZZ_REQUIRE(header.hdr_length == ZempFormat::HeaderSize && header.body_length == image.size() - body);
    FUZZ_REQUIRE(header.body_crc == referenceCrc(bytes, body, header.body_length));

    const auto release = expected.find(ZempPart::sReleaseHeaderKey);
    if (release != expected.end() &&
        !isReleaseReadable(*static_cast<ReleaseHeaderPart*>(release->second.part)))
        return;
    FUZZ_REQUIRE(parts.count() == expected.size() + 1);
    size_t i = 1;
    for (const auto& [index, entry] : expected) {
        ZempPart* const part = parts.at(i);
        FUZZ_REQUIRE(part->getContentIndex() == index);
        if (index > ZempPart::sSuumBlobKey)
            checkSoftware(part, entry, bytes, offsets[i]);
        else
            FUZZ_REQUIRE(copyOf(bytes, offsets[i], entry.bytes.size()) == entry.bytes);
        ++i;
    }
}

} // namespace

void checkCompile(const Parts& parts, const std::vector<size_t>& offsets, const View& bytes,
                  unsigned unneeded) {
    static const Workplace workplace;
    static MemoryFile files[LastSoftwareIndex + 1];
    std::map<const unsigned, ZempPart*> map;
    std::map<uint32_t, Expected> expected;
    bool isPossible = true;
    for (size_t i = 1; i < parts.count(); ++i) {
        ZempPart* const part = parts.at(i);
        const uint32_t index = part->getContentIndex();
        if (index > LastSoftwareIndex || expected.count(index) > 0)
            continue;
        const auto size = static_cast<size_t>(std::min<uint64_t>(
            bytes.size - offsets[i], uint64_t{bodyOffsetOf(*part)} + part->getBodyLength()));
        expected[index] = {part, copyOf(bytes, offsets[i], size)};
        files[index].write(expected[index].bytes.data(), size);
        part->setFilename(files[index].path());
        if (index > ZempPart::sSuumBlobKey && !isNeeded(part, unneeded))
            part->setIsBodyValid(false);
        isPossible = isPossible && isWritable(part);
        map[index] = part;
    }
    auto* const header = static_cast<ZempHeaderPart*>(parts.at(0));
    if (header->getZempHeader()->hdr_length == ZempFormat::HeaderSize)
        map[HeaderKey] = header;
    const bool isCompiled = ZempCreator(map).createZemp(workplace.image);
    FUZZ_REQUIRE(isCompiled == (isPossible && map.size() >= MinimumParts));
    FUZZ_REQUIRE(isCompiled == std::filesystem::exists(workplace.image));
    if (!isCompiled)
        return;
    const Bytes image = readImage(workplace.image);
    std::filesystem::remove(workplace.image);
    checkImage(image, expected);
}

} // namespace fuzz
