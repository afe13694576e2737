#include "image/ContentBlob.h"

#include "common/VexStreamLog.h"

ContentBlob::ContentBlob(const zemp_content_header_t* header) : ZempPart(header) {
    setPartType(UnspecifiedBlob);
}

void ContentBlob::update(ZempPart* other) {
    const auto* const blob = dynamic_cast<ContentBlob*>(other);
    if (blob == nullptr || blob == this || !updateFrom(other))
        return;
    VEX_LOG(LogDebug) << "ContentBlob::update() " << toString() << ".";
}

std::string ContentBlob::getPartVersion() {
    return "<unknown part version>";
}

bool ContentBlob::isVersion(uint8_t /*major*/, uint8_t /*minor*/, uint16_t /*build*/) {
    return false;
}

std::string ContentBlob::getMapKey() {
    return getPartname() + " 0";
}

std::string ContentBlob::toString() {
    return getPartname();
}
