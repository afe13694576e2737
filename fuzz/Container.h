// Inputs in the ZEMP container: where the content parts stand, CRCs that fit, and changes that keep the rest
// of the structure whole. A blind change fails the first CRC and gets no deeper.
//
// Nothing here is used to judge the code under test.
#ifndef FUZZ_CONTAINER_H
#define FUZZ_CONTAINER_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace fuzz {

using Bytes = std::vector<uint8_t>;

enum class Layout {
    Image,       // magic, main header, content parts
    ContentPart, // one content part
    Record       // like an image, but at most 5120 bytes, and missing ones count as zero
};

// One content part, as its header declares it. Only the first 32 bytes are known to lie within the input.
struct Extent {
    size_t begin;
    size_t body; // where its CRC is computed
    uint32_t bodyLength;
    size_t next; // where the next one begins, or the input's end
};

// The content parts, up to the first that has no room for its header.
std::vector<Extent> findParts(const Bytes& bytes, Layout layout);

// Puts the magic, lengths that lie within the input, and CRCs right; what is valid already stays as it is.
// With `cutLast`, a body that is longer than the input stays so.
void mend(Bytes& bytes, Layout layout, bool cutLast);

// What a target's LLVMFuzzerCustomMutator() does.
size_t mutateContainer(uint8_t* data, size_t size, size_t maxSize, unsigned seed, Layout layout);

} // namespace fuzz

#endif
