// The HTML page about a lab run.
#include "lab/ReportPage.h"
#include "lab/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using testing::HasSubstr;

const char* const Hostile = "<script>alert(\"x\")</script> & 'y' \x01\xC3\n";

lab::LabEvent request(double time, const std::string& range, const std::string& fault) {
    return {time, lab::LabEvent::Request, "root body", "", {0, "/update.zemp", range, 206, 200, 0.5, fault}};
}

// A run that failed, with hostile text wherever text comes from outside.
lab::LabResult failedRun() {
    lab::LabResult result;
    result.step = lab::LabResult::Update;
    result.failure = Hostile;
    result.endSeconds = 100;
    result.facts.timeScale = 10;
    result.configuredVersion = "1.05-7";
    result.imageBytes = 1000;
    result.parts = {{"root", "1.02-3", 100, 400, true}, {Hostile, "1.02-3", 500, 500, false}};
    result.requests = {request(1, "100-499", "close-mid-body"), request(2, "300-499", "")};
    result.verdict.rows = {{Hostile, Hostile, false}};
    result.verdict.faults = {Hostile};
    return result;
}

std::vector<lab::LabEvent> someEvents() {
    return {{0, lab::LabEvent::Step, Hostile, ""},
            {0.5, lab::LabEvent::Signal, Hostile, ""},
            {0.6, lab::LabEvent::Action, "GetZempParts", ""},
            {0.7, lab::LabEvent::Log, "Downloader::download() Download 100-499 to 'x'.", "LOG_INFO"},
            {2.5, lab::LabEvent::Log, Hostile, "LOG_WARNING"},
            {3, lab::LabEvent::Log, "no daemon's line", ""}};
}

// The first place where elements do not nest, or quotes are open; empty: none.
std::string findFlaw(const std::string& page) {
    std::vector<std::string> open;
    for (size_t at = page.find("<html"); (at = page.find('<', at)) != std::string::npos;) {
        const size_t end = page.find('>', at);
        const std::string tag = page.substr(at + 1, end - at - 1);
        const std::string name = tag.substr(0, tag.find_first_of(" \n"));
        if (end == std::string::npos || tag.find('<') != std::string::npos || name.empty())
            return page.substr(at, 80);
        if (std::count(tag.begin(), tag.end(), '"') % 2 != 0)
            return page.substr(at, 80);
        if (tag.front() == '/') {
            if (open.empty() || "/" + open.back() != name)
                return page.substr(at, 80);
            open.pop_back();
        } else if (tag.back() != '/') {
            open.push_back(name);
        }
        at = end;
    }
    return open.empty() ? "" : "open: " + open.back();
}

// Of the element with this id.
std::string sectionOf(const std::string& page, const std::string& id, const std::string& end) {
    const size_t start = page.find("id=\"" + id + "\"");
    return start == std::string::npos ? "" : page.substr(start, page.find(end, start) - start);
}

TEST(LabReport, HasAllItsPartsInGoodForm) {
    const std::string page = lab::makeReport(failedRun(), someEvents(), {"close-mid-body", Hostile});
    EXPECT_EQ(findFlaw(page), "");
    EXPECT_THAT(sectionOf(page, "verdict", "</section>"), HasSubstr("Failed while updating"));
    EXPECT_THAT(sectionOf(page, "facts", "</table>"), HasSubstr("<td>10: the daemon&#39;s timers run"));
    const std::string strip = sectionOf(page, "strip", "</svg>");
    EXPECT_EQ(countIn(strip, "class=\"needed\""), 1U);
    EXPECT_EQ(countIn(strip, "class=\"unneeded\""), 1U);
    // 200 bytes of 1000 on a drawing of 900 from 190.
    EXPECT_THAT(strip, HasSubstr("class=\"wrong\" x=\"280.0\" y=\"60.0\" width=\"180.0\""));
    EXPECT_THAT(strip, HasSubstr("class=\"fetched\" x=\"460.0\" y=\"78.0\" width=\"180.0\""));
    const std::string timeline = sectionOf(page, "timeline", "</svg>");
    EXPECT_EQ(countIn(timeline, "class=\"action\""), 1U);
    EXPECT_EQ(countIn(timeline, "class=\"signal\""), 1U);
    EXPECT_THAT(timeline, HasSubstr(">100 s</text>")) << "the axis ends before the run";
    EXPECT_EQ(countIn(sectionOf(page, "requests", "</table>"), "<tr>"), 3U);
    const std::string log = sectionOf(page, "log", "</table>");
    EXPECT_EQ(countIn(log, "<tr "), 3U);
    for (const char* const level : {"\"6\"", "\"4\"", "\"3\""}) // the last for a line without one
        EXPECT_EQ(countIn(log, std::string("data-level=") + level), 1U) << level;

    EXPECT_EQ(countIn(page, "<script"), 1U); // its own
    EXPECT_THAT(page, HasSubstr("&lt;script&gt;alert(&quot;x&quot;)&lt;/script&gt; &amp; &#39;y&#39; "
                                "\\x01\\xC3\n"));
    for (const char* const reference : {"src=", "href=", "url(", "@import", "<link", "fetch("})
        EXPECT_EQ(countIn(page, reference), 0U) << reference;
    EXPECT_EQ(findFlaw(lab::makeReport({}, {}, {})), ""); // a run that failed before anything happened
}

TEST(LabReport, LeavesAPipeOrADeviceWhatItIs) {
    const lab::TemporaryDirectory directory;
    ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
    EXPECT_THROW(lab::writeReport(directory.file("pipe"), "x"), std::runtime_error);
    EXPECT_TRUE(std::filesystem::is_fifo(directory.file("pipe")));
}

} // namespace
