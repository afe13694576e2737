// The next action of the update cycle.
#ifndef UPDATE_FWACTION_H
#define UPDATE_FWACTION_H

#include <string>

struct FwAction {
    // What the update handler does or waits for next. When each is set and left:
    //
    //   action                 set by                                          left by
    //   ScanExistingFiles      the daemon; a failed compile, for the timer     scan result
    //   ParseZempParts         scan result, complete download                  parse result
    //   NoAction               scan result without files; answer "no"          the daemon
    //   GetZempParts           answer "yes" without image start; the walk      download result
    //   FindNeededParts        answer "yes" with image start; the daemon       the walk
    //   CompileUpdateZempFile  last parse result; walk with all parts ready    compile result
    //   SetReadyForUpdate      complete compile; the daemon, when forced       ready result
    //   WaitForFwUpdate        ready result                                    the daemon, on another version
    enum NextAction : int {
        Unspecified = -1,
        NoAction = 0,
        ScanExistingFiles = 1,
        GetZempParts = 2,
        ParseZempParts = 3,
        FindNeededParts = 4, // has no printed name
        CompileUpdateZempFile = 5,
        SetReadyForUpdate = 6,
        WaitForFwUpdate = 7
    };

    // Printed name; "Unknown action (" value ")" for an action without one.
    static std::string getString(NextAction action);
};

#endif
