#include "imagefile/ImageReader.h"

#include "image/zemp_validate.h"
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace imagefile {

namespace {

[[noreturn]] void fail(const std::string& filename, const std::string& reason) {
    throw std::runtime_error("'" + filename + "': " + reason);
}

const zemp_content_header_t* contentHeaderAt(const uint8_t* data) {
    return reinterpret_cast<const zemp_content_header_t*>(data);
}

// The whole file, read-only, and its size. Null for an empty one.
const uint8_t* mapFile(const std::string& filename, uint64_t& size) {
    const int fd = open(filename.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        fail(filename, strerror(errno));
    struct stat status {};
    const bool isFile = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    const bool hasAddresses = static_cast<uint64_t>(status.st_size) <= PTRDIFF_MAX;
    void* mapping = nullptr;
    if (isFile && hasAddresses && status.st_size > 0)
        mapping = mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
    const int reason = errno;
    close(fd);
    if (!isFile)
        fail(filename, "not a regular file");
    if (!hasAddresses)
        fail(filename, "too large for this machine");
    if (mapping == MAP_FAILED)
        fail(filename, strerror(reason));
    size = static_cast<uint64_t>(status.st_size);
    return static_cast<const uint8_t*>(mapping);
}

} // namespace

bool ImagePart::isManifest() const {
    return isType(ZempFormat::BlobType) && ZempFormat::equals(header.name, ZempFormat::ManifestName);
}

uint64_t ImagePart::size() const {
    return uint64_t{header.hdr_length} + header.body_length + ZempFormat::padding(header.body_length);
}

std::string versionText(Version version, char separator) {
    char text[32];
    snprintf(text, sizeof text, "%u.%02u%c%u", unsigned{version.major}, unsigned{version.minor}, separator,
             unsigned{version.build});
    return text;
}

ImageReader::ImageReader(const std::string& filename) : mFilename(filename) {
    mData = mapFile(filename, mSize);
    if (mSize < ZempFormat::MagicSize + ZempFormat::HeaderSize ||
        memcmp(mData, ZempFormat::Magic, ZempFormat::MagicSize) != 0) {
        if (mData != nullptr)
            munmap(const_cast<uint8_t*>(mData), static_cast<size_t>(mSize));
        fail(filename, "not an image: it does not begin with \"" + std::string(ZempFormat::Magic) +
                           "\" and a main header");
    }
    memcpy(&mHeader, mData + ZempFormat::HeaderOffset, sizeof mHeader);
    const auto* const header = reinterpret_cast<const zemp_header_t*>(mData + ZempFormat::HeaderOffset);
    mIsHeaderValid = bodyOffset() <= mSize && zemp_validate_header(header) == ZempValid;
    mIsBodyValid = mIsHeaderValid && declaredSize() <= mSize &&
                   zemp_validate_body(header, mData + bodyOffset()) == ZempValid;
    if (mIsHeaderValid)
        readParts();
}

ImageReader::~ImageReader() {
    munmap(const_cast<uint8_t*>(mData), static_cast<size_t>(mSize));
}

void ImageReader::readParts() {
    uint64_t offset = bodyOffset();
    ImagePart part;
    while (offset < mSize && readPart(offset, part)) {
        offset += part.size();
        mParts.push_back(part);
    }
}

bool ImageReader::readPart(uint64_t offset, ImagePart& part) const {
    part = {};
    const uint64_t left = mSize - offset;
    if (left < ZempFormat::ContentHeaderSize)
        return false;
    part.offset = offset;
    const uint8_t* const start = mData + offset;
    memcpy(&part.header, start, sizeof part.header);
    part.isHeaderValid =
        part.header.hdr_length <= left && zemp_validate_content_header(contentHeaderAt(start)) == ZempValid;
    if (!part.isHeaderValid)
        return false;
    const uint64_t bodyLeft = left - part.header.hdr_length;
    part.isComplete = part.header.body_length <= bodyLeft;
    part.isBodyValid =
        part.isComplete &&
        zemp_validate_content_body(contentHeaderAt(start), start + part.header.hdr_length) == ZempValid;

    const uint8_t* const extension = start + ZempFormat::ContentHeaderSize;
    const uint32_t extensionSize = part.header.hdr_length - ZempFormat::ContentHeaderSize;
    if (part.isType(ZempFormat::ReleaseHeaderType) && extensionSize >= ZempFormat::ReleaseHeaderSize) {
        zemp_content_release_header_t release;
        memcpy(&release, extension, sizeof release);
        part.version = {release.major, release.minor, release.build};
        part.label = ZempFormat::text(release.name);
    } else if (part.isType(ZempFormat::SwBlobType) && extensionSize >= ZempFormat::SwBlobHeaderSize) {
        zemp_content_software_blob_t software;
        memcpy(&software, extension, sizeof software);
        part.version = {software.major, software.minor, software.build};
        part.label = ZempFormat::text(software.build_id);
    }
    return true;
}

uint64_t ImageReader::partsEnd() const {
    return mParts.empty() ? std::min(bodyOffset(), mSize)
                          : std::min(mParts.back().offset + mParts.back().size(), mSize);
}

const ImagePart* ImageReader::release() const {
    const auto found = std::find_if(mParts.begin(), mParts.end(), [](const ImagePart& part) {
        return part.isType(ZempFormat::ReleaseHeaderType);
    });
    return found == mParts.end() ? nullptr : &*found;
}

const ImagePart* ImageReader::manifest() const {
    const auto found =
        std::find_if(mParts.begin(), mParts.end(), [](const ImagePart& part) { return part.isManifest(); });
    return found == mParts.end() ? nullptr : &*found;
}

const ImagePart* ImageReader::software(const std::string& name) const {
    const auto found = std::find_if(mParts.begin(), mParts.end(), [&](const ImagePart& part) {
        return part.isType(ZempFormat::SwBlobType) && part.name() == name;
    });
    return found == mParts.end() ? nullptr : &*found;
}

} // namespace imagefile
