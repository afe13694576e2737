// Jobs for measurements from outside, each in a process of its own.
//
//     fw_probe run COMMAND...            runs it, prints its figures: seconds, seconds, kB, status
//     fw_probe until TEXT COMMAND...     the same, up to a text in its output
//     fw_probe threads N COMMAND...      the same, up to its Nth thread
//     fw_probe cut IMAGE DIRECTORY       makes the part files of an update
//     fw_probe compile IMAGE DIRECTORY   compiles them, prints seconds, kB
//     fw_probe download URL LAST FILE    fetches bytes 0 to LAST as the daemon does at debug level
//     fw_probe log-suppressed N          N log lines below the level
//     fw_probe log-emitted N             N log lines
#include "bench/Measure.h"
#include "bench/UpdateParts.h"
#include "common/VexStreamLog.h"
#include "image/ZempCreator.h"
#include "workers/Downloader.h"
#include "workitems/DownloadRequest.h"
#include <cstdio>
#include <cstdlib>
#include <curl/curl.h>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace {

using Arguments = std::vector<std::string>;

double sSyncSeconds = 0; // spent in fsync()

void setLog(LogPriority level) {
    std::clog.rdbuf(new VexStreamLog("fw_probe", VexStreamLog::Console, level));
}

int print(const Figures& figures) {
    printf("%.6f %.6f %ld %d\n", figures.wall, figures.processor, figures.peak, figures.status);
    return 0;
}

int compile(const std::string& image, const std::string& directory) {
    setLog(LogWarning);
    const UpdateParts parts(image, directory);
    ZempCreator::setTempFilename(directory + "/temp");
    const std::string output = directory + "/update";
    unlink(output.c_str());
    const double begin = processorSeconds();
    if (!ZempCreator(parts.map()).createZemp(output))
        throw std::runtime_error("compile failed");
    printf("%.6f %ld\n", processorSeconds() - begin - sSyncSeconds, peakKilobytes());
    return 0;
}

int download(const std::string& url, unsigned last, const std::string& filename) {
    setLog(LogDebug);
    curl_global_init(CURL_GLOBAL_ALL);
    FileFragment fragment(FileFragment::ContentPart, 0, last);
    fragment.setFilename(filename);
    DownloadRequest request(url, &fragment);
    wqueue<FwWorkItem*> in;
    wqueue<FwWorkItem*> master;
    Downloader downloader(in, master);
    in.add(&request);
    if (downloader.start() != 0 || master.remove() != &request ||
        request.getDownloadStatus() != DownloadRequest::DownloadComplete)
        throw std::runtime_error("download failed");
    return 0;
}

int log(LogPriority level, unsigned long count) {
    setLog(level);
    for (unsigned long i = 0; i < count; ++i)
        VEX_LOG(LogDebug) << "Downloader::download() Filename='"
                          << "/data/fw/fw_download_ContentPart"
                          << "' has size " << i << ".";
    return 0;
}

int run(const Arguments& arguments) {
    const std::string& job = arguments.at(0);
    if (job == "run")
        return print(runProgram({arguments.begin() + 1, arguments.end()}));
    if (job == "until")
        return print(runUntil(arguments.at(1), {arguments.begin() + 2, arguments.end()}));
    if (job == "threads")
        return print(runUntilThreads(static_cast<unsigned>(std::stoul(arguments.at(1))),
                                     {arguments.begin() + 2, arguments.end()}));
    if (job == "cut") {
        UpdateParts::cut(arguments.at(1), arguments.at(2));
        return 0;
    }
    if (job == "compile")
        return compile(arguments.at(1), arguments.at(2));
    if (job == "download")
        return download(arguments.at(1), static_cast<unsigned>(std::stoul(arguments.at(2))), arguments.at(3));
    if (job == "log-suppressed")
        return log(LogInfo, std::stoul(arguments.at(1)));
    if (job == "log-emitted")
        return log(LogDebug, std::stoul(arguments.at(1)));
    throw std::runtime_error("no job '" + job + "'");
}

} // namespace

extern "C" {

// The linker puts it in the place of fsync().
int __real_fsync(int fd);
int __wrap_fsync(int fd) {
    const double begin = processorSeconds();
    const int result = __real_fsync(fd);
    sSyncSeconds += processorSeconds() - begin;
    return result;
}
}

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "fw_probe: " << error.what() << "\n";
        return 1;
    }
}
