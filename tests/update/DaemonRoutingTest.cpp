// The master's routing: which item goes where with which status, and what is said about one that fits
// nowhere.
#include "support/LogCapture.h"
#include "update/rig/Terminal.h"
#include <gmock/gmock.h>

using namespace rig;
#include <thread>

namespace {

// A daemon with a terminal that rests at a wanted version.
class Routing : public testing::Test {
  protected:
    Routing() {
        prepare(terminal, 7);
        daemon = terminal.daemon.get();
    }

    // Routes `request`, made by the handler, and returns the queue it is on then, by name.
    std::string route(FwWorkItem* request) {
        daemon->onWorkItem(request);
        std::string where;
        for (const auto& [name, queue] : {std::pair{"config", &daemon->mConfigDbQueue},
                                          std::pair{"downloader", &daemon->mDownloaderQueue},
                                          std::pair{"file handler", &daemon->mZempHandlerQueue}}) {
            while (queue->size() > 0)
                where += queue->remove() == request ? name : "other";
        }
        return where;
    }

    Terminal terminal;
    Daemon* daemon = nullptr;
};

} // namespace

TEST_F(Routing, PendingRequestsGoToTheirWorkerAndUnknownStatusesNowhere) {
    daemon->onWorkItem(new NewFirmwareNeededEvent(Terminal::urlOf("1.05-7"), "1.05-7", false));
    daemon->mZempHandlerQueue.remove(); // its scan, owned by the handler
    FileFragment fragment(FileFragment::ContentPart, 0, 511);
    FileScanRequest scan("/");
    DownloadRequest download("http://x", &fragment);
    ParseFileRequest parse(&fragment);
    IsUpdateNeededRequest question;
    CompileUpdateZempRequest compile("x", {});
    FileDeleteRequest erase("x");
    SetReadyForUpdateRequest ready("x");
    EXPECT_EQ(route(&download), "downloader");
    EXPECT_TRUE(download.isWithDownloader());
    EXPECT_EQ(route(&question), "config");
    EXPECT_EQ(route(&ready), "config");
    for (FwWorkItem* item : std::initializer_list<FwWorkItem*>{&scan, &parse, &compile, &erase})
        EXPECT_EQ(route(item), "file handler") << item->toString();

    scan.setFileScanStatus(static_cast<FileScanRequest::FileScanStatus>(9));
    parse.setParseStatus(static_cast<ParseFileRequest::ParseStatus>(9));
    compile.setCompileStatus(static_cast<CompileUpdateZempRequest::CompileStatus>(9));
    erase.setFileDeleteStatus(static_cast<FileDeleteRequest::FileDeleteStatus>(9));
    ready.setSetReadyStatus(static_cast<SetReadyForUpdateRequest::SetReadyStatus>(9));
    const support::LogCapture log;
    for (FwWorkItem* item : std::initializer_list<FwWorkItem*>{&scan, &parse, &compile, &erase, &ready})
        EXPECT_EQ(route(item), "") << item->toString();
    EXPECT_EQ(log.count(" Cannot handle "), 5U);
    EXPECT_TRUE(log.has("LOG_WARNING FwDownloadDaemon::onSetReadyForUpdateRequest() Cannot handle compile "
                        "status <unknown status>"));

    // The last status of each row is a result; the handler takes the request over.
    auto* const compiled = new CompileUpdateZempRequest("x", {});
    compiled->setCompileStatus(CompileUpdateZempRequest::CompileFailed);
    auto* const erased = new FileDeleteRequest("x");
    erased->setFileDeleteStatus(FileDeleteRequest::FileDeleteFailed);
    auto* const parsed = new ParseFileRequest(nullptr);
    parsed->setParseStatus(ParseFileRequest::ParseFailed);
    for (FwWorkItem* item : std::initializer_list<FwWorkItem*>{compiled, erased, parsed})
        daemon->onWorkItem(item);
    EXPECT_EQ(log.count(" Cannot handle "), 5U);
}

TEST_F(Routing, WithoutUpdateHandlerResultsAreLeftAlone) {
    const support::LogCapture log;
    FileScanRequest scan("/");
    SetReadyForUpdateRequest ready("x");
    ready.setSetReadyStatus(SetReadyForUpdateRequest::SetReadyComplete);
    GotZempStartEvent start;
    for (FwWorkItem* item : std::initializer_list<FwWorkItem*>{&scan, &ready, &start, nullptr})
        daemon->onWorkItem(item);
    daemon->onDownloadTimerTimeout();
    EXPECT_EQ(log.count("LOG_WARNING FwDownloadDaemon::on"), 5U);
    EXPECT_FALSE(terminal.isTerminated());
    ready.setSetReadyStatus(SetReadyForUpdateRequest::SetReadyFailed);
    daemon->onWorkItem(&ready);
    EXPECT_TRUE(terminal.isTerminated());
}

TEST_F(Routing, EventsSayWhatTheyAreToldTo) {
    const support::LogCapture log;
    const std::string start = "LOG_INFO FwDownloadDaemon::onNewFirmwareNeededEvent";
    for (const bool isForced : {true, false})
        daemon->onWorkItem(new NewFirmwareNeededEvent("http://u/", "1.05-7", isForced));
    EXPECT_TRUE(log.has(start + "(1.05-7, http://u/ForceUpdate)"));
    EXPECT_TRUE(log.has(start + "(1.05-7, http://u/not ForceUpdate)"));
    EXPECT_TRUE(log.has(start + "() Do nothing on NextAction=NoAction"));
    EXPECT_TRUE(log.has("LOG_DEBUG FwDownloadDaemon::setUpdateHandler() No change in UpdateHandler."));
    daemon->onDownloadTimerTimeout();
    EXPECT_THAT(log.lines(), testing::Contains(testing::EndsWith(" secods.")));
    EXPECT_GT(daemon->getDownloadTimerLeftMs(), FwDownloadDaemon::DownloadIntervalMs / 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the next comes after as long a time
    daemon->onDownloadTimerTimeout();
    EXPECT_LT(daemon->getDownloadTimerLeftMs(), FwDownloadDaemon::DownloadIntervalMs / 2);
}

TEST_F(Routing, ExitItemStopsTheLoopAlsoBeforeItBegan) {
    daemon->onWorkItem(new ExitRunLoop);
    EXPECT_TRUE(terminal.isTerminated());
}

TEST_F(Routing, SixthFailureOfTheInstalledSoftwareStops) {
    terminal.removeRecord();
    const support::LogCapture log;
    for (int i = 1; i <= 6; ++i) {
        EXPECT_FALSE(terminal.isTerminated());
        EXPECT_FALSE(daemon->initializeSuuInfo());
    }
    EXPECT_TRUE(terminal.isTerminated());
    EXPECT_EQ(log.count("LOG_ERR FwDownloadDaemon::onInitSuuInfo() Terminating after 6 failed "), 1U);
}
