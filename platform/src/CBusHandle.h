// The connection behind cbus_handle_t; for the platform's own sources.
#ifndef PLATFORM_CBUSHANDLE_H
#define PLATFORM_CBUSHANDLE_H

#include <sys/types.h>
#include <systemd/sd-bus.h>

struct cbus_handle_t {
    sd_bus* bus = nullptr; // owned by the connection
    pid_t owner = 0;       // the process that made it; no other may touch it
};

// Whether signals can be sent. False for null.
bool cbusIsOpen(const cbus_handle_t* handle);

// Where signals travel.
namespace cbus {
constexpr const char* sPath = "/vex/cbus";
constexpr const char* sInterface = "vex.CBus1";
constexpr const char* sMember = "Signal";
} // namespace cbus

#endif
