// Writes ZEMP images from a description in C++: whole and valid ones, and, for tests, ones that are wrong in
// a chosen field. Host configuration records are the same container and are built the same way.
//
// Every call that cannot do what it says throws std::runtime_error with a text for the user. Used by one
// thread.
#ifndef IMAGEFILE_IMAGEBUILDER_H
#define IMAGEFILE_IMAGEBUILDER_H

#include "image/ZempFormat.h"
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace imagefile {

using Bytes = std::vector<uint8_t>;

// The characters of a text, without a terminator.
Bytes bytesOf(const std::string& text);

struct Version {
    uint8_t major = 0;
    uint8_t minor = 0;
    uint16_t build = 0;
};

// One line of an update manifest.
struct ManifestElement {
    int contentIndex = 0;
    std::string poolname;
    int partsize = 0;
    std::string mountpoint = "-";
    std::string filesystem = "-";
    std::string platform = "-";
    Version version;
    int metaValid = 1;
    bool hexadecimal = false; // write the version as one hexadecimal word

    std::string toString() const; // with its line end
};

// A content part. The builder fills lengths, CRCs and padding; the optional fields put something else there.
struct Part {
    uint16_t type = 0;
    std::string name; // at most 16 bytes; 16 leave no room for a terminator
    Bytes extension;  // extended header
    Bytes body;       // or:
    std::string file; // read when the image is written, and not held in memory
    bool padded = true;

    std::optional<uint16_t>
        headerLength; // also the length that the header's CRC covers, as far as there is header
    std::optional<uint32_t> headerCrc;
    std::optional<uint32_t> bodyLength; // the field only: the body and its padding stay
    std::optional<uint32_t> bodyCrc;
};

// The main header, likewise.
struct MainHeader {
    uint8_t version = ZempFormat::Version;
    uint8_t reserved = 0;
    Bytes extension; // bytes behind the fixed header, counted in hdr_length
    std::optional<uint16_t> headerLength;
    std::optional<uint32_t> headerCrc;
    std::optional<uint32_t> bodyLength;
    std::optional<uint32_t> bodyCrc;
};

class ImageBuilder {
  public:
    MainHeader header;

    // Appends a part in each case, and returns it to be changed; the reference stays valid while the builder
    // lives.

    // The body is `text` and a zero byte. With `pad`, line ends are added to the text until its length plus
    // one is a multiple of 4.
    Part& release(Version version, uint32_t time, const std::string& name, std::string text,
                  bool pad = false);
    Part& manifest(const std::string& text);
    Part& manifest(const std::vector<ManifestElement>& elements);
    Part& software(const std::string& name, Version version, const std::string& buildId, Bytes body);
    Part& softwareFromFile(const std::string& name, Version version, const std::string& buildId,
                           const std::string& file);
    // Any plain part: no extended header.
    Part& blob(const std::string& name, Bytes body, uint16_t type = ZempFormat::BlobType);
    Part& add(Part part);

    size_t count() const { return mParts.size(); }
    Part& at(size_t index) { return mParts.at(index); }

    // Where a part starts in the image, and how many bytes it takes there, padding included. An index of
    // count() gives the image's end.
    uint64_t offsetOf(size_t index) const;
    uint64_t sizeOf(size_t index) const;
    uint64_t size() const { return offsetOf(mParts.size()); }

    // The image, or one part as it stands in it, in memory.
    Bytes build() const;
    Bytes buildPart(size_t index) const;

    // Told bytes done and bytes in all, as it goes on: each body is gone through twice. May throw to stop.
    using Progress = std::function<void(uint64_t done, uint64_t total)>;

    // Writes the image to a file. Part bodies from files pass through a buffer.
    void write(const std::string& filename, const Progress& progress = {}) const;

  private:
    using Sink = std::function<void(const uint8_t* data, size_t size)>;

    Bytes makeHeader(uint64_t bodyLength, uint32_t bodyCrc) const;
    void emitPart(const Part& part, const Sink& sink, const Sink& check) const;

    // Sends all parts to `sink`, and before that each body to `check`; returns the main header that belongs
    // before them, magic included.
    Bytes emitParts(const Sink& sink, const Sink& check) const;

    std::deque<Part> mParts;
};

// The part's extended header for a software blob, and for a release header.
Bytes softwareExtension(Version version, const std::string& buildId);
Bytes releaseExtension(Version version, uint32_t time, const std::string& name);

} // namespace imagefile

#endif
