#include "image/ZempReadBack.h"

#include "common/File.h"
#include "common/Thread.h"
#include "common/VexStreamLog.h"
#include "image/ZempParser.h"
#include "image/zemp_validate.h"
#include <algorithm>
#include <cstring>
#include <memory>

namespace {

constexpr size_t StepBytes = 262144; // stays in the processor's cache between its read and its CRC

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

// The bytes behind the main header, and nothing behind them.
bool isBodyRight(File& file, const zemp_header_t& header) {
    const std::unique_ptr<uint8_t[]> buffer(new uint8_t[StepBytes]);
    constexpr size_t head = ZempFormat::HeaderOffset + ZempFormat::HeaderSize;
    if (file.read(buffer.get(), head) != head ||
        memcmp(buffer.get(), ZempFormat::Magic, ZempFormat::MagicSize) != 0 ||
        memcmp(buffer.get() + ZempFormat::HeaderOffset, &header, ZempFormat::HeaderSize) != 0)
        return false;
    uint32_t crc = 0;
    uint64_t length = 0;
    for (size_t count = StepBytes; count == StepBytes; length += count) {
        CancellationPoint::test();
        count = file.read(buffer.get(), StepBytes);
        crc = crc32_calc(crc, buffer.get(), count);
    }
    return !file.hasFailed() && length == header.body_length && crc == header.body_crc;
}

} // namespace

bool readBackImage(const std::string& filename, const zemp_header_t& header,
                   const std::vector<zemp_content_header_t>& parts) {
    File file;
    if (!file.openForReading(filename) || !isBodyRight(file, header))
        return complain(filename, "main header or body");
    OwnParser parser;
    if (!parser.parseFile(filename, 0, FileFragment::ZempFile) ||
        parser.getNumberOfZempParts() != parts.size() + 1)
        return complain(filename, "parts");
    uint64_t length = 0;
    for (size_t i = 0; i < parts.size(); ++i) {
        const ZempPart* const part = parser.getZempPartAt(static_cast<uint32_t>(i) + 1);
        if (!part->isContentHeaderValid() || !part->isBodyValid() ||
            memcmp(part->getHeader(), &parts[i], sizeof parts[i]) != 0)
            return complain(filename, part->getPartname());
        length += part->getSizeInZempFile();
    }
    return length == header.body_length || complain(filename, "length");
}
