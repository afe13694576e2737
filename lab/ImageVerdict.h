// Whether a compiled update image is what a terminal should get: complete, right in every checksum, with
// every needed part as it stands in the source image, and nothing but the header of every other part.
#ifndef LAB_IMAGEVERDICT_H
#define LAB_IMAGEVERDICT_H

#include "lab/PlannedPart.h"
#include <cstdint>
#include <string>
#include <vector>

namespace lab {

struct ImageVerdict {
    // One line per part of the source image: what was found for it.
    struct Row {
        std::string part;
        std::string finding; // "needed, identical (412345 bytes)", "not needed, header only", or the fault
        bool isGood = false;
    };

    uint64_t size = 0; // of the compiled image
    std::vector<Row> rows;
    std::vector<std::string> faults; // all that is wrong, readable by themselves; empty: the image is good

    bool isGood() const { return faults.empty(); }
};

// Compares the compiled image with the source image whose parts are given. A file that cannot be read
// as an image is a fault like any other.
ImageVerdict judgeImage(const std::string& compiledFile, const imagefile::ImageReader& source,
                        const std::vector<PlannedPart>& parts);

} // namespace lab

#endif
