#include "workers/ZempHandler.h"

#include "image/ImageFixtures.h"
#include "main/ArgParser.h"
#include "workers/WorkerQueues.h"
#include "workitems/CompileUpdateZempRequest.h"
#include "workitems/DownloadRequest.h"
#include "workitems/FileDeleteRequest.h"
#include "workitems/FileScanRequest.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <set>

namespace fs = std::filesystem;

namespace {

void freeParts(ParseFileRequest& request) {
    ZempParser& parser = *request.getZempParser();
    for (unsigned i = 0; i < parser.getNumberOfZempParts(); ++i)
        delete parser.getZempPartAt(i);
}

// A handler on its thread and a directory for its files.
class ZempHandlerTest : public testing::Test, protected WorkerQueues {
  protected:
    ZempHandlerTest() {
        if (handler->start() != 0)
            throw std::runtime_error("no thread");
    }

    const lab::TemporaryDirectory directory;
    std::unique_ptr<ZempHandler> handler = std::make_unique<ZempHandler>(in, out);
};

TEST_F(ZempHandlerTest, ScanListsFragmentsAndUpdateImagesOnlyAndFailsWithoutADirectory) {
    directory.write("ZempStart-1.02-3", "12345");
    directory.write("ContentPart-RootBlob-1.02-3", "");
    directory.write("fw_download_update.zemp-1.02-3", "123");
    directory.write("fw_download_update.zemp", "a whole image by its name");
    directory.write("image.zemp", "a whole image");
    directory.write("unrelated", "x");
    directory.write("ZempStart-", "only the prefix");
    fs::create_directory(directory.file("ContentPart-directory"));
    fs::create_symlink(directory.file("ZempStart-1.02-3"), directory.file("ContentPart-link"));
    fs::create_symlink(directory.file("nowhere"), directory.file("ContentPart-dangling"));
    ASSERT_EQ(mkfifo(directory.file("ContentPart-pipe").c_str(), 0600), 0);
    fs::resize_file(directory.write("ContentPart-huge", ""), 0x80000000); // sparse

    FileScanRequest request(directory.path());
    ASSERT_TRUE(isAnswered(request));
    EXPECT_EQ(request.getFileScanStatus(), FileScanRequest::ScanIsDone);
    const FileScanRequest::FileList files = request.getFileList();
    const std::set<std::pair<std::string, unsigned>> expected = {
        {directory.file("ZempStart-1.02-3"), 5},
        {directory.file("ContentPart-RootBlob-1.02-3"), 0},
        {directory.file("fw_download_update.zemp-1.02-3"), 3},
        {directory.file("ContentPart-link"), 5},
        {directory.file("ContentPart-huge"), 0xFFFFFFFF},
    };
    EXPECT_EQ(files.size(), expected.size());
    EXPECT_EQ(std::set(files.begin(), files.end()), expected);

    for (const std::string& path : {std::string(), directory.file("missing")}) {
        FileScanRequest nothing(path);
        ASSERT_TRUE(isAnswered(nothing));
        EXPECT_EQ(nothing.getFileScanStatus(), FileScanRequest::ScanIsFailed);
    }
}

TEST_F(ZempHandlerTest, ParseStatusFollowsFromTheFile) {
    const std::string golden = directory.file("ZempStart-golden");
    writeFile(golden, goldenBuilder().build());
    const auto startOf = [&](size_t size) {
        Bytes bytes = goldenBuilder().build();
        bytes.resize(size);
        std::string name = directory.file("ZempStart-" + std::to_string(size));
        writeFile(name, bytes);
        return name;
    };
    const auto sparse = [&](uint64_t size) {
        std::string name = directory.write("ZempStart-" + std::to_string(size), "");
        fs::resize_file(name, size);
        return name;
    };
    struct Row {
        std::string filename;
        ParseFileRequest::ParseStatus status;
        unsigned parts;
    };
    const std::vector<Row> rows = {
        {golden, ParseFileRequest::ParseCopmplete, 3}, // a start ends with the manifest
        {directory.write("ZempStart-noise", "no image at all"), ParseFileRequest::ParseFailed, 0},
        {directory.write("ZempStart-empty", ""), ParseFileRequest::ParseNoData, 0},
        {directory.file("ZempStart-missing"), ParseFileRequest::ParseNoData, 0},
        {"", ParseFileRequest::ParseNoData, 0},
        {directory.path(), ParseFileRequest::ParseFailed, 0},
        {startOf(131072 + 65536), ParseFileRequest::ParseCopmplete, 3},
        {startOf(131072 + 65536 + 1), ParseFileRequest::ParseFailed, 0}, // unparsed
        {sparse(INT32_MAX), ParseFileRequest::ParseFailed, 0},
        {sparse(uint64_t{INT32_MAX} + 1), ParseFileRequest::ParseNoData, 0},
    };
    for (const Row& row : rows) {
        FileFragment fragment(row.filename, 0);
        ParseFileRequest request(&fragment);
        ASSERT_TRUE(isAnswered(request)); // without a parser
        EXPECT_NE(request.getParseStatus(), ParseFileRequest::ParseCopmplete);
        request.setParseStatus(ParseFileRequest::ParsePending);
        request.initializeZempParser();
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(request.getParseStatus(), row.status) << row.filename;
        EXPECT_EQ(request.getZempParser()->getNumberOfZempParts(), row.parts) << row.filename;
        freeParts(request);
    }
}

TEST_F(ZempHandlerTest, DeletesFilesAndLinksButNoDirectories) {
    const std::string file = directory.write("ZempStart-a", "x");
    const std::string target = directory.write("ZempStart-target", "x");
    const std::string link = directory.file("link");
    fs::create_symlink(target, link);
    for (const std::string& name : {file, link}) {
        FileDeleteRequest request(name);
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(request.getFileDeleteStatus(), FileDeleteRequest::FileDeleteComplete);
        EXPECT_FALSE(fs::exists(fs::symlink_status(name)));
    }
    EXPECT_TRUE(fs::exists(target));

    const std::string empty = directory.file("directory");
    fs::create_directory(empty);
    const std::string protectedFile = "/proc/self/status"; // that nobody may remove
    for (const std::string& name : {empty, directory.file("missing"), std::string(), protectedFile}) {
        FileDeleteRequest request(name);
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(request.getFileDeleteStatus(), FileDeleteRequest::FileDeleteFailed);
    }
    EXPECT_TRUE(fs::exists(empty));
    EXPECT_EQ(log.count("LOG_WARNING ZempHandler::onFileDeleteRequest()  Error: "), 1U);
}

TEST_F(ZempHandlerTest, CompileWithoutPartsFails) {
    CompileUpdateZempRequest request(directory.file("update"), {});
    ASSERT_TRUE(isAnswered(request));
    EXPECT_EQ(request.getCompileStatus(), CompileUpdateZempRequest::CompileFailed);
}

TEST_F(ZempHandlerTest, OtherItemsAreDroppedAndStopEndsTheThread) {
    DownloadRequest other("http://h/", nullptr);
    EXPECT_TRUE(dropsAndStops(other));
    handler->onWorkItem(nullptr);
    handler->onFileScanRequest(nullptr);
    handler->onParseFileRequest(nullptr);
    handler->onFileDeleteRequest(nullptr);
    handler->onCompileUpdateZempFile(nullptr);
    EXPECT_EQ(out.size(), 0);
}

TEST_F(ZempHandlerTest, StopsPromptlyInALongParse) {
    ImageBuilder image = goldenBuilder();
    image.software("app", {1, 2, 3}, "app-build", pattern(60000000));
    const std::string name = directory.file("image.zemp");
    writeFile(name, image.build());
    FileFragment fragment(name, 0);
    std::vector<std::unique_ptr<ParseFileRequest>> requests;
    for (int i = 0; i < 200; ++i) { // more work than the stop may take
        requests.push_back(std::make_unique<ParseFileRequest>(&fragment));
        requests.back()->initializeZempParser();
        in.add(requests.back().get());
    }
    ASSERT_TRUE(eventually([&] {
        EXPECT_NE(requests.front()->toString(), ""); // as the main thread logs what is out
        return out.size() > 0;
    }));
    EXPECT_LT(stopTime(handler), PromptStop);
    for (const auto& request : requests)
        freeParts(*request);
}

} // namespace
