#include "image/ContentBlob.h"
#include "image/ImageFixtures.h"
#include <gtest/gtest.h>

namespace {

class ZempPartTest : public testing::Test {
    Quiet mQuiet;
};

zemp_content_header_t contentHeader(uint16_t type, const std::string& name, uint32_t bodyLength = 0) {
    zemp_content_header_t header{};
    header.type = type;
    header.hdr_length = type == ZempFormat::SwBlobType ? 64 : 32;
    header.body_length = bodyLength;
    name.copy(header.name, sizeof header.name);
    return header;
}

std::unique_ptr<SwBlob> software(const std::string& name, uint8_t major, uint8_t minor, uint16_t build,
                                 const std::string& buildId) {
    const zemp_content_header_t header = contentHeader(ZempFormat::SwBlobType, name);
    zemp_content_software_blob_t extended{};
    extended.major = major;
    extended.minor = minor;
    extended.build = build;
    buildId.copy(extended.build_id, sizeof extended.build_id);
    auto blob = std::make_unique<SwBlob>(&header);
    EXPECT_TRUE(blob->updateExtendedHeader(&extended, true));
    return blob;
}

zemp_content_release_header_t releaseHeader(uint8_t major, uint8_t minor, uint16_t build,
                                            const std::string& name) {
    zemp_content_release_header_t release{};
    release.major = major;
    release.minor = minor;
    release.build = build;
    release.time = 86400;
    name.copy(release.name, sizeof release.name);
    return release;
}

TEST_F(ZempPartTest, TypeFollowsFromContentTypeAndExactName) {
    struct Row {
        const char* name;
        const char* part; // null: no part
        uint32_t index;
        uint16_t type;
    };
    const Row rows[] = {
        {"kernel", "KernelBlob", 2, 4},
        {"kernel4812", "Kernel4812Blob", 3, 4},
        {"root", "RootBlob", 4, 4},
        {"app", "AppBlob", 5, 4},
        {"3rdapp", "ThirdAppBlob", 6, 4},
        {"Kernel", "UnspecifiedSwBlob", 300, 4},
        {"kernel48120123456", "UnspecifiedSwBlob", 300, 4}, // all 16 bytes used
        {"", "UnspecifiedSwBlob", 300, 4},
        {"suum", "UnspecifiedBlob", 200, 3},
        {"release", "ReleaseHeader", 0, 1},
        {"kernel", nullptr, 0, 2},
        {"", nullptr, 0, 0},
    };
    for (const Row& row : rows) {
        const zemp_content_header_t header = contentHeader(row.type, row.name);
        const std::unique_ptr<ZempPart> part(ZempPart::createZempPart(&header));
        ASSERT_EQ(part == nullptr, row.part == nullptr) << row.name;
        if (part == nullptr)
            continue;
        EXPECT_STREQ(ZempPart::getString(part->getPartType()), row.part);
        EXPECT_EQ(part->getContentIndex(), row.index);
        EXPECT_EQ(part->getPartname(), std::string(row.name).substr(0, 16));
        EXPECT_TRUE(part->isContentHeaderValid());
    }
    EXPECT_EQ(ZempPart::createZempPart(nullptr), nullptr);
}

TEST_F(ZempPartTest, VersionsAndTexts) {
    const auto kernel = software("kernel", 1, 2, 3, std::string(28, 'b')); // all bytes used
    EXPECT_EQ(kernel->toString(), "kernel 1.02-3, " + std::string(28, 'b'));
    EXPECT_EQ(kernel->getMapKey(), "kernel 1.02-3");
    EXPECT_EQ(software("root", 255, 123, 65535, "")->getPartVersion(), "255.123-65535");

    const zemp_content_header_t header = contentHeader(ZempFormat::ReleaseHeaderType, "release");
    const auto values = releaseHeader(1, 5, 7, std::string(36, 'n'));
    ReleaseHeaderPart release(&header, &values);
    EXPECT_EQ(release.toString(),
              "ReleaseHeader: " + std::string(36, 'n') + " 1.05-7, Fri Jan  2 00:00:00 1970");
    EXPECT_EQ(release.getMapKey(), "ReleaseHeader 1.05-7");

    const zemp_content_header_t plain = contentHeader(ZempFormat::BlobType, "sixteen-letters!");
    EXPECT_EQ(ContentBlob(&plain).getMapKey(), "sixteen-letters! 0");
    ZempHeaderPart main;
    main.setPartVersion("1.05-7");
    EXPECT_EQ(main.getMapKey(), "ZempHeader 1.05-7");
    EXPECT_EQ(main.getContentIndex(), 100U);
}

TEST_F(ZempPartTest, IsVersionComparesAllThreeNumbersOnceTheyAreKnown) {
    const auto kernel = software("kernel", 1, 2, 3, "");
    EXPECT_TRUE(kernel->isVersion(1, 2, 3));
    EXPECT_FALSE(kernel->isVersion(1, 2, 4) || kernel->isVersion(1, 3, 3) || kernel->isVersion(2, 2, 3));

    const zemp_content_header_t header = contentHeader(ZempFormat::SwBlobType, "kernel");
    SwBlob unread(&header);
    EXPECT_FALSE(unread.isVersion(0, 0, 0));
    EXPECT_FALSE(ReleaseHeaderPart(&header, nullptr).isVersion(0, 0, 0));
    zemp_content_software_blob_t extended = *kernel->getExtendedHeader();
    unread.updateExtendedHeader(&extended, false);
    EXPECT_EQ(unread.getMajorVersion() + unread.getMinorVersion() + unread.getBuildVersion(), 0);
}

// Deliberate: main header and manifest say whether the versions differ, and their minor is a raw character.
TEST_F(ZempPartTest, IsVersionOfMainHeaderAndManifestIsInverted) {
    ZempHeaderPart main;
    const zemp_content_header_t header = contentHeader(ZempFormat::BlobType, "suum");
    SuumBlob suum(&header);
    EXPECT_TRUE(main.isVersion(1, '5', 7) && suum.isVersion(1, '5', 7));
    main.setPartVersion("1.05-7");
    suum.setPartVersion("1.05-7");
    EXPECT_TRUE(main.isVersion(1, 5, 7) && suum.isVersion(1, 5, 7));
    EXPECT_FALSE(main.isVersion(1, '5', 7) || suum.isVersion(1, '5', 7));
}

TEST_F(ZempPartTest, SizeInFileIsPaddedAndSaturates) {
    const struct {
        uint32_t bodyLength;
        uint32_t size;
    } rows[] = {{0, 64}, {1, 68}, {4, 68}, {5, 72}, {0xFFFFFFFFU, 0xFFFFFFFFU}, {0xFFFFFFC0U, 0xFFFFFFFFU}};
    for (const auto& row : rows) {
        const zemp_content_header_t header = contentHeader(ZempFormat::SwBlobType, "app", row.bodyLength);
        EXPECT_EQ(SwBlob(&header).getSizeInZempFile(), row.size);
    }
    EXPECT_EQ(ZempHeaderPart().getSizeInZempFile(), 0U);
}

// A part that learned something later is merged into the one known before.
TEST_F(ZempPartTest, UpdateTakesOverWhatTheOtherKnows) {
    const auto known = software("kernel", 1, 2, 3, "old");
    const auto later = software("kernel", 1, 2, 4, "new");
    later->setFilename("/x/later");
    later->setIsBodyValid(true);
    later->setUsedDataSize(99);
    known->update(later.get());
    EXPECT_EQ(known->toString(), "kernel 1.02-4, new");
    EXPECT_EQ(known->getFilename(), "/x/later");
    EXPECT_TRUE(known->isBodyValid() && known->isExtendedHeaderValid());
    EXPECT_EQ(known->getUsedSize(), 99U);
    using Extended = zemp_content_software_blob_t;
    for (void (*change)(Extended&) :
         {+[](Extended& extended) { ++extended.major; }, +[](Extended& extended) { ++extended.minor; },
          +[](Extended& extended) { ++extended.build; },
          +[](Extended& extended) { extended.build_id[0] = 'N'; }}) {
        Extended extended = *known->getExtendedHeader();
        change(extended);
        EXPECT_TRUE(known->updateExtendedHeader(&extended, true));
        EXPECT_FALSE(known->updateExtendedHeader(&extended, true));
    }

    const zemp_content_header_t header = contentHeader(ZempFormat::SwBlobType, "kernel");
    SwBlob unread(&header);
    known->update(&unread);
    EXPECT_FALSE(known->isBodyValid() || known->isExtendedHeaderValid());

    using Release = zemp_content_release_header_t;
    Release told = releaseHeader(1, 5, 7, "release");
    const zemp_content_header_t releaseContent = contentHeader(ZempFormat::ReleaseHeaderType, "release");
    ReleaseHeaderPart release(&releaseContent, &told);
    for (void (*change)(Release&) :
         {+[](Release& next) { ++next.major; }, +[](Release& next) { ++next.minor; },
          +[](Release& next) { ++next.build; }, +[](Release& next) { ++next.time; },
          +[](Release& next) { next.name[0] = 'R'; }}) {
        change(told);
        EXPECT_TRUE(release.updateReleaseHeader(&told));
        EXPECT_FALSE(release.updateReleaseHeader(&told));
    }

    const zemp_content_header_t plain = contentHeader(ZempFormat::BlobType, "notes");
    ContentBlob blob(&plain);
    ContentBlob laterBlob(&plain);
    laterBlob.setFilename("/x/later");
    blob.update(&laterBlob);
    EXPECT_EQ(blob.getFilename(), "/x/later");

    ZempHeaderPart main;
    ZempHeaderPart other;
    other.setPartname("other");
    main.update(&other);
    EXPECT_EQ(main.getPartname(), "other");
}

TEST_F(ZempPartTest, UpdateFromAnotherClassChangesNothing) {
    const auto kernel = software("kernel", 1, 2, 3, "id");
    const zemp_content_header_t plain = contentHeader(ZempFormat::BlobType, "other");
    ContentBlob blob(&plain);
    EXPECT_FALSE(kernel->updateFrom(&blob));
    EXPECT_FALSE(kernel->updateFrom(nullptr));
    kernel->update(&blob);
    kernel->update(nullptr);
    EXPECT_EQ(kernel->toString(), "kernel 1.02-3, id");
}

} // namespace
