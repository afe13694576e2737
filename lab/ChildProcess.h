// A process of the lab: started with everything decided beforehand, and gone when its object is gone.
//
// Used by one thread, which must outlive the process: a child dies with the thread that started it.
#ifndef LAB_CHILDPROCESS_H
#define LAB_CHILDPROCESS_H

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace lab {

using Milliseconds = std::chrono::milliseconds;

struct ChildOptions {
    std::vector<std::string> arguments; // the first is the program, a path or a name for findProgram()
    std::vector<std::pair<std::string, std::string>> environment; // added to this process's
    int input = -1;                                               // becomes standard input; -1: /dev/null
    int output = -1;                                              // becomes standard output; -1: /dev/null
    int error = -1;        // becomes standard error; -1: the same as standard output
    std::vector<int> keep; // descriptors that stay open under their numbers; all others are closed
};

// How a process ended.
struct ExitStatus {
    int raw = 0; // as wait() gives it

    bool isExit(int code) const;

    // "with status 3", "by signal Killed".
    std::string toString() const;
};

// Absolute path of a program by name: in $PATH, then where system programs stand. Throws std::runtime_error
// when there is none.
std::string findProgram(const std::string& name);

class ChildProcess {
  public:
    // Starts it, in a process group of its own, with no signal blocked and none ignored. Throws
    // std::runtime_error with the reason when it cannot be started.
    explicit ChildProcess(const ChildOptions& options);

    // Kills the process group, and waits.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return mPid; }

    // Collects the exit status if there is one.
    bool running();

    // Waits so long; true when the process has ended.
    [[nodiscard]] bool waitFor(Milliseconds time);

    // Of a process that has ended, as running() or waitFor() told; empty before.
    const std::optional<ExitStatus>& exitStatus() const { return mExitStatus; }

    // Sends a signal to the process; nothing when it has ended.
    void signal(int number);

    // Kills the process group, and waits. Harmless when it has ended.
    void kill();

  private:
    const pid_t mOwner; // the process that started it
    pid_t mPid = -1;
    std::optional<ExitStatus> mExitStatus;
};

} // namespace lab

#endif
