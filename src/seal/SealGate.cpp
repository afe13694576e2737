#include "seal/SealGate.h"

#include "common/File.h"
#include "common/VexStreamLog.h"
#include "seal/Seal.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <utility>

namespace seal {

namespace {

constexpr size_t MaximumSerialBytes = 21; // 20 digits and a line end
constexpr mode_t StateDirectoryMode = 0755;

// What is in a file of at most `maximum` bytes; the first byte beyond shows that there are more. False with
// errno set.
bool readFile(const std::string& filename, size_t maximum, std::string& content) {
    File file;
    content.assign(maximum + 1, '\0');
    if (!file.openRegularForReading(filename, File::Links::Refuse))
        return false;
    content.resize(file.read(content.data(), content.size()));
    return !file.hasFailed();
}

// Empty when the highest serial so far was read; 0 when there was none.
std::string readSerial(const std::string& filename, uint64_t& serial) {
    serial = 0;
    std::string text;
    if (!readFile(filename, MaximumSerialBytes, text))
        return errno == ENOENT ? "" : filename + ": " + strerror(errno);
    errno = 0;
    serial = strtoull(text.c_str(), nullptr, 10);
    return errno == 0 && text == std::to_string(serial) + "\n" ? "" : filename + ": is no serial";
}

class SealVoucher : public Voucher {
  public:
    SealVoucher(Seal seal, std::string content, std::string serialFile)
        : mSeal(std::move(seal)), mContent(std::move(content)), mSerialFile(std::move(serialFile)) {}

    std::unique_ptr<Hash> makeHash() const override { return std::make_unique<Sha256>(); }
    uint32_t startSize() const override { return mSeal.lines.start.length; }
    bool isStart(const Digest& start) const override { return start == mSeal.lines.start.digest; }

    bool isHeader(const Digest& header) const override {
        const auto& parts = mSeal.lines.parts;
        return std::any_of(parts.begin(), parts.end(),
                           [&](const SealedPart& part) { return part.header.digest == header; });
    }

    bool isPart(const Digests& digests) const override {
        const auto& parts = mSeal.lines.parts;
        return std::any_of(parts.begin(), parts.end(), [&](const SealedPart& part) {
            return part.header.digest == digests.header && part.body.digest == digests.body;
        });
    }

    bool isNamed(const std::string& name, const std::string& version) const override {
        const auto& parts = mSeal.lines.parts;
        return std::any_of(parts.begin(), parts.end(), [&](const SealedPart& part) {
            return part.name == name && part.version == version;
        });
    }
    size_t numberOfParts() const override { return mSeal.lines.parts.size(); }

    std::string objection() const override {
        uint64_t highest = 0;
        const std::string problem = readSerial(mSerialFile, highest);
        if (!mSeal.serial || (problem.empty() && *mSeal.serial >= highest))
            return "";
        return problem.empty() ? "its serial " + std::to_string(*mSeal.serial) + " is lower than " +
                                     std::to_string(highest)
                               : problem;
    }

    [[nodiscard]] bool keep(const std::string& image, std::string& problem) const override {
        return replace(image + NameSuffix, mContent, problem) && raiseSerial(problem);
    }

  private:
    static bool replace(const std::string& filename, const std::string& content, std::string& problem) {
        problem = filename;
        return File::replace(filename, content.data(), content.size(), File::PublicMode);
    }

    bool raiseSerial(std::string& problem) const {
        uint64_t highest = 0;
        if (!mSeal.serial || (readSerial(mSerialFile, highest).empty() && *mSeal.serial <= highest))
            return true;
        mkdir(mSerialFile.substr(0, mSerialFile.rfind('/')).c_str(), StateDirectoryMode);
        return replace(mSerialFile, std::to_string(*mSeal.serial) + "\n", problem);
    }

    const Seal mSeal;
    const std::string mContent;
    const std::string mSerialFile;
};

} // namespace

SealGate::SealGate(std::string keyDirectory, std::string serialFile)
    : mKeyDirectory(std::move(keyDirectory)), mSerialFile(std::move(serialFile)) {}

void SealGate::readKeys() {
    const KeyRing ring = loadKeys(mKeyDirectory);
    mState = ring.state;
    if (mState == KeyRing::On)
        VEX_LOG(LogInfo) << "SealGate::readKeys() Releases need a seal by one of " << ring.keys.size()
                         << " keys.";
    if (mState == KeyRing::Closed)
        VEX_LOG(LogWarning) << "SealGate::readKeys() No release is good enough, " << ring.problem << ".";
}

std::shared_ptr<const Voucher> SealGate::withoutSeal() const {
    return mState == KeyRing::Off ? Gate::withoutSeal() : nullptr;
}

std::string SealGate::sealUrl(const std::string& imageUrl) const {
    return seal::sealUrl(imageUrl);
}

std::string SealGate::keptName(const std::string& image) const {
    return mState == KeyRing::Off ? image : image + NameSuffix;
}

Gate::Opened SealGate::readSeal(const std::string& filename, const std::string& release) const {
    if (mState == KeyRing::Off)
        return Gate::readSeal(filename, release);
    const KeyRing ring = loadKeys(mKeyDirectory);
    if (ring.state == KeyRing::Closed)
        return {nullptr, ring.problem};
    if (ring.state == KeyRing::Off)
        return {nullptr, mKeyDirectory + ": has no keys any more"};
    std::string content;
    if (!readFile(filename, MaximumSealBytes, content))
        return {nullptr, filename + ": " + strerror(errno)};
    Seal seal;
    const Verdict verdict = seal::open(content, ring.keys, seal);
    if (verdict.fault != Fault::None)
        return {nullptr, verdict.reason};
    if (seal.lines.release != release)
        return {nullptr, "it is of release " + seal.lines.release};
    return {std::make_shared<SealVoucher>(std::move(seal), std::move(content), mSerialFile), ""};
}

} // namespace seal
