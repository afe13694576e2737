#include "image/ZempPart.h"

#include "common/VexStreamLog.h"
#include "image/ContentBlob.h"
#include "image/ReleaseHeaderPart.h"
#include "image/SwBlob.h"
#include <algorithm>
#include <array>
#include <iomanip>
#include <sstream>

namespace {

// By part type.
constexpr std::array<uint32_t, ZempPart::UnspecifiedPart + 1> ContentIndices = {
    100,                         // ZempHeader
    ZempPart::sReleaseHeaderKey, // ReleaseHeader
    ZempPart::sSuumBlobKey,      // SuumBlob
    2,                           // KernelBlob
    3,                           // Kernel4812Blob
    4,                           // RootBlob
    5,                           // AppBlob
    6,                           // ThirdAppBlob
    200,                         // UnspecifiedBlob
    300,                         // UnspecifiedSwBlob
    400,                         // UnspecifiedPart
};
constexpr uint32_t UnknownContentIndex = 500;

struct SwBlobName {
    const char* name;
    ZempPart::PartType type;
};
constexpr SwBlobName SwBlobNames[] = {
    {"kernel", ZempPart::KernelBlob}, {"kernel4812", ZempPart::Kernel4812Blob}, {"root", ZempPart::RootBlob},
    {"app", ZempPart::AppBlob},       {"3rdapp", ZempPart::ThirdAppBlob},
};

} // namespace

ZempPart::ZempPart(const zemp_content_header_t* header) {
    updateContentHeader(header);
    setPartTypeFromContentHeader();
}

ZempPart::~ZempPart() = default;

ZempPart* ZempPart::createZempPart(const zemp_content_header_t* header) {
    if (header == nullptr)
        return nullptr;
    switch (header->type) {
    case ZempFormat::BlobType:
        return new ContentBlob(header);
    case ZempFormat::SwBlobType:
        return new SwBlob(header);
    case ZempFormat::ReleaseHeaderType:
        return new ReleaseHeaderPart(header, nullptr);
    default:
        return nullptr;
    }
}

const char* ZempPart::getString(PartType type) {
    switch (type) {
    case ZempHeader:
        return "ZempHeader";
    case ReleaseHeader:
        return "ReleaseHeader";
    case SuumBlob:
        return "SuumBlob";
    case KernelBlob:
        return "KernelBlob";
    case Kernel4812Blob:
        return "Kernel4812Blob";
    case RootBlob:
        return "RootBlob";
    case AppBlob:
        return "AppBlob";
    case ThirdAppBlob:
        return "ThirdAppBlob";
    case UnspecifiedBlob:
        return "UnspecifiedBlob";
    case UnspecifiedSwBlob:
        return "UnspecifiedSwBlob";
    case UnspecifiedPart:
        return "UnspecifiedPart";
    }
    return "<unknown part type>";
}

std::string ZempPart::getVersionString(uint8_t major, uint8_t minor, uint16_t build) {
    std::ostringstream text;
    text << unsigned{major} << "." << std::setw(2) << std::setfill('0') << unsigned{minor} << "-" << build;
    return text.str();
}

uint32_t ZempPart::getContentIndex() const {
    const auto index = static_cast<size_t>(mPartType);
    return index < ContentIndices.size() ? ContentIndices[index] : UnknownContentIndex;
}

uint32_t ZempPart::getSizeInZempFile() const {
    if (!mIsContentHeaderValid)
        return 0;
    const uint64_t size = uint64_t{mContentHeader.hdr_length} + mContentHeader.body_length +
                          getPadding(mContentHeader.body_length);
    return static_cast<uint32_t>(std::min<uint64_t>(size, UINT32_MAX));
}

const seal::Digests& ZempPart::getDigests() const {
    static const seal::Digests none;
    return mDigests ? *mDigests : none;
}

seal::Digests& ZempPart::digests() {
    if (!mDigests)
        mDigests = std::make_unique<seal::Digests>();
    return *mDigests;
}

void ZempPart::updateContentHeader(const zemp_content_header_t* header) {
    if (header == nullptr) {
        VEX_LOG(LogDebug) << "ZempPart::updateContentHeader() Header is NULL!";
        return;
    }
    if (!mPartname.empty()) {
        VEX_LOG(LogDebug) << "ZempPart::updateContentHeader() Discarding content part name='" << mPartname
                          << "'.";
    }
    mContentHeader = *header;
    mPartname = ZempFormat::text(mContentHeader.name);
    mIsContentHeaderValid = true;
}

bool ZempPart::updateFrom(ZempPart* other) {
    if (other == nullptr || other->mPartType != mPartType)
        return false;
    if (mPartType == ZempHeader)
        mPartname = other->mPartname;
    else
        updateContentHeader(&other->mContentHeader);
    mFilename = other->mFilename;
    mIsBodyValid = other->mIsBodyValid;
    mIsPresent = other->mIsPresent;
    mUsedDataSize = other->mUsedDataSize;
    mDigests = other->mDigests ? std::make_unique<seal::Digests>(*other->mDigests) : nullptr;
    return true;
}

void ZempPart::setPartTypeFromContentHeader() {
    switch (mContentHeader.type) {
    case ZempFormat::ReleaseHeaderType:
        mPartType = ReleaseHeader;
        break;
    case ZempFormat::BlobType:
        mPartType = UnspecifiedBlob;
        break;
    case ZempFormat::SwBlobType:
        setSwBlobPartTypeFromName();
        break;
    default:
        mPartType = UnspecifiedPart;
    }
}

void ZempPart::setSwBlobPartTypeFromName() {
    mPartType = UnspecifiedSwBlob;
    for (const SwBlobName& known : SwBlobNames) {
        if (ZempFormat::equals(mContentHeader.name, known.name)) {
            mPartType = known.type;
            return;
        }
    }
}
