#include "support/PrivateBus.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

namespace {

void writeConfiguration(const std::string& file, const std::string& address) {
    std::ofstream out(file);
    out << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>session</type>\n"
           "  <listen>"
        << address
        << "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n"
           "    <allow own=\"*\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
    out.close();
    if (!out)
        throw std::runtime_error("cannot write " + file);
}

// Between fork and exec: only what is allowed there.
[[noreturn]] void runDaemon(const char* configuration, const char* printAddress, const char* log) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int fd = open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd >= 0)
        dup2(fd, STDERR_FILENO);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execlp("dbus-daemon", "dbus-daemon", "--nofork", "--nosyslog", configuration, printAddress, nullptr);
    _exit(127);
}

} // namespace

PrivateBus::PrivateBus() : mAddress("unix:path=" + mDirectory.file("bus")), mOwner(getpid()) {
    writeConfiguration(mDirectory.file("bus.conf"), mAddress);
    start();
}

PrivateBus::~PrivateBus() {
    if (getpid() == mOwner)
        stop();
}

void PrivateBus::stop() {
    if (mPid <= 0)
        return;
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    mPid = -1;
    unlink(mDirectory.file("bus").c_str());
}

void PrivateBus::start() {
    const std::string configuration = "--config-file=" + mDirectory.file("bus.conf");
    const std::string log = mDirectory.file("bus.log");
    int ends[2];
    if (mPid > 0 || pipe(ends) != 0)
        throw std::runtime_error("message bus runs already, or no pipe for it");
    const std::string printAddress = "--print-address=" + std::to_string(ends[1]);
    mPid = fork();
    if (mPid == 0)
        runDaemon(configuration.c_str(), printAddress.c_str(), log.c_str());
    close(ends[1]);

    // The daemon prints its address when it listens; it ends without a word when it cannot.
    char byte = 0;
    const bool listening = mPid > 0 && read(ends[0], &byte, 1) == 1;
    close(ends[0]);
    if (!listening) {
        stop();
        std::ifstream reasons(log);
        const std::string text{std::istreambuf_iterator<char>(reasons), std::istreambuf_iterator<char>()};
        throw std::runtime_error("dbus-daemon does not start: " + text);
    }
}

} // namespace support
