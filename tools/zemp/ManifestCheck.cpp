// The manifest's lines as the daemon reads them, against what is written there and what the image has.
#include "image/SuumBlob.h"

#include "image/ZempParser.h"
#include "imagefile/NumberText.h"
#include "installed/SuuInfo.h"
#include "zemp/ImageCheck.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>

namespace zemp {

using imagefile::ImagePart;
using imagefile::ImageReader;

namespace {

constexpr unsigned MaximumLines = 40;     // that the daemon looks at
constexpr size_t MaximumLineBytes = 1999; // likewise
constexpr size_t Columns = 8;
constexpr const char* ColumnNames[Columns] = {"content index", "pool",     "partition size", "mount point",
                                              "file system",   "platform", "version",        "valid"};
constexpr const char* OtherPlatform = "4812";
constexpr const char* OtherPlatformKernel = "kernel4812";

// A line that the daemon takes as an element.
struct ElementLine {
    unsigned line;
    SuumBlob::Element element;
    const ImagePart* part = nullptr; // that it stands for; null without one

    // The name that the daemon looks the part up by.
    std::string partName() const {
        return element.getPlatform() == OtherPlatform ? OtherPlatformKernel : element.getPoolname();
    }
    std::string version() const {
        return ZempPart::getVersionString(element.getMajor(), element.getMinor(), element.getBuild());
    }
};

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    size_t begin = 0;
    for (size_t end = 0; end != std::string::npos; begin = end + 1) {
        end = text.find(separator, begin);
        pieces.push_back(text.substr(begin, end == std::string::npos ? end : end - begin));
    }
    return pieces;
}

// One line read by the daemon's own parser: none or one element.
std::unique_ptr<SuumBlob> readAsTheDaemon(const std::string& line) {
    zemp_content_header_t header = {};
    header.type = ZempFormat::BlobType;
    header.body_length = static_cast<uint32_t>(line.size());
    const auto* const bytes = reinterpret_cast<const uint8_t*>(line.data());
    return std::unique_ptr<SuumBlob>(
        ZempParser().parseSuumBlob(bytes, static_cast<uint32_t>(line.size()), &header));
}

class ManifestCheck {
  public:
    ManifestCheck(const ImageReader& image, const ImagePart& manifest, Findings& findings)
        : mImage(image), mManifest(manifest), mFindings(findings) {}

    void run() {
        readLines();
        if (mLines.empty() && !mIsUnusable)
            add(true, "no-elements", 0, "the manifest has no element",
                "the daemon takes the image as unusable and fetches its start again and again",
                "add a line for each software part");
        for (ElementLine& line : mLines)
            findPart(line);
        for (const ElementLine& line : mLines)
            checkIndex(line);
        checkSharing();
        checkParts();
        checkPartOrder();
    }

  private:
    // `line` 0: the manifest as a whole.
    void add(bool isError, const char* id, unsigned line, const std::string& what, const std::string& why,
             const std::string& mend) {
        Finding finding = {isError, id, {}, {}, what, why, mend};
        if (line == 0)
            finding.offset = mManifest.offset;
        else
            finding.line = line;
        mFindings.push_back(finding);
    }

    void readLines() {
        const auto* const text = reinterpret_cast<const char*>(mImage.data() + mManifest.bodyOffset());
        const size_t length = strnlen(text, mManifest.header.body_length);
        if (length < mManifest.header.body_length)
            add(true, "zero-byte", 0, "the manifest has a zero byte at character " + std::to_string(length),
                "the daemon reads no further", "take it out");
        std::vector<std::string> lines = split(std::string(text, length), '\n');
        if (lines.back().empty())
            lines.pop_back();
        for (size_t i = 0; i < lines.size(); ++i) {
            const auto number = static_cast<unsigned>(i + 1);
            if (lines[i].empty()) {
                if (i + 1 < lines.size())
                    add(true, "empty-line", number, "the line is empty", "the daemon reads no further",
                        "take it out, or begin it with '#'");
                return;
            }
            if (number > MaximumLines) {
                checkIgnored(lines, i);
                return;
            }
            if (lines[i][0] != '#')
                readLine(lines[i], number);
        }
    }

    void checkIgnored(const std::vector<std::string>& lines, size_t first) {
        const bool hasElement = std::any_of(lines.begin() + static_cast<long>(first), lines.end(),
                                            [](const std::string& line) { return line[0] != '#'; });
        add(hasElement, "too-many-lines", static_cast<unsigned>(first + 1),
            "the manifest has " + std::to_string(lines.size()) + " lines",
            "the daemon looks at the first 40, comments included", "take comments out, or parts");
    }

    void readLine(const std::string& line, unsigned number) {
        if (line.size() > MaximumLineBytes) {
            add(true, "long-line", number, "the line has " + std::to_string(line.size()) + " characters",
                "the daemon cuts it after 1999", "shorten it");
            return;
        }
        const std::unique_ptr<SuumBlob> suum = readAsTheDaemon(line);
        const std::vector<std::string> columns = split(line, ',');
        if (!suum->isSuumValid()) {
            mIsUnusable = true;
            add(true, "version-minus-one", number, "a number of the version is -1",
                "it makes the whole manifest unusable", "write the version as it is, like 1.2.3");
            return;
        }
        if (suum->getNumberOfElements() == 0) {
            add(true, "skipped-line", number, "the daemon skips the line: " + reasonToSkip(columns),
                "its part is never installed", "write all eight columns, '-' where there is nothing to say");
            return;
        }
        const SuumBlob::Element& element = *suum->getElementAt(0);
        checkColumns(columns, element, number);
        mLines.push_back({number, element});
    }

    static std::string reasonToSkip(const std::vector<std::string>& columns) {
        for (size_t i = 0; i < std::min(columns.size(), Columns); ++i)
            if (columns[i].empty())
                return std::string("the column '") + ColumnNames[i] + "' is empty";
        if (columns.size() < Columns)
            return "it has " + std::to_string(columns.size()) + " columns of 8";
        return "a number in it is none";
    }

    void checkColumns(const std::vector<std::string>& columns, const SuumBlob::Element& element,
                      unsigned line) {
        if (columns.size() > Columns)
            add(false, "more-columns", line, "the line has " + std::to_string(columns.size()) + " columns",
                "what follows the eighth is not read", "take it out");
        checkNumber(columns[0], ColumnNames[0], line);
        checkNumber(columns[2], ColumnNames[2], line);
        const std::string& version = columns[6];
        if (version.find('.') == std::string::npos) {
            if (version.size() != 8 ||
                version.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                add(true, "hexadecimal", line,
                    "the version '" + version + "' is read as the hexadecimal " +
                        ZempPart::getVersionString(element.getMajor(), element.getMinor(),
                                                   element.getBuild()),
                    "a version without dots is one hexadecimal word: two digits major, two minor, four build",
                    "write it with dots, or with all eight digits");
        } else {
            const std::vector<std::string> numbers = split(version, '.');
            const long limits[] = {255, 255, 65535};
            for (size_t i = 0; i < std::min<size_t>(numbers.size(), 3); ++i) {
                checkNumber(numbers[i], ColumnNames[6], line);
                const long value = strtol(numbers[i].c_str(), nullptr, 0);
                if (value < 0 || value > limits[i])
                    add(true, "version-range", line,
                        "the version '" + version + "' has a number beyond " + std::to_string(limits[i]),
                        "the daemon keeps its low bits only, and looks for another version",
                        "major and minor go to 255, build to 65535");
            }
        }
        for (const size_t i : {1U, 3U, 4U, 5U})
            if (columns[i].front() == ' ' || columns[i].back() == ' ')
                add(true, "blank", line,
                    std::string("the column '") + ColumnNames[i] + "' begins or ends with a blank",
                    "blanks count: the name is another one", "take it out");
        const std::string platform = element.getPlatform();
        if (platform != "-" && platform != SuuInfo::sThePlatform && platform != OtherPlatform)
            add(false, "platform", line, "the platform is '" + platform + "'",
                "no terminal that this daemon runs on has it: nobody installs the part",
                "write 4813, 4812, or '-' for all");
    }

    void checkNumber(const std::string& text, const char* column, unsigned line) {
        const long value = strtol(text.c_str(), nullptr, 0);
        const size_t digit = text.find_first_not_of(" +-");
        const bool isHexadecimal = digit != std::string::npos && text[digit] == '0' &&
                                   digit + 1 < text.size() &&
                                   (text[digit + 1] == 'x' || text[digit + 1] == 'X');
        if (!isHexadecimal && value == strtol(text.c_str(), nullptr, 10))
            return;
        add(!isHexadecimal, isHexadecimal ? "hexadecimal" : "octal", line,
            std::string("'") + text + "' in the column '" + column + "' is read as " + std::to_string(value),
            isHexadecimal ? "numbers that begin with 0x are hexadecimal"
                          : "numbers that begin with 0 are octal",
            "write it in decimal, without leading zeros");
    }

    bool isNamed(const ImagePart& part, const ElementLine& line) const {
        return part.isType(ZempFormat::SwBlobType) && part.name() == line.partName();
    }

    void findPart(ElementLine& line) {
        const ImagePart* named = nullptr;
        for (const ImagePart& part : mImage.parts()) {
            if (!isNamed(part, line))
                continue;
            if (named == nullptr)
                named = &part;
            if (ZempPart::getVersionString(part.version.major, part.version.minor, part.version.build) ==
                line.version()) {
                line.part = &part;
                return;
            }
        }
        const bool isOther = line.element.getPlatform() == OtherPlatform;
        if (named != nullptr) {
            line.part = named; // it is meant, all the same
            add(true, "version-differs", line.line,
                "the line says version " + line.version() + ", part '" + named->name() + "' at offset " +
                    std::to_string(named->offset) + " " + imagefile::versionText(named->version),
                "the daemon fetches the part again and again, and gives up", "make the two the same");
        } else {
            add(true, "no-part", line.line,
                "the image has no part '" + line.partName() + "'" +
                    (isOther && line.element.getPoolname() != "kernel"
                         ? ", as which a line for platform 4812 is looked up whatever its pool"
                         : ""),
                "the daemon fetches what it finds in its place again and again, and gives up",
                "add the part, or take the line out");
        }
    }

    void checkIndex(const ElementLine& line) {
        const uint32_t index = line.element.getContentIndex();
        if (index > 127)
            add(true, "index-range", line.line, "the content index is beyond 127",
                "it is kept in one signed byte, and comes out as " + std::to_string(index),
                "use an index from 2 to 127");
        else if (index == ZempPart::sReleaseHeaderKey || index == ZempPart::sSuumBlobKey)
            add(true, "index-taken", line.line, "the content index is " + std::to_string(index),
                "0 is the release header's and 1 the manifest's: the daemon mistakes them for the part",
                "use an index from 2 on");
        else if (line.part != nullptr)
            checkUsualIndex(line, index);
    }

    void checkUsualIndex(const ElementLine& line, uint32_t index) {
        const std::unique_ptr<ZempPart> part(ZempPart::createZempPart(&line.part->header));
        if (part->getPartType() != ZempPart::UnspecifiedSwBlob && part->getContentIndex() != index)
            add(false, "index-name", line.line,
                "the content index of '" + line.part->name() + "' is " + std::to_string(index) + ", not " +
                    std::to_string(part->getContentIndex()),
                "the part gets another place in the update image than it has by its name",
                "use the usual index");
    }

    // What two elements must not share.
    void checkSharing() {
        std::map<uint32_t, unsigned> indices;
        std::map<const ImagePart*, unsigned> parts;
        std::map<std::string, unsigned> pools;
        for (const ElementLine& line : mLines) {
            const auto index = indices.emplace(line.element.getContentIndex(), line.line);
            if (!index.second)
                add(true, "index-twice", line.line,
                    "the content index " + std::to_string(line.element.getContentIndex()) +
                        " is also that of line " + std::to_string(index.first->second),
                    "the daemon takes one part for the other, and gives up", "give each line its own index");
            const auto part = parts.emplace(line.part, line.line);
            if (line.part != nullptr && !part.second)
                add(true, "part-shared", line.line,
                    "the part '" + line.part->name() + "' is also that of line " +
                        std::to_string(part.first->second),
                    "the daemon counts it twice and looks for all that follow in the wrong place",
                    "one line for each part");
            const std::string platform = line.element.getPlatform();
            const auto pool = pools.emplace(line.element.getPoolname() + "," + platform, line.line);
            if (!pool.second && part.second)
                add(false, "pool-twice", line.line,
                    "the pool '" + line.element.getPoolname() + "' is also that of line " +
                        std::to_string(pool.first->second),
                    "a terminal with one partition of the pool always needs one of the two",
                    "one version for each pool and platform");
        }
    }

    void checkParts() {
        const std::vector<ImagePart>& parts = mImage.parts();
        std::set<const ImagePart*> used = {nullptr};
        for (const ElementLine& line : mLines)
            used.insert(line.part);
        const ImagePart* const lastUsed = *used.rbegin(); // the parts are in a row
        for (size_t i = 0; i < parts.size(); ++i) {
            if (!parts[i].isType(ZempFormat::SwBlobType) || used.count(&parts[i]) != 0)
                continue;
            const bool isLast = &parts[i] > lastUsed;
            Finding finding;
            finding.isError = !isLast;
            finding.id = "part-without-element";
            finding.offset = parts[i].offset;
            finding.what = "no manifest line stands for part '" + parts[i].name() + "' " +
                           imagefile::versionText(parts[i].version);
            finding.why = isLast
                              ? "it is never installed"
                              : "the daemon looks for the parts behind it in the wrong place, and gives up";
            finding.mend = "add a line, or take the part out";
            mFindings.push_back(finding);
        }
        for (const ElementLine& line : mLines)
            if (line.part != nullptr && line.element.getPartsize() != 0 &&
                line.part->header.body_length > line.element.getPartsize())
                add(false, "partition-size", line.line,
                    "the part '" + line.part->name() + "' has " +
                        imagefile::groupDigits(line.part->header.body_length) + " bytes, its partition " +
                        imagefile::groupDigits(static_cast<uint64_t>(line.element.getPartsize())),
                    "it does not fit", "correct the size, or make the part smaller");
    }

    void checkPartOrder() {
        const ElementLine* before = nullptr;
        for (const ElementLine& line : mLines) {
            if (line.part == nullptr)
                continue;
            if (before != nullptr && line.part->offset < before->part->offset)
                add(true, "order", line.line,
                    "the part '" + line.part->name() + "' stands before that of line " +
                        std::to_string(before->line) + " in the image",
                    "the daemon looks for the parts in the order of the lines, and gives up",
                    "put lines and parts in the same order");
            before = &line;
        }
    }

    const ImageReader& mImage;
    const ImagePart& mManifest;
    Findings& mFindings;
    std::vector<ElementLine> mLines;
    bool mIsUnusable = false;
};

} // namespace

void checkManifest(const ImageReader& image, const ImagePart& manifest, Findings& findings) {
    ManifestCheck(image, manifest, findings).run();
}

} // namespace zemp
