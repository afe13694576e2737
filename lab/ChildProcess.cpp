#include "lab/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace lab {

namespace {

constexpr Milliseconds sPollInterval{5};

// What the child needs between fork and exec, where nothing may be allocated.
struct Launch {
    std::string program;
    std::vector<char*> arguments;
    std::vector<std::string> environmentTexts;
    std::vector<char*> environment;
    std::vector<int> keep; // ascending
    int standard[3] = {-1, -1, -1};
    int errorPipe = -1;
    pid_t parent = -1;
};

Launch prepare(const ChildOptions& options) {
    Launch launch;
    if (options.arguments.empty())
        throw std::runtime_error("no program to start");
    launch.program = findProgram(options.arguments.front());
    for (const std::string& argument : options.arguments)
        launch.arguments.push_back(const_cast<char*>(argument.c_str()));
    launch.arguments.push_back(nullptr);

    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        const bool replaced =
            std::any_of(options.environment.begin(), options.environment.end(), [&](const auto& variable) {
                return text.compare(0, text.find('='), variable.first) == 0;
            });
        if (!replaced)
            launch.environmentTexts.push_back(text);
    }
    for (const auto& [name, value] : options.environment)
        launch.environmentTexts.push_back(std::string(name).append("=").append(value));
    for (std::string& text : launch.environmentTexts)
        launch.environment.push_back(text.data());
    launch.environment.push_back(nullptr);

    launch.keep = options.keep;
    std::sort(launch.keep.begin(), launch.keep.end());
    launch.standard[0] = options.input;
    launch.standard[1] = options.output;
    launch.standard[2] = options.error >= 0 ? options.error : options.output;
    launch.parent = getpid();
    return launch;
}

[[noreturn]] void failInChild(int errorPipe) {
    const int reason = errno;
    const ssize_t ignored = write(errorPipe, &reason, sizeof reason);
    _exit(ignored == sizeof reason ? 127 : 126);
}

// Closes all descriptors above the standard ones but those to be kept.
void closeOthers(const Launch& launch) {
    unsigned from = STDERR_FILENO + 1;
    size_t next = 0;
    while (true) {
        // Merge the error pipe, which exec closes, into the ascending list.
        int keep = next < launch.keep.size() ? launch.keep[next] : -1;
        if (launch.errorPipe >= static_cast<int>(from) && (keep < 0 || launch.errorPipe < keep))
            keep = launch.errorPipe;
        else if (keep >= 0)
            ++next;
        if (keep < 0)
            break;
        if (keep < static_cast<int>(from))
            continue;
        if (keep > static_cast<int>(from))
            close_range(from, static_cast<unsigned>(keep) - 1, 0);
        from = static_cast<unsigned>(keep) + 1;
    }
    close_range(from, ~0U, 0);
}

[[noreturn]] void runChild(const Launch& launch) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != launch.parent)
        _exit(127);
    setpgid(0, 0);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    int sources[3];
    for (int i = 0; i < 3; ++i) // moved up first, so that none is overwritten before its turn
        sources[i] = fcntl(launch.standard[i] >= 0 ? launch.standard[i] : null, F_DUPFD_CLOEXEC, 10);
    for (int i = 0; i < 3; ++i)
        if (sources[i] < 0 || dup2(sources[i], i) < 0)
            failInChild(launch.errorPipe);
    closeOthers(launch);
    for (const int fd : launch.keep)
        if (fcntl(fd, F_SETFD, 0) < 0)
            failInChild(launch.errorPipe);

    for (int number = 1; number < NSIG; ++number)
        if (number != SIGKILL && number != SIGSTOP)
            ::signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execve(launch.program.c_str(), launch.arguments.data(), launch.environment.data());
    failInChild(launch.errorPipe);
}

} // namespace

bool ExitStatus::isExit(int code) const {
    return WIFEXITED(raw) && WEXITSTATUS(raw) == code;
}

std::string ExitStatus::toString() const {
    if (WIFSIGNALED(raw))
        return std::string("by signal ") + strsignal(WTERMSIG(raw));
    return "with status " + std::to_string(WEXITSTATUS(raw));
}

std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos)
        return name;
    const char* const path = getenv("PATH");
    std::istringstream directories(std::string(path != nullptr ? path : "") +
                                   ":/usr/local/sbin:/usr/sbin:/sbin:/usr/local/bin:/usr/bin:/bin");
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        if (directory.empty())
            continue;
        directory.append("/").append(name);
        if (access(directory.c_str(), X_OK) == 0)
            return directory;
    }
    throw std::runtime_error("program '" + name + "' is not installed");
}

ChildProcess::ChildProcess(const ChildOptions& options) : mOwner(getpid()) {
    Launch launch = prepare(options);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("no pipe: ") + strerror(errno));
    launch.errorPipe = ends[1];
    mPid = fork();
    if (mPid == 0)
        runChild(launch);
    const int forkError = errno;
    close(ends[1]);
    int reason = mPid < 0 ? forkError : 0;
    const bool failed = mPid < 0 || read(ends[0], &reason, sizeof reason) == sizeof reason;
    close(ends[0]);
    if (!failed)
        return;
    if (mPid > 0)
        waitpid(mPid, nullptr, 0);
    throw std::runtime_error("cannot start '" + launch.program + "': " + strerror(reason));
}

ChildProcess::~ChildProcess() {
    if (getpid() == mOwner)
        kill();
}

bool ChildProcess::running() {
    if (mExitStatus)
        return false;
    int raw = 0;
    pid_t result = 0;
    do {
        result = waitpid(mPid, &raw, WNOHANG);
    } while (result < 0 && errno == EINTR);
    if (result == 0)
        return true;
    mExitStatus = ExitStatus{result == mPid ? raw : 0};
    return false;
}

bool ChildProcess::waitFor(Milliseconds time) {
    const auto deadline = std::chrono::steady_clock::now() + time;
    while (running()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(sPollInterval);
    }
    return true;
}

void ChildProcess::signal(int number) {
    if (running())
        ::kill(mPid, number);
}

void ChildProcess::kill() {
    if (mExitStatus)
        return;
    ::kill(-mPid, SIGKILL);
    ::kill(mPid, SIGKILL); // also when it has not made its group yet
    int raw = 0;
    pid_t result = 0;
    do {
        result = waitpid(mPid, &raw, 0);
    } while (result < 0 && errno == EINTR);
    mExitStatus = ExitStatus{result == mPid ? raw : 0};
}

} // namespace lab
