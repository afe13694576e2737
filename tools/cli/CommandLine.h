// What the command lines of the tools have in common.
#ifndef CLI_COMMANDLINE_H
#define CLI_COMMANDLINE_H

#include <CLI/CLI.hpp>
#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

namespace cli {

// What is wrong with a command line, in one line that names the word if there is one.
inline std::string complaintOf(const CLI::App& app, const CLI::ParseError& error) {
    std::string help = " (see " + app.get_name();
    for (const CLI::App* command = &app; !command->get_subcommands().empty();) {
        command = command->get_subcommands().back(); // that the line names
        help += " " + command->get_name();
    }
    help += " --help)";
    const std::vector<std::string> unknown = app.remaining(true);
    if (error.get_name() == "RequiredError" && !unknown.empty())
        return "there is no command or option '" + unknown.front() + "'" + help;
    return error.what() + help;
}

// Letters that are wrong, missing or too many.
inline size_t countSlips(const std::string& left, const std::string& right) {
    std::vector<size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < left.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < right.size(); ++j) {
            const size_t replaced = diagonal + (left[i] == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}
constexpr size_t MostSlips = 2; // with more it is another word

// Check for an option or argument that names something: an empty text is a shell variable that was not set.
inline std::string refuseEmpty(const std::string& text) {
    return text.empty() ? "it is empty" : "";
}

} // namespace cli

#endif
