#include "system/SoakTerminal.h"

#include "lab/BusObserver.h"
#include "lab/ImageVerdict.h"
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr const char* ReadyKey = "cfg.fw_ready_for_install";
constexpr const char* LibraryPath = "/lab/killpoint.so"; // in the terminal
constexpr const char* ToolsPath = "/lab/tools";
constexpr const char* OperationsName = "operations"; // in its /tmp

} // namespace

unsigned numberFrom(const char* variable, unsigned otherwise) {
    const char* const text = getenv(variable);
    return text != nullptr && *text != '\0' ? static_cast<unsigned>(strtoul(text, nullptr, 10)) : otherwise;
}

unsigned soakSeed() {
    return numberFrom("FW_SOAK_SEED", 1);
}

Milliseconds randomTime(Random& random, Milliseconds most) {
    return Milliseconds(std::uniform_int_distribution<int>(0, static_cast<int>(most.count()))(random));
}

SoakTerminal::SoakTerminal(double timeScale, unsigned speed, const std::string& image) {
    lab::LabOptions options;
    options.image = image;
    options.timeScale = timeScale;
    options.speed = speed;
    mLab = std::make_unique<lab::Lab>(options, mWork);
    mLab->terminal().bind({FW_KILLPOINT_LIBRARY, LibraryPath});
    mLab->terminal().bind({fs::path(lab::Programs::find().daemon).parent_path(), ToolsPath});
    mLab->startServices();
    mLab->configure();
}

lab::ChildOptions SoakTerminal::options(const Life& life) const {
    lab::ChildOptions options;
    options.environment = life.environment.empty() ? mLab->daemonEnvironment() : life.environment;
    if (life.isWatched || !life.point.empty()) {
        // Given to the daemon alone: nothing else in the terminal is to load it.
        const char* const asan = getenv("ASAN_OPTIONS");
        options.arguments = {"env",
                             std::string("LD_PRELOAD=") + LibraryPath,
                             std::string("ASAN_OPTIONS=") + (asan != nullptr ? asan : "") +
                                 ":verify_asan_link_order=0",
                             std::string("FW_POINT_LOG=/tmp/") + OperationsName,
                             "FW_POINT=" + life.point,
                             "FW_POINT_LOSS=" + life.loss,
                             "FW_POINT_DELAY_MS=" + std::to_string(life.delay.count()),
                             "FW_POINT_STOP=" + std::to_string(life.stopSignal)};
    }
    if (!life.hasDescriptors)
        options.arguments.insert(options.arguments.end(), {"sh", "-c", "exec \"$0\" \"$@\" <&- >&- 2>&-"});
    options.arguments.emplace_back(lab::Terminal::DaemonPath);
    if (!life.isInBackground)
        options.arguments.emplace_back("-c");
    options.arguments.insert(options.arguments.end(), {"-v", std::to_string(life.verbosity)});
    return options;
}

void SoakTerminal::start(const Life& life) {
    mDaemon.reset();
    fs::remove(mLab->daemonLog());
    fs::remove(mWork.temporary() + "/" + OperationsName);
    fs::remove(mWork.run() + "/fw_download.pid"); // as after a boot
    mDaemon = startIn(mLab->terminal(), options(life), mLab->daemonLog());
}

std::string SoakTerminal::log() const {
    return readText(mLab->daemonLog());
}

bool SoakTerminal::hasLogged(const std::string& text) const {
    return log().find(text) != std::string::npos;
}

// The monitor's first line comes when the signals are taken care of; the background shows its pid file then.
bool SoakTerminal::takesSignals() const {
    // In the background once the process that was started has ended; until then it is stopped as well.
    return hasLogged("ConfigDbMonitor::") || (!readText(mWork.run() + "/fw_download.pid").empty() &&
                                              mDaemon->findProcesses("fw_download").size() == 1);
}

support::ShellOutput SoakTerminal::check() const {
    const std::string output = mWork.file("check.log");
    fs::remove(output);
    lab::ChildOptions options;
    options.environment = mLab->daemonEnvironment();
    options.arguments = {std::string(ToolsPath) + "/fwctl", "check"};
    const auto program = startIn(mLab->terminal(), options, output);
    const bool hasEnded = program->waitFor(VeryLong);
    return {hasEnded ? WEXITSTATUS(program->exitStatus()->raw) : -1, readText(output)};
}

bool SoakTerminal::isReady() const {
    return !mLab->config()->readyForInstall().empty() &&
           (hasLogged("Wait for update from") || hasLogged("Waiting for update '"));
}

void SoakTerminal::announce() {
    lab::BusObserver observer;
    observer.send("evt.confd.updated");
}

std::string SoakTerminal::complaint(bool isRequired) {
    const std::string flagged = mLab->config()->readyForInstall();
    if (flagged.empty())
        return isRequired ? "nothing is flagged" : "";
    const std::string file = mWork.onMachine(flagged);
    if (file.empty())
        return "'" + flagged + "' is flagged";
    if (flagged != "/data/fw/fw_download_update.zemp-" + mLab->version().toString())
        return "'" + flagged + "' is flagged, which is not the configured version";
    const lab::ImageVerdict verdict = lab::judgeImage(file, mLab->image(), mLab->parts());
    return verdict.isGood() ? "" : "the flagged image is wrong: " + verdict.faults.front();
}

std::string SoakTerminal::untilReady() {
    if (eventually([this] { return isReady() || !mDaemon->running(); }) && isReady())
        return complaint(true);
    const std::string end = mDaemon->running() ? "it still runs" : mDaemon->exitStatus()->toString();
    return "not ready (" + end + ")\n" + log();
}

std::string SoakTerminal::stop(int signal) {
    const auto begin = std::chrono::steady_clock::now();
    mDaemon->signal(signal);
    return awaitStop(begin);
}

std::string SoakTerminal::awaitStop(std::chrono::steady_clock::time_point begin) {
    const bool ended = mDaemon->waitFor(VeryLong);
    const auto time = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin);
    mSlowestStop = std::max(mSlowestStop, time);
    if (!ended)
        return "no end after the signal\n" + log();
    if (!mDaemon->exitStatus()->isExit(0))
        return "ended " + mDaemon->exitStatus()->toString() + "\n" + log();
    return time < LongestStop ? "" : "the stop took " + std::to_string(time.count()) + " ms\n" + log();
}

void SoakTerminal::reset() {
    mDaemon.reset();
    for (const fs::directory_entry& entry : fs::directory_iterator(mWork.downloads()))
        fs::remove_all(entry.path());
    fs::remove(mWork.temporary() + "/zempparts");
    fs::remove(mWork.temporary() + "/heal");
    unflag();
}

void SoakTerminal::unflag() {
    mLab->config()->set(ReadyKey, "");
}

std::vector<std::string> SoakTerminal::operations() const {
    std::istringstream text(readText(mWork.temporary() + "/" + OperationsName));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        if (line.rfind("at ", 0) != 0)
            lines.push_back(line);
    return lines;
}

void SoakTerminal::heal() const {
    std::ofstream(mWork.temporary() + "/heal").put('1');
}

std::optional<std::chrono::steady_clock::time_point> SoakTerminal::pointTime() const {
    const std::string text = readText(mWork.temporary() + "/" + OperationsName);
    const size_t place = text.find("at ");
    if (place == std::string::npos)
        return std::nullopt;
    return std::chrono::steady_clock::time_point(
        Milliseconds(strtoll(text.c_str() + place + 3, nullptr, 10)));
}

bool SoakTerminal::hasPartialImage() const {
    const fs::directory_iterator downloads(mWork.downloads());
    return std::any_of(begin(downloads), end(downloads),
                       [](const auto& entry) { return entry.path().extension() == ".part"; });
}
