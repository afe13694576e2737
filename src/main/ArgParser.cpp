#include "main/ArgParser.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <iostream>
#include <memory>
#include <sys/stat.h>
#include <wordexp.h>

namespace {

constexpr int DefaultVerbosity = 6;
constexpr unsigned long MaximumVerbosity = 7;
constexpr int WarnVerbosity = 3;          // lowest verbosity at which file warnings are printed
constexpr mode_t RegularFileBit = 0x8000; // tested alone, so that other types sharing the bit pass
constexpr const char* IllegalCharacters = "?\"<>|;";

} // namespace

ArgParser* ArgParser::sInstance = nullptr;
int ArgParser::sLogType = 0;
int ArgParser::sVerbosity = DefaultVerbosity;
std::string ArgParser::sDownloadDirectory = "/data/fw";
std::string ArgParser::sFwUpdateBaseFilename = "fw_download_update.zemp";

ArgParser* ArgParser::getInstance() {
    if (sInstance == nullptr)
        sInstance = new ArgParser;
    return sInstance;
}

ArgParser::Actions ArgParser::parseArguments(int argc, char** argv) {
    mAction = RunDaemon;
    optind = 0; // a second call starts over
    int option = 0;
    while ((option = getopt(argc, argv, "cf:hp:t:v:")) != -1) {
        switch (option) {
        case 'c':
            sLogType = 1;
            mAction = RunConsole;
            break;
        case 'f':
            sLogType = 1;
            mAction = parseFileArgument(optarg) ? ParseZempFile : NoAction;
            break;
        case 'p':
            sLogType = 1;
            mAction = parseFileArgument(optarg) ? ParseContentPartFile : NoAction;
            break;
        case 't': // as -f, but the result goes to the system log
            mAction = parseFileArgument(optarg) ? ParseZempFile : NoAction;
            break;
        case 'v':
            sVerbosity = static_cast<int>(std::min(strtoul(optarg, nullptr, 0), MaximumVerbosity));
            break;
        case 'h':
            mAction = NoAction;
            showProgramUsage();
            break;
        default:
            mAction = ReturnError;
            break;
        }
    }
    return mAction;
}

const char* ArgParser::getText(Actions action) {
    switch (action) {
    case ReturnError:
        return "ReturnError";
    case NoAction:
        return "NoAction";
    case ShowProgramUsage:
        return "ShowProgramUsage";
    case ParseZempFile:
        return "ParseZempFile";
    case ParseContentPartFile:
        return "ParseContentPartFile";
    case RunConsole:
        return "RunConsole";
    case RunDaemon:
        return "RunDaemon";
    }
    return "Unknown";
}

void ArgParser::showProgramUsage() const {
    std::cout << "VEX Firmware Download Daemon\n"
                 "\n"
                 "Options:\n"
                 "-c            Start in console mode\n"
                 "-f <file>     Parse the given ZEMP file and list content parts."
                 "-p <file>     Parse the given file for a content part, and list it."
                 "-v <level>    Verbosity of log messages (levels 0-8) Default "
              << DefaultVerbosity
              << ".\n"
                 "-h            Prints this message\n"
                 "\n"
              << std::flush;
}

void ArgParser::expandTilde(std::string& path) {
    if (path.compare(0, 2, "~/") != 0)
        return;
    wordexp_t words = {};
    const int result = wordexp(path.c_str(), &words, 0);
    if (result == 0 && words.we_wordc == 1)
        path = words.we_wordv[0];
    if (result == 0 || result == WRDE_NOSPACE)
        wordfree(&words);
}

char* ArgParser::verifyIsFile(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
        if (sVerbosity >= WarnVerbosity)
            printf("ArgParser::verifiyIsFile() No file name from realpath!\n");
        return nullptr;
    }
    struct stat status = {};
    if (stat(resolved, &status) == 0 && (status.st_mode & RegularFileBit) != 0)
        return resolved;
    if (sVerbosity >= WarnVerbosity)
        printf("ArgParser::verifiyIsFile() Ups, '%s' is not a file!\n", resolved);
    return resolved;
}

bool ArgParser::verifyIsDirectory(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        return true;
    if (sVerbosity >= WarnVerbosity)
        printf("ArgParser::verifyIsDirectory() Ups, '%s' is not a directory!\n", path.c_str());
    return false;
}

bool ArgParser::parseFileArgument(const char* arg) {
    if (arg == nullptr)
        return false;
    std::string path = arg;
    expandTilde(path);
    if (path.find_first_of(IllegalCharacters) != std::string::npos)
        return false;
    const std::unique_ptr<char, decltype(&free)> resolved(verifyIsFile(path), &free);
    if (!resolved)
        return false;
    mFilename = resolved.get();
    return true;
}
