#include "lab/PrivateBus.h"

#include "lab/Descriptor.h"
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <unistd.h>

namespace lab {

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

} // namespace

PrivateBus::PrivateBus() : mAddress("unix:path=" + mDirectory.file(SocketName)) {
    writeConfiguration(mDirectory.file("bus.conf"), mAddress);
    start();
}

void PrivateBus::stop() {
    if (!mDaemon)
        return;
    mDaemon.reset();
    unlink(mDirectory.file(SocketName).c_str());
}

void PrivateBus::start() {
    if (mDaemon)
        throw std::runtime_error("message bus runs already");
    const std::string log = mDirectory.file("bus.log");
    const Descriptor output = Descriptor::open(log, O_WRONLY | O_CREAT | O_APPEND);
    Pipe address;
    ChildOptions options;
    options.arguments = {"dbus-daemon", "--nofork", "--nosyslog",
                         "--config-file=" + mDirectory.file("bus.conf"),
                         "--print-address=" + std::to_string(address.writeEnd.get())};
    options.output = output.get();
    options.keep = {address.writeEnd.get()};
    mDaemon = std::make_unique<ChildProcess>(options);
    address.writeEnd.close();

    // The daemon prints its address when it listens; it ends without a word when it cannot.
    char byte = 0;
    if (read(address.readEnd.get(), &byte, 1) == 1)
        return;
    stop();
    std::ifstream reasons(log);
    const std::string text{std::istreambuf_iterator<char>(reasons), std::istreambuf_iterator<char>()};
    throw std::runtime_error("dbus-daemon does not start: " + text);
}

} // namespace lab
