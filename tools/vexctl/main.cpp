// vexctl: the configuration database and the message bus of a terminal from the command line.
#include "Commands.h"
#include "cli/CommandLine.h"
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

// Longest time limit of a listener, in seconds: what milliseconds in 32 bits hold.
constexpr double sLongestTimeout = 4000000.0;

constexpr unsigned sMostSignals = 1000000000;

constexpr const char* sExamples =
    "Examples:\n"
    "  vexctl config set cfg.config.status complete   write a value\n"
    "  vexctl config list cfg.                        print the keys that begin with cfg.\n"
    "  vexctl signal send evt.confd.updated           tell that the configuration changed\n"
    "  vexctl signal listen evt --timeout 10          print the signals of ten seconds\n"
    "Exit status: 0 done, 1 could not be done, 2 wrong use. See vexctl(1).";

// What a subcommand does once the whole line has been understood.
using Action = std::function<int()>;

using Words = std::vector<std::string>;

// A subcommand that takes any words as they are: a value may look like an option or a list.
CLI::App* addWithWords(CLI::App& parent, const std::string& name, const std::string& words,
                       const std::string& description) {
    CLI::App* const command = parent.add_subcommand(name, words + ": " + description);
    command->allow_extras();
    command->footer("Everything behind -- is taken as it stands.");
    return command;
}

// For the commands that take words: cuts off what stands behind "--", which the parser would look at.
Words cutWords(Words& arguments) {
    const bool takesWords = arguments.size() > 2 && arguments[0] == "config" &&
                            (arguments[1] == "set" || arguments[1] == "erase");
    const auto mark = std::find(arguments.begin(), arguments.end(), "--");
    if (!takesWords || mark == arguments.end())
        return {};
    Words rest(mark + 1, arguments.end());
    arguments.erase(mark, arguments.end());
    return rest;
}

// The words of `command` in front of the mark and behind it.
Words allWords(const CLI::App& command, const Words& rest) {
    Words words = command.remaining();
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
}

void addConfigCommands(CLI::App& app, const Words& rest, Action& action) {
    CLI::App* const config = app.add_subcommand("config", "The configuration database ($VEX_CONFIGDB)");
    config->require_subcommand(1);

    CLI::App* const get = config->add_subcommand("get", "Print the value of a key");
    auto key = std::make_shared<std::string>();
    get->add_option("KEY", *key)->required()->check(cli::refuseEmpty);
    get->callback([&action, key] { action = [key] { return configGet(*key); }; });

    CLI::App* const set =
        addWithWords(*config, "set", "KEY VALUE [KEY VALUE ...]", "write values, all of them in one go");
    set->callback(
        [&action, &rest, set] { action = [&rest, set] { return configSet(allWords(*set, rest)); }; });

    CLI::App* const erase = addWithWords(*config, "erase", "KEY ...", "remove keys");
    erase->callback(
        [&action, &rest, erase] { action = [&rest, erase] { return configErase(allWords(*erase, rest)); }; });

    CLI::App* const list = config->add_subcommand("list", "Print KEY=VALUE lines");
    auto prefix = std::make_shared<std::string>();
    list->add_option("PREFIX", *prefix, "Only keys that begin with it");
    auto isJson = std::make_shared<bool>(false);
    list->add_flag("--json", *isJson, "Print the result as JSON");
    list->callback(
        [&action, prefix, isJson] { action = [prefix, isJson] { return configList(*prefix, *isJson); }; });
}

void addSignalCommands(CLI::App& app, Action& action) {
    CLI::App* const signal = app.add_subcommand("signal", "The message bus ($VEX_CBUS_ADDRESS)");
    signal->require_subcommand(1);

    CLI::App* const send = signal->add_subcommand("send", "Send a signal");
    auto name = std::make_shared<std::string>();
    auto hex = std::make_shared<std::string>();
    send->add_option("NAME", *name)->required()->check(cli::refuseEmpty);
    send->add_option("HEX", *hex, "Payload, two hexadecimal digits per byte");
    send->callback([&action, name, hex] { action = [name, hex] { return signalSend(*name, *hex); }; });

    CLI::App* const listen = signal->add_subcommand("listen", "Print a line NAME HEX for each signal");
    auto options = std::make_shared<ListenOptions>();
    listen->add_option("PREFIX", options->prefix, "Only this name and names that begin with it and a dot");
    listen->add_option("--count", options->count, "End after so many signals")
        ->check(CLI::Range(1U, sMostSignals));
    listen->add_option("--timeout", options->timeout, "End after so many seconds")
        ->check(CLI::Range(0.001, sLongestTimeout));
    listen->callback([&action, options] { action = [options] { return signalListen(*options); }; });
}

} // namespace

int complain(int status, const std::string& text) {
    std::cerr << "vexctl: " << text << std::endl;
    return status;
}

int main(int argc, char** argv) {
    unsetenv("VEX_TIME_SCALE"); // a time limit given here is meant as it stands
    CLI::App app("Configuration database and message bus of a terminal", "vexctl");
    app.set_version_flag("--version", "vexctl " VEXCTL_VERSION);
    app.footer(sExamples);
    app.require_subcommand(1);
    Words arguments(argv + 1, argv + argc);
    const Words rest = cutWords(arguments);
    Action action;
    addConfigCommands(app, rest, action);
    addSignalCommands(app, action);
    try {
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        return complain(sWrongUse, cli::complaintOf(app, error));
    }
    return action();
}
