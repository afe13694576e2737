// Fuzz target: a file that holds one content part, or the first bytes of one.

#include "fuzz/Container.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/PartChecks.h"
#include "fuzz/QuietLog.h"

using fuzz::View;

namespace {

constexpr uint32_t MissingBytes = 37;

// Parses the file's first `size` bytes, or more than it has.
void checkFile(const std::string& path, const View& bytes) {
    fuzz::Parts parts;
    const bool isParsed = parts.parseFile(path, static_cast<uint32_t>(bytes.size), FileFragment::ContentPart);
    FUZZ_REQUIRE(isParsed == (parts.count() == 1));
    if (isParsed)
        checkContentPart(parts.at(0), bytes, 0);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile file;
    fuzz::quietLog(data, size);
    file.write(data, size);

    fuzz::Parts fromMemory;
    fuzz::Parts fromFile;
    fromMemory.parseContentPart(View(data, size));
    fromFile.parseFile(file.path(), 0, FileFragment::ContentPart);
    FUZZ_REQUIRE(fromMemory.count() == fromFile.count());
    if (fromFile.count() == 1) {
        FUZZ_REQUIRE(fuzz::describe(fromFile.at(0)) == fuzz::describe(fromMemory.at(0)));
        checkContentPart(fromFile.at(0), View(data, size), 0);
        fuzz::checkUpdate(fromFile.at(0));
    }
    // As the daemon asks for parts of a file, and as a file that was cut meanwhile looks.
    checkFile(file.path(), View(data, size, size + MissingBytes));
    if (size > 1)
        checkFile(file.path(), View(data, size - size / 4, size - size / 4));
    return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    return fuzz::mutateContainer(data, size, maxSize, seed, fuzz::Layout::ContentPart);
}
