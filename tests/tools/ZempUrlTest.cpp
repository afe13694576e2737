// Images on web servers, parts written to files, and what is left behind when the tool is stopped.
#include "hostconfig/HostConfigRecord.h"
#include "lab/ChildProcess.h"
#include "lab/ScriptedHttpServer.h"
#include "tools/ZempRun.h"
#include "tools/ZempSamples.h"
#include <csignal>
#include <curl/curl.h>
#include <functional>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace {

using lab::HttpScript;
using testing::HasSubstr;

struct ZempUrl : ZempRun {
    ZempUrl() : server(textOf(image.build())), url(server.url()) {
        const hostcfg::Bytes record = hostcfg::build({});
        scratch.write("record", {record.begin(), record.end()});
        image.write(scratch.file("i.zemp"));
    }

    uint64_t bytesAsked() const {
        uint64_t bytes = 0;
        for (const auto& request : server.requests()) {
            const size_t dash = request.range.find('-');
            bytes += std::stoull(request.range.substr(dash + 1)) - std::stoull(request.range) + 1;
        }
        return bytes;
    }

    const imagefile::ImageBuilder image = imageOf(KernelLine + RootLine, {"kernel", "root"}, 300000);
    lab::ScriptedHttpServer server;
    const std::string url;
};

TEST_F(ZempUrl, ListsAndPlansWhatAFileWouldAndFetchesHeadersOnly) {
    EXPECT_EQ(zemp({"list", "@i.zemp"}), 0);
    const std::string local = out;
    EXPECT_EQ(zemp({"list", url}), 0) << err;
    EXPECT_LE(bytesAsked(), 3U * 512);
    EXPECT_THAT(out, HasSubstr("kernel-build  ok      not read\n"));
    EXPECT_THAT(out, HasSubstr("REL-1.05-7    ok      ok\n"));
    EXPECT_EQ(out.substr(out.find("\n\n")), local.substr(local.find("\n\n")));

    EXPECT_EQ(zemp({"check", url}), 0) << err;
    EXPECT_EQ(out, url + ": good; the bodies of software were not read\n");
    EXPECT_LE(bytesAsked(), 9U * 512);
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record", "--json"}), 0);
    auto plan = nlohmann::json::parse(out);
    plan["image"] = url;
    EXPECT_EQ(zemp({"plan", url, "--installed", "@record", "--json"}), 0) << err;
    EXPECT_EQ(nlohmann::json::parse(out), plan);
    EXPECT_LE(bytesAsked(), 13U * 512);
}

TEST_F(ZempUrl, ExtractsFromAServerAndFromAFile) {
    for (const std::string& from : {url, std::string("@i.zemp")}) {
        EXPECT_EQ(zemp({"extract", from, "root", "-o", "@root"}), 0) << err;
        EXPECT_EQ(ScratchDir::read(scratch.file("root")), textOf(image.buildPart(3)).substr(64));
    }
    EXPECT_EQ(zemp({"extract", "@i.zemp", "suum"}), 0);
    EXPECT_EQ(out, KernelLine + RootLine);
    EXPECT_EQ(zemp({"extract", "@i.zemp", "116"}), 0) << "by its offset";
    EXPECT_EQ(out, KernelLine + RootLine);
}

TEST_F(ZempUrl, RefusesToExtractWhatIsNotThereOrNotSound) {
    std::string damaged = textOf(image.build());
    damaged[1000] = static_cast<char>(damaged[1000] ^ 1);
    scratch.write("i.zemp", damaged);
    scratch.write("cut.zemp", damaged.substr(0, 400000));
    imageOf(KernelLine, {"kernel", "kernel"}).write(scratch.file("two.zemp"));
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"@i.zemp", "app", "i.zemp: has no part 'app'; it has a damaged body in part 'kernel' at offset 204"},
        {"@i.zemp", "kernel", "i.zemp: the body of 'kernel' at offset 204 is damaged"},
        {"@cut.zemp", "root", "cut.zemp: the body of 'root' at offset 300268 is incomplete"},
        {"@two.zemp", "kernel", "two.zemp: has 2 parts 'kernel': give the offset of one, for example 176"},
    };
    for (const auto& [from, part, message] : rows)
        refuses({"extract", from, part, "-o", "@out"}, message);
    EXPECT_EQ(files(), "cut.zemp i.zemp record two.zemp");
}

TEST_F(ZempUrl, ServersThatCannotServeAreRefusedInOneLine) {
    HttpScript missing;
    missing.status = 404;
    HttpScript ignoring;
    ignoring.ignoreRange = true;
    HttpScript redirecting;
    redirecting.status = 302;
    redirecting.headers = "Location: http://127.0.0.1:1/\r\n";
    HttpScript shifted;
    shifted.contentRangeShift = 4;
    HttpScript cut;
    cut.bodyBytes = 100;
    HttpScript silent;
    silent.headBytes = 0;
    const std::pair<HttpScript, const char*> rows[] = {
        {missing, "the server answered 404"},
        {ignoring, "the server ignores byte ranges: it answered 200 with the whole file"},
        {redirecting, "the server answered 302"},
        {shifted, "the server sent other bytes than it was asked for"},
        {cut, "Transferred a partial file"},
        {silent, "Server returned nothing (no headers, no data)"},
    };
    for (const auto& [script, message] : rows) {
        server.addScript(script);
        refuses({"list", url}, url + ": " + message);
    }
    EXPECT_EQ(zemp({"list", "http://127.0.0.1:1/i.zemp"}), 1);
    EXPECT_THAT(
        err, HasSubstr(std::string("zemp: http://127.0.0.1:1/i.zemp: ") + // the text depends on the library
                       curl_easy_strerror(CURLE_COULDNT_CONNECT)));
    server.setImage("no image");
    refuses({"list", url}, url + ": is neither an image nor a content part");
}

// Stopped in the middle of its work: an interrupt when `isBusy`.
struct ZempInterrupt : ZempUrl {
    void interrupt(const std::string& arguments, const std::function<bool()>& isBusy) {
        before = files();
        lab::ChildOptions options;
        options.arguments = {"sh", "-c", std::string("exec ") + ZEMP_PROGRAM + " " + arguments};
        lab::ChildProcess tool(options);
        while (tool.running() && !isBusy())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        tool.signal(SIGINT);
        ASSERT_TRUE(tool.waitFor(std::chrono::seconds(30)));
        EXPECT_EQ(tool.exitStatus()->toString(), "by signal Interrupt");
        EXPECT_EQ(files(), before);
    }

    std::string before;
};

TEST_F(ZempInterrupt, EndsAStalledTransferAndLeavesNothingBehind) {
    for (int i = 0; i < 3; ++i)
        server.addScript({}); // the start and two headers
    HttpScript stalling;
    stalling.bodyBytes = 1000;
    stalling.end = HttpScript::Stall;
    server.addScript(stalling);
    interrupt("extract " + url + " root -o " + scratch.file("out"), [&] { return server.waitForStall(); });
}

TEST_F(ZempInterrupt, EndsABuildAndLeavesNothingBehind) {
    scratch.write("big.bin", "");
    std::filesystem::resize_file(scratch.file("big.bin"), 3000000000);
    scratch.write("d.toml", "[release]\nversion = \"1.5.7\"\n[manifest]\ntext = \"# c\"\n"
                            "[[part]]\nname = \"root\"\nversion = \"1.2.3\"\nfile = \"big.bin\"\n");
    interrupt("build " + scratch.file("d.toml") + " -o " + scratch.file("big.zemp"),
              [&] { return files() != before; });
}

} // namespace
