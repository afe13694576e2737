#include "zemp/ImageListing.h"

#include "image/ZempParser.h"
#include "image/zemp_validate.h"
#include "zemp/Table.h"
#include <algorithm>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>

namespace zemp {

namespace {

// What is fetched of a part on a web server, and the longest text there that is fetched to be checked.
constexpr uint64_t HeadBytes = 512;
constexpr uint64_t MaximumTextBytes = uint64_t{1024} * 1024;

uint32_t clamp32(uint64_t size) {
    return static_cast<uint32_t>(std::min<uint64_t>(size, std::numeric_limits<uint32_t>::max()));
}

// Walks one file, from part to part.
class Lister {
  public:
    explicit Lister(imagefile::ImageSource& image)
        : mImage(image), mData(image.data()), mSize(image.size()) {}

    ImageListing run() {
        mImage.load(0, HeadBytes);
        if (mSize == 0)
            mListing.problem = "is empty";
        else if (mParser.parseZempFileStart(mData, clamp32(mSize)) == 0)
            listSinglePart();
        else
            listImageFile();
        return std::move(mListing);
    }

  private:
    void report(const std::string& problem, bool isIncomplete = false) {
        if (!mListing.problem.empty())
            return;
        mListing.problem = problem;
        mListing.isIncomplete = isIncomplete;
    }

    void listSinglePart() {
        if (mParser.parseContentHeader(mData, clamp32(mSize)) == nullptr) {
            report("is neither an image nor a content part");
            return;
        }
        const uint64_t end = listPart(0, mSize);
        if (end < mSize)
            report("has " + std::to_string(mSize - end) + " bytes behind the content part");
    }

    void listImageFile() {
        const uint64_t start = ZempFormat::HeaderOffset;
        const std::unique_ptr<ZempHeaderPart> part(
            mParser.parseZempHeader(mData + start, clamp32(mSize - start)));
        if (!part) {
            report("has no valid main header at offset " + std::to_string(start));
            return;
        }
        const zemp_header_t& header = *part->getZempHeader();
        const uint64_t body = start + header.hdr_length;
        const uint64_t end = body + header.body_length;
        ListedPart row;
        row.offset = start;
        row.size = header.hdr_length;
        row.type = ZempPart::getString(part->getPartType());
        judgeBody(row, body, header.body_length, header.body_crc);
        mListing.parts.push_back(row);

        mIsCut = mSize < end;
        listParts(body, std::min(end, mSize));
        if (mIsCut && (mListing.problem.empty() || mListing.isIncomplete)) {
            mListing.problem =
                "is incomplete: " + std::to_string(mSize) + " of " + std::to_string(end) + " bytes";
            mListing.isIncomplete = true;
        } else if (row.body == Verdict::Bad) {
            report("fails the check of the main body CRC");
        } else if (mSize > end) {
            report("has " + std::to_string(mSize - end) + " bytes behind the image");
        }
    }

    void listParts(uint64_t at, uint64_t end) {
        while (at < end) {
            const uint64_t rest = end - at;
            loadHeader(at);
            if (mParser.parseContentHeader(mData + at, clamp32(rest)) == nullptr) {
                if (!mIsCut || !isCutHeader(at, rest))
                    report("has no valid content part at offset " + std::to_string(at));
                return;
            }
            at = listPart(at, end);
        }
    }

    void loadHeader(uint64_t at) {
        mImage.load(at, ZempFormat::ContentHeaderSize);
        if (mSize - at >= ZempFormat::ContentHeaderSize)
            mImage.load(at, reinterpret_cast<const zemp_content_header_t*>(mData + at)->hdr_length);
    }

    // Whether the file ends before the content header at `at` does.
    bool isCutHeader(uint64_t at, uint64_t rest) const {
        if (rest < ZempFormat::ContentHeaderSize)
            return true;
        return reinterpret_cast<const zemp_content_header_t*>(mData + at)->hdr_length > rest;
    }

    // Adds the part with a valid header at `at`; where the next one begins.
    uint64_t listPart(uint64_t at, uint64_t end) {
        const auto& header = *reinterpret_cast<const zemp_content_header_t*>(mData + at);
        ListedPart row;
        row.offset = at;
        row.size = uint64_t{header.hdr_length} + header.body_length + ZempFormat::padding(header.body_length);
        row.name = ZempFormat::text(header.name);
        uint64_t readable = end - at;
        if (!mImage.isLocal()) {
            const bool isText = header.type != ZempFormat::SwBlobType && row.size <= MaximumTextBytes;
            readable =
                std::min(readable, isText ? row.size : std::max<uint64_t>(HeadBytes, header.hdr_length));
            mImage.load(at, readable);
        }
        judgeBody(row, at + header.hdr_length, header.body_length, header.body_crc);
        const std::unique_ptr<ZempPart> part(mParser.parseContentPart(mData + at, clamp32(readable)));
        if (part)
            describe(*part, row);
        else
            row.type = "content type " + std::to_string(header.type);
        mListing.parts.push_back(row);
        const std::string where = "part '" + row.name + "' at offset " + std::to_string(at);
        if (row.body == Verdict::Bad)
            report("has a damaged body in " + where);
        else if (row.body == Verdict::Incomplete)
            report("ends within " + where, true);
        return at + row.size;
    }

    void judgeBody(ListedPart& row, uint64_t at, uint32_t length, uint32_t crc) const {
        row.bodyOffset = at;
        row.bodySize = length;
        row.bodyCrc = crc;
        if (at > mSize || length > mSize - at)
            row.body = Verdict::Incomplete;
        else if (!isLoaded(row, at, length))
            row.body = Verdict::NotRead;
        else
            row.body = crc32_calc(0, mData + at, length) == crc ? Verdict::Good : Verdict::Bad;
    }

    // Of a part on a web server: whether it was fetched with its header, or as a text.
    bool isLoaded(const ListedPart& row, uint64_t at, uint32_t length) const {
        if (mImage.isLocal() || at + length <= row.offset + HeadBytes)
            return true;
        const auto* const header = reinterpret_cast<const zemp_content_header_t*>(mData + row.offset);
        return row.offset != ZempFormat::HeaderOffset && header->type != ZempFormat::SwBlobType &&
               row.size <= MaximumTextBytes;
    }

    void describe(ZempPart& part, ListedPart& row) {
        row.type = ZempPart::getString(part.getPartType());
        if (auto* release = dynamic_cast<ReleaseHeaderPart*>(&part)) {
            row.buildId = ZempFormat::text(release->getReleaseHeader()->name);
            mVersion = release->getPartVersion();
            if (mListing.parts.size() == 1) // the main header takes the version of the release
                mListing.parts[0].version = mVersion;
        } else if (auto* suum = dynamic_cast<SuumBlob*>(&part)) {
            suum->setPartVersion(mVersion);
            describeManifest(*suum);
        } else if (auto* blob = dynamic_cast<SwBlob*>(&part)) {
            if (!blob->isExtendedHeaderValid())
                return;
            row.buildId = ZempFormat::text(blob->getExtendedHeader()->build_id);
        }
        row.version = part.getPartVersion();
    }

    void describeManifest(const SuumBlob& suum) {
        for (uint32_t i = 0; i < suum.getNumberOfElements(); ++i) {
            const SuumBlob::Element& element = *suum.getElementAt(i);
            mListing.manifest.push_back(
                {element.getContentIndex(), element.getPoolname(), element.getPlatform(),
                 ZempPart::getVersionString(element.getMajor(), element.getMinor(), element.getBuild()),
                 element.getMountPoint()});
        }
    }

    imagefile::ImageSource& mImage;
    const uint8_t* const mData;
    const uint64_t mSize;
    const ZempParser mParser;
    bool mIsCut = false;  // the file ends before the image does
    std::string mVersion; // of the release, once known
    ImageListing mListing;
};

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

ImageListing listImage(imagefile::ImageSource& image) {
    return Lister(image).run();
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
