// A message bus of a test's or a lab run's own: a real dbus-daemon on a socket in a temporary directory.
#ifndef LAB_PRIVATEBUS_H
#define LAB_PRIVATEBUS_H

#include "lab/ChildProcess.h"
#include "lab/TemporaryDirectory.h"
#include <memory>
#include <string>

namespace lab {

class PrivateBus {
  public:
    // Starts the daemon and waits until it accepts connections. Throws std::runtime_error when it does not.
    PrivateBus();

    // Kills it. It also dies with the thread that started it.
    ~PrivateBus() = default;
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // For $VEX_CBUS_ADDRESS; stays the same over stop() and start().
    const std::string& address() const { return mAddress; }

    // Where the socket is, and its name there.
    const std::string& directory() const { return mDirectory.path(); }
    static constexpr const char* SocketName = "bus";

    bool running() { return mDaemon && mDaemon->running(); }

    // Kills the daemon; its clients lose their connection. Harmless when it does not run.
    void stop();

    // Starts it again; throws as the constructor does.
    void start();

  private:
    TemporaryDirectory mDirectory;
    std::string mAddress;
    std::unique_ptr<ChildProcess> mDaemon;
};

} // namespace lab

#endif
