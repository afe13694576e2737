#include "main/ArgParser.h"

#include "common/Scratch.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// Runs `action` in a child process, since the settings are the process's own; what it printed.
std::string inChild(const std::function<void()>& action) {
    return standardOutputOf([&] {
        const pid_t child = fork();
        if (child == 0) {
            action();
            fflush(stdout);
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    });
}

// What is printed while these arguments are parsed, followed by the settings that they lead to.
std::string parsed(std::vector<std::string> arguments) {
    return inChild([&] {
        arguments.insert(arguments.begin(), "fw_download");
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        ArgParser* parser = ArgParser::getInstance();
        const auto action = parser->parseArguments(static_cast<int>(arguments.size()), argv.data());
        printf("%s log=%d level=%d '%s'\n", ArgParser::getText(action), ArgParser::getLogType(),
               ArgParser::getVerbosity(), parser->getZempFilename().c_str());
    });
}

// A file and a directory to name on the command line.
struct ArgParserFiles : testing::Test {
    ScratchDir scratch;
    std::string directory = std::filesystem::canonical(scratch.path()).string();
    std::string file = scratch.write("image.zemp", "x");
    std::string resolved = directory + "/image.zemp";
};

TEST(ArgParser, OptionsWithoutFiles) {
    struct Row {
        std::vector<std::string> arguments;
        std::string action;
        int log;
        int level;
    };
    const Row rows[] = {
        {{}, "RunDaemon", 0, 6},
        {{"-v", "3"}, "RunDaemon", 0, 3},
        {{"-v", "0x3"}, "RunDaemon", 0, 3},
        {{"-v", "9"}, "RunDaemon", 0, 7},
        {{"-v", "abc"}, "RunDaemon", 0, 0},
        {{"-v", "-1"}, "RunDaemon", 0, 7},
        {{"-v", "99999999999999999999"}, "RunDaemon", 0, 7},
        {{"-x"}, "ReturnError", 0, 6},
        {{"-v"}, "ReturnError", 0, 6},
        {{"-x", "-c"}, "RunConsole", 1, 6}, // a later option overrides
    };
    for (const Row& row : rows)
        EXPECT_EQ(parsed(row.arguments), row.action + " log=" + std::to_string(row.log) +
                                             " level=" + std::to_string(row.level) + " ''\n");
    const std::string help = parsed({"-h", "-c"}); // prints the usage at once
    EXPECT_EQ(help.find("VEX Firmware Download Daemon\n\nOptions:\n"), 0U);
    EXPECT_NE(help.find("\n\nRunConsole log=1 level=6 ''\n"), std::string::npos);
}

TEST_F(ArgParserFiles, AreAcceptedAndTheLastOptionWins) {
    const std::string accepted = " level=6 '" + resolved + "'\n";
    EXPECT_EQ(parsed({"-f", file}), "ParseZempFile log=1" + accepted);
    EXPECT_EQ(parsed({"-p", directory + "/./image.zemp"}), "ParseContentPartFile log=1" + accepted);
    EXPECT_EQ(parsed({"-t", file}), "ParseZempFile log=0" + accepted);
    EXPECT_EQ(parsed({"-c", "-f", file}), "ParseZempFile log=1" + accepted);
    EXPECT_EQ(parsed({"-f", file, "-c"}), "RunConsole log=1" + accepted);
}

TEST_F(ArgParserFiles, AreRejected) {
    const std::string missing = "ArgParser::verifiyIsFile() No file name from realpath!\n";
    EXPECT_EQ(parsed({"-f", directory + "/none"}), missing + "NoAction log=1 level=6 ''\n");
    EXPECT_EQ(parsed({"-v", "2", "-p", directory + "/none"}), "NoAction log=1 level=2 ''\n");
    EXPECT_EQ(parsed({"-f", file, "-f", directory + "/none"}),
              missing + "NoAction log=1 level=6 '" + resolved + "'\n");
    for (const char illegal : std::string("?\"<>|;"))
        EXPECT_EQ(parsed({"-t", scratch.write(std::string("a") + illegal, "x")}),
                  "NoAction log=0 level=6 ''\n");
}

TEST_F(ArgParserFiles, DirectoryIsAcceptedWithAWarning) {
    const std::string warning = "ArgParser::verifiyIsFile() Ups, '" + directory + "' is not a file!\n";
    EXPECT_EQ(parsed({"-f", directory}), warning + "ParseZempFile log=1 level=6 '" + directory + "'\n");
    EXPECT_EQ(standardOutputOf([&] { EXPECT_FALSE(ArgParser::verifyIsDirectory(file)); }),
              "ArgParser::verifyIsDirectory() Ups, '" + file + "' is not a directory!\n");
}

// The bit that tells a regular file stands in the type of a socket, too: the check of one bit is deliberate.
TEST_F(ArgParserFiles, SocketPassesWithoutAWarning) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (directory + "/socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(descriptor);
    EXPECT_EQ(parsed({"-f", directory + "/socket"}),
              "ParseZempFile log=1 level=6 '" + directory + "/socket'\n");
}

TEST_F(ArgParserFiles, TildeStandsForTheHomeDirectory) {
    setenv("HOME", directory.c_str(), 1);
    EXPECT_EQ(parsed({"-f", "~/image.zemp"}), "ParseZempFile log=1 level=6 '" + resolved + "'\n");

    scratch.write("two words", "x"); // more than one word is left as it is
    std::string path = "~/two words";
    ArgParser::expandTilde(path);
    EXPECT_EQ(path, "~/two words");
}

} // namespace
