// Client of the terminal's message bus: named signals with a binary payload.
//
// The bus is the one at $VEX_CBUS_ADDRESS, else the system bus. A connection belongs to the thread whose loop
// it was connected on; all calls are made there. Signals arrive on that loop's thread. A handler may call
// disconnect(), but not destroy the connection. After a fork the child is not connected.
#ifndef VEX_CBUSCONNECTION_H
#define VEX_CBUSCONNECTION_H

#include "vex/Export.h"
#include <memory>
#include <string>

// A connection as the C interface sees it.
struct cbus_handle_t;

// Sends a signal with `length` bytes at `data` (null when 0). 0 on success, a negative error number
// otherwise; also for a null handle or name.
extern "C" VEX_PUBLIC int cbus_send_signal(cbus_handle_t* handle, const char* name, const void* data,
                                           unsigned length);

namespace common {

class FdLoop;

class VEX_PUBLIC CBusMessageHandler {
  public:
    virtual ~CBusMessageHandler() = default;

    // A signal of a registered name came. `data` is valid during the call only.
    virtual void onCBusSignal(const char* name, const void* data, unsigned length) = 0;
};

class VEX_PUBLIC CBusConnection {
  public:
    CBusConnection();
    ~CBusConnection();
    CBusConnection(const CBusConnection&) = delete;
    CBusConnection& operator=(const CBusConnection&) = delete;

    // Attaches to the bus as vex.client.<name> and to the loop, within a few seconds. False, with the reason
    // in the system log, when there is no bus or the name is taken; the connection may be tried again. A
    // connection that exists is given up first.
    [[nodiscard]] bool connect(const char* name, FdLoop& loop);

    // Detaches; filters and handlers are forgotten, signals that were sent still go out. Harmless when not
    // connected.
    void disconnect();

    // Whether the bus can be reached. When the bus ends, the loop notices: then this turns false, sending
    // fails, and only disconnect() and connect() lead back.
    bool connected() const;

    // Why the last call that failed did, one line; empty when none has.
    const std::string& lastError() const;

    // Asks the bus for signals whose name is `prefix` or begins with `prefix` and a dot; null or empty asks
    // for all. Elements of a prefix are letters, digits, '_' and '-', the first no digit, between dots. False
    // when it is none or not connected.
    [[nodiscard]] bool addFilter(const char* prefix);

    // Delivers signals of exactly this name, if a filter lets them in, to `handler`, which is not owned and
    // must live until disconnect(). A null `name` registers for every signal that the filters let in. False
    // for a null handler or when not connected.
    [[nodiscard]] bool registerSignalHandler(const char* name, CBusMessageHandler* handler);

    // Sends a signal; true when it was handed to the bus.
    [[nodiscard]] bool sendSignal(const char* name, const void* data, unsigned length);

    // For cbus_send_signal(); null when not connected. Valid until disconnect().
    cbus_handle_t* getHandle();

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

} // namespace common

#endif
