// What an image, an image start or a content part file holds: a row for the main header and for every part,
// read with the daemon's own parser. No row stops at a bad body: the next part is looked for behind it.
#ifndef ZEMP_IMAGELISTING_H
#define ZEMP_IMAGELISTING_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace zemp {

enum class Verdict { Good, Bad, Incomplete };

// "ok", "BAD" or "incomplete".
const char* getText(Verdict verdict);

struct ListedPart {
    uint64_t offset = 0; // in the file
    uint64_t size = 0;   // in the file as it should be: header, body and padding
    std::string type;
    std::string name;
    std::string version; // empty if it has none
    std::string buildId; // of a software blob; of a release header its name
    Verdict body = Verdict::Good;
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

// Lists `size` bytes, which are an image if they begin as one, else a content part. The log stream gets what
// the parser has to say.
ImageListing listImage(const uint8_t* data, uint64_t size);

// Prints the parts, and the manifest if there is one, as tables.
void printListing(const ImageListing& listing, std::ostream& out);

} // namespace zemp

#endif
