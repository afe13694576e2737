// What the downloader makes of servers that misbehave: each row says what the server does to a request for
// the 2000 bytes 1000-2999, which status follows, and what is on disk.
#include "workers/DownloaderFixture.h"
#include <functional>
#include <libdeflate.h>

namespace {

using lab::HttpScript;
using Status = DownloadRequest::DownloadStatus;

constexpr Status Complete = DownloadRequest::DownloadComplete;
constexpr Status Transient = DownloadRequest::DownloadTransientFailure;
constexpr Status Permanent = DownloadRequest::DownloadPermanentFailure;

constexpr size_t All = HttpScript::Never;

const std::string Page = "<html><body>an error page</body></html>\n";

struct Row {
    const char* name;
    HttpScript script;
    Status status;
    int code; // libcurl's
    std::string onDisk;

    friend std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.name; }
};

std::string imageBytes(size_t first, size_t length) {
    return patternOf(100000).substr(first, length);
}

HttpScript script(const std::function<void(HttpScript&)>& change) {
    HttpScript result;
    change(result);
    return result;
}

std::string packed(const std::string& bytes) {
    const std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> compressor(
        libdeflate_alloc_compressor(9), &libdeflate_free_compressor);
    std::string result(libdeflate_gzip_compress_bound(compressor.get(), bytes.size()), '\0');
    result.resize(
        libdeflate_gzip_compress(compressor.get(), bytes.data(), bytes.size(), result.data(), result.size()));
    return result;
}

HttpScript pageWith(int status, const std::string& headers = "") {
    return script([&](HttpScript& s) {
        s.status = status;
        s.useBody = true;
        s.body = Page;
        s.headers = headers;
    });
}

std::vector<Row> rows() {
    const std::string wanted = imageBytes(1000, 2000);
    const std::string part = imageBytes(1000, 700);
    return {
        {"ByTheBook", {}, Complete, 0, wanted},
        {"ClosesMidBody", cutAt(All, 700, HttpScript::Close), Transient, 18, part},
        {"ClosesMidBodyWithoutLength", script([](HttpScript& s) {
             s.bodyBytes = 700;
             s.withLength = false;
         }),
         Complete, 0, part},
        {"ResetsMidBody", cutAt(All, 700, HttpScript::Reset), Permanent, 56, part},
        {"StallsMidBody", cutAt(All, 40, HttpScript::Stall), Transient, 28, imageBytes(1000, 40)},
        {"ClosesAtOnce", cutAt(0, All, HttpScript::Close), Permanent, 52, ""},
        {"ResetsAtOnce", cutAt(0, All, HttpScript::Reset), Permanent, 56, ""},
        {"StallsAtOnce", cutAt(0, All, HttpScript::Stall), Transient, 28, ""},
        {"CutsTheHeaders", cutAt(60, All, HttpScript::Close), Complete, 0, ""},
        {"StallsInTheHeaders", cutAt(60, All, HttpScript::Stall), Transient, 28, ""},
        {"IgnoresTheRange", script([](HttpScript& s) { s.ignoreRange = true; }), Permanent, 23,
         imageBytes(0, 2000 + Downloader::AnswerSlack)},
        {"TellsAWrongRange", script([](HttpScript& s) { s.contentRangeShift = 512; }), Complete, 0, wanted},
        {"Answers404WithAPage", pageWith(404), Complete, 0, Page},
        {"Answers503WithAPage", pageWith(503), Complete, 0, Page},
        {"RedirectsAndIsNotFollowed", pageWith(302, "Location: /elsewhere\r\n"), Complete, 0, Page},
        {"SendsAnUnknownEncoding",
         script([](HttpScript& s) { s.headers = "Content-Encoding: nonsense\r\n"; }), Complete, 0, wanted},
        {"Drips", script([](HttpScript& s) {
             s.dripBytes = 100;
             s.dripPause = std::chrono::milliseconds(10);
         }),
         Complete, 0, wanted},
    };
}

class DownloaderSwellTest : public testing::Test, protected DownloaderFixture {};

TEST_F(DownloaderSwellTest, AnswerThatUnpacksFarBeyondTheRangeIsCutOrRefused) {
    server.setScript(script([](HttpScript& s) {
        s.headers = "Transfer-Encoding: gzip, gzip\r\n";
        s.withLength = false;
        s.useBody = true;
        s.body = packed(packed(std::string(8000000, '\0')));
    }));
    DownloadRequest request(server.url(), &fragment);
    ASSERT_TRUE(isAnswered(request));
    if (log.count(", 61) Transient.") == 1) { // newer libraries unpack nothing that was not asked for
        EXPECT_EQ(onDisk(), "");
    } else {
        EXPECT_EQ(log.count(", 23) Permanent."), 1U);
        EXPECT_TRUE(onDisk() == std::string(2000 + Downloader::AnswerSlack, '\0')) << onDisk().size();
    }
}

class DownloaderServerTest : public testing::TestWithParam<Row>, protected DownloaderFixture {};

TEST_P(DownloaderServerTest, Row) {
    const Row& row = GetParam();
    server.setScript(row.script);
    CurlSpy::get().lowSpeedSeconds = 1;
    const size_t handles = CurlSpy::get().liveHandles();
    DownloadRequest request(server.url(), &fragment);
    ASSERT_TRUE(isAnswered(request));
    EXPECT_STREQ(DownloadRequest::getString(request.getDownloadStatus()),
                 DownloadRequest::getString(row.status));
    EXPECT_EQ(request.getDownloadFailures(), row.status == Complete ? 0U : 1U);
    const std::string end =
        ", " + std::to_string(row.code) + ") " + (row.status == Transient ? "Transient." : "Permanent.");
    EXPECT_EQ(log.count("LOG_INFO Downloader::download() Curl command failed! (Code="),
              row.code != 0 ? 1U : 0U);
    EXPECT_EQ(log.count(end), row.code != 0 ? 1U : 0U);
    EXPECT_TRUE(onDisk() == row.onDisk) << onDisk().size() << " bytes";
    EXPECT_EQ(fragment.getFileSize(), row.onDisk.size());
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].range, "1000-2999");
    EXPECT_EQ(CurlSpy::get().liveHandles(), handles);
}

INSTANTIATE_TEST_SUITE_P(Servers, DownloaderServerTest, testing::ValuesIn(rows()),
                         [](const auto& row) { return row.param.name; });

class DownloaderResumeTest : public testing::Test, protected DownloaderFixture {};

TEST_F(DownloaderResumeTest, TransientFailureGoesOnWhereTheFileEnds) {
    server.addScript(cutAt(All, 700, HttpScript::Close));
    server.addScript(cutAt(All, 1, HttpScript::Close));
    DownloadRequest request(server.url(), &fragment);
    for (const Status status : {Transient, Transient, Complete}) {
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(request.getDownloadStatus(), status);
    }
    EXPECT_TRUE(onDisk() == imageBytes(1000, 2000));
    EXPECT_EQ(request.getDownloadFailures(), 2U);
    EXPECT_EQ(server.requests()[1].range, "1700-2999");
    EXPECT_EQ(server.requests()[2].range, "1701-2999");
}

// What came with a page or with other bytes than those asked for stays until the next fetch, and no longer.
TEST_F(DownloaderResumeTest, FetchGoesOnBehindTheImagesBytesOnly) {
    server.addScript(cutAt(All, 700, HttpScript::Close));
    server.addScript(pageWith(404));
    server.addScript(script([](HttpScript& s) {
        s.status = 503;
        s.bodyBytes = 9;
    }));
    server.addScript(script([](HttpScript& s) {
        s.ignoreRange = true;
        s.bodyBytes = 2500;
    }));
    const std::string part = imageBytes(1000, 700);
    const struct {
        Status status;
        std::string onDisk;
    } steps[] = {{Transient, part},
                 {Complete, part + Page},
                 {Transient, part + imageBytes(1700, 9)},
                 {Transient, part + imageBytes(0, 2500)},
                 {Complete, imageBytes(1000, 2000)}};
    for (const auto& [status, bytes] : steps) {
        DownloadRequest request(server.url(), &fragment);
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(request.getDownloadStatus(), status);
        EXPECT_TRUE(onDisk() == bytes) << onDisk().size() << " bytes";
    }
    for (size_t i = 1; i < 5; ++i)
        EXPECT_EQ(server.requests()[i].range, "1700-2999");
}

TEST_F(DownloaderResumeTest, WholeImageInPlaceOfARangeFromItsFirstByteIsKept) {
    fragment.setDownloadRange(0, 1999);
    server.addScript(script([](HttpScript& s) {
        s.ignoreRange = true;
        s.bodyBytes = 700;
    }));
    for (const Status status : {Transient, Complete}) {
        DownloadRequest request(server.url(), &fragment);
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(request.getDownloadStatus(), status);
    }
    EXPECT_EQ(server.requests()[1].range, "700-1999");
    EXPECT_TRUE(onDisk() == imageBytes(0, 2000));
}

TEST_F(DownloaderResumeTest, NothingIsFetchedWhenTheRangeIsOnDisk) {
    for (const size_t surplus : {0U, 760U}) {
        directory.write("ContentPart-x", imageBytes(1000, 2000 + surplus));
        fragment.setFileSize(static_cast<unsigned>(2000 + surplus));
        DownloadRequest request(server.url(), &fragment);
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(request.getDownloadStatus(), Complete);
        EXPECT_TRUE(onDisk() == imageBytes(1000, 2000));
        EXPECT_EQ(fragment.getFileSize(), 2000U);
    }
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(DownloaderResumeTest, ImageSwappedBetweenTwoFetchesIsSplicedOnDisk) {
    server.addScript(cutAt(All, 700, HttpScript::Close));
    DownloadRequest request(server.url(), &fragment);
    ASSERT_TRUE(isAnswered(request));
    server.setImage(patternOf(100000, 1));
    ASSERT_TRUE(isAnswered(request));
    EXPECT_EQ(request.getDownloadStatus(), Complete);
    EXPECT_TRUE(onDisk() == imageBytes(1000, 700) + patternOf(100000, 1).substr(1700, 1300));
}

TEST_F(DownloaderResumeTest, WholeImageWithoutARangeIsAppended) {
    FileFragment whole(directory.file("image.zemp"), 4);
    directory.write("image.zemp", "abcd");
    DownloadRequest request(server.url(), &whole);
    ASSERT_TRUE(isAnswered(request));
    EXPECT_EQ(server.requests()[0].range, "");
    EXPECT_EQ(whole.getFileSize(), 100004U);
}

} // namespace
