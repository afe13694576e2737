// What the daemon is doing, how far it is, and what it waits for: made from the update's books, the workers'
// notices and the clock, and changing none of them.
#ifndef STATUS_STATUSREPORT_H
#define STATUS_STATUSREPORT_H

#include "common/Noticeboard.h"
#include "image/SuumBlob.h"
#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class ConfigDbStatusEvent;
class UpdateRecords;

namespace status {

enum class State {
    Starting, // the configuration is not known yet
    Idle,
    Disabled,
    Asking, // the monitor, whether an update is needed
    Scanning,
    Fetching,
    Parsing,
    TimerWait,    // for the download timer
    GovernorWait, // the same, since fetches brought nothing new
    Compiling,
    CompileWait, // for the timer, after a failed compile
    Flagging,
    Ready, // waits for the installer
    NoBus,
    NoDatabase,
    NoRecord
};

// Name for programs, and a sentence for people.
const char* getName(State state);
const char* getSentence(State state);

// One line of the image's manifest.
struct Element {
    std::string name;
    std::string version;
    std::string platform;         // empty or "-": any
    std::optional<bool> isNeeded; // its body; unknown without the record
    uint64_t bytes = 0;           // on disk
    uint64_t total = 0;           // to be on disk; 0 until its header is known
};

struct Transfer {
    std::string what;     // "image start" or the part's name
    std::string filename; // full path
    std::string range;    // "first-last", empty while unknown
    uint64_t bytes = 0;   // on disk
    uint64_t total = 0;   // 0: unknown
    unsigned rate = 0;    // bytes per second, of the last seconds
};

struct Report {
    std::string program; // its version
    long pid = 0;
    time_t started = 0; // seconds since 1970, as all times here
    State state = State::Starting;
    time_t since = 0; // in this state
    time_t until = 0; // when the timer comes that is waited for; 0: none
    std::string version;
    std::string url; // without user and password
    std::string installed;
    bool isForced = false;
    bool isDisabled = false;
    std::string configStatus;
    std::string action;
    std::string previousAction;
    std::vector<Element> elements;
    std::optional<Transfer> transfer;
    unsigned vainFetches = 0; // that brought the update no further
    std::map<Noticeboard::Failure, Noticeboard::Notice> failures;
    std::string readyImage;
};

// Where a report comes from. Nothing is owned; pointers may be null.
struct Sources {
    const UpdateRecords* records = nullptr;
    const ConfigDbStatusEvent* firstStatus = nullptr;
    bool isRecordKnown = false; // the host configuration record
    unsigned timerLeftMs = 0;
    Noticeboard::Content notices;
    time_t now = 0;
    std::function<bool(const SuumBlob::Element&)> isNeeded; // asked only when the record is known
    std::function<uint64_t(const std::string&)> sizeOf;     // of a file, bytes
};

// Pure but for what the functions in `sources` do. Program, pid, start, since and rate are the caller's.
Report makeReport(const Sources& sources);

// One JSON object with a line end. What is not printable ASCII in a text becomes "?".
std::string toJson(const Report& report);

} // namespace status

#endif
