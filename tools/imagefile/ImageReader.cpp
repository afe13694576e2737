#include "imagefile/ImageReader.h"

#include "image/zemp_validate.h"
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace imagefile {

namespace {

// What is fetched of a part on a web server, and the longest text there that is fetched to be checked.
constexpr uint64_t HeadBytes = 512;
constexpr uint64_t MaximumTextBytes = uint64_t{1024} * 1024;

const zemp_content_header_t* contentHeaderAt(const uint8_t* data) {
    return reinterpret_cast<const zemp_content_header_t*>(data);
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

ImageReader::ImageReader(std::unique_ptr<ImageSource> source, Accept accept) : mSource(std::move(source)) {
    const auto fail = [this](const std::string& reason) {
        throw std::runtime_error(mSource->name() + ": " + reason);
    };
    if (size() == 0)
        fail("is empty");
    mSource->load(0, HeadBytes);
    mIsImage = size() >= ZempFormat::MagicSize + ZempFormat::HeaderSize &&
               memcmp(data(), ZempFormat::Magic, ZempFormat::MagicSize) == 0;
    if (mIsImage)
        readImage();
    else if (accept == Accept::Image)
        fail("not an image: it does not begin with \"" + std::string(ZempFormat::Magic) +
             "\" and a main header");
    else if (!readPart(0))
        fail("is neither an image nor a content part");
}

void ImageReader::readImage() {
    memcpy(&mHeader, data() + ZempFormat::HeaderOffset, sizeof mHeader);
    mSource->load(ZempFormat::HeaderOffset, mHeader.hdr_length);
    const auto* const header = reinterpret_cast<const zemp_header_t*>(data() + ZempFormat::HeaderOffset);
    mIsHeaderValid = bodyOffset() <= size() && zemp_validate_header(header) == ZempValid;
    if (!mIsHeaderValid)
        return;
    mBody = judge(bodyOffset(), mHeader.body_length, mHeader.body_crc, HeadBytes);
    for (uint64_t offset = bodyOffset(); offset < size() && readPart(offset);)
        offset += mParts.back().size();
}

// False when there is no part with a valid header.
bool ImageReader::readPart(uint64_t offset) {
    const uint64_t left = size() - offset;
    if (left < ZempFormat::ContentHeaderSize)
        return false;
    mSource->load(offset, ZempFormat::ContentHeaderSize);
    ImagePart part;
    part.offset = offset;
    const uint8_t* const start = data() + offset;
    memcpy(&part.header, start, sizeof part.header);
    if (part.header.hdr_length > left)
        return false;
    mSource->load(offset, part.header.hdr_length);
    if (zemp_validate_content_header(contentHeaderAt(start)) != ZempValid)
        return false;
    const bool isText = !part.isType(ZempFormat::SwBlobType) && part.size() <= MaximumTextBytes;
    const uint64_t wanted = isText ? part.size() : std::max<uint64_t>(HeadBytes, part.header.hdr_length);
    mSource->load(offset, std::min(wanted, left));
    part.body = judge(part.bodyOffset(), part.header.body_length, part.header.body_crc, offset + wanted);

    const uint8_t* const extension = start + ZempFormat::ContentHeaderSize;
    const uint32_t extensionSize = part.header.hdr_length - ZempFormat::ContentHeaderSize;
    if (part.isType(ZempFormat::ReleaseHeaderType) && extensionSize >= ZempFormat::ReleaseHeaderSize) {
        zemp_content_release_header_t release;
        memcpy(&release, extension, sizeof release);
        part.version = {release.major, release.minor, release.build};
        part.label = ZempFormat::text(release.name);
        part.isVersionKnown = true;
    } else if (part.isType(ZempFormat::SwBlobType) && extensionSize >= ZempFormat::SwBlobHeaderSize) {
        zemp_content_software_blob_t software;
        memcpy(&software, extension, sizeof software);
        part.version = {software.major, software.minor, software.build};
        part.label = ZempFormat::text(software.build_id);
        part.isVersionKnown = true;
    }
    mParts.push_back(part);
    return true;
}

// `loadedEnd` is where the bytes that were fetched from a web server end.
Verdict ImageReader::judge(uint64_t offset, uint32_t length, uint32_t crc, uint64_t loadedEnd) const {
    if (offset > size() || length > size() - offset)
        return Verdict::Incomplete;
    if (!mSource->isLocal() && offset + length > loadedEnd)
        return Verdict::NotRead;
    return crc32_calc(0, data() + offset, length) == crc ? Verdict::Good : Verdict::Bad;
}

uint64_t ImageReader::partsEnd() const {
    return mParts.empty() ? std::min(bodyOffset(), size())
                          : std::min(mParts.back().offset + mParts.back().size(), size());
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
