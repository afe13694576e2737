#include "update/FwAction.h"

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
