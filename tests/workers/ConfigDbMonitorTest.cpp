// The monitor on a real bus and a real database, which another process writes. Times are scaled down.
#include "workers/ConfigDbMonitor.h"

#include "common/Noticeboard.h"
#include "lab/BusObserver.h"
#include "support/TestPlatform.h"
#include "workers/WorkerQueues.h"
#include "workitems/FileScanRequest.h"
#include "workitems/IsUpdateNeededRequest.h"
#include "workitems/SetReadyForUpdateRequest.h"
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sqlite3.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using Strings = std::vector<std::string>;
using Values = std::map<std::string, std::string>;

const std::string ReadyOn = "event_handler.forwardEventReport 01000100000000000000000002000000";
const std::string ReadyOff = "event_handler.forwardEventReport 01000100000000000000000001000000";
const std::string DisabledOn = "event_handler.forwardEventReport 02a00000000000000000000002000000";
const std::string DisabledOff = "event_handler.forwardEventReport 02a00000000000000000000001000000";

const std::string Device = "cfg.device.configuration.";
const std::string ForceKey = "cfg.fw_force";
const std::string ReadyKey = "cfg.fw_ready_for_install";

// The configured version is 2.03-B17; the installed one is `installed`.
Values configured(const std::string& installed, const Values& more = {}) {
    Values values = {{"cfg.config.status", "complete"}, {"state.suu.currentset.version", installed},
                     {Device + "major_version", "2"},   {Device + "minor_version", "3"},
                     {Device + "build_label", "B17"},   {Device + "sw_update_url", "http://h/image"}};
    for (const auto& [key, value] : more)
        values[key] = value;
    return values;
}

const std::string Current = "2.03 B17";
const std::string Old = "2.02 B16";

// Access to the pause between attempts to connect.
struct ConnectPause : ConfigDbMonitor {
    static void set(unsigned milliseconds) { sConnectPauseMs = milliseconds; }
};

class ConfigDbMonitorTest : public testing::Test, protected WorkerQueues {
  protected:
    explicit ConfigDbMonitorTest(const std::string& timeScale = "1000")
        : scale("VEX_TIME_SCALE", timeScale) {}
    ~ConfigDbMonitorTest() override {
        monitor.reset();
        while (out.size() > 0)
            delete out.remove();
        ConnectPause::set(1000);
    }

    // Stores values as another process does.
    static void set(const Values& values) {
        std::string command = VEXCTL_PROGRAM " config set";
        for (const auto& [key, value] : values)
            command.append(" '").append(key).append("' '").append(value).append("'");
        ASSERT_EQ(system(command.c_str()), 0);
    }

    // Lets the database refuse every write of a key.
    void refuseWrites(const std::string& key) const {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(platform.database().c_str(), &database), SQLITE_OK);
        const std::string trigger = "CREATE TRIGGER refuse BEFORE INSERT ON config WHEN NEW.key = '" + key +
                                    "' BEGIN SELECT RAISE(ABORT, 'refused'); END";
        EXPECT_EQ(sqlite3_exec(database, trigger.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
    }

    // The value of a key; empty when it is absent.
    static std::string get(const std::string& key) {
        FILE* process = popen((VEXCTL_PROGRAM " config get " + key + " 2>/dev/null").c_str(), "r");
        char line[1000] = "";
        const bool read = fgets(line, sizeof line, process) != nullptr;
        pclose(process);
        return read ? std::string(line, strcspn(line, "\n")) : "";
    }

    void start() {
        monitor = std::make_unique<ConfigDbMonitor>(in, out);
        ASSERT_EQ(monitor->start(), 0);
    }

    // Waits until the monitor listens to change notices.
    void startListening() {
        start();
        ASSERT_TRUE(eventually([&] { return log.count("FdLoop start looping") == 1; }));
    }

    // The next item for the master, of the type that the caller expects.
    template <typename Item>
    std::unique_ptr<Item> take(FwWorkItem::WorkItemType type) {
        if (!eventually([&] { return out.size() > 0; }))
            throw std::runtime_error("no item");
        FwWorkItem* item = out.remove();
        if (item->getWorkItemType() != type)
            throw std::runtime_error("unexpected " + item->toString());
        return std::unique_ptr<Item>(static_cast<Item*>(item));
    }

    std::unique_ptr<ConfigDbStatusEvent> takeStatus() {
        return take<ConfigDbStatusEvent>(FwWorkItem::ConfigDbStatusEvent);
    }

    testing::AssertionResult signalsAre(const Strings& expected) {
        if (eventually([&] { return observer.signals().size() >= expected.size(); }) &&
            observer.signals() == expected)
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << testing::PrintToString(observer.signals());
    }

    support::TestPlatform platform;
    const support::ScopedEnvironment scale;
    lab::BusObserver observer;
    const std::string imageName = platform.directory().file("update-2.03-B17.image");
    std::unique_ptr<ConfigDbMonitor> monitor;
};

// Image that is flagged.
enum Ready {
    None,
    RightVersion,
    RightButMissing,
    RightButDirectory,
    WrongVersion,
    LongerVersion,
    DigitBefore
};
enum After { Keeps, Erases, ErasesAndDeletes }; // the flags, and what the master is asked to delete

constexpr auto UpToDate = ConfigDbStatusEvent::ConfigNoUpdateNeeded;
constexpr auto GetNew = ConfigDbStatusEvent::ConfigGetNewFirmware;
constexpr auto Wait = ConfigDbStatusEvent::ConfigWaitForUpdate;

// First status: what is configured and flagged as ready, and what follows.
struct StatusRow {
    const char* name;
    Values values;
    Ready ready;
    ConfigDbStatusEvent::ConfigDbStatus status;
    std::string version;
    After after;
    Strings signals;

    friend std::ostream& operator<<(std::ostream& out, const StatusRow& row) { return out << row.name; }
};

std::vector<StatusRow> statusRows() {
    const Values old = configured(Old);
    const Values current = configured(Current);
    const Strings same = {DisabledOff, ReadyOff};
    const Strings off = {ReadyOff};
    const Strings disabled = {DisabledOn, ReadyOff};
    const auto with = [](const std::string& key, const std::string& value,
                         const std::string& installed = Old) {
        return configured(installed, {{key, value}});
    };
    return {
        {"Same", current, None, UpToDate, "2.03-B17", Keeps, same},
        {"SameAndReady", current, RightVersion, UpToDate, "2.03-B17", ErasesAndDeletes, same},
        {"SameTwoDigits", with(Device + "minor_version", "12", "2.12 B17"), None, UpToDate, "2.12-B17", Keeps,
         same},
        {"New", old, None, GetNew, "2.03-B17", Keeps, off},
        {"NewByAnEmptyLabel", with(Device + "build_label", "", Current), None, GetNew, "2.03-", Keeps, off},
        {"NewByADash", configured("2.03-B17"), None, GetNew, "2.03-B17", Keeps, off},
        {"ReadyForAnother", old, WrongVersion, GetNew, "2.03-B17", ErasesAndDeletes, off},
        {"ReadyForALongerLabel", old, LongerVersion, GetNew, "2.03-B17", ErasesAndDeletes, off},
        {"ReadyForALongerNumber", old, DigitBefore, GetNew, "2.03-B17", ErasesAndDeletes, off},
        {"Ready", old, RightVersion, Wait, "2.03-B17", Keeps, {ReadyOn}},
        {"ReadyButMissing", old, RightButMissing, GetNew, "2.03-B17", Erases, off},
        {"ReadyButADirectory", old, RightButDirectory, GetNew, "2.03-B17", Erases, off},
        {"Incomplete", with("cfg.config.status", "pending"), None, UpToDate, "2.03-B17", Keeps, off},
        {"NothingInstalled", configured(""), None, UpToDate, "2.03-B17", Keeps, off},
        {"Disabled", with("state.fw_download.disabled", "1"), None, UpToDate, "2.03-B17", Keeps, disabled},
        {"NotDisabled", with("state.fw_download.disabled", "0"), None, GetNew, "2.03-B17", Keeps, off},
        {"NoConfiguration", {{"unrelated", "1"}}, None, UpToDate, ".00-", Keeps, off},
    };
}

class ConfigDbStatusTest : public ConfigDbMonitorTest, public testing::WithParamInterface<StatusRow> {};

TEST_P(ConfigDbStatusTest, Row) {
    const StatusRow& row = GetParam();
    const std::map<Ready, const char*> otherNames = {{WrongVersion, "update-2.02-B16"},
                                                     {LongerVersion, "update-2.03-B170"},
                                                     {DigitBefore, "update-12.03-B17"}};
    const auto other = otherNames.find(row.ready);
    const std::string ready =
        other != otherNames.end() ? platform.directory().file(other->second) : imageName;
    if (row.ready == RightVersion || other != otherNames.end())
        std::ofstream(ready) << "image";
    if (row.ready == RightButDirectory)
        fs::create_directory(ready);
    set(row.values);
    set({{ForceKey, "1"}, {ReadyKey, row.ready == None ? "" : ready}});
    start();
    const auto event = takeStatus();
    EXPECT_STREQ(ConfigDbStatusEvent::getString(event->getConfigDbStatus()),
                 ConfigDbStatusEvent::getString(row.status));
    EXPECT_EQ(event->getVersion(), row.version);
    EXPECT_EQ(event->getUrl(), row.values.count("unrelated") != 0 ? "" : "http://h/image");
    EXPECT_TRUE(event->isForceUpdate());
    EXPECT_EQ(event->getDeleteReadyForUpdateFile(), row.after == ErasesAndDeletes ? ready : "");
    EXPECT_TRUE(signalsAre(row.signals));
    EXPECT_EQ(get(ReadyKey), row.after == Keeps && row.ready != None ? ready : "");
    EXPECT_EQ(get(ForceKey), row.after == Keeps ? "1" : "");
    EXPECT_EQ(fs::exists(ready),
              row.ready != None && row.ready != RightButMissing); // it deletes nothing itself
}

INSTANTIATE_TEST_SUITE_P(Configurations, ConfigDbStatusTest, testing::ValuesIn(statusRows()),
                         [](const auto& row) { return row.param.name; });

// The timer does not come before the notices.
class ConfigNoticeTest : public ConfigDbMonitorTest {
  protected:
    ConfigNoticeTest() : ConfigDbMonitorTest("10") {}

    void startAndNotify(const std::string& notice) {
        startListening();
        observer.send("evt.confd.unrelated");
        observer.send(notice);
    }
};

TEST_F(ConfigNoticeTest, NewVersionReplacesTheFirstStatus) {
    set(configured(Old, {{Device + "force_sw_update", "1"}}));
    startAndNotify("evt.confd.updated");
    const auto event = take<NewFirmwareNeededEvent>(FwWorkItem::NewFirmwareNeededEvent);
    EXPECT_EQ(event->getVersion(), "2.03-B17");
    EXPECT_EQ(event->getUrl(), "http://h/image");
    EXPECT_TRUE(event->isForceUpdate());
    EXPECT_EQ(event->getReadyFlag(), NewFirmwareNeededEvent::ReadyFlagAbsent);
    EXPECT_EQ(get(ForceKey), "1");
    EXPECT_TRUE(
        log.has("LOG_INFO ConfigDbMonitor::resetTimerToRunningInterval() Changing timer interval to 1 s."));

    // The timer runs at once, and sends no status.
    IsUpdateNeededRequest question;
    ASSERT_TRUE(isAnswered(question));
    EXPECT_TRUE(question.isUpdateNeeded());
    EXPECT_EQ(observer.signals(), Strings());
}

TEST_F(ConfigNoticeTest, AnotherVersionTakesTheOldFlagAwayAndNothingElse) {
    const std::string old = platform.directory().file("update-2.03-B170");
    set(configured(Old, {{ForceKey, "1"}, {ReadyKey, old}}));
    startAndNotify("evt.confd.updated");
    const auto event = take<NewFirmwareNeededEvent>(FwWorkItem::NewFirmwareNeededEvent);
    EXPECT_EQ(event->getReadyFlag(), NewFirmwareNeededEvent::ReadyFlagAbsent);
    EXPECT_EQ(event->getDeleteReadyForUpdateFile(), old);
    EXPECT_TRUE(signalsAre({ReadyOff}));
    EXPECT_EQ(get(ReadyKey), "");
    EXPECT_EQ(get(ForceKey), "1");

    set({{ReadyKey, imageName}});
    observer.send("evt.confd.updated");
    const auto again = take<NewFirmwareNeededEvent>(FwWorkItem::NewFirmwareNeededEvent);
    EXPECT_EQ(again->getReadyFlag(), NewFirmwareNeededEvent::ReadyFlagPresent);
    EXPECT_EQ(again->getDeleteReadyForUpdateFile(), "");
    EXPECT_EQ(get(ReadyKey), imageName);
}

TEST_F(ConfigNoticeTest, ForceOfThisUpdateIsNotOverwritten) {
    set(configured(Old, {{Device + "force_sw_update", "1"}, {ForceKey, "0"}}));
    startAndNotify("evt.confd.updated");
    EXPECT_FALSE(take<NewFirmwareNeededEvent>(FwWorkItem::NewFirmwareNeededEvent)->isForceUpdate());
}

TEST_F(ConfigNoticeTest, NoNewVersionTidiesUp) {
    set(configured(Current, {{ReadyKey, imageName}, {ForceKey, "1"}}));
    startAndNotify("evt.confd.updated");
    EXPECT_TRUE(signalsAre({DisabledOff, ReadyOff}));
    EXPECT_EQ(get(ReadyKey) + get(ForceKey), "");
    ASSERT_TRUE(eventually([&] { return log.count("resetTimerToRunningInterval") == 1; }));
    EXPECT_EQ(out.size(), 0);
    observer.send("evt.confd.updated");
    EXPECT_TRUE(eventually([&] { return log.count("No need for new firmware.") == 2; }));
    EXPECT_EQ(log.count("No update is needed, 2.03-B17 is installed."), 1U);
    set(configured(Old, {{"state.fw_download.disabled", "1"}}));
    observer.send("evt.confd.updated");
    EXPECT_TRUE(eventually([&] { return log.count("Version 2.03-B17 is not downloaded, ") == 1; }));
}

TEST_F(ConfigNoticeTest, PushEndsAForcedUpdate) {
    set(configured(Old, {{ReadyKey, imageName}, {ForceKey, "1"}}));
    startAndNotify("evt.confd.push");
    EXPECT_TRUE(eventually([&] { return get(ForceKey).empty(); }));
    EXPECT_EQ(get(ReadyKey), imageName);
    EXPECT_EQ(out.size(), 0);
}

TEST_F(ConfigNoticeTest, OneItemIsHandledPerTick) {
    set(configured(Current));
    startAndNotify("evt.confd.updated");
    IsUpdateNeededRequest questions[3];
    for (IsUpdateNeededRequest& question : questions)
        in.add(&question);
    Clock::time_point answered[3];
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(isReturned(questions[i]));
        answered[i] = Clock::now();
        EXPECT_FALSE(questions[i].isUpdateNeeded());
    }
    for (int i = 1; i < 3; ++i) // a tick is 100 ms here
        EXPECT_GT(answered[i] - answered[i - 1], std::chrono::milliseconds(60));
}

TEST_F(ConfigDbMonitorTest, FlagsAnImageAsReadyAndAsksForTheRebootOfAForcedUpdate) {
    set(configured(Old));
    start();
    takeStatus();
    SetReadyForUpdateRequest request(platform.directory().path() + "/./update-2.03-B17.image");
    const auto status = [&] {
        EXPECT_TRUE(isAnswered(request));
        return request.getSetReadyStatus();
    };
    EXPECT_EQ(status(), SetReadyForUpdateRequest::SetReadyFailed); // no such file
    EXPECT_EQ(get(ReadyKey), "");
    std::ofstream(imageName) << "image";
    EXPECT_EQ(status(), SetReadyForUpdateRequest::SetReadyComplete);
    EXPECT_EQ(get(ReadyKey), fs::canonical(imageName));
    set({{ForceKey, "1"}});
    EXPECT_EQ(status(), SetReadyForUpdateRequest::SetReadyComplete);
    EXPECT_TRUE(signalsAre({ReadyOff, ReadyOff, ReadyOn, "request.sm.set.Reboot", ReadyOn}));
    EXPECT_FALSE(request.isNotNeeded());

    // A flag that is not written is no reason to reboot: the next start would be the same.
    set({{ReadyKey, "before"}});
    refuseWrites(ReadyKey);
    EXPECT_EQ(status(), SetReadyForUpdateRequest::SetReadyFailed);
    EXPECT_TRUE(signalsAre({ReadyOff, ReadyOff, ReadyOn, "request.sm.set.Reboot", ReadyOn, ReadyOff}));
}

TEST_F(ConfigDbMonitorTest, FlagsNothingThatIsInstalledByNow) {
    set(configured(Current));
    start();
    takeStatus();
    std::ofstream(imageName) << "image";
    SetReadyForUpdateRequest request(imageName);
    EXPECT_TRUE(isAnswered(request));
    EXPECT_EQ(request.getSetReadyStatus(), SetReadyForUpdateRequest::SetReadyFailed);
    EXPECT_TRUE(request.isNotNeeded());
    EXPECT_EQ(get(ReadyKey), "");
}

TEST_F(ConfigDbMonitorTest, OtherItemsAreDroppedAndStopEndsTheThread) {
    start();
    takeStatus();
    FileScanRequest other("/");
    EXPECT_TRUE(dropsAndStops(other));
}

TEST_F(ConfigDbMonitorTest, WithoutADatabaseItIsIdleUntilItIsStopped) {
    ConnectPause::set(1);
    const support::ScopedEnvironment database("VEX_CONFIGDB", platform.directory().file("missing/config.db"));
    startListening();
    EXPECT_EQ(log.count("LOG_ERR ConfigDbMonitor::connect() Failure connecting to configdb, retrying."), 4U);
    EXPECT_TRUE(log.has("LOG_ERR ConfigDbMonitor::connect() Failure connecting to configdb, giving up."));
    EXPECT_FALSE(Noticeboard::instance().content().failures.at(Noticeboard::Failure::Database).isOver);
    IsUpdateNeededRequest question;
    in.add(&question);
    observer.send("evt.confd.updated");
    usleep(400000); // the first status would be due, and many ticks
    EXPECT_EQ(out.size(), 0);
    EXPECT_LT(stopTime(monitor), PromptStop);
}

TEST_F(ConfigDbMonitorTest, WithoutABusItGivesUpAfterAHundredAttempts) {
    ConnectPause::set(1);
    platform.bus().stop();
    startListening();
    EXPECT_EQ(log.count("LOG_ERR ConfigDbMonitor::connect() Failure connecting to cbus, retrying."), 99U);
    EXPECT_TRUE(log.has("LOG_ERR ConfigDbMonitor::connect() Failure connecting to cbus, giving up."));
    EXPECT_FALSE(Noticeboard::instance().content().failures.at(Noticeboard::Failure::Bus).isOver);
    EXPECT_LT(stopTime(monitor), PromptStop);
}

TEST_F(ConfigDbMonitorTest, UnconnectedCallsYieldNothing) {
    ConfigDbMonitor idle(in, out);
    std::ofstream(imageName) << "image";
    EXPECT_EQ(idle.getReadyForFirmwareInstall(), "");
    EXPECT_EQ(idle.getSwVersion(), ".00-");
    EXPECT_FALSE(idle.setReadyForFirmwareInstall(imageName));
    EXPECT_FALSE(idle.delReadyForFirmwareInstall());
    idle.onCBusSignal(nullptr, nullptr, 0);
    idle.onWorkItem(nullptr);
    EXPECT_EQ(log.count("LOG_DEBUG Downloader::onWorkItem() Work item is NULL!"), 1U);
    idle.onIsUpdateNeededRequest(nullptr);
    idle.onSetReadyForUpdateRequest(nullptr);
    EXPECT_EQ(out.size(), 0);
}

TEST_F(ConfigDbMonitorTest, StopsPromptlyInEveryState) {
    startListening();
    EXPECT_LT(stopTime(monitor), PromptStop); // the loop waits
    EXPECT_EQ(log.count("ConfigDbMonitor::disconnect()"), 0U);

    platform.bus().stop();
    start();
    ASSERT_TRUE(eventually([&] { return log.count("Failure connecting to cbus, retrying.") == 1; }));
    EXPECT_LT(stopTime(monitor), PromptStop); // between two attempts

    platform.bus().start();
    for (unsigned i = 0; i < 30; ++i) { // anywhere in between
        start();
        usleep(i * 300);
        EXPECT_LT(stopTime(monitor), PromptStop);
    }
}

} // namespace
