// Whether an update can run on this terminal: one question after another, each answered by the code that the
// daemon and the plan of an update use. Changes nothing; the bus name of a daemon that is not on the bus is
// taken for a moment.
//
// Used by one thread, while nothing else of the process uses the log, the database or the daemon's settings.
#ifndef FWCHECK_CHECK_H
#define FWCHECK_CHECK_H

#include "installed/SuuInfo.h"
#include <ctime>
#include <functional>
#include <string>

namespace fwcheck {

enum class Verdict { Ok, Wrong, NotAsked };

struct Answer {
    std::string question; // one word
    Verdict verdict;
    std::string text; // what was found; what is wrong, and what to do; or why it was not asked
};

// What is looked at besides bus and database, which the environment names.
struct Places {
    Places();

    std::string run = "/run"; // of the daemon's pid file and the folder of its status
    std::string processes = "/proc";
    std::string downloads; // as the daemon has it
    std::string temporary; // of its compiler's file
    std::string keys = "/etc/fw_download/keys.d";
    std::string serial = "/var/lib/fw_download/serial";
    RecordPaths record;
    time_t now;
};

// Tells each answer as soon as it is known. False when one is wrong: then no update can run. `isStopped` is
// asked while a server is waited for, about once a second; then the rest is not asked.
bool check(const Places& places, const std::function<void(const Answer&)>& tell,
           const std::function<bool()>& isStopped = {});

} // namespace fwcheck

#endif
