#include "lab/PlannedPart.h"

#include <stdexcept>

namespace lab {

std::vector<PlannedPart> matchParts(const plan::UpdatePlan& plan, const imagefile::ImageReader& image) {
    if (!plan.isReady)
        throw std::runtime_error("'" + plan.image + "': no update comes of it" +
                                 (plan.complaints.empty() ? "" : ": " + plan.complaints.front()));
    std::vector<PlannedPart> parts;
    for (const imagefile::ImagePart& part : image.parts())
        if (part.isType(ZempFormat::SwBlobType) && parts.size() < plan.elements.size())
            parts.push_back({&plan.elements[parts.size()], &part});
    return parts;
}

} // namespace lab
