// Fuzz target: what the names of the download directory tell. The input's lines are a file name, a version,
// and, if there is a third, the base name of the update image.

#include "fuzz/FuzzTarget.h"
#include "fuzz/QuietLog.h"
#include "main/ArgParser.h"
#include "update/FileFragment.h"
#include <string>

namespace {

constexpr FileFragment::FragmentType Types[] = {FileFragment::UnknownType, FileFragment::ZempStart,
                                                FileFragment::ContentPart, FileFragment::ZempFile,
                                                FileFragment::UpdateZempFile};

// Takes the text up to the next line end off the rest.
std::string takeLine(std::string& rest) {
    const size_t end = rest.find('\n');
    std::string line = rest.substr(0, end);
    rest = end == std::string::npos ? "" : rest.substr(end + 1);
    return line;
}

bool isIn(const std::string& text, const std::string& pattern) {
    return text.size() > pattern.size() && text.find(pattern) != std::string::npos;
}

// The rules of the names, written down a second time.
FileFragment::FragmentType expectedType(const std::string& path, const std::string& updateName) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string end = name.size() > 5 ? name.substr(name.size() - 5) : "";
    if (isIn(name, "ZempStart-") && name.find("ZempStart-") == 0)
        return FileFragment::ZempStart;
    if (isIn(name, "ContentPart-") && name.find("ContentPart-") == 0)
        return FileFragment::ContentPart;
    if (end == ".zemp")
        return FileFragment::ZempFile;
    return isIn(name, updateName) ? FileFragment::UpdateZempFile : FileFragment::UnknownType;
}

void checkVersionedName(const std::string& version, FileFragment::FragmentType type,
                        ZempPart::PartType part) {
    const std::string name = FileFragment::getVersionedFilename(version, type, part);
    FUZZ_REQUIRE(name.rfind("/data/fw/", 0) == 0);
    FUZZ_REQUIRE(name.size() >= version.size() &&
                 name.compare(name.size() - version.size(), version.size(), version) == 0);
    const bool isPrefixKept = type == FileFragment::ZempStart || type == FileFragment::ContentPart;
    if (isPrefixKept && !version.empty() && version.find('/') == std::string::npos) {
        FUZZ_REQUIRE(FileFragment::parseFragmentType(name) == type);
        FileFragment fragment(name, 1);
        FUZZ_REQUIRE(fragment.changeFilename(version) && fragment.getFilename() == name);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::quietLog(data, size);
    std::string rest(data, data + size);
    const std::string name = takeLine(rest);
    const std::string version = takeLine(rest);
    const std::string updateName = rest.empty() ? "fw_download_update.zemp" : takeLine(rest);
    ArgParser::setFwUpdateBaseFilename(updateName);

    const FileFragment::FragmentType type = FileFragment::parseFragmentType(name);
    FUZZ_REQUIRE(type == expectedType(name, updateName));
    FUZZ_REQUIRE(FileFragment::parseFragmentType("/some/where/" + name) == type);
    for (const FileFragment::FragmentType each : Types)
        for (int part = 0; part <= ZempPart::UnspecifiedPart; ++part)
            checkVersionedName(version, each, static_cast<ZempPart::PartType>(part));
    return 0;
}
