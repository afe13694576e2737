// Reads a finished update image once more, as the installer will: what was written is not always what is
// there.
#ifndef IMAGE_ZEMPREADBACK_H
#define IMAGE_ZEMPREADBACK_H

#include "image/ZempFormat.h"
#include <string>
#include <vector>

// Whether the file holds an image with this main header and exactly these parts in this order: its length,
// the checksum over the whole body, and each part's header and body. False, and logged, when it does not, or
// cannot be read. Used by the file handler's thread; a cancellation point.
[[nodiscard]] bool readBackImage(const std::string& filename, const zemp_header_t& header,
                                 const std::vector<zemp_content_header_t>& parts);

#endif
