// Makes keys and signs seals as minisign does, without its program.
#ifndef SUPPORT_SEALSIGNER_H
#define SUPPORT_SEALSIGNER_H

#include "seal/Seal.h"
#include <sodium.h>

namespace support {

class SealSigner {
  public:
    // The same `seed` gives the same key.
    explicit SealSigner(uint8_t seed = 1) {
        std::array<uint8_t, crypto_sign_SEEDBYTES> bytes{};
        bytes[0] = seed;
        mKey.id = {seed, 2, 3, 4, 5, 6, 7, 8};
        crypto_sign_seed_keypair(mKey.key.data(), mSecret.data(), bytes.data());
    }

    const seal::PublicKey& key() const { return mKey; }

    // Content of the public key file.
    std::string keyFile() const {
        return "untrusted comment: a key\n" + base64(std::string("Ed") + text(mKey.id) + text(mKey.key)) +
               "\n";
    }

    // The seal of these lines.
    std::string sign(const std::string& lines, const std::string& comment) const {
        std::string hash(crypto_generichash_BYTES_MAX, '\0');
        crypto_generichash(bytes(hash), hash.size(), bytes(lines), lines.size(), nullptr, 0);
        const std::string signature = makeSignature(hash);
        return lines + "untrusted comment: signature\n" +
               base64(std::string("ED") + text(mKey.id) + signature) + "\ntrusted comment: " + comment +
               "\n" + base64(makeSignature(signature + comment)) + "\n";
    }

  private:
    template <size_t Size>
    static std::string text(const std::array<uint8_t, Size>& bytes) {
        return {bytes.begin(), bytes.end()};
    }
    static unsigned char* bytes(const std::string& text) {
        return reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
    }
    static std::string base64(const std::string& data) {
        std::string text(sodium_base64_encoded_len(data.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
        sodium_bin2base64(text.data(), text.size(), bytes(data), data.size(), sodium_base64_VARIANT_ORIGINAL);
        text.pop_back();
        return text;
    }
    std::string makeSignature(const std::string& message) const {
        std::string signature(crypto_sign_BYTES, '\0');
        crypto_sign_detached(bytes(signature), nullptr, bytes(message), message.size(), mSecret.data());
        return signature;
    }

    seal::PublicKey mKey;
    std::array<uint8_t, crypto_sign_SECRETKEYBYTES> mSecret{};
};

} // namespace support

#endif
