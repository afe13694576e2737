#include "lab/Shell.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace lab {

namespace fs = std::filesystem;

namespace {

constexpr const char* sTools = "/lab/tools"; // where the programs of this build are, in the terminal
constexpr const char* sGo = "/.shell";       // below /tmp: the terminal line is the shell's
constexpr const char* sLog = "/tmp/fw_download.log";
constexpr Milliseconds sTick{200};

// $0 is the daemon, $1 its level. What the user has left running ends with the shell.
constexpr const char* sScript = R"(
until [ -e /tmp/.shell ]; do sleep 0.02; done
rm /tmp/.shell
"$0" -c -v "$1" >/tmp/fw_download.log 2>&1 </dev/null &
if command -v bash >/dev/null; then bash --norc; else sh; fi
status=$?
kill -TERM -1 2>/dev/null
sleep 0.2
kill -KILL -1 2>/dev/null
exit $status
)";

// Lends the terminal line, if standard input is one, and takes it back.
class LineLoan {
  public:
    explicit LineLoan(pid_t group) {
        signal(SIGTTOU, SIG_IGN); // the line is another's when it is taken back
        mIsLent = isatty(STDIN_FILENO) != 0 && tcsetpgrp(STDIN_FILENO, group) == 0;
    }
    ~LineLoan() {
        if (mIsLent)
            tcsetpgrp(STDIN_FILENO, getpgrp());
    }
    LineLoan(const LineLoan&) = delete;
    LineLoan& operator=(const LineLoan&) = delete;

  private:
    bool mIsLent = false;
};

void greet(const Lab& lab, const std::string& url) {
    fprintf(stderr,
            "A terminal that has %s installed; version %s is configured, the image is at %s.\n"
            "fw_download runs, its log is %s. It looks at the configuration after a while, or at once with\n"
            "    vexctl signal send evt.confd.updated\n"
            "Try fwctl status --watch, fwctl check, vexctl config list, gdb -p $(pidof fw_download). "
            "exit ends it all.\n",
            lab.installedVersion().c_str(), lab.version().toString().c_str(), url.c_str(), sLog);
}

} // namespace

int runShell(const LabOptions& options, const WorkDirectory& directory, const std::atomic<bool>& stop) {
    Lab lab(options, directory);
    const std::string tools = fs::path(Programs::find().lab).parent_path();
    lab.terminal().bind({tools, sTools});
    lab.startServices();
    lab.configure();
    fs::create_directories(directory.run() + "/fw_download"); // as the service does

    ChildOptions shell;
    shell.arguments = {"sh", "-c", sScript, Terminal::DaemonPath, std::to_string(options.verbosity)};
    shell.environment = lab.daemonEnvironment();
    const char* const path = getenv("PATH");
    shell.environment.emplace_back("PATH",
                                   std::string(sTools) + ":" + (path != nullptr ? path : "/usr/bin:/bin"));
    shell.environment.emplace_back("PS1", "terminal# ");
    shell.input = STDIN_FILENO;
    shell.output = STDOUT_FILENO;
    shell.error = STDERR_FILENO;
    greet(lab, lab.webServer()->url());
    const auto process = lab.terminal().start(shell);
    const LineLoan loan(process->group());
    std::ofstream(directory.temporary() + sGo) << '\n';
    while (!process->waitFor(sTick))
        if (stop)
            return -1;
    return WEXITSTATUS(process->exitStatus()->raw);
}

} // namespace lab
