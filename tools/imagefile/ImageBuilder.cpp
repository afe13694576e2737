#include "imagefile/ImageBuilder.h"

#include "image/zemp_validate.h"
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace imagefile {

namespace {

constexpr size_t CopyBytes = 131072;

[[noreturn]] void fail(const std::string& text) {
    throw std::runtime_error(text);
}

// Copies a text into a fixed-width field of zero bytes.
void putText(uint8_t* field, size_t width, const std::string& text, const char* what) {
    if (text.size() > width)
        fail(std::string(what) + " '" + text + "' is longer than " + std::to_string(width) + " bytes");
    std::copy(text.begin(), text.end(), field);
}

void putVersion(uint8_t* at, Version version) {
    at[0] = version.major;
    at[1] = version.minor;
    ZempFormat::putLe16(at + 2, version.build);
}

uint32_t lengthField(uint64_t length, const std::string& what) {
    if (length > UINT32_MAX)
        fail(what + " is longer than 4 GiB");
    return static_cast<uint32_t>(length);
}

uint64_t bodySize(const Part& part) {
    if (part.file.empty())
        return part.body.size();
    std::error_code error;
    const uint64_t size = std::filesystem::file_size(part.file, error);
    if (error)
        fail("cannot read '" + part.file + "': " + error.message());
    return size;
}

// Sends the body to `sink`; exactly `size` bytes.
template <typename Sink>
void emitBody(const Part& part, uint64_t size, const Sink& sink) {
    if (part.file.empty()) {
        sink(part.body.data(), part.body.size());
        return;
    }
    std::ifstream file(part.file, std::ios::binary);
    Bytes buffer(static_cast<size_t>(std::min<uint64_t>(size, CopyBytes)));
    while (size > 0) {
        const auto count = static_cast<size_t>(std::min<uint64_t>(size, buffer.size()));
        if (!file.read(reinterpret_cast<char*>(buffer.data()), static_cast<std::streamsize>(count)))
            fail("cannot read '" + part.file + "' to its end");
        sink(buffer.data(), count);
        size -= count;
    }
}

uint32_t headerCrc(const Bytes& header, uint16_t declaredLength) {
    const size_t covered = std::min<size_t>(header.size(), declaredLength);
    if (covered <= ZempFormat::CrcFieldSize)
        return 0;
    return crc32_calc(0, header.data() + ZempFormat::CrcFieldSize, covered - ZempFormat::CrcFieldSize);
}

uint64_t paddingOf(const Part& part, uint64_t size) {
    return part.padded ? (ZempFormat::Alignment - size % ZempFormat::Alignment) % ZempFormat::Alignment : 0;
}

void ignore(const uint8_t*, size_t) {}

Bytes makeContentHeader(const Part& part, uint32_t bodyLength, uint32_t bodyCrc) {
    Bytes header(ZempFormat::ContentHeaderSize);
    header.insert(header.end(), part.extension.begin(), part.extension.end());
    const uint16_t length = part.headerLength.value_or(static_cast<uint16_t>(header.size()));
    ZempFormat::putLe16(&header[offsetof(zemp_content_header_t, type)], part.type);
    ZempFormat::putLe16(&header[offsetof(zemp_content_header_t, hdr_length)], length);
    ZempFormat::putLe32(&header[offsetof(zemp_content_header_t, body_length)],
                        part.bodyLength.value_or(bodyLength));
    putText(&header[offsetof(zemp_content_header_t, name)], sizeof zemp_content_header_t::name, part.name,
            "part name");
    ZempFormat::putLe32(&header[offsetof(zemp_content_header_t, body_crc)], part.bodyCrc.value_or(bodyCrc));
    ZempFormat::putLe32(&header[offsetof(zemp_content_header_t, hdr_crc)],
                        part.headerCrc.value_or(headerCrc(header, length)));
    return header;
}

} // namespace

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

std::string ManifestElement::toString() const {
    char versionText[32];
    if (hexadecimal)
        snprintf(versionText, sizeof versionText, "%02X%02X%04X", unsigned{version.major},
                 unsigned{version.minor}, unsigned{version.build});
    else
        snprintf(versionText, sizeof versionText, "%u.%u.%u", unsigned{version.major},
                 unsigned{version.minor}, unsigned{version.build});
    return std::to_string(contentIndex) + "," + poolname + "," + std::to_string(partsize) + "," + mountpoint +
           "," + filesystem + "," + platform + "," + versionText + "," + std::to_string(metaValid) + "\n";
}

Bytes softwareExtension(Version version, const std::string& buildId) {
    Bytes extension(ZempFormat::SwBlobHeaderSize);
    putVersion(extension.data(), version);
    putText(&extension[offsetof(zemp_content_software_blob_t, build_id)],
            sizeof zemp_content_software_blob_t::build_id, buildId, "build id");
    return extension;
}

Bytes releaseExtension(Version version, uint32_t time, const std::string& name) {
    Bytes extension(ZempFormat::ReleaseHeaderSize);
    putVersion(extension.data(), version);
    ZempFormat::putLe32(&extension[offsetof(zemp_content_release_header_t, time)], time);
    putText(&extension[offsetof(zemp_content_release_header_t, name)],
            sizeof zemp_content_release_header_t::name, name, "release name");
    return extension;
}

Part& ImageBuilder::add(Part part) {
    mParts.push_back(std::move(part));
    return mParts.back();
}

Part& ImageBuilder::release(Version version, uint32_t time, const std::string& name, std::string text,
                            bool pad) {
    while (pad && (text.size() + 1) % ZempFormat::Alignment != 0)
        text += '\n';
    text += '\0';
    Part part;
    part.type = ZempFormat::ReleaseHeaderType;
    part.name = "release";
    part.extension = releaseExtension(version, time, name);
    part.body = bytesOf(text);
    return add(std::move(part));
}

Part& ImageBuilder::manifest(const std::string& text) {
    return blob(ZempFormat::ManifestName, bytesOf(text));
}

Part& ImageBuilder::manifest(const std::vector<ManifestElement>& elements) {
    std::string text;
    for (const ManifestElement& element : elements)
        text += element.toString();
    return manifest(text);
}

Part& ImageBuilder::software(const std::string& name, Version version, const std::string& buildId,
                             Bytes body) {
    Part part;
    part.type = ZempFormat::SwBlobType;
    part.name = name;
    part.extension = softwareExtension(version, buildId);
    part.body = std::move(body);
    return add(std::move(part));
}

Part& ImageBuilder::softwareFromFile(const std::string& name, Version version, const std::string& buildId,
                                     const std::string& file) {
    Part& part = software(name, version, buildId, {});
    part.file = file;
    return part;
}

Part& ImageBuilder::blob(const std::string& name, Bytes body, uint16_t type) {
    Part part;
    part.type = type;
    part.name = name;
    part.body = std::move(body);
    return add(std::move(part));
}

uint64_t ImageBuilder::sizeOf(size_t index) const {
    const Part& part = mParts.at(index);
    const uint64_t size = bodySize(part);
    return ZempFormat::ContentHeaderSize + part.extension.size() + size + paddingOf(part, size);
}

uint64_t ImageBuilder::offsetOf(size_t index) const {
    uint64_t offset = ZempFormat::HeaderOffset + ZempFormat::HeaderSize + header.extension.size();
    for (size_t i = 0; i < index; ++i)
        offset += sizeOf(i);
    return offset;
}

Bytes ImageBuilder::makeHeader(uint64_t bodyLength, uint32_t bodyCrc) const {
    Bytes bytes(ZempFormat::HeaderSize);
    bytes.insert(bytes.end(), header.extension.begin(), header.extension.end());
    const uint16_t length = header.headerLength.value_or(static_cast<uint16_t>(bytes.size()));
    bytes[offsetof(zemp_header_t, version)] = header.version;
    bytes[offsetof(zemp_header_t, reserved)] = header.reserved;
    ZempFormat::putLe16(&bytes[offsetof(zemp_header_t, hdr_length)], length);
    ZempFormat::putLe32(&bytes[offsetof(zemp_header_t, body_length)],
                        header.bodyLength.value_or(lengthField(bodyLength, "the image")));
    ZempFormat::putLe32(&bytes[offsetof(zemp_header_t, body_crc)], header.bodyCrc.value_or(bodyCrc));
    ZempFormat::putLe32(&bytes[offsetof(zemp_header_t, hdr_crc)],
                        header.headerCrc.value_or(headerCrc(bytes, length)));
    bytes.insert(bytes.begin(), ZempFormat::Magic, ZempFormat::Magic + ZempFormat::MagicSize);
    return bytes;
}

void ImageBuilder::emitPart(const Part& part, const Sink& sink, const Sink& check) const {
    const uint64_t size = bodySize(part);
    const uint32_t length = lengthField(size, "the body of '" + part.name + "'");
    uint32_t crc = 0;
    emitBody(part, size, [&](const uint8_t* data, size_t count) {
        crc = crc32_calc(crc, data, count);
        check(data, count);
    });
    const Bytes contentHeader = makeContentHeader(part, length, crc);
    sink(contentHeader.data(), contentHeader.size());
    emitBody(part, size, sink);
    const Bytes padding(static_cast<size_t>(paddingOf(part, size)));
    sink(padding.data(), padding.size());
}

Bytes ImageBuilder::emitParts(const Sink& sink, const Sink& check) const {
    uint64_t length = 0;
    uint32_t crc = 0;
    const Sink counted = [&](const uint8_t* data, size_t count) {
        length += count;
        crc = crc32_calc(crc, data, count);
        sink(data, count);
    };
    for (const Part& part : mParts)
        emitPart(part, counted, check);
    return makeHeader(length, crc);
}

Bytes ImageBuilder::build() const {
    Bytes body;
    Bytes image = emitParts(
        [&body](const uint8_t* data, size_t count) { body.insert(body.end(), data, data + count); }, ignore);
    image.insert(image.end(), body.begin(), body.end());
    return image;
}

Bytes ImageBuilder::buildPart(size_t index) const {
    Bytes bytes;
    emitPart(
        mParts.at(index),
        [&bytes](const uint8_t* data, size_t count) { bytes.insert(bytes.end(), data, data + count); },
        ignore);
    return bytes;
}

void ImageBuilder::write(const std::string& filename, const Progress& progress) const {
    std::ofstream file(filename, std::ios::binary | std::ios::trunc);
    file.seekp(static_cast<std::streamoff>(offsetOf(0)));
    const uint64_t total = 2 * size();
    uint64_t done = 0;
    const Sink advance = [&](const uint8_t*, size_t count) {
        done += count;
        if (progress)
            progress(std::min(done, total), total);
    };
    const auto failToWrite = [&] { fail("cannot write '" + filename + "': " + strerror(errno)); };
    const Bytes start = emitParts(
        [&](const uint8_t* data, size_t count) {
            if (!file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(count)))
                failToWrite();
            advance(data, count);
        },
        advance);
    file.seekp(0);
    file.write(reinterpret_cast<const char*>(start.data()), static_cast<std::streamsize>(start.size()));
    file.close();
    if (!file)
        failToWrite();
}

} // namespace imagefile
