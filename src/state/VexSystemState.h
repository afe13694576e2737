// Names of the states of the terminal as a whole, the vocabulary shared with the platform's other programs.
// The table is built before main and not changed afterwards, so any thread may read it.
#ifndef STATE_VEXSYSTEMSTATE_H
#define STATE_VEXSYSTEMSTATE_H

#include <map>
#include <string>

class VexSystemState {
  public:
    enum VexState : int {
        Unknown = 0,
        Failure = 1,
        Selftest = 2,
        CheckUsbFirmware = 3,
        Reboot = 4,
        Poweroff = 5,
        GetConfiguration = 6,
        ParseConfiguration = 7,
        NewFirmware = 8,
        WaitCDNetwork = 9,
        WaitVEXNetwork = 10,
        Ready = 11,
        ProcessingCall = 12,
        Fatal = 13
    };

    // Fills the table; called once, before main.
    static void createMap();

    // State by name.
    static std::map<std::string, VexState> mStrToStateMap;
};

#endif
