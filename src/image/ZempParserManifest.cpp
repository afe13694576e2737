// The parser's reader of the update manifest: text, one element per line.

#include "image/ParseLog.h"
#include "image/ZempParser.h"
#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>

namespace {

constexpr unsigned MaximumLines = 40; // comments and rejected lines included

// Longest line, and longest text field, without its terminator. The number stands in the scan formats too.
constexpr size_t MaximumText = 1999;
using TextBuffer = std::array<char, MaximumText + 1>;

// Results of reading a line, as they are logged.
constexpr int EndOfText = -1;
constexpr int EmptyLine = 0;
constexpr int GotLine = 1;

// Columns of one manifest line.
struct ManifestLine {
    int32_t contentIndex = 0;
    TextBuffer poolname{};
    int32_t partsize = 0;
    TextBuffer mountpoint{};
    TextBuffer filesystem{};
    TextBuffer platform{};
    uint8_t major = 0;
    uint8_t minor = 0;
    uint16_t build = 0;
    int32_t metaValid = 0;
    bool isVersionValid = true;
    bool isKept = true;
};

// A number that was scanned as `long`, as it comes out where that has 32 bits.
int32_t clamped(long value) {
    return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

// The same for an unsigned hexadecimal number, which the C library lets have a sign.
uint32_t clamped(unsigned long value, bool isNegative) {
    const uint64_t magnitude = isNegative ? 0UL - value : value;
    return magnitude > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}

// Moves the next line, or as much of it as fits, to `line` and `at` behind it and its line end.
int readLine(const char*& at, const char* end, TextBuffer& line) {
    line.fill('\0');
    if (at == end)
        return EndOfText;
    const char* const newline = std::find(at, end, '\n');
    if (newline == at)
        return EmptyLine;
    const auto length = std::min(static_cast<size_t>(newline - at), MaximumText);
    std::copy_n(at, length, line.begin());
    at = newline == end ? end : newline + 1;
    return GotLine;
}

// The form with the version as major.minor.build. Returns the number of columns found; all are 10.
int scanDottedForm(const TextBuffer& line, ManifestLine& out) {
    long contentIndex = 0;
    long partsize = 0;
    long major = 0;
    long minor = 0;
    long build = 0;
    long metaValid = 0;
    const int count = sscanf(line.data(), "%li,%1999[^,],%li,%1999[^,],%1999[^,],%1999[^,],%li.%li.%li,%li",
                             &contentIndex, out.poolname.data(), &partsize, out.mountpoint.data(),
                             out.filesystem.data(), out.platform.data(), &major, &minor, &build, &metaValid);
    out.contentIndex = clamped(contentIndex);
    out.partsize = clamped(partsize);
    out.major = static_cast<uint8_t>(clamped(major));
    out.minor = static_cast<uint8_t>(clamped(minor));
    out.build = static_cast<uint16_t>(clamped(build));
    out.metaValid = clamped(metaValid);
    out.isVersionValid = clamped(major) != -1 && clamped(minor) != -1 && clamped(build) != -1;
    out.isKept = out.isVersionValid;
    return count;
}

// The form with the version as one hexadecimal word. Returns the number of columns found; all are 8.
int scanHexadecimalForm(const TextBuffer& line, ManifestLine& out) {
    long contentIndex = 0;
    long partsize = 0;
    int versionAt = 0;
    unsigned long scanned = 0;
    long metaValid = 0;
    const int count = sscanf(line.data(), "%li,%1999[^,],%li,%1999[^,],%1999[^,],%1999[^,],%n%lX,%li",
                             &contentIndex, out.poolname.data(), &partsize, out.mountpoint.data(),
                             out.filesystem.data(), out.platform.data(), &versionAt, &scanned, &metaValid);
    const char* const version = line.data() + versionAt;
    const uint32_t word = clamped(scanned, version[strspn(version, " \t\r\v\f")] == '-');
    out.contentIndex = clamped(contentIndex);
    out.partsize = clamped(partsize);
    out.major = static_cast<uint8_t>(word >> 24);
    out.minor = static_cast<uint8_t>(word >> 16 & 0xFFU);
    out.build = static_cast<uint16_t>(word & 0xFFFFU);
    out.metaValid = clamped(metaValid);
    out.isVersionValid = word != UINT32_MAX;
    out.isKept = true;
    return count;
}

// Fills `out` from a line in either form; false when it fits neither, with the columns found in `count`.
bool scanLine(const TextBuffer& line, ManifestLine& out, int& count) {
    count = scanDottedForm(line, out);
    if (count == 10)
        return true;
    count = scanHexadecimalForm(line, out);
    return count == 8;
}

void addElement(SuumBlob& suum, const ManifestLine& line) {
    // A dash stands for none.
    const std::string mountpoint = line.mountpoint[0] == '-' ? "" : line.mountpoint.data();
    const std::string filesystem = line.filesystem[0] == '-' ? "" : line.filesystem.data();
    // The index is one signed byte: 200 becomes -56, and so a very large number.
    const uint32_t low = static_cast<uint32_t>(line.contentIndex) & 0xFFU;
    const uint32_t contentIndex = low < 0x80U ? low : low | 0xFFFFFF00U;
    const auto metaValid = static_cast<char>(line.metaValid);
    suum.addSuumElement(contentIndex, line.poolname.data(), 0, static_cast<uint32_t>(line.partsize),
                        mountpoint, filesystem, line.platform.data(), line.major, line.minor, line.build,
                        metaValid, line.isVersionValid);
    PARSE_LOG() << "ZempParser::parseSuumBlob()"
                << " cidx=" << contentIndex << " poolname=" << line.poolname.data()
                << " partsize=" << static_cast<uint32_t>(line.partsize)
                << " platform=" << line.platform.data() << " mountpoint=" << mountpoint
                << " filesystem=" << filesystem << " version=" << unsigned{line.major} << "."
                << unsigned{line.minor} << "-" << line.build
                << " meta_valid=" << (metaValid != 0 ? "yes" : "no");
}

} // namespace

SuumBlob* ZempParser::parseSuumBlob(const uint8_t* data, uint32_t size,
                                    const zemp_content_header_t* header) const {
    auto suum = std::make_unique<SuumBlob>(header);
    const uint32_t length = std::min(size, suum->getBodyLength());
    const uint32_t padding = ZempPart::getPadding(suum->getBodyLength());
    suum->setBlob(data, length + padding, size);

    const auto* at = reinterpret_cast<const char*>(data);
    const char* const end = at + strnlen(at, length);
    bool isValid = true;
    TextBuffer text{};
    for (unsigned i = 0; i < MaximumLines; ++i) {
        const int result = readLine(at, end, text);
        if (result == EndOfText) {
            VEX_LOG(LogDebug) << "ZempParser::parseSuumBlob() Stop EOF, scan result=" << result << ".";
            break;
        }
        if (result == EmptyLine) {
            VEX_LOG(LogWarning) << "ZempParser::parseSuumBlob() Stop sub zero scan result=" << result << ".";
            break;
        }
        if (text[0] == '#')
            continue;
        ManifestLine line;
        int count = 0;
        if (!scanLine(text, line, count)) {
            VEX_LOG(LogWarning) << "ZempParser::parseSuumBlob() Entry i=" << i
                                << " Wrong syntax, skip (res=" << count << " buffer='" << text.data() << "'.";
            continue;
        }
        isValid = isValid && line.isVersionValid;
        if (line.isKept)
            addElement(*suum, line);
    }
    VEX_LOG(isValid ? LogDebug : LogWarning)
        << "ZempParser::parseSuumBlob() Suum is " << (isValid ? "valid." : "NOT valid!");
    suum->setIsSuumValid(isValid);
    return suum.release();
}
