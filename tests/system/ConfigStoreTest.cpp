#include "lab/ConfigStore.h"
#include "support/TemporaryDirectory.h"
#include <gtest/gtest.h>

namespace {

TEST(ConfiguredVersion, ReadsAndWritesVersionTexts) {
    for (const char* const text : {"1.05-7", "1.12-B17", "0.00-0", "10.01-a-b"})
        EXPECT_EQ(lab::ConfiguredVersion::parse(text).toString(), text);
    EXPECT_EQ(lab::ConfiguredVersion::parse("1.05-7").minor, "5");
    EXPECT_EQ(lab::ConfiguredVersion::parse("1.00-7").minor, "0");
    for (const char* const text : {"", "1", "1.05", "1.05-", "1-7.5", "x.05-7", "1.-7", "1.05 7"})
        EXPECT_THROW((void)lab::ConfiguredVersion::parse(text), std::runtime_error) << text;
}

TEST(ConfigStore, HoldsTheKeysThatTheDaemonReads) {
    const support::TemporaryDirectory directory;
    lab::ConfigStore store(directory.file("config.db"));
    EXPECT_EQ(store.readyForInstall(), "");
    store.configure(lab::ConfiguredVersion::parse("2.03-B17"), "http://127.0.0.1/x");
    store.setInstalledVersion("2.02 B1");
    EXPECT_EQ(store.get("cfg.config.status"), "complete");
    EXPECT_EQ(store.get("cfg.device.configuration.major_version"), "2");
    EXPECT_EQ(store.get("cfg.device.configuration.minor_version"), "3");
    EXPECT_EQ(store.get("cfg.device.configuration.build_label"), "B17");
    EXPECT_EQ(store.get("cfg.device.configuration.sw_update_url"), "http://127.0.0.1/x");
    EXPECT_EQ(store.get("state.suu.currentset.version"), "2.02 B1");
    EXPECT_THROW(lab::ConfigStore(directory.file("no/such/config.db")), std::runtime_error);
}

} // namespace
