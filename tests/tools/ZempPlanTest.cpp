// Plans against what the daemon really does: the same requests, the same files.
#include "tools/PlanPairs.h"
#include "tools/ZempRun.h"
#include "tools/ZempSamples.h"
#include "update/rig/Terminal.h"
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using testing::HasSubstr;

struct ZempPlan : ZempRun {
    nlohmann::json plan(int status = 0) {
        EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record", "--json"}), status) << err;
        return nlohmann::json::parse(out);
    }

    void write(const imagefile::ImageBuilder& image, const hostcfg::Description& installed) {
        image.write(scratch.file("i.zemp"));
        const hostcfg::Bytes record = hostcfg::build(installed);
        scratch.write("record", {record.begin(), record.end()});
    }
};

TEST_F(ZempPlan, IsWhatTheDaemonDoes) {
    for (const PlanPair& pair : planPairs()) {
        SCOPED_TRACE(pair.name);
        const imagefile::ImageBuilder image = rig::makeImage(7, pair.pools, pair.text);
        write(image, rig::installedFor(pair.pools));
        const nlohmann::json plan = this->plan();

        rig::Terminal terminal;
        rig::prepare(terminal, 7, pair.pools);
        terminal.publish("1.05-7", image);
        terminal.runUntilSettled(3600);
        ASSERT_TRUE(terminal.isReady());
        std::vector<std::string> ranges;
        for (const auto& request : plan["requests"])
            ranges.push_back(request["range"]);
        EXPECT_EQ(ranges, terminal.server.ranges());
        if (image.offsetOf(2) <= 512) {
            EXPECT_EQ(ranges, rig::expectedRanges(image, pair.pools));
        }
        EXPECT_TRUE(plan["ready"]);
        EXPECT_EQ(plan["downloadDirectoryBytes"], terminal.bytesOnDisk());
        EXPECT_EQ(plan["updateImageBytes"], ScratchDir::read(terminal.config.ready).size());
        EXPECT_EQ(plan["seconds"].get<double>(), plan["fetchedBytes"].get<double>() / 25000);
        for (size_t i = 0; i < pair.pools.size(); ++i)
            EXPECT_EQ(plan["elements"][i]["needed"],
                      !pair.pools[i].isInstalled && std::string(pair.pools[i].platform) != "4812");
    }
}

TEST_F(ZempPlan, WithoutARecordNothingIsInstalledAndADrawingGoesToTheOutputIfAsked) {
    write(goodImage(), {});
    EXPECT_EQ(zemp({"plan", "@i.zemp"}), 0) << err;
    const std::string bare = out;
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record"}), 0);
    EXPECT_EQ(bare, out);
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--svg", "-"}), 0);
    EXPECT_EQ(out.rfind("<svg ", 0), 0U);
    EXPECT_EQ(err, "");
}

TEST_F(ZempPlan, TellsOfEachOfSeveralTerminals) {
    write(goodImage(), rig::installedFor({{2, "kernel", "-", 600, false}}));
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record"}), 0);
    const std::string one = out;
    scratch.write("other", ScratchDir::read(scratch.file("record")));
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record", "--installed", "@other"}), 0);
    EXPECT_EQ(out, "== record\n" + one + "\n== other\n" + one);
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record", "--installed", "@other", "--json"}), 0);
    EXPECT_EQ(nlohmann::json::parse(out).at(1)["record"], "other");
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record", "--installed", "@other", "--svg", "@p.svg"}),
              2);
    EXPECT_THAT(err, HasSubstr("--svg draws what one terminal fetches"));
}

TEST_F(ZempPlan, PrintsItForPeople) {
    write(goodImage(), rig::installedFor({{2, "kernel", "-", 600, false}}));
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record", "--svg", "@p.svg"}), 0);
    EXPECT_EQ(out,
              "Update to 1.05-7 from i.zemp\n\n"
              "INDEX  POOL    PLATFORM  INSTALLED  IMAGE   NEEDED  WHY\n"
              "    2  kernel  4813      1.02-0     1.02-3  yes     another version is installed\n"
              "    4  root    -         -          1.02-3  yes     no partition of this pool is known\n\n"
              "REQUEST  BYTES  RANGE      FOR\n"
              "      1    512  0-511      image start\n"
              "      2    512  212-723    kernel header\n"
              "      3    153  724-876    kernel body\n"
              "      4    512  876-1387   root header\n"
              "      5    152  1388-1540  root body\n\n"
              "5 requests fetch 1 841 of 1 540 bytes (119 %), 0.1 s at 25 000 bytes per second\n"
              "Disk space: 3 381 bytes in the download directory (downloads 1 841, update image 1 540), "
              "1 516 in /tmp\n");
    EXPECT_EQ(err, "p.svg: the image, 5 requests\n");
    const std::string svg = ScratchDir::read(scratch.file("p.svg"));
    EXPECT_EQ(svg.substr(0, 5), "<svg ");
    EXPECT_THAT(svg, HasSubstr(">212-723</text>"));
    EXPECT_THAT(svg, HasSubstr(">kernel body</text>"));
}

TEST_F(ZempPlan, SaysWhatTheDaemonDoesWithAnUnsoundImage) {
    write(goodImage(), {});
    std::string image = ScratchDir::read(scratch.file("i.zemp"));
    image[300] = static_cast<char>(image[300] ^ 1); // in the kernel
    scratch.write("i.zemp", image);
    const nlohmann::json damaged = plan(1);
    EXPECT_FALSE(damaged["ready"]);
    EXPECT_GT(damaged["requests"].size(), 3U);
    EXPECT_THAT(damaged["complaints"].dump(), HasSubstr("kernel is over size, request delete."));

    write(imageOf(KernelLine + "4,root,0,/,ext4,-,1.2.4,1\n", {"kernel", "root"}), {});
    EXPECT_FALSE(plan(1)["ready"]);

    write(imageOf("2,boot,0,-,-,-,1.2.3,1\n", {"boot"}), {});
    EXPECT_THAT(plan(1)["complaints"].dump(), HasSubstr("UnspecifiedSwBlob is unknown. Aborting!"));
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", "@record"}), 1);
    EXPECT_THAT(out, HasSubstr("The update does NOT become ready."));
}

TEST_F(ZempPlan, RefusesWhatIsNoImageOrNoRecord) {
    write(goodImage(), {});
    scratch.write("text", "neither image nor record");
    scratch.write("long", std::string(6000, 'x'));
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"@text", "@record", "text: is not an image"},
        {"@none", "@record", "none: No such file or directory"},
        {"@i.zemp", "@none", "none: No such file or directory"},
        {"@i.zemp", "@long", "long: has 6 000 bytes, more than a host configuration record"},
        {"@i.zemp", "/dev/null", "/dev/null: Not a regular file"},
    };
    for (const auto& [image, record, message] : rows)
        refuses({"plan", image, "--installed", record, "--svg", "@p.svg"}, message);
    EXPECT_EQ(zemp({"plan", "@i.zemp", "--installed", ""}), 2); // not a terminal that has nothing
    EXPECT_EQ(files(), "i.zemp long record text");
}

} // namespace
