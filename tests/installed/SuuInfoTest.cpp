#include "installed/SuuInfo.h"

#include "installed/Records.h"
#include "installed/SuuReport.h"
#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>

namespace {

struct InstalledSoftware : testing::Test {
    void install(const hostcfg::Description& description) {
        writeRecord(scratch, "primary", hostcfg::build(description));
        ASSERT_TRUE(info.initialize());
    }

    // A terminal with two application partitions, of which the second is older.
    void installSample() {
        hostcfg::Description description;
        description.partitions = {partition("kernel", {1, 2, 3}), partition("app", {2, 0, 1}, "/app"),
                                  partition("app", {1, 9, 300}, "/app2")};
        install(description);
    }

    bool isNeeded(const std::string& pool, hostcfg::Version version, const std::string& platform = "-") {
        const SuumBlob::Element element(2, pool, 0, 0, "", "", platform, version.major, version.minor,
                                        version.build, 1, true);
        return info.isDownloadNeeded(&element);
    }

    ScratchDir scratch;
    SuuInfo info{RecordPaths{scratch.file("primary"), scratch.file("secondary")}};
};

TEST(SuuInfo, Defaults) {
    EXPECT_EQ(RecordPaths().primary, "/dev/mmcblk0p5");
    EXPECT_EQ(RecordPaths().secondary, "/tmp/hostcfg.backup");
    EXPECT_EQ(SuuInfo::sThePlatform, "4813");
}

TEST_F(InstalledSoftware, InitializeFailsAndMayBeTriedAgain) {
    EXPECT_EQ(logOf(LogError, [&] { EXPECT_FALSE(info.initialize()); }),
              "log(LOG_ERR): SuuInfo::initialize() Loading hostconfig failed! Result=-1.\n");
    EXPECT_FALSE(info.isInitialized());
    EXPECT_FALSE(info.isCurrentContentPart("kernel", 1, 2, 3));
    EXPECT_TRUE(isNeeded("kernel", {1, 2, 3}));

    writeRecord(scratch, "secondary", hostcfg::build(partitions({"kernel"})));
    EXPECT_TRUE(info.initialize());
    EXPECT_TRUE(info.isInitialized());
    EXPECT_TRUE(info.isCurrentContentPart("kernel", 1, 2, 3));

    remove(scratch.file("secondary").c_str());
    EXPECT_FALSE(info.initialize());
    EXPECT_FALSE(info.isInitialized());
}

TEST_F(InstalledSoftware, CurrentWhenAnyPartitionHoldsTheVersion) {
    installSample();
    const struct {
        const char* pool;
        unsigned char major, minor, build;
        bool isCurrent;
    } rows[] = {
        {"kernel", 1, 2, 3, true},        {"app", 2, 0, 1, true},
        {"app", 2, 0, 2, false},          {"app", 2, 1, 1, false},
        {"app", 1, 0, 1, false},          {"ap", 2, 0, 1, false},
        {"app ", 2, 0, 1, false},         {"", 1, 2, 3, false},
        {"app", 1, 9, 300 & 0xff, false}, // the low byte of a build that has more bits than can be asked for
    };
    for (const auto& row : rows)
        EXPECT_EQ(info.isCurrentContentPart(row.pool, row.major, row.minor, row.build), row.isCurrent)
            << row.pool << int{row.build};
    EXPECT_EQ(logOf(LogWarning,
                    [&] {
                        info.isCurrentContentPart("", 1, 2, 3);
                        info.isCurrentContentPart("kernel", 1, 2, 3);
                    }),
              "log(LOG_WARNING): SuuInfo::isDoisCurrentContentPartwnloadNeeded() Content part name is NULL!\n"
              "log(LOG_WARNING): SuuInfo::isCurrentContentPart() Found a 'kernel'.\n");
}

TEST_F(InstalledSoftware, DownloadIsNeededUnlessAPartitionOfThePoolHoldsTheVersion) {
    installSample();
    const struct {
        const char* pool;
        const char* platform;
        hostcfg::Version version;
        bool isNeeded;
    } rows[] = {
        {"kernel", "-", {1, 2, 3}, false}, {"kernel", "-", {1, 2, 4}, true},
        {"app", "-", {2, 0, 1}, false},    {"app", "-", {1, 9, 300}, false},
        {"app", "-", {1, 9, 44}, true},    {"", "-", {0, 0, 0}, true}, // unused records are no pool
        {"root", "-", {1, 2, 3}, true},    {"root", "", {1, 2, 3}, true},
        {"root", "4813", {1, 2, 3}, true}, {"root", "4812", {1, 2, 3}, false},
        {"root", "--", {1, 2, 3}, false},  {"root", "48130", {1, 2, 3}, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(isNeeded(row.pool, row.version, row.platform), row.isNeeded)
            << row.pool << row.version.build << row.platform;
    EXPECT_FALSE(info.isDownloadNeeded(nullptr));
}

TEST_F(InstalledSoftware, NamesThatFillTheirField) {
    hostcfg::Description description;
    description.partitions = {partition("sixteen bytes: A", {1, 0, 0}, std::string(32, 'm'))};
    install(description);
    EXPECT_TRUE(info.isCurrentContentPart("sixteen bytes: A", 1, 0, 0));
    EXPECT_FALSE(info.isCurrentContentPart("sixteen bytes: A!", 1, 0, 0));
    EXPECT_FALSE(info.isCurrentContentPart("sixteen bytes: ", 1, 0, 0));
    EXPECT_EQ(
        logOf(LogDebug,
              [&] {
                  isNeeded("sixteen bytes: A", {1, 0, 0});
              }),
        "log(LOG_DEBUG): SuuInfo::isDownloadNeeded() Platform='-' is for our platform=4813.\n"
        "log(LOG_DEBUG): SuuInfo::isDownloadNeeded() Already got a version 1.0-0 'sixteen bytes: A' @ " +
            std::string(32, 'm') + "\n");
}

TEST(SuuReport, TimeText) {
    EXPECT_EQ(getSuuTimeText(951782399), "2000.02.28 23:59:59");
    EXPECT_EQ(getSuuTimeText(-1), "1969.12.31 23:59:59");
    EXPECT_EQ(getSuuTimeText(INT64_MAX), "INVALID TIME       ");
}

// The report, a line end after each line.
std::string reportOf(const hostcfg::Description& description) {
    const auto data = hostcfg::build(description);
    const auto ctx = std::make_unique<suul_ctx_t>();
    suul_init(ctx.get());
    memcpy(&ctx->data, data.data() + 56, sizeof ctx->data);
    suul_partpool_generate(ctx.get());
    std::string text;
    writeSuuReport(*ctx, [&text](const std::string& line) { text += line + "\n"; });
    return text;
}

TEST(SuuReport, SurvivesAnyBytes) {
    hostcfg::Description description;
    description.changeSuuData = [](suu_data_t& data) { memset(&data, 0x1b, sizeof data); };
    const std::string text = reportOf(description);
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_NE(text.find("     ???????????????? yes"), std::string::npos);
    EXPECT_NE(text.find("\n     ???????????????? 20     multi\n"), std::string::npos);
    description.changeSuuData = [](suu_data_t& data) { memset(&data, 0xff, sizeof data); };
    EXPECT_NE(reportOf(description).find(" 255.255-65535 "), std::string::npos);
}

TEST_F(InstalledSoftware, ReportGoesToTheLog) {
    EXPECT_EQ(logOf(LogInfo, [&] { info.logSuuInfo(); }),
              "log(LOG_WARNING): SuuInfo::logSuuInfo() SuuInfo not initialized!\n");
    install(partitions({"kernel"}));
    const std::string report = logOf(LogInfo, [&] { info.logSuuInfo(); });
    EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 16);
}

} // namespace
