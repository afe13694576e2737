// fwctl: what the firmware download daemon is doing, and what it is to do.
#include "Commands.h"
#include "cli/CommandLine.h"
#include "fwctl/Wanted.h"
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>

namespace {

constexpr const char* sExamples =
    "Examples:\n"
    "  fwctl status --watch                            follow an update\n"
    "  fwctl check                                     why is nothing happening?\n"
    "  fwctl update 1.05-7 http://server/update.zemp   fetch a version\n"
    "  fwctl pending                                   print the path of the image that is ready\n"
    "Exit status: 0 done, 1 could not be done, 2 wrong use. See fwctl(8).";

struct Options {
    std::string run = "/run";
    std::string version;
    std::string url;
    bool json = false;
    bool watch = false;
    bool force = false;
    bool wait = false;
};

int updateAndWait(const Options& options) {
    const int status = orderUpdate(options.version, options.url, options.force);
    if (status != sDone || !options.wait)
        return status;
    return watchStatus(options.run, parseWanted(options.version)->text());
}

} // namespace

int complain(int status, const std::string& text) {
    std::cerr << "fwctl: " << text << std::endl;
    return status;
}

int main(int argc, char** argv) {
    unsetenv("VEX_TIME_SCALE"); // it is the daemon's
    CLI::App app("What the firmware download daemon is doing, and what it is to do", "fwctl");
    app.set_version_flag("--version", "fwctl " FWCTL_VERSION);
    app.footer(sExamples);
    app.require_subcommand(1);
    Options options;
    std::function<int()> action;
    app.add_option("--run", options.run, "Where the daemon's pid file and status are")
        ->capture_default_str()
        ->check(cli::refuseEmpty);

    CLI::App* const status = app.add_subcommand("status", "Say what the daemon is doing");
    CLI::Option* const json = status->add_flag("--json", options.json, "For programs");
    status->add_flag("--watch", options.watch, "Follow it until an update is ready or none is needed")
        ->excludes(json);
    status->callback([&] {
        action = [&] {
            return options.watch ? watchStatus(options.run, "") : showStatus(options.run, options.json);
        };
    });

    CLI::App* const check =
        app.add_subcommand("check", "Say whether an update can run, and what is in its way");
    check->add_flag("--json", options.json, "For programs");
    check->callback([&] { action = [&] { return checkTerminal(options.run, options.json); }; });

    CLI::App* const update =
        app.add_subcommand("update", "Configure a version, and where its image is served");
    update->add_option("VERSION", options.version, "Like 1.05-7")->required()->check(cli::refuseEmpty);
    update->add_option("URL", options.url, "Of the image")->required()->check(cli::refuseEmpty);
    update->add_flag("--force", options.force, "Reboot into it as soon as it is ready");
    update->add_flag("--wait", options.wait, "Follow it until it is ready");
    update->callback([&] { action = [&] { return updateAndWait(options); }; });

    app.add_subcommand("force", "Reboot into the update as soon as it is ready")->callback([&] {
        action = orderForce;
    });
    app.add_subcommand("disable", "Allow no downloads")->callback([&] {
        action = [] { return orderDisabled(true); };
    });
    app.add_subcommand("enable", "Allow downloads again")->callback([&] {
        action = [] { return orderDisabled(false); };
    });
    app.add_subcommand("pending", "Print the path of the update image that is ready")->callback([&] {
        action = showPending;
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        return complain(sWrongUse, cli::complaintOf(app, error));
    }
    return action();
}
