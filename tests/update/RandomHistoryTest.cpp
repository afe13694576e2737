// Random histories of faults, each from a seed: whatever happens, nothing wrong is flagged, requests stay
// few, the disk stays small, and when all is right again the update completes, by itself or after the daemon
// has ended as stated and was started anew.
//
// FW_HISTORY_SEEDS=FIRST-LAST runs other seeds than the usual 300. A failing seed prints its history.
#include "update/rig/Terminal.h"
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

using namespace rig;

namespace {

constexpr unsigned Minute = 60;
constexpr unsigned FaultyTicks = 40 * Minute;        // then everything is right again
constexpr unsigned PatienceTicks = 14 * 60 * Minute; // for what is left to the four-minute timer
constexpr uint64_t MaximumBytesOnDisk = 200000;      // images have 11 kB; whole-file answers add to that

// One thing that happens, as data: at `tick`, `what` with `argument`.
struct Row {
    unsigned tick;
    std::string what;
    unsigned argument;
};

class History {
  public:
    explicit History(unsigned seed) : mRandom(seed) {
        const unsigned rows = pick(1, 12);
        for (unsigned i = 0; i < rows; ++i)
            mRows.push_back(makeRow());
    }

    const std::vector<Row>& rows() const { return mRows; }
    unsigned pick(unsigned from, unsigned to) {
        return std::uniform_int_distribution<unsigned>(from, to)(mRandom);
    }

    std::string text() const {
        std::ostringstream text;
        for (const Row& row : mRows)
            text << "  " << row.tick << ": " << row.what << " " << row.argument << "\n";
        return text.str();
    }

  private:
    Row makeRow() {
        static const char* const kinds[] = {"fault",   "fault",   "fault",  "fault",   "lasting",
                                            "version", "restart", "kill",   "disable", "slow",
                                            "delete",  "damage",  "litter", "swap"};
        const char* kind = kinds[pick(0, sizeof kinds / sizeof *kinds - 1)];
        return {pick(1, FaultyTicks), kind, pick(0, 999)};
    }

    std::mt19937 mRandom;
    std::vector<Row> mRows;
};

void damageFile(const Terminal& terminal, unsigned argument, bool isDeletion) {
    const std::set<std::string> files = terminal.files();
    if (files.empty())
        return;
    const std::string name = *std::next(files.begin(), argument % static_cast<long>(files.size()));
    if (name.find("zemp") != std::string::npos) // the flagged image is the installer's
        return;
    if (isDeletion)
        remove(terminal.path(name).c_str());
    else
        terminal.write(name, bodyOf(argument, argument));
}

void happen(Terminal& terminal, const Row& row) {
    if (row.what == "fault")
        terminal.server.faults.assign(1 + row.argument % 5, static_cast<Fault>(row.argument % FaultCount));
    else if (row.what == "lasting")
        terminal.server.fault = static_cast<Fault>(row.argument % FaultCount);
    else if (row.what == "version")
        terminal.configure(versionOf(static_cast<uint16_t>(7 + row.argument % 3)));
    else if (row.what == "restart" || row.what == "kill")
        terminal.restart(row.what == "restart");
    else if (row.what == "disable")
        terminal.config.disabled = row.argument % 2 == 0;
    else if (row.what == "slow")
        terminal.downloadTicks = 1 + row.argument % 20;
    else if (row.what == "delete" || row.what == "damage")
        damageFile(terminal, row.argument, row.what == "delete");
    else if (row.what == "litter")
        terminal.write("ContentPart-" + std::to_string(row.argument), bodyOf(row.argument, 3));
    else if (row.what == "swap") // the parts stay as they are and move in the image
        terminal.publish("1.05-7",
                         makeImage(7, standardPools(), std::string(row.argument % 120 + 1, 'x') + "\n"));
}

void makeAllRight(Terminal& terminal) {
    terminal.server.faults.clear();
    terminal.server.fault = Fault::None;
    terminal.downloadTicks = 1;
    terminal.config.disabled = false;
    if (terminal.isTerminated())
        terminal.restart();
    terminal.notify();
}

std::pair<unsigned, unsigned> seedRange() {
    const char* text = getenv("FW_HISTORY_SEEDS");
    if (text == nullptr)
        return {1, 300};
    char* end = nullptr;
    const auto first = static_cast<unsigned>(strtoul(text, &end, 10));
    return {first, *end == '-' ? static_cast<unsigned>(strtoul(end + 1, nullptr, 10)) : first};
}

// Empty when the history ended well. `requests` is raised to the number of requests after the faults.
std::string live(unsigned seed, size_t& requests) {
    History history(seed);
    Terminal terminal;
    for (const uint16_t build : {uint16_t{8}, uint16_t{9}})
        terminal.publish(versionOf(build), makeImage(build));
    prepare(terminal, 7);
    for (unsigned tick = 1; tick <= FaultyTicks; ++tick) {
        for (const Row& row : history.rows()) {
            if (row.tick == tick)
                happen(terminal, row);
        }
        if (terminal.isTerminated())
            terminal.restart();
        terminal.tick();
        if (terminal.bytesOnDisk() > MaximumBytesOnDisk)
            return "the download directory grows";
    }
    const size_t before = terminal.server.ranges().size();
    makeAllRight(terminal);
    for (int lives = 0; lives < 2; ++lives) {
        terminal.runUntilSettled(PatienceTicks);
        if (!terminal.isTerminated())
            break;
        terminal.restart();
    }
    requests = std::max(requests, terminal.server.ranges().size() - before);
    std::string problems;
    for (const std::string& violation : terminal.violations())
        problems += violation + "; ";
    // A failed compile waits for a restart, and so does an image whose flag was taken back while it waited.
    if (!terminal.config.isReadyForVersion() && (terminal.action() == FwAction::ScanExistingFiles ||
                                                 terminal.action() == FwAction::WaitForFwUpdate)) {
        terminal.restart();
        terminal.runUntilSettled(PatienceTicks);
    }
    if (!terminal.isReady())
        return problems + "not ready, action " + std::to_string(terminal.action());
    if (!terminal.config.isReadyForVersion())
        return problems + "flagged the wrong version";
    const std::string wrong = terminal.checkReadyImage();
    return wrong.empty() ? problems : problems + wrong;
}

} // namespace

TEST(RandomHistory, EndsWellForEverySeed) {
    const auto [first, last] = seedRange();
    size_t mostRequests = 0;
    unsigned failed = 0;
    for (unsigned seed = first; seed <= last; ++seed) {
        size_t requests = 0;
        const std::string problem = live(seed, requests);
        mostRequests = std::max(mostRequests, requests);
        if (problem.empty())
            continue;
        ++failed;
        ADD_FAILURE() << "seed " << seed << ": " << problem << "\n" << History(seed).text();
        if (failed == 5)
            break;
    }
    std::cout << "seeds " << first << " to " << last << ", at most " << mostRequests
              << " requests after the faults\n";
    EXPECT_LE(mostRequests, 120u);
}
