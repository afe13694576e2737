// A software blob: the image for one partition or pool of partitions.
#ifndef IMAGE_SWBLOB_H
#define IMAGE_SWBLOB_H

#include "image/ZempPart.h"

class SwBlob : public ZempPart {
  public:
    // The part type follows from the name in the header.
    explicit SwBlob(const zemp_content_header_t* header);

    void update(ZempPart* other) override;
    std::string getPartVersion() override;
    // False while the extended header is not valid.
    bool isVersion(uint8_t major, uint8_t minor, uint16_t build) override;
    std::string getMapKey() override;
    std::string toString() override;

    // Never null; all zero until one was taken over.
    const zemp_content_software_blob_t* getExtendedHeader() const { return &mExtendedHeader; }
    bool isExtendedHeaderValid() const { return mIsExtendedHeaderValid; }

    // 0 while the extended header is not valid.
    uint8_t getMajorVersion() const;
    uint8_t getMinorVersion() const;
    uint16_t getBuildVersion() const;

    // Takes over an extended header; it is valid from then on, or not, as `valid` says. True when a field
    // changed. Null changes nothing.
    bool updateExtendedHeader(const zemp_content_software_blob_t* header, bool valid);

  private:
    zemp_content_software_blob_t mExtendedHeader{};
    bool mIsExtendedHeaderValid = false;
};

#endif
