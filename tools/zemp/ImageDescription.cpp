#include "zemp/ImageDescription.h"

#include "zemp/DescriptionTable.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace zemp {

namespace {

constexpr size_t AnyLength = std::numeric_limits<uint32_t>::max();
constexpr int64_t MaximumIndex = 1000; // generous: manifests count up to 127

void readRelease(DescriptionTable table, imagefile::ImageBuilder& builder) {
    const imagefile::Version version = table.version("version");
    const std::string name = table.text("name", sizeof zemp_content_release_header_t::name, "");
    const uint32_t time = table.time("time");
    const std::string text = table.text("text", AnyLength, "");
    table.rejectOtherKeys();
    builder.release(version, time, name, text, true);
}

// A column of a manifest line: not empty, and without what separates columns and lines.
std::string readColumn(DescriptionTable& table, const std::string& key, const std::string& fallback) {
    std::string value = fallback.empty() ? table.text(key, AnyLength) : table.text(key, AnyLength, fallback);
    if (value.empty() || value.find_first_of(",\r\n") != std::string::npos)
        table.fail(key, "'" + key + "' must not be empty, nor have a comma or a line end");
    return value;
}

std::string readManifestLine(DescriptionTable table) {
    if (table.has("text")) {
        const std::string text = table.text("text", AnyLength);
        if (text.find('\n') != std::string::npos)
            table.fail("text", "a manifest line must not have a line end");
        table.rejectOtherKeys();
        return text + "\n";
    }
    imagefile::ManifestElement element;
    element.contentIndex = static_cast<int>(table.number("index", 0, MaximumIndex));
    element.poolname = readColumn(table, "pool", "");
    element.partsize = static_cast<int>(table.number("size", 0, std::numeric_limits<int32_t>::max(), 0));
    element.mountpoint = readColumn(table, "mountpoint", "-");
    element.filesystem = readColumn(table, "filesystem", "-");
    element.platform = readColumn(table, "platform", "-");
    element.version = table.version("version");
    element.metaValid = table.flag("valid", true) ? 1 : 0;
    element.hexadecimal = table.flag("hexadecimal", false);
    table.rejectOtherKeys();
    return element.toString();
}

void readManifest(DescriptionTable table, imagefile::ImageBuilder& builder, DescriptionPlaces& places) {
    std::string manifest;
    if (table.has("text")) {
        if (table.has("line"))
            table.fail("text", "the manifest has both 'text' and lines");
        manifest = table.text("text", AnyLength);
    } else if (table.has("line")) {
        for (const DescriptionTable& line : table.tables("line", "manifest line")) {
            places.manifestLines.push_back({"[[manifest.line]]", line.line()});
            manifest += readManifestLine(line);
        }
    } else {
        table.rejectOtherKeys(); // one that is misspelt is what is wrong
        table.fail("the manifest has neither 'text' nor lines: [[manifest.line]]");
    }
    table.rejectOtherKeys();
    builder.manifest(manifest);
}

// The path of a part's file, which can be read.
std::string readFileName(DescriptionTable& table, const Description& description) {
    std::string path = description.resolve(table.text("file", AnyLength));
    struct stat status = {};
    std::string reason;
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
        reason = strerror(errno);
    else if (!S_ISREG(status.st_mode))
        reason = S_ISDIR(status.st_mode) ? "Is a directory" : "Not a regular file";
    if (!reason.empty())
        table.fail("file", "cannot read '" + path + "': " + reason);
    return path;
}

void readPart(DescriptionTable table, const Description& description, imagefile::ImageBuilder& builder) {
    const std::string name = table.text("name", sizeof zemp_content_header_t::name);
    const imagefile::Version version = table.version("version");
    const std::string buildId = table.text("build-id", sizeof zemp_content_software_blob_t::build_id, "");
    const int sources =
        (table.has("file") ? 1 : 0) + (table.has("text") ? 1 : 0) + (table.has("hex") ? 1 : 0);
    if (sources > 1)
        table.fail("the part '" + name + "' has more than one of 'file', 'text' and 'hex'");
    if (sources == 0)
        table.fail("the part '" + name + "' needs one of 'file', 'text' and 'hex'");
    if (table.has("file"))
        builder.softwareFromFile(name, version, buildId, readFileName(table, description));
    else if (table.has("hex"))
        builder.software(name, version, buildId, table.hex("hex"));
    else
        builder.software(name, version, buildId, imagefile::bytesOf(table.text("text", AnyLength)));
    table.rejectOtherKeys();
}

} // namespace

DescriptionPlaces readImageDescription(const std::string& file, imagefile::ImageBuilder& builder) {
    const Description description(file);
    DescriptionTable root = description.root();
    const DescriptionTable release = root.table("release");
    DescriptionPlaces places = {{{"[release]", release.line()}}, {}};
    readRelease(release, builder);
    const DescriptionTable manifest = root.table("manifest");
    // A table that is there by its lines alone has no place of its own.
    places.parts.push_back({"[manifest]", std::max(manifest.line(), 1U)});
    readManifest(manifest, builder, places);
    for (const DescriptionTable& part : root.tables("part", "part")) {
        places.parts.push_back({"[[part]]", part.line()});
        readPart(part, description, builder);
    }
    root.rejectOtherKeys();
    return places;
}

} // namespace zemp
