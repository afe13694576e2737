// One whole update in a lab, from nothing to a checked update image, and what came of it.
#ifndef LAB_LABRUN_H
#define LAB_LABRUN_H

#include "lab/ImageVerdict.h"
#include "lab/Lab.h"
#include "lab/LabEvent.h"
#include "lab/RunFacts.h"
#include <string>
#include <vector>

namespace lab {

// A software part of the image.
struct LabPart {
    std::string name;
    std::string version;
    uint64_t offset = 0;
    uint64_t size = 0; // of header, body and padding
    bool isNeeded = false;
};

struct LabResult {
    // How far it came. Each is also the step that failed, when one did.
    enum Step {
        Prepare,       // image, record, plan
        StartServices, // private file system, bus, web server, database
        StartDaemon,
        Announce, // configure, and raise "evt.confd.updated"
        Update,   // until the image is flagged ready
        Check,    // the compiled image
        StopDaemon,
        Done
    };

    Step step = Prepare;
    std::string failure; // empty: none
    bool isGood() const { return step == Done && failure.empty(); }

    RunFacts facts;
    std::string imageVersion;
    std::string installedVersion;
    std::string configuredVersion;
    std::vector<LabPart> parts; // by offset
    uint64_t imageBytes = 0;
    std::vector<LabEvent> requests; // in the order in which they ended
    uint64_t fetchedBytes = 0;      // of all answers' bodies
    std::string readyFile;          // as the terminal names it
    ImageVerdict verdict;
    std::string daemonLog; // on the machine; empty when the daemon was not started
    double seconds = 0;    // until the image was flagged ready; 0: it was not
    double endSeconds = 0; // until the run's end
};

// "starting the daemon".
const char* getName(LabResult::Step step);

// Runs it in the directory; every failure is in the result. All processes have ended at the return.
LabResult runLab(const LabOptions& options, const WorkDirectory& directory, LabObserver& observer);

} // namespace lab

#endif
