#include "fuzz/Container.h"

#include "image/ZempFormat.h"
#include "image/zemp_validate.h"
#include "installed/hostconfig.h"
#include <algorithm>

namespace fuzz {

namespace {

constexpr size_t MainHeaderEnd = ZempFormat::HeaderOffset + ZempFormat::HeaderSize;

zemp_header_t* mainHeader(Bytes& bytes) {
    return reinterpret_cast<zemp_header_t*>(bytes.data() + ZempFormat::HeaderOffset);
}

zemp_content_header_t* contentHeader(Bytes& bytes, size_t at) {
    return reinterpret_cast<zemp_content_header_t*>(bytes.data() + at);
}

// Header with the extension that belongs to the type.
uint16_t naturalHeaderLength(uint16_t type) {
    switch (type) {
    case ZempFormat::ReleaseHeaderType:
        return ZempFormat::ReleaseBodyOffset;
    case ZempFormat::SwBlobType:
        return ZempFormat::SwBlobBodyOffset;
    default:
        return ZempFormat::BlobBodyOffset;
    }
}

uint32_t crcOf(const Bytes& bytes, size_t begin, size_t length) {
    return crc32_calc(0, bytes.data() + begin, length);
}

// From behind a header's own CRC field.
uint32_t headerCrc(const Bytes& bytes, size_t begin, uint16_t length) {
    return crcOf(bytes, begin + ZempFormat::CrcFieldSize, length - ZempFormat::CrcFieldSize);
}

size_t firstPart(const Bytes& bytes, Layout layout) {
    if (layout == Layout::ContentPart)
        return 0;
    if (layout == Layout::Record || bytes.size() < MainHeaderEnd)
        return MainHeaderEnd;
    return ZempFormat::HeaderOffset +
           ZempFormat::getLe16(&bytes[ZempFormat::HeaderOffset + offsetof(zemp_header_t, hdr_length)]);
}

Extent extentAt(const Bytes& bytes, size_t begin, Layout layout) {
    const auto* const header = reinterpret_cast<const zemp_content_header_t*>(bytes.data() + begin);
    Extent extent{};
    extent.begin = begin;
    extent.body = begin + (layout == Layout::Record ? header->hdr_length : naturalHeaderLength(header->type));
    extent.bodyLength = header->body_length;
    const uint64_t size =
        uint64_t{header->hdr_length} + extent.bodyLength + ZempFormat::padding(extent.bodyLength);
    extent.next = begin + static_cast<size_t>(std::min<uint64_t>(size, bytes.size() - begin));
    return extent;
}

bool hasRoomForHeader(const Bytes& bytes, size_t begin) {
    return begin <= bytes.size() && bytes.size() - begin >= ZempFormat::ContentHeaderSize;
}

// Lengths that lie within the input.
void mendLengths(Bytes& bytes, size_t begin, Layout layout, bool cut) {
    zemp_content_header_t* const header = contentHeader(bytes, begin);
    const size_t rest = bytes.size() - begin;
    if (header->hdr_length < ZempFormat::ContentHeaderSize || header->hdr_length > rest)
        header->hdr_length = static_cast<uint16_t>(std::min<size_t>(rest, naturalHeaderLength(header->type)));
    const size_t offset = extentAt(bytes, begin, layout).body - begin;
    if (!cut && offset <= rest && header->body_length > rest - offset)
        header->body_length = static_cast<uint32_t>(rest - offset);
}

void mendMainHeader(Bytes& bytes, Layout layout) {
    std::copy_n(ZempFormat::Magic, ZempFormat::MagicSize, bytes.begin());
    zemp_header_t* const header = mainHeader(bytes);
    const size_t rest = bytes.size() - ZempFormat::HeaderOffset;
    header->version = ZempFormat::Version;
    if (header->hdr_length < ZempFormat::HeaderSize || header->hdr_length > rest)
        header->hdr_length = ZempFormat::HeaderSize;
    // The parts of a record begin behind the ordinary header, and are counted from there.
    if (layout == Layout::Image || header->body_length > rest - header->hdr_length)
        header->body_length = static_cast<uint32_t>(rest - header->hdr_length);
}

void mendMainCrcs(Bytes& bytes) {
    zemp_header_t* const header = mainHeader(bytes);
    header->body_crc = crcOf(bytes, ZempFormat::HeaderOffset + header->hdr_length, header->body_length);
    header->hdr_crc = headerCrc(bytes, ZempFormat::HeaderOffset, header->hdr_length);
}

void mendPartCrcs(Bytes& bytes, const Extent& extent) {
    zemp_content_header_t* const header = contentHeader(bytes, extent.begin);
    if (extent.body <= bytes.size() && extent.bodyLength <= bytes.size() - extent.body)
        header->body_crc = crcOf(bytes, extent.body, extent.bodyLength);
    header->hdr_crc = headerCrc(bytes, extent.begin, header->hdr_length);
}

} // namespace

std::vector<Extent> findParts(const Bytes& bytes, Layout layout) {
    std::vector<Extent> parts;
    size_t at = firstPart(bytes, layout);
    while (hasRoomForHeader(bytes, at)) {
        const Extent extent = extentAt(bytes, at, layout);
        parts.push_back(extent);
        if (extent.next - at < ZempFormat::ContentHeaderSize)
            break;
        at = extent.next;
    }
    return parts;
}

void mend(Bytes& bytes, Layout layout, bool cutLast) {
    const size_t size = bytes.size();
    if (size < ZempFormat::ContentHeaderSize)
        return;
    if (layout == Layout::Record)
        bytes.resize(std::max<size_t>(size, HostconfigMaximumSize));
    if (layout != Layout::ContentPart)
        mendMainHeader(bytes, layout);
    std::vector<Extent> parts;
    for (size_t at = firstPart(bytes, layout); hasRoomForHeader(bytes, at) && at < size;) {
        mendLengths(bytes, at, layout, cutLast);
        parts.push_back(extentAt(bytes, at, layout));
        at = parts.back().next;
    }
    // Backwards: a part with a short header has the next one in its body.
    for (auto part = parts.rbegin(); part != parts.rend(); ++part)
        mendPartCrcs(bytes, *part);
    if (layout != Layout::ContentPart)
        mendMainCrcs(bytes);
    bytes.resize(size);
}

} // namespace fuzz
