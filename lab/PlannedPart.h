// The parts of an image, each with what the plan says of it.
#ifndef LAB_PLANNEDPART_H
#define LAB_PLANNEDPART_H

#include "imagefile/ImageReader.h"
#include "plan/UpdatePlan.h"
#include <vector>

namespace lab {

// A line of the manifest with the part that it stands for.
struct PlannedPart {
    const plan::Element* element;
    const imagefile::ImagePart* part;

    bool isNeeded() const { return element->isNeeded; } // its body is to be downloaded

    // The part's name in the image, which tells parts of one pool for two platforms apart.
    std::string name() const { return part->name(); }
};

// In the manifest's order, which is the order of the parts in the image. Plan and reader must outlive the
// result. Throws std::runtime_error with the image's name when the plan does not end with an update image.
std::vector<PlannedPart> matchParts(const plan::UpdatePlan& plan, const imagefile::ImageReader& image);

} // namespace lab

#endif
