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
    // terminated(), called from an ordinary thread, which has ended when this returns.
    //
    // Returns in the child when run() has returned, the pid file removed; the two signals stay blocked then,
    // so that a late one does not disturb the rest of the program. What the daemon forks gets the caller's
    // signal mask back.
    //
    // Returns in the parent when the child has recorded its pid or failed to. False, with the reason in the
    // system log and on standard error, when the daemon could not be started: a second instance, or a pid
    // file that cannot be written. Only the parent is told so; a child that failed has ended.
    //
    // Call it before any other thread exists, and once. The working directory stays.
    [[nodiscard]] bool daemonize(const char* pidFile);

    virtual void init() = 0;
    virtual void run() = 0;

    // Asks run() to return, also when it has not begun yet. Called by another thread than run()'s, at any
    // time, shortly before init() too; once for each signal.
    virtual void terminated() = 0;
};

} // namespace common

#endif
