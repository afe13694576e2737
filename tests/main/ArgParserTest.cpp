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

constexpr const char* Usage = "VEX Firmware Download Daemon\n"
                              "\n"
                              "Options:\n"
                              "-c            Start in console mode\n"
                              "-f <file>     Parse the given ZEMP file and list content parts."
                              "-p <file>     Parse the given file for a content part, and list it."
                              "-v <level>    Verbosity of log messages (levels 0-8) Default 6.\n"
                              "-h            Prints this message\n"
                              "\n";

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
struct Files : testing::Test {
    ScratchDir scratch;
    std::string directory = std::filesystem::canonical(scratch.path()).string();
    std::string file = scratch.write("image.zemp", "x");
    std::string resolved = directory + "/image.zemp";
};

using ArgParserFiles = Files;

TEST(ArgParser, DefaultsToTheDaemon) {
    EXPECT_EQ(parsed({}), "RunDaemon log=0 level=6 ''\n");
    EXPECT_EQ(inChild([] {
                  const ArgParser* parser = ArgParser::getInstance();
                  printf("%s %s", parser->getDownloadDirectory().c_str(),
                         ArgParser::getFwUpdateBaseFilename().c_str());
              }),
              "/data/fw fw_download_update.zemp");
}

TEST(ArgParser, VerbosityInEveryBaseUpToSeven) {
    const std::vector<std::pair<std::string, int>> levels = {
        {"3", 3}, {"0x3", 3}, {"07", 7}, {"9", 7}, {"abc", 0}, {"-1", 7}, {"99999999999999999999", 7}};
    for (const auto& [text, level] : levels)
        EXPECT_EQ(parsed({"-v", text}), "RunDaemon log=0 level=" + std::to_string(level) + " ''\n");
}

TEST(ArgParser, HelpPrintsTheUsageAtOnce) {
    EXPECT_EQ(parsed({"-v", "2", "-h"}), std::string(Usage) + "NoAction log=0 level=2 ''\n");
    EXPECT_EQ(parsed({"-h", "-c"}), std::string(Usage) + "RunConsole log=1 level=6 ''\n");
}

TEST(ArgParser, WrongOptionsAreAnErrorUntilALaterOneOverrides) {
    EXPECT_EQ(parsed({"-x"}), "ReturnError log=0 level=6 ''\n");
    EXPECT_EQ(parsed({"-v"}), "ReturnError log=0 level=6 ''\n");
    EXPECT_EQ(parsed({"-x", "-c"}), "RunConsole log=1 level=6 ''\n");
}

TEST(ArgParser, TextsOfActions) {
    EXPECT_STREQ(ArgParser::getText(ArgParser::ShowProgramUsage), "ShowProgramUsage");
    EXPECT_STREQ(ArgParser::getText(static_cast<ArgParser::Actions>(6)), "Unknown");
    EXPECT_STREQ(ArgParser::getText(static_cast<ArgParser::Actions>(-2)), "Unknown");
}

TEST_F(ArgParserFiles, AreAcceptedAndTheLastOptionWins) {
    const std::string accepted = " level=6 '" + resolved + "'\n";
    EXPECT_EQ(parsed({"-f", file}), "ParseZempFile log=1" + accepted);
    EXPECT_EQ(parsed({"-p", directory + "/../" + std::filesystem::path(directory).filename().string() +
                                "/image.zemp"}),
              "ParseContentPartFile log=1" + accepted);
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
    EXPECT_EQ(parsed({"-v2", "-f", directory}), "ParseZempFile log=1 level=2 '" + directory + "'\n");
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
    path = "x~/image.zemp";
    ArgParser::expandTilde(path);
    EXPECT_EQ(path, "x~/image.zemp");
}

TEST_F(ArgParserFiles, DirectoryCheck) {
    EXPECT_EQ(standardOutputOf([&] {
                  EXPECT_TRUE(ArgParser::verifyIsDirectory(directory));
                  EXPECT_FALSE(ArgParser::verifyIsDirectory(file));
                  EXPECT_FALSE(ArgParser::verifyIsDirectory("/no/such"));
              }),
              "ArgParser::verifyIsDirectory() Ups, '" + file +
                  "' is not a directory!\n"
                  "ArgParser::verifyIsDirectory() Ups, '/no/such' is not a directory!\n");
}

} // namespace
