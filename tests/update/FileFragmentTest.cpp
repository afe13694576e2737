#include "update/FileFragment.h"

#include "lab/TemporaryDirectory.h"
#include "main/ArgParser.h"
#include "support/LogCapture.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>

namespace {

using support::LogCapture;

// The download directory is the test's own.
class FileFragmentTest : public testing::Test {
  protected:
    FileFragmentTest() { ArgParser::setDownloadDirectory(directory.path()); }
    ~FileFragmentTest() override {
        ArgParser::setDownloadDirectory("/data/fw");
        ArgParser::setFwUpdateBaseFilename("fw_download_update.zemp");
    }

    static void expectTypes(const std::map<std::string, FileFragment::FragmentType>& names) {
        for (const auto& [name, type] : names)
            EXPECT_STREQ(FileFragment::getString(FileFragment::parseFragmentType(name)),
                         FileFragment::getString(type))
                << name;
    }

    const lab::TemporaryDirectory directory;
    const LogCapture log;
};

TEST_F(FileFragmentTest, TypeFromAName) {
    expectTypes({
        {"", FileFragment::UnknownType},
        {"/", FileFragment::UnknownType},
        {"ZempStart-", FileFragment::UnknownType}, // a pattern must be shorter than the name
        {"/x/ContentPart-", FileFragment::UnknownType},
        {".zemp", FileFragment::UnknownType},
        {"ZempStart-1", FileFragment::ZempStart},
        {"/x/ZempStart-abc", FileFragment::ZempStart},
        {"/ZempStart-abc/file", FileFragment::UnknownType}, // only the last component counts
        {"zempStart-abc", FileFragment::UnknownType},
        {"/x/ContentPart-abc", FileFragment::ContentPart},
        {"/x/ContentPart-abc.zemp", FileFragment::ContentPart}, // prefix before suffix
        {"/x/image.zemp", FileFragment::ZempFile},
        {"/x/image.zemp.old", FileFragment::UnknownType},
        {"/x/fw_download_update.zemp", FileFragment::ZempFile},
        {"/x/fw_download_update.zemp-1.02-3", FileFragment::UpdateZempFile},
        {"/x/1.02-3-fw_download_update.zemp", FileFragment::ZempFile},
        {"/x/ZempFile-1.02-3", FileFragment::UnknownType},
    });
    ArgParser::setFwUpdateBaseFilename("update.bin");
    expectTypes({
        {"/x/my-update.bin-1.02-3", FileFragment::UpdateZempFile},
        {"/x/update.bin.zemp", FileFragment::ZempFile},
        {"/x/update.bin", FileFragment::UnknownType}, // not longer
    });
}

TEST(FileFragment, RangeForEveryTypeResumesAfterTheBytesOnDisk) {
    FileFragment start(FileFragment::ZempStart, 0, 0);
    EXPECT_EQ(start.getCurlRange(), "0-511");
    EXPECT_EQ(start.getRangeEnd(), 511U);
    start.setFileSize(200);
    EXPECT_EQ(start.getCurlRange(), "200-511");

    FileFragment part(FileFragment::ContentPart, 0, 0);
    EXPECT_EQ(part.getCurlRange(), "0-0");
    part.setDownloadRange(1024, 3584);
    EXPECT_EQ(part.getCurlRange(), "1024-4608");
    part.setFileSize(512);
    EXPECT_EQ(part.getCurlRange(), "1536-4608");

    EXPECT_EQ(FileFragment(FileFragment::ZempFile, 3, 9).getCurlRange(), "");
    EXPECT_EQ(FileFragment(FileFragment::UpdateZempFile, 0, 0).getCurlRange(), "0-0");
    EXPECT_EQ(FileFragment(FileFragment::UnknownType, 0, 7).getCurlRange(), "0-7");
}

TEST_F(FileFragmentTest, SurplusIsCutBeforeTheNextFetch) {
    FileFragment part(directory.write("ContentPart-a", std::string(1272, 'x')), 1272);
    ASSERT_TRUE(part.cutSurplus()); // no range yet, so nothing is known to be surplus
    EXPECT_EQ(part.getFileSize(), 1272U);
    part.setDownloadRange(196, FileFragment::ContentPartInitialSize);
    ASSERT_TRUE(part.cutSurplus());
    EXPECT_EQ(std::filesystem::file_size(part.getFilename()), 512U);
    EXPECT_TRUE(part.isRangeOnDisk());
    part.setDownloadRange(196, 0); // one byte is a range as well
    EXPECT_TRUE(part.isRangeOnDisk());
    part.setDownloadRange(196, FileFragment::ContentPartInitialSize);

    part.setForeignFrom(100);
    EXPECT_EQ(part.getFileSize(), 512U); // still there
    for (int i = 0; i < 2; ++i)
        ASSERT_TRUE(part.cutSurplus());
    EXPECT_EQ(std::filesystem::file_size(part.getFilename()), 100U);
    EXPECT_FALSE(part.isRangeOnDisk());
    EXPECT_EQ(part.getCurlRange(), "296-707");

    std::filesystem::create_directory(directory.file("c"));
    directory.write("c/d", "x");
    FileFragment stuck(directory.file("c"), 20);
    stuck.setForeignFrom(0);
    EXPECT_FALSE(stuck.cutSurplus());
    EXPECT_EQ(log.count("LOG_WARNING FileFragment::cutSurplus() Failure truncating file '"), 1U);

    FileFragment whole(directory.write("b.zemp", "bytes"), 5);
    EXPECT_TRUE(whole.cutSurplus());
    EXPECT_FALSE(whole.isRangeOnDisk());
    EXPECT_EQ(std::filesystem::file_size(whole.getFilename()), 5U);
}

TEST(FileFragment, SizeLimits) {
    EXPECT_FALSE(FileFragment::isMinimumFileSize(510));
    EXPECT_TRUE(FileFragment::isMinimumFileSize(511));
    EXPECT_TRUE(FileFragment::isMaximumFileSize(75 * 1024 * 1024));
    EXPECT_FALSE(FileFragment::isMaximumFileSize(75 * 1024 * 1024 + 1));
}

TEST_F(FileFragmentTest, FoundOnDiskAndNew) {
    const FileFragment found("/x/ContentPart-abc", 77);
    EXPECT_EQ(found.toString(), "/x/ContentPart-abc (ContentPart)");
    EXPECT_EQ(found.getFileSize(), 77U);
    EXPECT_TRUE(found.isExistingFile());
    EXPECT_TRUE(log.has("LOG_DEBUG FileFragment::FileFragment(ZempFile, 0-0)"));

    FileFragment fresh(FileFragment::ContentPart, 10, 20);
    EXPECT_EQ(fresh.toString(), " (ContentPart)");
    EXPECT_FALSE(fresh.isExistingFile() || fresh.isFullBlobNeeded() || fresh.isFoundInScan());
    EXPECT_TRUE(fresh.setFileSize(5)); // the first size is no change
    EXPECT_TRUE(fresh.setFileSize(9));
    EXPECT_EQ(log.count("setFileSize"), 1U);
    EXPECT_TRUE(log.has("LOG_INFO FileFragment::setFileSize() Changing file size from 5 to 9."));
}

TEST_F(FileFragmentTest, TemporaryNameIsReservedOnDiskAndMadeOnce) {
    FileFragment one(FileFragment::ContentPart, 0, 9);
    FileFragment two(FileFragment::ContentPart, 0, 9);
    one.initFilename();
    two.initFilename();
    const std::string name = one.getFilename();
    EXPECT_EQ(name.rfind(directory.file("ContentPart-"), 0), 0U);
    EXPECT_EQ(name.size(), directory.file("ContentPart-XXXXXX").size());
    EXPECT_NE(name, two.getFilename());
    EXPECT_EQ(std::filesystem::file_size(name), 0U);
    one.initFilename();
    EXPECT_EQ(one.getFilename(), name);
    EXPECT_EQ(log.count("LOG_WARNING"), 1U);
}

TEST_F(FileFragmentTest, NoTemporaryNameWithoutAPlaceForIt) {
    for (const std::string& path : {directory.file("missing"), directory.path() + std::string(600, '/')}) {
        ArgParser::setDownloadDirectory(path);
        FileFragment fragment(FileFragment::ZempStart, 0, 0);
        fragment.initFilename();
        EXPECT_EQ(fragment.getFilename(), "");
    }
    EXPECT_EQ(log.count("LOG_WARNING FileFragment::initFilename() Failure creating temporary file name '"),
              2U);
}

TEST_F(FileFragmentTest, RenamesToTheVersionedNameUnlessThatFails) {
    FileFragment fragment(directory.write("ContentPart-abcdef", "bytes"), 5);
    fragment.setZempPartType(ZempPart::RootBlob);
    const std::string versioned = directory.file("ContentPart-RootBlob-1.2.3");
    for (const char* version : {"1.2.3", "1.2"}) { // the second one is found inside the first
        EXPECT_TRUE(fragment.changeFilename(version));
        EXPECT_EQ(fragment.getFilename(), versioned);
    }
    EXPECT_TRUE(std::filesystem::exists(versioned));
    EXPECT_FALSE(std::filesystem::exists(directory.file("ContentPart-abcdef")));

    FileFragment missing(directory.file("ZempStart-missing"), 5);
    EXPECT_FALSE(missing.changeFilename("1.2.3"));
    EXPECT_EQ(missing.getFilename(), directory.file("ZempStart-missing"));
    EXPECT_TRUE(log.has("LOG_WARNING FileFragment::changeFilename() No such file or directory."));
}

TEST_F(FileFragmentTest, TruncationEmptiesTheFileAndKeepsTheRecordedSize) {
    FileFragment fragment(directory.write("ZempStart-a", "bytes"), 5);
    fragment.truncateFile();
    EXPECT_EQ(std::filesystem::file_size(fragment.getFilename()), 0U);
    EXPECT_EQ(fragment.getFileSize(), 5U);

    FileFragment(FileFragment::ZempStart, 0, 0).truncateFile(); // no name, no file
    FileFragment(directory.path(), 0).truncateFile();
    EXPECT_TRUE(log.has("LOG_WARNING FileFragment::truncateFile() Failure truncating file '" +
                        directory.path() + "'! (Is a directory."));
    ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
    FileFragment(directory.file("pipe"), 0).truncateFile(); // waits for nobody
}

} // namespace
