// Base of a program that can run as a daemon.
#ifndef VEX_LINUXDAEMON_H
#define VEX_LINUXDAEMON_H

#include "vex/Export.h"

namespace common {

class VEX_PUBLIC LinuxDaemon {
  public:
    virtual ~LinuxDaemon() = default;

    // Forks into a session of its own with the standard descriptors on /dev/null, holds a lock on `pidFile`
    // and records the pid there, then calls init() and run() in the child. SIGTERM and SIGINT lead to
    // terminated(), called from an ordinary thread. Returns in the child when run() has returned, the pid
    // file removed; in the parent when the child has recorded its pid or failed to. False, with the reason in
    // the system log and on standard error, when the daemon could not be started: a second instance, or a pid
    // file that cannot be written. Call it before any other thread exists.
    [[nodiscard]] bool daemonize(const char* pidFile);

    virtual void init() = 0;
    virtual void run() = 0;

    // Asks run() to return. Called at any time from init() on, by another thread than run()'s.
    virtual void terminated() = 0;
};

} // namespace common

#endif
