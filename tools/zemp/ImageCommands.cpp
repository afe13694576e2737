// Images: build, list, extract, check.
#include "image/zemp_validate.h"
#include "imagefile/NumberText.h"
#include "imagefile/ReplaceFile.h"
#include "update/FileFragment.h"
#include "zemp/Commands.h"
#include "zemp/Files.h"
#include "zemp/ImageCheck.h"
#include "zemp/ImageDescription.h"
#include "zemp/ImageListing.h"
#include "zemp/InputError.h"
#include "zemp/Interrupt.h"
#include "zemp/Json.h"
#include "zemp/ReuseCheck.h"
#include "zemp/Table.h"
#ifdef FW_SEAL
#include "zemp/SealCommands.h"
#endif
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace zemp {

namespace {

// Files up to this size may end within a part: it is what the daemon fetches first of an image and of a part.
constexpr uint64_t MaximumStartBytes = FileFragment::ZempStartSize + 1;

// The name of an output that is no file.
constexpr const char* StandardOutput = "-";

constexpr uint64_t LargeImageBytes =
    16ULL * 1024 * 1024; // from here on it takes long enough to show progress

imagefile::ImageReader read(const std::string& image) {
    return imagefile::ImageReader(imagefile::openImage(image, [] { return interruptedBy() != 0; }),
                                  imagefile::ImageReader::Accept::ContentPartToo);
}

// Percents on the terminal, each once; the line is cleared at the end.
class Progress {
  public:
    Progress(const std::string& name, uint64_t bytes, const Console& console)
        : mName(name), mConsole(console), mIsShown(console.isTerminal && bytes >= LargeImageBytes) {}
    ~Progress() {
        if (mPercent >= 0)
            mConsole.err << "\r\033[K" << std::flush;
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void update(uint64_t done, uint64_t total) {
        const int percent = total == 0 ? 100 : static_cast<int>(done * 100 / total);
        if (!mIsShown || percent == mPercent)
            return;
        mPercent = percent;
        mConsole.err << '\r' << mName << ": " << percent << " %" << std::flush;
    }

  private:
    const std::string mName;
    const Console& mConsole;
    const bool mIsShown;
    int mPercent = -1;
};

std::string where(const Finding& finding) {
    if (finding.line)
        return "manifest line " + std::to_string(*finding.line);
    return "offset " + std::to_string(finding.offset.value_or(0));
}

std::string counted(size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

nlohmann::json toJson(const Finding& finding) {
    nlohmann::json json = {{"severity", finding.isError ? "error" : "warning"},
                           {"id", finding.id},
                           {"what", finding.what},
                           {"why", finding.why},
                           {"mend", finding.mend}};
    if (finding.offset)
        json["offset"] = *finding.offset;
    if (finding.line)
        json["line"] = *finding.line;
    return json;
}

// The part of this name, or at this offset.
const ListedPart& findPart(const ImageListing& listing, const std::string& image, const std::string& part) {
    std::vector<const ListedPart*> found;
    for (const ListedPart& row : listing.parts)
        if (!row.name.empty() && row.name == part)
            found.push_back(&row);
    if (found.empty())
        for (const ListedPart& row : listing.parts)
            if (!row.name.empty() && std::to_string(row.offset) == part)
                found.push_back(&row);
    if (found.empty())
        throw InputError(image + ": has no part '" + part + "'" +
                         (listing.problem.empty() ? "" : "; it " + listing.problem));
    if (found.size() > 1)
        throw InputError(image + ": has " + std::to_string(found.size()) + " parts '" + part +
                         "': give the offset of one, for example " + std::to_string(found[0]->offset));
    return *found[0];
}

// Builds an image for a description, and finds what is wrong with it.
class ImageBuild {
  public:
    explicit ImageBuild(std::string description)
        : mDescription(std::move(description)), mPlaces(readImageDescription(mDescription, mBuilder)) {}

    const imagefile::ImageBuilder& builder() const { return mBuilder; }

    void refuseOutput(const std::string& image) {
        imagefile::refuseInput(image, mDescription);
        for (size_t i = 0; i < mBuilder.count(); ++i)
            imagefile::refuseInput(image, mBuilder.at(i).file);
    }

    // Writes the image to a file, and throws when it is not as it should be. `name` is what people call it.
    void write(const std::string& file, const std::string& name, const std::vector<std::string>& older,
               bool isChecked, const Console& console) {
        {
            Progress progress(name, mBuilder.size(), console);
            mBuilder.write(file, [&](uint64_t done, uint64_t total) {
                throwIfInterrupted();
                progress.update(done, total);
            });
        }
        Findings findings;
        if (isChecked)
            findings = checkImage(file, older);
        else if (!older.empty())
            findings = findReusedVersions(imagefile::ImageReader(file), older);
        const auto isError = [](const Finding& finding) { return finding.isError; };
        const auto error = std::find_if(findings.begin(), findings.end(), isError);
        if (error != findings.end()) {
            const auto more = std::count_if(error + 1, findings.end(), isError);
            throw InputError(
                placeOf(*error) + printable(error->what) + "; " + error->mend +
                (more > 0 ? "; and " + counted(static_cast<size_t>(more), "error") + " more" : "") +
                (isChecked && error->id != ReusedVersion ? " (--no-check writes it all the same)" : ""));
        }
        for (const Finding& warning : findings)
            console.err << "warning: " << placeOf(warning) << printable(warning.what) << " [" << warning.id
                        << "]\n";
    }

  private:
    // "FILE:LINE: [[part]]: ", where in the description a finding has its cause.
    std::string placeOf(const Finding& finding) const {
        const DescriptionPlaces::Place* place = nullptr;
        if (finding.line)
            place = *finding.line <= mPlaces.manifestLines.size() ? &mPlaces.manifestLines[*finding.line - 1]
                                                                  : &mPlaces.parts[1];
        for (size_t i = 0; place == nullptr && finding.offset && i < mPlaces.parts.size(); ++i)
            if (*finding.offset >= mBuilder.offsetOf(i) && *finding.offset < mBuilder.offsetOf(i + 1))
                place = &mPlaces.parts[i];
        return place == nullptr
                   ? mDescription + ": "
                   : mDescription + ":" + std::to_string(place->line) + ": " + place->table + ": ";
    }

    const std::string mDescription;
    imagefile::ImageBuilder mBuilder;
    const DescriptionPlaces mPlaces;
};

// A file for what is to go to standard output; removed at the end.
class ScratchFile {
  public:
    ScratchFile() : mDirectory(fs::temp_directory_path() / "zemp.XXXXXX") {
        if (mkdtemp(mDirectory.data()) == nullptr)
            throw InputError(mDirectory + ": " + strerror(errno));
    }
    ~ScratchFile() {
        std::error_code none;
        fs::remove_all(mDirectory, none);
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    std::string name() const { return mDirectory + "/image"; }

  private:
    std::string mDirectory;
};

} // namespace

int buildImage(const std::string& description, const std::string& image,
               const std::vector<std::string>& older, bool isChecked, const Console& console) {
    ImageBuild build(description);
    const bool isStream = image == StandardOutput;
    if (isStream) {
        const ScratchFile scratch;
        build.write(scratch.name(), description, older, isChecked, console);
        console.out << std::ifstream(scratch.name(), std::ios::binary).rdbuf();
    } else {
        build.refuseOutput(image);
        imagefile::replaceFile(image, [&](const std::string& temporary) {
            build.write(temporary, image, older, isChecked, console);
        });
    }
    (isStream ? console.err : console.out)
        << (isStream ? "standard output" : image) << ": " << imagefile::groupDigits(build.builder().size())
        << " bytes, " << build.builder().count() << " parts\n";
    return StatusGood;
}

int showListing(const std::string& image, bool json, const Console& console) {
    const imagefile::ImageReader reader = read(image);
    const ImageListing listing = listImage(reader);
    const bool isStart = listing.isIncomplete && reader.size() <= MaximumStartBytes;
    if (json) {
        nlohmann::json result = toJson(listing);
        result["image"] = image;
        result["bytes"] = reader.size();
        printJson(result, console.out);
    } else {
        printListing(listing, console.out);
        if (isStart)
            console.out << "\nonly the start: " << imagefile::groupDigits(reader.size()) << " bytes\n";
#ifdef FW_SEAL
        console.out << describeSeal(image);
#endif
    }
    if (!isStart && !listing.problem.empty())
        throw InputError(image + ": " + listing.problem);
    return StatusGood;
}

int extractPart(const std::string& image, const std::string& part, const std::string& output,
                const Console& console) {
    const imagefile::ImageReader reader = read(image);
    const ImageListing listing = listImage(reader);
    const ListedPart& row = findPart(listing, image, part);
    const std::string name =
        image + ": the body of '" + row.name + "' at offset " + std::to_string(row.offset);
    if (row.body == imagefile::Verdict::Incomplete)
        throw InputError(name + " is incomplete");
    reader.source().load(row.bodyOffset, row.bodySize);
    const uint8_t* const body = reader.data() + row.bodyOffset;
    if (crc32_calc(0, body, row.bodySize) != row.bodyCrc)
        throw InputError(name + " is damaged");
    const auto* const bytes = reinterpret_cast<const char*>(body);
    if (output.empty()) {
        console.out.write(bytes, row.bodySize);
    } else {
        imagefile::refuseInput(output, image);
        writeFile(output, std::string(bytes, row.bodySize));
        console.out << output << ": " << imagefile::groupDigits(row.bodySize) << " bytes\n";
    }
    return StatusGood;
}

int showFindings(const std::string& image, const std::vector<std::string>& older, bool json,
                 const Console& console) {
    const Findings findings = checkImage(image, older);
    const auto errors = static_cast<size_t>(
        std::count_if(findings.begin(), findings.end(), [](const Finding& f) { return f.isError; }));
    const size_t warnings = findings.size() - errors;
    if (json) {
        nlohmann::json rows = nlohmann::json::array();
        for (const Finding& finding : findings)
            rows.push_back(toJson(finding));
        printJson({{"image", image},
                   {"errors", errors},
                   {"warnings", warnings},
                   {"findings", rows},
                   {"bodiesRead", !imagefile::isUrl(image)}},
                  console.out);
    } else {
        for (const Finding& finding : findings)
            console.out << (finding.isError ? "error: " : "warning: ") << where(finding) << ": "
                        << printable(finding.what) << " [" << finding.id << "]\n"
                        << "    why:  " << printable(finding.why) << '\n'
                        << "    mend: " << finding.mend << '\n';
        console.out << image << ": "
                    << (findings.empty() ? "good"
                                         : counted(errors, "error") + ", " + counted(warnings, "warning"))
                    << (imagefile::isUrl(image) ? "; the bodies of software were not read\n" : "\n");
#ifdef FW_SEAL
        console.out << describeSeal(image);
#endif
    }
    return errors == 0 ? StatusGood : StatusBadInput;
}

} // namespace zemp
