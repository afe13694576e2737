// Finds everything that the format permits and that would hurt in the field.
#ifndef ZEMP_IMAGECHECK_H
#define ZEMP_IMAGECHECK_H

#include "imagefile/ImageReader.h"
#include "zemp/Finding.h"
#include <string>
#include <vector>

namespace zemp {

// All findings of an image, a file or at a URL, in the order of the image, behind them those against the
// older images; of a URL the bodies of software are not read. When there is no error among them, the daemon's
// own code has played a whole update of an empty terminal through to its end. Throws std::runtime_error when
// it cannot be read or is no image at all.
Findings checkImage(const std::string& image, const std::vector<std::string>& older = {});

// The part of it that concerns the manifest: its lines, and how they and the software parts go together.
// `manifest` is a valid part of the image.
void checkManifest(const imagefile::ImageReader& image, const imagefile::ImagePart& manifest,
                   Findings& findings);

} // namespace zemp

#endif
