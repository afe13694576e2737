#include "lab/PlannedPart.h"

#include <stdexcept>

namespace lab {

namespace {

std::string describeDamage(const imagefile::ImageReader& image) {
    std::string text;
    for (const imagefile::ImagePart& part : image.parts())
        if (!part.isBodyValid())
            text += ": the body of '" + part.name() + "' at offset " + std::to_string(part.offset) +
                    (part.isComplete() ? " is damaged" : " is incomplete");
    return text;
}

} // namespace

std::vector<PlannedPart> matchParts(const plan::UpdatePlan& plan, const imagefile::ImageReader& image) {
    if (!plan.isReady)
        throw std::runtime_error("'" + plan.image + "': no update comes of it" + describeDamage(image) +
                                 (plan.complaints.empty() ? "" : ": " + plan.complaints.front()));
    std::vector<PlannedPart> parts;
    for (const imagefile::ImagePart& part : image.parts())
        if (part.isType(ZempFormat::SwBlobType) && parts.size() < plan.elements.size())
            parts.push_back({&plan.elements[parts.size()], &part});
    return parts;
}

} // namespace lab
