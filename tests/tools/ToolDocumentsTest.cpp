// Manual pages, completions and the description of the format, against the programs.
#include "support/ShellOutput.h"
#include "tools/ZempRun.h"
#include <algorithm>
#include <regex>
#include <set>

namespace {

const std::string Root = FW_SOURCE_DIR;
const std::string Pages = Root + "/docs/man/";
const std::string Completions = Root + "/packaging/completion/";

// What a shell command writes to both its outputs.
support::ShellOutput outputOf(const std::string& command) {
    return support::runShell("{ " + command + "; } 2>&1");
}

std::string withoutBackslashes(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
    return text;
}

// The words of `text` that match, for example long options.
std::set<std::string> find(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    std::set<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        found.insert(match->str(1));
    return found;
}

TEST(ToolDocuments, ManualPagesRenderWithoutWarnings) {
    if (outputOf("command -v groff").status != 0)
        GTEST_SKIP() << "no groff";
    for (const auto& page : std::filesystem::directory_iterator(Pages))
        EXPECT_EQ(outputOf("groff -man -ww -z '" + page.path().string() + "'").text, "");
}

// Every command and option that the programs know stands in their manual page and in their completion.
TEST(ToolDocuments, NameEveryCommandAndOption) {
    const std::pair<const char*, std::vector<const char*>> programs[] = {
        {ZEMP_PROGRAM,
         {"", "build", "list", "extract", "check", "digest", "seal", "verify", "plan", "hostcfg",
          "hostcfg build", "hostcfg show"}},
        {FWCTL_PROGRAM, {"", "status", "check", "update", "force", "disable", "enable", "pending"}},
        {VEXCTL_PROGRAM,
         {"", "config", "config get", "config set", "signal", "signal send", "signal listen"}},
#ifdef FW_LAB_PROGRAM
        {FW_LAB_PROGRAM, {"", "run", "shell"}},
#endif
    };
    for (const auto& [program, commands] : programs) {
        const std::string path = program;
        const std::string name = path.substr(path.rfind('/') + 1);
        const std::string page = withoutBackslashes(ScratchDir::read(Pages + name + ".1"));
        const std::string completion = ScratchDir::read(Completions + name);
        for (const char* const command : commands) {
            const support::ShellOutput help = outputOf(path + " " + command + " --help");
            ASSERT_EQ(help.status, 0) << help.text;
            std::set<std::string> words = find(help.text, "(--[a-z-]+)");
            const size_t list = help.text.find("Subcommands:");
            if (list != std::string::npos)
                words.merge(
                    find(help.text.substr(list, help.text.find("\n\n", list) - list), "\n  ([a-z]+) "));
            EXPECT_FALSE(words.empty());
            for (const std::string& word : words) {
                EXPECT_NE(page.find(word), std::string::npos) << name << ".1: " << word;
                EXPECT_NE(completion.find(word), std::string::npos)
                    << "completion of " << name << ": " << word;
            }
            const size_t faults = std::min(help.text.find("\nFaults"), help.text.size());
            for (const std::string& fault : find(help.text.substr(faults), "\n  ([a-z-]+) "))
                EXPECT_NE(page.find("\n.B " + fault + "\n"), std::string::npos) << name << ".1: " << fault;
        }
    }
}

TEST(ToolDocuments, CompletionsComplete) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"zemp", "zemp ch", "check "},
        {"zemp", "zemp plan x --s", "--svg "},
        {"zemp", "zemp hostcfg s", "show "},
        {"vexctl", "vexctl signal listen --t", "--timeout "},
        {"vexctl", "vexctl c", "config "},
        {"fw_lab", "fw_lab --v", "--version "},
        {"fwctl", "fwctl status --w", "--watch "},
    };
    for (const auto& [program, line, expected] : rows) {
        std::ostringstream script;
        script << "bash -c '. \"" << Completions << program << "\"; COMP_WORDS=(" << line
               << "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _" << program
               << "; printf \"%s \" \"${COMPREPLY[@]}\"'";
        EXPECT_EQ(outputOf(script.str()).text, expected) << line;
    }
}

struct FormatDocument : ZempRun {};

TEST_F(FormatDocument, TakesTheImageApartThatItsDescriptionMakes) {
    const std::string document = ScratchDir::read(Root + "/docs/image-format.md");
    const size_t toml = document.find("```toml\n") + 8;
    scratch.write("d.toml", document.substr(toml, document.find("```", toml) - toml));
    ASSERT_EQ(zemp({"build", "@d.toml", "-o", "@i.zemp"}), 0) << err;
    EXPECT_EQ(zemp({"check", "@i.zemp"}), 0) << out;
    const std::string image = ScratchDir::read(scratch.file("i.zemp"));

    std::istringstream lines(document.substr(document.find("```text\n")));
    std::string bytes;
    for (std::string line; std::getline(lines, line);) {
        std::smatch row;
        if (!std::regex_match(line, row, std::regex("( *[0-9]+)  ((?:[0-9a-f]{2} )*[0-9a-f]{2})(?:  .*)?")))
            continue;
        EXPECT_EQ(std::stoul(row.str(1)), bytes.size()) << line;
        std::istringstream digits(row.str(2));
        for (std::string pair; digits >> pair;)
            bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
    }
    EXPECT_EQ(bytes, image);
}

} // namespace
