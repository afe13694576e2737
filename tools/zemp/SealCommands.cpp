#include "zemp/SealCommands.h"

#include "imagefile/ImageSource.h"
#include "imagefile/NumberText.h"
#include "imagefile/ReplaceFile.h"
#include "imagefile/SealedImage.h"
#include "seal/Seal.h"
#include "zemp/Files.h"
#include "zemp/InputError.h"
#include "zemp/Interrupt.h"
#include <filesystem>

namespace zemp {

namespace {

constexpr uint64_t MaximumKeyBytes = 1024;
seal::SealLines linesOf(const std::string& filename) {
    const imagefile::ImageReader image(filename);
    const std::string problem = imagefile::findUnsealable(image);
    if (!problem.empty())
        throw InputError(filename + ": " + problem + "; 'zemp check' says more");
    return sealLinesOf(image, throwIfInterrupted);
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
    if (imagefile::extentOf(image.data() + offset, sealed.length, throwIfInterrupted).digest != sealed.digest)
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
        throw InputError(image + ": has " + imagefile::groupDigits(source->size()) + " bytes, sealed are " +
                         imagefile::groupDigits(opened.lines.image.length));
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
