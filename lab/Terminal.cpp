#include "lab/Terminal.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace lab {

namespace fs = std::filesystem;

namespace {

constexpr Milliseconds sKillTime{10000};
constexpr const char* sInit = "/lab/bin/fw_lab";
constexpr const char* sLibraries = "/lab/lib";

// What of the machine's own tree is seen in a terminal, read-only: programs, libraries and their settings.
constexpr const char* sMachineTree[] = {"/usr",    "/bin", "/sbin", "/lib", "/lib32", "/lib64",
                                        "/libx32", "/etc", "/opt",  "/nix", "/gnu"};

std::string readAll(int fd) {
    std::string text;
    char buffer[512];
    ssize_t count = 0;
    while ((count = read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(count));
    return text;
}

std::string readFile(const std::string& file) {
    std::ifstream in(file);
    std::ostringstream text;
    text << in.rdbuf(); // a process may end meanwhile; then it has no more text
    return text.str();
}

void append(std::vector<std::string>& to, const std::vector<std::string>& more) {
    to.insert(to.end(), more.begin(), more.end());
}

// A directory of the machine, as itself or, where it is a link, as the same link.
std::vector<std::string> showMachine(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (fs::is_symlink(status))
        return {"--symlink", fs::read_symlink(path, error), path};
    if (fs::is_directory(status))
        return {"--ro-bind", path, path};
    return {};
}

} // namespace

TerminalProcess::TerminalProcess(const ChildOptions& options, Pipe& info, Pipe& ready) : mBox(options) {
    info.writeEnd.close();
    ready.writeEnd.close();
    const nlohmann::json description = nlohmann::json::parse(readAll(info.readEnd.get()), nullptr, false);
    char byte = 0;
    if (!description.is_object() || !description.contains("child-pid") ||
        read(ready.readEnd.get(), &byte, 1) != 1)
        throw std::runtime_error("the private file system could not be made");
    mInit = description["child-pid"].get<pid_t>();
}

void TerminalProcess::signal(int number) {
    if (running() && mInit > 0)
        ::kill(mInit, number);
}

// With the first process all others end, and the box after them. The box itself goes first only when it
// hangs.
void TerminalProcess::kill() {
    signal(SIGKILL);
    if (!waitFor(sKillTime))
        mBox.kill();
}

std::vector<pid_t> TerminalProcess::findProcesses(const std::string& program) const {
    std::vector<pid_t> found;
    std::vector<pid_t> family = {mInit};
    for (size_t i = 0; i < family.size(); ++i) {
        const std::string directory = "/proc/" + std::to_string(family[i]) + "/";
        if (readFile(directory + "comm") == program + "\n")
            found.push_back(family[i]);
        std::istringstream children(readFile(directory + "task/" + std::to_string(family[i]) + "/children"));
        pid_t child = -1;
        while (children >> child)
            family.push_back(child);
    }
    return found;
}

Terminal::Terminal(const WorkDirectory& directory, Programs programs)
    : mDirectory(directory), mPrograms(std::move(programs)) {
    setVariable("LD_LIBRARY_PATH", sLibraries);
}

std::vector<std::string> Terminal::boxArguments() const {
    std::vector<std::string> arguments = {"bwrap", "--die-with-parent", "--unshare-pid", "--as-pid-1"};
    for (const char* const path : sMachineTree)
        append(arguments, showMachine(path));
    append(arguments, {"--proc", "/proc", "--dev", "/dev"});
    append(arguments, {"--bind", mDirectory.temporary(), "/tmp"});
    append(arguments, {"--bind", mDirectory.run(), "/run", "--dir", "/var", "--symlink", "/run", "/var/run"});
    append(arguments, {"--bind", mDirectory.downloads(), "/data/fw"});
    append(arguments, {"--bind", mDirectory.database(), "/lab/db"});
    append(arguments, {"--bind", mDirectory.web(), "/lab/web"});
    append(arguments, {"--ro-bind", mPrograms.daemon, DaemonPath, "--ro-bind", mPrograms.lab, sInit});
    append(arguments, {"--ro-bind", fs::path(mPrograms.library).parent_path(), sLibraries});
    for (const auto& [directory, bytes] : mDisks)
        append(arguments, {"--size", std::to_string(bytes), "--tmpfs", directory});
    for (const Bind& bind : mBinds)
        append(arguments, {bind.writable ? "--bind" : "--ro-bind", bind.source, bind.target});
    for (const auto& [name, value] : mVariables)
        append(arguments, {"--setenv", name, value});
    append(arguments, {"--chdir", "/"});
    return arguments;
}

void Terminal::check() const {
    const std::string log = mDirectory.log("bwrap");
    ChildOptions options;
    options.arguments = boxArguments();
    append(options.arguments, {"--", "true"});
    Descriptor output = Descriptor::open(log, O_WRONLY | O_CREAT | O_TRUNC);
    options.output = output.get();
    ChildProcess box(options);
    if (!box.waitFor(Milliseconds(10000)))
        throw std::runtime_error("bubblewrap does not end");
    if (box.exitStatus()->isExit(0))
        return;
    std::string reason = readFile(log);
    reason.erase(reason.find_last_not_of(" \n") + 1);
    throw std::runtime_error(
        "bubblewrap cannot make a private file system here (" + reason +
        "). It needs user namespaces for ordinary users, or root with the right to mount: on a machine, "
        "allow "
        "them (sysctl kernel.unprivileged_userns_clone=1, or kernel.apparmor_restrict_unprivileged_userns=0) "
        "or run as root; in a container, start it privileged.");
}

std::unique_ptr<TerminalProcess> Terminal::start(ChildOptions options) const {
    Pipe info;
    Pipe ready;
    const int infoEnd = info.writeEnd.get();
    const int readyEnd = ready.writeEnd.get();
    std::vector<std::string> arguments = boxArguments();
    append(arguments, {"--info-fd", std::to_string(infoEnd), "--", sInit, "init", std::to_string(readyEnd)});
    append(arguments, options.arguments);
    options.arguments = arguments;
    options.keep.push_back(infoEnd);
    options.keep.push_back(readyEnd);
    return std::make_unique<TerminalProcess>(options, info, ready);
}

} // namespace lab
