#include "lab/Descriptor.h"
#include "workers/DownloaderFixture.h"
#include <cmath>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using lab::HttpScript;

// libcurl is initialised as main does it.
const struct CurlGlobal {
    CurlGlobal() { curl_global_init(CURL_GLOBAL_ALL); }
    ~CurlGlobal() { curl_global_cleanup(); }
} sCurlGlobal;

class DownloaderTest : public testing::Test, protected DownloaderFixture {};

size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

TEST_F(DownloaderTest, RequestThatCannotBeATransferFailsForGood) {
    FileFragment unnamed(FileFragment::ContentPart, 0, 9);
    DownloadRequest noUrl("", &fragment);
    DownloadRequest noFragment(server.url(), nullptr);
    DownloadRequest noName(server.url(), &unnamed);
    for (DownloadRequest* request : {&noUrl, &noFragment, &noName}) {
        ASSERT_TRUE(isAnswered(*request));
        EXPECT_EQ(request->getDownloadStatus(), DownloadRequest::DownloadPermanentFailure);
        EXPECT_EQ(request->getDownloadFailures(), 1U);
    }
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(DownloaderTest, UnopenedFileIsATransientFailureThatIsNotAnswered) {
    const std::string pipes[] = {directory.file("pipe"), directory.file("read pipe")};
    ASSERT_EQ(mkfifo(pipes[0].c_str(), 0600) + mkfifo(pipes[1].c_str(), 0600), 0);
    const lab::Descriptor reader = lab::Descriptor::open(pipes[1], O_RDONLY | O_NONBLOCK);
    for (const char* const name : {"missing/ContentPart-x", "pipe", "read pipe"}) {
        fragment.setFilename(directory.file(name));
        DownloadRequest request(server.url(), &fragment);
        for (unsigned failures = 1; failures <= 2; ++failures) { // it may be queued again
            ASSERT_TRUE(isDropped(request)) << name;
            EXPECT_EQ(request.getDownloadStatus(), DownloadRequest::DownloadTransientFailure);
            EXPECT_EQ(request.getDownloadFailures(), failures);
        }
    }
}

TEST_F(DownloaderTest, WithoutAHandleTheRequestStaysAsItIs) {
    CurlSpy::get().refusesHandles = true;
    DownloadRequest request(server.url(), &fragment);
    EXPECT_TRUE(isDropped(request));
    CurlSpy::get().refusesHandles = false;
    EXPECT_EQ(request.getDownloadStatus(), DownloadRequest::DownloadNotStarted);
    EXPECT_FALSE(std::filesystem::exists(fragment.getFilename()));
}

TEST_F(DownloaderTest, FinishedRequestsComeBackUnchangedAndStartedOnesAreDropped) {
    DownloadRequest request(server.url(), &fragment);
    for (const auto status : {DownloadRequest::DownloadComplete, DownloadRequest::DownloadPermanentFailure}) {
        request.setDownloadStatus(status);
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(request.getDownloadStatus(), status);
    }
    request.setDownloadStatus(DownloadRequest::DownloadStarted);
    ASSERT_TRUE(isDropped(request));
    request.setDownloadStatus(static_cast<DownloadRequest::DownloadStatus>(5));
    ASSERT_TRUE(isDropped(request));
    EXPECT_TRUE(server.requests().empty());
    EXPECT_EQ(log.count("LOG_WARNING"), 3U);
    EXPECT_TRUE(log.has("LOG_WARNING Downloader::onDownloadRequest() Already started DownloadRequest (" +
                        fragment.toString() + ") DownloadStarted DownloadStarted'!"));
}

TEST_F(DownloaderTest, OtherItemsAreDroppedAndStopEndsTheThread) {
    GotZempStartEvent other;
    EXPECT_TRUE(dropsAndStops(other));
    downloader->onWorkItem(nullptr);
    downloader->onDownloadRequest(nullptr);
    EXPECT_FALSE(downloader->download(nullptr));
}

// At debug level there is no cap; what else is set shows here too.
TEST_F(DownloaderTest, SpeedCapFollowsTheLogLevel) {
    const CurlSpy::Options capped = {{CURLOPT_URL, server.url()},     {CURLOPT_MAX_RECV_SPEED_LARGE, "25000"},
                                     {CURLOPT_LOW_SPEED_LIMIT, "50"}, {CURLOPT_LOW_SPEED_TIME, "60"},
                                     {CURLOPT_WRITEDATA, ""},         {CURLOPT_RANGE, "1000-2999"}};
    CurlSpy::Options uncapped = capped;
    uncapped.erase(uncapped.begin() + 1);
    for (const LogPriority level : {LogInfo, LogDebug}) {
        VexStreamLog::setLevel(level);
        fragment.setFileSize(0);
        DownloadRequest request(server.url(), &fragment);
        ASSERT_TRUE(isAnswered(request));
        EXPECT_EQ(CurlSpy::get().takeOptions(), level == LogInfo ? capped : uncapped);
    }
}

// Time and the stall's limit are scaled alike, so that 8 MB come in seconds. The server is as fast as the
// loopback.
TEST_F(DownloaderTest, FastLinkIsTakenEvenlyAtTheCapAndNeverForAStall) {
    constexpr size_t bodySize = 8000000;
    constexpr int factor = 60;
    constexpr std::chrono::duration<double> interval{Downloader::PieceInterval / double{factor}};
    CurlSpy::get().lowSpeedSeconds = 1;
    CurlSpy::get().speedFactor = factor;
    VexStreamLog::setLevel(LogInfo);
    start(std::chrono::duration_cast<std::chrono::microseconds>(interval), std::chrono::seconds(1));
    server.setImage(patternOf(bodySize));
    fragment.setDownloadRange(0, bodySize - 1);
    DownloadRequest request(server.url(), &fragment);
    struct Sample {
        Clock::time_point before, after;
        size_t size;
    };
    std::vector<Sample> samples;
    queue(request);
    while (out.size() == 0) {
        const auto before = Clock::now();
        std::error_code none;
        const auto size = std::filesystem::file_size(fragment.getFilename(), none);
        samples.push_back({before, Clock::now(), none ? 0 : static_cast<size_t>(size)});
        usleep(5000);
    }
    EXPECT_EQ(request.getDownloadStatus(), DownloadRequest::DownloadComplete);
    EXPECT_TRUE(onDisk() == patternOf(bodySize));
    EXPECT_GE(log.count(" of 8000000 bytes, "), 3U); // a line each second, of more than five
    for (size_t i = 0; i < samples.size(); ++i) {
        for (size_t j = i + 1; j < std::min(samples.size(), i + 20); ++j) {
            const double pieces = std::floor((samples[j].after - samples[i].before) / interval) + 1;
            ASSERT_LE(samples[j].size - samples[i].size, pieces * Downloader::PieceSize);
        }
    }
}

TEST_F(DownloaderTest, StopInAPauseIsPromptAndKeepsWhatWasReceived) {
    VexStreamLog::setLevel(LogInfo);
    start(std::chrono::hours(1));
    DownloadRequest request(server.url(), &fragment);
    fragment.setDownloadRange(1000, 50000);
    queue(request);
    ASSERT_TRUE(eventually([&] { return onDisk().size() == Downloader::PieceSize; }));
    EXPECT_LT(stopTime(downloader), PromptStop);
    EXPECT_EQ(out.size(), 0);
    EXPECT_TRUE(onDisk() == image.substr(1000, onDisk().size()));
    EXPECT_GT(onDisk().size(), Downloader::PieceSize);
}

TEST_F(DownloaderTest, ServerThatIsNotReachedIsTransientAndCountsAndABadUrlIsNot) {
    for (const std::string& url :
         {lab::ScriptedHttpServer().url(), std::string("http://no-such-host.invalid/")}) {
        DownloadRequest request(url, &fragment);
        for (unsigned failures = 1; failures <= 2; ++failures) {
            ASSERT_TRUE(isAnswered(request));
            EXPECT_EQ(request.getDownloadStatus(), DownloadRequest::DownloadTransientFailure);
            EXPECT_EQ(request.getDownloadFailures(), failures);
        }
    }
    DownloadRequest bad("nonsense://host/", &fragment);
    ASSERT_TRUE(isAnswered(bad));
    EXPECT_EQ(bad.getDownloadStatus(), DownloadRequest::DownloadPermanentFailure);
}

TEST_F(DownloaderTest, FileDoesNotGrowBeyondTheLargestImage) {
    constexpr auto limit = uint64_t{FileFragment::MaximumFileSize} + Downloader::AnswerSlack;
    FileFragment whole(directory.file("image.zemp"), 0);
    directory.write("image.zemp", "");
    std::filesystem::resize_file(whole.getFilename(), FileFragment::MaximumFileSize - 100); // sparse
    server.setImage(patternOf(1000000));
    DownloadRequest request(server.url(), &whole);
    ASSERT_TRUE(isAnswered(request));
    EXPECT_EQ(request.getDownloadStatus(), DownloadRequest::DownloadPermanentFailure);
    EXPECT_LE(std::filesystem::file_size(whole.getFilename()), limit);
    EXPECT_EQ(log.count(", 23) Permanent."), 1U);
}

TEST_F(DownloaderTest, BytesThatDoNotReachTheDiskAreAPermanentFailure) {
    fragment.setFilename("/dev/full");
    DownloadRequest request(server.url(), &fragment);
    ASSERT_TRUE(isAnswered(request)); // few bytes: the error shows when the file is closed
    EXPECT_EQ(request.getDownloadStatus(), DownloadRequest::DownloadPermanentFailure);
    EXPECT_EQ(request.getDownloadFailures(), 1U);
    EXPECT_TRUE(log.has(
        "LOG_WARNING Downloader::download() Failure writing file '/dev/full' (No space left on device)."));
    EXPECT_EQ(log.count("Curl command failed"), 0U);
}

TEST_F(DownloaderTest, LeaksNoDescriptorsAndNoHandles) {
    DownloadRequest request(server.url(), &fragment);
    ASSERT_TRUE(isAnswered(request));
    const size_t before = openDescriptors();
    const size_t handles = CurlSpy::get().liveHandles();
    for (int i = 0; i < 1000; ++i) {
        request.resetRequest();
        fragment.setFileSize(0);
        if (i % 3 == 0)
            server.addScript(cutAt(HttpScript::Never, 10, HttpScript::Close));
        ASSERT_TRUE(isAnswered(request));
    }
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; })); // the server closes its side late
    EXPECT_EQ(CurlSpy::get().liveHandles(), handles);
}

TEST_F(DownloaderTest, StopInAStalledTransferKeepsWhatWasReceived) {
    server.setScript(cutAt(HttpScript::Never, 700, HttpScript::Stall));
    DownloadRequest request(server.url(), &fragment);
    queue(request);
    ASSERT_TRUE(server.waitForStall());
    usleep(100000); // the bytes are read by now
    const size_t handles = CurlSpy::get().liveHandles();
    EXPECT_LT(stopTime(downloader), PromptStop);
    EXPECT_EQ(CurlSpy::get().liveHandles(), handles); // not released: libcurl was in the middle of it
    EXPECT_EQ(out.size(), 0);
    EXPECT_TRUE(onDisk() == image.substr(1000, 700));

    // The next process goes on from there.
    server.setScript({});
    FileFragment found(fragment.getFilename(), 700);
    found.setDownloadRange(1000, 1999);
    DownloadRequest again(server.url(), &found);
    start();
    ASSERT_TRUE(isAnswered(again));
    EXPECT_TRUE(onDisk() == image.substr(1000, 2000));
}

// Most of them while certificates are read; whether all memory is found again is for the sanitizer to say.
TEST_F(DownloaderTest, StopAtAnyMomentOfAHandshakeLosesNothing) {
    DownloadRequest request("https" + server.url().substr(4), &fragment);
    for (int ms = 0; ms < 40; ++ms) {
        request.resetRequest();
        queue(request);
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        EXPECT_LT(stopTime(downloader), PromptStop);
        for (wqueue<FwWorkItem*>* items : {&in, &out}) // the request may not have been taken yet
            while (items->size() > 0)
                items->remove();
        start();
    }
}

TEST_F(DownloaderTest, StopsPromptlyDuringANameLookup) {
    CurlSpy& spy = CurlSpy::get();
    spy.holdsLookups = true;
    DownloadRequest request("http://no-such-host.invalid/", &fragment);
    queue(request);
    EXPECT_TRUE(eventually([&] { return spy.lookups == 1; }));
    EXPECT_LT(stopTime(downloader), PromptStop);
    spy.holdsLookups = false; // the lookup's own thread ends later, and still finds what it works on
    EXPECT_TRUE(eventually([&] { return spy.lookups == 0; }));
}

} // namespace
