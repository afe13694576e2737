#include "zemp/ImageListing.h"

#include "image/ZempParser.h"
#include "imagefile/NumberText.h"
#include "zemp/Table.h"
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

namespace zemp {

using imagefile::ImagePart;
using imagefile::ImageReader;
using imagefile::Verdict;

namespace {

std::string typeOf(const ImagePart& part) {
    const std::unique_ptr<ZempPart> known(ZempPart::createZempPart(&part.header));
    if (part.isManifest())
        return ZempPart::getString(ZempPart::SuumBlob);
    if (!known || part.isType(ZempFormat::BlobType))
        return "content type " + std::to_string(part.header.type);
    return ZempPart::getString(known->getPartType());
}

ListedPart describe(const ImageReader& image, const ImagePart& part) {
    ListedPart row;
    row.offset = part.offset;
    row.size = part.size();
    row.type = typeOf(part);
    row.name = part.name();
    row.buildId = part.label;
    if (part.isVersionKnown)
        row.version = imagefile::versionText(part.version);
    else if (part.isManifest() && image.release() != nullptr)
        row.version = imagefile::versionText(image.release()->version);
    row.body = part.body;
    row.bodyOffset = part.bodyOffset();
    row.bodySize = part.header.body_length;
    row.bodyCrc = part.header.body_crc;
    return row;
}

ListedPart describeMain(const ImageReader& image) {
    ListedPart row;
    row.offset = ZempFormat::HeaderOffset;
    row.size = image.header().hdr_length;
    row.type = ZempPart::getString(ZempPart::ZempHeader);
    if (image.release() != nullptr) // it takes the version of the release
        row.version = imagefile::versionText(image.release()->version);
    row.body = image.body();
    row.bodyOffset = image.bodyOffset();
    row.bodySize = image.header().body_length;
    row.bodyCrc = image.header().body_crc;
    return row;
}

std::vector<ListedElement> describeManifest(const ImageReader& image, const ImagePart& manifest) {
    const uint64_t size = std::min(manifest.size(), image.size() - manifest.offset);
    const std::unique_ptr<ZempPart> part(
        ZempParser().parseContentPart(image.data() + manifest.offset, static_cast<uint32_t>(size)));
    const auto* const suum = dynamic_cast<SuumBlob*>(part.get());
    std::vector<ListedElement> elements;
    for (uint32_t i = 0; suum != nullptr && i < suum->getNumberOfElements(); ++i) {
        const SuumBlob::Element& element = *suum->getElementAt(i);
        elements.push_back(
            {element.getContentIndex(), element.getPoolname(), element.getPlatform(),
             imagefile::versionText({element.getMajor(), element.getMinor(), element.getBuild()}),
             element.getMountPoint()});
    }
    return elements;
}

// Whether the file ends within the header of the next part.
bool isHeaderCut(const ImageReader& image) {
    const uint64_t at = image.partsEnd();
    const uint64_t rest = image.size() - at;
    return rest < ZempFormat::ContentHeaderSize ||
           reinterpret_cast<const zemp_content_header_t*>(image.data() + at)->hdr_length > rest;
}

// What is damaged first in the parts; empty if nothing is.
std::string damageOf(const ImageReader& image) {
    for (const ImagePart& part : image.parts())
        if (part.body == Verdict::Bad)
            return "has a damaged body in part '" + part.name() + "' at offset " +
                   std::to_string(part.offset);
    return "";
}

void findProblem(const ImageReader& image, ImageListing& listing) {
    const auto bytesBehind = [&](uint64_t end, const char* what) {
        return "has " + imagefile::groupDigits(image.size() - end) + " bytes behind the " + what;
    };
    listing.problem = damageOf(image);
    if (!image.isImage()) {
        const ImagePart& part = image.parts().front();
        listing.isIncomplete = part.body == Verdict::Incomplete;
        if (listing.isIncomplete)
            listing.problem =
                "ends within part '" + part.name() + "' at offset " + std::to_string(part.offset);
        else if (listing.problem.empty() && part.size() < image.size())
            listing.problem = bytesBehind(part.size(), "content part");
        return;
    }
    if (!image.isHeaderValid()) {
        listing.problem = "has no valid main header at offset " + std::to_string(ZempFormat::HeaderOffset);
        return;
    }
    const uint64_t end = image.declaredSize();
    const bool isCut = image.size() < end;
    const bool isGap = image.partsEnd() < std::min(end, image.size()) && !(isCut && isHeaderCut(image));
    if (!listing.problem.empty())
        return;
    if (isGap) {
        listing.problem = "has no valid content part at offset " + std::to_string(image.partsEnd());
    } else if (isCut) {
        listing.problem = "is incomplete: " + imagefile::groupDigits(image.size()) + " of " +
                          imagefile::groupDigits(end) + " bytes";
        listing.isIncomplete = true;
    } else if (image.body() == Verdict::Bad) {
        listing.problem = "fails the check of the main body CRC";
    } else if (image.size() > end) {
        listing.problem = bytesBehind(end, "image");
    }
}

} // namespace

const char* getText(Verdict verdict) {
    switch (verdict) {
    case Verdict::Good:
        return "ok";
    case Verdict::Bad:
        return "BAD";
    case Verdict::Incomplete:
        return "incomplete";
    case Verdict::NotRead:
        return "not read";
    }
    return "";
}

ImageListing listImage(const ImageReader& image) {
    ImageListing listing;
    if (image.isHeaderValid())
        listing.parts.push_back(describeMain(image));
    for (const ImagePart& part : image.parts())
        listing.parts.push_back(describe(image, part));
    if (image.manifest() != nullptr)
        listing.manifest = describeManifest(image, *image.manifest());
    findProblem(image, listing);
    return listing;
}

void printListing(const ImageListing& listing, std::ostream& out) {
    if (!listing.parts.empty()) {
        std::vector<Row> rows = {{"OFFSET", "SIZE", "TYPE", "NAME", "VERSION", "BUILD ID", "HEADER", "BODY"}};
        for (const ListedPart& part : listing.parts)
            rows.push_back({std::to_string(part.offset), std::to_string(part.size), part.type,
                            printable(part.name), printable(part.version), printable(part.buildId),
                            getText(Verdict::Good), getText(part.body)});
        printTable(rows, 2, out);
    }
    if (!listing.manifest.empty()) {
        std::vector<Row> rows = {{"INDEX", "POOL", "VERSION", "PLATFORM", "MOUNT POINT"}};
        for (const ListedElement& element : listing.manifest)
            rows.push_back({std::to_string(element.index), printable(element.pool), element.version,
                            printable(element.platform), printable(element.mountPoint)});
        out << '\n';
        printTable(rows, 1, out);
    }
}

nlohmann::json toJson(const ImageListing& listing) {
    nlohmann::json parts = nlohmann::json::array();
    for (const ListedPart& part : listing.parts)
        parts.push_back({{"offset", part.offset},
                         {"size", part.size},
                         {"type", part.type},
                         {"name", part.name},
                         {"version", part.version},
                         {"buildId", part.buildId},
                         {"header", getText(Verdict::Good)},
                         {"body", getText(part.body)},
                         {"bodyOffset", part.bodyOffset},
                         {"bodySize", part.bodySize},
                         {"bodyCrc", part.bodyCrc}});
    nlohmann::json manifest = nlohmann::json::array();
    for (const ListedElement& element : listing.manifest)
        manifest.push_back({{"index", element.index},
                            {"pool", element.pool},
                            {"version", element.version},
                            {"platform", element.platform},
                            {"mountPoint", element.mountPoint}});
    return {{"parts", parts},
            {"manifest", manifest},
            {"problem", listing.problem},
            {"incomplete", listing.isIncomplete}};
}

} // namespace zemp
