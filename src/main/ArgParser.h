// The command line, read once at start, and the process-wide settings that follow from it.
//
// parseArguments() is called from main before any thread exists; after that the settings are only read.
#ifndef MAIN_ARGPARSER_H
#define MAIN_ARGPARSER_H

#include <string>

class ArgParser {
  public:
    // What the process is to do.
    enum Actions : int {
        ReturnError = -1,
        NoAction = 0,
        ShowProgramUsage = 1,
        ParseZempFile = 2,
        ParseContentPartFile = 3,
        RunConsole = 4,
        RunDaemon = 5
    };

    // The one instance, made on first use and never freed. First called before any thread exists.
    static ArgParser* getInstance();

    // Parses the options and returns the resulting action; may be called again. Prints the usage text for -h
    // and the option parser's own diagnostics, and exits in no case.
    Actions parseArguments(int argc, char** argv);

    // Highest syslog priority that is written, 0 to 7.
    static int getVerbosity() { return sVerbosity; }

    // 0: log to syslog; 1: log to standard output.
    static int getLogType() { return sLogType; }

    // Absolute path of the file to parse; empty until one was accepted.
    std::string getZempFilename() const { return mFilename; }

    // Directory in which image fragments and the update image live.
    std::string getDownloadDirectory() const { return sDownloadDirectory; }

    // File name of the compiled update image inside the download directory, without its version.
    static std::string getFwUpdateBaseFilename() { return sFwUpdateBaseFilename; }

    // Replace the settings that no option sets; for a terminal with another layout, and for tests.
    static void setDownloadDirectory(const std::string& directory) { sDownloadDirectory = directory; }
    static void setFwUpdateBaseFilename(const std::string& filename) { sFwUpdateBaseFilename = filename; }

    // Printed name of an action, "Unknown" for a value outside the enumeration.
    static const char* getText(Actions action);

    // Prints the usage text on standard output.
    void showProgramUsage() const;

    // Replaces a path that begins with "~/" by its expansion, if that is a single word.
    static void expandTilde(std::string& path);

    // The resolved path, to be released with free(), or null when there is no such file. Something that is no
    // regular file gets a warning on standard output and is still returned.
    [[nodiscard]] static char* verifyIsFile(const std::string& path);

    // True for a directory; otherwise prints a warning on standard output.
    [[nodiscard]] static bool verifyIsDirectory(const std::string& path);

    // Accepts a file name given with an option and stores its resolved path.
    [[nodiscard]] bool parseFileArgument(const char* arg);

  private:
    ArgParser() = default;

    static ArgParser* sInstance;
    static int sLogType;
    static int sVerbosity;
    static std::string sDownloadDirectory;
    static std::string sFwUpdateBaseFilename;

    Actions mAction = ReturnError;
    std::string mFilename;
};

#endif
