#include "image/ImageFixtures.h"
#include <gtest/gtest.h>

namespace {

using support::LogCapture;
using Lines = std::vector<std::string>;

const std::string Warning = "LOG_WARNING ZempParser::";

// Warnings of a parse of these bytes.
Lines warningsOf(const Bytes& bytes, FileFragment::FragmentType type) {
    const LogCapture log(LogWarning);
    const Parse parse(bytes, type);
    return log.lines();
}

TEST(ZempParserFile, WhatCannotBeOpenedIsNotParsed) {
    const lab::TemporaryDirectory directory;
    const std::string absent = directory.file("absent");
    const std::string empty = directory.write("empty", "");
    ZempParser parser;
    const LogCapture log(LogWarning);
    EXPECT_FALSE(parser.parseFile("", 0, FileFragment::ZempFile));
    EXPECT_FALSE(parser.parseFile(absent, 10, FileFragment::UpdateZempFile));
    EXPECT_FALSE(parser.parseFile(absent, 0, FileFragment::ZempFile));
    EXPECT_FALSE(parser.parseFile(absent, 10, FileFragment::ZempFile));
    EXPECT_FALSE(parser.parseFile(empty, 0, FileFragment::ContentPart));
    EXPECT_FALSE(parser.parseFile(directory.path(), 0, FileFragment::ZempFile));
    EXPECT_EQ(log.lines().size(), 8U) << "each is told";
    EXPECT_TRUE(log.has(Warning + "parseFile() Filename='" + empty + "' has zero size! (0)."));
    EXPECT_EQ(parser.getNumberOfZempParts(), 0U);
    EXPECT_EQ(parser.getZempPartAt(0), nullptr);
}

TEST(ZempParserFile, MainHeaderIsChecked) {
    struct Row {
        const char* what;
        Bytes image;
        std::string warning;
    };
    const auto with = [](const std::function<void(imagefile::MainHeader&)>& change) {
        ImageBuilder image = goldenBuilder();
        change(image.header);
        return image.build();
    };
    Bytes wrongMagic = goldenBuilder().build();
    wrongMagic[7] = 'Q';
    Bytes farHeader = with([](auto& header) { header.headerLength = 65535; });
    farHeader.resize(100);
    Bytes magicAndAByte = bytesOf("PMEZZEMP\x01");
    const Row rows[] = {
        {"only the magic", bytesOf("PMEZZEMP"),
         "parseZempFileStart() Not enough data (size=8, need at least 8"},
        {"wrong magic", wrongMagic, "parseZempFileStart() No header magic!"},
        {"cut header", magicAndAByte, "parseZempHeader() Not enough data (size=1, need at least 16"},
        {"version", with([](auto& header) { header.version = 2; }),
         "parseZempHeader() Cannot handle ZEMP version 2! Can version=1"},
        {"short header", with([](auto& header) { header.headerLength = 15; }),
         "parseZempHeader() Bad header size=15! Should be at least 16"},
        {"CRC", with([](auto& header) { header.headerCrc = 1; }),
         "parseZempHeader() Header fails CRC check!"},
        {"header beyond the file", farHeader, "parseZempHeader() Header fails CRC check!"},
    };
    for (const Row& row : rows) {
        const Lines warnings = warningsOf(row.image, FileFragment::ZempFile);
        ASSERT_EQ(warnings.size(), 2U) << row.what;
        EXPECT_EQ(warnings[0], Warning + row.warning);
        EXPECT_EQ(warnings[1].find(Warning + "parseFile() "), 0U) << warnings[1];
    }
}

TEST(ZempParserFile, LongerMainHeaderAndWrongBodyCrcAreAccepted) {
    const Quiet quiet;
    ImageBuilder image = goldenBuilder();
    image.header.extension = pattern(5000); // more than the first read brings
    image.header.bodyCrc = 1;
    const Parse parse(image.build(), FileFragment::ZempFile);
    EXPECT_TRUE(parse.isParsed);
    EXPECT_EQ(parse.count(), 5U);
}

TEST(ZempParserFile, ContentHeadersAreChecked) {
    const auto expect = [](const std::function<void(imagefile::Part&)>& change, const std::string& warning) {
        ImageBuilder image = goldenBuilder();
        change(image.at(2));
        EXPECT_EQ(warningsOf(image.buildPart(2), FileFragment::ContentPart).at(0), Warning + warning);
    };
    for (const uint16_t length : std::initializer_list<uint16_t>{0, 1, 3, 31})
        expect([&](auto& kernel) { kernel.headerLength = length, kernel.headerCrc = 0x12; },
               "parseContentHeader() Header length=" + std::to_string(length) + " crc=0x12");
    expect([](auto& kernel) { kernel.headerLength = 1000; },
           "parseContentHeader() Not enough header data (size=72, need at least 1000");
    expect([](auto& kernel) { kernel.headerCrc = 0x12; },
           "parseContentHeader() CRC failed, either there is no header or it has bad CRC.");
    expect([](auto& kernel) { kernel.headerCrc = 0; }, "parseContentHeader() Header length=64 crc=0x0");
    expect([](auto& kernel) { kernel.type = 2; }, "parseContentPart() Cannot handle content part type=2");
}

TEST(ZempParserFile, DamagedPartEndsTheImage) {
    ImageBuilder image = goldenBuilder();
    image.at(2).headerCrc = 0x77;
    const LogCapture log(LogInfo);
    const Parse parse(image.build(), FileFragment::ZempFile);
    EXPECT_TRUE(parse.isParsed);
    EXPECT_EQ(parse.count(), 3U);
    EXPECT_TRUE(log.has(Warning + "parseContentPart() Offset 212 is NOT a valid content header!"))
        << "in the file";
}

TEST(ZempParserFile, PlainBlobEndsTheImageAndIsNoPart) {
    ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL", "text", true);
    image.blob("Suum", bytesOf("data"));
    image.software("kernel", {1, 2, 3}, "id", bytesOf("KERN"));
    const LogCapture log(LogInfo);
    const Parse parse(image.build(), FileFragment::ZempFile);
    EXPECT_TRUE(parse.isParsed);
    EXPECT_EQ(parse.count(), 2U);
    EXPECT_TRUE(log.has("LOG_INFO ZempParser::parseBlob() Only know how to parse suum blob."));
}

TEST(ZempParserFile, StartEndsBehindTheManifest) {
    Bytes start = goldenBuilder().build();
    start.resize(KernelOffset + 10);
    const LogCapture log(LogWarning);
    const Parse parse(start, FileFragment::ZempStart);
    EXPECT_TRUE(parse.isParsed);
    ASSERT_EQ(parse.count(), 3U);
    EXPECT_EQ(ZempParser::getOffsetFirstSwBlob(parse.at(1)->getUsedSize(), parse.at(2)->getUsedSize()),
              KernelOffset);
    EXPECT_EQ(parse.at(0)->getPartVersion(), "1.05-7") << "of the release header";
    EXPECT_TRUE(log.lines().empty());
}

TEST(ZempParserFile, DamagedAndCutBodies) {
    const struct {
        const char* method; // that tells of the damage; a release body's line has its caller's name
        size_t parts;
        uint32_t usedSize; // of the cut one: a kernel uses what is there
    } rows[] = {{"parseContentPart", 1, 0}, {"parseBlob", 0, 0}, {"parseSwBlob", 1, 65}};
    for (size_t i = 0; i < 3; ++i) {
        ImageBuilder image = goldenBuilder();
        Bytes bytes = image.buildPart(i);
        bytes.resize(bytes.size() - 7); // padding, and at least 4 bytes of body
        const LogCapture log(LogWarning);
        const Parse cut(bytes, FileFragment::ContentPart);
        image.at(i).bodyCrc = 0xABC;
        const Parse damaged(image.buildPart(i), FileFragment::ContentPart);
        EXPECT_EQ(log.count(std::string(rows[i].method) + "() Body CRC failed! crc32Body=0x"), 1U);
        EXPECT_EQ(log.count(", body_crc=0xabc"), 1U);
        ASSERT_EQ(damaged.count(), rows[i].parts);
        ASSERT_EQ(cut.count(), rows[i].parts);
        if (rows[i].parts == 0)
            continue;
        EXPECT_FALSE(damaged.at(0)->isBodyValid() || cut.at(0)->isBodyValid());
        EXPECT_EQ(cut.at(0)->getUsedSize(), rows[i].usedSize);
        const auto* const software = dynamic_cast<SwBlob*>(cut.at(0));
        EXPECT_TRUE(software == nullptr || software->isExtendedHeaderValid());
    }
}

TEST(ZempParserFile, ExtendedHeaderThatIsMissing) {
    const Quiet quiet;
    ImageBuilder image;
    image.software("kernel", {1, 2, 3}, "", {}).extension.resize(10);
    image.release({1, 2, 3}, 0, "", "").extension.resize(10);
    const Parse kernel(image.buildPart(0), FileFragment::ContentPart);
    ASSERT_EQ(kernel.count(), 1U);
    EXPECT_FALSE(kernel.at(0)->isBodyValid() || static_cast<SwBlob*>(kernel.at(0))->isExtendedHeaderValid());
    EXPECT_EQ(Parse(image.buildPart(1), FileFragment::ContentPart).count(), 0U);
}

TEST(ZempParserFile, LastPaddingMayBeMissing) {
    const Quiet quiet;
    ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL", "text", true);
    image.manifest("# unpadded").padded = false;
    const Parse parse(image.build(), FileFragment::ZempFile);
    EXPECT_TRUE(parse.isParsed);
    ASSERT_EQ(parse.count(), 3U);
    const auto* const suum = static_cast<SuumBlob*>(parse.at(2));
    EXPECT_EQ(Bytes(suum->getBlob(), suum->getBlob() + suum->getBlobSize()),
              bytesOf(std::string("# unpadded\0\0", 12)));
}

TEST(ZempParserFile, ReleaseTextEndsAtAZeroByteAndKeepsItsLineEnds) {
    ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL", std::string("one\ntwo\r\n\n\0three", 16));
    const Quiet quiet;
    const Parse parse(image.buildPart(0), FileFragment::ContentPart);
    ASSERT_EQ(parse.count(), 1U);
    EXPECT_EQ(static_cast<ReleaseHeaderPart*>(parse.at(0))->getReleaseHeaderBody(), "one\ntwo\r\n\n");
}

// Bodies larger than what is read at a time, and a large image in one piece.
TEST(ZempParserFile, LargeBodies) {
    const Quiet quiet;
    const lab::TemporaryDirectory directory;
    const std::string filename = directory.file("image");
    ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL", std::string(10000, 't'), true);
    image.manifest("# " + std::string(200000, 'm'));
    image.software("kernel", {1, 2, 3}, "id", pattern(400001));
    image.software("root", {1, 2, 3}, "id", pattern(131072));
    image.write(filename);
    // Asked for more than there is: what is missing is zero, and memory is not taken for it.
    const uint32_t most = sizeof(void*) > 4 ? UINT32_MAX : UINT32_MAX / 8; // what addresses can be had for
    for (const uint32_t size : {0U, most}) {
        const Parse parse(filename, size, FileFragment::ZempFile);
        ASSERT_EQ(parse.count(), 5U);
        EXPECT_TRUE(parse.at(3)->isBodyValid() && parse.at(4)->isBodyValid());
    }
    Bytes damaged = readFile(filename);
    damaged[static_cast<size_t>(image.offsetOf(2) + 200000)] ^= 1U;
    const Parse other(damaged, FileFragment::ZempFile);
    ASSERT_EQ(other.count(), 4U);
    EXPECT_FALSE(other.at(3)->isBodyValid());
}

// Every step works on bytes at any address and takes null for what it is.
TEST(ZempParserSteps, AnyAddressAndNull) {
    const Quiet quiet;
    const Bytes image = goldenBuilder().build();
    for (size_t shift = 0; shift < 4; ++shift) {
        Bytes moved(shift);
        moved.insert(moved.end(), image.begin(), image.end());
        const uint8_t* const at = &moved[shift];
        Parse parse;
        EXPECT_EQ(parse.parser().parseZempFileStart(at, 356), 8U);
        EXPECT_EQ(parse.parser().parseContentParts(at + 24, 332, false), 72U);
        EXPECT_EQ(parse.count(), 4U);
        EXPECT_EQ(parse.at(1)->getPartVersion(), "1.05-7") << "without a main header too";
    }
    ZempParser parser;
    EXPECT_EQ(parser.parseZempFileStart(nullptr, 100), 0U);
    EXPECT_EQ(parser.parseZempHeader(nullptr, 100), nullptr);
    EXPECT_EQ(parser.parseContentHeader(nullptr, 100), nullptr);
    EXPECT_EQ(parser.parseContentPart(nullptr, 100), nullptr);
    EXPECT_EQ(parser.parseContentParts(nullptr, 100, false), 0U);
    EXPECT_FALSE(parser.parseSwBlobExtendedHeader(nullptr, 100, nullptr));
    EXPECT_EQ(parser.parseContentParts(image.data(), 31, false), 0U);
}

// In memory of just its size, so that a read behind the end shows.
TEST(ZempParserSteps, NoReadBehindTheEndOfAPart) {
    const Quiet quiet;
    const ImageBuilder image = goldenBuilder();
    for (size_t part = 0; part < image.count(); ++part) {
        const Bytes whole = image.buildPart(part);
        for (size_t size = 0; size <= whole.size(); ++size) {
            const std::unique_ptr<uint8_t[]> exact(new uint8_t[size]);
            std::copy_n(whole.begin(), size, exact.get());
            const ZempParser parser;
            const std::unique_ptr<ZempPart> result(
                parser.parseContentPart(exact.get(), static_cast<uint32_t>(size)));
            EXPECT_TRUE(result == nullptr || !result->isBodyValid() || size + 3 >= whole.size());
        }
    }
}

TEST(ZempParserListing, IsShownAtALoweredLevelOnly) {
    const LogCapture log(LogNotice);
    const Parse quiet(goldenBuilder().build(), FileFragment::ZempFile);
    EXPECT_EQ(log.count("root 1.02-3, root-build"), 0U);
    ParseLevel = LogNotice;
    const Parse parse(goldenBuilder().build(), FileFragment::ZempFile);
    ParseLevel = LogDebug;
    EXPECT_TRUE(log.has("LOG_NOTICE ZempParser::logZempParts() root 1.02-3, root-build"));
    EXPECT_TRUE(log.has("LOG_NOTICE ZempParser::parseSuumBlob() cidx=4 poolname=root partsize=0 platform=- "
                        "mountpoint=/ filesystem=ext4 version=1.2-3 meta_valid=yes"));
}

} // namespace
