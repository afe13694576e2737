// The documents that show commands and what they print: the commands are run as printed, in the order of the
// document, and what comes out is compared.
#include "lab/TemporaryDirectory.h"
#include "support/ShellOutput.h"
#include <algorithm>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>
#include <vector>

namespace {

const std::string Root = FW_SOURCE_DIR;

using Lines = std::vector<std::string>;
using lab::TemporaryDirectory;

Lines linesOf(const std::string& text) {
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// Sorted, since two processes may speak in either order, and without times and ports.
Lines comparable(Lines lines) {
    for (std::string& line : lines) {
        line = std::regex_replace(line, std::regex(" *[0-9]+\\.[0-9]+ s"), " TIME");
        line = std::regex_replace(line, std::regex("127\\.0\\.0\\.1:[0-9]+"), "SERVER");
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

class Document : public testing::Test {
  protected:
    // What a command of the document prints on both outputs. It has to succeed.
    Lines run(const std::string& command) const {
        const support::ShellOutput output =
            support::runShell("cd '" + mDirectory.path() +
                              "' && export PATH='" FW_PROGRAMS "':\"$PATH\" && { " + command + "; } 2>&1");
        EXPECT_EQ(output.status, 0) << command;
        return linesOf(output.text);
    }

    // Files are blocks that begin with their name as a comment; "..." stands for any lines.
    void play(const std::string& name) {
        std::istringstream blocks(TemporaryDirectory::read(Root + "/" + name));
        for (std::string line; std::getline(blocks, line);) {
            const bool isFile = line == "```toml";
            if (!isFile && line != "```console")
                continue;
            Lines block;
            while (std::getline(blocks, line) && line != "```")
                block.push_back(line);
            if (isFile)
                mDirectory.write(block.front().substr(2), joined(block));
            else
                compare(block);
        }
    }

    const TemporaryDirectory mDirectory;

  private:
    static std::string joined(const Lines& lines) {
        std::string text;
        for (const std::string& line : lines)
            text += line + "\n";
        return text;
    }

    void compare(const Lines& block) const {
        for (auto at = block.begin(); at != block.end();) {
            ASSERT_EQ(at->rfind("$ ", 0), 0U) << *at;
            const std::string command = at->substr(2);
            const auto end =
                std::find_if(++at, block.end(), [](const auto& line) { return line.rfind("$ ", 0) == 0; });
            Lines expected(at, end);
            at = end;
            const auto omitted = std::remove(expected.begin(), expected.end(), "...");
            const bool isExcerpt = omitted != expected.end();
            expected.erase(omitted, expected.end());
            expected = comparable(expected);
            // What the script ends with; the test must not build.
            Lines printed = comparable(run(command == "script/demo" ? "fw_lab run" : command));
            Lines found;
            std::set_intersection(expected.begin(), expected.end(), printed.begin(), printed.end(),
                                  std::back_inserter(found));
            EXPECT_EQ(expected, isExcerpt ? found : printed) << command;
        }
    }
};

TEST_F(Document, ReadmeShowsWhatTheDemoPrints) {
    play("README.md");
}

// Ends with the examples of the manual page, which use the same names.
TEST_F(Document, WalkthroughLeadsToATestedUpdate) {
    play("docs/walkthrough.md");
    EXPECT_EQ(TemporaryDirectory::read(mDirectory.file("plan.svg")),
              TemporaryDirectory::read(Root + "/docs/plan.svg"));
    EXPECT_NE(
        TemporaryDirectory::read(mDirectory.file("run.html")).find("The update image is complete and right."),
        std::string::npos);

    const std::string page = TemporaryDirectory::read(Root + "/docs/man/zemp.1");
    for (std::string line : linesOf(page.substr(page.find(".SH EXAMPLES")))) {
        line.erase(std::remove(line.begin(), line.end(), '\\'), line.end());
        if (line.rfind("zemp ", 0) == 0 && line.find("http:") == std::string::npos)
            run(line);
    }
}

} // namespace
