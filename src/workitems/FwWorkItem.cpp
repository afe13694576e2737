#include "workitems/FwWorkItem.h"

const char* FwWorkItem::getString(FwWorkItem::WorkItemType type) {
    switch (type) {
    case FwWorkItem::UnspecifiedWorkItemType:
        return "UnspecifiedWorkItemType";
    case FwWorkItem::ConfigDbStatusEvent:
        return "ConfigDbStatusEvent";
    case FwWorkItem::NewFirmwareNeededEvent:
        return "NewFirmwareNeededEvent";
    case FwWorkItem::FileScanRequest:
        return "FileScanRequest";
    case FwWorkItem::DownloadRequest:
        return "DownloadRequest";
    case FwWorkItem::ParseFileRequest:
        return "ParseFileRequest";
    case FwWorkItem::GotZempStartEvent:
        return "GotZempStartEvent";
    case FwWorkItem::SuuInfoInvalidEvent:
        return "SuuInfoInvalidEvent";
    case FwWorkItem::IsUpdateNeededRequest:
        return "IsUpdateNeededRequest";
    case FwWorkItem::CompileUpdateZempRequest:
        return "CompileUpdateZempRequest";
    case FwWorkItem::SetReadyForUpdateRequest:
        return "SetReadyForUpdateRequest";
    case FwWorkItem::FileDeleteRequest:
        return "FileDeleteRequest";
    case FwWorkItem::ExitRunLoop:
        return "ExitRunLoop";
    }
    return "<unknown WorkItem type>";
}

std::string FwWorkItem::toString() const {
    return std::string(getString(mWorkItemType)) + " " + getStatus();
}
