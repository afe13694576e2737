#include "lab/TemporaryDirectory.h"
#include "workitems/DownloadRequest.h"
#include "workitems/Events.h"
#include "workitems/ParseFileRequest.h"
#include <filesystem>
#include <gtest/gtest.h>

namespace {

TEST(WorkItem, PrintsTypeAndStatus) {
    EXPECT_EQ(NewFirmwareNeededEvent("http://h/", "1.02-3", false).toString(),
              "NewFirmwareNeededEvent No status");
    FileFragment fragment("/d/ZempStart-x", 5);
    ParseFileRequest parse(&fragment);
    parse.setParseStatus(ParseFileRequest::ParseCopmplete);
    EXPECT_EQ(parse.toString(),
              "ParseFileRequest (/d/ZempStart-x) ParseCopmplete"); // as it has always been spelt
    EXPECT_EQ(DownloadRequest("u", &fragment).toString(),
              "DownloadRequest (/d/ZempStart-x (ZempStart)) DownloadNotStarted");
    const DownloadRequest request("u", nullptr);
    EXPECT_EQ(request.toString(), "DownloadRequest (<NULL>) DownloadNotStarted");
    const FwWorkItem& base = request; // as the workers log it
    EXPECT_EQ(base.toString(), "DownloadRequest DownloadNotStarted");
}

TEST(DownloadRequest, CountsFailuresThroughResetsWhichEmptyTheFile) {
    const lab::TemporaryDirectory directory;
    const std::string name = directory.write("ContentPart-x", "some bytes");
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
