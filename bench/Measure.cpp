#include "bench/Measure.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

double seconds(const timeval& time) {
    constexpr double MicrosecondsPerSecond = 1e6;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / MicrosecondsPerSecond;
}

double processorSeconds(const rusage& usage) {
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

pid_t start(const std::vector<std::string>& arguments, int output) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error("cannot start '" + arguments[0] + "': " + strerror(error));
    return pid;
}

void collect(pid_t pid, Figures& figures) {
    rusage usage = {};
    while (wait4(pid, &figures.status, 0, &usage) < 0 && errno == EINTR) {
    }
    figures.processor = processorSeconds(usage);
    figures.peak = usage.ru_maxrss;
}

void readUntil(int fd, const std::string& text) {
    std::string seen;
    char buffer[4096];
    while (seen.find(text) == std::string::npos) {
        const ssize_t count = read(fd, buffer, sizeof buffer);
        if (count <= 0)
            throw std::runtime_error("the program ended without '" + text + "'");
        seen.append(buffer, static_cast<size_t>(count));
    }
}

// Each thread is a directory there, and adds a link to the one above.
void waitForThreads(pid_t pid, unsigned threads) {
    constexpr unsigned OwnLinks = 2;
    const std::string directory = "/proc/" + std::to_string(pid) + "/task";
    struct stat status = {};
    siginfo_t info = {};
    while (stat(directory.c_str(), &status) != 0 || status.st_nlink < threads + OwnLinks) {
        std::this_thread::sleep_for(std::chrono::microseconds(10)); // leaves the processor to the program
        if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
            info.si_pid == pid)
            throw std::runtime_error("the program ended before it had that many threads");
    }
}

} // namespace

double processorSeconds() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return processorSeconds(usage);
}

long peakKilobytes() {
    const std::string name = "VmHWM:";
    std::ifstream file("/proc/self/status");
    for (std::string word; file >> word;) {
        long value = 0;
        if (word == name && file >> value)
            return value;
    }
    return 0;
}

Figures runProgram(const std::vector<std::string>& arguments) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    Figures figures;
    const auto begin = Clock::now();
    const pid_t pid = start(arguments, nowhere);
    collect(pid, figures);
    figures.wall = secondsSince(begin);
    close(nowhere);
    return figures;
}

Figures runUntil(const std::string& text, const std::vector<std::string>& arguments) {
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("no pipe: ") + strerror(errno));
    Figures figures;
    const auto begin = Clock::now();
    const pid_t pid = start(arguments, ends[1]);
    close(ends[1]);
    readUntil(ends[0], text);
    figures.wall = secondsSince(begin);
    kill(pid, SIGTERM);
    close(ends[0]);
    collect(pid, figures);
    return figures;
}

Figures runUntilThreads(unsigned threads, const std::vector<std::string>& arguments) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    Figures figures;
    const auto begin = Clock::now();
    const pid_t pid = start(arguments, nowhere);
    close(nowhere);
    waitForThreads(pid, threads);
    figures.wall = secondsSince(begin);
    kill(pid, SIGTERM);
    collect(pid, figures);
    return figures;
}
