// fw_lab: a terminal on the desk.
#include "cli/CommandLine.h"
#include "imagefile/ReplaceFile.h"
#include "lab/ConsoleView.h"
#include "lab/FaultServer.h"
#include "lab/Init.h"
#include "lab/LabRun.h"
#include "lab/ReportPage.h"
#include "lab/ReportRecorder.h"
#include "lab/RunJson.h"
#include "lab/Shell.h"
#include "lab/TemporaryDirectory.h"
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

enum ExitCode { Good = 0, Failed = 1, WrongUse = 2, Interrupted = 130 };

std::atomic<bool> sStop{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void requestStop(int) {
    sStop = true;
}

void watchSignals() {
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, requestStop);
    signal(SIGPIPE, SIG_IGN);
}

// Where a run's files lie: a directory of the user's, or one for the run, which stays if the run fails.
class RunDirectory {
  public:
    explicit RunDirectory(const std::string& kept) {
        if (kept.empty()) {
            mTemporary = std::make_unique<lab::TemporaryDirectory>("fw_lab");
            mPath = mTemporary->path();
            return;
        }
        mPath = fs::absolute(kept).lexically_normal();
        std::error_code error;
        if (fs::exists(mPath, error) && !fs::is_empty(mPath, error))
            throw std::runtime_error("'" + mPath + "' exists and is not an empty directory");
    }

    const std::string& path() const { return mPath; }
    bool isKept() const { return mTemporary == nullptr; }
    void keep() {
        if (mTemporary)
            mTemporary->keep();
    }

  private:
    std::string mPath;
    std::unique_ptr<lab::TemporaryDirectory> mTemporary;
};

// A long run is not to be lost for a name that cannot be written.
void checkReport(const std::string& filename) {
    std::error_code error;
    const fs::path file = fs::absolute(filename);
    if (fs::exists(file, error) && !fs::is_regular_file(file, error))
        throw std::runtime_error("report '" + filename + "': it is not a regular file");
    if (access(file.parent_path().c_str(), W_OK | X_OK) != 0)
        throw std::runtime_error("report '" + filename + "': " + strerror(errno));
}

// What a failed run leaves, and the exit status.
int finishFailed(const lab::LabResult& result, RunDirectory& place) {
    fflush(stdout);
    if (sStop) { // whoever stops a run does not want its files
        fprintf(stderr, "fw_lab: stopped while %s\n", lab::getName(result.step));
        return Interrupted;
    }
    fprintf(stderr, "fw_lab: failed while %s: %s\n", lab::getName(result.step), result.failure.c_str());
    if (!result.daemonLog.empty()) {
        place.keep();
        fprintf(stderr, "fw_lab: the daemon's log is %s\n", result.daemonLog.c_str());
    }
    return Failed;
}

int run(const lab::LabOptions& options, const std::string& kept, const std::string& report, bool isJson) {
    if (!report.empty()) {
        checkReport(report);
        for (const std::string& input : {options.image, options.installed})
            imagefile::refuseInput(report, input);
    }
    watchSignals();
    RunDirectory place(kept);
    const lab::WorkDirectory directory(place.path());
    lab::ConsoleView view(isJson ? stderr : stdout, sStop);
    lab::ReportRecorder recorder(view);
    const lab::LabResult result = lab::runLab(options, directory, recorder);
    view.showResult(result);
    if (isJson)
        fputs(lab::makeJson(result, recorder.events(), options.faults).c_str(), stdout);
    if (!report.empty()) {
        lab::writeReport(report, lab::makeReport(result, recorder.events(), options.faults));
        fprintf(isJson ? stderr : stdout, "Report in %s\n", report.c_str());
    }
    if (!result.isGood())
        return finishFailed(result, place);
    if (place.isKept())
        fprintf(isJson ? stderr : stdout, "Everything is kept in %s\n", place.path().c_str());
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        throw std::runtime_error("cannot write to standard output");
    return Good;
}

int runShell(const lab::LabOptions& options, const std::string& kept) {
    watchSignals();
    const RunDirectory place(kept);
    const int status = lab::runShell(options, lab::WorkDirectory(place.path()), sStop);
    return status < 0 ? Interrupted : status;
}

// Empty for a fault that exists, else what is wrong.
std::string checkFault(const std::string& text) {
    try {
        lab::Fault::parse(text);
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string describeFaults() {
    std::string text = "Faults, in the order given, from the first request on:\n";
    for (const lab::Fault& fault : lab::Fault::all())
        text += "  " + fault.name + std::string(22 - fault.name.size(), ' ') + fault.description + "\n";
    return text + "Example: fw_lab run --fault none=2 --fault reset-mid-body --fault not-found=3";
}

constexpr const char* sExamples =
    "Examples:\n"
    "  fw_lab run                                     update a sample image\n"
    "  fw_lab run --image release.zemp --installed record --report run.html\n"
    "                                                 an own image on an own terminal, with a page about it\n"
    "  fw_lab run --fault none=2 --fault not-found    the third request gets status 404\n"
    "  fw_lab shell                                   a terminal to try fwctl, vexctl and gdb on\n"
    "Exit status: 0 the update came through and is right, 1 it did not, 2 wrong use. See fw_lab(1).";

// The options of a run, or of a shell.
struct RunOptions {
    lab::LabOptions lab;
    std::string kept;
    std::string report;
    bool isJson = false;
    unsigned timeout = static_cast<unsigned>(lab.timeout.count());
};

// Refuses what CLI::Range lets through: that which is no number.
std::string checkTimeScale(const std::string& text) {
    return strtod(text.c_str(), nullptr) >= 1 ? "" : "it is less than 1";
}

void addFileOptions(CLI::App& run, RunOptions& options) {
    run.add_option("--image", options.lab.image, "Image to update to; default: a sample of five parts")
        ->check(cli::refuseEmpty)
        ->type_name("IMAGE");
    run.add_option("--installed", options.lab.installed,
                   "Host configuration record of the terminal; default: the sample's, or for an image of "
                   "your own that nothing is installed")
        ->check(cli::refuseEmpty)
        ->type_name("RECORD");
    run.add_option("--keep", options.kept, "Keep all files of the run in this new or empty directory")
        ->check(cli::refuseEmpty)
        ->type_name("DIRECTORY");
}

void addTerminalOptions(CLI::App& run, RunOptions& options) {
    addFileOptions(run, options);
    run.add_option("--version", options.lab.version,
                   "Version to configure, like 1.05-7; default: the image's release")
        ->check(cli::refuseEmpty)
        ->type_name("VERSION");
    run.add_option("--verbosity", options.lab.verbosity,
                   "Level of the daemon's log; below 7 the daemon limits its downloads to 25000 bytes per "
                   "second")
        ->check(CLI::Range(0, 7))
        ->type_name("LEVEL")
        ->capture_default_str();
    run.add_option("--speed", options.lab.speed, "Bytes per second that the web server sends; 0: no limit")
        ->type_name("BYTES")
        ->capture_default_str();
    run.add_option("--fault", options.lab.faults,
                   "The web server misbehaves so on its next COUNT requests (default 1); may be given again "
                   "and again, see the list below")
        ->type_name("NAME[=COUNT]")
        ->expected(1)
        ->take_all()
        ->check(checkFault);
    run.add_option("--time-scale", options.lab.timeScale, "Makes the daemon's timers so many times faster")
        ->check(CLI::Range(1.0, 10000.0))
        ->check(checkTimeScale)
        ->type_name("FACTOR")
        ->capture_default_str();
    run.footer(describeFaults());
}

void addRunOptions(CLI::App& run, RunOptions& options) {
    addTerminalOptions(run, options);
    run.add_option("--report", options.report,
                   "Write an HTML page about the run: verdict, what was fetched when, timeline and log")
        ->check(cli::refuseEmpty)
        ->type_name("FILE.html");
    run.add_flag("--json", options.isJson,
                 "Print the result for programs on standard output; what happens goes to standard error");
    run.add_option("--timeout", options.timeout, "Time limit for the update, in seconds")
        ->check(CLI::Range(1U, 1000000U))
        ->type_name("SECONDS")
        ->capture_default_str();
}

// A file that is opened later must not get the number of a standard stream that the caller has closed.
void occupyStandardStreams() {
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number)
        if (fcntl(number, F_GETFD) < 0 && open("/dev/null", O_RDONLY) < 0)
            return;
}

} // namespace

int main(int argc, char** argv) {
    // The terminal's first process: not for users.
    if (argc > 3 && std::string(argv[1]) == "init")
        return lab::runInit(argv + 3, atoi(argv[2]));

    occupyStandardStreams();
    CLI::App app("A terminal on the desk: runs fw_download against a web server, a message bus and a "
                 "configuration of its own.",
                 "fw_lab");
    app.set_version_flag("--version", "fw_lab " FW_LAB_VERSION);
    app.require_subcommand(1);
    app.footer(sExamples);
    RunOptions options;
    addRunOptions(*app.add_subcommand("run", "Runs one whole update and checks the result"), options);
    CLI::App* const shell = app.add_subcommand(
        "shell", "Opens a shell on a terminal with bus, database, web server and daemon, until it ends");
    addTerminalOptions(*shell, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        fprintf(stderr, "fw_lab: %s\n", cli::complaintOf(app, error).c_str());
        return WrongUse;
    }
    for (int i = 0; i < argc; ++i)
        options.lab.commandLine += (i == 0 ? "" : " ") + std::string(argv[i]);
    options.lab.timeout = std::chrono::seconds(options.timeout);
    try {
        if (shell->parsed())
            return runShell(options.lab, options.kept);
        return run(options.lab, options.kept, options.report, options.isJson);
    } catch (const std::exception& error) {
        fflush(stdout);
        fprintf(stderr, "fw_lab: %s\n", error.what());
        return Failed;
    }
}
