#include "fuzz/PartChecks.h"

#include "fuzz/FuzzTarget.h"
#include <algorithm>
#include <memory>

namespace fuzz {

namespace {

constexpr uint32_t MaximumManifestLines = 40;

template <typename Object>
std::string bytesOf(const Object& object) {
    return std::string(reinterpret_cast<const char*>(&object), sizeof object);
}

std::string describeManifest(const SuumBlob& suum) {
    std::string text = suum.isSuumValid() ? "valid" : "not valid";
    if (suum.getBlob() != nullptr)
        text.append(reinterpret_cast<const char*>(suum.getBlob()), suum.getBlobSize());
    for (uint32_t i = 0; i < suum.getNumberOfElements(); ++i) {
        const SuumBlob::Element& element = *suum.getElementAt(i);
        text += "\n" + std::to_string(element.getContentIndex()) + "," + element.getPoolname() + "," +
                std::to_string(element.getPartsize()) + "," + element.getMountPoint() + "," +
                element.getFilesystem() + "," + element.getPlatform() + "," +
                std::to_string(element.getMajor()) + "." + std::to_string(element.getMinor()) + "." +
                std::to_string(element.getBuild()) + (element.isMetaValid() ? " meta" : "") +
                (element.isVersionValid() ? " version" : "");
    }
    return text;
}

void checkRelease(const ReleaseHeaderPart& part, const View& bytes, size_t offset) {
    const std::string text = part.getReleaseHeaderBody();
    FUZZ_REQUIRE(text.find('\0') == std::string::npos);
    if (!part.isBodyValid()) {
        FUZZ_REQUIRE(text.empty());
        return;
    }
    FUZZ_REQUIRE(text.size() <= part.getBodyLength());
    for (size_t i = 0; i < text.size(); ++i)
        FUZZ_REQUIRE(static_cast<uint8_t>(text[i]) == bytes[offset + i]);
    FUZZ_REQUIRE(text.size() == part.getBodyLength() || bytes[offset + text.size()] == 0);
}

void checkManifest(const SuumBlob& part, const View& bytes, size_t offset) {
    const uint32_t length = part.getBodyLength();
    FUZZ_REQUIRE(part.isBodyValid());
    FUZZ_REQUIRE(part.getBlobSize() == length + ZempPart::getPadding(length));
    for (uint32_t i = 0; i < part.getBlobSize(); ++i)
        FUZZ_REQUIRE(part.getBlob()[i] == (offset + i < bytes.size ? bytes[offset + i] : 0));
    FUZZ_REQUIRE(part.getNumberOfElements() <= MaximumManifestLines);
    FUZZ_REQUIRE(part.getElementAt(part.getNumberOfElements()) == nullptr);
}

void checkSoftware(SwBlob& part, const View& bytes, size_t offset) {
    FUZZ_REQUIRE(part.isExtendedHeaderValid() || !part.isBodyValid());
    if (!part.isExtendedHeaderValid())
        return;
    FUZZ_REQUIRE(ZempFormat::SwBlobBodyOffset <= bytes.size - offset);
    const size_t at = offset + ZempFormat::ContentHeaderSize;
    FUZZ_REQUIRE(
        part.isVersion(bytes[at], bytes[at + 1], static_cast<uint16_t>(bytes[at + 2] | bytes[at + 3] << 8)));
}

size_t bodyOffsetOf(const ZempPart& part) {
    switch (part.getHeader()->type) {
    case ZempFormat::ReleaseHeaderType:
        return ZempFormat::ReleaseBodyOffset;
    case ZempFormat::SwBlobType:
        return ZempFormat::SwBlobBodyOffset;
    default:
        return ZempFormat::BlobBodyOffset;
    }
}

void checkBody(const ZempPart& part, const View& bytes, size_t offset) {
    const size_t body = offset + bodyOffsetOf(part);
    const uint64_t size =
        uint64_t{part.getHeaderLength()} + part.getBodyLength() + ZempPart::getPadding(part.getBodyLength());
    FUZZ_REQUIRE(part.getSizeInZempFile() == std::min<uint64_t>(size, UINT32_MAX));
    FUZZ_REQUIRE(part.getUsedSize() <= part.getSizeInZempFile());
    const bool isComplete = body <= bytes.size && part.getBodyLength() <= bytes.size - body;
    if (part.isBodyValid()) {
        FUZZ_REQUIRE(isComplete);
        FUZZ_REQUIRE(part.getUsedSize() == part.getSizeInZempFile());
        FUZZ_REQUIRE(referenceCrc(bytes, body, part.getBodyLength()) == part.getBodyCrc());
    } else if (isComplete) {
        FUZZ_REQUIRE(referenceCrc(bytes, body, part.getBodyLength()) != part.getBodyCrc());
    } else {
        FUZZ_REQUIRE(part.getUsedSize() < part.getSizeInZempFile());
        FUZZ_REQUIRE(part.getUsedSize() <= bytes.size - offset);
    }
}

} // namespace

uint32_t referenceCrc(const View& bytes, size_t begin, size_t length) {
    constexpr uint32_t polynomial = 0xEDB88320; // of CRC-32, its bits reversed
    uint32_t crc = UINT32_MAX;
    for (size_t i = 0; i < length; ++i) {
        crc ^= bytes[begin + i];
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? polynomial : 0);
    }
    return ~crc;
}

Parts::~Parts() {
    for (ZempPart* const part : mParts)
        delete part;
}

bool Parts::parseFile(const std::string& path, uint32_t size, FileFragment::FragmentType type) {
    const bool isParsed = mParser.parseFile(path, size, type);
    for (uint32_t i = 0; i < mParser.getNumberOfZempParts(); ++i)
        mParts.push_back(mParser.getZempPartAt(i));
    return isParsed;
}

bool Parts::parseImage(const View& bytes) {
    const auto size = static_cast<uint32_t>(bytes.size);
    const uint32_t start = mParser.parseZempFileStart(bytes.data, size);
    if (start == 0)
        return false;
    ZempHeaderPart* const header = mParser.parseZempHeader(bytes.data + start, size - start);
    if (header == nullptr)
        return false;
    mParts.push_back(header);
    const uint32_t body = start + header->getZempHeader()->hdr_length;
    FUZZ_REQUIRE(body <= size);
    const bool isParsed = mParser.parseContentParts(bytes.data + body, size - body, false) != 0;
    for (uint32_t i = 0; i < mParser.getNumberOfZempParts(); ++i)
        mParts.push_back(mParser.getZempPartAt(i));
    return isParsed;
}

bool Parts::parseContentPart(const View& bytes) {
    ZempPart* const part = mParser.parseContentPart(bytes.data, static_cast<uint32_t>(bytes.size));
    if (part == nullptr)
        return false;
    mParts.push_back(part);
    return true;
}

std::string describe(ZempPart* part) {
    std::string text = part->toString() + "|" + part->getPartname() + "|" +
                       ZempPart::getString(part->getPartType()) + "|" + bytesOf(*part->getHeader()) + "|" +
                       std::to_string(part->getUsedSize()) + (part->isBodyValid() ? " body" : "") +
                       (part->isContentHeaderValid() ? " header" : "");
    if (const auto* const header = dynamic_cast<ZempHeaderPart*>(part))
        text += bytesOf(*header->getZempHeader()) + (header->isZempHeaderValid() ? "valid" : "");
    if (const auto* const release = dynamic_cast<ReleaseHeaderPart*>(part))
        text += bytesOf(*release->getReleaseHeader()) + release->getReleaseHeaderBody();
    if (const auto* const blob = dynamic_cast<SwBlob*>(part))
        text += (blob->isExtendedHeaderValid() ? "extended" : "") + bytesOf(*blob->getExtendedHeader());
    if (const auto* const suum = dynamic_cast<SuumBlob*>(part))
        text += describeManifest(*suum);
    return text;
}

void checkContentPart(ZempPart* part, const View& bytes, size_t offset) {
    FUZZ_REQUIRE(part->isContentHeaderValid());
    FUZZ_REQUIRE(offset <= bytes.size);
    const uint16_t headerLength = part->getHeaderLength();
    FUZZ_REQUIRE(headerLength >= ZempFormat::ContentHeaderSize && headerLength <= bytes.size - offset);
    const auto* const header = reinterpret_cast<const uint8_t*>(part->getHeader());
    for (size_t i = 0; i < ZempFormat::ContentHeaderSize; ++i)
        FUZZ_REQUIRE(header[i] == bytes[offset + i]);
    FUZZ_REQUIRE(referenceCrc(bytes, offset + ZempFormat::CrcFieldSize,
                              headerLength - ZempFormat::CrcFieldSize) == part->getHeader()->hdr_crc);
    checkBody(*part, bytes, offset);
    const size_t body = offset + bodyOffsetOf(*part);
    if (const auto* const release = dynamic_cast<ReleaseHeaderPart*>(part))
        checkRelease(*release, bytes, body);
    if (const auto* const suum = dynamic_cast<SuumBlob*>(part))
        checkManifest(*suum, bytes, body);
    if (auto* const blob = dynamic_cast<SwBlob*>(part))
        checkSoftware(*blob, bytes, offset);
}

std::vector<size_t> checkImageParts(const Parts& parts, const View& bytes) {
    std::vector<size_t> offsets;
    if (parts.count() == 0)
        return offsets;
    const auto* const header = dynamic_cast<ZempHeaderPart*>(parts.at(0));
    FUZZ_REQUIRE(header != nullptr && header->isZempHeaderValid());
    const size_t headerLength = header->getZempHeader()->hdr_length;
    FUZZ_REQUIRE(headerLength >= ZempFormat::HeaderSize &&
                 headerLength <= bytes.size - ZempFormat::HeaderOffset);
    FUZZ_REQUIRE(referenceCrc(bytes, ZempFormat::HeaderOffset + ZempFormat::CrcFieldSize,
                              headerLength - ZempFormat::CrcFieldSize) == header->getZempHeader()->hdr_crc);
    offsets.push_back(ZempFormat::HeaderOffset);
    uint64_t offset = ZempFormat::HeaderOffset + headerLength;
    for (size_t i = 1; i < parts.count(); ++i) {
        FUZZ_REQUIRE(parts.at(i)->isBodyValid() || i + 1 == parts.count());
        FUZZ_REQUIRE(offset <= bytes.size);
        checkContentPart(parts.at(i), bytes, static_cast<size_t>(offset));
        offsets.push_back(static_cast<size_t>(offset));
        offset += parts.at(i)->getUsedSize();
    }
    return offsets;
}

void checkUpdate(ZempPart* part) {
    const std::string before = describe(part);
    part->update(part);
    FUZZ_REQUIRE(describe(part) == before);
    std::unique_ptr<ZempPart> other;
    if (dynamic_cast<SuumBlob*>(part) != nullptr)
        other = std::make_unique<SuumBlob>(nullptr);
    else if (dynamic_cast<ZempHeaderPart*>(part) != nullptr)
        other = std::make_unique<ZempHeaderPart>();
    else
        other.reset(ZempPart::createZempPart(part->getHeader()));
    FUZZ_REQUIRE(other != nullptr);
    other->update(part);
    other->update(part);
    FUZZ_REQUIRE(describe(other.get()) == before);
    FUZZ_REQUIRE(other->getMapKey() == part->getMapKey());
}

} // namespace fuzz
