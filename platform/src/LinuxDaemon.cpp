#include "vex/LinuxDaemon.h"

#include "PidFile.h"
#include "StopSignals.h"
#include "vex/kq.h"
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>

namespace common {

namespace {

// The child's message to the parent: this alone, or the reason why it failed.
constexpr const char* sStarted = "started";

void sayRefused(const std::string& reason) {
    kq_slog(LOG_ERR, "cannot start the daemon: %s", reason.c_str());
    fprintf(stderr, "%s: cannot start the daemon: %s\n", program_invocation_short_name, reason.c_str());
}

// Descriptors 0 to 2 are taken, so that none of ours becomes one of them.
void fillStandardDescriptors() {
    int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = fcntl(fd, F_DUPFD, fd + 1);
    if (fd > STDERR_FILENO)
        close(fd);
}

bool redirectStandardDescriptors(std::string& error) {
    const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    bool good = fd >= 0;
    for (int standard = STDIN_FILENO; good && standard <= STDERR_FILENO; ++standard)
        good = dup2(fd, standard) == standard;
    if (!good)
        error = std::string("cannot use /dev/null: ") + strerror(errno);
    if (fd > STDERR_FILENO)
        close(fd);
    return good;
}

void report(int pipeEnd, const std::string& text) {
    // The text fits the pipe, so it goes out at once; a parent that has died needs none.
    while (write(pipeEnd, text.data(), text.size()) < 0 && errno == EINTR) {
    }
    close(pipeEnd);
}

// Until the child has closed its end.
std::string awaitReport(int pipeEnd) {
    std::string text;
    char buffer[256];
    while (true) {
        const ssize_t count = read(pipeEnd, buffer, sizeof buffer);
        if (count > 0)
            text.append(buffer, static_cast<size_t>(count));
        else if (count == 0 || errno != EINTR)
            break;
    }
    close(pipeEnd);
    return text;
}

// The parent's part: true when the child runs.
bool awaitChild(pid_t child, int pipeEnd) {
    const std::string text = awaitReport(pipeEnd);
    if (text == sStarted)
        return true;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    sayRefused(text.empty() ? "it ended before it was ready" : text);
    return false;
}

// The child's part up to the report; ends the process when it fails.
void becomeDaemon(PidFile& pidFile, StopSignals& signals, int pipeEnd, std::function<void()> onStop) {
    std::string error;
    setsid();
    bool good = redirectStandardDescriptors(error);
    if (good) {
        const int result = signals.start(std::move(onStop));
        good = result == 0;
        if (!good)
            error = std::string("no thread: ") + strerror(result);
    }
    good = good && pidFile.record(error);
    if (!good) {
        signals.stop();
        pidFile.remove();
        report(pipeEnd, error);
        _exit(EXIT_FAILURE);
    }
    signals.restoreInChildren();
    report(pipeEnd, sStarted);
}

} // namespace

bool LinuxDaemon::daemonize(const char* pidFile) {
    StopSignals signals;
    PidFile file;
    std::string error;
    int ends[2] = {-1, -1};
    fillStandardDescriptors();
    bool good = file.lock(pidFile, error);
    if (good && pipe2(ends, O_CLOEXEC) != 0) {
        good = false;
        error = std::string("no pipe: ") + strerror(errno);
    }
    fflush(nullptr); // else the child would print it again
    const pid_t child = good ? fork() : -1;
    if (child == 0) {
        close(ends[0]);
        becomeDaemon(file, signals, ends[1], [this] { terminated(); });
        init();
        run();
        signals.stop();
        file.remove();
        return true;
    }
    if (good && child < 0)
        error = std::string("no process: ") + strerror(errno);
    if (ends[1] >= 0)
        close(ends[1]);
    const bool started = child > 0 && awaitChild(child, ends[0]);
    if (child < 0) {
        sayRefused(error);
        if (ends[0] >= 0)
            close(ends[0]);
    }
    if (!started)
        file.remove();
    signals.unblock();
    return started;
}

} // namespace common
