// A message bus of a test's own: a real dbus-daemon on a socket in a temporary directory.
#ifndef SUPPORT_PRIVATEBUS_H
#define SUPPORT_PRIVATEBUS_H

#include "support/TemporaryDirectory.h"
#include <string>
#include <sys/types.h>

namespace support {

class PrivateBus {
  public:
    // Starts the daemon and waits until it accepts connections. Throws std::runtime_error when it does not.
    PrivateBus();

    // Kills it. It also dies with the thread that started it.
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // For $VEX_CBUS_ADDRESS; stays the same over stop() and start().
    const std::string& address() const { return mAddress; }

    // Kills the daemon; its clients lose their connection. Harmless when it does not run.
    void stop();

    // Starts it again; throws as the constructor does.
    void start();

  private:
    TemporaryDirectory mDirectory;
    std::string mAddress;
    const pid_t mOwner;
    pid_t mPid = -1;
};

} // namespace support

#endif
