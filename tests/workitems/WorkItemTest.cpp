#include "image/SuumBlob.h"
#include "support/TemporaryDirectory.h"
#include "workitems/CompileUpdateZempRequest.h"
#include "workitems/DownloadRequest.h"
#include "workitems/Events.h"
#include "workitems/FileDeleteRequest.h"
#include "workitems/FileScanRequest.h"
#include "workitems/IsUpdateNeededRequest.h"
#include "workitems/ParseFileRequest.h"
#include "workitems/SetReadyForUpdateRequest.h"
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>

namespace {

using Names = std::vector<std::string>;

// Printed names of the values 0 to `count` - 1, and of the first one behind them.
template <typename Status, typename Name>
Names namesOf(int count, Name name) {
    Names names;
    for (int value = 0; value <= count; ++value)
        names.push_back(name(static_cast<Status>(value)));
    return names;
}

// The same of a request's status.
template <typename Request, typename Status>
Names namesOf(int count, Request& request, void (Request::*set)(Status)) {
    return namesOf<Status>(count, [&](Status status) {
        (request.*set)(status);
        return request.getStatus();
    });
}

TEST(WorkItem, TypeNames) {
    const Names expected = {"UnspecifiedWorkItemType",
                            "ConfigDbStatusEvent",
                            "NewFirmwareNeededEvent",
                            "FileScanRequest",
                            "DownloadRequest",
                            "ParseFileRequest",
                            "GotZempStartEvent",
                            "SuuInfoInvalidEvent",
                            "IsUpdateNeededRequest",
                            "CompileUpdateZempRequest",
                            "SetReadyForUpdateRequest",
                            "FileDeleteRequest",
                            "ExitRunLoop",
                            "<unknown WorkItem type>"};
    EXPECT_EQ(namesOf<WorkItemType>(13, FwWorkItem::getString), expected);
}

TEST(WorkItem, StatusNames) {
    EXPECT_EQ(namesOf<ConfigDbStatusEvent::ConfigDbStatus>(4, ConfigDbStatusEvent::getString),
              (Names{"ConfigNoUpdateNeeded", "ConfigGetNewFirmware", "ConfigWaitForUpdate",
                     "ConfigStatusUnspecified", "<unknown config status>"}));
    EXPECT_EQ(namesOf<DownloadRequest::DownloadStatus>(5, DownloadRequest::getString),
              (Names{"DownloadNotStarted", "DownloadStarted", "DownloadComplete", "DownloadTransientFailure",
                     "DownloadPermanentFailure", "<unknown download status>"}));
    FileScanRequest scan("/d");
    EXPECT_EQ(namesOf(3, scan, &FileScanRequest::setFileScanStatus),
              (Names{"ScanPending", "ScanIsDone", "ScanIsFailed", "<unknown status>"}));
    ParseFileRequest parse(nullptr);
    EXPECT_EQ(
        namesOf(4, parse, &ParseFileRequest::setParseStatus),
        (Names{"ParsePending", "ParseCopmplete", "ParseNoData", "ParseFailed", "<unknown parse status>"}));
    CompileUpdateZempRequest compile("/d/f", {});
    EXPECT_EQ(namesOf(3, compile, &CompileUpdateZempRequest::setCompileStatus),
              (Names{"CompilePending", "CompileComplete", "CompileFailed", "<unknown status>"}));
    SetReadyForUpdateRequest ready("/d/f");
    EXPECT_EQ(namesOf(3, ready, &SetReadyForUpdateRequest::setSetReadyStatus),
              (Names{"SetReadyPending", "SetReadyComplete", "SetReadyFailed", "<unknown status>"}));
    FileDeleteRequest del("/d/f");
    EXPECT_EQ(namesOf(3, del, &FileDeleteRequest::setFileDeleteStatus),
              (Names{"FileDeletePending", "FileDeleteComplete", "FileDeleteFailed", "<unknown status>"}));
}

TEST(WorkItem, ItemsStartPendingAndPrintTypeAndStatus) {
    FileFragment fragment("/d/ZempStart-x", 5);
    EXPECT_EQ(
        ConfigDbStatusEvent(ConfigDbStatusEvent::ConfigWaitForUpdate, "1.02-3", "http://h/", true).toString(),
        "ConfigDbStatusEvent ConfigWaitForUpdate");
    EXPECT_EQ(NewFirmwareNeededEvent("http://h/", "1.02-3", false).toString(),
              "NewFirmwareNeededEvent No status");
    EXPECT_EQ(GotZempStartEvent().toString(), "GotZempStartEvent No status");
    EXPECT_EQ(SuuInfoInvalidEvent().toString(), "SuuInfoInvalidEvent No status");
    EXPECT_EQ(ExitRunLoop().toString(), "ExitRunLoop No status");
    EXPECT_EQ(FileScanRequest("/d").toString(), "FileScanRequest ScanPending");
    EXPECT_EQ(IsUpdateNeededRequest().toString(), "IsUpdateNeededRequest QuestionNotAnswered");
    EXPECT_EQ(CompileUpdateZempRequest("/d/f", {}).toString(), "CompileUpdateZempRequest CompilePending");
    EXPECT_EQ(SetReadyForUpdateRequest("/d/f").toString(), "SetReadyForUpdateRequest SetReadyPending");
    EXPECT_EQ(FileDeleteRequest("/d/f").toString(), "FileDeleteRequest FileDeletePending");
    EXPECT_EQ(ParseFileRequest(&fragment).toString(), "ParseFileRequest (/d/ZempStart-x) ParsePending");
    EXPECT_EQ(ParseFileRequest(nullptr).toString(), "ParseFileRequest () ParsePending");
    EXPECT_EQ(DownloadRequest("u", &fragment).toString(),
              "DownloadRequest (/d/ZempStart-x (ZempStart)) DownloadNotStarted");
    EXPECT_EQ(DownloadRequest("u", nullptr).toString(), "DownloadRequest (<NULL>) DownloadNotStarted");
    const DownloadRequest request("u", nullptr);
    const FwWorkItem& base = request; // as the workers log it
    EXPECT_EQ(base.toString(), "DownloadRequest DownloadNotStarted");
}

TEST(WorkItem, EventsKeepUrlAndVersionApart) {
    ConfigDbStatusEvent status(ConfigDbStatusEvent::ConfigGetNewFirmware, "version", "url", true);
    EXPECT_EQ(status.getVersion() + " " + status.getUrl(), "version url");
    EXPECT_TRUE(status.isForceUpdate());
    EXPECT_EQ(status.getDeleteReadyForUpdateFile(), "");
    status.setDeleteReadyForUpdateFile("/d/old");
    EXPECT_EQ(status.getDeleteReadyForUpdateFile(), "/d/old");
    const NewFirmwareNeededEvent event("url", "version", true);
    EXPECT_EQ(event.getVersion() + " " + event.getUrl(), "version url");
    EXPECT_TRUE(event.isForceUpdate());
}

TEST(IsUpdateNeededRequest, AnswerOfEitherKindMarksItAnswered) {
    for (const bool needed : {false, true}) {
        IsUpdateNeededRequest request;
        request.setIsUpdateNeeded(needed);
        EXPECT_EQ(request.isUpdateNeeded(), needed);
        EXPECT_EQ(request.getQuestionStatus(), IsUpdateNeededRequest::QuestionAnswered);
    }
}

TEST(FileScanRequest, ListsFilesInTheOrderTheyWereAdded) {
    FileScanRequest request("/d");
    request.addFile("/d/b", 7);
    request.addFile("/d/a", 0xFFFFFFFF);
    request.getFileList().clear(); // a copy
    EXPECT_EQ(request.getFileList(), (FileScanRequest::FileList{{"/d/b", 7}, {"/d/a", 0xFFFFFFFF}}));
}

TEST(ParseFileRequest, WithoutFragmentHasNoNameAndNoType) {
    const ParseFileRequest request(nullptr);
    EXPECT_EQ(request.getFilename(), "");
    EXPECT_EQ(request.getFragmentType(), FileFragment::UnknownType);
    EXPECT_EQ(request.getZempParser(), nullptr);
}

TEST(CompileUpdateZempRequest, CopiesTheMapAndLeavesThePartsAlone) {
    const zemp_content_header_t header = {};
    SuumBlob part(&header);
    std::map<const unsigned, ZempPart*> parts = {{1, &part}};
    auto request = std::make_unique<CompileUpdateZempRequest>("/d/f", parts);
    parts.clear();
    EXPECT_EQ(request->getZempParts().at(1), &part);
    request.reset();
    EXPECT_EQ(part.getNumberOfElements(), 0U); // still there
}

TEST(DownloadRequest, CountsFailuresThroughResetsWhichEmptyTheFile) {
    const support::TemporaryDirectory directory;
    const std::string name = directory.file("ContentPart-x");
    std::ofstream(name) << "some bytes";
    FileFragment fragment(name, 10);
    DownloadRequest request("http://h/image", &fragment);
    request.setDownloadStatus(DownloadRequest::DownloadStarted);
    request.setDownloadStatus(DownloadRequest::DownloadTransientFailure);
    request.setDownloadStatus(DownloadRequest::DownloadPermanentFailure);
    EXPECT_EQ(request.getDownloadFailures(), 2U);

    request.resetRequest();
    EXPECT_EQ(request.getDownloadStatus(), DownloadRequest::DownloadNotStarted);
    EXPECT_EQ(request.getDownloadFailures(), 2U);
    EXPECT_EQ(std::filesystem::file_size(name), 0U);
    EXPECT_EQ(fragment.getFileSize(), 10U);

    DownloadRequest("http://h/image", nullptr).resetRequest(); // no file to empty
}

} // namespace
