// The web server and the downloader of the rig in one: serves byte ranges of images kept in memory into
// fragment files as the real downloader would, with faults by request.
#ifndef TESTS_UPDATE_RIG_SCRIPTEDSERVER_H
#define TESTS_UPDATE_RIG_SCRIPTEDSERVER_H

#include "imagefile/ImageBuilder.h"
#include "workitems/DownloadRequest.h"
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace rig {

enum class Fault {
    None,
    NotFound,  // an error page instead of the bytes; complete
    Cut,       // half of the bytes, then the connection closes: transient
    Reset,     // half of the bytes, then a reset: permanent
    Stall,     // no byte, then a time-out: transient
    Refused,   // no connection: transient
    FlipBit,   // one bit of the answer is wrong; complete
    WholeFile, // the range is ignored; complete
    OpenFails  // the file cannot be opened: transient, and the request is not handed back
};
constexpr int FaultCount = 9;

class ScriptedServer {
  public:
    std::map<std::string, imagefile::Bytes> images; // by URL; any other is not found
    std::deque<Fault> faults;                       // of the next requests
    Fault fault = Fault::None;                      // of all others
    std::function<void(imagefile::Bytes&)> alter;   // changes an answer before it is served
    uint64_t space = UINT64_MAX;                    // bytes that fit on the disk

    // Serves one request. False when it is dropped rather than handed back.
    bool serve(DownloadRequest& request);

    // The ranges asked for so far, oldest first.
    const std::vector<std::string>& ranges() const { return mRanges; }

  private:
    std::vector<std::string> mRanges;
};

} // namespace rig

#endif
