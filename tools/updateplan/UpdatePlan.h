// What a terminal needs of an image: decided by the daemon's own code from the image's manifest and the
// terminal's host configuration record, without a daemon and without a download.
//
// Used by one thread while no other uses the log or the installed-software view.
#ifndef UPDATEPLAN_UPDATEPLAN_H
#define UPDATEPLAN_UPDATEPLAN_H

#include "imagefile/ImageReader.h"
#include <cstdint>
#include <string>
#include <vector>

namespace updateplan {

// A line of the manifest with the part that it stands for.
struct PlannedPart {
    unsigned contentIndex = 0; // the part's place in the compiled image
    std::string pool;
    std::string platform; // as in the manifest: "-" or empty for every platform
    std::string mountPoint;
    imagefile::Version version;
    bool isNeeded = false;              // its body is to be downloaded
    const imagefile::ImagePart* part{}; // in the reader that the plan was made from

    // The part's name in the image, which tells parts of one pool for two platforms apart.
    std::string name() const { return part->name(); }
};

class UpdatePlan {
  public:
    // Throws std::runtime_error with the reason when image or record cannot serve an update: a manifest that
    // is not there or not valid, parts that do not match it line by line, a record that does not load. The
    // reader must outlive the plan.
    UpdatePlan(const imagefile::ImageReader& image, const std::string& recordFile);

    // In the manifest's order, which is the order of the parts in the image.
    const std::vector<PlannedPart>& parts() const { return mParts; }

    size_t neededCount() const;

    // Bytes that an undisturbed update downloads: the image start, each part's header, the needed bodies.
    uint64_t fetchBytes() const { return mFetchBytes; }

  private:
    std::vector<PlannedPart> mParts;
    uint64_t mFetchBytes = 0;
};

// The version text of the release in the record's active set, with a blank before the build as the system
// writes it, for example "1.05 7"; empty when no set is active. Throws as UpdatePlan does.
std::string installedVersion(const std::string& recordFile);

} // namespace updateplan

#endif
