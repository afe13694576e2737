// Fuzz target: a whole image, or the first bytes of one.

#include "fuzz/Container.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/PartChecks.h"
#include "fuzz/QuietLog.h"
#include "update/StartRange.h"

using fuzz::Parts;
using fuzz::View;

namespace {

constexpr uint32_t MissingBytes = 200;

// Both ways to read an image return the same parts.
void checkMemory(const Parts& fromFile, const View& bytes) {
    Parts fromMemory;
    fromMemory.parseImage(bytes);
    FUZZ_REQUIRE(fromMemory.count() == fromFile.count());
    for (size_t i = 0; i < fromFile.count(); ++i)
        FUZZ_REQUIRE(fuzz::describe(fromFile.at(i)) == fuzz::describe(fromMemory.at(i)));
}

// An image start holds the first parts of the image, and ends with the later of release header and manifest.
void checkStart(const Parts& image, const std::string& path, const std::vector<size_t>& offsets) {
    Parts start;
    start.parseFile(path, 0, FileFragment::ZempStart);
    FUZZ_REQUIRE(start.count() <= image.count());
    bool hasRelease = false;
    bool hasManifest = false;
    for (size_t i = 0; i < start.count(); ++i) {
        FUZZ_REQUIRE(!hasRelease || !hasManifest);
        FUZZ_REQUIRE(fuzz::describe(start.at(i)) == fuzz::describe(image.at(i)));
        hasRelease = hasRelease || start.at(i)->getPartType() == ZempPart::ReleaseHeader;
        hasManifest = hasManifest || start.at(i)->getPartType() == ZempPart::SuumBlob;
    }
    FUZZ_REQUIRE(start.count() == image.count() || (hasRelease && hasManifest));
    if (start.count() < 2 || start.at(1)->getPartType() != ZempPart::ReleaseHeader)
        return;
    const unsigned last = findLastByteOfManifest(path, *static_cast<ZempHeaderPart*>(start.at(0)),
                                                 *static_cast<ReleaseHeaderPart*>(start.at(1)));
    FUZZ_REQUIRE(last <= MaximumZempStartSize);
    if (last != 0 && start.count() > 2)
        FUZZ_REQUIRE(start.at(2)->getPartType() == ZempPart::SuumBlob &&
                     last == offsets[2] + start.at(2)->getSizeInZempFile() - 1);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile file;
    fuzz::quietLog(data, size);
    file.write(data, size);
    const View bytes(data, size);

    Parts parts;
    const bool isParsed = parts.parseFile(file.path(), 0, FileFragment::ZempFile);
    FUZZ_REQUIRE(isParsed ? parts.count() > 1
                          : parts.count() < 2 || parts.at(parts.count() - 1)->getUsedSize() == 0);
    const std::vector<size_t> offsets = checkImageParts(parts, bytes);
    checkMemory(parts, bytes);
    checkStart(parts, file.path(), offsets);

    // A file that ends before the bytes it is said to have.
    const View claimed(data, size, size + MissingBytes);
    Parts ofShortFile;
    ofShortFile.parseFile(file.path(), static_cast<uint32_t>(claimed.size), FileFragment::ZempFile);
    checkImageParts(ofShortFile, claimed);
    for (size_t i = 0; i < parts.count(); ++i)
        fuzz::checkUpdate(parts.at(i));
    return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    return fuzz::mutateContainer(data, size, maxSize, seed, fuzz::Layout::Image);
}
