#include "zemp/ImageCheck.h"

#include "image/ZempPart.h"
#include "image/zemp_validate.h"
#include "installed/suul.h"
#include "plan/UpdatePlan.h"
#include "update/FileFragment.h"
#include "zemp/Interrupt.h"
#include "zemp/ReuseCheck.h"
#include <algorithm>
#include <cstring>
#include <memory>

namespace zemp {

using imagefile::ImagePart;
using imagefile::ImageReader;
using imagefile::Verdict;

namespace {

constexpr uint64_t StartBytes = uint64_t{FileFragment::ZempStartSize} + 1;
constexpr uint64_t LongestHeader = 256; // that is looked for behind a gap: the ordinary ones have 76 at most
constexpr const char* Rebuild = "build the image again, with 'zemp build'";
constexpr const char* NotRead = "the daemon would never finish the update";

std::string number(uint64_t value) {
    return std::to_string(value);
}

class ImageCheck {
  public:
    explicit ImageCheck(const std::string& image)
        : mImage(imagefile::openImage(image, [] { return interruptedBy() != 0; })) {}

    Findings run(const std::vector<std::string>& older) {
        checkMainHeader();
        if (!mImage.isHeaderValid())
            return std::move(mFindings);
        for (const ImagePart& part : mImage.parts()) {
            if (part.name() != SuuDataPartName)
                continue;
            error("record", part.offset, "it is a host configuration record, not an image",
                  "terminals take images", "check it with 'zemp hostcfg check'");
            return std::move(mFindings);
        }
        checkSize();
        for (const ImagePart& part : mImage.parts())
            if (part.isType(ZempFormat::SwBlobType))
                mLastSoftware = part.offset;
        for (const ImagePart& part : mImage.parts()) {
            throwIfInterrupted();
            checkPart(part);
        }
        checkEnd();
        checkOrder();
        if (const ImagePart* const release = mImage.release())
            checkRelease(*release);
        if (const ImagePart* const manifest = mImage.manifest()) {
            checkStart(*manifest);
            if (manifest->isBodyValid() && manifest->header.hdr_length == ZempFormat::BlobBodyOffset)
                checkManifest(mImage, *manifest, mFindings);
        }
        const Findings reused = findReusedVersions(mImage, older);
        mFindings.insert(mFindings.end(), reused.begin(), reused.end());
        if (std::none_of(mFindings.begin(), mFindings.end(), [](const Finding& f) { return f.isError; }))
            rehearse();
        return std::move(mFindings);
    }

  private:
    void add(bool isError, const char* id, uint64_t offset, const std::string& what, const std::string& why,
             const std::string& mend) {
        mFindings.push_back({isError, id, offset, {}, what, why, mend});
    }
    void error(const char* id, uint64_t offset, const std::string& what, const std::string& why,
               const std::string& mend) {
        add(true, id, offset, what, why, mend);
    }
    void warn(const char* id, uint64_t offset, const std::string& what, const std::string& why,
              const std::string& mend) {
        add(false, id, offset, what, why, mend);
    }

    void checkMainHeader() {
        const zemp_header_t& header = mImage.header();
        const uint64_t at = ZempFormat::HeaderOffset;
        if (header.version != ZempFormat::Version)
            error("main-header", at, "the main header has format version " + number(header.version),
                  "the daemon reads version 1 only", Rebuild);
        else if (header.hdr_length < ZempFormat::HeaderSize)
            error("main-header", at, "the main header declares a length of " + number(header.hdr_length),
                  "it has at least 16 bytes; the daemon refuses it", Rebuild);
        else if (!mImage.isHeaderValid())
            error("main-header", at, "the main header fails its CRC", "the daemon refuses the image",
                  Rebuild);
        else if (header.hdr_length != ZempFormat::HeaderSize)
            error("main-header-length", at, "the main header has " + number(header.hdr_length) + " bytes",
                  "the daemon looks for the first software part where a header of 16 bytes puts it; " +
                      std::string(NotRead),
                  "write a main header of 16 bytes");
    }

    void checkSize() {
        const uint64_t declared = mImage.declaredSize();
        if (mImage.size() < declared)
            error("truncated", mImage.size(),
                  "the file has " + number(mImage.size()) + " of " + number(declared) + " bytes",
                  "requests for the missing bytes fail", "copy or build the image again");
        else if (mImage.body() == Verdict::Bad)
            error("main-body", mImage.bodyOffset(), "the main body fails its CRC",
                  "the image is not what was built; the daemon notices only in the parts that it fetches",
                  "copy or build the image again");
        if (mImage.size() > declared)
            warn("trailing", declared, number(mImage.size() - declared) + " bytes follow the image",
                 "nothing reads them", "cut the file to " + number(declared) + " bytes");
        if (mImage.size() > FileFragment::MaximumFileSize)
            error("image-size", 0,
                  "the image has " + number(mImage.size()) + " bytes, more than " +
                      number(FileFragment::MaximumFileSize),
                  "an update image of this size is thrown away as too big when the daemon starts",
                  "make the parts smaller, or release them in two images");
    }

    void checkPart(const ImagePart& part) {
        const std::string name = "part '" + part.name() + "'";
        if (part.size() > FileFragment::MaximumFileSize)
            error("part-size", part.offset, name + " takes " + number(part.size()) + " bytes",
                  "the daemon fetches no part beyond " + number(FileFragment::MaximumFileSize) + " bytes",
                  "make the part smaller");
        if (!part.isComplete())
            return; // the image is truncated
        if (part.body == Verdict::Bad)
            error("part-body", part.bodyOffset(), "the body of " + name + " fails its CRC",
                  "terminals that need it fetch it again and again, then give up", Rebuild);
        checkKind(part, name);
        checkPadding(part, name);
    }

    void checkKind(const ImagePart& part, const std::string& name) {
        uint32_t length = 0;
        if (part.isType(ZempFormat::ReleaseHeaderType))
            length = ZempFormat::ReleaseBodyOffset;
        else if (part.isType(ZempFormat::SwBlobType))
            length = ZempFormat::SwBlobBodyOffset;
        else if (part.isManifest())
            length = ZempFormat::BlobBodyOffset;
        if (length == 0) {
            add(isBeforeSoftware(part), "part-type", part.offset,
                name + " is of type " + number(part.header.type),
                "the daemon understands release headers (1), the manifest (3, named suum) and software (4)",
                "leave the part out");
            return;
        }
        if (part.header.hdr_length != length)
            error("header-length", part.offset,
                  "the header of " + name + " has " + number(part.header.hdr_length) + " bytes, not " +
                      number(length),
                  "the daemon reads the body behind a header of the ordinary length, and finds another one",
                  Rebuild);
        else if (part.isType(ZempFormat::SwBlobType))
            checkSoftware(part, name);
    }

    // What stands before software is in its way; behind all of it, nothing reads it.
    bool isBeforeSoftware(const ImagePart& part) const { return part.offset < mLastSoftware; }

    void checkSoftware(const ImagePart& part, const std::string& name) {
        const std::unique_ptr<ZempPart> blob(ZempPart::createZempPart(&part.header));
        if (blob->getPartType() == ZempPart::UnspecifiedSwBlob)
            error("part-name", part.offset, name + " has a name that the daemon does not know",
                  "an update image with it cannot be compiled",
                  "call it kernel, kernel4812, root, app or 3rdapp");
        if (part.header.body_length == 0)
            warn("empty-part", part.offset, name + " has an empty body", "there is nothing to install",
                 "name a file in the description, or leave the part and its line out");
        if (part.label.size() == sizeof zemp_content_software_blob_t::build_id)
            warn("build-id", part.offset + ZempFormat::ContentHeaderSize,
                 "the build id of " + name + " fills its field, without a zero byte at its end",
                 "readers that expect one run on into the body", "use at most 27 bytes");
    }

    void checkPadding(const ImagePart& part, const std::string& name) {
        const uint64_t end = part.bodyOffset() + part.header.body_length;
        for (uint64_t at = end; at < std::min(part.offset + part.size(), mImage.size()); ++at) {
            if (mImage.data()[at] == 0)
                continue;
            warn("padding", at, "the padding behind " + name + " is not zero",
                 "the update image gets zeros there, so that it differs from this one", Rebuild);
            return;
        }
    }

    bool isHeaderAt(uint64_t at, uint64_t end) const {
        zemp_content_header_t header;
        if (end - at < sizeof header)
            return false;
        memcpy(&header, mImage.data() + at, sizeof header);
        return header.hdr_crc != 0 && header.hdr_length >= sizeof header &&
               header.hdr_length <= std::min(end - at, LongestHeader) &&
               zemp_validate_content_header(
                   reinterpret_cast<const zemp_content_header_t*>(mImage.data() + at)) == ZempValid;
    }

    // What follows the last good part, within the image.
    void checkEnd() {
        const uint64_t at = mImage.partsEnd();
        const uint64_t end = std::min(mImage.declaredSize(), mImage.size());
        if (at >= end || (mImage.size() < mImage.declaredSize() && end - at < UINT16_MAX))
            return;
        uint64_t next = at + 1;
        while (next < end && !isHeaderAt(next, end)) {
            throwIfInterrupted();
            ++next;
        }
        if (next < end)
            error("gap", at,
                  "there are " + number(next - at) + " bytes before the next part, at offset " + number(next),
                  "each part is looked for right behind the one before; " + std::string(NotRead), Rebuild);
        else
            error("part-header", at, "there is no content part with a valid header",
                  "its CRC is wrong, or the part before has a wrong length; " + std::string(NotRead),
                  Rebuild);
    }

    void checkOrder() {
        const std::vector<ImagePart>& parts = mImage.parts();
        const char* const why = "the daemon looks for the release header, then the manifest, then the "
                                "software; ";
        if (parts.empty() || !parts[0].isType(ZempFormat::ReleaseHeaderType))
            error("release", mImage.bodyOffset(), "the image does not begin with a release header",
                  why + std::string(NotRead), "put the release header first");
        else if (parts.size() < 2 || !parts[1].isManifest())
            error("manifest", parts[0].offset + parts[0].size(),
                  "the manifest does not follow the release header", why + std::string(NotRead),
                  "put the manifest there, as a blob (type 3) named suum");
        for (size_t i = 2; i < parts.size(); ++i)
            if (parts[i].isType(ZempFormat::ReleaseHeaderType) || parts[i].isManifest())
                add(isBeforeSoftware(parts[i]), "part-twice", parts[i].offset,
                    "there is another part '" + parts[i].name() + "' behind the manifest",
                    "the daemon reads the first, and looks for software behind it", "leave it out");
    }

    void checkRelease(const ImagePart& release) {
        if (!release.isBodyValid() || release.header.hdr_length != ZempFormat::ReleaseBodyOffset)
            return;
        const auto* const text = reinterpret_cast<const char*>(mImage.data() + release.bodyOffset());
        const uint32_t length = release.header.body_length;
        const uint64_t written = strnlen(text, length) + 1;
        if (written != length || length % ZempFormat::Alignment != 0)
            error("release-text", release.bodyOffset(),
                  "the release text has " + number(written) + " bytes with its zero byte, its body " +
                      number(length),
                  "the update image gets the text and one zero byte, unpadded, under the old length: the "
                  "installer finds no part behind it",
                  "make the body the text and one zero byte, a multiple of 4 long: fill up with line ends");
    }

    void checkStart(const ImagePart& manifest) {
        const uint64_t end = manifest.offset + manifest.size();
        if (end <= StartBytes)
            return;
        if (manifest.offset + ZempFormat::ContentHeaderSize > StartBytes)
            error("start", manifest.offset,
                  "the manifest's header ends beyond the first 512 bytes of the image",
                  "the daemon cannot tell how much more to fetch; " + std::string(NotRead),
                  "make the release text at least " +
                      number(manifest.offset + ZempFormat::ContentHeaderSize - StartBytes) +
                      " bytes shorter");
        else if (end > plan::getMaximumStartBytes())
            error("start", manifest.offset, "the manifest ends at " + number(end),
                  "the daemon fetches at most " + number(plan::getMaximumStartBytes()) + " bytes for it",
                  "make the manifest shorter");
        else
            warn("start", manifest.offset,
                 "release header and manifest take " + number(end) + " bytes, more than 512",
                 "each terminal sends one more request",
                 "shorten the release text, or leave comments out of the manifest");
    }

    void rehearse() {
        const plan::UpdatePlan plan = plan::makePlan(mImage.source(), "");
        if (plan.isReady)
            return;
        error("rehearsal", 0, "a terminal that has nothing installed does not get the update ready",
              plan.complaints.empty() ? NotRead : "the daemon says: " + plan.complaints.back(),
              "see 'zemp plan' for what it does");
    }

    const ImageReader mImage;
    uint64_t mLastSoftware = 0; // its offset; 0 without one
    Findings mFindings;
};

} // namespace

Findings checkImage(const std::string& image, const std::vector<std::string>& older) {
    return ImageCheck(image).run(older);
}

} // namespace zemp
