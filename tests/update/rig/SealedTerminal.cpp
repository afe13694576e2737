#include "update/rig/SealedTerminal.h"

#include "imagefile/SealedImage.h"
#include "seal/SealGate.h"
#include <filesystem>

namespace fs = std::filesystem;

namespace rig {

std::unique_ptr<seal::Gate> SealedTerminal::makeGate() const {
    return std::make_unique<seal::SealGate>(mSystem.path() + "/keys.d", mSystem.path() + "/state/serial");
}

std::string SealedTerminal::seal(const std::string& version, const std::string& comment,
                                 const support::SealSigner& signer) {
    const imagefile::Bytes& image = server.images[urlOf(version)];
    const imagefile::ImageReader reader(
        mSystem.write("unsealed.zemp", std::string(image.begin(), image.end())));
    std::string text = signer.sign(toText(imagefile::sealLinesOf(reader)), comment);
    serveSeal(version, text);
    return text;
}

void SealedTerminal::serveSeal(const std::string& version, const std::string& seal) {
    server.images[seal::sealUrl(urlOf(version))] = imagefile::bytesOf(seal);
}

void SealedTerminal::trust(const std::string& name, const std::string& keyFile) const {
    fs::create_directory(mSystem.path() + "/keys.d");
    mSystem.write("keys.d/" + name, keyFile);
}

void SealedTerminal::distrust() const {
    fs::remove_all(mSystem.path() + "/keys.d");
}

void SealedTerminal::makeHonest() {
    serveWhatWasPublished();
    distrust();
    trust("maker.pub", support::SealSigner().keyFile());
}

void SealedTerminal::keepSerial(const std::string& text) const {
    fs::create_directory(mSystem.path() + "/state");
    mSystem.write("state/serial", text);
}

std::string SealedTerminal::serial() const {
    return lab::TemporaryDirectory::read(mSystem.path() + "/state/serial");
}

} // namespace rig
