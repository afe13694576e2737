// The release header: which release an image is, when it was made, and the release text.
#ifndef IMAGE_RELEASEHEADERPART_H
#define IMAGE_RELEASEHEADERPART_H

#include "image/ZempPart.h"

class ReleaseHeaderPart : public ZempPart {
  public:
    // Both are copied; `release` may be null.
    ReleaseHeaderPart(const zemp_content_header_t* header, const zemp_content_release_header_t* release);

    void update(ZempPart* other) override;
    std::string getPartVersion() override;
    // False while the release header is not valid.
    bool isVersion(uint8_t major, uint8_t minor, uint16_t build) override;
    std::string getMapKey() override;
    std::string toString() override;

    // The release text: the body up to its first zero byte.
    std::string getReleaseHeaderBody() const { return mReleaseHeaderBody; }
    void setReleaseHeaderBody(std::string text) { mReleaseHeaderBody = std::move(text); }

    // Never null; all zero until one was taken over.
    const zemp_content_release_header_t* getReleaseHeader() const { return &mReleaseHeader; }
    bool isReleaseHeaderValid() const { return mIsReleaseHeaderValid; }

    // Takes over a release header and marks it valid. True when a field changed. Null changes nothing.
    bool updateReleaseHeader(const zemp_content_release_header_t* release);

  private:
    std::string mReleaseHeaderBody;
    zemp_content_release_header_t mReleaseHeader{};
    bool mIsReleaseHeaderValid = false;
};

#endif
