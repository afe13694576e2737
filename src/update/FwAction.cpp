#include "update/FwAction.h"

#include <cstddef>

namespace {

constexpr bool hasOneRowForEachCauseInOrder() {
    size_t count = 0;
    for (const FwAction::Transition& row : FwAction::Transitions)
        if (row.cause != static_cast<FwAction::Cause>(count++))
            return false;
    return count == static_cast<size_t>(FwAction::Cause::ForcedAgain) + 1;
}
static_assert(hasOneRowForEachCauseInOrder());

} // namespace

const FwAction::Transition& FwAction::find(Cause cause) {
    return Transitions[static_cast<size_t>(cause)];
}

std::string FwAction::getString(NextAction action) {
    switch (action) {
    case Unspecified:
        return "Unspecified";
    case NoAction:
        return "NoAction";
    case ScanExistingFiles:
        return "ScanExistingFiles";
    case GetZempParts:
        return "GetZempParts";
    case ParseZempParts:
        return "ParseZempParts";
    case FindNeededParts:
        break;
    case CompileUpdateZempFile:
        return "CompileUpdateZempFile";
    case SetReadyForUpdate:
        return "SetReadyForUpdate";
    case WaitForFwUpdate:
        return "WaitForFwUpdate";
    }
    return "Unknown action (" + std::to_string(static_cast<int>(action)) + ")";
}
