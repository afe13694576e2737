// The parts of a ZEMP image as objects: the base of the main header, the release header, the update manifest,
// the software blobs and other plain blobs.
//
// The parser makes parts on the file handler's thread and hands them over with its result; from then on they
// belong to the update handler on the main thread, or to a worker while a request that points at them is out.
// They take no locks. Nothing here throws; what cannot be used is logged and changes nothing.
#ifndef IMAGE_ZEMPPART_H
#define IMAGE_ZEMPPART_H

#include "image/ZempFormat.h"
#include "seal/Gate.h"
#include <cstdint>
#include <memory>
#include <string>

class ZempPart {
  public:
    // Printed by getString(); the numbers index the table of content indices.
    enum PartType {
        ZempHeader = 0,
        ReleaseHeader = 1,
        SuumBlob = 2,
        KernelBlob = 3,
        Kernel4812Blob = 4,
        RootBlob = 5,
        AppBlob = 6,
        ThirdAppBlob = 7,
        UnspecifiedBlob = 8,
        UnspecifiedSwBlob = 9,
        UnspecifiedPart = 10
    };

    static constexpr uint32_t ZempFileIdentifierSize = ZempFormat::MagicSize;
    static constexpr const char* MagicHeader = ZempFormat::Magic; // 8 bytes in a file, without terminator
    static constexpr uint32_t ZempHeaderSize = ZempFormat::HeaderSize;
    static constexpr uint32_t ZempContentHeaderSize = ZempFormat::ContentHeaderSize;
    static constexpr uint32_t ZempReleaseHeaderSize = ZempFormat::ReleaseHeaderSize;
    static constexpr uint32_t ZempSwBlobHeaderSize = ZempFormat::SwBlobHeaderSize;

    // Keys of these two parts in maps by content index.
    static constexpr uint32_t sReleaseHeaderKey = 0;
    static constexpr uint32_t sSuumBlobKey = 1;

    virtual ~ZempPart();
    ZempPart(const ZempPart&) = delete;
    ZempPart& operator=(const ZempPart&) = delete;

    // Takes over what `other`, of the same concrete class, knows, its flags included. Anything else, null and
    // the part itself change nothing.
    virtual void update(ZempPart* other) = 0;

    // Version text, for example "1.05-7".
    virtual std::string getPartVersion() = 0;

    // Whether the part has this version. The main header and the manifest answer in the inverted sense, and
    // compare a text in which the minor number is one raw character.
    virtual bool isVersion(uint8_t major, uint8_t minor, uint16_t build) = 0;

    // Key in a map of all parts: name and version.
    virtual std::string getMapKey() = 0;

    // One line for listings.
    virtual std::string toString() = 0;

    // A new part, owned by the caller, for a content header as it stands in a file: a plain blob, a software
    // blob, or a release header without its extended header. Null for any other content type.
    static ZempPart* createZempPart(const zemp_content_header_t* header);

    // Printed name; "<unknown part type>" outside the enumeration.
    static const char* getString(PartType type);

    // Text of a version: major, two-digit minor, build.
    static std::string getVersionString(uint8_t major, uint8_t minor, uint16_t build);

    // Zero bytes that follow a body of `length` bytes in a file.
    static uint32_t getPadding(uint32_t length) { return ZempFormat::padding(length); }

    PartType getPartType() const { return mPartType; }

    // The number by which the manifest refers to a part, and the order of parts in a compiled image.
    uint32_t getContentIndex() const;

    // Local file that holds the part's bytes.
    std::string getFilename() const { return mFilename; }
    void setFilename(const std::string& filename) { mFilename = filename; }

    std::string getPartname() const { return mPartname; }
    void setPartname(const std::string& name) { mPartname = name; }

    // The content header last taken over; all zero before, and for the main header. Never null; valid while
    // the part lives.
    const zemp_content_header_t* getHeader() const { return &mContentHeader; }
    uint16_t getHeaderLength() const { return mContentHeader.hdr_length; }
    uint32_t getBodyLength() const { return mContentHeader.body_length; }
    uint32_t getBodyCrc() const { return mContentHeader.body_crc; }
    bool isContentHeaderValid() const { return mIsContentHeaderValid; }

    // Set when the whole body is in the file and its CRC is right.
    bool isBodyValid() const { return mIsBodyValid; }
    void setIsBodyValid(bool valid) { mIsBodyValid = valid; }

    // Bytes of the file that the parse consumed for this part.
    uint32_t getUsedSize() const { return mUsedDataSize; }
    void setUsedDataSize(uint32_t size) { mUsedDataSize = size; }

    // Bytes that the part occupies in an image: header, body and padding; at most 4 GiB - 1. 0 while no
    // content header was taken over.
    uint32_t getSizeInZempFile() const;

    // Digests of the header and, if the body is valid, of the body; all zero unless they were summed.
    const seal::Digests& getDigests() const;
    void setHeaderDigest(const seal::Digest& digest) { digests().header = digest; }
    void setBodyDigest(const seal::Digest& digest) { digests().body = digest; }

    // Takes over a content header and the name in it. Null changes nothing.
    void updateContentHeader(const zemp_content_header_t* header);

    // Takes over what all parts have. False, with nothing changed, when `other` is null or of another type.
    bool updateFrom(ZempPart* other);

    // Sets the part type that the content header tells.
    void setPartTypeFromContentHeader();
    void setSwBlobPartTypeFromName();

  protected:
    // `header` is copied; null leaves the part without one.
    explicit ZempPart(const zemp_content_header_t* header);

    void setPartType(PartType type) { mPartType = type; }

  private:
    seal::Digests& digests();

    zemp_content_header_t mContentHeader{};
    PartType mPartType = UnspecifiedPart;
    bool mIsContentHeaderValid = false;
    bool mIsBodyValid = false;
    bool mIsPresent = false; // carried along, without a meaning here
    std::string mPartname;
    std::string mFilename;
    uint32_t mUsedDataSize = 0;
    std::unique_ptr<seal::Digests> mDigests;
};

#endif
