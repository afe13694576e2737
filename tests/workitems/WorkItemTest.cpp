#include "image/SuumBlob.h"
#include "support/TemporaryDirectory.h"
#include "workitems/CompileUpdateZempRequest.h"
#include "workitems/DownloadRequest.h"
#include "workitems/Events.h"
#include "workitems/FileScanRequest.h"
#include "workitems/ParseFileRequest.h"
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>

namespace {

TEST(WorkItem, StatusNamesEndWhereTheEnumerationDoes) {
    EXPECT_STREQ(FwWorkItem::getString(WorkItemType::ExitRunLoop), "ExitRunLoop");
    EXPECT_STREQ(FwWorkItem::getString(static_cast<WorkItemType>(13)), "<unknown WorkItem type>");
    EXPECT_STREQ(ConfigDbStatusEvent::getString(ConfigDbStatusEvent::ConfigStatusUnspecified),
                 "ConfigStatusUnspecified");
    EXPECT_STREQ(ConfigDbStatusEvent::getString(static_cast<ConfigDbStatusEvent::ConfigDbStatus>(4)),
                 "<unknown config status>");
    EXPECT_STREQ(DownloadRequest::getString(static_cast<DownloadRequest::DownloadStatus>(5)),
                 "<unknown download status>");
    ParseFileRequest parse(nullptr);
    parse.setParseStatus(ParseFileRequest::ParseCopmplete);
    EXPECT_EQ(parse.getStatus(), "ParseCopmplete"); // as it has always been spelt
    parse.setParseStatus(static_cast<ParseFileRequest::ParseStatus>(4));
    EXPECT_EQ(parse.getStatus(), "<unknown parse status>");
    FileScanRequest scan("/d");
    scan.setFileScanStatus(static_cast<FileScanRequest::FileScanStatus>(3));
    EXPECT_EQ(scan.getStatus(), "<unknown status>");
}

TEST(WorkItem, PrintsTypeAndStatus) {
    EXPECT_EQ(
        ConfigDbStatusEvent(ConfigDbStatusEvent::ConfigWaitForUpdate, "1.02-3", "http://h/", true).toString(),
        "ConfigDbStatusEvent ConfigWaitForUpdate");
    EXPECT_EQ(NewFirmwareNeededEvent("http://h/", "1.02-3", false).toString(),
              "NewFirmwareNeededEvent No status");
    EXPECT_EQ(ExitRunLoop().toString(), "ExitRunLoop No status");
    EXPECT_EQ(CompileUpdateZempRequest("/d/f", {}).toString(), "CompileUpdateZempRequest CompilePending");
    FileFragment fragment("/d/ZempStart-x", 5);
    EXPECT_EQ(ParseFileRequest(&fragment).toString(), "ParseFileRequest (/d/ZempStart-x) ParsePending");
    EXPECT_EQ(DownloadRequest("u", &fragment).toString(),
              "DownloadRequest (/d/ZempStart-x (ZempStart)) DownloadNotStarted");
    const DownloadRequest request("u", nullptr);
    EXPECT_EQ(request.toString(), "DownloadRequest (<NULL>) DownloadNotStarted");
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
