// Fuzz target: the CRC of long ranges, from pieces. The input begins with two numbers of 8 bytes; the rest is
// the pattern that the range consists of.

#include "image/SharedCrc.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/PartChecks.h"
#include "image/Crc32Append.h"
#include "image/zemp_validate.h"
#include <algorithm>

using fuzz::View;

namespace {

constexpr size_t NumberBytes = 8;
constexpr size_t MaximumSteps = 5;
constexpr size_t Offsets = 4096; // at which a range begins

uint64_t numberAt(const uint8_t* data) {
    return ZempFormat::getLe32(data) | uint64_t{ZempFormat::getLe32(data + 4)} << 32;
}

// Lengths far beyond any memory: two appends are one of the sum.
void checkLengths(uint32_t crc, uint64_t first, uint64_t second) {
    const uint32_t inTwo = Crc32Append(second)(Crc32Append(first)(crc, 0), 0);
    FUZZ_REQUIRE(Crc32Append(first + second)(crc, 0) == inTwo);
    FUZZ_REQUIRE(Crc32Append(0)(crc, 0) == crc);
}

void checkPieces(const View& bytes, size_t cut) {
    const uint32_t begin = referenceCrc(bytes, 0, cut);
    const uint32_t end = referenceCrc(bytes, cut, bytes.size - cut);
    FUZZ_REQUIRE(Crc32Append(bytes.size - cut)(begin, end) == referenceCrc(bytes, 0, bytes.size));
}

// A file that repeats the pattern, of which the two threads read each byte once.
void checkThreads(const View& pattern, size_t begin, size_t length) {
    std::vector<uint8_t> file(begin + length);
    for (size_t i = 0; i < file.size(); i += pattern.size)
        std::copy_n(pattern.data, std::min(pattern.size, file.size() - i),
                    file.begin() + static_cast<std::ptrdiff_t>(i));
    for (size_t i = 0; i < file.size() - 4; i += 512) // no two pages are the same
        ZempFormat::putLe32(&file[i], static_cast<uint32_t>(i));
    std::atomic<size_t> bytesRead{0};
    SharedCrc shared(
        [&](uint8_t* to, size_t offset, size_t count) {
            FUZZ_REQUIRE(offset >= begin && offset <= file.size() && count <= file.size() - offset);
            std::copy_n(file.data() + offset, count, to);
            bytesRead += count;
        },
        begin, file.size());
    FUZZ_REQUIRE(shared.get() == crc32_calc(0, &file[begin], length));
    FUZZ_REQUIRE(bytesRead == length);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size <= 2 * NumberBytes)
        return 0;
    const uint64_t first = numberAt(data);
    const uint64_t second = numberAt(data + NumberBytes);
    const View pattern(data + 2 * NumberBytes, size - 2 * NumberBytes);
    const uint64_t limit = uint64_t{1} << 62;
    checkLengths(referenceCrc(pattern, 0, pattern.size), first % limit, second % limit);
    checkPieces(pattern, static_cast<size_t>(first % (pattern.size + 1)));
    // Long ranges are slow; one input in sixteen has one, always the same.
    if (data[0] % 16 == 0)
        checkThreads(pattern, static_cast<size_t>(first % Offsets),
                     SharedCrc::StepBytes +
                         static_cast<size_t>(second % (MaximumSteps * SharedCrc::StepBytes)));
    return 0;
}
