// The main header of an image.
#ifndef IMAGE_ZEMPHEADERPART_H
#define IMAGE_ZEMPHEADERPART_H

#include "image/ZempPart.h"

class ZempHeaderPart : public ZempPart {
  public:
    // A part without a header. It has no content header, and the name "ZempHeader".
    ZempHeaderPart();

    void update(ZempPart* other) override;
    std::string getPartVersion() override;
    // True when the version text, with `minor` as one raw character, differs from the one set.
    bool isVersion(uint8_t major, uint8_t minor, uint16_t build) override;
    std::string getMapKey() override;
    std::string toString() override;

    // Version text of the image, known from its release header.
    void setPartVersion(const std::string& version) { mPartVersion = version; }

    // Never null; all zero until one was taken over.
    const zemp_header_t* getZempHeader() const { return &mZempHeader; }
    bool isZempHeaderValid() const { return mIsZempHeaderValid; }

    // Takes over a main header and marks it valid. Null changes nothing.
    void updateZempHeader(const zemp_header_t* header);

  private:
    zemp_header_t mZempHeader{};
    bool mIsZempHeaderValid = false;
    std::string mPartVersion;
};

#endif
