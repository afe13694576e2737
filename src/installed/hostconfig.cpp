#include "installed/hostconfig.h"

#include "common/File.h"
#include "image/zemp_validate.h"
#include "vex/kq.h"

namespace {

constexpr const char* ModuleName = "hostconfig.c";

// Line numbers of the assertions, known to those who read panics.
constexpr int LineNew = 30;
constexpr int LineLoad = 243;

void assertNotNull(const void* object, int line) {
    if (object == nullptr)
        kq_panic("*** ASSERT in %s at %d\n", ModuleName, line);
}

bool beginsWith(const char* text, const char* prefix) {
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

bool isRawDevice(const char* path) {
    return beginsWith(path, "/dev/mtd") || beginsWith(path, "/dev/mmcblk0p");
}

// Whether the lengths that the main header declares lie within the record.
bool fits(const zemp_header_t* header) {
    const unsigned room = HostconfigMaximumSize - ZempFormat::HeaderOffset;
    return header->hdr_length <= room && header->body_length <= room - header->hdr_length;
}

// Takes `size` bytes off what remains; false if there are fewer.
bool consume(uint32_t& remaining, uint32_t size) {
    if (remaining < size)
        return false;
    remaining -= size;
    return true;
}

// The part at the start of `remaining` bytes, and off they are taken; a validity code.
int takePart(zemp_content_header_t* part, uint32_t& remaining) {
    if (remaining < ZempFormat::ContentHeaderSize || !consume(remaining, part->hdr_length) ||
        !consume(remaining, part->body_length))
        return HostconfigBadLength;
    return zemp_validate_content_part(part, reinterpret_cast<uint8_t*>(part) + part->hdr_length);
}

// 0, or -1. A file is opened once, so that what is tested is what is read.
int loadRecord(hostconfig_t* hc, const char* path, File::Links links) {
    const bool isDevice = isRawDevice(path);
    File file;
    if (isDevice ? !file.openForReading(path) : !file.openRegularForReading(path, links))
        return -1;
    memset(hc->raw, 0, sizeof hc->raw);
    const size_t size = file.read(hc->raw, sizeof hc->raw);
    uint8_t more = 0;
    const bool isSizeGood =
        isDevice ? size == HostconfigMaximumSize : size >= HostconfigMinimumSize && file.read(&more, 1) == 0;
    if (!isSizeGood || file.hasFailed())
        return -1;
    return hostconfig_check_raw(hc) == ZempValid ? 0 : -1;
}

} // namespace

int hostconfig_new(hostconfig_t* hc, unsigned capacity) {
    assertNotNull(hc, LineNew);
    *hc = {};
    if (capacity > HostconfigMaximumSize)
        return 0;
    hc->capacity = capacity;
    hc->expected = -1;
    hc->body_offset = HostconfigMinimumSize;
    hc->header = reinterpret_cast<zemp_header_t*>(hc->raw + ZempFormat::HeaderOffset);
    return 1;
}

int hostconfig_load_raw(hostconfig_t* hc, const char* path) {
    return loadRecord(hc, path, File::Links::Follow);
}

int hostconfig_load(hostconfig_t* hc, const char* primary, const char* secondary) {
    assertNotNull(hc, LineLoad);
    hc->count = 0;
    int result = 1;
    if (hostconfig_load_raw(hc, primary) != 0) {
        if (secondary == nullptr || *secondary == '\0' || loadRecord(hc, secondary, File::Links::Refuse) != 0)
            return -1;
        result = 2;
    }
    return hostconfig_find_parts(hc, nullptr) == ZempValid ? result : -1;
}

int hostconfig_check_raw(hostconfig_t* hc) {
    hc->header = reinterpret_cast<zemp_header_t*>(hc->raw + ZempFormat::HeaderOffset);
    if (!fits(hc->header))
        return HostconfigBadLength;
    const int validity = zemp_validate_header(hc->header);
    if (validity != ZempValid)
        return validity;
    return zemp_validate_body(hc->header, hc->raw + ZempFormat::HeaderOffset + hc->header->hdr_length);
}

int hostconfig_find_parts(hostconfig_t* hc, unsigned* fault) {
    hc->count = 0;
    int found = 0;
    uint32_t remaining = hc->header->body_length;
    uint8_t* at = hc->raw + HostconfigMinimumSize;
    do {
        auto* part = reinterpret_cast<zemp_content_header_t*>(at);
        const int validity = takePart(part, remaining);
        if (validity != ZempValid) {
            hc->count = 0;
            if (fault != nullptr)
                *fault = static_cast<unsigned>(at - hc->raw);
            return validity;
        }
        ++found;
        if (hc->count < static_cast<int>(HostconfigMaximumParts)) // those beyond are checked, too
            hc->parts[hc->count++] = part;
        const uint32_t padding = ZempFormat::padding(part->body_length);
        at += part->hdr_length + part->body_length + padding;
        if (!consume(remaining, padding))
            remaining = 0; // the last padding may be missing
    } while (remaining > HostconfigUnparsedTail || (hc->expected >= 0 && found < hc->expected));
    return ZempValid;
}

const zemp_content_header_t* hostconfig_get_part(const hostconfig_t* hc, const char* name) {
    const size_t length = strlen(name);
    if (length > sizeof hc->parts[0]->name)
        return nullptr;
    for (int i = 0; i < hc->count; ++i)
        if (strncmp(hc->parts[i]->name, name, length) == 0)
            return hc->parts[i];
    return nullptr;
}

void* hostconfig_get_body(hostconfig_t* hc, const char* name) {
    const zemp_content_header_t* part = hostconfig_get_part(hc, name);
    if (part == nullptr)
        return nullptr;
    return hc->raw + (reinterpret_cast<const uint8_t*>(part) - hc->raw) + ZempFormat::BlobBodyOffset;
}
