// What must hold for the parts that a parse returns, judged against the bytes it was given.
#ifndef FUZZ_PARTCHECKS_H
#define FUZZ_PARTCHECKS_H

#include "image/ZempParser.h"
#include <string>
#include <vector>

namespace fuzz {

// Input bytes, not owned. Bytes up to `size` may be asked for; those from `present` on count as zero.
struct View {
    const uint8_t* data;
    size_t present;
    size_t size;

    View(const uint8_t* bytes, size_t count) : data(bytes), present(count), size(count) {}
    View(const uint8_t* bytes, size_t count, size_t claimed) : data(bytes), present(count), size(claimed) {}
    uint8_t operator[](size_t at) const { return at < present ? data[at] : uint8_t{0}; }
};

// CRC-32, byte by byte. The range lies within the view.
uint32_t referenceCrc(const View& bytes, size_t begin, size_t length);

// Parts that are freed with it.
class Parts {
  public:
    Parts() = default;
    ~Parts();
    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;

    // From a file of `size` bytes, 0 for all of it. The parser's result.
    bool parseFile(const std::string& path, uint32_t size, FileFragment::FragmentType type);

    // From memory, as the parser does it with a whole image, and with a content part. The parser's result.
    bool parseImage(const View& bytes);
    bool parseContentPart(const View& bytes);

    size_t count() const { return mParts.size(); }
    ZempPart* at(size_t index) const { return mParts.at(index); }

  private:
    ZempParser mParser;
    std::vector<ZempPart*> mParts;
};

// Everything that is known about a part, to compare two.
std::string describe(ZempPart* part);

// Checks one content part that was found at an offset.
void checkContentPart(ZempPart* part, const View& bytes, size_t offset);

// Checks the parts of an image, the main header first, and returns where each part begins.
std::vector<size_t> checkImageParts(const Parts& parts, const View& bytes);

// Checks that update() makes one part of a class like another, also when it is repeated.
void checkUpdate(ZempPart* part);

} // namespace fuzz

#endif
