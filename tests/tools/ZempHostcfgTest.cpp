#include "tools/ZempRun.h"

#include "hostconfig/HostConfigRecord.h"
#include <nlohmann/json.hpp>

namespace {

constexpr const char* Sample = R"(
active-set = "B"
[[release]]
name = "REL-1.05-7"
version = "1.05-7"
time = 2000-02-28T23:59:59Z
[[set]]
name = "A"
bootable = false
[[set]]
name = "B"
release = "REL-1.05-7"
references = 2
[[partition]]
pool = "kernel"
version = "1.2.3"
number = 2
offset = 0x100000
size = 0x400000
filesystem = "raw"
length = 1234
crc = 0xffffffff
[[partition]]
pool = "app"
version = "1.2.300"
content = "application"
mountpoint = "/app"
)";

struct ZempHostcfg : ZempRun {};

TEST_F(ZempHostcfg, ShowsWhatWasBuiltAsTheDaemonDoes) {
    scratch.write("r.toml", Sample);
    ASSERT_EQ(zemp({"hostcfg", "build", "@r.toml", "-o", "@record"}), 0) << err;
    EXPECT_EQ(out, "record: 3 020 bytes\n");
    ASSERT_EQ(zemp({"hostcfg", "show", "@record", "--json"}), 0) << err;
    const nlohmann::json json = nlohmann::json::parse(out);
    EXPECT_EQ(json["partitions"][0]["version"], "1.02-3");
    EXPECT_EQ(json["partitions"][1]["mountpoint"], "/app");
    EXPECT_EQ(json["sets"][1]["release"], "REL-1.05-7");
    EXPECT_TRUE(json["sets"][1]["active"]);
    ASSERT_EQ(zemp({"hostcfg", "show", "@record"}), 0) << err;
    EXPECT_EQ(err, "");
    EXPECT_EQ(out, "               ---------- ---------- < SuuInfo > ---------- ----------\n"
                   "Sets: (p1/2)\n"
                   "     name:            bootable:  rhdr:      refs:\n"
                   "     A                no         255        0\n"
                   "     B                yes        0          2   ACTIVE SET\n"
                   "Sets: (p2/2)\n"
                   "     name:            release date:        release id:\n"
                   "     A                -                    -\n"
                   "     B                2000.02.28 23:59:59  REL-1.05-7\n"
                   "Partitions: (p1/2)\n"
                   "     pn: poolname:        offset:     size:        ver:       fstype:   mountpnt:\n"
                   "     2   kernel             0x00100000  0x00400000 1.02-3     raw       \n"
                   "     0   app                0x00000000  0x00000000 1.02-300             /app\n"
                   "Partitions: (p2/2)\n"
                   "     poolname:        content name:     length:     crc32:\n"
                   "     kernel           kernel            1234        0xffffffff\n"
                   "     app              application       0           0x00000000\n"
                   "Pools:\n"
                   "     pool:            cnt:   type:\n"
                   "     kernel           1      singleton\n"
                   "     app              1      singleton\n"
                   "SUU Data Upgrade set VALID\n"
                   "               ---------- ---------- <  ----  > ---------- ----------\n");
    EXPECT_EQ(zemp({"hostcfg", "check", "@record"}), 0);
    EXPECT_EQ(out, "record: good\n");
    EXPECT_EQ(zemp({"check", "@record"}), 1);
    EXPECT_EQ(out, "error: offset 24: it is a host configuration record, not an image [record]\n"
                   "    why:  terminals take images\n"
                   "    mend: check it with 'zemp hostcfg check'\n"
                   "record: 1 error, 0 warnings\n");
}

TEST_F(ZempHostcfg, MistakesInDescriptionsAreLocated) {
    const std::string partition = "[[partition]]\npool = \"kernel\"\nversion = \"1.2.3\"\n";
    std::string many;
    for (int i = 0; i < 21; ++i)
        many += partition;
    const std::pair<std::string, std::string> rows[] = {
        {many, "1:1: there are 21 of 'partition'; at most 20 fit"},
        {"active-set = \"A\"\n", "1:14: there is no set 'A'"},
        {"[[set]]\nname = \"A\"\nrelease = \"x\"\n", "3:11: there is no release 'x'"},
        {"[[partition]]\npool = \"kernel\"\n", "1:1: the partition has no 'version'"},
        {"[[partition]]\npool = \"\"\n", "2:8: 'pool' must not be empty"},
        {partition + "crc = 0x100000000\n", "4:7: 'crc' has to be from 0 to 4294967295"},
        {partition + "number = 256\n", "4:10: 'number' has to be from 0 to 255"},
        {partition + "filesystem = \"thirteen char\"\n", "4:14: 'filesystem' has 13 bytes; at most 12 fit"},
        {partition + "sise = 1\n", "4:1: the partition knows no key 'sise'"},
    };
    for (const auto& [description, message] : rows) {
        scratch.write("d.toml", description);
        refuses({"hostcfg", "build", "@d.toml", "-o", "@never"}, "d.toml:" + message);
    }
    EXPECT_EQ(files(), "d.toml");
}

TEST_F(ZempHostcfg, BadRecordsAreExplained) {
    scratch.write("r.toml", Sample);
    zemp({"hostcfg", "build", "@r.toml", "-o", "@record"});
    const std::string record = ScratchDir::read(scratch.file("record"));
    std::string damaged = record;
    damaged[3000] ^= 1;
    hostcfg::Bytes resealed(damaged.begin(), damaged.end());
    hostcfg::reseal(resealed);
    const std::pair<std::string, const char*> rows[] = {
        {"", "bad: offset 0: the record has 0 bytes; it must have 24 to 5120"},
        {record.substr(0, 1800), "bad: offset 8: the main header declares more bytes than there are"},
        {damaged, "bad: offset 8: the main header fails the check of its body CRC"},
        {{resealed.begin(), resealed.end()},
         "bad: offset 24: the content part there fails the check of its body CRC"},
        {std::string(5121, 'x'), "bad: has 5 121 bytes, more than 5 120"},
    };
    for (const auto& [content, message] : rows) {
        scratch.write("bad", content);
        refuses({"hostcfg", "show", "@bad"}, message);
        refuses({"hostcfg", "check", "@bad"}, message);
    }
}

TEST_F(ZempHostcfg, WhatOnlyLooksWrongIsAWarning) {
    hostcfg::Description description;
    description.partsBefore = {{"odd", hostcfg::Bytes(3)}};
    description.changeSuuData = [](suu_data_t& data) {
        data.setCount = 4;
        data.activeSet = 9;
        data.sets[1].releaseHeader = 3;
    };
    hostcfg::Bytes record = hostcfg::build(description);
    record[0] = 'X';
    scratch.write("record", {record.begin(), record.end()});
    EXPECT_EQ(zemp({"hostcfg", "check", "@record"}), 0);
    EXPECT_EQ(err, "zemp: warning: record: offset 0: the magic at the start is not there\n"
                   "zemp: warning: record: offset 201: there are 4 sets, more than the table has room for\n"
                   "zemp: warning: record: offset 200: the active set 9 is not in use\n"
                   "zemp: warning: record: offset 128: set '' refers to release header 3, which is none\n");
    EXPECT_EQ(zemp({"hostcfg", "show", "@record"}), 0);

    record = hostcfg::build({});
    record.pop_back();
    scratch.write("record", {record.begin(), record.end()});
    EXPECT_EQ(zemp({"hostcfg", "check", "@record"}), 0);
    EXPECT_EQ(err, "zemp: warning: record: offset 8: the main header declares 3020 bytes; the missing ones "
                   "count as zeros\n");
}

} // namespace
