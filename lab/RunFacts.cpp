#include "lab/RunFacts.h"

#include "imagefile/NumberText.h"
#include "lab/Descriptor.h"
#include <ctime>
#include <fstream>
#include <sstream>

namespace lab {

namespace {

constexpr size_t sDigits = 64;
constexpr Milliseconds sLongest{600000};
constexpr int sLimited = 7; // below that level the daemon limits its downloads

std::string dateText(time_t time) {
    tm utc = {};
    char text[40] = "";
    if (gmtime_r(&time, &utc) != nullptr)
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc);
    return text;
}

std::string orUnknown(const std::string& text) {
    return text.empty() ? "not known" : text;
}

} // namespace

RunFacts collectFacts(const LabOptions& options) {
    RunFacts facts;
    facts.date = dateText(time(nullptr));
    facts.labVersion = FW_LAB_VERSION;
    facts.verbosity = options.verbosity;
    facts.speed = options.speed;
    facts.timeScale = options.timeScale;
    return facts;
}

std::string sha256Of(const std::string& file, const std::string& scratch) {
    const Descriptor input = Descriptor::open(file, O_RDONLY);
    const Descriptor output = Descriptor::open(scratch, O_WRONLY | O_CREAT | O_TRUNC);
    ChildOptions options;
    options.arguments = {findProgram("sha256sum")};
    options.input = input.get();
    options.output = output.get();
    ChildProcess program(options);
    std::string digits;
    if (program.waitFor(sLongest) && program.exitStatus()->isExit(0))
        std::ifstream(scratch) >> digits;
    if (digits.size() != sDigits)
        throw std::runtime_error("sha256sum cannot read '" + file + "'");
    return digits;
}

std::vector<std::pair<std::string, std::string>> describe(const RunFacts& facts) {
    std::ostringstream scale;
    scale << facts.timeScale << ": the daemon's timers run so many times faster, its transfers do not";
    const std::string limit = facts.verbosity < sLimited ? ": downloads of 25 000 bytes per second at most"
                                                         : ": downloads without a limit of its own";
    return {
        {"Date", facts.date},
        {"Programs", "fw_lab " + facts.labVersion + ", fw_download " + orUnknown(facts.daemonVersion)},
        {"Command", orUnknown(facts.commandLine)},
        {"Image, SHA-256", orUnknown(facts.imageSha256)},
        {"Record, SHA-256", orUnknown(facts.recordSha256)},
        {"Verbosity", std::to_string(facts.verbosity) + limit},
        {"Web server",
         facts.speed == 0 ? "without a limit" : imagefile::groupDigits(facts.speed) + " bytes per second"},
        {"Time scale", scale.str()},
    };
}

} // namespace lab
