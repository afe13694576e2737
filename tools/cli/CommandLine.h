// What the command lines of the tools have in common.
#ifndef CLI_COMMANDLINE_H
#define CLI_COMMANDLINE_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace cli {

// What is wrong with a command line, in one line that names the word if there is one.
inline std::string complaintOf(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    if (error.get_name() == "RequiredError" && !unknown.empty())
        return "there is no command or option '" + unknown.front() + "' (see " + app.get_name() + " --help)";
    return std::string(error.what()) + " (see " + app.get_name() + " --help)";
}

// Check for an option or argument that names something: an empty text is a shell variable that was not set.
inline std::string refuseEmpty(const std::string& text) {
    return text.empty() ? "it is empty" : "";
}

} // namespace cli

#endif
