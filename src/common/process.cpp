#include "common/process.h"

#include "common/strutil.h"
#include "vex/kq.h"
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int LogPriorityError = 3;
constexpr int StandardStreams = 3; // descriptors 0 to 2
constexpr int ClosedDescriptors = 32;
constexpr int StatusForkFailed = 126;
constexpr int StatusNotRun = 127;

using Tokens = std::unique_ptr<char*, decltype(&strsplit_free)>;

// Both ends of the pipe through which the process in between tells the pid of the detached one.
struct PidPipe {
    int readEnd = -1;
    int writeEnd = -1;

    // False when there is no pipe to be had. Both ends lie above the standard descriptors, which the child
    // replaces.
    bool open() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return false;
        readEnd = moveUp(ends[0]);
        writeEnd = moveUp(ends[1]);
        if (readEnd >= 0 && writeEnd >= 0)
            return true;
        const int error = errno;
        close();
        errno = error;
        return false;
    }

    void close() {
        closeEnd(readEnd);
        closeEnd(writeEnd);
    }

    static void closeEnd(int& end) {
        if (end >= 0)
            ::close(end);
        end = -1;
    }

  private:
    static int moveUp(int fd) {
        if (fd >= StandardStreams)
            return fd;
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, StandardStreams);
        const int error = errno;
        ::close(fd);
        errno = error;
        return moved;
    }
};

void logFailure(const char* program) {
    kq_slog(LogPriorityError, "%s: %d: %s: %m\n", "_proc_spawnv", static_cast<int>(getpid()), program);
}

// The pid that came through the pipe, -1 if none did.
int receivePid(int fd) {
    int32_t pid = -1;
    ssize_t count = 0;
    do
        count = read(fd, &pid, sizeof pid);
    while (count < 0 && errno == EINTR);
    return count == sizeof pid ? pid : -1;
}

bool sendPid(int fd, pid_t pid) {
    const int32_t value = pid;
    ssize_t count = 0;
    do
        count = write(fd, &value, sizeof value);
    while (count < 0 && errno == EINTR);
    return count == sizeof value;
}

void closeDescriptors(const PidPipe& pipe) {
    for (int fd = 0; fd < ClosedDescriptors; ++fd)
        if (fd != pipe.readEnd && fd != pipe.writeEnd)
            close(fd);
}

bool isSelected(int flags, int fd) {
    return fd < StandardStreams && (flags & (1 << fd)) != 0;
}

void redirectToNull(int flags) {
    const int null = open("/dev/null", O_RDWR);
    if (null < 0)
        return;
    for (int fd = 0; fd < StandardStreams; ++fd)
        if (isSelected(flags, fd) && fd != null)
            dup2(null, fd);
    if (!isSelected(flags, null))
        close(null);
}

// Leaves the caller's session; returns only in the detached process.
void detach(PidPipe& pipe) {
    setsid();
    const pid_t pid = fork();
    if (pid < 0)
        _exit(StatusForkFailed);
    if (pid > 0)
        _exit(sendPid(pipe.writeEnd, pid) ? 0 : 1);
    pipe.close();
}

[[noreturn]] void runChild(int flags, PidPipe& pipe, char** tokens) {
    if ((flags & ProcCloseFds) != 0)
        closeDescriptors(pipe);
    if ((flags & (ProcNullStdin | ProcNullStdout | ProcNullStderr)) != 0)
        redirectToNull(flags);
    if ((flags & ProcDetach) != 0)
        detach(pipe);
    execvp(tokens[0], tokens);
    logFailure(tokens[0]);
    _exit(StatusNotRun);
}

} // namespace

int _proc_checkpid(int pid, int* status, int options) {
    int raw = 0;
    const int result = waitpid(pid, &raw, options);
    if (result < 0) {
        if (errno == EINTR)
            return 0;
        kq_slog(LogPriorityError, "%s: %d: %m\n", "_proc_checkpid", pid);
        return result;
    }
    if (result == 0)
        return 0;
    if (WIFEXITED(raw))
        raw = WEXITSTATUS(raw);
    else if (WIFSIGNALED(raw))
        raw = WTERMSIG(raw);
    if (status != nullptr)
        *status = raw;
    return result;
}

int proc_checkpid(int pid, int* status) {
    return _proc_checkpid(pid, status, WNOHANG);
}

int proc_waitpid(int pid) {
    int status = 0;
    int result = 0;
    do
        result = _proc_checkpid(pid, &status, 0);
    while (result == 0);
    return result > 0 ? status : result;
}

int _proc_spawn(int flags, const char* command) {
    const Tokens tokens(strsplit(command, " ", nullptr), &strsplit_free);
    if (!tokens || *tokens == nullptr)
        return -1;
    PidPipe pipe;
    if ((flags & ProcDetach) != 0 && !pipe.open()) {
        logFailure(*tokens);
        return -1;
    }
    const pid_t child = fork();
    if (child < 0) {
        logFailure(*tokens);
        pipe.close();
        return -1;
    }
    if (child == 0)
        runChild(flags, pipe, tokens.get());

    PidPipe::closeEnd(pipe.writeEnd); // else the read below would wait for our own copy
    int result = child;
    if ((flags & ProcWait) != 0)
        result = proc_waitpid(child);
    if ((flags & ProcDetach) != 0)
        result = receivePid(pipe.readEnd);
    pipe.close();
    return result;
}

int proc_run(const char* command) {
    return _proc_spawn(ProcNullStdin | ProcNullStdout | ProcNullStderr | ProcCloseFds | ProcWait, command);
}

int proc_spawn(const char* command) {
    return _proc_spawn(ProcNullStdin | ProcNullStdout | ProcNullStderr | ProcCloseFds, command);
}

int proc_daemon(const char* command) {
    return _proc_spawn(ProcNullStdin | ProcNullStdout | ProcNullStderr | ProcCloseFds | ProcDetach | ProcWait,
                       command);
}
