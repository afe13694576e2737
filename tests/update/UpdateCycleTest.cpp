// Histories of an update, from the first question to the flagged image: with the ranges, names and actions
// that a fresh terminal shows, and with what may go wrong in between.
#include "main/ArgParser.h"
#include "support/LogCapture.h"
#include "update/rig/Terminal.h"
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace rig;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr unsigned Hour = 3600;

void expectReady(const Terminal& terminal) {
    EXPECT_EQ(terminal.action(), FwAction::WaitForFwUpdate);
    EXPECT_EQ(terminal.config.ready, terminal.path("fw_download_update.zemp-" + terminal.config.version));
    EXPECT_EQ(terminal.checkReadyImage(), "");
    EXPECT_THAT(terminal.violations(), IsEmpty());
}

void expectCompletes(Terminal& terminal) {
    terminal.runUntilSettled(Hour);
    expectReady(terminal);
}

// The daemon has ended as stated; a restart with everything right again completes the update.
void expectEndedAndHealedByRestart(Terminal& terminal) {
    EXPECT_TRUE(terminal.isTerminated());
    terminal.server.fault = Fault::None;
    terminal.restart();
    expectCompletes(terminal);
}

// A fresh terminal that is to get version 1.05-7; 1.05-8 is on the server too.
struct Fresh : Terminal {
    explicit Fresh(const std::vector<PoolSpec>& pools = standardPools()) {
        publish("1.05-8", makeImage(8));
        prepare(*this, 7, pools);
    }
};

class UpdateCycle : public testing::Test {
  protected:
    Fresh terminal;
};

} // namespace

TEST_F(UpdateCycle, FreshTerminalFetchesWhatItNeedsAndNothingElse) {
    std::vector<FwAction::NextAction> actions;
    for (int i = 0; i < 200 && terminal.action() != FwAction::WaitForFwUpdate; ++i) {
        terminal.tick();
        if (actions.empty() || actions.back() != terminal.action())
            actions.push_back(terminal.action());
    }
    expectReady(terminal);
    EXPECT_EQ(terminal.server.ranges(), expectedRanges(makeImage(7), standardPools()));
    EXPECT_THAT(terminal.files(),
                ElementsAre("ContentPart-AppBlob-1.05-7", "ContentPart-Kernel4812Blob-1.05-7",
                            "ContentPart-KernelBlob-1.05-7", "ContentPart-RootBlob-1.05-7",
                            "ContentPart-ThirdAppBlob-1.05-7", "ZempStart-1.05-7",
                            "fw_download_update.zemp-1.05-7"));
    ASSERT_GE(actions.size(), 6u);
    actions.erase(actions.begin() + 4, actions.end() - 2);
    EXPECT_THAT(actions, ElementsAre(FwAction::ScanExistingFiles, FwAction::NoAction, FwAction::GetZempParts,
                                     FwAction::ParseZempParts, FwAction::SetReadyForUpdate,
                                     FwAction::WaitForFwUpdate));
}

TEST_F(UpdateCycle, BodySizesAroundTheFirstSpan) {
    for (const size_t size : {size_t{0}, size_t{1}, size_t{447}, size_t{448}, size_t{449}, size_t{512}}) {
        for (const bool isLast : {false, true}) {
            SCOPED_TRACE(testing::Message() << size << (isLast ? " last" : " middle"));
            std::vector<PoolSpec> pools = {{2, "kernel", "-", size, false}, {4, "root", "-", 600, false}};
            if (isLast)
                std::swap(pools[0].bodySize, pools[1].bodySize);
            Fresh fresh(pools);
            expectCompletes(fresh);
            EXPECT_EQ(fresh.server.ranges(), expectedRanges(makeImage(7, pools), pools));
        }
    }
}

TEST_F(UpdateCycle, StartLongerThanTheFirstSpanTakesOneMoreRequest) {
    const std::vector<PoolSpec> pools = {{2, "kernel", "4813", 3000, false}, {4, "root", "-", 900, false}};
    imagefile::ImageBuilder image = makeImage(7, pools);
    imagefile::Bytes& manifest = image.at(1).body;
    const std::string line = "# a comment that fills the manifest line by line\n";
    for (int i = 0; i < 38; ++i)
        manifest.insert(manifest.begin(), line.begin(), line.end());
    prepare(terminal, 7, pools);
    terminal.publish("1.05-7", image);
    expectCompletes(terminal);
    const uint64_t manifestEnd = image.offsetOf(2) - 1;
    ASSERT_THAT(terminal.server.ranges(), SizeIs(6));
    EXPECT_EQ(terminal.server.ranges()[1], "512-" + std::to_string(manifestEnd));
}

TEST_F(UpdateCycle, OldStartOnDiskIsReplaced) {
    const imagefile::Bytes old = makeImage(6).build();
    terminal.write("ZempStart-1.05-6", {old.begin(), old.begin() + 512});
    expectCompletes(terminal);
}

TEST_F(UpdateCycle, OldAndNewSetsOnDiskKeepWhatIsGood) {
    // Complete part files of both releases, under the names of either order; only the start is missing.
    const imagefile::ImageBuilder oldImage = makeImage(6);
    const imagefile::ImageBuilder newImage = makeImage(7);
    for (const bool oldFirst : {true, false}) {
        Fresh fresh;
        for (const bool isOld : {oldFirst, !oldFirst}) {
            const imagefile::ImageBuilder& image = isOld ? oldImage : newImage;
            const std::string version = isOld ? "1.05-6" : "1.05-7";
            fresh.write("ContentPart-KernelBlob-" + version, image.buildPart(2));
            fresh.write("ContentPart-AppBlob-" + version, image.buildPart(5));
        }
        imagefile::Bytes beginning = newImage.buildPart(2);
        beginning.resize(beginning.size() / 2);
        for (const char* const name :
             {"a", "b", "c", "d", "e", "f"}) // looked at before or after the whole one
            fresh.write(std::string("ContentPart-") + name, beginning);
        expectCompletes(fresh);
        for (const std::string& range : fresh.server.ranges()) {
            const size_t begin = std::stoul(range);
            EXPECT_TRUE(begin < newImage.offsetOf(2) || begin >= newImage.offsetOf(3))
                << "the kernel was on disk";
        }
    }
}

TEST_F(UpdateCycle, CorruptBodiesAreFetchedAgain) {
    const std::vector<std::string> good = expectedRanges(makeImage(7), standardPools());
    for (const long damaged : {2, 6}) { // bodies of the kernel and of another part
        Fresh fresh;
        fresh.server.faults.assign(static_cast<size_t>(damaged), Fault::None);
        fresh.server.faults.push_back(Fault::FlipBit);
        expectCompletes(fresh);
        std::vector<std::string> expected = good;
        const auto body = good.begin() + damaged;
        expected.insert(expected.begin() + damaged + 2, body - 1, body + 1);
        EXPECT_EQ(fresh.server.ranges(), expected) << "the next header, then header and body again";
    }
}

TEST_F(UpdateCycle, NotFoundForEverEndsTheDaemonWithoutAHotLoop) {
    for (const size_t good : {size_t{0}, size_t{1}, size_t{2}}) { // start, header, body
        SCOPED_TRACE(good);
        Fresh fresh;
        const support::LogCapture log(LogWarning);
        fresh.server.faults.assign(good, Fault::None);
        fresh.server.fault = Fault::NotFound;
        fresh.run(10 * 60);
        EXPECT_LE(fresh.server.ranges().size(), good + 9) << "requests in the first ten minutes";
        EXPECT_LE(fresh.bytesOnDisk(), 20000u);
        fresh.run(24 * Hour);
        const size_t requests = fresh.server.ranges().size();
        EXPECT_LE(requests, good + 60);
        for (int i = 0; i < 300; ++i) // the loop's end takes effect later
            fresh.tick();
        EXPECT_EQ(fresh.server.ranges().size(), requests);
        EXPECT_EQ(log.count("UpdateHandler::handOver() 5 fetches brought the update no further, at 47 "), 1U);
        EXPECT_EQ(log.count("To download many failures, exit!"), 1U);
        expectEndedAndHealedByRestart(fresh);
    }
}

TEST_F(UpdateCycle, BrokenConnectionsResumeAndResetOnesBeginThePieceAnew) {
    const uint64_t offset = makeImage(7).offsetOf(2);
    const uint64_t size = makeImage(7).sizeOf(2);
    const uint64_t got = 512 + (size + 1 - 512) / 2; // half of what was missing came with the first try
    for (const auto& [fault, next] : {std::pair{Fault::Cut, offset + got}, {Fault::Reset, offset}}) {
        Fresh fresh;
        fresh.server.faults = {Fault::None, Fault::None, fault, Fault::Stall, Fault::None};
        expectCompletes(fresh);
        EXPECT_EQ(fresh.server.ranges()[3], std::to_string(next) + "-" + std::to_string(offset + size));
    }
}

TEST_F(UpdateCycle, PageBehindAHeaderCostsOneRequest) {
    std::vector<std::string> expected = expectedRanges(makeImage(7), standardPools());
    expected.insert(expected.begin() + 2, expected[2]); // the kernel's body
    terminal.server.faults = {Fault::None, Fault::None, Fault::NotFound};
    expectCompletes(terminal);
    EXPECT_EQ(terminal.server.ranges(), expected);
}

TEST_F(UpdateCycle, FortyTwoFailuresAreBorneAndTheNextEnds) {
    for (const Fault fault : {Fault::Refused, Fault::Reset}) {
        for (const size_t failures : {size_t{42}, size_t{43}}) {
            SCOPED_TRACE(testing::Message() << (fault == Fault::Reset ? "reset " : "refused ") << failures);
            Fresh fresh;
            fresh.server.faults.assign(failures, fault);
            fresh.run(10 * 60);
            EXPECT_LE(fresh.server.ranges().size(), 8U) << "in the first ten minutes";
            fresh.runUntilSettled(24 * Hour);
            EXPECT_EQ(fresh.isTerminated(), failures > 42);
            EXPECT_EQ(fresh.isReady(), failures <= 42);
        }
    }
}

TEST_F(UpdateCycle, TimerWhileQueuedDoesNotQueueTwice) {
    terminal.server.faults = {Fault::Refused};
    terminal.run(30);
    terminal.downloadTicks = 1000;
    terminal.daemon->onDownloadTimerTimeout();
    terminal.daemon->onDownloadTimerTimeout();
    EXPECT_EQ(terminal.daemon->mDownloaderQueue.size(), 1);
    terminal.tick();
    terminal.daemon->onDownloadTimerTimeout();
    EXPECT_EQ(terminal.daemon->mDownloaderQueue.size(), 0) << "the downloader has it";
    terminal.downloadTicks = 1;
    terminal.runUntilSettled(2 * Hour);
    expectReady(terminal);
}

TEST_F(UpdateCycle, EmptyTemporaryFilesGo) {
    const auto names = {"ContentPart-aaaaaa", "ContentPart-bbbbbb", "ZempStart-cccccc"};
    for (const char* name : names)
        terminal.write(name, {});
    expectCompletes(terminal);
    for (const char* name : names)
        EXPECT_THAT(terminal.files(), Not(Contains(name)));
}

TEST_F(UpdateCycle, VersionChangesAtAnyMoment) {
    // The second version is configured at each second of the first one's update, also with slow downloads.
    for (const unsigned downloadTicks : {1u, 5u}) {
        for (unsigned when = 1; when < 70; ++when) {
            SCOPED_TRACE(testing::Message() << "second " << when << ", download ticks " << downloadTicks);
            Fresh fresh;
            fresh.downloadTicks = downloadTicks;
            fresh.run(when);
            fresh.configure("1.05-8");
            for (int i = 0; i < 3600 && fresh.config.ready != fresh.path("fw_download_update.zemp-1.05-8");
                 ++i)
                fresh.tick();
            fresh.runUntilSettled(10);
            expectReady(fresh);
        }
    }
}

TEST_F(UpdateCycle, VersionChangeDropsAFailingDownload) {
    for (const Fault fault : {Fault::Refused, Fault::Reset}) {
        for (const unsigned more : {0U, 1U, 2U}) { // the change meets the request at each place of its way
            Fresh fresh;
            fresh.server.faults = {Fault::None, Fault::None};
            fresh.server.faults.resize(2 + (fault == Fault::Reset ? 5 : 1), fault);
            while (!fresh.server.faults.empty())
                fresh.tick();
            fresh.run(more);
            fresh.configure("1.05-8");
            fresh.runUntilSettled(200); // not after the timer's four minutes
            expectReady(fresh);
        }
    }
}

TEST_F(UpdateCycle, ImageCompiledJustBeforeTheChangeIsNotFlagged) {
    const std::string image = terminal.path("fw_download_update.zemp-1.05-7");
    while (access(image.c_str(), F_OK) != 0)
        terminal.tick();
    // The compile's result waits for the next tick, and the change right behind it.
    terminal.configure("1.05-8");
    terminal.run(5);
    EXPECT_FALSE(terminal.isReady());
    expectCompletes(terminal);
    EXPECT_NE(access(image.c_str(), F_OK), 0) << "the old image goes";
}

TEST_F(UpdateCycle, FailedCompileIsTriedAgainByTheTimerAndByAnotherVersionAtOnce) {
    using Failure = ZempCreator::Failure;
    for (const Failure failure : {Failure::Surroundings, Failure::Space, Failure::Parts}) {
        for (const char* version : {"1.05-7", "1.05-8"}) {
            SCOPED_TRACE(testing::Message() << static_cast<int>(failure) << ", then " << version);
            Fresh fresh;
            fresh.write("fw_download_update.zemp-1.05-3.part", bodyOf(100, 1));
            fresh.compileFailure = failure;
            fresh.run(30); // the first scan is over
            for (unsigned i = 0; i < Hour && fresh.action() != FwAction::ScanExistingFiles; ++i)
                fresh.tick();
            fresh.run(20);
            EXPECT_EQ(fresh.action(), FwAction::ScanExistingFiles);
            EXPECT_EQ(fresh.files().size() == 1, failure == Failure::Parts) << "what it was made of goes";
            if (failure == Failure::Surroundings)
                fresh.run(Hour);
            const size_t requests = fresh.server.ranges().size();
            fresh.compileFailure = Failure::None;
            if (version != fresh.config.version)
                fresh.configure(version);
            expectCompletes(fresh);
            EXPECT_EQ(fresh.files().count("fw_download_update.zemp-1.05-3.part"), failure != Failure::Space);
            EXPECT_EQ(fresh.server.ranges().size() > requests,
                      failure == Failure::Parts || fresh.config.version != "1.05-7");
        }
    }
}

// A start with a software part between release header and manifest: no walk along the manifest finds it.
TEST_F(UpdateCycle, StartInAnotherOrderIsFollowedOnceItIsMended) {
    const std::vector<PoolSpec> pools = {{2, "root", "-", 40, false}};
    prepare(terminal, 7, pools);
    const imagefile::ImageBuilder good = makeImage(7, pools);
    imagefile::ImageBuilder image;
    for (const size_t index : {0U, 2U, 1U})
        image.add(imagefile::ImageBuilder(good).at(index));
    terminal.publish("1.05-7", image);
    terminal.run(24 * Hour);
    EXPECT_FALSE(terminal.isReady());
    terminal.publish("1.05-7", good);
    expectEndedAndHealedByRestart(terminal);
}

TEST_F(UpdateCycle, PartsRebuiltUnderTheirOldVersionAreFetchedAnew) {
    // The kernel was rebuilt; its version, and so its name here, stayed. Only it, or all parts are on disk.
    std::vector<PoolSpec> pools = standardPools();
    for (const int difference : {4, -4, 400}) {
        pools[0].bodySize = standardPools()[0].bodySize + static_cast<size_t>(difference);
        const imagefile::ImageBuilder other = makeImage(7, pools);
        for (const bool isComplete : {false, true}) {
            SCOPED_TRACE(testing::Message() << difference << (isComplete ? " all" : " kernel"));
            Fresh fresh;
            const imagefile::Bytes start = makeImage(7).build();
            fresh.write("ZempStart-1.05-7", {start.begin(), start.begin() + 512});
            fresh.write("ContentPart-KernelBlob-1.05-6", other.buildPart(2));
            for (size_t i = 3; isComplete && i < other.count(); ++i)
                fresh.write("ContentPart-" + std::to_string(i) + "-1.05-6", other.buildPart(i));
            fresh.runUntilSettled(2000);
            expectReady(fresh);
            EXPECT_LE(fresh.server.ranges().size(), 25U);
        }
    }
}

// Sizes that do not add up to the image are its maker's fault when all parts were just fetched.
TEST_F(UpdateCycle, PartThatTheManifestDoesNotNameCostsNothing) {
    imagefile::ImageBuilder image = makeImage(7);
    image.software("app", {9, 9, 9}, "extra", bodyOf(700, 1));
    terminal.publish("1.05-7", image);
    terminal.runUntilSettled(Hour);
    EXPECT_EQ(terminal.action(), FwAction::WaitForFwUpdate);
    EXPECT_EQ(terminal.server.ranges(), expectedRanges(makeImage(7), standardPools()));
}

TEST_F(UpdateCycle, FullDiskIsClearedOfWhatTheManifestDoesNotName) {
    terminal.runUntilSettled(Hour);
    const uint64_t held = terminal.bytesOnDisk(); // by one version
    for (const bool isRestarted : {false, true}) {
        for (const uint64_t more : {uint64_t{300}, held / 4, held / 2}) {
            SCOPED_TRACE(testing::Message() << more << " bytes left" << (isRestarted ? ", restart" : ""));
            Fresh fresh;
            fresh.runUntilSettled(Hour);
            fresh.write("fw_download_update.zemp-1.05-6.part", bodyOf(10, 1));
            fresh.diskSize = fresh.bytesOnDisk() + more;
            fresh.config.ready.clear();
            fresh.configure("1.05-8");
            if (isRestarted)
                fresh.restart();
            expectCompletes(fresh);
            EXPECT_THAT(fresh.files(), SizeIs(7));
            EXPECT_LE(fresh.server.ranges().size(), 30U);
        }
    }
}

TEST_F(UpdateCycle, TooManyFilesAreShortSpaceToo) {
    for (uint16_t build = 100; build < 310; ++build)
        terminal.write("ContentPart-AppBlob-" + versionOf(build), makeImage(build).buildPart(5));
    expectCompletes(terminal);
    EXPECT_THAT(terminal.files(), SizeIs(7));
}

TEST_F(UpdateCycle, DirectoryThatGoesIsMadeAgainAndOneThatCannotBeEndsTheDaemon) {
    for (const bool canBeMade : {true, false}) {
        Fresh fresh;
        fresh.server.faults = {Fault::None, Fault::None, Fault::Cut};
        fresh.run(45); // a body is there in part
        const std::string directory = ArgParser::getInstance()->getDownloadDirectory();
        std::filesystem::remove_all(directory);
        if (!canBeMade) {
            std::ofstream file(directory);
            fresh.run(24 * Hour);
            EXPECT_TRUE(fresh.isTerminated());
            EXPECT_LE(fresh.server.ranges().size(), 50U);
            std::filesystem::remove(directory);
            fresh.restart();
        }
        fresh.run(240);
        chmod(directory.c_str(), 0755); // as the user who runs this may not be root
        expectCompletes(fresh);
        EXPECT_FALSE(fresh.isTerminated());
    }
}

TEST_F(UpdateCycle, OneUpToDatePartitionOfAPoolIsEnough) {
    const std::vector<PoolSpec> pools = {{2, "kernel", "-", 900, false}, {4, "root", "-", 900, true}};
    prepare(terminal, 7, pools);
    hostcfg::Partition second = terminal.installed.partitions[1];
    second.version.build = 9;
    terminal.installed.partitions.insert(terminal.installed.partitions.begin(), second);
    terminal.install();
    terminal.restart();
    expectCompletes(terminal);
    EXPECT_EQ(terminal.server.ranges(), expectedRanges(makeImage(7, pools), pools));
}

TEST_F(UpdateCycle, InstalledThenNotThenInstalledAgain) {
    terminal.config.version = terminal.config.installed;
    terminal.write("ZempStart-1.05-6", bodyOf(600, 1));
    terminal.write("ContentPart-x", bodyOf(100, 1));
    terminal.restart();
    terminal.runUntilSettled(Hour);
    EXPECT_THAT(terminal.files(), IsEmpty()) << "nothing is needed, so nothing is kept";
    terminal.configure("1.05-7");
    expectCompletes(terminal);
    terminal.config.installed = "1.05-7";
    terminal.restart();
    terminal.runUntilSettled(Hour);
    EXPECT_FALSE(terminal.isReady());
    EXPECT_THAT(terminal.files(), IsEmpty()) << "the installed update is cleared away";
}

TEST_F(UpdateCycle, UnknownInstalledSoftwareIsTriedAgainAndEndsAtTheSixthFailure) {
    terminal.removeRecord();
    terminal.run(3 * 240 + 100);
    EXPECT_FALSE(terminal.isTerminated());
    terminal.install();
    expectCompletes(terminal);

    terminal.removeRecord();
    terminal.config.ready.clear();
    terminal.restart();
    terminal.run(2 * Hour);
    EXPECT_TRUE(terminal.isTerminated());
}

TEST_F(UpdateCycle, WaitingAtStartTouchesNothing) {
    terminal.runUntilSettled(Hour);
    const size_t requests = terminal.server.ranges().size();
    const std::set<std::string> files = terminal.files();
    terminal.restart();
    terminal.run(Hour);
    EXPECT_EQ(terminal.server.ranges().size(), requests);
    EXPECT_EQ(terminal.files(), files);
    EXPECT_EQ(terminal.action(), FwAction::Unspecified);
}

TEST_F(UpdateCycle, StartFlagsWhatIsOnDiskAndADisabledOneThrowsItAway) {
    terminal.runUntilSettled(Hour);
    const size_t requests = terminal.server.ranges().size();
    terminal.config.ready.clear(); // while the daemon is stopped
    terminal.restart();
    expectCompletes(terminal);
    EXPECT_EQ(terminal.server.ranges().size(), requests);
    terminal.config.disabled = true;
    terminal.restart();
    terminal.run(60);
    EXPECT_FALSE(terminal.isReady());
    EXPECT_THAT(terminal.files(), IsEmpty());
}

TEST_F(UpdateCycle, ForceWhileWaitingFlagsAgain) {
    terminal.runUntilSettled(Hour);
    terminal.config.forced = true;
    terminal.notify();
    terminal.run(10);
    EXPECT_EQ(terminal.config.flagged, 2U);
    expectReady(terminal);
}

TEST_F(UpdateCycle, FlagThatWentIsSetAgainAndNoOther) {
    terminal.runUntilSettled(Hour);
    for (unsigned notices = 0; notices < 3; ++notices) {
        terminal.notify();
        terminal.run(10);
    }
    EXPECT_EQ(terminal.config.flagged, 1U);
    for (unsigned flagged = 2; flagged < 4; ++flagged) {
        terminal.config.disabled = true; // one notice, which takes the flag
        terminal.notify();
        EXPECT_FALSE(terminal.isReady());
        terminal.run(10);
        terminal.config.disabled = false;
        terminal.notify();
        terminal.run(10);
        EXPECT_EQ(terminal.config.flagged, flagged);
        expectReady(terminal);
    }
}

TEST_F(UpdateCycle, AnotherVersionTakesFlagAndImageOfTheOldOneAway) {
    terminal.runUntilSettled(Hour);
    const std::string image = terminal.config.ready;
    terminal.configure("1.05-8");
    EXPECT_FALSE(terminal.isReady());
    terminal.run(5);
    EXPECT_NE(access(image.c_str(), F_OK), 0);
    expectCompletes(terminal);
}

TEST_F(UpdateCycle, ImageOfAVersionThatIsInstalledByNowIsNotFlagged) {
    const std::string image = terminal.path("fw_download_update.zemp-1.05-7");
    while (access(image.c_str(), F_OK) != 0)
        terminal.tick();
    terminal.config.installed = "1.05-7";
    terminal.run(Hour);
    EXPECT_FALSE(terminal.isTerminated());
    EXPECT_EQ(terminal.config.flagged, 0U);
    EXPECT_EQ(terminal.action(), FwAction::NoAction);
    EXPECT_NE(access(image.c_str(), F_OK), 0);
    terminal.configure("1.05-8");
    expectCompletes(terminal);
}

TEST_F(UpdateCycle, DisabledAndEnabledAgainGoesOn) {
    terminal.run(20);
    terminal.config.disabled = true;
    terminal.run(60);
    EXPECT_EQ(terminal.action(), FwAction::NoAction);
    terminal.config.disabled = false;
    terminal.notify();
    expectCompletes(terminal);
}

TEST_F(UpdateCycle, ImageOfAnotherVersionIsNeverFlagged) {
    terminal.publish("1.05-7", makeImage(8));
    {
        const support::LogCapture log(LogWarning);
        terminal.run(60);
        EXPECT_GE(log.count("The image is release 1.05-8, configured is 1.05-7."), 1U);
    }
    terminal.run(24 * Hour);
    EXPECT_FALSE(terminal.isReady());
    EXPECT_TRUE(terminal.isTerminated());
    terminal.publish("1.05-7", makeImage(7));
    expectEndedAndHealedByRestart(terminal);
}

TEST_F(UpdateCycle, ElementsThatShareAnIndexAreNotTakenForEachOther) {
    const std::vector<PoolSpec> pools = {{2, "kernel", "-", 600, false}, {2, "root", "-", 600, false}};
    prepare(terminal, 7, pools);
    terminal.run(24 * Hour);
    EXPECT_FALSE(terminal.isReady());
    EXPECT_THAT(terminal.violations(), IsEmpty());
}

TEST_F(UpdateCycle, ImageThatChangesOnTheServerIsFollowed) {
    terminal.run(45); // within the parts
    EXPECT_GT(terminal.server.ranges().size(), 2u);
    terminal.publish("1.05-7",
                     makeImage(7, standardPools(), "A longer text moves every part in the image\n"));
    terminal.runUntilSettled(24 * Hour);
    if (terminal.isTerminated())
        expectEndedAndHealedByRestart(terminal);
    expectReady(terminal);
}

TEST_F(UpdateCycle, SupersededUpdateImageIsDeletedAtStart) {
    // The directory is reached through a link, the flag holds the resolved path.
    const std::string link = terminal.path("../link");
    ASSERT_EQ(symlink(terminal.path("").c_str(), link.c_str()), 0);
    terminal.runUntilSettled(Hour);
    ArgParser::setDownloadDirectory(link);
    terminal.config.version = "1.05-8";
    terminal.restart();
    terminal.runUntilSettled(Hour);
    EXPECT_EQ(terminal.action(), FwAction::WaitForFwUpdate);
    EXPECT_THAT(terminal.files(), testing::AllOf(Not(Contains("fw_download_update.zemp-1.05-7")),
                                                 Contains("fw_download_update.zemp-1.05-8")));
}
