// Fuzz target: an update whose server answers as the input says, one step for each request, and
// correctly when the input has ended.

#include "fuzz/Container.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/Script.h"
#include "update/rig/Terminal.h"

using namespace rig;

namespace {

constexpr unsigned Hours = 3600;
constexpr int MostLives = 4; // of a daemon that ends as stated
constexpr uint64_t MaximumBytesOnDisk = 400000;

// Parts under the names and versions of the wanted image, of other lengths.
imagefile::Bytes imageOfOthers() {
    std::vector<PoolSpec> pools = standardPools();
    for (PoolSpec& pool : pools)
        pool.bodySize += 4;
    return makeImage(7, pools).build();
}

enum Step { Right, Cut, Flip, Longer, Others, Mended, Failing, Whole, Steps };

// Changes an answer. False when bytes may be wrong behind CRCs that fit: nothing can tell them.
bool play(fuzz::Script& script, imagefile::Bytes& answer, ScriptedServer& server) {
    static const imagefile::Bytes others = imageOfOthers();
    const unsigned step = script.byte() % Steps;
    switch (step) {
    case Cut:
        answer.resize(answer.size() * script.byte() / 256);
        break;
    case Flip:
        script.flipIn(answer);
        break;
    case Longer:
        answer.insert(answer.end(), size_t{script.byte()} * 16, script.byte());
        break;
    case Others: { // the same range of another image
        const std::string range = server.ranges().back();
        const size_t first = std::stoul(range);
        const size_t size = std::min(answer.size(), others.size() - std::min(others.size(), first));
        answer.assign(others.begin() + static_cast<long>(others.size() - size), others.end());
        if (first < others.size())
            answer.assign(others.begin() + static_cast<long>(first),
                          others.begin() + static_cast<long>(first + size));
        break;
    }
    case Mended:
        script.flipIn(answer);
        if (answer.size() >= 64)
            fuzz::mend(answer,
                       std::stoul(server.ranges().back()) == 0 ? fuzz::Layout::Image
                                                               : fuzz::Layout::ContentPart,
                       true);
        return false;
    case Failing:
        server.faults.assign(1 + script.byte() % 3, static_cast<rig::Fault>(script.byte() % FaultCount));
        break;
    case Whole:
        answer = others;
        break;
    default:
        break;
    }
    return step != Others && step != Whole;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Script script(data, size);
    bool isTellable = true;
    Terminal terminal;
    terminal.server.alter = [&](imagefile::Bytes& answer) {
        if (!script.isOver() && !play(script, answer, terminal.server))
            isTellable = false;
    };
    prepare(terminal, 7);
    for (int life = 0; life < MostLives && !terminal.config.isReadyForVersion(); ++life) {
        terminal.runUntilSettled(14 * Hours);
        FUZZ_REQUIRE(terminal.bytesOnDisk() <= MaximumBytesOnDisk);
        terminal.server.alter = nullptr; // one life at most has wrong answers
        if (terminal.isTerminated())
            terminal.restart();
    }
    if (!terminal.config.isReadyForVersion() || (isTellable && !terminal.violations().empty()))
        fprintf(stderr, "action %d, %zu requests\n", terminal.action(), terminal.server.ranges().size());
    FUZZ_REQUIRE(terminal.config.isReadyForVersion());
    FUZZ_REQUIRE(!isTellable || terminal.violations().empty());
    return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned /*seed*/) {
    // More steps than an update has requests only take time.
    return LLVMFuzzerMutate(data, size, maxSize < 120 ? maxSize : 120);
}
