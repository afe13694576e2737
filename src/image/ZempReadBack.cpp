#include "image/ZempReadBack.h"

#include "common/File.h"
#include "common/VexStreamLog.h"
#include "image/ZempParser.h"
#include "image/zemp_validate.h"
#include <algorithm>
#include <cstring>

namespace {

// The parser with the parts that it found, which are nobody else's.
class OwnParser : public ZempParser {
  public:
    OwnParser() = default;
    ~OwnParser() {
        for (uint32_t i = 0; i < getNumberOfZempParts(); ++i)
            delete getZempPartAt(i);
    }
    OwnParser(const OwnParser&) = delete;
    OwnParser& operator=(const OwnParser&) = delete;
};

bool complain(const std::string& filename, const std::string& what) {
    VEX_LOG(LogWarning) << "ZempCreator::createZemp: '" << filename
                        << "' was not read back as it was written (" << what << ").";
    return false;
}

// The image's main header, behind its magic. False when that is not right or cannot be read.
bool readMainHeader(File& file, zemp_header_t& header) {
    uint8_t bytes[ZempFormat::HeaderOffset + ZempFormat::HeaderSize];
    if (file.read(bytes, sizeof bytes) != sizeof bytes ||
        memcmp(bytes, ZempFormat::Magic, ZempFormat::MagicSize) != 0)
        return false;
    memcpy(&header, bytes + ZempFormat::HeaderOffset, sizeof header);
    return true;
}

// Takes the sum over the whole body on by the part at `offset`, whose body the parser has compared with its
// own sum. False when it cannot be read, or the padding is not zero.
bool addPart(File& file, uint64_t offset, const zemp_content_header_t& part, uint32_t& crc) {
    uint8_t bytes[ZempFormat::ReleaseBodyOffset]; // no header is longer
    const uint64_t body = offset + part.hdr_length;
    const uint32_t padding = ZempFormat::padding(part.body_length);
    if (part.hdr_length > sizeof bytes || !file.seek(offset) ||
        file.read(bytes, part.hdr_length) != part.hdr_length)
        return false;
    crc = crc32_combine(crc32_calc(crc, bytes, part.hdr_length), part.body_crc, part.body_length);
    if (!file.seek(body + part.body_length) || file.read(bytes, padding) != padding ||
        std::any_of(bytes, bytes + padding, [](uint8_t byte) { return byte != 0; }))
        return false;
    crc = crc32_calc(crc, bytes, padding);
    return true;
}

// The parsed parts, all sound, fill the file up to its end as the main header says. Else the text tells what
// does not.
std::string findUnsoundness(File& file, const zemp_header_t& header, const ZempParser& parser) {
    constexpr uint64_t head = ZempFormat::HeaderOffset + ZempFormat::HeaderSize;
    uint64_t end = head;
    uint32_t crc = 0;
    for (uint32_t i = 1; i < parser.getNumberOfZempParts(); ++i) {
        const ZempPart* const part = parser.getZempPartAt(i);
        if (!part->isContentHeaderValid() || !part->isBodyValid() ||
            !addPart(file, end, *part->getHeader(), crc))
            return part->getPartname();
        end += part->getSizeInZempFile();
    }
    uint8_t behind = 0;
    const bool isWhole = file.read(&behind, 1) == 0 && !file.hasFailed();
    return isWhole && end - head == header.body_length && crc == header.body_crc ? "" : "body";
}

} // namespace

bool readBackImage(const std::string& filename, const zemp_header_t& header,
                   const std::vector<WrittenPart>& parts,
                   const std::shared_ptr<const seal::Voucher>& voucher) {
    File file;
    zemp_header_t found{};
    if (!file.openRegularForReading(filename, File::Links::Follow) || !readMainHeader(file, found) ||
        memcmp(&found, &header, sizeof header) != 0)
        return complain(filename, "main header");
    OwnParser parser;
    parser.setVoucher(voucher);
    if (!parser.parseFile(filename, 0, FileFragment::ZempFile) ||
        parser.getNumberOfZempParts() != parts.size() + 1)
        return complain(filename, "parts");
    for (size_t i = 0; i < parts.size(); ++i) {
        const ZempPart* const part = parser.getZempPartAt(static_cast<uint32_t>(i) + 1);
        if (memcmp(part->getHeader(), &parts[i].header, sizeof parts[i].header) != 0 ||
            !(part->getDigests() == parts[i].digests))
            return complain(filename, part->getPartname());
    }
    const std::string unsound = findUnsoundness(file, header, parser);
    return unsound.empty() || complain(filename, unsound);
}

bool isImageVouchedFor(const std::string& filename, const std::shared_ptr<const seal::Voucher>& voucher) {
    if (!voucher->makeHash())
        return true;
    const auto refuse = [&filename](const std::string& what) {
        VEX_LOG(LogWarning) << "ZempReadBack::isImageVouchedFor() '" << filename
                            << "' is not what the seal of the release has (" << what << ").";
        return false;
    };
    File file;
    zemp_header_t header{};
    OwnParser parser;
    parser.setVoucher(voucher);
    if (!file.openRegularForReading(filename, File::Links::Follow) || !readMainHeader(file, header) ||
        !parser.parseFile(filename, 0, FileFragment::ZempFile))
        return refuse("main header");
    const std::string unsound = findUnsoundness(file, header, parser);
    if (!unsound.empty())
        return refuse(unsound);
    size_t count = 0;
    for (uint32_t i = 1; i < parser.getNumberOfZempParts(); ++i) {
        ZempPart* const part = parser.getZempPartAt(i);
        if (part->getContentIndex() <= ZempPart::sSuumBlobKey)
            continue; // the release header and the manifest, which have no lines of their own
        ++count;
        if (!voucher->isNamed(part->getPartname(), part->getPartVersion()) ||
            (part->getBodyLength() != 0 && !voucher->isPart(part->getDigests())))
            return refuse(part->getPartname());
    }
    return count == voucher->numberOfParts() || refuse("number of parts");
}
