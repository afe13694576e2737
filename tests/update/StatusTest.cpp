// What the status says in each state that the daemon can be in, against what the rig knows.
#include "support/LogCapture.h"
#include "update/rig/Terminal.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <thread>

using namespace rig;
using nlohmann::json;

namespace {

constexpr unsigned LongTicks = 40 * 60;

struct Row {
    const char* state;
    void (*arrange)(Terminal& terminal); // before the daemon's first tick
    void (*meet)(Terminal& terminal, const json& status);
};

void expectNothing(Terminal& /*terminal*/, const json& /*status*/) {}

const Row Rows[] = {
    {"starting", [](Terminal& terminal) { terminal.restart(false); }, expectNothing},
    {"idle", [](Terminal& terminal) { terminal.config.version = terminal.config.installed; },
     [](Terminal& terminal, const json& status) {
         EXPECT_EQ(status["action"], "NoAction");
         EXPECT_EQ(status["installed"], "1.05 0") << terminal.config.installed;
     }},
    {"disabled", [](Terminal& terminal) { terminal.config.disabled = true; },
     [](Terminal& /*terminal*/, const json& status) { EXPECT_EQ(status["disabled"], true); }},
    {"scanning", [](Terminal& terminal) { terminal.handlerRests = LongTicks; }, expectNothing},
    {"fetching", [](Terminal& terminal) { terminal.downloadTicks = 10; },
     [](Terminal& terminal, const json& status) {
         EXPECT_EQ(status["transfer"]["what"], "image start");
         terminal.tick(); // by now the downloader has it
         terminal.tick();
         const json later = json::parse(terminal.statusText());
         EXPECT_EQ(later["transfer"]["range"], "0-511");
         EXPECT_EQ(later["transfer"]["total"], 512);
         EXPECT_EQ(later["url"], "http://***@server/1.05-7.zemp");
     }},
    {"parsing", [](Terminal& /*terminal*/) {}, expectNothing},
    {"waiting-timer", [](Terminal& terminal) { terminal.server.fault = Fault::Refused; }, expectNothing},
    {"waiting-governor", [](Terminal& terminal) { terminal.server.fault = Fault::NotFound; },
     [](Terminal& /*terminal*/, const json& status) {
         EXPECT_GT(status["vainFetches"], 4);
         EXPECT_EQ(status["vainFetchLimit"], 46);
     }},
    {"compiling", [](Terminal& /*terminal*/) {},
     [](Terminal& terminal, const json& status) {
         ASSERT_EQ(status["elements"].size(), standardPools().size());
         for (const json& element : status["elements"]) {
             EXPECT_GE(element["bytes"], element["total"]) << element;
             EXPECT_GT(element["total"], 0) << element;
             EXPECT_TRUE(element["needed"].is_boolean()) << element;
         }
         EXPECT_EQ(terminal.action(), FwAction::CompileUpdateZempFile);
     }},
    {"compile-failed",
     [](Terminal& terminal) { terminal.compileFailure = ZempCreator::Failure::Surroundings; }, expectNothing},
    {"flagging", [](Terminal& /*terminal*/) {}, expectNothing},
    {"ready", [](Terminal& /*terminal*/) {},
     [](Terminal& terminal, const json& status) {
         EXPECT_EQ(status["readyImage"], terminal.config.ready);
         EXPECT_EQ(status["previousAction"], "SetReadyForUpdate");
     }},
    {"no-record", [](Terminal& terminal) { terminal.removeRecord(); },
     [](Terminal& /*terminal*/, const json& status) {
         EXPECT_EQ(status["failures"]["record"]["over"], false);
         EXPECT_TRUE(status["elements"][0]["needed"].is_null());
     }},
    {"no-bus",
     [](Terminal& /*terminal*/) {
         Noticeboard::instance().postFailure(Noticeboard::Failure::Bus, "a \"name\"\nis taken\xff");
     },
     [](Terminal& /*terminal*/, const json& status) {
         EXPECT_EQ(status["failures"]["bus"]["text"], "a \"name\"?is taken?");
         EXPECT_GT(status["failures"]["bus"]["time"], 0);
     }},
    {"no-database",
     [](Terminal& terminal) {
         terminal.restart(false);
         Noticeboard::instance().postFailure(Noticeboard::Failure::Database, "it cannot be opened");
     },
     [](Terminal& terminal, const json& /*status*/) {
         terminal.notify(); // the monitor reads from it
         terminal.tick();
         EXPECT_NE(json::parse(terminal.statusText())["state"], "no-database");
     }},
};

TEST(Status, TellsEachState) {
    for (const Row& row : Rows) {
        SCOPED_TRACE(row.state);
        const time_t begin = time(nullptr);
        Terminal terminal;
        prepare(terminal, 7);
        row.arrange(terminal);
        unsigned ticks = 0;
        do
            terminal.tick();
        while (status::getName(terminal.status().state) != std::string(row.state) && ++ticks < LongTicks &&
               !terminal.isTerminated());
        const json status = json::parse(terminal.statusText());
        EXPECT_EQ(status["state"], row.state);
        EXPECT_EQ(status["sentence"], status::getSentence(terminal.status().state));
        EXPECT_GE(status["since"], begin);
        row.meet(terminal, status);
        EXPECT_EQ(terminal.violations(), std::vector<std::string>());
    }
}

// A daemon that starts again with most parts on disk: they are told at once, and the rate of a file is never
// that of the one before.
TEST(Status, TellsWhatIsOnDiskBeforeTheWalkComesToIt) {
    Terminal terminal;
    prepare(terminal, 7);
    while (terminal.status().state != status::State::Compiling)
        terminal.tick();
    const std::vector<status::Element> complete = terminal.status().elements;
    for (const std::string& name : terminal.files())
        if (FileFragment::parseFragmentType(terminal.path(name)) == FileFragment::ZempStart)
            std::filesystem::remove(terminal.path(name));
    for (const std::string& name : terminal.files())
        if (std::filesystem::file_size(terminal.path(name)) > 3000 &&
            std::filesystem::file_size(terminal.path(name)) < 4000)
            std::filesystem::resize_file(terminal.path(name), 1000); // the kernel
    terminal.restart();
    terminal.downloadTicks = 5;
    std::string file;
    while (!(terminal.status().transfer && terminal.status().transfer->what == "kernel")) {
        terminal.tick();
        std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the rate is of the real clock
        const std::optional<status::Transfer>& transfer = terminal.status().transfer;
        if (transfer && transfer->filename != file) {
            EXPECT_EQ(transfer->rate, 0U) << transfer->filename;
            file = transfer->filename;
        }
    }
    EXPECT_GE(terminal.status().transfer->bytes, 1000U);
    const std::vector<status::Element> elements = terminal.status().elements;
    ASSERT_EQ(elements.size(), complete.size());
    EXPECT_LT(elements[0].bytes, elements[0].total);
    for (size_t i = 1; i < elements.size(); ++i)
        EXPECT_EQ(elements[i].bytes, complete[i].bytes) << elements[i].name;
}

TEST(Status, IsWrittenOnlyWhereThereIsADirectoryAndFailsQuietly) {
    const lab::TemporaryDirectory directory;
    const std::string name = directory.path() + "/run";
    const support::LogCapture log(LogWarning);
    const auto update = [](status::StatusFile& file) { file.update({}, nullptr); };

    status::StatusFile without(name);
    update(without);
    mkdir(name.c_str(), 0755);
    update(without);
    EXPECT_FALSE(std::filesystem::exists(name + "/status.json"));

    status::StatusFile with(name);
    update(with);
    struct stat file = {};
    ASSERT_EQ(stat((name + "/status.json").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777U, 0644U);
    update(with);
    struct stat again = {};
    stat((name + "/status.json").c_str(), &again);
    EXPECT_EQ(again.st_ino, file.st_ino) << "nothing changed, yet it was written";

    std::filesystem::remove_all(name);
    for (const char* text : {"one", "another"}) {
        Noticeboard::instance().postFailure(Noticeboard::Failure::Bus, text);
        update(with);
    }
    EXPECT_EQ(log.count("StatusFile::write()"), 1U);
    Noticeboard::instance().clear();
}

} // namespace
