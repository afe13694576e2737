#include "image/ZempParser.h"

#include "image/FileBuffer.h"
#include "image/ParseLog.h"
#include "image/zemp_validate.h"
#include <algorithm>
#include <new>
#include <sys/stat.h>

int ParseLevel = LogDebug;

namespace {

// Step over damaged data that used no bytes, so that the parse goes on.
constexpr uint32_t SkipBytes = 100;

// Lends the parser a file for one parse.
class FileLoan {
  public:
    FileLoan(FileBuffer*& slot, FileBuffer* file) : mSlot(slot) { mSlot = file; }
    ~FileLoan() { mSlot = nullptr; }
    FileLoan(const FileLoan&) = delete;
    FileLoan& operator=(const FileLoan&) = delete;

  private:
    FileBuffer*& mSlot;
};

// Size of the file for a parse of all of it; 0, with the reason logged, when there is nothing to parse.
uint32_t sizeOfFile(const std::string& filename) {
    struct stat status {};
    if (stat(filename.c_str(), &status) != 0) {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() Cannot stat filename='" << filename << "'!";
        return 0;
    }
    if (status.st_size <= 0) {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() Filename='" << filename << "' has zero size! ("
                            << status.st_size << ").";
        return 0;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(static_cast<uint64_t>(status.st_size), UINT32_MAX));
}

bool canParse(FileFragment::FragmentType type) {
    return type == FileFragment::ZempFile || type == FileFragment::ContentPart ||
           type == FileFragment::ZempStart;
}

} // namespace

bool ZempParser::parseFile(const std::string& filename, uint32_t size, FileFragment::FragmentType type) {
    if (filename.empty()) {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() Filename is NULL!";
        return false;
    }
    if (!canParse(type)) {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() Do not know how to parse "
                            << FileFragment::getString(type) << ".";
        return false;
    }
    if (size == 0)
        size = sizeOfFile(filename);
    if (size == 0)
        return false;
    FileBuffer file;
    if (!file.allocate(size)) {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() Memory allocation failed!";
        return false;
    }
    bool isParsed = false;
    if (file.open(filename)) {
        const FileLoan loan(mFile, &file);
        try {
            isParsed = type == FileFragment::ContentPart
                           ? parseSinglePart(filename, size)
                           : parseImage(filename, size, type == FileFragment::ZempStart);
        } catch (const std::bad_alloc&) { // lengths come from the file
            VEX_LOG(LogWarning) << "ZempParser::parseFile() Memory allocation failed!";
        }
    } else {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() Unable to open file '" << filename << "'.";
    }
    logZempParts();
    return isParsed;
}

void ZempParser::setVoucher(std::shared_ptr<const seal::Voucher> voucher) {
    mVoucher = std::move(voucher);
    mHash = mVoucher ? mVoucher->makeHash() : nullptr;
}

bool ZempParser::parseSinglePart(const std::string& filename, uint32_t size) {
    ZempPart* const part = parseContentPart(mFile->data(), size);
    if (part == nullptr) {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() Failed parse of ZEMP part " << filename << ".";
        return false;
    }
    mParts.push_back(part);
    return isPartVouchedFor(filename, *part);
}

// A part is of the release as far as it is there: its header at least.
bool ZempParser::isPartVouchedFor(const std::string& filename, const ZempPart& part) const {
    if (!mHash)
        return true;
    const seal::Digests& digests = part.getDigests();
    if (part.isBodyValid() ? mVoucher->isPart(digests) : mVoucher->isHeader(digests.header))
        return true;
    VEX_LOG(LogWarning) << "ZempParser::parseFile() The part in " << filename
                        << " is not what the seal of the release has.";
    return false;
}

// What there is of a start that is not complete may tell how long it is, but it must not have a manifest.
bool ZempParser::isStartVouchedFor(const std::string& filename, const seal::Digest& start,
                                   bool isComplete) const {
    const auto isManifest = [](const ZempPart* part) { return part->getPartType() == ZempPart::SuumBlob; };
    if (!mHash ||
        (isComplete ? mVoucher->isStart(start) : std::none_of(mParts.begin(), mParts.end(), isManifest)))
        return true;
    VEX_LOG(LogWarning) << "ZempParser::parseFile() The image start in " << filename
                        << " is not what the seal of the release has.";
    return false;
}

bool ZempParser::parseImage(const std::string& filename, uint32_t size, bool stopAtStart) {
    const uint8_t* const data = mFile->data();
    seal::Digest digest{};
    const bool isComplete = mHash && stopAtStart && size >= mVoucher->startSize();
    if (isComplete) { // before anything of it is looked at, and what is looked at is what was summed
        load(data, mVoucher->startSize());
        digest = digestOf(data, mVoucher->startSize());
    }
    const uint32_t start = parseZempFileStart(data, size);
    if (start == 0) {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() ZEMP file start not found in " << filename << ".";
        return false;
    }
    ZempHeaderPart* const header = parseZempHeader(data + start, size - start);
    if (header == nullptr) {
        VEX_LOG(LogWarning) << "ZempParser::parseFile() No ZEMP Header found in " << filename << ".";
        return false;
    }
    mParts.push_back(header);
    const uint32_t body =
        start + header->getZempHeader()->hdr_length; // within size: the header's CRC covers it
    return parseContentParts(data + body, size - body, stopAtStart) != 0 &&
           (!stopAtStart || isStartVouchedFor(filename, digest, isComplete));
}

uint32_t ZempParser::parseZempFileStart(const uint8_t* data, uint32_t size) const {
    if (data == nullptr) {
        VEX_LOG(LogWarning) << "ZempParser::parseZempFileStart() ZEMP data is NULL!";
        return 0;
    }
    if (size <= ZempPart::ZempFileIdentifierSize) {
        VEX_LOG(LogWarning) << "ZempParser::parseZempFileStart() Not enough data (size=" << size
                            << ", need at least " << ZempPart::ZempFileIdentifierSize;
        return 0;
    }
    load(data, ZempPart::ZempFileIdentifierSize);
    if (memcmp(data, ZempPart::MagicHeader, ZempPart::ZempFileIdentifierSize) != 0) {
        VEX_LOG(LogWarning) << "ZempParser::parseZempFileStart() No header magic!";
        return 0;
    }
    return ZempFormat::HeaderOffset;
}

ZempHeaderPart* ZempParser::parseZempHeader(const uint8_t* data, uint32_t size) const {
    if (data == nullptr) {
        VEX_LOG(LogWarning) << "ZempParser::parseZempHeader() ZEMP data is NULL!";
        return nullptr;
    }
    if (size < ZempPart::ZempHeaderSize) {
        VEX_LOG(LogWarning) << "ZempParser::parseZempHeader() Not enough data (size=" << size
                            << ", need at least " << ZempPart::ZempHeaderSize;
        return nullptr;
    }
    load(data, ZempPart::ZempHeaderSize);
    const auto* const header = reinterpret_cast<const zemp_header_t*>(data);
    VEX_LOG(LogDebug) << "ZempParser::parseZempHeader() version=" << unsigned{header->version}
                      << " reserved=0x" << std::hex << unsigned{header->reserved} << std::dec
                      << " hdr_length=" << header->hdr_length << " body_length=" << header->body_length
                      << " body_crc=0x" << std::hex << header->body_crc;
    if (header->version != ZempFormat::Version) {
        VEX_LOG(LogWarning) << "ZempParser::parseZempHeader() Cannot handle ZEMP version "
                            << unsigned{header->version} << "! Can version=" << unsigned{ZempFormat::Version};
        return nullptr;
    }
    const uint16_t length = header->hdr_length;
    if (length < ZempPart::ZempHeaderSize) {
        VEX_LOG(LogWarning) << "ZempParser::parseZempHeader() Bad header size=" << length
                            << "! Should be at least " << ZempPart::ZempHeaderSize;
        return nullptr;
    }
    if (length <= size)
        load(data, length);
    if (length > size || zemp_validate_header(header) != ZempValid) {
        VEX_LOG(LogWarning) << "ZempParser::parseZempHeader() Header fails CRC check!";
        return nullptr;
    }
    auto* const part = new ZempHeaderPart;
    part->updateZempHeader(header);
    return part;
}

const zemp_content_header_t* ZempParser::parseContentHeader(const uint8_t* data, uint32_t size) const {
    if (data == nullptr) {
        VEX_LOG(LogWarning) << "ZempParser::parseContentHeader() ZEMP data is NULL!";
        return nullptr;
    }
    if (size < ZempPart::ZempContentHeaderSize) {
        VEX_LOG(LogWarning) << "ZempParser::parseContentHeader() Not enough data (size=" << size
                            << ", need at least " << ZempPart::ZempContentHeaderSize;
        return nullptr;
    }
    load(data, ZempPart::ZempContentHeaderSize);
    const auto* const header = reinterpret_cast<const zemp_content_header_t*>(data);
    const uint16_t length = header->hdr_length;
    if (size < length) {
        VEX_LOG(LogWarning) << "ZempParser::parseContentHeader() Not enough header data (size=" << size
                            << ", need at least " << length;
        return nullptr;
    }
    if (length < ZempPart::ZempContentHeaderSize || header->hdr_crc == 0) {
        VEX_LOG(LogWarning) << "ZempParser::parseContentHeader() Header length=" << length << " crc=0x"
                            << std::hex << header->hdr_crc;
        return nullptr;
    }
    const std::string name = ZempFormat::text(header->name);
    VEX_LOG(LogDebug) << "ZempParser::parseContentHeader() name='" << name << "'";
    VEX_LOG(LogDebug) << "ZempParser::parseContentHeader()   type=" << header->type;
    VEX_LOG(LogDebug) << "ZempParser::parseContentHeader()   hdr_length=" << length;
    VEX_LOG(LogDebug) << "ZempParser::parseContentHeader()   body_length=" << header->body_length;
    load(data, length);
    const uint32_t crc = crc32_calc(0, data + ZempFormat::CrcFieldSize, length - ZempFormat::CrcFieldSize);
    if (crc != header->hdr_crc) {
        VEX_LOG(LogWarning) << "ZempParser::parseContentHeader() CRC failed, either there is no header or it "
                               "has bad CRC.";
        VEX_LOG(LogWarning) << "ZempParser::parseContentHeader() crc32Header=0x" << std::hex << crc
                            << ", body_crc=0x" << header->hdr_crc;
        return nullptr;
    }
    VEX_LOG(LogDebug) << "ZempParser::parseContentHeader() Return the found header name='" << name << "'.";
    return header;
}

uint32_t ZempParser::parseContentParts(const uint8_t* data, uint32_t size, bool stopAtStart) {
    if (data == nullptr) {
        VEX_LOG(LogWarning) << "ZempParser::parseContentParts() ZEMP data is NULL!";
        return 0;
    }
    if (size < ZempPart::ZempContentHeaderSize) {
        VEX_LOG(LogWarning) << "ZempParser::parseContentParts() Not enough data (size=" << size
                            << ", need at least " << ZempPart::ZempContentHeaderSize << "!";
        return 0;
    }
    const uint32_t passes = size / ZempPart::ZempContentHeaderSize;
    uint32_t count = 0;
    uint32_t used = 0;
    std::string releaseVersion;
    bool isReleaseSeen = false;
    bool isSuumSeen = false;
    for (uint32_t pass = 0; pass < passes; ++pass) {
        ZempPart* const part = parseContentPart(data, size);
        if (part == nullptr) {
            VEX_LOG(LogWarning)
                << "ZempParser::parseContentParts() Parse did NOT return a ZempPart instance.";
            break;
        }
        used = part->getUsedSize();
        ++count;
        addPart(part, releaseVersion);
        isReleaseSeen = isReleaseSeen || part->getPartType() == ZempPart::ReleaseHeader;
        isSuumSeen = isSuumSeen || part->getPartType() == ZempPart::SuumBlob;
        if (!part->isBodyValid()) {
            PARSE_LOG() << "ZempParser::parseContentParts() ZempPart has invalid body.";
            break;
        }
        if (stopAtStart && isReleaseSeen && isSuumSeen) {
            VEX_LOG(LogDebug) << "ZempParser::parseContentParts() Found all parts for a ZempStart.";
            break;
        }
        uint32_t step = used;
        if (step == 0) {
            VEX_LOG(LogWarning) << "ZempParser::parseContentParts() Loop #" << pass
                                << " did NOT increase used size, set used to " << SkipBytes << ".";
            step = SkipBytes;
        }
        if (step >= size) // the last part's padding may be missing
            break;
        data += step;
        size -= step;
    }
    VEX_LOG(LogInfo) << "ZempParser::parseContentParts() Found " << count << " ZEMP parts.";
    return used;
}

void ZempParser::addPart(ZempPart* part, std::string& releaseVersion) {
    if (part->getPartType() == ZempPart::ReleaseHeader) {
        releaseVersion = part->getPartVersion();
        auto* const header = mParts.empty() ? nullptr : dynamic_cast<ZempHeaderPart*>(mParts.front());
        if (header != nullptr)
            header->setPartVersion(releaseVersion);
    }
    mParts.push_back(part);
    if (auto* const suum = dynamic_cast<SuumBlob*>(part))
        suum->setPartVersion(releaseVersion);
}

ZempPart* ZempParser::getZempPartAt(uint32_t index) const {
    return index < mParts.size() ? mParts[index] : nullptr;
}

void ZempParser::logZempParts() const {
    for (ZempPart* const part : mParts)
        PARSE_LOG() << "ZempParser::logZempParts() " << part->toString();
}

uint32_t ZempParser::getOffsetFirstSwBlob(uint32_t releaseSize, uint32_t suumSize) {
    return ZempPart::ZempFileIdentifierSize + ZempPart::ZempHeaderSize + releaseSize + suumSize;
}

void ZempParser::load(const uint8_t* data, uint32_t size) const {
    if (mFile != nullptr)
        mFile->load(data, size);
}
