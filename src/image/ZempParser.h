// Reads a local file that holds a whole ZEMP image, the first bytes of one, or one content part of one,
// checks every header and body, and turns what it finds into parts.
//
// Most files are incomplete downloads, so the parser never gives up on bad data: it logs, marks parts
// invalid, and returns what could be read. Nothing here throws. A parser is used by one thread at a time;
// reading large bodies is a cancellation point.
#ifndef IMAGE_ZEMPPARSER_H
#define IMAGE_ZEMPPARSER_H

#include "image/ReleaseHeaderPart.h"
#include "image/SuumBlob.h"
#include "image/SwBlob.h"
#include "image/ZempFormat.h"
#include "image/ZempHeaderPart.h"
#include "image/ZempPart.h"
#include "update/FileFragment.h"
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class FileBuffer;

// The log level at or above which parts and manifest elements are listed; 7 at start. Set it before threads
// that parse are started.
extern int ParseLevel;

class ZempParser {
  public:
    ZempParser() = default;

    // Leaves the parts alone: whoever took the result owns them.
    ~ZempParser() = default;
    ZempParser(const ZempParser&) = delete;
    ZempParser& operator=(const ZempParser&) = delete;

    // Has the digests of headers and bodies summed, and only an image start or a content part taken for
    // parsed that belongs to this release. At first nothing is asked for.
    void setVoucher(std::shared_ptr<const seal::Voucher> voucher);

    // Parses the first `size` bytes of a file; 0 means all of it, and bytes behind its end count as zero.
    // `type` is a whole image, an image start or a content part. False when no part could be used or, in an
    // image, the last part found used no bytes; parts found before stay in the result.
    bool parseFile(const std::string& filename, uint32_t size, FileFragment::FragmentType type);

    // The parts found, in file order: the main header first when the file has one.
    uint32_t getNumberOfZempParts() const { return static_cast<uint32_t>(mParts.size()); }
    ZempPart* getZempPartAt(uint32_t index) const; // null when out of range

    // Lists the parts in the log.
    void logZempParts() const;

    // Where the first software blob starts in an image that begins with the release header and the manifest,
    // given the sizes of these two in the image.
    static uint32_t getOffsetFirstSwBlob(uint32_t releaseSize, uint32_t suumSize);

    // The steps of the parse. `data` points at `size` readable bytes, at any address; null is accepted where
    // said. Parts returned are new and belong to the caller.

    // Offset of the main header, 8, or 0 when the bytes (or null) do not begin an image.
    uint32_t parseZempFileStart(const uint8_t* data, uint32_t size) const;

    // Null when there is no valid main header at `data`, which may be null.
    ZempHeaderPart* parseZempHeader(const uint8_t* data, uint32_t size) const;

    // The header inside `data`, or null when it is not valid. `data` may be null.
    const zemp_content_header_t* parseContentHeader(const uint8_t* data, uint32_t size) const;

    // The part that begins at `data`, or null. The part's body may be invalid or incomplete.
    ZempPart* parseContentPart(const uint8_t* data, uint32_t size) const;

    // Appends the parts of an image's body to the result, up to the first that is not complete and valid;
    // with `stopAtStart`, up to the second of release header and manifest. Returns the used size of the last
    // part.
    uint32_t parseContentParts(const uint8_t* data, uint32_t size, bool stopAtStart);

    // The rest of a part behind its 32-byte content header `header`. Null: no part.
    ReleaseHeaderPart* parseReleaseHeader(const uint8_t* data, uint32_t size,
                                          const zemp_content_header_t* header) const;
    ZempPart* parseBlob(const uint8_t* data, uint32_t size, const zemp_content_header_t* header) const;
    SuumBlob* parseSuumBlob(const uint8_t* data, uint32_t size, const zemp_content_header_t* header) const;
    SwBlob* parseSwBlob(const uint8_t* data, uint32_t size, const zemp_content_header_t* header) const;

    // Reads the body at `data` into the part. False, and the part's body stays invalid, when it is incomplete
    // or damaged.
    bool parseReleaseBody(const uint8_t* data, uint32_t size, ReleaseHeaderPart* part) const;

    // Reads the extended header at `data`, which may be null, into the blob.
    bool parseSwBlobExtendedHeader(const uint8_t* data, uint32_t size, SwBlob* blob) const;

  private:
    // Parses the file behind mFile, of `size` bytes.
    bool parseImage(const std::string& filename, uint32_t size, bool stopAtStart);
    bool parseSinglePart(const std::string& filename, uint32_t size);

    // Whether the file is of the release: its first bytes, if it has all of an image's start, or its part.
    bool isStartVouchedFor(const std::string& filename, const seal::Digest& start, bool isComplete) const;
    bool isPartVouchedFor(const std::string& filename, const ZempPart& part) const;

    // Digest of bytes that are loaded.
    seal::Digest digestOf(const uint8_t* data, uint32_t size) const;

    // Appends a part, whose version goes to the main header, or comes from the release header before it.
    void addPart(ZempPart* part, std::string& releaseVersion);

    // Makes bytes readable, and the CRC-32 of bytes, of a file that is read piece by piece.
    void load(const uint8_t* data, uint32_t size) const;
    uint32_t bodyCrc(const uint8_t* data, uint32_t size, seal::Digest& digest) const;

    // Takes over that the body is in the file and valid, or at least complete.
    void setBodyParsed(ZempPart* part, bool valid, const seal::Digest& digest) const;

    std::vector<ZempPart*> mParts;
    std::shared_ptr<const seal::Voucher> mVoucher;
    std::unique_ptr<seal::Hash> mHash; // null: no digests are asked for
    FileBuffer* mFile = nullptr;       // during parseFile(): the file, whose bytes `data` points into
};

#endif
