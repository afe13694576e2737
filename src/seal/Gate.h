// Whether releases are taken from their maker only, and what vouches for a release's bytes. The forms in this
// header are those of a terminal without keys: they ask for nothing, and every answer is yes. SealGate.h has
// the others. An object that was made may be asked by any thread.
#ifndef SEAL_GATE_H
#define SEAL_GATE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace seal {

using Digest = std::array<uint8_t, 32>; // SHA-256

// Of a part's header and of its whole body.
struct Digests {
    Digest header{};
    Digest body{};

    bool operator==(const Digests& other) const { return header == other.header && body == other.body; }
};

// Sums bytes that come piece by piece. Used by one thread at a time.
class Hash {
  public:
    virtual ~Hash() = default;
    virtual void update(const void* data, size_t size) = 0;

    // Of all that was given since the last call.
    virtual Digest finish() = 0;
};

// Whether bytes are those of one release.
class Voucher {
  public:
    virtual ~Voucher() = default;

    // What its digests are made with. Null: there is nothing to sum, and nothing to ask below.
    virtual std::unique_ptr<Hash> makeHash() const { return nullptr; }

    // Length of the image's start: main header, release header and manifest.
    virtual uint32_t startSize() const { return 0; }
    virtual bool isStart(const Digest& /*start*/) const { return true; }
    virtual bool isHeader(const Digest& /*header*/) const { return true; }

    // Whether one part has both.
    virtual bool isPart(const Digests& /*digests*/) const { return true; }

    // Whether one part has this name and version.
    virtual bool isNamed(const std::string& /*name*/, const std::string& /*version*/) const { return true; }
    virtual size_t numberOfParts() const { return 0; }

    // What speaks against the release although it is genuine: one that came after it was taken already. Empty
    // when nothing does.
    virtual std::string objection() const { return ""; }

    // To be called when an update image is complete, before it is flagged: has on disk what is needed to
    // check it again. False with errno set when that fails; then `problem` says at which file.
    [[nodiscard]] virtual bool keep(const std::string& /*image*/, std::string& /*problem*/) const {
        return true;
    }
};

class Gate {
  public:
    // A voucher, or why there is none.
    struct Opened {
        std::shared_ptr<const Voucher> voucher;
        std::string problem;
    };

    virtual ~Gate() = default;

    // Of a terminal without keys.
    static Gate& withoutKeys();

    // Finds out whether there are keys. Called once, before anything else.
    virtual void readKeys() {}

    // What vouches for a release before a seal was read; null when one has to be read first.
    virtual std::shared_ptr<const Voucher> withoutSeal() const { return std::make_shared<Voucher>(); }

    // Where the seal of the image at a URL is, and where the one of an update image is kept.
    virtual std::string sealUrl(const std::string& imageUrl) const { return imageUrl; }
    virtual std::string keptName(const std::string& image) const { return image; }

    // Reads the seal of a release from a file.
    virtual Opened readSeal(const std::string& /*filename*/, const std::string& /*release*/) const {
        return {withoutSeal(), ""};
    }
};

inline Gate& Gate::withoutKeys() {
    static Gate gate;
    return gate;
}

} // namespace seal

#endif
