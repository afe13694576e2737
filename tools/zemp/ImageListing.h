// What an image, an image start or a content part file holds: a row for the main header and for every part,
// read with the daemon's own parser. No row stops at a bad body: the next part is looked for behind it.
#ifndef ZEMP_IMAGELISTING_H
#define ZEMP_IMAGELISTING_H

#include "imagefile/ImageSource.h"
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace zemp {

enum class Verdict { Good, Bad, Incomplete, NotRead };

// "ok", "BAD", "incomplete" or "not read".
const char* getText(Verdict verdict);

struct ListedPart {
    uint64_t offset = 0; // in the file
    uint64_t size = 0;   // in the file as it should be: header, body and padding
    std::string type;
    std::string name;
    std::string version; // empty if it has none
    std::string buildId; // of a software blob; of a release header its name
    Verdict body = Verdict::Good;
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

// Lists bytes that are an image if they begin as one, else a content part. Of an image on a web server only
// headers, the release text and the manifest are fetched; other bodies are not read. The log stream gets what
// the parser has to say.
ImageListing listImage(imagefile::ImageSource& image);

// Prints the parts, and the manifest if there is one, as tables.
void printListing(const ImageListing& listing, std::ostream& out);

// The same for machines.
nlohmann::json toJson(const ImageListing& listing);

} // namespace zemp

#endif
