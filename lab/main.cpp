// fw_lab: a terminal on the desk.
#include "lab/ConsoleView.h"
#include "lab/FaultServer.h"
#include "lab/Init.h"
#include "lab/LabRun.h"
#include "lab/ReportPage.h"
#include "lab/ReportRecorder.h"
#include "lab/TemporaryDirectory.h"
#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
    const fs::path directory = fs::absolute(filename).parent_path();
    if (fs::is_directory(filename))
        throw std::runtime_error("report '" + filename + "': it is a directory");
    if (access(directory.c_str(), W_OK | X_OK) != 0)
        throw std::runtime_error("report '" + filename + "': " + strerror(errno));
}

int run(const lab::LabOptions& options, const std::string& kept, const std::string& report) {
    if (!report.empty())
        checkReport(report);
    watchSignals();
    RunDirectory place(kept);
    const lab::WorkDirectory directory(place.path());
    lab::ConsoleView view(stdout, sStop);
    lab::ReportRecorder recorder(view);
    const lab::LabResult result = lab::runLab(options, directory, recorder);
    view.showResult(result);
    if (!report.empty()) {
        lab::writeReport(report, lab::makeReport(result, recorder.events(), options.faults));
        printf("Report in %s\n", report.c_str());
    }
    if (sStop && !result.isGood()) { // whoever stops a run does not want its files
        fflush(stdout);
        fprintf(stderr, "fw_lab: stopped while %s\n", lab::getName(result.step));
        return Interrupted;
    }
    if (!result.isGood()) {
        place.keep();
        fflush(stdout);
        fprintf(stderr, "fw_lab: failed while %s: %s\n", lab::getName(result.step), result.failure.c_str());
        if (!result.daemonLog.empty())
            fprintf(stderr, "fw_lab: the daemon's log is %s\n", result.daemonLog.c_str());
        return Failed;
    }
    if (place.isKept())
        printf("Everything is kept in %s\n", place.path().c_str());
    return Good;
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

} // namespace

int main(int argc, char** argv) {
    // The terminal's first process: not for users.
    if (argc > 3 && std::string(argv[1]) == "init")
        return lab::runInit(argv + 3, atoi(argv[2]));

    CLI::App app("A terminal on the desk: runs fw_download against a web server, a message bus and a "
                 "configuration of its own.",
                 "fw_lab");
    app.require_subcommand(1);
    lab::LabOptions options;
    std::string kept;
    std::string report;
    unsigned timeout = static_cast<unsigned>(options.timeout.count());
    CLI::App* const runCommand = app.add_subcommand("run", "Runs one whole update and checks the result");
    runCommand->add_option("--image", options.image, "Image to update to; default: a sample of five parts")
        ->check(CLI::ExistingFile);
    runCommand
        ->add_option("--installed", options.installed,
                     "Host configuration record of the terminal; default: the sample's, or for an image of "
                     "your own that nothing is installed")
        ->check(CLI::ExistingFile);
    runCommand->add_option("--version", options.version,
                           "Version to configure, like 1.05-7; default: the image's release");
    runCommand->add_option("--keep", kept, "Keep all files of the run in this new or empty directory");
    runCommand
        ->add_option("--verbosity", options.verbosity,
                     "Level of the daemon's log; below 7 the daemon limits its downloads to 25000 bytes per "
                     "second, which its HTTP library keeps only roughly on the loopback interface")
        ->check(CLI::Range(0, 7))
        ->capture_default_str();
    runCommand
        ->add_option("--speed", options.speed, "Bytes per second that the web server sends; 0: no limit")
        ->capture_default_str();
    runCommand
        ->add_option(
            "--fault", options.faults,
            "The web server misbehaves so on its next COUNT requests (default 1); may be given again "
            "and again, see the list below")
        ->type_name("NAME[=COUNT]")
        ->expected(1)
        ->take_all()
        ->check(checkFault);
    runCommand->footer(describeFaults());
    runCommand
        ->add_option("--report", report,
                     "Write an HTML page about the run: verdict, what was fetched when, timeline and log")
        ->type_name("FILE.html");
    runCommand
        ->add_option("--time-scale", options.timeScale, "Makes the daemon's timers so many times faster")
        ->check(CLI::Range(1.0, 10000.0))
        ->capture_default_str();
    runCommand->add_option("--timeout", timeout, "Time limit for the update, in seconds")
        ->check(CLI::Range(1U, 1000000U))
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Good : WrongUse;
    }
    options.timeout = std::chrono::seconds(timeout);
    try {
        return run(options, kept, report);
    } catch (const std::exception& error) {
        fprintf(stderr, "fw_lab: %s\n", error.what());
        return Failed;
    }
}
