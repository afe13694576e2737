// The books of an update as a report reads them. Main thread only; valid until the books change.
#ifndef UPDATE_UPDATEBOOKS_H
#define UPDATE_UPDATEBOOKS_H

#include <map>
#include <string>

class FetchGovernor;
class FileFragment;
class RequestLedger;
class ZempPart;

struct UpdateBooks {
    const RequestLedger& requests;
    const FetchGovernor& governor;
    const std::map<std::string, FileFragment*>& fragments;    // by file name
    const std::map<std::string, ZempPart*>& parts;            // by map key
    const std::map<const unsigned, ZempPart*>& suumZempParts; // by content index
    bool isScanForTimer;                                      // a failed compile's, which waits for the timer
};

#endif
