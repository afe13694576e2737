#include "bench/UpdateParts.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace {

constexpr const char* Names[] = {"kernel", "kernel4812", "root", "app", "3rdapp"};

std::string fileOf(const std::string& directory, const std::string& name) {
    return directory + "/" + name;
}

std::vector<std::unique_ptr<ZempPart>> parse(const std::string& file, FileFragment::FragmentType type) {
    ZempParser parser;
    const bool parsed = parser.parseFile(file, 0, type);
    std::vector<std::unique_ptr<ZempPart>> parts;
    for (uint32_t i = 0; i < parser.getNumberOfZempParts(); ++i)
        parts.emplace_back(parser.getZempPartAt(i));
    if (!parsed)
        throw std::runtime_error("cannot parse '" + file + "'");
    return parts;
}

void copyBytes(std::ifstream& from, uint64_t offset, size_t size, const std::string& to) {
    std::vector<char> bytes(size);
    from.seekg(static_cast<std::streamoff>(offset));
    from.read(bytes.data(), static_cast<std::streamsize>(size));
    std::ofstream file(to, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(size));
    if (!from || !file.flush())
        throw std::runtime_error("cannot write '" + to + "'");
}

} // namespace

void UpdateParts::cut(const std::string& image, const std::string& directory) {
    std::ifstream file(image, std::ios::binary);
    uint64_t offset = ZempPart::ZempFileIdentifierSize;
    for (const auto& part : parse(image, FileFragment::ZempFile)) {
        if (const auto* const header = dynamic_cast<ZempHeaderPart*>(part.get())) {
            offset += header->getZempHeader()->hdr_length;
            continue;
        }
        if (dynamic_cast<SwBlob*>(part.get()) != nullptr)
            copyBytes(file, offset, part->getSizeInZempFile(), fileOf(directory, part->getPartname()));
        offset += part->getSizeInZempFile();
    }
}

UpdateParts::UpdateParts(const std::string& image, const std::string& directory)
    : mParts(parse(image, FileFragment::ZempStart)) {
    for (const char* const name : Names) {
        const std::string file = fileOf(directory, name);
        if (!std::ifstream(file))
            continue;
        mParts.push_back(std::move(parse(file, FileFragment::ContentPart).at(0)));
        mParts.back()->setFilename(file);
    }
    for (const auto& part : mParts)
        if (part->getPartType() != ZempPart::ZempHeader)
            mMap[part->getContentIndex()] = part.get();
}
