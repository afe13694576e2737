// Reads an image part by part, from a file or a web server, and says for each header and body whether it is
// what its checksum says. For tools and for checks; the daemon reads images with its own parser. One format
// definition serves both.
//
// Used by one thread. The image must not change while it is read. What cannot be read throws
// std::runtime_error with the image's name and the reason.
#ifndef IMAGEFILE_IMAGEREADER_H
#define IMAGEFILE_IMAGEREADER_H

#include "image/ZempFormat.h"
#include "imagefile/ImageBuilder.h"
#include "imagefile/ImageSource.h"
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace imagefile {

// Of a body: right, wrong, beyond the end of the file in part, or left on the web server.
enum class Verdict { Good, Bad, Incomplete, NotRead };

// A content part with a valid header. What lies behind the end of the file is not there: a part may be cut
// off in its body.
struct ImagePart {
    uint64_t offset = 0;            // in the file
    zemp_content_header_t header{}; // its fields as they stand in the file
    Verdict body = Verdict::Good;
    bool isVersionKnown = false; // of a release header or a software blob
    Version version;
    std::string label; // release name or build id; empty for others

    bool isComplete() const { return body != Verdict::Incomplete; }
    bool isBodyValid() const { return body == Verdict::Good; }

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
    enum class Accept { Image, ContentPartToo };

    // Reads all headers, and all bodies of a file. Of an image on a web server only headers, the release text
    // and the manifest are fetched.
    explicit ImageReader(std::unique_ptr<ImageSource> source, Accept accept = Accept::Image);
    explicit ImageReader(const std::string& filename) : ImageReader(openImage(filename)) {}

    // For more of its bytes.
    ImageSource& source() const { return *mSource; }
    uint64_t size() const { return mSource->size(); }
    const uint8_t* data() const { return mSource->data(); }

    // False for a file that holds a single content part; it has no main header then.
    bool isImage() const { return mIsImage; }
    const zemp_header_t& header() const { return mHeader; }
    bool isHeaderValid() const { return mIsHeaderValid; }
    Verdict body() const { return mBody; } // all that the main header declares
    bool isBodyValid() const { return mBody == Verdict::Good; }
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
    void readImage();
    bool readPart(uint64_t offset);
    Verdict judge(uint64_t offset, uint32_t length, uint32_t crc, uint64_t loadedEnd) const;

    const std::unique_ptr<ImageSource> mSource;
    bool mIsImage = false;
    zemp_header_t mHeader{};
    bool mIsHeaderValid = false;
    Verdict mBody = Verdict::Bad;
    std::vector<ImagePart> mParts;
};

} // namespace imagefile

#endif
