#include "image/ZempCreator.h"
#include "image/ContentBlob.h"
#include "image/ImageFixtures.h"
#include "image/ZempReadBack.h"
#include "image/zemp_validate.h"
#include "support/Faults.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using PartMap = std::map<const unsigned, ZempPart*>;

const std::string Prefix = "LOG_WARNING ZempCreator::createZemp: ";

// An update in a directory of its own: parts that were downloaded as the daemon does it, the image start in
// one file and each blob in one of its own, with its body or without.
class ZempCreatorTest : public testing::Test {
  protected:
    ZempCreatorTest() { ZempCreator::setTempFilename(temp()); }
    ~ZempCreatorTest() override { ZempCreator::setTempFilename("/tmp/zempparts"); }

    std::string temp() const { return mDirectory.file("parts"); }
    std::string output() const { return mDirectory.file("update"); }
    std::string partial() const { return output() + ".part"; }
    std::string partFile(size_t index) const { return mDirectory.file("part" + std::to_string(index)); }

    // Downloads the image's first parts and, under keys 2, 4, 5 and so on, its blobs; those in `needed`
    // wholly.
    void download(const ImageBuilder& image, const std::vector<size_t>& needed) {
        const support::LogCapture quiet(LogEmergency);
        writeFile(mDirectory.file("start"), image.build());
        mStart = std::make_unique<Parse>(mDirectory.file("start"), 0, FileFragment::ZempStart);
        ASSERT_EQ(mStart->count(), 3U);
        mMap[0] = mStart->at(1);
        mMap[1] = mStart->at(2);
        for (size_t i = 2; i < image.count(); ++i) {
            Bytes part = image.buildPart(i);
            const bool isNeeded = std::count(needed.begin(), needed.end(), i) > 0;
            if (!isNeeded)
                part.resize(ZempFormat::SwBlobBodyOffset + 1); // the header, and not all of the body
            writeFile(partFile(i), part);
            mBlobs.push_back(std::make_unique<Parse>(partFile(i), 0, FileFragment::ContentPart));
            ASSERT_EQ(mBlobs.back()->count(), 1U);
            ZempPart* const blob = mBlobs.back()->at(0);
            ASSERT_EQ(blob->isBodyValid(), isNeeded);
            blob->setFilename(partFile(i));
            mMap[blob->getContentIndex()] = blob;
        }
    }

    // The golden image with its kernel needed.
    void downloadGolden() { download(goldenBuilder(), {2}); }

    // Compiles and expects that it fails with this line last, that nothing is left behind, and that the image
    // of an earlier compile is what it was.
    void expectFailure(const std::string& line, const Bytes& earlier = {},
                       ZempCreator::Failure failure = ZempCreator::Failure::Surroundings) {
        const support::LogCapture log;
        ZempCreator creator(mMap);
        EXPECT_FALSE(creator.createZemp(output()));
        ASSERT_FALSE(log.lines().empty());
        EXPECT_EQ(log.lines().back(), Prefix + line);
        const bool isOfParts = line.find("Aborting!") != std::string::npos;
        EXPECT_EQ(creator.getFailure(), isOfParts ? ZempCreator::Failure::Parts : failure);
        EXPECT_EQ(std::filesystem::exists(output()), !earlier.empty());
        if (!earlier.empty()) {
            EXPECT_EQ(readFile(output()), earlier);
        }
        EXPECT_FALSE(std::filesystem::exists(partial()));
        EXPECT_FALSE(std::filesystem::is_regular_file(temp()));
    }

    const lab::TemporaryDirectory mDirectory;
    std::unique_ptr<Parse> mStart;
    std::vector<std::unique_ptr<Parse>> mBlobs;
    PartMap mMap;
};

TEST_F(ZempCreatorTest, CompilesTheGoldenImage) {
    downloadGolden();
    const support::LogCapture log;
    ASSERT_TRUE(ZempCreator(mMap).createZemp(output()));
    const Bytes image = readFile(output());
    ASSERT_EQ(image.size(), 348U);
    EXPECT_EQ(crc32_calc(0, image.data(), image.size()), 0x3be048deU);
    EXPECT_EQ(ZempFormat::getLe32(&image[RootOffset]), 0xa00e0248U);
    EXPECT_EQ(Bytes(&image[KernelOffset], &image[RootOffset]), goldenBuilder().buildPart(2));
    const auto* const header = reinterpret_cast<const zemp_header_t*>(&image[ZempFormat::HeaderOffset]);
    EXPECT_EQ(zemp_validate_header(header), ZempValid);
    EXPECT_EQ(zemp_validate_body(header, &image[24]), ZempValid);
    EXPECT_FALSE(std::filesystem::exists(temp()));
    EXPECT_TRUE(log.has("LOG_INFO ZempCreator::createZemp: KernelBlob. We need this"));
    EXPECT_TRUE(log.has("LOG_INFO ZempCreator::createZemp: RootBlob not needed. Only write headers"));
}

// Bodies around the sizes in which files are copied, each byte in its place.
TEST_F(ZempCreatorTest, LargeBodiesComeOutByteForByte) {
    ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL", "Release", true);
    image.manifest("# none\n");
    size_t size = 9999;
    for (const char* name : {"kernel", "kernel4812", "root", "app", "3rdapp"}) {
        image.software(name, {1, 2, 3}, "id", pattern(size));
        size = size == 9999 ? 10000 : size == 10000 ? 131072 : size * 3 + 1;
    }
    download(image, {2, 3, 4, 5, 6});
    const Quiet quiet;
    writeFile(output(), pattern(3000000)); // of an earlier compile
    ASSERT_TRUE(ZempCreator(mMap).createZemp(output()));
    EXPECT_EQ(readFile(output()), image.build());
}

TEST_F(ZempCreatorTest, MainHeaderOfTheImageIsKept) {
    downloadGolden();
    auto* const main = static_cast<ZempHeaderPart*>(mStart->at(0));
    zemp_header_t values = *main->getZempHeader();
    values.reserved = 0x5A;
    main->updateZempHeader(&values);
    mMap[100] = main;
    const Quiet quiet;
    ASSERT_TRUE(ZempCreator(mMap).createZemp(output()));
    const Bytes image = readFile(output());
    const auto* const header = reinterpret_cast<const zemp_header_t*>(&image[ZempFormat::HeaderOffset]);
    EXPECT_EQ(header->reserved, 0x5A);
    EXPECT_EQ(zemp_validate_header(header), ZempValid);
}

TEST_F(ZempCreatorTest, RefusesPartsItCannotWrite) {
    downloadGolden();
    const PartMap good = mMap;
    const support::LogCapture quiet(LogEmergency);
    const auto refuses = [&](unsigned key, ZempPart* part, const std::string& line) {
        mMap = good;
        mMap[key] = part;
        expectFailure(line);
    };
    zemp_content_header_t header = *good.at(2)->getHeader();
    ZempHeaderPart noHeader;
    refuses(100, &noHeader, "Invalid ZEMP header. Aborting!");
    ReleaseHeaderPart noRelease(good.at(0)->getHeader(), nullptr);
    noRelease.setIsBodyValid(true);
    refuses(0, &noRelease, "Invalid Release header. Aborting!");
    SuumBlob noManifest(good.at(1)->getHeader());
    refuses(1, &noManifest, "Invalid SUUM blob. Aborting!");
    SwBlob noExtendedHeader(&header);
    refuses(2, &noExtendedHeader, "Invalid KernelBlob. Aborting!");
    header.name[0] = 'x';
    SwBlob unknown(&header);
    refuses(9, &unknown, "UnspecifiedSwBlob is unknown. Aborting!");
    ContentBlob plain(good.at(1)->getHeader());
    refuses(9, &plain, "UnspecifiedBlob is unknown. Aborting!");
    refuses(9, nullptr, "UnspecifiedPart is unknown. Aborting!");
    mMap = {{0, good.at(0)}, {100, mStart->at(0)}};
    expectFailure("Insufficient ZEMP parts. Aborting!");
}

// The part's file may have changed since it was parsed.
TEST_F(ZempCreatorTest, NeededBodyMustStillBeInItsFile) {
    downloadGolden();
    const Bytes part = goldenBuilder().buildPart(2);
    const std::string line = "Invalid KernelBlob. Aborting!";
    for (size_t i = 0; i < part.size() - 3; ++i) {
        writeFile(partFile(2), Bytes(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(i)));
        expectFailure(line);
        Bytes damaged = part;
        damaged[i] ^= 0x10U;
        writeFile(partFile(2), damaged);
        expectFailure(line);
    }
    std::filesystem::remove(partFile(2));
    expectFailure(line);
    ASSERT_EQ(mkfifo(partFile(2).c_str(), 0600), 0);
    expectFailure(line); // and nobody is waited for
    std::filesystem::remove(partFile(2));
    writeFile(partFile(2), Bytes(part.begin(), part.end() - 3)); // padding is not read from the file
    const Quiet quiet;
    EXPECT_TRUE(ZempCreator(mMap).createZemp(output()));
}

// The parser takes parts whose header declares more than their kind has; it finds the body at the same place.
TEST_F(ZempCreatorTest, HeadersAreWrittenAsLongAsTheirKindHasThem) {
    downloadGolden();
    const Quiet quiet;
    for (size_t i : {size_t{2}, size_t{3}}) {
        Bytes part = goldenBuilder().buildPart(i);
        ZempFormat::putLe16(&part[6], 68);
        ZempFormat::putLe32(&part[0], crc32_calc(0, &part[4], 64));
        if (i == 3)
            part.resize(68); // the header, and not all of the body
        writeFile(partFile(i), part);
        mBlobs[i - 2] = std::make_unique<Parse>(partFile(i), 0, FileFragment::ContentPart);
        ASSERT_EQ(mBlobs[i - 2]->count(), 1U);
        ZempPart* const blob = mBlobs[i - 2]->at(0);
        blob->setFilename(partFile(i));
        mMap[blob->getContentIndex()] = blob;
    }
    ASSERT_TRUE(ZempCreator(mMap).createZemp(output()));
    const Bytes image = readFile(output());
    EXPECT_EQ(crc32_calc(0, image.data(), image.size()), 0x3be048deU) << "as the golden image's";
}

// What is on the disk is not always what was written.
TEST_F(ZempCreatorTest, ImageIsReadBackToItsLastBit) {
    downloadGolden();
    const Quiet quiet;
    ASSERT_TRUE(ZempCreator(mMap).createZemp(output()));
    const Bytes good = readFile(output());
    zemp_header_t header;
    memcpy(&header, &good[ZempFormat::HeaderOffset], sizeof header);
    std::vector<WrittenPart> parts;
    const Parse parse(output(), 0, FileFragment::ZempFile);
    for (uint32_t i = 1; i < parse.count(); ++i)
        parts.push_back({*parse.at(i)->getHeader(), {}});
    const auto voucher = std::make_shared<const seal::Voucher>();
    EXPECT_TRUE(readBackImage(output(), header, parts, voucher));
    const auto refuses = [&](const Bytes& bad) {
        writeFile(output(), bad);
        return !readBackImage(output(), header, parts, voucher);
    };
    for (size_t i = 0; i < good.size(); ++i) {
        Bytes bad = good;
        bad[i] ^= 1;
        EXPECT_TRUE(refuses(bad)) << "byte " << i;
        EXPECT_TRUE(refuses(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(i))))
            << "cut at " << i;
    }
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_TRUE(refuses(longer));

    // Right in its main header and whole body, wrong within: a bit of the temporary file flipped.
    for (size_t i = ZempFormat::HeaderOffset + ZempFormat::HeaderSize; i < good.size(); ++i) {
        Bytes bad = good;
        bad[i] ^= 1;
        header.body_crc = crc32_calc(0, &bad[24], bad.size() - 24);
        header.hdr_crc = crc32_calc(0, reinterpret_cast<const uint8_t*>(&header) + 4, sizeof header - 4);
        memcpy(&bad[ZempFormat::HeaderOffset], &header, sizeof header);
        EXPECT_TRUE(refuses(bad)) << "byte " << i;
    }
}

// Where digests are asked for, checksums do not do.
TEST_F(ZempCreatorTest, DigestsAreReadBackToo) {
    struct Summing : seal::Voucher {
        struct Sum : seal::Hash {
            void update(const void* data, size_t size) override { crc = crc32_calc(crc, data, size); }
            seal::Digest finish() override {
                const uint32_t sum = crc;
                crc = 0;
                return {static_cast<uint8_t>(sum), static_cast<uint8_t>(sum >> 8), 1};
            }
            uint32_t crc = 0;
        };
        std::unique_ptr<seal::Hash> makeHash() const override { return std::make_unique<Sum>(); }
    };
    downloadGolden();
    const auto voucher = std::make_shared<const Summing>();
    ASSERT_TRUE(ZempCreator(mMap, voucher).createZemp(output()));
    zemp_header_t header;
    memcpy(&header, &readFile(output())[ZempFormat::HeaderOffset], sizeof header);
    const Parse parse(output(), 0, FileFragment::ZempFile);
    std::vector<WrittenPart> parts;
    for (uint32_t i = 1; i < parse.count(); ++i)
        parts.push_back({*parse.at(i)->getHeader(), {}});
    const Quiet quiet;
    EXPECT_FALSE(readBackImage(output(), header, parts, voucher)) << "the digests of another image";
}

TEST_F(ZempCreatorTest, ReleaseTextWithAZeroInsideIsNotFlagged) {
    ImageBuilder image = goldenBuilder();
    image.at(0).body[3] = 0;
    download(image, {2});
    expectFailure("'" + partial() + "' was not read back as it was written (parts).", {},
                  ZempCreator::Failure::Parts);
}

// Whoever may write to the directory may hold the names that the compiler writes to.
TEST_F(ZempCreatorTest, PlantedFilesAreRemovedAndNeverOpened) {
    downloadGolden();
    const std::string victim = mDirectory.write("victim", "precious");
    for (const std::string& name : {temp(), partial()}) {
        const std::function<int()> plants[] = {
            [&] { return symlink(victim.c_str(), name.c_str()); },
            [&] { return link(victim.c_str(), name.c_str()); },
            [&] { return mkfifo(name.c_str(), 0600); },
            [&] { return writeFile(name, pattern(1000)), 0; },
        };
        for (const auto& plant : plants) {
            ASSERT_EQ(plant(), 0);
            const Quiet quiet;
            EXPECT_TRUE(ZempCreator(mMap).createZemp(output()));
            EXPECT_EQ(mDirectory.read(victim), "precious");
            EXPECT_EQ(readFile(output()).size(), 348U);
            std::filesystem::remove(output());
        }
    }
    ASSERT_EQ(mkdir(temp().c_str(), 0700), 0);
    const support::LogCapture log;
    EXPECT_FALSE(ZempCreator(mMap).createZemp(output()));
    EXPECT_TRUE(log.has(Prefix + "Unable to create temporary file."));
}

TEST_F(ZempCreatorTest, OutputThatCannotBeWrittenFails) {
    downloadGolden();
    const support::LogCapture log;
    EXPECT_FALSE(ZempCreator(mMap).createZemp(mDirectory.file("absent/update")));
    EXPECT_TRUE(log.has(Prefix + "Unable to open output file."));
    EXPECT_FALSE(std::filesystem::exists(temp()));
    ASSERT_EQ(mkfifo(output().c_str(), 0600), 0); // or a device
    EXPECT_FALSE(ZempCreator(mMap).createZemp(output()));
    EXPECT_TRUE(log.has(Prefix + "'" + output() + "' is not a regular file."));
    EXPECT_TRUE(std::filesystem::is_fifo(output()));
    EXPECT_FALSE(std::filesystem::exists(partial()));
}

TEST_F(ZempCreatorTest, NamesMayBeAsLongAsNamesMayBe) {
    downloadGolden();
    const Quiet quiet;
    for (size_t length = 249; length <= 255; ++length) {
        const std::string name = mDirectory.file(std::string(length, 'n'));
        EXPECT_TRUE(ZempCreator(mMap).createZemp(name)) << length;
        EXPECT_EQ(readFile(name).size(), 348U);
    }
}

// A full disk, for the temporary file and then, a little larger, for the image. One of an earlier compile may
// be flagged as ready.
TEST_F(ZempCreatorTest, FullDiskLeavesWhatThereWas) {
    downloadGolden();
    for (const auto& [bytes, line] : std::map<rlim_t, std::string>{
             {300, "Error while writing temporary file (File too large)."},
             {340, "Error while writing output file '" + output() + "' (File too large)."}}) {
        for (const Bytes& earlier : {Bytes(), pattern(200)}) {
            if (!earlier.empty())
                writeFile(output(), earlier);
            const support::FullDisk disk(bytes);
            expectFailure(line, earlier);
            std::filesystem::remove(output());
        }
    }
    const Quiet quiet;
    EXPECT_TRUE(ZempCreator(mMap).createZemp(output()));
}

} // namespace
