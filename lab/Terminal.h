// The private file system of a terminal on the desk. Programs that run in it see the machine's programs and
// libraries read-only, and directories of their own in place of /tmp, /var/run and /data/fw; nothing else of
// the machine can be written. Processes are private too; the network is shared.
//
// Used by one thread.
#ifndef LAB_TERMINAL_H
#define LAB_TERMINAL_H

#include "lab/ChildProcess.h"
#include "lab/Descriptor.h"
#include "lab/WorkDirectory.h"
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lab {

// A program that runs in the terminal, with all processes that it starts.
class TerminalProcess {
  public:
    // Of a box that was told to describe itself and its readiness on these two pipes. Throws
    // std::runtime_error when it ends before that.
    TerminalProcess(const ChildOptions& options, Pipe& info, Pipe& ready);
    ~TerminalProcess() { kill(); }
    TerminalProcess(const TerminalProcess&) = delete;
    TerminalProcess& operator=(const TerminalProcess&) = delete;

    bool running() { return mBox.running(); }
    [[nodiscard]] bool waitFor(Milliseconds time) { return mBox.waitFor(time); }

    // Of the last of its processes; an end by signal counts as 128 plus its number.
    const std::optional<ExitStatus>& exitStatus() const { return mBox.exitStatus(); }

    // The process group that they begin in, as this machine sees it.
    pid_t group() const { return mBox.pid(); }

    // To all its processes.
    void signal(int number);

    // Ends all its processes at once, as a power cut would; they are gone at the return. Harmless when they
    // have ended.
    void kill();

    // Its processes by the name of their program, as this machine sees them, ancestors first.
    std::vector<pid_t> findProcesses(const std::string& program) const;

    // The root directory that its processes see, as long as one runs.
    std::string rootDirectory() const { return "/proc/" + std::to_string(mInit) + "/root"; }

  private:
    ChildProcess mBox;
    pid_t mInit = -1; // the terminal's first process, as this process sees it
};

class Terminal {
  public:
    struct Bind {
        std::string source; // on the machine
        std::string target; // in the terminal
        bool writable = false;
    };

    // The work directory must outlive the terminal.
    Terminal(const WorkDirectory& directory, Programs programs);

    // Shows one more file or directory in the programs that are started from now on.
    void bind(const Bind& bind) { mBinds.push_back(bind); }

    // Puts an empty disk of so many bytes in the place of a directory, for as long as each process runs.
    void useSmallDisk(const std::string& directory, unsigned bytes) { mDisks.emplace_back(directory, bytes); }

    void setVariable(const std::string& name, const std::string& value) {
        mVariables.emplace_back(name, value);
    }

    // Tries whether private file systems can be made at all. Throws std::runtime_error, with the reason and
    // advice, when this machine does not let this user.
    void check() const;

    // Starts a program, given with its path in the terminal; returns when signals reach it. Throws
    // std::runtime_error when it cannot be started.
    std::unique_ptr<TerminalProcess> start(ChildOptions options) const;

    // In the terminal.
    static constexpr const char* DaemonPath = "/lab/bin/fw_download";

  private:
    std::vector<std::string> boxArguments() const;

    const WorkDirectory& mDirectory;
    const Programs mPrograms;
    std::vector<Bind> mBinds;
    std::vector<std::pair<std::string, unsigned>> mDisks;
    std::vector<std::pair<std::string, std::string>> mVariables;
};

} // namespace lab

#endif
