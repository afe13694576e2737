// Random histories of faults, each from a seed: whatever happens, nothing wrong is flagged, requests stay
// few, the disk stays small, and when all is right again the update completes, by itself or after the daemon
// has ended as stated and was started anew.
//
// FW_HISTORY_SEEDS=FIRST-LAST runs other seeds than the usual 300, or 100 with seals. A failing seed prints
// its history.
#include "support/LogCapture.h"
#include "update/rig/Terminal.h"
#ifdef FW_SEAL
#include "update/rig/SealedTerminal.h"
#endif
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <sstream>
#include <sys/stat.h>

using namespace rig;
namespace fs = std::filesystem;

namespace {

constexpr unsigned Minute = 60;
constexpr unsigned FaultyTicks = 40 * Minute;        // then everything is right again
constexpr unsigned PatienceTicks = 14 * 60 * Minute; // for what is left to the four-minute timer
constexpr uint64_t SmallDisk = 20000;                // holds one version, its image, and that image once more
constexpr uint64_t MaximumBytesOnDisk = 200000;      // images have 11 kB; whole-file answers add to that

// A version's number in 1.05-N.
uint16_t buildFrom(unsigned argument) {
    return static_cast<uint16_t>(7 + argument % 3);
}

// A file of the download directory, its full path; empty when there is none. The flagged image is the
// installer's.
std::string anyFile(const Terminal& terminal, unsigned argument) {
    const std::set<std::string> files = terminal.files();
    if (files.empty())
        return "";
    const std::string name = *std::next(files.begin(), argument % static_cast<long>(files.size()));
    return name.find("zemp") != std::string::npos ? "" : terminal.path(name);
}

// Something that is no file stands where the daemon has one, or is about to write an image.
void replaceByOtherKind(Terminal& terminal, unsigned argument) {
    std::string path = anyFile(terminal, argument / 4);
    if (argument % 3 == 0)
        path = terminal.path("fw_download_update.zemp-" + terminal.config.version + ".part");
    if (path.empty())
        return;
    std::error_code none;
    fs::remove_all(path, none);
    if (argument % 4 == 0)
        fs::create_directory(path, none);
    else if (argument % 4 == 1)
        mkfifo(path.c_str(), 0644);
    else if (argument % 4 == 2)
        fs::create_symlink("nowhere", path, none);
    else
        fs::create_symlink(terminal.path("../elsewhere"), path, none);
}

// The same names and versions as in another release, with other bytes of another length.
void rebuildUnderOldVersions(Terminal& terminal, unsigned argument) {
    std::vector<PoolSpec> pools = standardPools();
    for (size_t i = 0; i < pools.size(); ++i) {
        if ((argument >> i & 1U) == 0)
            continue;
        pools[i].bodySize += size_t{4} * (1 + argument % 3);
        pools[i].partBuild = buildFrom(argument + 1);
    }
    const uint16_t build = buildFrom(argument);
    terminal.publish(versionOf(build), makeImage(build, pools));
}

// What may happen, by name.
struct Kind {
    const char* name;
    void (*happen)(Terminal& terminal, unsigned argument);
};

const Kind Kinds[] = {
    {"fault",
     [](Terminal& terminal, unsigned argument) {
         terminal.server.faults.assign(1 + argument % 5, static_cast<Fault>(argument % FaultCount));
     }},
    {"lasting", [](Terminal& terminal,
                   unsigned argument) { terminal.server.fault = static_cast<Fault>(argument % FaultCount); }},
    {"version",
     [](Terminal& terminal, unsigned argument) {
         terminal.configure(versionOf(argument % 10 == 0 ? uint16_t{70} : buildFrom(argument)));
     }},
    {"restart", [](Terminal& terminal, unsigned) { terminal.restart(); }},
    {"kill", [](Terminal& terminal, unsigned) { terminal.restart(false); }},
    {"disable", [](Terminal& terminal, unsigned argument) { terminal.config.disabled = argument % 2 == 0; }},
    {"slow", [](Terminal& terminal, unsigned argument) { terminal.downloadTicks = 1 + argument % 20; }},
    {"delete", [](Terminal& terminal, unsigned argument) { remove(anyFile(terminal, argument).c_str()); }},
    {"damage",
     [](Terminal& terminal, unsigned argument) {
         const fs::path path = anyFile(terminal, argument);
         if (!path.empty())
             terminal.write(path.filename(), bodyOf(argument, argument));
     }},
    {"litter",
     [](Terminal& terminal, unsigned argument) {
         terminal.write("ContentPart-" + std::to_string(argument), bodyOf(argument, 3));
     }},
    {"swap", // the parts stay as they are and move in the image
     [](Terminal& terminal, unsigned argument) {
         terminal.publish("1.05-7",
                          makeImage(7, standardPools(), std::string(argument % 120 + 1, 'x') + "\n"));
     }},
    {"notice", [](Terminal& terminal, unsigned) { terminal.notify(); }},
    {"force", [](Terminal& terminal, unsigned argument) { terminal.config.forced = argument % 2 == 0; }},
    {"flag", [](Terminal& terminal, unsigned) { terminal.config.ready.clear(); }},
    {"incomplete",
     [](Terminal& terminal, unsigned) {
         terminal.config.status = "incomplete";
         terminal.notify();
         terminal.config.status = "complete";
     }},
    {"installed", [](Terminal& terminal, unsigned) { terminal.config.installed = terminal.config.version; }},
    {"reads",
     [](Terminal& terminal, unsigned argument) { terminal.config.failingReads = 1 + argument % 12; }},
    {"writes",
     [](Terminal& terminal, unsigned argument) { terminal.config.failingWrites = 1 + argument % 2; }},
    {"rest", [](Terminal& terminal, unsigned argument) { terminal.handlerRests = 1 + argument % 10; }},
    {"rebuilt", rebuildUnderOldVersions},
    {"disk",
     [](Terminal& terminal, unsigned argument) { terminal.diskSize = SmallDisk + size_t{10} * argument; }},
    {"full", [](Terminal& terminal, unsigned argument) { terminal.diskSize = 3000 + size_t{10} * argument; }},
    {"kind", replaceByOtherKind},
    {"gone",
     [](Terminal& terminal, unsigned argument) {
         fs::remove_all(terminal.path(""));
         if (argument % 2 == 0)
             std::ofstream(terminal.path("")) << "no directory";
     }},
};

// One thing that happens, as data: in `tick`, after `step` of its steps, with `argument`.
struct Row {
    unsigned tick;
    unsigned step;
    const Kind* kind;
    unsigned argument;
};

#ifdef FW_SEAL
// An image with one body, of the `index`th part, forged so that its checksum stays.
imagefile::ImageBuilder forgedImage(uint16_t build, unsigned index) {
    imagefile::ImageBuilder image = makeImage(build);
    imagefile::Bytes& body = image.at(index % image.count()).body;
    if (body.size() > 100)
        body = forgeBody(body);
    else
        body.front() ^= 0x20;
    return image;
}

// What may happen besides where releases are sealed.
const Kind ForgingKinds[] = {
    {"forge", // a part or the start, whose checksums are right
     [](Terminal& terminal, unsigned argument) {
         const uint16_t build = buildFrom(argument);
         const imagefile::ImageBuilder image = forgedImage(build, argument / 3);
         const size_t index = argument / 3 % image.count();
         imagefile::Bytes& served = terminal.server.images[Terminal::urlOf(versionOf(build))];
         const imagefile::Bytes part = image.buildPart(index);
         if (served.size() == image.size())
             std::copy(part.begin(), part.end(), served.begin() + static_cast<long>(image.offsetOf(index)));
     }},
    {"mixed", // parts of another release
     [](Terminal& terminal, unsigned argument) {
         const uint16_t build = buildFrom(argument);
         imagefile::ImageBuilder image = makeImage(build);
         image.at(2 + argument / 3 % 5) = makeImage(buildFrom(argument + 1)).at(2 + argument / 3 % 5);
         terminal.server.images[Terminal::urlOf(versionOf(build))] = image.build();
     }},
    {"planted",
     [](Terminal& terminal, unsigned argument) {
         const size_t index = 2 + argument / 3 % 5;
         const imagefile::ImageBuilder image = forgedImage(buildFrom(argument), static_cast<unsigned>(index));
         terminal.write("ContentPart-" + std::to_string(argument), image.buildPart(index));
     }},
    {"seal", // another one, or none
     [](Terminal& terminal, unsigned argument) {
         const std::string version = versionOf(buildFrom(argument));
         SealedTerminal& sealed = dynamic_cast<SealedTerminal&>(terminal);
         sealed.seal(versionOf(buildFrom(argument + 1)), "by another", support::SealSigner(argument % 2));
         sealed.serveSeal(version, argument % 3 == 0 ? "none" : "fw-seal 1\n");
     }},
    {"keys",
     [](Terminal& terminal, unsigned argument) {
         dynamic_cast<SealedTerminal&>(terminal).trust(
             "next.pub", argument % 2 == 0 ? "" : support::SealSigner(3).keyFile());
     }},
    {"forged image",
     [](Terminal& terminal, unsigned) {
         const imagefile::ImageBuilder image = forgedImage(7, 2);
         if (terminal.isReady())
             terminal.write(fs::path(terminal.config.ready).filename(), image.build());
         terminal.restart();
     }},
};

std::unique_ptr<Terminal> makeTerminal(bool isSealed) {
    return isSealed ? std::make_unique<SealedTerminal>() : std::make_unique<Terminal>();
}

void makeHonest(Terminal& terminal) {
    if (auto* const sealed = dynamic_cast<SealedTerminal*>(&terminal))
        sealed->makeHonest();
}

const std::vector<bool> Worlds = {false, true};
#else
const std::vector<Kind> ForgingKinds;
const std::vector<bool> Worlds = {false};
std::unique_ptr<Terminal> makeTerminal(bool /*isSealed*/) {
    return std::make_unique<Terminal>();
}
void makeHonest(Terminal& /*terminal*/) {}
#endif

class History {
  public:
    History(unsigned seed, bool isSealed) : mRandom(seed) {
        std::vector<const Kind*> kinds = {&Kinds[0], &Kinds[0], &Kinds[0]}; // most are faults of the server
        for (const Kind& kind : Kinds)
            kinds.push_back(&kind);
        for (const Kind& kind : ForgingKinds)
            if (isSealed)
                kinds.insert(kinds.end(), 3, &kind);
        const unsigned rows = pick(1, 12);
        for (unsigned i = 0; i < rows; ++i) {
            const Kind* const kind = kinds[pick(0, static_cast<unsigned>(kinds.size()) - 1)];
            mRows.push_back({pick(1, FaultyTicks), pick(0, 4), kind, pick(0, 999)});
        }
    }

    // What happens in this tick, in one step of it.
    void prepare(Terminal& terminal, unsigned tick) const {
        for (const Row& row : mRows) {
            if (row.tick != tick)
                continue;
            terminal.stepsBefore = row.step;
            terminal.between = [&terminal, &row] { row.kind->happen(terminal, row.argument); };
        }
    }

    std::string text() const {
        std::ostringstream text;
        for (const Row& row : mRows)
            text << "  " << row.tick << "." << row.step << ": " << row.kind->name << " " << row.argument
                 << "\n";
        return text.str();
    }

  private:
    unsigned pick(unsigned from, unsigned to) {
        return std::uniform_int_distribution<unsigned>(from, to)(mRandom);
    }

    std::mt19937 mRandom;
    std::vector<Row> mRows;
};

// Everything is as it should be but for the size of the disk. The daemon is told, as by a change notice.
void makeAllRight(Terminal& terminal) {
    terminal.server.faults.clear();
    terminal.server.fault = Fault::None;
    terminal.downloadTicks = 1;
    terminal.handlerRests = 0;
    makeHonest(terminal);
    if (terminal.diskSize < SmallDisk)
        terminal.diskSize = 0;
    if (fs::is_regular_file(terminal.path("")))
        fs::remove(terminal.path(""));
    std::error_code none; // a directory at the name of a file is not the daemon's to remove
    for (const fs::directory_entry& entry : fs::directory_iterator(terminal.path(""), none))
        if (entry.is_directory(none))
            fs::remove(entry, none);
    terminal.config.disabled = false;
    terminal.config.failingReads = 0;
    terminal.config.failingWrites = 0;
    terminal.config.installed = versionOf(0);
    // A flag whose image is gone is noticed at the next start.
    if (terminal.isTerminated() || (terminal.isReady() && !fs::exists(terminal.config.ready)))
        terminal.restart();
    terminal.notify();
}

// Files of the wanted version that the daemon has lost sight of.
std::string findLostFiles(const Terminal& terminal) {
    std::string lost;
    if (terminal.daemon->mUpdateHandler->getFileFragment(
            terminal.path("ZempStart-" + terminal.config.version)) == nullptr)
        return ""; // it has not looked at the directory
    for (const std::string& name : terminal.files())
        if (fs::path(name).string().find("Blob-" + terminal.config.version) != std::string::npos &&
            terminal.daemon->mUpdateHandler->getFileFragment(terminal.path(name)) == nullptr)
            lost += " lost " + name;
    return lost;
}

std::pair<unsigned, unsigned> seedRange(bool isSealed) {
    const char* text = getenv("FW_HISTORY_SEEDS");
    if (text == nullptr)
        return {1, isSealed ? 100 : 300};
    char* end = nullptr;
    const auto first = static_cast<unsigned>(strtoul(text, &end, 10));
    return {first, *end == '-' ? static_cast<unsigned>(strtoul(end + 1, nullptr, 10)) : first};
}

// Empty when the history ended well. `requests` is raised to the number of requests after the faults.
std::string live(unsigned seed, bool isSealed, size_t& requests) {
    const History history(seed, isSealed);
    const std::unique_ptr<Terminal> made = makeTerminal(isSealed);
    Terminal& terminal = *made;
    for (const uint16_t build : {uint16_t{8}, uint16_t{9}, uint16_t{70}})
        terminal.publish(versionOf(build), makeImage(build));
    prepare(terminal, 7);
    std::optional<support::LogCapture> errors;
    if (getenv("FW_RIG_LOG") == nullptr)
        errors.emplace(LogError);
    for (unsigned tick = 1; tick <= FaultyTicks; ++tick) {
        history.prepare(terminal, tick);
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
    if (errors && errors->count("UpdateHandler::setNextAction()") > 0)
        problems += "an action changed as the table of transitions does not say; ";
    for (const std::string& violation : terminal.violations())
        problems += violation + "; ";
    if (!terminal.isReady())
        return problems + "not ready, action " + std::to_string(terminal.action());
    if (!terminal.config.isReadyForVersion())
        return problems + "flagged the wrong version";
    const std::string wrong = terminal.checkReadyImage();
    return problems + wrong + findLostFiles(terminal);
}

} // namespace

class RandomHistory : public testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(, RandomHistory, testing::ValuesIn(Worlds),
                         [](const auto& test) { return std::string(test.param ? "Sealed" : "Unsealed"); });

TEST_P(RandomHistory, EndsWellForEverySeed) {
    const auto [first, last] = seedRange(GetParam());
    size_t mostRequests = 0;
    unsigned failed = 0;
    for (unsigned seed = first; seed <= last; ++seed) {
        size_t requests = 0;
        const std::string problem = live(seed, GetParam(), requests);
        mostRequests = std::max(mostRequests, requests);
        if (problem.empty())
            continue;
        ++failed;
        ADD_FAILURE() << "seed " << seed << ": " << problem << "\n" << History(seed, GetParam()).text();
        if (failed == 5)
            break;
    }
    std::cout << "seeds " << first << " to " << last << ", at most " << mostRequests
              << " requests after the faults\n";
    EXPECT_LE(mostRequests, 120u);
}
