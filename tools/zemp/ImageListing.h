// What an image, an image start or a content part file holds, as rows: one for the main header and one for
// every part.
#ifndef ZEMP_IMAGELISTING_H
#define ZEMP_IMAGELISTING_H

#include "imagefile/ImageReader.h"
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace zemp {

// "ok", "BAD", "incomplete" or "not read".
const char* getText(imagefile::Verdict verdict);

struct ListedPart {
    uint64_t offset = 0; // in the file
    uint64_t size = 0;   // in the file as it should be: header, body and padding
    std::string type;
    std::string name;
    std::string version; // empty if it has none
    std::string buildId; // of a software blob; of a release header its name
    imagefile::Verdict body = imagefile::Verdict::Good;
    uint64_t bodyOffset = 0; // in the file
    uint32_t bodySize = 0;   // as the header tells
    uint32_t bodyCrc = 0;    // likewise
};

struct ListedElement {
    unsigned index = 0;
    std::string pool;
    std::string platform;
    std::string version;
    std::string mountPoint;
};

struct ImageListing {
    std::vector<ListedPart> parts; // the main header first if the file has one; all have good headers
    std::vector<ListedElement> manifest;
    std::string problem;       // what is damaged or missing first; empty if nothing is
    bool isIncomplete = false; // nothing is damaged, but the end is missing
};

// The log stream gets what the daemon's parser has to say about the manifest.
ImageListing listImage(const imagefile::ImageReader& image);

// Prints the parts, and the manifest if there is one, as tables.
void printListing(const ImageListing& listing, std::ostream& out);

// The same for machines.
nlohmann::json toJson(const ImageListing& listing);

} // namespace zemp

#endif
