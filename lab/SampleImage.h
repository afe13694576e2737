// An image and a terminal for those who bring none of their own: five parts, of which this terminal needs
// two.
#ifndef LAB_SAMPLEIMAGE_H
#define LAB_SAMPLEIMAGE_H

#include "imagefile/ImageBuilder.h"
#include <string>

namespace lab {

// Writes an image of release 1.05-7: kernel, kernel for platform 4812, root, app and 3rdapp, of several
// hundred kB each. Throws std::runtime_error when the file cannot be written.
void writeSampleImage(const std::string& filename);

// Writes the host configuration record of a terminal that runs release 1.04-3 and has app and 3rdapp of the
// sample image already. Throws likewise.
void writeSampleRecord(const std::string& filename);

// Writes the record of a terminal that has nothing installed, so that it needs every part for its platform.
void writeEmptyRecord(const std::string& filename);

// Bytes that depend on their offset, and on `seed`, so that a splice or a swap of parts shows.
imagefile::Bytes patternBytes(size_t size, uint32_t seed);

} // namespace lab

#endif
