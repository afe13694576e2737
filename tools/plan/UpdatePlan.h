// What an undisturbed update of a terminal will do, told before the first byte is fetched: the parts that are
// needed and why, and every request that the daemon will send.
//
// The daemon's own master, update handler and installed-software view decide; only the workers are stood in
// for. What a request would bring is taken from the image. Of an image on a web server only the headers are
// fetched: bodies that they leave out are taken to be sound. In a local image all of them are checked, so
// that a damaged one shows here as it would in the field.
//
// Used by one thread, while nothing else of the process uses the log or the daemon's settings.
#ifndef PLAN_UPDATEPLAN_H
#define PLAN_UPDATEPLAN_H

#include "imagefile/ImageSource.h"
#include <cstdint>
#include <string>
#include <vector>

namespace plan {

struct Request {
    enum What { Start, RestOfStart, Header, HeaderAndBody, Body };

    std::string range;  // as it is sent, "first-last"
    uint64_t first = 0; // bytes that come of it
    uint64_t bytes = 0;
    What what = Start;
    std::string part; // name; empty for the start
};

// "image start", "kernel header", "kernel body" and so on.
std::string getText(const Request& request);

// A line of the manifest, in its order.
struct Element {
    unsigned index = 0;
    std::string pool;
    std::string platform;
    std::string mountPoint;
    std::string version;                // in the image
    std::vector<std::string> installed; // versions on the partitions of the pool
    bool isNeeded = false;
    std::string reason; // why it is needed or not
};

// Where a part stands in the image. All that the daemon comes to see of it.
struct PlacedPart {
    std::string name;
    uint64_t offset = 0;
    uint64_t size = 0;
};

struct UpdatePlan {
    static constexpr uint64_t BytesPerSecond = 25000; // the daemon's speed, unless it logs everything

    std::string image;   // its name
    std::string release; // its version, which the plan takes as configured
    uint64_t imageBytes = 0;
    std::vector<Element> elements;
    std::vector<PlacedPart> parts;
    std::vector<Request> requests;

    // Whether the update ends with an image that is ready to be installed. Else the requests are those that
    // the daemon sends before it begins to wait between them, and the complaints are what it logs.
    bool isReady = false;
    std::vector<std::string> complaints;

    uint64_t updateImageBytes = 0; // of the compiled image; 0 when there is none

    uint64_t fetchedBytes() const;
    double seconds() const { return static_cast<double>(fetchedBytes()) / BytesPerSecond; }
    std::string durationText() const; // "3.2 s", "12 min 30 s"

    // At most, all at one time: in the download directory, and for the temporary file of the compile.
    uint64_t downloadDirectoryBytes() const { return fetchedBytes() + updateImageBytes; }
    uint64_t temporaryBytes() const;
};

// `recordFile` is the terminal's host configuration record; an empty name stands for one that has nothing
// installed. `isStopped` is asked between the steps. Throws std::runtime_error with the reason when image or
// record cannot be read, the image has no release header to begin with, or the plan was stopped.
UpdatePlan makePlan(imagefile::ImageSource& image, const std::string& recordFile,
                    const std::function<bool()>& isStopped = {});

// How much of an image the daemon fetches at most to get its manifest, in bytes.
uint64_t getMaximumStartBytes();

} // namespace plan

#endif
