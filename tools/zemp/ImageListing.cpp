#include "zemp/ImageListing.h"

#include "image/ZempParser.h"
#include "image/zemp_validate.h"
#include <algorithm>
#include <limits>
#include <memory>

namespace zemp {

namespace {

uint32_t clamp32(uint64_t size) {
    return static_cast<uint32_t>(std::min<uint64_t>(size, std::numeric_limits<uint32_t>::max()));
}

// Walks one file, from part to part.
class Lister {
  public:
    Lister(const uint8_t* data, uint64_t size) : mData(data), mSize(size) {}

    ImageListing run() {
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
        row.body = bodyVerdict(body, header.body_length, header.body_crc);
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
            if (mParser.parseContentHeader(mData + at, clamp32(rest)) == nullptr) {
                if (!mIsCut || !isCutHeader(at, rest))
                    report("has no valid content part at offset " + std::to_string(at));
                return;
            }
            at = listPart(at, end);
        }
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
        row.body = bodyVerdict(at + header.hdr_length, header.body_length, header.body_crc);
        const std::unique_ptr<ZempPart> part(mParser.parseContentPart(mData + at, clamp32(end - at)));
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

    Verdict bodyVerdict(uint64_t at, uint32_t length, uint32_t crc) const {
        if (at > mSize || length > mSize - at)
            return Verdict::Incomplete;
        return crc32_calc(0, mData + at, length) == crc ? Verdict::Good : Verdict::Bad;
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

    const uint8_t* const mData;
    const uint64_t mSize;
    const ZempParser mParser;
    bool mIsCut = false;  // the file ends before the image does
    std::string mVersion; // of the release, once known
    ImageListing mListing;
};

using Row = std::vector<std::string>;

// Text fit for a terminal, "-" for none.
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; },
        '?');
    return text.empty() ? "-" : text;
}

// Prints rows in columns as wide as their widest entry, two blanks apart; the first `numbers` columns are
// aligned to the right.
void printTable(const std::vector<Row>& rows, size_t numbers, std::ostream& out) {
    std::vector<size_t> widths(rows.front().size(), 0);
    for (const Row& row : rows)
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string gap(widths[i] - row[i].size(), ' ');
            line += (i == 0 ? "" : "  ") + (i < numbers ? gap + row[i] : row[i] + gap);
        }
        out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
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
    }
    return "";
}

ImageListing listImage(const uint8_t* data, uint64_t size) {
    return Lister(data, size).run();
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

} // namespace zemp
