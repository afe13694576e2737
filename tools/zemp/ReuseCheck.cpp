#include "zemp/ReuseCheck.h"

#include "imagefile/ImageSource.h"
#include "zemp/InputError.h"
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

namespace zemp {

using imagefile::ImagePart;
using imagefile::ImageReader;

namespace {

std::string nameOf(const ImagePart& part) {
    return part.name() + " " + imagefile::versionText(part.version);
}

bool isEqual(const ImageReader& a, const ImagePart& partA, const ImageReader& b, const ImagePart& partB) {
    const uint64_t size = uint64_t{partA.header.hdr_length} + partA.header.body_length;
    if (size != uint64_t{partB.header.hdr_length} + partB.header.body_length)
        return false;
    a.source().load(partA.offset, size);
    return memcmp(a.data() + partA.offset, b.data() + partB.offset, static_cast<size_t>(size)) == 0;
}

std::unique_ptr<ImageReader> openOlder(const std::string& file) {
    if (imagefile::isUrl(file))
        throw InputError(file + ": only a file can be compared; fetch it first");
    auto image = std::make_unique<ImageReader>(file);
    if (!image->isHeaderValid() || !image->isBodyValid())
        throw InputError(file + ": is damaged; 'zemp check' says more");
    return image;
}

} // namespace

Findings findReusedVersions(const ImageReader& image, const std::vector<std::string>& older) {
    std::multimap<std::string, const ImagePart*> parts;
    for (const ImagePart& part : image.parts())
        if (part.isType(ZempFormat::SwBlobType) && part.isComplete())
            parts.emplace(nameOf(part), &part);
    Findings findings;
    for (const std::string& file : older) {
        const std::unique_ptr<ImageReader> old = openOlder(file);
        const ImagePart* const release = old->release();
        const std::string where = release != nullptr ? imagefile::versionText(release->version) : file;
        for (const ImagePart& oldPart : old->parts()) {
            if (!oldPart.isType(ZempFormat::SwBlobType) || !oldPart.isComplete())
                continue;
            const auto [first, last] = parts.equal_range(nameOf(oldPart));
            for (auto part = first; part != last; ++part)
                if (!isEqual(image, *part->second, *old, oldPart))
                    findings.push_back({true,
                                        ReusedVersion,
                                        part->second->offset,
                                        {},
                                        part->first + " differs from the one in " + where,
                                        "terminals know a part by its name and version: one that has the old "
                                        "bytes takes them for the new ones",
                                        "give it a new version"});
        }
    }
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& a, const Finding& b) { return a.offset < b.offset; });
    return findings;
}

} // namespace zemp
