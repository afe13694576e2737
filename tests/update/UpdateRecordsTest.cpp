// The books of an update, piece by piece, and the small things beside them.
#include "main/ArgParser.h"
#include "support/LogCapture.h"
#include "update/FetchGovernor.h"
#include "update/StartRange.h"
#include "update/rig/Terminal.h"
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>

namespace {

class Records : public testing::Test {
  protected:
    Records() : handler(&queue) { ArgParser::setDownloadDirectory(directory.path() + "/fw"); }

    FileFragment* addFragment(const std::string& name, unsigned size) {
        handler.initDirName();
        auto* fragment = new FileFragment(directory.write("fw/" + name, std::string(size, 'x')), size);
        EXPECT_TRUE(handler.addFileFragment(fragment));
        return fragment;
    }

    static std::string nameOf(FwAction::NextAction action) {
        return action == FwAction::FindNeededParts ? "FindNeededParts" : FwAction::getString(action);
    }

    rig::Terminal unused; // keeps the settings of other tests away
    lab::TemporaryDirectory directory;
    wqueue<FwWorkItem*> queue;
    UpdateHandler handler;
};

} // namespace

TEST_F(Records, VersionIsSetOnce) {
    EXPECT_FALSE(handler.addFileFragment(nullptr));
    EXPECT_FALSE(handler.setVersionToDownload("", "1.05-7"));
    EXPECT_FALSE(handler.setVersionToDownload("http://u", ""));
    EXPECT_TRUE(handler.setVersionToDownload("http://u", "1.05-7"));
    EXPECT_FALSE(handler.setVersionToDownload("http://u", "1.05-7"));
    EXPECT_TRUE(handler.setVersionToDownload("http://v", "1.05-7"));
    EXPECT_TRUE(handler.setConfigDbStatus(ConfigDbStatusEvent::ConfigGetNewFirmware));
    EXPECT_FALSE(handler.setConfigDbStatus(ConfigDbStatusEvent::ConfigGetNewFirmware));
    handler.setNextAction(FwAction::FindNeededParts);
    EXPECT_EQ(handler.getPreviousAction(), FwAction::Unspecified);
    EXPECT_EQ(handler.whatToDo(), "Unknown action (4)");
    EXPECT_EQ(handler.getFwUpdateFilename(), directory.path() + "/fw/fw_download_update.zemp-1.05-7");
}

TEST_F(Records, ActionChangesAsTheTableSays) {
    std::ifstream file(FW_SOURCE_DIR "/docs/architecture.md");
    std::ostringstream document;
    document << file.rdbuf();
    const support::LogCapture log(LogError);
    size_t unforeseen = 0;
    for (const FwAction::Transition& row : FwAction::Transitions) {
        std::string from;
        for (int value = FwAction::Unspecified; value <= FwAction::WaitForFwUpdate; ++value) {
            const auto action = static_cast<FwAction::NextAction>(value);
            handler.setNextAction(action);
            handler.setNextAction(row.cause);
            EXPECT_EQ(handler.getNextAction(), row.to) << row.event;
            if (row.from.contains(action))
                from += (from.empty() ? "" : ", ") + nameOf(action);
            else
                ++unforeseen;
        }
        const std::string line = std::string("| ") + row.event + " | " +
                                 (from.find("Unspecified") == 0 ? "any" : from) + " | " + nameOf(row.to) +
                                 " |\n";
        EXPECT_NE(document.str().find(line), std::string::npos) << line;
    }
    EXPECT_EQ(log.count("UpdateHandler::setNextAction() "), unforeseen);
}

TEST_F(Records, DirectoryIsMadeWithItsOddMode) {
    ASSERT_TRUE(handler.initDirName());
    struct stat status = {};
    ASSERT_EQ(stat((directory.path() + "/fw").c_str(), &status), 0);
    const mode_t mask = umask(022);
    umask(mask);
    EXPECT_EQ(status.st_mode & 01777u, 01560u & ~mask)
        << "0x770 is octal 3560; the set-id bits are the parent's";
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_TRUE(handler.initDirName());
}

TEST_F(Records, FileInPlaceOfTheDirectoryIsRefused) {
    directory.write("fw", "x");
    EXPECT_FALSE(handler.initDirName());
    handler.setVersionToDownload("http://u", "1.05-7");
    EXPECT_EQ(handler.createDownloadRequest("http://u", 0, 511, FileFragment::ZempStart), nullptr);
    ASSERT_EQ(queue.size(), 1);
    const std::unique_ptr<FwWorkItem> item(queue.remove());
    EXPECT_EQ(item->getWorkItemType(), FwWorkItem::ExitRunLoop);
}

TEST_F(Records, OneScanAtATime) {
    FileScanRequest* scan = handler.createFileScanRequest();
    ASSERT_NE(scan, nullptr);
    EXPECT_EQ(handler.createFileScanRequest(), nullptr);
    handler.deleteFileScanRequest(new FileScanRequest("/other"));
    EXPECT_EQ(handler.createFileScanRequest(), nullptr) << "the stored one stays";
    handler.deleteFileScanRequest(scan);
    EXPECT_NE(handler.createFileScanRequest(), nullptr);
}

TEST_F(Records, ScanThatFindsAnotherSizeParsesAgainAndKeepsTheRecordedSize) {
    const FileFragment* fragment = addFragment("ContentPart-x", 600);
    handler.setConfigDbStatus(ConfigDbStatusEvent::ConfigGetNewFirmware);
    for (const unsigned size : {600u, 700u}) {
        FileScanRequest* scan = handler.createFileScanRequest();
        scan->addFile(fragment->getFilename(), size);
        scan->setFileScanStatus(FileScanRequest::ScanIsDone);
        handler.onScanResult(scan);
        EXPECT_EQ(queue.size(), size == 600 ? 0 : 1);
        EXPECT_EQ(fragment->getFileSize(), 600u);
    }
    EXPECT_EQ(queue.remove()->getWorkItemType(), FwWorkItem::ParseFileRequest);
}

TEST_F(Records, MoreThan300MebibytesAreShortSpace) {
    for (const size_t files : {4u, 5u}) {
        UpdateHandler fresh(&queue);
        fresh.setConfigDbStatus(ConfigDbStatusEvent::ConfigGetNewFirmware);
        const support::LogCapture log(LogInfo);
        for (int scans = 0; scans < 2; ++scans) {
            FileScanRequest* scan = fresh.createFileScanRequest();
            for (size_t i = 0; i < files; ++i)
                scan->addFile(directory.file("fw/ContentPart-" + std::to_string(i)), 75 << 20);
            scan->setFileScanStatus(FileScanRequest::ScanIsDone);
            fresh.onScanResult(scan);
            while (queue.size() > 0)
                queue.remove();
            fresh.deleteAllParseFileRequests(); // so that the files are not in use
        }
        EXPECT_EQ(log.count("UpdateHandler::onScanResult() Make space, delete '"), files == 4 ? 0 : files);
    }
}

TEST_F(Records, RenameDuringAScanKeepsTheFragment) {
    FileFragment* fragment = addFragment("ContentPart-abcdef", 0);
    handler.setConfigDbStatus(ConfigDbStatusEvent::ConfigGetNewFirmware);
    FileScanRequest* scan = handler.createFileScanRequest();
    scan->setFileScanStatus(FileScanRequest::ScanIsDone); // it began before there was such a file
    ASSERT_TRUE(handler.changeToVersionedFilename(fragment->getFilename(), ZempPart::RootBlob, "1.05-7"));
    handler.onScanResult(scan);
    EXPECT_EQ(handler.getFileFragment("1.05-7", FileFragment::ContentPart, ZempPart::RootBlob), fragment);
}

TEST_F(Records, DeleteIsAskedForOnceAndForgetsTheFragmentEvenWhenItFails) {
    const std::string name = addFragment("ContentPart-x", 600)->getFilename();
    handler.createFileDeleteRequest(name);
    FileScanRequest* scan = handler.createFileScanRequest(); // no update is needed
    scan->addFile(name, 600);
    scan->setFileScanStatus(FileScanRequest::ScanIsDone);
    handler.onScanResult(scan);
    ASSERT_EQ(queue.size(), 1);
    auto* request = static_cast<FileDeleteRequest*>(queue.remove());
    request->setFileDeleteStatus(FileDeleteRequest::FileDeleteFailed);
    handler.onFileDeleteResult(request);
    EXPECT_EQ(handler.getFileFragment(name), nullptr);
    EXPECT_FALSE(handler.isFileDeleteRequested(name));
}

TEST_F(Records, YesWhileAFileIsBeingDeletedIsAskedForAgain) {
    handler.createFileDeleteRequest(addFragment("ContentPart-x", 600)->getFilename());
    auto* deletion = static_cast<FileDeleteRequest*>(queue.remove());
    auto* question = new IsUpdateNeededRequest;
    question->setIsUpdateNeeded(true);
    handler.onIsUpdateNeededRequest(question, queue);
    EXPECT_EQ(queue.size(), 0);
    handler.onFileDeleteResult(deletion);
    ASSERT_EQ(queue.size(), 1);
    EXPECT_EQ(queue.remove()->getWorkItemType(), FwWorkItem::IsUpdateNeededRequest);
}

TEST_F(Records, OnlyTransientFailuresAreRestartedAndOnlyOnce) {
    handler.setVersionToDownload("http://u", "1.05-7");
    wqueue<FwWorkItem*> downloader;
    using Status = DownloadRequest::DownloadStatus;
    for (const Status status : {DownloadRequest::DownloadNotStarted, DownloadRequest::DownloadStarted,
                                DownloadRequest::DownloadComplete, DownloadRequest::DownloadTransientFailure,
                                DownloadRequest::DownloadPermanentFailure})
        handler.createDownloadRequest(0, false)->setDownloadStatus(status);
    DownloadRequest* heldBack = handler.createDownloadRequest(0, false);
    heldBack->setHeldBack(true);
    handler.restartDownload(downloader);
    handler.restartDownload(downloader);
    ASSERT_EQ(downloader.size(), 2);
    EXPECT_EQ(static_cast<DownloadRequest*>(downloader.remove())->getDownloadStatus(),
              DownloadRequest::DownloadTransientFailure);
    EXPECT_EQ(downloader.remove(), heldBack);
    EXPECT_FALSE(heldBack->isHeldBack());
    const support::LogCapture log;
    EXPECT_TRUE(handler.isDownloadInProgress());
    EXPECT_EQ(log.count("UpdateHandler::restartDownloadRequest() Found active download request '"), 1u);

    DownloadRequest* notStarted = handler.createDownloadRequest(0, false);
    handler.onDownloadResult(notStarted);
    ASSERT_EQ(queue.size(), 1);
    EXPECT_EQ(queue.remove(), notStarted) << "goes back to the master";
}

TEST_F(Records, FragmentInUseOutlivesItsEntry) {
    FileFragment* fragment = addFragment("ContentPart-x", 100);
    ParseFileRequest* parse = handler.createParseFileRequest(fragment);
    handler.deleteFileFragment(fragment->getFilename());
    EXPECT_EQ(handler.getFileFragment(parse->getFilename()), nullptr);
    EXPECT_EQ(parse->getFileFragment()->getFileSize(), 100u) << "still there";
    handler.deleteParseFileRequest(parse);
}

TEST_F(Records, PartSizesAreBounded) {
    FileFragment* fragment = addFragment("ContentPart-x", 512);
    imagefile::ImageBuilder image;
    image.software("kernel", {1, 2, 3}, "b", rig::bodyOf(1000, 1));
    const imagefile::Bytes bytes = image.buildPart(0);
    ZempParser parser;
    ZempPart* part = parser.parseContentPart(bytes.data(), static_cast<uint32_t>(bytes.size()));
    ASSERT_NE(part, nullptr);
    part->setFilename(fragment->getFilename());
    handler.updateZempPart(part);
    EXPECT_TRUE(handler.isPartOverSize(part, false)) << "512 bytes of a part that is not needed";
    EXPECT_FALSE(handler.isPartOverSize(part, true));
    fragment->setFileSize(64 + 1000 + 1);
    EXPECT_FALSE(handler.isPartOverSize(part, true)) << "one byte more than the part is what a fetch brings";
    fragment->setFileSize(64 + 1000 + 2);
    EXPECT_TRUE(handler.isPartOverSize(part, true));
    handler.deleteZempPartsOfFile(fragment->getFilename());
    EXPECT_EQ(handler.getZempPart("kernel 1.02-3"), nullptr);
}

TEST(FetchGovernorTest, PacesWhatBringsNothingNew) {
    FetchGovernor governor;
    EXPECT_EQ(governor.onFetch(0), FetchGovernor::FetchNow);
    EXPECT_EQ(governor.onFetch(1), FetchGovernor::FetchNow);
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(governor.onFetch(1), FetchGovernor::FetchNow);
    EXPECT_FALSE(governor.takeStartDoubt());
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(governor.onFetch(i % 2), FetchGovernor::FetchLater);
    EXPECT_TRUE(governor.takeStartDoubt());
    EXPECT_FALSE(governor.takeStartDoubt()) << "once";
    for (unsigned i = 3; i < 42; ++i)
        EXPECT_EQ(governor.onFetch(1), FetchGovernor::FetchLater);
    EXPECT_EQ(governor.onFetch(1), FetchGovernor::GiveUp);
    EXPECT_EQ(governor.onFetch(2), FetchGovernor::FetchNow) << "progress forgives";
    governor.reset();
    EXPECT_EQ(governor.onFetch(0), FetchGovernor::FetchNow);
}

TEST(FetchGovernorTest, DoubtsThePartsOnce) {
    FetchGovernor governor;
    governor.onFetch(1);
    for (unsigned vain = 0; vain <= FetchGovernor::FetchesBeforeStartDoubt; ++vain) {
        EXPECT_FALSE(governor.takeStartDoubt()) << vain;
        governor.onFetch(1);
    }
    EXPECT_TRUE(governor.takeStartDoubt());
    for (unsigned vain = FetchGovernor::FetchesBeforeStartDoubt + 1;
         vain <= FetchGovernor::FetchesBeforePartsDoubt; ++vain) {
        EXPECT_FALSE(governor.isStartDoubtVain()) << vain;
        governor.onFetch(1);
    }
    EXPECT_TRUE(governor.isStartDoubtVain());
    for (const bool forgives : {true, false}) {
        governor.onPartsDoubted();
        EXPECT_EQ(governor.onFetch(1), forgives ? FetchGovernor::FetchNow : FetchGovernor::FetchLater);
        for (unsigned i = 0; i < 12; ++i)
            governor.onFetch(1);
        EXPECT_FALSE(governor.isStartDoubtVain());
    }
}

TEST(RetryPaceTest, WaitsLongerAfterEachFailure) {
    RetryPace pace;
    EXPECT_FALSE(pace.onBeat()) << "nothing has failed";
    for (const unsigned beats : {1u, 2u, 4u, 8u, 8u}) {
        pace.onFailure();
        for (unsigned i = 1; i < beats; ++i)
            EXPECT_FALSE(pace.onBeat());
        EXPECT_TRUE(pace.onBeat());
        EXPECT_FALSE(pace.onBeat()) << "once";
    }
    pace.reset();
    pace.onFailure();
    EXPECT_TRUE(pace.onBeat());
}

TEST(StartRangeTest, ReadsTheManifestsEndFromItsHeader) {
    const lab::TemporaryDirectory directory;
    imagefile::ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL", "Release\n", true);
    image.manifest(std::string(900, '#') + "\n");
    const std::string file = directory.file("start");
    image.write(file);
    for (const uint64_t size : {uint64_t{512}, image.offsetOf(1) + 32, image.offsetOf(1) + 31}) {
        std::filesystem::resize_file(file, size);
        ZempParser parser;
        parser.parseFile(file, 0, FileFragment::ZempStart);
        const std::unique_ptr<ZempPart> header(parser.getZempPartAt(0));
        const std::unique_ptr<ZempPart> release(parser.getZempPartAt(1));
        EXPECT_EQ(findLastByteOfManifest(file, dynamic_cast<ZempHeaderPart&>(*header),
                                         dynamic_cast<ReleaseHeaderPart&>(*release)),
                  size < image.offsetOf(1) + 32 ? 0 : image.offsetOf(2) - 1);
    }
}
