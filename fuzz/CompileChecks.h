// Compiles the reduced update image from the parts of an image, and reads it back.
#ifndef FUZZ_COMPILECHECKS_H
#define FUZZ_COMPILECHECKS_H

#include "fuzz/PartChecks.h"

namespace fuzz {

// Takes the first part of each content index, the blobs with files of their own, and declares those not
// needed that `unneeded` has a bit for. The compile must succeed exactly when every part can be written; the
// image must then carry its right CRCs and, read again, the same parts: a needed one byte for byte, any other
// without its body. `offsets` are those of checkImageParts().
void checkCompile(const Parts& parts, const std::vector<size_t>& offsets, const View& bytes,
                  unsigned unneeded);

} // namespace fuzz

#endif
