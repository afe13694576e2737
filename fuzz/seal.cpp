// Fuzz target: the reader of seals. What it takes must be the one way to write that seal; the signature is
// made here, so that the lines are reached.

#include "fuzz/FuzzTarget.h"
#include "tests/support/SealSigner.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const support::SealSigner signer;
    const std::string text(reinterpret_cast<const char*>(data), size);
    seal::Seal opened;
    FUZZ_REQUIRE(seal::open(text, {signer.key()}, opened).fault != seal::Fault::None); // nobody forges

    const bool isGood = seal::open(signer.sign(text, "x"), {signer.key()}, opened).fault == seal::Fault::None;
    seal::SealLines lines;
    FUZZ_REQUIRE(isGood == parse(text, lines).empty());
    if (!isGood)
        return 0;
    FUZZ_REQUIRE(toText(opened.lines) == text);
    uint64_t end = lines.start.length;
    for (const seal::SealedPart& part : lines.parts) {
        FUZZ_REQUIRE(part.offset == end);
        end += uint64_t{part.header.length} + part.body.length;
        FUZZ_REQUIRE(end <= lines.image.length);
        end = (end - part.offset - part.header.length + 3) / 4 * 4 + part.offset + part.header.length;
    }
    return 0;
}
