#include "image/ZempHeaderPart.h"

#include "common/VexStreamLog.h"
#include "image/RawVersion.h"

ZempHeaderPart::ZempHeaderPart() : ZempPart(nullptr) {
    setPartType(ZempHeader);
    setPartname("ZempHeader");
}

void ZempHeaderPart::update(ZempPart* other) {
    auto* const part = dynamic_cast<ZempHeaderPart*>(other);
    if (part == nullptr || part == this || !updateFrom(other))
        return;
    mIsZempHeaderValid = false;
    updateZempHeader(&part->mZempHeader);
    mPartVersion = part->getPartVersion();
    VEX_LOG(LogDebug) << "ZempHeaderPart::update() " << toString() << ".";
}

std::string ZempHeaderPart::getPartVersion() {
    return mPartVersion;
}

bool ZempHeaderPart::isVersion(uint8_t major, uint8_t minor, uint16_t build) {
    return rawVersionText(major, minor, build) != mPartVersion;
}

std::string ZempHeaderPart::getMapKey() {
    return "ZempHeader " + mPartVersion;
}

std::string ZempHeaderPart::toString() {
    return "ZempHeader version=" + std::to_string(unsigned{mZempHeader.version});
}

void ZempHeaderPart::updateZempHeader(const zemp_header_t* header) {
    if (header == nullptr)
        return;
    mZempHeader = *header;
    mIsZempHeaderValid = true;
}
