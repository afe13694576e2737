// Descriptions of images: the release, the lines of the update manifest, and the parts in their order.
//
//     [release]
//     version = "1.5.7"                  # or "1.05-7"
//     name = "REL-1.05-7"                # at most 36 bytes
//     time = 2024-05-01T12:00:00Z        # or seconds since 1970; 0 if missing
//     text = "Release 1.05-7\n"
//
//     [[manifest.line]]                  # as it shall stand there:
//     text = "# suum"
//     [[manifest.line]]                  # or by columns; these have to be given:
//     index = 2
//     pool = "kernel"
//     version = "1.2.3"
//     platform = "4813"                  # these need not: "-", "-", "-", 0, true, false
//     mountpoint = "/"
//     filesystem = "ext4"
//     size = 0
//     valid = true
//     hexadecimal = false                # write the version as one hexadecimal word
//
//     [[part]]
//     name = "kernel"                    # at most 16 bytes
//     version = "1.2.3"
//     build-id = "kern-build"            # at most 28 bytes; empty if missing
//     file = "kernel.bin"                # relative to the description; or text = "...", or hex = "00 ff"
//
// Instead of lines, [manifest] may have the whole manifest as one `text`.
#ifndef ZEMP_IMAGEDESCRIPTION_H
#define ZEMP_IMAGEDESCRIPTION_H

#include "imagefile/ImageBuilder.h"
#include <string>
#include <vector>

namespace zemp {

// Where the pieces of an image stand in its description: the table, and its line there.
struct DescriptionPlaces {
    struct Place {
        std::string table; // "[[part]]"
        unsigned line;
    };
    std::vector<Place> parts;         // of the image, by index: release, manifest, ...
    std::vector<Place> manifestLines; // empty when the manifest is one text
};

// Fills an empty builder. Throws InputError that begins with file, line and column. Part files are looked at,
// and read when the image is written.
DescriptionPlaces readImageDescription(const std::string& file, imagefile::ImageBuilder& builder);

} // namespace zemp

#endif
