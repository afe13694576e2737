#include "image/ZempReadBack.h"

#include "common/File.h"
#include "common/VexStreamLog.h"
#include "image/ZempParser.h"
#include "image/zemp_validate.h"
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

bool isMainHeaderRight(File& file, const zemp_header_t& header) {
    uint8_t bytes[ZempFormat::HeaderOffset + ZempFormat::HeaderSize];
    return file.read(bytes, sizeof bytes) == sizeof bytes &&
           memcmp(bytes, ZempFormat::Magic, ZempFormat::MagicSize) == 0 &&
           memcmp(bytes + ZempFormat::HeaderOffset, &header, ZempFormat::HeaderSize) == 0;
}

// Takes the sum over the whole body on by the part at `offset`, whose body the parser has compared with its
// own sum. False when it cannot be read.
bool addPart(File& file, uint64_t offset, const zemp_content_header_t& part, uint32_t& crc) {
    uint8_t bytes[ZempFormat::ReleaseBodyOffset]; // no header is longer
    const uint64_t body = offset + part.hdr_length;
    const uint32_t padding = ZempFormat::padding(part.body_length);
    if (part.hdr_length > sizeof bytes || !file.seek(offset) ||
        file.read(bytes, part.hdr_length) != part.hdr_length)
        return false;
    crc = crc32_combine(crc32_calc(crc, bytes, part.hdr_length), part.body_crc, part.body_length);
    if (!file.seek(body + part.body_length) || file.read(bytes, padding) != padding)
        return false;
    crc = crc32_calc(crc, bytes, padding);
    return true;
}

} // namespace

bool readBackImage(const std::string& filename, const zemp_header_t& header,
                   const std::vector<zemp_content_header_t>& parts) {
    File file;
    if (!file.openForReading(filename) || !isMainHeaderRight(file, header))
        return complain(filename, "main header");
    OwnParser parser;
    if (!parser.parseFile(filename, 0, FileFragment::ZempFile) ||
        parser.getNumberOfZempParts() != parts.size() + 1)
        return complain(filename, "parts");
    constexpr uint64_t head = ZempFormat::HeaderOffset + ZempFormat::HeaderSize;
    uint64_t end = head;
    uint32_t crc = 0;
    for (size_t i = 0; i < parts.size(); ++i) {
        const ZempPart* const part = parser.getZempPartAt(static_cast<uint32_t>(i) + 1);
        if (!part->isContentHeaderValid() || !part->isBodyValid() ||
            memcmp(part->getHeader(), &parts[i], sizeof parts[i]) != 0 || !addPart(file, end, parts[i], crc))
            return complain(filename, part->getPartname());
        end += part->getSizeInZempFile();
    }
    uint8_t behind = 0;
    const bool isWhole = file.read(&behind, 1) == 0 && !file.hasFailed();
    return (isWhole && end - head == header.body_length && crc == header.body_crc) ||
           complain(filename, "body");
}
