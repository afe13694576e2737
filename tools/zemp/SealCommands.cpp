#include "zemp/SealCommands.h"

#include "imagefile/ImageReader.h"
#include "imagefile/ImageSource.h"
#include "imagefile/ReplaceFile.h"
#include "seal/Seal.h"
#include "zemp/Files.h"
#include "zemp/InputError.h"
#include "zemp/Interrupt.h"
#include <filesystem>

namespace zemp {

namespace {

constexpr uint64_t MaximumKeyBytes = 1024;
constexpr size_t DigestStep = 1024UL * 1024; // between two looks at interrupts

seal::Extent extentOf(const uint8_t* data, uint64_t length) {
    seal::Sha256 sum;
    for (uint64_t done = 0; done < length;) {
        throwIfInterrupted();
        const size_t step = static_cast<size_t>(std::min<uint64_t>(length - done, DigestStep));
        sum.update(data + done, step);
        done += step;
    }
    return {static_cast<uint32_t>(length), sum.finish()};
}

// The first thing in an image that keeps it from being sealed, with its place; empty if there is none.
std::string unsoundnessOf(const imagefile::ImageReader& image) {
    if (!image.isHeaderValid())
        return "the main header is damaged";
    for (const imagefile::ImagePart& part : image.parts())
        if (!part.isBodyValid())
            return "the body of '" + part.name() + "' at offset " + std::to_string(part.offset) +
                   (part.isComplete() ? " is damaged" : " is incomplete");
    if (image.partsEnd() != image.size() || !image.isBodyValid())
        return "no sound part at offset " + std::to_string(image.partsEnd());
    const auto& parts = image.parts();
    if (parts.size() < 3 || &parts[0] != image.release() || &parts[1] != image.manifest())
        return "it does not hold a release header, a manifest and a part, in this order";
    return "";
}

seal::SealLines linesOf(const std::string& filename) {
    const imagefile::ImageReader image(filename);
    const std::string unsoundness = unsoundnessOf(image);
    if (!unsoundness.empty())
        throw InputError(filename + ": " + unsoundness + "; 'zemp check' says more");
    seal::SealLines lines;
    lines.release = imagefile::versionText(image.release()->version);
    lines.image = extentOf(image.data(), image.size());
    for (size_t i = 2; i < image.parts().size(); ++i) {
        const imagefile::ImagePart& part = image.parts()[i];
        seal::SealedPart& sealed = lines.parts.emplace_back();
        sealed.offset = static_cast<uint32_t>(part.offset);
        sealed.name = part.name();
        sealed.version = part.isType(ZempFormat::SwBlobType) ? imagefile::versionText(part.version) : "-";
        sealed.header = extentOf(image.data() + part.offset, part.header.hdr_length);
        sealed.body = extentOf(image.data() + part.bodyOffset(), part.header.body_length);
    }
    lines.start = extentOf(image.data(), image.parts()[2].offset);
    return lines;
}

std::vector<seal::PublicKey> readKeys(const std::vector<std::string>& files) {
    std::vector<seal::PublicKey> keys;
    for (const std::string& file : files) {
        if (!seal::parsePublicKey(readFile(file, MaximumKeyBytes), keys.emplace_back()))
            throw InputError(file + ": is no public key of minisign");
    }
    return keys;
}

std::unique_ptr<imagefile::ImageSource> open(const std::string& name) {
    return imagefile::openImage(name, [] { return interruptedBy() != 0; });
}

std::string sealOf(const std::string& image) {
    return imagefile::isUrl(image) ? seal::sealUrl(image) : image + seal::NameSuffix;
}

std::string readSeal(const std::string& name) {
    if (!imagefile::isUrl(name))
        return readFile(name, seal::MaximumSealBytes);
    const auto source = open(name);
    if (source->size() > seal::MaximumSealBytes)
        throw InputError(name + ": is longer than " + std::to_string(seal::MaximumSealBytes) + " bytes");
    source->load(0, source->size());
    return {reinterpret_cast<const char*>(source->data()), static_cast<size_t>(source->size())};
}

// Throws unless these bytes of the image are as sealed.
void checkExtent(const imagefile::ImageSource& image, uint64_t offset, const seal::Extent& sealed,
                 const std::string& what) {
    if (offset > image.size() || sealed.length > image.size() - offset)
        throw InputError(image.name() + ": " + what + " at offset " + std::to_string(offset) +
                         " is incomplete");
    if (extentOf(image.data() + offset, sealed.length).digest != sealed.digest)
        throw InputError(image.name() + ": " + what + " at offset " + std::to_string(offset) +
                         " is not what was sealed");
}

} // namespace

int writeDigest(const std::string& image, const std::string& output, const Console& console) {
    const seal::SealLines lines = linesOf(image);
    const std::string text = toText(lines);
    seal::SealLines read;
    const std::string problem = parse(text, read);
    if (!problem.empty())
        throw InputError(image + ": its names cannot stand in a seal, " + problem);
    if (output.empty()) {
        console.out << text;
        return StatusGood;
    }
    imagefile::refuseInput(output, image);
    writeFile(output, text);
    console.out << output << ": release " << lines.release << ", " << lines.parts.size() << " parts\n"
                << "Sign it: minisign -S -s KEY.sec -m " << output << " -t 'fw " << lines.release << "'\n";
    return StatusGood;
}

int writeSeal(const std::string& lines, const std::string& signature, const std::vector<std::string>& keys,
              const std::string& output, const Console& console) {
    const std::string text = readFile(lines, seal::MaximumSealBytes);
    seal::SealLines read;
    const std::string problem = parse(text, read);
    if (!problem.empty())
        throw InputError(lines + ": is not what 'zemp digest' writes: " + problem);
    const std::string content = text + readFile(signature, seal::MaximumSealBytes);
    std::string signedText;
    seal::Signature parts;
    if (!seal::splitSigned(content, signedText, parts) || signedText != text)
        throw InputError(signature + ": is no signature of minisign");
    if (!keys.empty()) {
        seal::Seal opened;
        const seal::Verdict verdict = seal::open(content, readKeys(keys), opened);
        if (verdict.fault != seal::Fault::None)
            throw InputError(signature + ": " + verdict.reason);
    } else if (!seal::isCommentRight(parts.trustedComment, read.release)) {
        throw InputError(signature + ": its comment '" + parts.trustedComment +
                         "' does not go with release " + read.release);
    }
    for (const std::string& input : {lines, signature})
        imagefile::refuseInput(output, input);
    writeFile(output, content);
    console.out << output << ": release " << read.release << ", signed by key " << seal::toText(parts.id)
                << (keys.empty() ? ", signature not checked (no --key)" : "") << '\n';
    return StatusGood;
}

int verifyImage(const std::string& image, const std::vector<std::string>& keys, const std::string& seal,
                const Console& console) {
    const std::string sealName = seal.empty() ? sealOf(image) : seal;
    seal::Seal opened;
    const seal::Verdict verdict = seal::open(readSeal(sealName), readKeys(keys), opened);
    if (verdict.fault != seal::Fault::None)
        throw InputError(sealName + ": " + verdict.reason);
    const auto source = open(image);
    source->load(0, source->size());
    checkExtent(*source, 0, opened.lines.start, "the start");
    for (const seal::SealedPart& part : opened.lines.parts) {
        checkExtent(*source, part.offset, part.header, "the header of '" + part.name + "'");
        checkExtent(*source, uint64_t{part.offset} + part.header.length, part.body,
                    "the body of '" + part.name + "'");
    }
    if (source->size() != opened.lines.image.length)
        throw InputError(image + ": has " + std::to_string(source->size()) + " bytes, sealed are " +
                         std::to_string(opened.lines.image.length));
    checkExtent(*source, 0, opened.lines.image, "the image");
    console.out << image << ": release " << opened.lines.release << ", " << opened.lines.parts.size()
                << " parts, as sealed by key " << seal::toText(opened.key);
    if (opened.serial)
        console.out << ", serial " << *opened.serial;
    console.out << '\n';
    return StatusGood;
}

std::string describeSeal(const std::string& image) {
    if (imagefile::isUrl(image) || !std::filesystem::exists(sealOf(image)))
        return "";
    const std::string name = sealOf(image);
    std::string text;
    seal::Signature signature;
    if (!seal::splitSigned(readFile(name, seal::MaximumSealBytes), text, signature))
        return name + ": is no seal\n";
    return name + ": signed by key " + seal::toText(signature.id) + "; 'zemp verify' checks it\n";
}

} // namespace zemp
