#include "image/SwBlob.h"

#include "common/VexStreamLog.h"

SwBlob::SwBlob(const zemp_content_header_t* header) : ZempPart(header) {}

void SwBlob::update(ZempPart* other) {
    const auto* const blob = dynamic_cast<SwBlob*>(other);
    if (blob == nullptr || blob == this || !updateFrom(other))
        return;
    mIsExtendedHeaderValid = false;
    updateExtendedHeader(&blob->mExtendedHeader, blob->mIsExtendedHeaderValid);
    VEX_LOG(LogDebug) << "SwBlob::update() " << toString() << ".";
}

std::string SwBlob::getPartVersion() {
    return getVersionString(mExtendedHeader.major, mExtendedHeader.minor, mExtendedHeader.build);
}

bool SwBlob::isVersion(uint8_t major, uint8_t minor, uint16_t build) {
    return mIsExtendedHeaderValid && mExtendedHeader.major == major && mExtendedHeader.minor == minor &&
           mExtendedHeader.build == build;
}

std::string SwBlob::getMapKey() {
    return getPartname() + " " + getPartVersion();
}

std::string SwBlob::toString() {
    return getPartname() + " " + getPartVersion() + ", " + ZempFormat::text(mExtendedHeader.build_id);
}

uint8_t SwBlob::getMajorVersion() const {
    return mIsExtendedHeaderValid ? mExtendedHeader.major : uint8_t{0};
}

uint8_t SwBlob::getMinorVersion() const {
    return mIsExtendedHeaderValid ? mExtendedHeader.minor : uint8_t{0};
}

uint16_t SwBlob::getBuildVersion() const {
    return mIsExtendedHeaderValid ? mExtendedHeader.build : uint16_t{0};
}

bool SwBlob::updateExtendedHeader(const zemp_content_software_blob_t* header, bool valid) {
    if (header == nullptr)
        return false;
    bool changed = false;
    if (mExtendedHeader.major != header->major) {
        mExtendedHeader.major = header->major;
        changed = true;
    }
    if (mExtendedHeader.minor != header->minor) {
        mExtendedHeader.minor = header->minor;
        changed = true;
    }
    if (mExtendedHeader.build != header->build) {
        mExtendedHeader.build = header->build;
        changed = true;
    }
    if (strncmp(mExtendedHeader.build_id, header->build_id, sizeof mExtendedHeader.build_id) != 0) {
        memcpy(mExtendedHeader.build_id, header->build_id, sizeof mExtendedHeader.build_id);
        changed = true;
    }
    mIsExtendedHeaderValid = valid;
    return changed;
}
