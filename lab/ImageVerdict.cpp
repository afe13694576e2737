#include "lab/ImageVerdict.h"

#include "imagefile/NumberText.h"
#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace lab {

using imagefile::ImagePart;
using imagefile::ImageReader;

namespace {

class Judge {
  public:
    Judge(const ImageReader& compiled, const ImageReader& source, const std::vector<PlannedPart>& parts)
        : mCompiled(compiled), mSource(source), mParts(parts) {}

    ImageVerdict judge() {
        mVerdict.size = mCompiled.size();
        checkContainer();
        const std::vector<const ImagePart*> wanted = wantedParts();
        checkOrder(wanted);
        for (const ImagePart* part : wanted)
            checkPart(*part);
        return mVerdict;
    }

  private:
    void fault(const std::string& text) { mVerdict.faults.push_back(text); }

    void checkContainer() {
        if (!mCompiled.isHeaderValid())
            fault("the main header is not valid");
        else if (mCompiled.declaredSize() != mCompiled.size())
            fault("the file has " + imagefile::groupDigits(mCompiled.size()) +
                  " bytes, its main header says " + std::to_string(mCompiled.declaredSize()));
        else if (!mCompiled.isBodyValid())
            fault("the checksum of the whole body is wrong");
        if (mCompiled.partsEnd() != mCompiled.size())
            fault("no valid part at offset " + std::to_string(mCompiled.partsEnd()));
        for (const ImagePart& part : mCompiled.parts())
            if (!part.isBodyValid())
                fault(part.name() + ": the checksum of the body is wrong");
    }

    // Release header, manifest, and the software parts by content index.
    std::vector<const ImagePart*> wantedParts() const {
        std::vector<const ImagePart*> wanted;
        for (const ImagePart* part : {mSource.release(), mSource.manifest()})
            if (part != nullptr)
                wanted.push_back(part);
        std::vector<const PlannedPart*> software;
        for (const PlannedPart& planned : mParts)
            software.push_back(&planned);
        std::stable_sort(software.begin(), software.end(), [](const PlannedPart* a, const PlannedPart* b) {
            return a->element->index < b->element->index;
        });
        for (const PlannedPart* planned : software)
            wanted.push_back(planned->part);
        return wanted;
    }

    void checkOrder(const std::vector<const ImagePart*>& wanted) {
        const auto names = [](const auto& parts, auto nameOf) {
            std::string text;
            for (const auto& part : parts)
                text += (text.empty() ? "" : ", ") + nameOf(part);
            return text;
        };
        const std::string found = names(mCompiled.parts(), [](const ImagePart& part) { return part.name(); });
        const std::string expected = names(wanted, [](const ImagePart* part) { return part->name(); });
        if (found != expected)
            fault("parts are " + found + " instead of " + expected);
    }

    const PlannedPart* planOf(const ImagePart& part) const {
        for (const PlannedPart& planned : mParts)
            if (planned.part == &part)
                return &planned;
        return nullptr;
    }

    // The first part of the compiled image with type, name and version of `part`, else with type and name:
    // there may be two of one name.
    const ImagePart* findCompiled(const ImagePart& part) const {
        const ImagePart* namesake = nullptr;
        for (const ImagePart& candidate : mCompiled.parts()) {
            if (candidate.header.type != part.header.type || candidate.name() != part.name())
                continue;
            if (imagefile::versionText(candidate.version) == imagefile::versionText(part.version))
                return &candidate;
            namesake = namesake != nullptr ? namesake : &candidate;
        }
        return namesake;
    }

    void checkPart(const ImagePart& part) {
        const PlannedPart* const planned = planOf(part);
        const ImagePart* const compiled = findCompiled(part);
        const bool isNeeded = planned == nullptr || planned->isNeeded();
        std::string wrong;
        if (compiled == nullptr)
            wrong = "missing";
        else
            wrong = isNeeded ? compareWhole(part, *compiled) : compareHeaderOnly(part, *compiled);
        if (!wrong.empty()) {
            fault(part.name() + ": " + wrong);
            mVerdict.rows.push_back({part.name(), wrong, false});
            return;
        }
        const std::string size = " (" + imagefile::groupDigits(part.header.body_length) + " bytes)";
        mVerdict.rows.push_back({part.name(),
                                 planned == nullptr ? "identical" + size
                                 : isNeeded         ? "needed, identical" + size
                                                    : "not needed, header only",
                                 true});
    }

    // Header and body byte for byte; padding where the compiled image has it.
    std::string compareWhole(const ImagePart& part, const ImagePart& compiled) const {
        if (compiled.header.body_length == 0 && part.header.body_length != 0)
            return "needed, but only its header is there";
        const uint64_t bytes = uint64_t{part.header.hdr_length} + part.header.body_length;
        if (part.offset + bytes > mSource.size() || compiled.offset + bytes > mCompiled.size())
            return "cut off";
        const uint8_t* const a = mSource.data() + part.offset;
        const uint8_t* const b = mCompiled.data() + compiled.offset;
        const uint64_t same = static_cast<uint64_t>(std::mismatch(a, a + bytes, b).first - a);
        if (same != bytes)
            return "differs from the source image at its byte " + std::to_string(same);
        const uint64_t end = std::min(compiled.offset + compiled.size(), mCompiled.size());
        for (uint64_t i = compiled.offset + bytes; i < end; ++i)
            if (mCompiled.data()[i] != 0)
                return "its padding is not zero";
        return "";
    }

    // The source's header but for the two fields that say that there is no body, and its checksum.
    static std::string compareHeaderOnly(const ImagePart& part, const ImagePart& compiled) {
        if (compiled.header.body_length != 0)
            return "not needed, but its body is there";
        if (compiled.header.body_crc != 0)
            return "without a body, but with a checksum of one";
        if (compiled.header.hdr_length != part.header.hdr_length ||
            memcmp(compiled.header.name, part.header.name, sizeof part.header.name) != 0 ||
            imagefile::versionText(compiled.version) != imagefile::versionText(part.version) ||
            compiled.label != part.label)
            return "its header differs from the source image";
        return "";
    }

    const ImageReader& mCompiled;
    const ImageReader& mSource;
    const std::vector<PlannedPart>& mParts;
    ImageVerdict mVerdict;
};

} // namespace

ImageVerdict judgeImage(const std::string& compiledFile, const ImageReader& source,
                        const std::vector<PlannedPart>& parts) {
    try {
        const ImageReader compiled(compiledFile);
        return Judge(compiled, source, parts).judge();
    } catch (const std::runtime_error& error) {
        ImageVerdict verdict;
        verdict.faults.emplace_back(error.what());
        return verdict;
    }
}

} // namespace lab
