// What happens in a lab run, for whoever shows or records it.
#ifndef LAB_LABEVENT_H
#define LAB_LABEVENT_H

#include "lab/UpdateServer.h"
#include <cstdint>
#include <string>

namespace lab {

struct LabEvent {
    enum Kind {
        Step,    // the lab did something, or found something out
        Warning, // something that may make the run fail
        Log,     // a line of the daemon's log
        Signal,  // a signal on the message bus
        Request, // a request that the web server answered
        Action   // the daemon went over to another next action, as its status tells
    };

    double time = 0; // in seconds since the run began
    Kind kind = Step;
    std::string text; // for an action its name; for a request: which bytes of the image they are, in words

    std::string priority;    // of a Log: "LOG_INFO"; empty for a line that does not name one
    ServedRequest request{}; // of a Request
};

// How far the download is.
struct LabProgress {
    uint64_t fetched = 0;  // bytes on disk
    uint64_t expected = 0; // bytes of an undisturbed update
    std::string current;   // what is being fetched, in words; empty when the log does not tell
};

// Told on the thread of the run.
class LabObserver {
  public:
    virtual ~LabObserver() = default;
    virtual void onEvent(const LabEvent& event) = 0;
    virtual void onProgress(const LabProgress& /*progress*/) {}

    // Asked again and again; true ends the run early.
    virtual bool isStopRequested() { return false; }
};

} // namespace lab

#endif
