#include "seal/SealLines.h"

#include <sstream>

namespace seal {

namespace {

constexpr const char* Title = "fw-seal 1";
constexpr size_t MaximumName = 16;    // width of the field in a content header
constexpr size_t MaximumVersion = 16; // "255.255-65535" and some
constexpr uint64_t Alignment = 4;     // of parts in an image

std::ostream& operator<<(std::ostream& out, const Extent& extent) {
    return out << extent.length << ' ' << toHex(extent.digest);
}

// The fields of one line. Whatever is lenient in here is caught in the end: the lines have to be what
// toText() makes of them.
class Fields {
  public:
    explicit Fields(const std::string& line) : mIn(line) {}

    bool word(const char* expected) {
        std::string found;
        return static_cast<bool>(mIn >> found) && found == expected;
    }
    bool text(std::string& value, size_t maximum) {
        return static_cast<bool>(mIn >> value) && value.size() <= maximum;
    }
    bool number(uint32_t& value) { return static_cast<bool>(mIn >> value); }
    bool extent(Extent& value) {
        std::string hex;
        return number(value.length) && mIn >> hex && fromHex(hex, value.digest);
    }
    bool end() { return !(mIn >> std::ws).good(); }

  private:
    std::istringstream mIn;
};

bool isPrintable(const std::string& text) {
    for (const char c : text)
        if (c <= ' ' || c > '~')
            return false;
    return true;
}

bool parsePart(const std::string& line, SealedPart& part) {
    Fields fields(line);
    return fields.word("part") && fields.number(part.offset) && fields.text(part.name, MaximumName) &&
           fields.text(part.version, MaximumVersion) && fields.extent(part.header) &&
           fields.extent(part.body) && fields.end() && isPrintable(part.name) && isPrintable(part.version);
}

// Parts that overlap or leave a gap would let bytes into an image that nobody sealed.
std::string checkPlaces(const SealLines& lines) {
    uint64_t end = lines.start.length;
    uint64_t unpadded = end;
    size_t line = 5;
    for (const SealedPart& part : lines.parts) {
        if (part.offset != end)
            return "line " + std::to_string(line) + " begins at " + std::to_string(part.offset) +
                   ", not at " + std::to_string(end);
        unpadded = end + part.header.length + part.body.length;
        end = unpadded + (Alignment - part.body.length % Alignment) % Alignment;
        ++line;
    }
    // The last padding may be missing.
    if (lines.image.length < unpadded || lines.image.length > end)
        return "line 3 tells " + std::to_string(lines.image.length) + " bytes, the parts end at " +
               std::to_string(end);
    return "";
}

} // namespace

std::string toText(const SealLines& lines) {
    std::ostringstream out;
    out << Title << "\nrelease " << lines.release << "\nimage " << lines.image << "\nstart " << lines.start
        << '\n';
    for (const SealedPart& part : lines.parts)
        out << "part " << part.offset << ' ' << part.name << ' ' << part.version << ' ' << part.header << ' '
            << part.body << '\n';
    return out.str();
}

std::string parse(const std::string& text, SealLines& lines) {
    lines = SealLines();
    std::istringstream in(text);
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) {
        Fields fields(line);
        bool isGood = false;
        switch (number) {
        case 1:
            isGood = line == Title;
            break;
        case 2:
            isGood = fields.word("release") && fields.text(lines.release, MaximumVersion) && fields.end() &&
                     isPrintable(lines.release);
            break;
        case 3:
            isGood = fields.word("image") && fields.extent(lines.image) && fields.end();
            break;
        case 4:
            isGood = fields.word("start") && fields.extent(lines.start) && fields.end();
            break;
        default:
            isGood = parsePart(line, lines.parts.emplace_back());
            break;
        }
        if (!isGood)
            return "line " + std::to_string(number) + " is not as it should be";
    }
    if (lines.parts.empty())
        return "line 5 is missing";
    if (text != toText(lines))
        return "line 1 to " + std::to_string(4 + lines.parts.size()) + " are not written as they should be";
    return checkPlaces(lines);
}

} // namespace seal
