#include "lab/ReportRecorder.h"

namespace lab {

const std::vector<ActionMeaning> sActions = {
    {"NoAction", "nothing to do, or the answer whether an update is needed is waited for"},
    {"ScanExistingFiles", "looks at what is in the download directory"},
    {"GetZempParts", "fetches what is missing"},
    {"ParseZempParts", "reads what was fetched"},
    {"FindNeededParts", "looks for what is needed"},
    {"CompileUpdateZempFile",
     "walks along the manifest, and compiles the update image when nothing is missing"},
    {"SetReadyForUpdate", "flags it as ready"},
    {"WaitForFwUpdate", "waits for the installer"},
};

std::vector<ActionChange> findActions(const std::vector<LabEvent>& events) {
    std::vector<ActionChange> changes;
    for (const LabEvent& event : events)
        if (event.kind == LabEvent::Action)
            changes.push_back({event.time, event.text});
    return changes;
}

} // namespace lab
