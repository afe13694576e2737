// Finds parts that were changed and kept their version.
#ifndef ZEMP_REUSECHECK_H
#define ZEMP_REUSECHECK_H

#include "imagefile/ImageReader.h"
#include "zemp/Finding.h"
#include <string>
#include <vector>

namespace zemp {

// What the findings are called for machines.
inline constexpr const char* ReusedVersion = "version-reused";

// The software parts of an image that a file of `older` images has with the same name and version and other
// bytes, in the order of the image. Terminals know parts by name and version alone. Throws std::runtime_error
// when an older image cannot be read, or is damaged.
Findings findReusedVersions(const imagefile::ImageReader& image, const std::vector<std::string>& older);

} // namespace zemp

#endif
