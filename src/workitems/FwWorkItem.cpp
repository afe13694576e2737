#include "workitems/FwWorkItem.h"

const char* FwWorkItem::getString(WorkItemType type) {
    switch (type) {
    case WorkItemType::UnspecifiedWorkItemType:
        return "UnspecifiedWorkItemType";
    case WorkItemType::ConfigDbStatusEvent:
        return "ConfigDbStatusEvent";
    case WorkItemType::NewFirmwareNeededEvent:
        return "NewFirmwareNeededEvent";
    case WorkItemType::FileScanRequest:
        return "FileScanRequest";
    case WorkItemType::DownloadRequest:
        return "DownloadRequest";
    case WorkItemType::ParseFileRequest:
        return "ParseFileRequest";
    case WorkItemType::GotZempStartEvent:
        return "GotZempStartEvent";
    case WorkItemType::SuuInfoInvalidEvent:
        return "SuuInfoInvalidEvent";
    case WorkItemType::IsUpdateNeededRequest:
        return "IsUpdateNeededRequest";
    case WorkItemType::CompileUpdateZempRequest:
        return "CompileUpdateZempRequest";
    case WorkItemType::SetReadyForUpdateRequest:
        return "SetReadyForUpdateRequest";
    case WorkItemType::FileDeleteRequest:
        return "FileDeleteRequest";
    case WorkItemType::ExitRunLoop:
        return "ExitRunLoop";
    }
    return "<unknown WorkItem type>";
}

std::string FwWorkItem::toString() const {
    return std::string(getString(mWorkItemType)) + " " + getStatus();
}
