// The lines of an image's seal.
#ifndef IMAGEFILE_SEALEDIMAGE_H
#define IMAGEFILE_SEALEDIMAGE_H

#include "imagefile/ImageReader.h"
#include "seal/SealLines.h"
#include <functional>

namespace imagefile {

// The first thing in an image that keeps it from being sealed, with its place; empty if there is none.
std::string findUnsealable(const ImageReader& image);

// The lines of an image that can be sealed. `onStep` is called after each MiB or so and may throw.
seal::SealLines sealLinesOf(
    const ImageReader& image, const std::function<void()>& onStep = [] {});

// Length and digest of bytes.
seal::Extent extentOf(
    const uint8_t* data, uint64_t length, const std::function<void()>& onStep = [] {});

} // namespace imagefile

#endif
