// The parser's readers of the single kinds of content part.

#include "common/Thread.h"
#include "image/FileBuffer.h"
#include "image/ParseLog.h"
#include "image/ZempParser.h"
#include "image/zemp_validate.h"
#include <algorithm>
#include <memory>
#include <string_view>

namespace {

// Bytes between two looks at whether the thread is to stop.
constexpr uint32_t CrcStepBytes = 1024 * 1024;

} // namespace

uint32_t ZempParser::bodyCrc(const uint8_t* data, uint32_t size, seal::Digest& digest) const {
    if (mFile != nullptr) {
        const uint32_t crc = mFile->crc(data, size, mHash.get());
        if (mHash)
            digest = mHash->finish();
        return crc;
    }
    uint32_t crc = 0;
    while (size > 0) {
        CancellationPoint::test();
        const uint32_t count = std::min(size, CrcStepBytes);
        crc = crc32_calc(crc, data, count);
        data += count;
        size -= count;
    }
    return crc;
}

seal::Digest ZempParser::digestOf(const uint8_t* data, uint32_t size) const {
    if (!mHash)
        return {};
    mHash->update(data, size);
    return mHash->finish();
}

void ZempParser::setBodyParsed(ZempPart* part, bool valid, const seal::Digest& digest) const {
    part->setIsBodyValid(valid);
    if (valid && mHash)
        part->setBodyDigest(digest);
    part->setUsedDataSize(part->getSizeInZempFile());
}

ZempPart* ZempParser::parseContentPart(const uint8_t* data, uint32_t size) const {
    const zemp_content_header_t* const header = parseContentHeader(data, size);
    if (header == nullptr) {
        const uint8_t* const start = mFile != nullptr ? mFile->data() : data;
        VEX_LOG(LogWarning) << "ZempParser::parseContentPart() Offset " << data - start
                            << " is NOT a valid content header!";
        return nullptr;
    }
    const uint8_t* const rest = data + ZempPart::ZempContentHeaderSize;
    const uint32_t restSize = size - ZempPart::ZempContentHeaderSize;
    const seal::Digest digest = digestOf(data, header->hdr_length);
    ZempPart* part = nullptr;
    switch (header->type) {
    case ZempFormat::BlobType:
        part = parseBlob(rest, restSize, header);
        break;
    case ZempFormat::SwBlobType:
        part = parseSwBlob(rest, restSize, header);
        break;
    case ZempFormat::ReleaseHeaderType:
        part = parseReleaseHeader(rest, restSize, header);
        break;
    default:
        VEX_LOG(LogWarning) << "ZempParser::parseContentPart() Cannot handle content part type="
                            << header->type;
    }
    if (part != nullptr) {
        if (mHash)
            part->setHeaderDigest(digest);
        PARSE_LOG() << "ZempParser::parseContentPart() Found content part name='" << part->getPartname()
                    << "'.";
    }
    return part;
}

ReleaseHeaderPart* ZempParser::parseReleaseHeader(const uint8_t* data, uint32_t size,
                                                  const zemp_content_header_t* header) const {
    if (size < ZempPart::ZempReleaseHeaderSize) {
        VEX_LOG(LogWarning) << "ZempParser::parseReleaseHeader() Not enough data (size=" << size
                            << ", need at least " << ZempPart::ZempReleaseHeaderSize;
        return nullptr;
    }
    load(data, ZempPart::ZempReleaseHeaderSize);
    auto part = std::make_unique<ReleaseHeaderPart>(
        header, reinterpret_cast<const zemp_content_release_header_t*>(data));
    if (parseReleaseBody(data + ZempPart::ZempReleaseHeaderSize, size - ZempPart::ZempReleaseHeaderSize,
                         part.get()))
        VEX_LOG(LogDebug) << "ZempParser::parseReleaseHeader() Parsed release body.";
    else
        VEX_LOG(LogWarning) << "ZempParser::parseReleaseHeader() Failed to parse release body!";
    PARSE_LOG() << "ZempParser::parseReleaseHeader() " << part->toString() << " is "
                << (part->isBodyValid() ? "valid" : "invalid");
    return part.release();
}

bool ZempParser::parseReleaseBody(const uint8_t* data, uint32_t size, ReleaseHeaderPart* part) const {
    const uint32_t length = part->getBodyLength();
    if (size < length) {
        VEX_LOG(LogWarning) << "ZempParser::parseReleaseBody() Not enough data (size=" << size
                            << ", need at least " << length;
        return false;
    }
    load(data, length);
    seal::Digest digest{};
    const uint32_t crc = bodyCrc(data, length, digest);
    if (crc != part->getBodyCrc()) {
        // The method named here is what operators look for.
        VEX_LOG(LogWarning) << "ZempParser::parseContentPart() Body CRC failed! crc32Body=0x" << std::hex
                            << crc << ", body_crc=0x" << part->getBodyCrc();
        return false;
    }
    const auto* const chars = reinterpret_cast<const char*>(data);
    std::string_view text(chars, strnlen(chars, length));
    part->setReleaseHeaderBody(std::string(text));
    text = text.substr(0, text.find_last_not_of("\r\n") + 1);
    VEX_LOG(LogDebug) << "ZempParser::parseReleaseBody() Body='" << text << "'.";
    setBodyParsed(part, true, digest);
    return true;
}

ZempPart* ZempParser::parseBlob(const uint8_t* data, uint32_t size,
                                const zemp_content_header_t* header) const {
    const uint32_t length = header->body_length;
    const std::string name = ZempFormat::text(header->name);
    if (size < length) {
        VEX_LOG(LogWarning) << "ZempParser::parseBlob() Not enough data to parse content part body of '"
                            << name << "'! (size=" << size << ", need at least " << length;
        return nullptr;
    }
    const bool isSuum = name == ZempFormat::ManifestName;
    if (isSuum) {
        const uint64_t wanted = uint64_t{length} + ZempPart::getPadding(length);
        load(data, static_cast<uint32_t>(std::min<uint64_t>(size, wanted)));
    }
    seal::Digest digest{};
    const uint32_t crc = bodyCrc(data, length, digest);
    if (crc != header->body_crc) {
        VEX_LOG(LogWarning) << "ZempParser::parseBlob() Body CRC failed! crc32Body=0x" << std::hex << crc
                            << ", body_crc=0x" << header->body_crc;
        return nullptr;
    }
    VEX_LOG(LogDebug) << "ZempParser::parseBlob() Body CRC OK crc=0x" << std::hex << crc;
    if (!isSuum) {
        VEX_LOG(LogInfo) << "ZempParser::parseBlob() Only know how to parse suum blob.";
        return nullptr;
    }
    SuumBlob* const suum = parseSuumBlob(data, size, header);
    if (suum == nullptr) {
        VEX_LOG(LogWarning) << "ZempParser::parseBlob() Ups! Failed to parse suum blob!";
        return nullptr;
    }
    setBodyParsed(suum, true, digest);
    return suum;
}

SwBlob* ZempParser::parseSwBlob(const uint8_t* data, uint32_t size,
                                const zemp_content_header_t* header) const {
    auto blob = std::make_unique<SwBlob>(header);
    if (!parseSwBlobExtendedHeader(data, size, blob.get())) {
        VEX_LOG(LogWarning) << "ZempParser::parseSwBlob() Failed to parse extended header!";
        return blob.release();
    }
    const uint8_t* const body = data + ZempPart::ZempSwBlobHeaderSize;
    const uint32_t bodySize = size - ZempPart::ZempSwBlobHeaderSize;
    const uint32_t length = blob->getBodyLength();
    if (bodySize < length) {
        blob->setIsBodyValid(false);
        // The bytes present, and always less than the part has, so that it is seen to be incomplete.
        blob->setUsedDataSize(
            std::min(size + ZempPart::ZempContentHeaderSize, blob->getSizeInZempFile() - 1));
        PARSE_LOG() << "ZempParser::parseSwBlob() Not enough data to parse content part body of '"
                    << blob->getPartname() << "'!"
                    << " (size=" << bodySize << ", need at least " << length << ").";
    } else {
        seal::Digest digest{};
        const uint32_t crc = bodyCrc(body, length, digest);
        const bool isValid = crc == blob->getBodyCrc();
        if (isValid)
            VEX_LOG(LogDebug) << "ZempParser::parseSwBlob() Body CRC OK crc=0x" << std::hex << crc;
        else
            VEX_LOG(LogWarning) << "ZempParser::parseSwBlob() Body CRC failed! crc32Body=0x" << std::hex
                                << crc << ", body_crc=0x" << blob->getBodyCrc();
        setBodyParsed(blob.get(), isValid, digest);
    }
    PARSE_LOG() << "ZempParser::parseSwBlob() Found " << blob->toString();
    return blob.release();
}

bool ZempParser::parseSwBlobExtendedHeader(const uint8_t* data, uint32_t size, SwBlob* blob) const {
    if (data == nullptr) {
        VEX_LOG(LogWarning) << "ZempParser::parseSwBlobExtendedHeader() Data is NULL!";
        return false;
    }
    if (size < ZempPart::ZempSwBlobHeaderSize) {
        VEX_LOG(LogWarning) << "ZempParser::parseSwBlobExtendedHeader() Not enough data!";
        return false;
    }
    load(data, ZempPart::ZempSwBlobHeaderSize);
    blob->updateExtendedHeader(reinterpret_cast<const zemp_content_software_blob_t*>(data), true);
    return true;
}
