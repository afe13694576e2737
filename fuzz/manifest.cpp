// Fuzz target: the text of an update manifest.

#include "fuzz/FuzzTarget.h"
#include "fuzz/QuietLog.h"
#include "image/ZempParser.h"
#include <algorithm>
#include <memory>

namespace {

constexpr size_t MaximumElements = 40;
constexpr size_t MaximumLine = 1999;

std::unique_ptr<SuumBlob> parse(const std::string& text) {
    zemp_content_header_t header{};
    header.type = ZempFormat::BlobType;
    header.hdr_length = ZempFormat::BlobBodyOffset;
    header.body_length = static_cast<uint32_t>(text.size());
    memcpy(header.name, ZempFormat::ManifestName, sizeof ZempFormat::ManifestName);
    // Exactly as large as the text, so that a read beyond it shows.
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[text.size()]);
    std::copy(text.begin(), text.end(), bytes.get());
    const ZempParser parser;
    return std::unique_ptr<SuumBlob>(
        parser.parseSuumBlob(bytes.get(), static_cast<uint32_t>(text.size()), &header));
}

std::string orDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

// The line that an element would be written as.
std::string lineOf(const SuumBlob::Element& element) {
    const auto index = static_cast<int8_t>(element.getContentIndex());
    const std::string version = element.isVersionValid() ? std::to_string(element.getMajor()) + "." +
                                                               std::to_string(element.getMinor()) + "." +
                                                               std::to_string(element.getBuild())
                                                         : "FFFFFFFF";
    return std::to_string(index) + "," + element.getPoolname() + "," +
           std::to_string(static_cast<int32_t>(element.getPartsize())) + "," +
           orDash(element.getMountPoint()) + "," + orDash(element.getFilesystem()) + "," +
           element.getPlatform() + "," + version + "," + (element.isMetaValid() ? "1" : "0") + "\n";
}

void checkField(const std::string& field, const std::string& text) {
    FUZZ_REQUIRE(field.find_first_of(std::string(",\n\0", 3)) == std::string::npos);
    FUZZ_REQUIRE(text.find(field) != std::string::npos);
}

void checkElement(const SuumBlob::Element& element, const std::string& text) {
    checkField(element.getPoolname(), text);
    checkField(element.getMountPoint(), text);
    checkField(element.getFilesystem(), text);
    checkField(element.getPlatform(), text);
    FUZZ_REQUIRE(!element.getPoolname().empty() && !element.getPlatform().empty());
    FUZZ_REQUIRE(element.getMountPoint().rfind('-', 0) != 0 && element.getFilesystem().rfind('-', 0) != 0);
    FUZZ_REQUIRE(element.getContentIndex() < 0x80 || element.getContentIndex() >= 0xFFFFFF80);
    FUZZ_REQUIRE(element.isVersionValid() ||
                 (element.getMajor() == 255 && element.getMinor() == 255 && element.getBuild() == 65535));
}

// The elements as lines; empty when a line became too long to be read as one.
std::string linesOf(const SuumBlob& suum) {
    std::string lines;
    for (uint32_t i = 0; i < suum.getNumberOfElements(); ++i) {
        const std::string line = lineOf(*suum.getElementAt(i));
        if (line.size() > MaximumLine)
            return "";
        lines += line;
    }
    return lines;
}

// What was read, written and read again, is the same.
void checkWrittenAgain(const SuumBlob& suum) {
    const std::string lines = linesOf(suum);
    if (lines.empty())
        return;
    const std::unique_ptr<SuumBlob> again = parse(lines);
    FUZZ_REQUIRE(again->getNumberOfElements() == suum.getNumberOfElements());
    FUZZ_REQUIRE(linesOf(*again) == lines);
    FUZZ_REQUIRE(again->isSuumValid() || !suum.isSuumValid());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::quietLog(data, size);
    const std::string text(data, data + size);
    const std::unique_ptr<SuumBlob> suum = parse(text);
    FUZZ_REQUIRE(suum != nullptr);
    FUZZ_REQUIRE(suum->getNumberOfElements() <= MaximumElements);
    FUZZ_REQUIRE(suum->getNumberOfElements() <=
                 static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    FUZZ_REQUIRE(suum->getBlobSize() == size + ZempPart::getPadding(static_cast<uint32_t>(size)));
    FUZZ_REQUIRE(size == 0 || std::equal(data, data + size, suum->getBlob()));
    bool areVersionsValid = true;
    for (uint32_t i = 0; i < suum->getNumberOfElements(); ++i) {
        checkElement(*suum->getElementAt(i), text);
        areVersionsValid = areVersionsValid && suum->getElementAt(i)->isVersionValid();
    }
    FUZZ_REQUIRE(areVersionsValid || !suum->isSuumValid());
    checkWrittenAgain(*suum);
    return 0;
}
