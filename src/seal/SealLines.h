// The lines of a seal: what a release consists of, byte range by byte range, each with its length and digest.
//
//   fw-seal 1
//   release 1.05-7
//   image 2646336 DIGEST
//   start 328 DIGEST                                     main header, release header and manifest
//   part 328 kernel 1.05-7 64 DIGEST 412345 DIGEST       offset, name, version; header and body: length,
//   digest
//
// Digests are SHA-256 in hexadecimal. The parts follow the start and each other without a gap, as they lie in
// the image; a part that has no version has "-" there. There is one way to write a seal's lines, and any
// other is refused. For any thread; nothing here throws or logs.
#ifndef SEAL_SEALLINES_H
#define SEAL_SEALLINES_H

#include "seal/Sha256.h"
#include <string>
#include <vector>

namespace seal {

// A run of bytes.
struct Extent {
    uint32_t length = 0;
    Digest digest{};
};

struct SealedPart {
    uint32_t offset = 0; // in the image
    std::string name;    // 1 to 16 characters, no blanks
    std::string version; // "1.05-7", or "-"
    Extent header;       // content header and extended header
    Extent body;         // without padding
};

struct SealLines {
    std::string release; // version
    Extent image;
    Extent start;
    std::vector<SealedPart> parts; // in image order, all behind the manifest
};

// The lines, each with its line end.
std::string toText(const SealLines& lines);

// Reads the lines. Empty when they are right; else what is wrong, beginning with the line: "line 3 ...". Then
// `lines` is unspecified.
[[nodiscard]] std::string parse(const std::string& text, SealLines& lines);

} // namespace seal

#endif
