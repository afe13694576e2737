#include "image/ImageFixtures.h"
#include "image/zemp_validate.h"
#include <gtest/gtest.h>

namespace {

class GoldenImage : public testing::Test {
    Quiet mQuiet;
};

using Listing = std::vector<std::string>;

const Listing GoldenListing = {
    "ZempHeader version=1 bad", "ReleaseHeader: REL-1.05-7 1.05-7, Thu Jan  1 00:00:00 1970 ok",
    "suum 2 elements for 1.05-7 ok", "kernel 1.02-3, kern-build ok", "root 1.02-3, root-build ok"};

TEST_F(GoldenImage, HasTheKnownBytes) {
    const ImageBuilder builder = goldenBuilder();
    const Bytes image = builder.build();
    ASSERT_EQ(image.size(), 356U);
    EXPECT_EQ(builder.size(), 356U);
    EXPECT_EQ(crc32_calc(0, image.data(), image.size()), 0xe3577ae4U);
    EXPECT_EQ(ZempFormat::getLe32(&image[8]), 0xb3f4bea5U);
    EXPECT_EQ(ZempFormat::getLe32(&image[20]), 0xbdcc7bd0U);
    EXPECT_EQ(builder.offsetOf(2), KernelOffset);
    EXPECT_EQ(builder.offsetOf(3), RootOffset);
}

// A cut image yields a prefix of the whole one's parts; only the last may be there without its body.
TEST_F(GoldenImage, EveryPrefixYieldsAPrefixOfTheParts) {
    const Bytes image = goldenBuilder().build();
    for (size_t size = 0; size < image.size(); ++size) {
        const Bytes cut(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size));
        for (const auto type : {FileFragment::ZempFile, FileFragment::ZempStart, FileFragment::ContentPart}) {
            const Parse parse(cut, type);
            ASSERT_LE(parse.count(), GoldenListing.size());
            EXPECT_TRUE(type != FileFragment::ContentPart || parse.count() == 0) << size;
            for (size_t i = 1; i < parse.count(); ++i) {
                EXPECT_EQ(parse.at(i)->isBodyValid(), parse.listing()[i] == GoldenListing[i]) << size;
                EXPECT_TRUE(parse.at(i)->isBodyValid() || i == parse.count() - 1) << size;
            }
        }
    }
}

// Bits that no CRC covers: the main header's body CRC is not looked at, padding has no meaning.
bool isFree(size_t offset) {
    return offset >= KernelOffset + 64 + 5 && offset < RootOffset;
}

TEST_F(GoldenImage, NoFlippedBitPassesAsValid) {
    const Bytes image = goldenBuilder().build();
    for (size_t bit = 0; bit < image.size() * 8; ++bit) {
        Bytes damaged = image;
        damaged[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
        const Parse parse(damaged, FileFragment::ZempFile);
        const Listing listing = parse.listing();
        bool isSame = listing == GoldenListing && parse.isParsed;
        for (size_t i = 1; i < listing.size(); ++i)
            EXPECT_TRUE(!parse.at(i)->isBodyValid() || listing[i] == GoldenListing[i]) << bit;
        // Padding behind the manifest is kept with it, but nothing is read from it.
        const bool isManifestPadding = bit / 8 >= KernelOffset - 3 && bit / 8 < KernelOffset;
        EXPECT_EQ(isSame, isFree(bit / 8) || isManifestPadding) << bit;
    }
}

} // namespace
