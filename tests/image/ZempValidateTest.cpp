#include "image/ImageFixtures.h"
#include "image/zemp_validate.h"
#include <gtest/gtest.h>

namespace {

TEST(Crc32, IsTheStandardOneAndChains) {
    EXPECT_EQ(crc32_calc(0, "123456789", 9), 0xCBF43926U);
    EXPECT_EQ(crc32_calc(crc32_calc(0, "1234", 4), "56789", 5), 0xCBF43926U);
    EXPECT_EQ(crc32_calc(0x12345678U, nullptr, 0), 0x12345678U);
    const Bytes bytes = pattern(70000);
    const uint32_t whole = crc32_calc(0, bytes.data(), bytes.size());
    for (const size_t first : {0U, 1U, 4464U, 69999U, 70000U})
        EXPECT_EQ(crc32_combine(crc32_calc(0, bytes.data(), first),
                                crc32_calc(0, bytes.data() + first, bytes.size() - first),
                                bytes.size() - first),
                  whole);
}

// Results for main header and body of an image, from an odd address.
std::pair<int, int> validityOf(const ImageBuilder& builder, size_t damagedByte = 0) {
    Bytes bytes = builder.build();
    bytes[damagedByte] ^= 1U;
    bytes.insert(bytes.begin(), 0);
    const uint8_t* const at = &bytes[1 + ZempFormat::HeaderOffset];
    const auto* const header = reinterpret_cast<const zemp_header_t*>(at);
    return {zemp_validate_header(header), zemp_validate_body(header, at + header->hdr_length)};
}

TEST(ZempValidate, MainHeaderAndBody) {
    using Results = std::pair<int, int>;
    ImageBuilder image = goldenBuilder();
    EXPECT_EQ(validityOf(image), Results(ZempValid, ZempValid));
    EXPECT_EQ(validityOf(image, 200), Results(ZempValid, ZempBadBodyCrc));
    image.header.version = 2; // with a CRC that matches
    EXPECT_EQ(validityOf(image), Results(ZempBadVersion, ZempValid));
    image = goldenBuilder();
    image.header.extension = bytesOf("more"); // the declared length counts
    EXPECT_EQ(validityOf(image), Results(ZempValid, ZempValid));
    EXPECT_EQ(validityOf(image, 24), Results(ZempBadHeaderCrc, ZempValid));
    image.header.headerLength = 15;
    EXPECT_EQ(validityOf(image).first, ZempBadHeaderLength);
}

int validityOfPart(const ImageBuilder& builder, const std::vector<size_t>& damagedBytes = {}) {
    Bytes bytes = builder.buildPart(0);
    for (const size_t damaged : damagedBytes)
        bytes[damaged] ^= 1U;
    bytes.insert(bytes.begin(), 0);
    return zemp_validate_content_part(reinterpret_cast<const zemp_content_header_t*>(&bytes[1]),
                                      bytes.data() + 1 + ZempFormat::SwBlobBodyOffset);
}

TEST(ZempValidate, ContentParts) {
    ImageBuilder empty;
    empty.software("kernel", {1, 2, 3}, "id", {});
    EXPECT_EQ(validityOfPart(empty), ZempValid) << "an empty body has CRC 0";
    empty.at(0).headerLength = 31;
    EXPECT_EQ(validityOfPart(empty), ZempBadHeaderLength) << "though its CRC matches";
    ImageBuilder root;
    root.software("root", {1, 2, 3}, "id", bytesOf("root"));
    EXPECT_EQ(validityOfPart(root), ZempValid);
    EXPECT_EQ(validityOfPart(root, {64}), ZempBadBodyCrc);
    EXPECT_EQ(validityOfPart(root, {32, 64}), ZempBadHeaderCrc) << "the header is looked at first";
}

TEST(ZempValidateDeathTest, NullIsAProgrammingFault) {
    const char* const expected = "^ASSERT in zemp_validate.c at [0-9]+\n";
    const zemp_content_header_t header{};
    EXPECT_DEATH(zemp_validate_header(nullptr), expected);
    EXPECT_DEATH(zemp_validate_content_header(nullptr), expected);
    EXPECT_DEATH(zemp_validate_content_body(nullptr, "x"), expected);
    EXPECT_DEATH(zemp_validate_content_body(&header, nullptr), expected);
}

} // namespace
