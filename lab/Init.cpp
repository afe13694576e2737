#include "lab/Init.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lab {

namespace {

constexpr int sSignalBase = 128; // shells report an end by signal this way

int statusOf(int raw) {
    return WIFSIGNALED(raw) ? sSignalBase + WTERMSIG(raw) : WEXITSTATUS(raw);
}

// Collects all that has ended. False when no child is left.
bool collect(int& status) {
    int raw = 0;
    pid_t pid = 0;
    while ((pid = waitpid(-1, &raw, WNOHANG)) > 0)
        status = statusOf(raw);
    return pid == 0;
}

} // namespace

int runInit(char** arguments, int ready) {
    sigset_t watched;
    sigset_t before;
    sigemptyset(&watched);
    for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2})
        sigaddset(&watched, number);
    sigprocmask(SIG_BLOCK, &watched, &before);
    const pid_t pid = fork();
    if (pid == 0) {
        sigprocmask(SIG_SETMASK, &before, nullptr);
        close(ready);
        execvp(arguments[0], arguments);
        fprintf(stderr, "cannot start '%s': %s\n", arguments[0], strerror(errno));
        _exit(127);
    }
    if (pid < 0 || write(ready, "", 1) != 1)
        return 127;
    close(ready);
    int status = 127;
    while (collect(status)) {
        const int number = sigwaitinfo(&watched, nullptr);
        if (number > 0 && number != SIGCHLD)
            kill(-1, number); // everything else in this system: the first process is spared
    }
    return status;
}

} // namespace lab
