#include "image/ImageFixtures.h"
#include "image/zemp_validate.h"
#include <gtest/gtest.h>

namespace {

// The main header and body of an image, at an odd address.
class Record {
  public:
    explicit Record(const ImageBuilder& builder) {
        const Bytes image = builder.build();
        mBytes.assign(1, 0);
        mBytes.insert(mBytes.end(), image.begin() + ZempFormat::HeaderOffset, image.end());
    }
    uint8_t* bytes() { return mBytes.data() + 1; }
    const zemp_header_t* header() { return reinterpret_cast<const zemp_header_t*>(bytes()); }
    const uint8_t* body() { return bytes() + header()->hdr_length; }

  private:
    Bytes mBytes;
};

TEST(Crc32, IsTheStandardOneAndChains) {
    EXPECT_EQ(crc32_calc(0, "123456789", 9), 0xCBF43926U);
    EXPECT_EQ(crc32_calc(crc32_calc(0, "1234", 4), "56789", 5), 0xCBF43926U);
    EXPECT_EQ(crc32_calc(0x12345678U, nullptr, 0), 0x12345678U);
}

TEST(ZempValidate, MainHeaderAndBody) {
    ImageBuilder good = goldenBuilder();
    Record whole(good);
    EXPECT_EQ(zemp_validate_header(whole.header()), ZempValid);
    EXPECT_EQ(zemp_validate_body(whole.header(), whole.body()), ZempValid);
    whole.bytes()[200] ^= 1U;
    EXPECT_EQ(zemp_validate_body(whole.header(), whole.body()), ZempBadBodyCrc);

    good.header.version = 2; // with a CRC that matches
    EXPECT_EQ(zemp_validate_header(Record(good).header()), ZempBadVersion);

    ImageBuilder tooShort = goldenBuilder();
    tooShort.header.headerLength = 15;
    EXPECT_EQ(zemp_validate_header(Record(tooShort).header()), ZempBadHeaderLength);

    ImageBuilder longer = goldenBuilder();
    longer.header.extension = bytesOf("more");
    Record record(longer);
    EXPECT_EQ(zemp_validate_header(record.header()), ZempValid);
    record.bytes()[ZempFormat::HeaderSize] ^= 1U;
    EXPECT_EQ(zemp_validate_header(record.header()), ZempBadHeaderCrc) << "the declared length counts";
}

TEST(ZempValidate, ContentParts) {
    ImageBuilder builder;
    builder.software("kernel", {1, 2, 3}, "id", {});
    builder.software("root", {1, 2, 3}, "id", bytesOf("root"));
    builder.software("app", {1, 2, 3}, "id", {}).headerLength = 31;
    Bytes bytes(1, 0);
    std::vector<size_t> offsets;
    for (size_t i = 0; i < builder.count(); ++i) {
        offsets.push_back(bytes.size());
        const Bytes part = builder.buildPart(i);
        bytes.insert(bytes.end(), part.begin(), part.end());
    }
    const auto validate = [&](size_t i) {
        const uint8_t* const at = bytes.data() + offsets[i];
        return zemp_validate_content_part(reinterpret_cast<const zemp_content_header_t*>(at),
                                          at + ZempFormat::SwBlobBodyOffset);
    };
    EXPECT_EQ(validate(0), ZempValid) << "an empty body has CRC 0";
    EXPECT_EQ(validate(1), ZempValid);
    EXPECT_EQ(validate(2), ZempBadHeaderLength) << "though its CRC matches";
    bytes[offsets[1] + ZempFormat::SwBlobBodyOffset] ^= 1U;
    EXPECT_EQ(validate(1), ZempBadBodyCrc);
    bytes[offsets[1] + ZempFormat::ContentHeaderSize] ^= 1U;
    EXPECT_EQ(validate(1), ZempBadHeaderCrc) << "the header is looked at first";
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
