// A plain blob that is not the manifest. It has no version.
#ifndef IMAGE_CONTENTBLOB_H
#define IMAGE_CONTENTBLOB_H

#include "image/ZempPart.h"

class ContentBlob : public ZempPart {
  public:
    explicit ContentBlob(const zemp_content_header_t* header);

    void update(ZempPart* other) override;
    std::string getPartVersion() override;
    bool isVersion(uint8_t major, uint8_t minor, uint16_t build) override; // always false
    std::string getMapKey() override;
    std::string toString() override;
};

#endif
