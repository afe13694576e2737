#include "lab/ReportRecorder.h"

namespace lab {

namespace {

// How the log line begins with which the daemon takes to an action.
struct Sign {
    const char* logText;
    const char* action;
};
constexpr Sign sSigns[] = {
    {"ZempHandler::onFileScanRequest() Scanning", "ScanExistingFiles"},
    {"Downloader::download() Download ", "GetZempParts"},
    {"ZempHandler::onWorkItem(ParseFileRequest", "ParseZempParts"},
    {"FwDownloadDaemon::onGotZempStartEvent()", "FindNeededParts"},
    {"UpdateHandler::onGotZempStart() Ready to compile", "CompileUpdateZempFile"},
    {"UpdateHandler::onCompileZempResult() Ready to update from", "SetReadyForUpdate"},
    {"UpdateHandler::onSetReadyResult() Wait for update", "WaitForFwUpdate"},
    {"UpdateHandler::onIsUpdateNeededRequest() No need for update", "NoAction"},
};

} // namespace

std::vector<ActionChange> findActions(const std::vector<LabEvent>& events) {
    std::vector<ActionChange> changes;
    for (const LabEvent& event : events)
        for (const Sign& sign : sSigns)
            if (event.kind == LabEvent::Log && event.text.rfind(sign.logText, 0) == 0)
                changes.push_back({event.time, sign.action});
    return changes;
}

std::vector<std::string> actionNames() {
    std::vector<std::string> names;
    for (const Sign& sign : sSigns)
        names.emplace_back(sign.action);
    return names;
}

} // namespace lab
