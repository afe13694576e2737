// Process entry: the run modes, the log stream, the HTTP library's start, and what a signal does.
#include "common/VexStreamLog.h"
#include "common/printable.h"
#include "image/ZempParser.h"
#include "main/ArgParser.h"
#include "main/SignalThread.h"
#include "status/StatusFile.h"
#include "update/FwDownloadDaemon.h"
#ifdef FW_SEAL
#include "seal/SealGate.h"
#endif
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr const char* Ident = "fw_download";
constexpr const char* PidFile = "/var/run/fw_download.pid";

// Descriptors 0 to 2 are taken before any object has one of its own: started without them, the daemon would
// lose what got their numbers when it turns to the background.
constexpr int BeforeGlobalObjects = 101; // the first priority that is not the compiler's
[[gnu::constructor(BeforeGlobalObjects)]] void fillStandardDescriptors() {
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = dup(fd);
    if (fd > STDERR_FILENO)
        close(fd);
}

// The process ends so long after it was told to, whatever holds it up: a log that nobody reads, a resolver,
// or a worker in a call to the disk, the bus or the database. What is on disk is then as good as after a
// kill, which the next start heals.
constexpr itimerval TimeToEnd = {{0, 0}, {1, 250000}};

[[noreturn]] void endNow(int /*sig*/) {
    _exit(EXIT_SUCCESS);
}

// Neither logs nor locks. Any thread; the first call counts.
void armStopDeadline() {
    static std::atomic_flag isArmed = ATOMIC_FLAG_INIT;
    if (isArmed.test_and_set())
        return;
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    setitimer(ITIMER_REAL, &TimeToEnd, nullptr);
}

#ifdef FW_SEAL
seal::SealGate theGate;
#else
seal::Gate theGate;
#endif

class Daemon : public FwDownloadDaemon {
  public:
    Daemon() : FwDownloadDaemon({}, theGate) {}

    void terminated() override {
        armStopDeadline();
        FwDownloadDaemon::terminated();
    }

    bool onFdLoopTimerTimeout() override {
        const bool isToGoOn = FwDownloadDaemon::onFdLoopTimerTimeout();
        status::Sources sources;
        sources.records = mUpdateHandler.get();
        sources.firstStatus = firstConfigDbStatus();
        sources.timerLeftMs = getDownloadTimerLeftMs();
        mStatusFile.update(std::move(sources), knownSuuInfo());
        return isToGoOn;
    }

  private:
    status::StatusFile mStatusFile;
};

Daemon theDaemon;

// Called by an ordinary thread.
void handleSignal(int sig) {
    armStopDeadline();
    VEX_LOG(LogNotice) << "Received signal(" << strsignal(sig) << " Terminating " << Ident << " ...";
    theDaemon.terminated();
}

void initCurlGlobal() {
    const CURLcode result = curl_global_init(CURL_GLOBAL_ALL);
    if (result != CURLE_OK)
        VEX_LOG(LogWarning) << "initCurlGlobal() Failed to initialize curl (" << curl_easy_strerror(result)
                            << ").";
    if (VexStreamLog::getLevel() < LogDebug)
        return;
    const curl_version_info_data* info = curl_version_info(CURLVERSION_FOURTH);
    VEX_LOG(LogDebug) << "CURL version: " << curl_version();
    VEX_LOG(LogDebug) << "CURL  version: " << info->version;
    VEX_LOG(LogDebug) << "             : 0x" << std::hex << info->version_num;
    VEX_LOG(LogDebug) << "          age: " << info->age;
    VEX_LOG(LogDebug) << "     features: 0x" << std::hex << info->features;
}

void runConsole() {
    const SignalThread signals(handleSignal); // first, so that a signal never ends the process by itself
    VEX_LOG(LogInfo) << "Start firmware download master in console mode.";
    initCurlGlobal();
    theDaemon.run();
    curl_global_cleanup();
}

void runDaemon() {
    VEX_LOG(LogInfo) << "Start firmware download daemon.";
    initCurlGlobal();
    if (!theDaemon.daemonize(PidFile))
        VEX_LOG(LogError) << "Failed to start firmware download daemon with '" << PidFile << "'.";
    curl_global_cleanup();
}

void parseFile(FileFragment::FragmentType type) {
    const SignalThread signals(handleSignal);
    VEX_LOG(LogInfo) << "Use firmware downloader to parse a file.";
    const std::string filename = ArgParser::getInstance()->getZempFilename();
    ZempParser parser;
    const bool parsed = parser.parseFile(filename, 0, type);
    if (parsed)
        std::cout << "\n" << filename << " :\n";
    else
        std::cout << "\nFailed to parse '" << filename << "' !\n";
    for (uint32_t i = 0; i < parser.getNumberOfZempParts(); ++i) {
        const std::unique_ptr<ZempPart> part(parser.getZempPartAt(i));
        if (parsed && part)
            std::cout << " - " << printable(part->toString()) << "\n";
    }
    std::cout << std::flush;
}

} // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);                 // whoever reads our output may go away
    signal(SIGALRM, endNow);                  // of the stop's deadline
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // lines show as they come, also in a pipe
    const ArgParser::Actions action = ArgParser::getInstance()->parseArguments(argc, argv);
    std::clog.rdbuf(new VexStreamLog(Ident, static_cast<VexStreamLog::Type>(ArgParser::getLogType()),
                                     static_cast<LogPriority>(ArgParser::getVerbosity())));
    VEX_LOG(LogDebug) << "Arguments parsed, action=" << ArgParser::getText(action) << ".";
    switch (action) {
    case ArgParser::RunConsole:
        runConsole();
        break;
    case ArgParser::ParseZempFile:
        parseFile(FileFragment::ZempFile);
        break;
    case ArgParser::ParseContentPartFile:
        parseFile(FileFragment::ContentPart);
        break;
    case ArgParser::RunDaemon:
        runDaemon();
        break;
    case ArgParser::ReturnError:
    case ArgParser::NoAction:
    case ArgParser::ShowProgramUsage:
        break;
    }
    exit(0);
}
