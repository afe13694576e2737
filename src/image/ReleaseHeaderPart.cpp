#include "image/ReleaseHeaderPart.h"

#include "common/VexStreamLog.h"
#include <ctime>

namespace {

// UTC in the fixed form of the C library, without its line end.
std::string timeText(uint32_t seconds) {
    const auto time = static_cast<time_t>(seconds);
    struct tm broken {};
    char text[32];
    if (gmtime_r(&time, &broken) == nullptr || asctime_r(&broken, text) == nullptr)
        return "";
    return std::string(text, strcspn(text, "\n"));
}

} // namespace

ReleaseHeaderPart::ReleaseHeaderPart(const zemp_content_header_t* header,
                                     const zemp_content_release_header_t* release)
    : ZempPart(header) {
    setPartType(ReleaseHeader);
    updateReleaseHeader(release);
}

void ReleaseHeaderPart::update(ZempPart* other) {
    const auto* const part = dynamic_cast<ReleaseHeaderPart*>(other);
    if (part == nullptr || part == this || !updateFrom(other))
        return;
    mIsReleaseHeaderValid = false;
    updateReleaseHeader(&part->mReleaseHeader);
    mReleaseHeaderBody = part->mReleaseHeaderBody;
    VEX_LOG(LogDebug) << "ReleaseHeaderPart::update() " << toString() << ".";
}

std::string ReleaseHeaderPart::getPartVersion() {
    return getVersionString(mReleaseHeader.major, mReleaseHeader.minor, mReleaseHeader.build);
}

bool ReleaseHeaderPart::isVersion(uint8_t major, uint8_t minor, uint16_t build) {
    return mIsReleaseHeaderValid && mReleaseHeader.major == major && mReleaseHeader.minor == minor &&
           mReleaseHeader.build == build;
}

std::string ReleaseHeaderPart::getMapKey() {
    return "ReleaseHeader " + getPartVersion();
}

std::string ReleaseHeaderPart::toString() {
    return "ReleaseHeader: " + ZempFormat::text(mReleaseHeader.name) + " " + getPartVersion() + ", " +
           timeText(mReleaseHeader.time);
}

bool ReleaseHeaderPart::updateReleaseHeader(const zemp_content_release_header_t* release) {
    if (release == nullptr)
        return false;
    bool changed = false;
    if (mReleaseHeader.major != release->major) {
        mReleaseHeader.major = release->major;
        changed = true;
    }
    if (mReleaseHeader.minor != release->minor) {
        mReleaseHeader.minor = release->minor;
        changed = true;
    }
    if (mReleaseHeader.build != release->build) {
        mReleaseHeader.build = release->build;
        changed = true;
    }
    if (mReleaseHeader.time != release->time) {
        mReleaseHeader.time = release->time;
        changed = true;
    }
    // All 36 bytes, so that the header stays what its CRC was made of.
    if (memcmp(mReleaseHeader.name, release->name, sizeof mReleaseHeader.name) != 0) {
        memcpy(mReleaseHeader.name, release->name, sizeof mReleaseHeader.name);
        changed = true;
    }
    mIsReleaseHeaderValid = true;
    return changed;
}
