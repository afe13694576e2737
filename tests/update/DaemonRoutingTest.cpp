// The master's routing: which item goes where with which status, and what is said about one that fits
// nowhere.
#include "support/LogCapture.h"
#include "update/rig/Samples.h"
#include <gmock/gmock.h>

using namespace rig;
using testing::Contains;

namespace {

// A daemon with an update handler that rests at a wanted version.
class Routing : public testing::Test {
  protected:
    Routing() {
        prepare(terminal, 7);
        daemon = terminal.daemon.get();
    }

    void giveHandler() {
        daemon->onWorkItem(new NewFirmwareNeededEvent(Terminal::urlOf("1.05-7"), "1.05-7", false));
        daemon->mZempHandlerQueue.remove(); // its scan, owned by the handler
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

TEST_F(Routing, PendingRequestsGoToTheirWorker) {
    giveHandler();
    FileFragment fragment(FileFragment::ContentPart, 0, 511);
    FileScanRequest scan("/");
    DownloadRequest download("http://x", &fragment);
    ParseFileRequest parse(&fragment);
    IsUpdateNeededRequest question;
    CompileUpdateZempRequest compile("x", {});
    FileDeleteRequest erase("x");
    SetReadyForUpdateRequest ready("x");
    EXPECT_EQ(route(&scan), "file handler");
    EXPECT_EQ(route(&download), "downloader");
    EXPECT_TRUE(download.isWithDownloader());
    EXPECT_EQ(route(&parse), "file handler");
    EXPECT_EQ(route(&question), "config");
    EXPECT_EQ(route(&compile), "file handler");
    EXPECT_EQ(route(&erase), "file handler");
    EXPECT_EQ(route(&ready), "config");
}

TEST_F(Routing, StatusesThatFitNowhereAreSaid) {
    giveHandler();
    FileFragment fragment(FileFragment::ContentPart, 0, 511);
    FileScanRequest scan("/");
    ParseFileRequest parse(&fragment);
    CompileUpdateZempRequest compile("x", {});
    FileDeleteRequest erase("x");
    SetReadyForUpdateRequest ready("x");
    scan.setFileScanStatus(static_cast<FileScanRequest::FileScanStatus>(9));
    parse.setParseStatus(static_cast<ParseFileRequest::ParseStatus>(9));
    compile.setCompileStatus(static_cast<CompileUpdateZempRequest::CompileStatus>(9));
    erase.setFileDeleteStatus(static_cast<FileDeleteRequest::FileDeleteStatus>(9));
    ready.setSetReadyStatus(static_cast<SetReadyForUpdateRequest::SetReadyStatus>(9));
    const support::LogCapture log;
    for (FwWorkItem* item : std::initializer_list<FwWorkItem*>{&scan, &parse, &compile, &erase, &ready})
        EXPECT_EQ(route(item), "");
    const std::string start = "LOG_WARNING FwDownloadDaemon::";
    for (const char* line : {"onFileScanRequest() Cannot handle scan status <unknown status>.",
                             "onParseFileRequest() Cannot handle parse status <unknown parse status>.",
                             "onCompileUpdateZempFile() Cannot handle compile status <unknown status>",
                             "onFileDeleteRequest() Cannot handle delete status <unknown status>",
                             "onSetReadyForUpdateRequest() Cannot handle compile status <unknown status>"})
        EXPECT_THAT(log.lines(), Contains(start + line));
}

TEST_F(Routing, WithoutUpdateHandlerResultsAreLeftAlone) {
    const support::LogCapture log;
    FileScanRequest scan("/");
    SetReadyForUpdateRequest ready("x");
    ready.setSetReadyStatus(SetReadyForUpdateRequest::SetReadyComplete);
    GotZempStartEvent start;
    daemon->onWorkItem(&scan);
    daemon->onWorkItem(&ready);
    daemon->onWorkItem(&start);
    daemon->onWorkItem(nullptr);
    daemon->onDownloadTimerTimeout();
    for (const char* line :
         {"onFileScanRequest() UpdateHandler is NULL!",
          "onSetReadyForUpdateRequest() ReadyForUpdate is set, but update handler is NULL!",
          "onGotZempStartEvent() UpdateHandler is NULL!", "onWorkItem() Received NULL work item!",
          "onDownloadTimerTimeout() Update handler is NULL!"})
        EXPECT_THAT(log.lines(), Contains(std::string("LOG_WARNING FwDownloadDaemon::") + line));
    EXPECT_FALSE(terminal.isTerminated());
    ready.setSetReadyStatus(SetReadyForUpdateRequest::SetReadyFailed);
    daemon->onWorkItem(&ready);
    EXPECT_THAT(log.lines(),
                Contains("LOG_ERR FwDownloadDaemon::onSetReadyForUpdateRequest() And update handler is NULL! "
                         "Exit!"));
    EXPECT_TRUE(terminal.isTerminated());
}

TEST_F(Routing, EventsSayWhatTheyAreToldTo) {
    const support::LogCapture log;
    daemon->onWorkItem(new NewFirmwareNeededEvent("http://u/", "1.05-7", true));
    EXPECT_THAT(log.lines(), Contains("LOG_INFO FwDownloadDaemon::onNewFirmwareNeededEvent(1.05-7, "
                                      "http://u/ForceUpdate)"));
    daemon->onWorkItem(new NewFirmwareNeededEvent("http://u/", "1.05-7", false));
    EXPECT_THAT(log.lines(), Contains("LOG_INFO FwDownloadDaemon::onNewFirmwareNeededEvent(1.05-7, "
                                      "http://u/not ForceUpdate)"));
    EXPECT_THAT(log.lines(), Contains("LOG_DEBUG FwDownloadDaemon::setUpdateHandler() No change in "
                                      "UpdateHandler."));
    EXPECT_THAT(log.lines(), Contains("LOG_INFO FwDownloadDaemon::onNewFirmwareNeededEvent() Do nothing on "
                                      "NextAction=NoAction"));
    daemon->onDownloadTimerTimeout();
    EXPECT_THAT(log.lines(), Contains(testing::EndsWith(" secods.")));
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
    EXPECT_THAT(log.lines(),
                Contains("LOG_ERR FwDownloadDaemon::onInitSuuInfo() Failed 5 times to initialize "
                         "SuuInfo instance!"));
    EXPECT_THAT(log.lines(), Contains("LOG_ERR FwDownloadDaemon::onInitSuuInfo() Terminating after 6 failed "
                                      "initialization attempt!"));
}
