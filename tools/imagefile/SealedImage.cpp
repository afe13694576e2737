#include "imagefile/SealedImage.h"

#include <algorithm>

namespace imagefile {

namespace {

constexpr size_t DigestStep = 1024UL * 1024;

} // namespace

seal::Extent extentOf(const uint8_t* data, uint64_t length, const std::function<void()>& onStep) {
    seal::Sha256 sum;
    for (uint64_t done = 0; done < length;) {
        onStep();
        const size_t step = static_cast<size_t>(std::min<uint64_t>(length - done, DigestStep));
        sum.update(data + done, step);
        done += step;
    }
    return {static_cast<uint32_t>(length), sum.finish()};
}

std::string findUnsealable(const ImageReader& image) {
    if (!image.isHeaderValid())
        return "the main header is damaged";
    const auto place = [](const ImagePart& part) {
        return "'" + part.name() + "' at offset " + std::to_string(part.offset);
    };
    for (const ImagePart& part : image.parts()) {
        if (!part.isBodyValid())
            return "the body of " + place(part) + (part.isComplete() ? " is damaged" : " is incomplete");
        if (part.bodyOffset() - part.offset != part.header.hdr_length)
            return "the header of " + place(part) + " declares another length than it has";
    }
    if (image.partsEnd() != image.size() || !image.isBodyValid())
        return "no sound part at offset " + std::to_string(image.partsEnd());
    const auto& parts = image.parts();
    if (parts.size() < 3 || &parts[0] != image.release() || &parts[1] != image.manifest())
        return "it does not hold a release header, a manifest and a part, in this order";
    return "";
}

seal::SealLines sealLinesOf(const ImageReader& image, const std::function<void()>& onStep) {
    seal::SealLines lines;
    lines.release = versionText(image.release()->version);
    lines.image = extentOf(image.data(), image.size(), onStep);
    for (size_t i = 2; i < image.parts().size(); ++i) {
        const ImagePart& part = image.parts()[i];
        seal::SealedPart& sealed = lines.parts.emplace_back();
        sealed.offset = static_cast<uint32_t>(part.offset);
        sealed.name = part.name();
        sealed.version = part.isType(ZempFormat::SwBlobType) ? versionText(part.version) : "-";
        sealed.header = extentOf(image.data() + part.offset, part.header.hdr_length, onStep);
        sealed.body = extentOf(image.data() + part.bodyOffset(), part.header.body_length, onStep);
    }
    lines.start = extentOf(image.data(), image.parts()[2].offset, onStep);
    return lines;
}

} // namespace imagefile
