// How far the image start must be fetched when the first 512 bytes do not hold the whole manifest.
#ifndef UPDATE_STARTRANGE_H
#define UPDATE_STARTRANGE_H

#include "update/FileFragment.h"
#include <string>

class ReleaseHeaderPart;
class ZempHeaderPart;

// Limit of an image start, bytes: far beyond any manifest of 40 lines, and little to fetch in vain.
constexpr unsigned MaximumZempStartSize = FileFragment::MaximumZempStartSize;

// Offset in the image of the manifest's last byte, padding included, as its content header in the start file
// `filename` tells. 0 when the file does not hold a valid manifest header behind the main header and the
// release header given, or when the manifest ends beyond MaximumZempStartSize. Reads a few bytes of the file.
unsigned findLastByteOfManifest(const std::string& filename, const ZempHeaderPart& header,
                                const ReleaseHeaderPart& release);

#endif
