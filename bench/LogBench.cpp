// A log line that the level suppresses, one that goes to standard output, and the same by fprintf alone.
#include "common/VexStreamLog.h"
#include <benchmark/benchmark.h>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace {

// While it lives, std::clog is the daemon's log and standard output leads nowhere.
class Log {
  public:
    explicit Log(LogPriority level)
        : mLevel(VexStreamLog::getLevel()), mLog("fw_bench", VexStreamLog::Console, level) {
        fflush(stdout);
        mOutput = dup(STDOUT_FILENO);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
        mBefore = std::clog.rdbuf(&mLog);
    }
    ~Log() {
        VexStreamLog::setLevel(mLevel);
        std::clog.rdbuf(mBefore);
        fflush(stdout);
        dup2(mOutput, STDOUT_FILENO);
        close(mOutput);
    }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

  private:
    const LogPriority mLevel; // of the log before
    VexStreamLog mLog;
    std::streambuf* mBefore = nullptr;
    int mOutput = -1;
};

void writeLines(benchmark::State& state, LogPriority level) {
    const Log log(level);
    const std::string file = "/data/fw/fw_download_ContentPart_kernel";
    unsigned size = 0;
    for (auto _ : state)
        VEX_LOG(LogDebug) << "Downloader::download() Filename='" << file << "' has size " << ++size << ".";
}

void logSuppressed(benchmark::State& state) {
    writeLines(state, LogInfo);
}

void logEmitted(benchmark::State& state) {
    writeLines(state, LogDebug);
}

void logPrintf(benchmark::State& state) {
    const Log log(LogDebug);
    const std::string file = "/data/fw/fw_download_ContentPart_kernel";
    unsigned size = 0;
    for (auto _ : state)
        fprintf(stdout, "%s(%s): Downloader::download() Filename='%s' has size %u.\n", "fw_bench",
                "LOG_DEBUG", file.c_str(), ++size);
}

BENCHMARK(logSuppressed);
BENCHMARK(logEmitted);
BENCHMARK(logPrintf);

} // namespace
