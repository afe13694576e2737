#include "workitems/Events.h"

const char* ConfigDbStatusEvent::getString(ConfigDbStatus status) {
    switch (status) {
    case ConfigNoUpdateNeeded:
        return "ConfigNoUpdateNeeded";
    case ConfigGetNewFirmware:
        return "ConfigGetNewFirmware";
    case ConfigWaitForUpdate:
        return "ConfigWaitForUpdate";
    case ConfigStatusUnspecified:
        return "ConfigStatusUnspecified";
    }
    return "<unknown config status>";
}
