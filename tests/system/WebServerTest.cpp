#include "lab/WebServer.h"
#include "lab/FaultServer.h"
#include "support/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>

namespace {

size_t append(const char* data, size_t size, size_t count, void* to) {
    static_cast<std::string*>(to)->append(data, size * count);
    return size * count;
}

// The answer's body; "error N" when the transfer failed.
std::string fetch(const std::string& url, const char* range, long timeoutMs = 0) {
    std::string body;
    CURL* const handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_RANGE, range);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, timeoutMs);
    const CURLcode code = curl_easy_perform(handle);
    curl_easy_cleanup(handle);
    return code == CURLE_OK ? body : "error " + std::to_string(code);
}

class WebServerTest : public testing::Test {
  protected:
    WebServerTest() {
        writeFile(mWork.file("image"), {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'});
        mTerminal.bind({mWork.file("image"), "/lab/images/update.zemp"});
    }

    const support::TemporaryDirectory mDirectory;
    const lab::WorkDirectory mWork{mDirectory.path()};
    lab::Terminal mTerminal{mWork, lab::Programs::find()};
};

TEST_F(WebServerTest, ServesRangesAndRemembersThem) {
    lab::WebServer server(mTerminal, mWork, "/lab/images/update.zemp");
    EXPECT_EQ(fetch(server.url(), "2-4"), "234");
    EXPECT_EQ(fetch(server.url(), "8-511"), "89");
    (void)fetch(server.url() + ".other", nullptr);
    std::vector<lab::ServedRequest> requests;
    for (int i = 0; i < 1000 && requests.size() < 3; ++i) { // logged after the answer is sent
        for (const lab::ServedRequest& request : server.newRequests())
            requests.push_back(request);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].range, "2-4");
    EXPECT_EQ(requests[0].status, 206);
    EXPECT_EQ(requests[0].bytes, 3U);
    EXPECT_EQ(requests[1].range, "8-511");
    EXPECT_EQ(requests[1].bytes, 2U);
    EXPECT_EQ(requests[2].range, "");
    EXPECT_EQ(requests[2].status, 404);
    EXPECT_EQ(requests[2].path, "/update.zemp.other");
}

TEST_F(WebServerTest, GoesDownAndComesBackOnItsPort) {
    lab::WebServer server(mTerminal, mWork, "/lab/images/update.zemp");
    const std::string url = server.url();
    server.stop();
    EXPECT_EQ(fetch(url, "0-1"), "error 7");
    server.start();
    EXPECT_EQ(server.url(), url);
    EXPECT_EQ(fetch(url, "0-1"), "01");
}

TEST(FaultServer, KeepsItsFaultsAndItsLogWhileItIsDown) {
    lab::FaultServer server("0123456789", lab::Fault::parseAll({"stall-mid-body", "unavailable"}));
    const std::string url = server.url();
    EXPECT_EQ(fetch(url, "2-7", 300), "error " + std::to_string(CURLE_OPERATION_TIMEDOUT));
    server.stop();
    EXPECT_EQ(fetch(url, "2-7"), "error " + std::to_string(CURLE_COULDNT_CONNECT));
    server.start();
    EXPECT_NE(fetch(url, "2-7").find("not an image"), std::string::npos);
    EXPECT_EQ(fetch(url, "2-7"), "234567");
    server.stop();
    // Noted by a thread each, so the order of the last two is open.
    std::set<std::string> requests;
    for (const lab::ServedRequest& request : server.newRequests())
        requests.insert(request.range + " " + std::to_string(request.status) + " " +
                        std::to_string(request.bytes) + " " + request.fault);
    EXPECT_EQ(requests,
              (std::set<std::string>{"2-7 206 3 stall-mid-body", "2-7 503 48 unavailable", "2-7 206 6 "}));
}

TEST(ServedRequest, IgnoresWhatIsNoLogLine) {
    for (const char* const line : {"", "{", "17", "[]", "127.0.0.1 - -"})
        EXPECT_FALSE(lab::ServedRequest::parse(line)) << line;
}

} // namespace
