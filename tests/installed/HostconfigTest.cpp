#include "installed/hostconfig.h"

#include "common/fileutil.h"
#include "common/process.h"
#include "image/zemp_validate.h"
#include "installed/Records.h"
#include "installed/loadHostConfig.h"
#include <gtest/gtest.h>
#include <memory>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

using hostcfg::Bytes;

struct Hostconfig : testing::Test {
    Hostconfig() { EXPECT_EQ(hostconfig_new(hc.get(), HostconfigMaximumSize), 1); }

    // Result of loading the record, with no other to fall back on.
    int load(const Bytes& record) {
        const std::string path = writeRecord(scratch, "record", record);
        return hostconfig_load(hc.get(), path.c_str(), nullptr);
    }

    // Whether the tools' check finds no error.
    static bool passesCheck(const Bytes& record) {
        bool good = true;
        for (const hostcfg::Finding& finding : hostcfg::check(record))
            good = good && !finding.isError;
        return good;
    }

    ScratchDir scratch;
    std::unique_ptr<hostconfig_t> hc = std::make_unique<hostconfig_t>();
};

using HostconfigDeathTest = Hostconfig;

TEST_F(HostconfigDeathTest, NullObjects) {
    EXPECT_DEATH(hostconfig_new(nullptr, 10), "\\*\\*\\* ASSERT in hostconfig.c at 30\n");
    EXPECT_DEATH(hostconfig_load(nullptr, "a", "b"), "\\*\\*\\* ASSERT in hostconfig.c at 243\n");
}

TEST_F(Hostconfig, FindsPartsByTheBeginningOfTheirName) {
    hostcfg::Description description = partitions({"kernel"});
    description.partsBefore = {part("a", 5), part("SIXTEEN BYTES OK", 7)};
    description.partsAfter = {part("last", 40)};
    EXPECT_EQ(load(hostcfg::build(description)), 1);
    EXPECT_EQ(hc->count, 4);
    const auto bodyAt = [&](const char* name) {
        return static_cast<uint8_t*>(hostconfig_get_body(hc.get(), name)) - hc->raw;
    };
    EXPECT_EQ(bodyAt("a"), 24 + 32);
    EXPECT_EQ(bodyAt("SIXTEEN BYTES OK"), 24 + 32 + 8 + 32);
    EXPECT_EQ(bodyAt("SIX"), bodyAt("SIXTEEN BYTES OK"));
    EXPECT_EQ(bodyAt("SUU data"), 24 + 40 + 40 + 32);
    EXPECT_EQ(hostconfig_get_body(hc.get(), "SIXTEEN BYTES OK!"), nullptr);
    EXPECT_EQ(hostconfig_get_body(hc.get(), "none"), nullptr);
    EXPECT_EQ(hostconfig_new(hc.get(), 5120), 1);
    EXPECT_EQ(hostconfig_get_body(hc.get(), "a"), nullptr);
}

TEST_F(Hostconfig, FileSizesOutsideTheLimitsAreRefused) {
    const Bytes good = hostcfg::build(partitions({"kernel"}));
    for (const size_t size : {0U, 23U, 5121U}) {
        Bytes record = good;
        record.resize(size);
        EXPECT_EQ(load(record), -1) << size;
    }
    Bytes longest = good;
    longest.resize(5120, 0xff); // what follows the body does not count
    EXPECT_EQ(load(longest), 1);
    for (const char* const path : {scratch.path().c_str(), "/no/such", "/dev/mtd-no-such"})
        EXPECT_EQ(hostconfig_load(hc.get(), path, ""), -1) << path;

    Bytes shortest = good;
    shortest.resize(24);
    hostcfg::reseal(shortest);
    EXPECT_EQ(hostconfig_load_raw(hc.get(), writeRecord(scratch, "record", shortest).c_str()), 0);
    EXPECT_EQ(load(shortest), -1) << "without a part";
}

TEST_F(Hostconfig, BadPrimaryFallsBackToTheSecondary) {
    const Bytes good = hostcfg::build(partitions({"kernel"}));
    Bytes bad = hostcfg::build(partitions({"kernel", "root"}));
    bad[9] ^= 1; // header CRC
    const std::string primary = writeRecord(scratch, "primary", bad);
    const std::string secondary = writeRecord(scratch, "secondary", good);
    EXPECT_EQ(hostconfig_load(hc.get(), primary.c_str(), secondary.c_str()), 2);
    EXPECT_EQ(memcmp(hc->raw, good.data(), good.size()), 0);
    EXPECT_EQ(hostconfig_load(hc.get(), secondary.c_str(), primary.c_str()), 1);
    // Anybody can make the secondary.
    const std::string link = scratch.file("link");
    const std::string pipe = scratch.file("pipe");
    ASSERT_EQ(symlink(secondary.c_str(), link.c_str()) + mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& other : {primary, link, pipe, scratch.path()})
        EXPECT_EQ(hostconfig_load(hc.get(), primary.c_str(), other.c_str()), -1) << other;
    EXPECT_EQ(hostconfig_load(hc.get(), link.c_str(), nullptr), 1);
    EXPECT_EQ(hc->count, 1);
}

// Lets the calling process, which has one thread, mount what only it can see.
bool enterPrivateFileSystem() {
    if (geteuid() == 0)
        return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    const unsigned uid = geteuid();
    const unsigned gid = getegid();
    return unshare(CLONE_NEWNS | CLONE_NEWUSER) == 0 && fnprintf("/proc/self/setgroups", "deny") > 0 &&
           fnprintf("/proc/self/uid_map", "0 %u 1", uid) > 0 &&
           fnprintf("/proc/self/gid_map", "0 %u 1", gid) > 0;
}

// Result of loading from "/dev/mmcblk0p5" with this content, in a child process with a /dev of its own.
int loadFromDevice(const Bytes& content) {
    const pid_t child = fork();
    if (child == 0) {
        if (!enterPrivateFileSystem() || mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
            _exit(99);
        fnwrite("/dev/mmcblk0p5", content.data(), content.size());
        const auto loaded = std::make_unique<hostconfig_t>();
        hostconfig_new(loaded.get(), HostconfigMaximumSize);
        _exit(hostconfig_load(loaded.get(), "/dev/mmcblk0p5", nullptr) & 0x7f);
    }
    return proc_waitpid(child);
}

TEST_F(Hostconfig, DeviceIsReadAsExactly5120Bytes) {
    Bytes flash = hostcfg::build(partitions({"kernel"}));
    flash.resize(5119, 0xff);
    EXPECT_EQ(loadFromDevice(flash), -1 & 0x7f);
    flash.resize(5120, 0xff);
    EXPECT_EQ(loadFromDevice(flash), 1);
    flash.resize(100000, 0xff);
    EXPECT_EQ(loadFromDevice(flash), 1);
}

TEST_F(Hostconfig, LastBytesOfTheBodyAreNoPart) {
    hostcfg::Description description = partitions({"kernel"});
    for (const auto& [unused, result] : {std::pair{0, 1}, {1, 1}, {32, 1}, {33, -1}}) {
        description.unusedBytes = static_cast<size_t>(unused);
        EXPECT_EQ(load(hostcfg::build(description)), result) << unused;
        EXPECT_EQ(hc->count, result == 1 ? 1 : 0);
    }
}

TEST_F(Hostconfig, ExpectedPartsAreLookedForInTheTailToo) {
    const std::string path = writeRecord(scratch, "r", hostcfg::build(partitions({"kernel"})));
    hc->expected = 1;
    EXPECT_EQ(hostconfig_load(hc.get(), path.c_str(), nullptr), 1);
    hc->expected = 2;
    EXPECT_EQ(hostconfig_load(hc.get(), path.c_str(), nullptr), -1);
    hostcfg::Description description = partitions({"kernel"});
    description.partsAfter = {part("empty", 0)}; // 32 bytes, as long as an unparsed tail
    EXPECT_EQ(load(hostcfg::build(description)), 1);
    EXPECT_EQ(hc->count, 2);
    hc->expected = -1;
    EXPECT_EQ(load(hostcfg::build(description)), 1);
    EXPECT_EQ(hc->count, 1);
}

TEST_F(Hostconfig, PartsBeyondTwentyAreCheckedButNotKept) {
    hostcfg::Description description = partitions({"kernel"});
    for (int i = 0; i < 21; ++i)
        description.partsAfter.push_back(part("p" + std::to_string(i), 3));
    Bytes record = hostcfg::build(description);
    EXPECT_EQ(load(record), 1);
    EXPECT_EQ(hc->count, 20);
    EXPECT_NE(hostconfig_get_body(hc.get(), "p18"), nullptr);
    EXPECT_EQ(hostconfig_get_body(hc.get(), "p19"), nullptr);
    record[record.size() - 4] ^= 1; // body of the last part
    hostcfg::reseal(record);
    EXPECT_EQ(load(record), -1);
}

TEST_F(Hostconfig, LastPaddingMayBeMissing) {
    hostcfg::Description description = partitions({"kernel"});
    description.partsAfter = {part("five", 5)};
    Bytes record = hostcfg::build(description);
    for (int missing = 0; missing <= 3; ++missing) {
        EXPECT_EQ(load(record), 1) << missing;
        EXPECT_EQ(hc->count, 2);
        record.pop_back();
        hostcfg::reseal(record);
    }
    EXPECT_EQ(load(record), -1); // a byte of the body
}

TEST_F(Hostconfig, LengthsBeyondTheRecordAreRefused) {
    Bytes record = hostcfg::build(partitions({"kernel"}));
    auto* header = reinterpret_cast<zemp_header_t*>(record.data() + 8);
    for (const unsigned length : {5113U, 65535U, 15U, 0U}) {
        header->hdr_length = static_cast<uint16_t>(length);
        EXPECT_EQ(load(record), -1) << length;
    }
    hostcfg::reseal(record);
    header->body_length = 0xffffffff;
    EXPECT_EQ(load(record), -1);

    constexpr unsigned room = HostconfigMaximumSize - 8;
    const struct {
        unsigned header, body;
        bool fits;
    } rows[] = {{16, room - 16, true},
                {16, room - 15, false},
                {room, 0, true},
                {room, 1, false},
                {room + 1, 0, false}};
    for (const auto& row : rows) {
        auto* ofObject = reinterpret_cast<zemp_header_t*>(hc->raw + 8);
        ofObject->hdr_length = static_cast<uint16_t>(row.header);
        ofObject->body_length = row.body;
        EXPECT_EQ(hostconfig_check_raw(hc.get()) != HostconfigBadLength, row.fits) << row.header;
    }
}

TEST_F(Hostconfig, LongerMainHeaderMovesTheCheckedBodyButNotTheParts) {
    Bytes record = hostcfg::build(partitions({"kernel"}));
    const size_t bodySize = record.size() - 24;
    record.resize(record.size() + 32);
    auto* header = reinterpret_cast<zemp_header_t*>(record.data() + 8);
    header->hdr_length = 16 + 32; // over the first content header
    header->body_crc = crc32_calc(0, record.data() + 8 + 48, bodySize);
    header->hdr_crc = crc32_calc(0, record.data() + 12, 44);
    EXPECT_EQ(load(record), 1);
    EXPECT_EQ(static_cast<uint8_t*>(hostconfig_get_body(hc.get(), "SUU data")) - hc->raw, 24 + 32);
}

TEST_F(Hostconfig, EveryPrefixIsRefusedOrHarmless) {
    hostcfg::Description description = partitions({"kernel", "root"});
    description.partsAfter = {part("after", 9)};
    const Bytes record = hostcfg::build(description);
    for (size_t size = record.size(); size-- > 0;) { // a longer one first, of which nothing may be left
        const Bytes prefix(record.begin(), record.begin() + static_cast<long>(size));
        const bool loads = load(prefix) == 1;
        // Only the zero bytes of the last padding may be missing: they are there anyway.
        EXPECT_EQ(loads, size >= record.size() - 3) << size;
        EXPECT_EQ(passesCheck(prefix), loads) << size;
    }
}

TEST_F(Hostconfig, EveryFlippedBitIsRefusedOrHarmless) {
    hostcfg::Description description = partitions({"kernel", "root"});
    description.partsBefore = {part("before", 9)};
    const Bytes record = hostcfg::build(description);
    for (size_t bit = 0; bit < record.size() * 8; ++bit) {
        Bytes damaged = record;
        damaged[bit / 8] = static_cast<uint8_t>(damaged[bit / 8] ^ (1U << bit % 8));
        const bool inMagic = bit / 8 < 8;
        const bool fromFile = bit % 8 == bit / 8 % 8; // one bit of each byte through a file, too
        if (fromFile) {
            ASSERT_EQ(load(damaged), inMagic ? 1 : -1) << bit;
        }
        ASSERT_EQ(passesCheck(damaged), inMagic) << bit;

        if (bit / 8 < 24)
            continue;
        hostcfg::reseal(damaged); // now only the parts' own checksums can tell
        const bool inPadding = bit / 8 >= 24 + 32 + 9 && bit / 8 < 24 + 32 + 12;
        if (fromFile) {
            ASSERT_EQ(load(damaged), inPadding ? 1 : -1) << bit;
        }
        ASSERT_EQ(passesCheck(damaged), inPadding) << bit;
    }
}

struct LoadHostConfig : Hostconfig {
    LoadHostConfig() { snprintf(options.primary, sizeof options.primary, "%s", primary.c_str()); }

    // What is logged at warning and above.
    std::string load(int expected) {
        return logOf(LogWarning, [&] { EXPECT_EQ(loadHostConfig(&options, ctx.get(), hc.get()), expected); });
    }

    std::string primary = scratch.file("primary");
    options_t options = {};
    std::unique_ptr<suul_ctx_t> ctx = std::make_unique<suul_ctx_t>();
};

TEST_F(LoadHostConfig, WarnsWhenTheBackupIsUsed) {
    const std::string backup = writeRecord(scratch, "secondary", hostcfg::build(partitions({"kernel"})));
    EXPECT_EQ(load(-1), "log(LOG_WARNING): loadHostConfig() hostconfig_load failed!\n");
    snprintf(options.secondary, sizeof options.secondary, "%s", backup.c_str());
    EXPECT_EQ(load(1), "log(LOG_WARNING): loadHostConfig() hostconfig_load failed; loaded backup (" + backup +
                           ") successfully.\n");
    EXPECT_STREQ(ctx->data.partitions[0].name, "kernel");
}

TEST_F(LoadHostConfig, RecordWithoutSuuDataFails) {
    hostcfg::Description description;
    description.partsBefore = {part("other", 40)};
    Bytes record = hostcfg::build(description);
    record.resize(24 + 32 + 40);
    hostcfg::reseal(record);
    writeRecord(scratch, "primary", record);
    EXPECT_EQ(load(-1), "log(LOG_WARNING): loadHostConfig() suul_hostconfig_import failed!\n");
    EXPECT_FALSE(passesCheck(record));
}

} // namespace
