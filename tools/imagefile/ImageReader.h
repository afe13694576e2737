// Reads an image file part by part, and says for each header and body whether it is what its checksum says.
// For tools and for checks; the daemon reads images with its own parser. One format definition serves both.
//
// Used by one thread. The file must not change while it is read.
#ifndef IMAGEFILE_IMAGEREADER_H
#define IMAGEFILE_IMAGEREADER_H

#include "image/ZempFormat.h"
#include "imagefile/ImageBuilder.h"
#include <cstdint>
#include <string>
#include <vector>

namespace imagefile {

// A content part as it stands in the file. What lies behind the end of the file is not there: a part may be
// cut off in its extended header or in its body.
struct ImagePart {
    uint64_t offset = 0;            // in the file
    zemp_content_header_t header{}; // its fields as they stand in the file
    bool isHeaderValid = false;     // all of it is there, and its checksum is right
    bool isComplete = false;        // all of the body is there
    bool isBodyValid = false;       // and its checksum is right
    Version version;                // of a release header or a software blob; 0.0.0 for others
    std::string label;              // release name or build id; empty for others

    std::string name() const { return ZempFormat::text(header.name); }
    bool isType(ZempFormat::ContentType type) const { return header.type == type; }
    bool isManifest() const;

    uint64_t bodyOffset() const { return offset + header.hdr_length; }
    // Header, body and padding, though the last padding may be missing in the file.
    uint64_t size() const;
};

// Major, two-digit minor and build, with `separator` before the build: "1.05-7".
std::string versionText(Version version, char separator = '-');

class ImageReader {
  public:
    // Maps the file and reads all headers. Throws std::runtime_error, with the file's name and the reason,
    // when it cannot be read or does not begin as an image does.
    explicit ImageReader(const std::string& filename);
    ~ImageReader();
    ImageReader(const ImageReader&) = delete;
    ImageReader& operator=(const ImageReader&) = delete;

    const std::string& filename() const { return mFilename; }
    uint64_t size() const { return mSize; } // of the file
    const uint8_t* data() const { return mData; }

    const zemp_header_t& header() const { return mHeader; }
    bool isHeaderValid() const { return mIsHeaderValid; }
    bool isBodyValid() const { return mIsBodyValid; } // all of the declared body is there and right
    uint64_t bodyOffset() const { return uint64_t{ZempFormat::HeaderOffset} + mHeader.hdr_length; }
    uint64_t declaredSize() const { return bodyOffset() + mHeader.body_length; }

    // In file order, up to the first whose content header is not valid; that one is not among them.
    const std::vector<ImagePart>& parts() const { return mParts; }
    // Where the parts end; less than size() when bytes follow that are no part.
    uint64_t partsEnd() const;

    // The first of its kind, null when there is none.
    const ImagePart* release() const;
    const ImagePart* manifest() const;
    const ImagePart* software(const std::string& name) const;

  private:
    void readParts();
    bool readPart(uint64_t offset, ImagePart& part) const;

    const std::string mFilename;
    uint64_t mSize = 0;
    const uint8_t* mData = nullptr; // the mapping
    zemp_header_t mHeader{};
    bool mIsHeaderValid = false;
    bool mIsBodyValid = false;
    std::vector<ImagePart> mParts;
};

} // namespace imagefile

#endif
