#include "state/VexSystemState.h"

std::map<std::string, VexSystemState::VexState> VexSystemState::mStrToStateMap;

namespace {

struct MapCreator {
    MapCreator() { VexSystemState::createMap(); }
} sMapCreator;

} // namespace

void VexSystemState::createMap() {
    mStrToStateMap.insert({
        {"unknown", Unknown},
        {"Failure", Failure},
        {"Selftest", Selftest},
        {"CheckUsbFirmware", CheckUsbFirmware},
        {"Reboot", Reboot},
        {"Poweroff", Poweroff},
        {"GetConfiguration", GetConfiguration},
        {"ParseConfiguration", ParseConfiguration},
        {"NewFirmware", NewFirmware},
        {"WaitCDNetwork", WaitCDNetwork},
        {"WaitVEXNetwork", WaitVEXNetwork},
        {"Ready", Ready},
        {"ProcessingCall", ProcessingCall},
        {"Fatal", Fatal},
    });
}
