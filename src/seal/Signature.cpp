#include "seal/Signature.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sodium/core.h>
#include <sodium/crypto_generichash_blake2b.h>
#include <sodium/crypto_sign_ed25519.h>
#include <sodium/utils.h>

namespace seal {

namespace {

constexpr const char* UntrustedComment = "untrusted comment: ";
constexpr const char* TrustedComment = "trusted comment: ";

// What the lines in base64 hold.
struct KeyBytes {
    std::array<uint8_t, 2> algorithm;
    KeyId id;
    std::array<uint8_t, crypto_sign_ed25519_PUBLICKEYBYTES> key;
};
struct SignatureBytes {
    std::array<uint8_t, 2> algorithm;
    KeyId id;
    std::array<uint8_t, crypto_sign_ed25519_BYTES> signature;
};
static_assert(sizeof(KeyBytes) == 42 && sizeof(SignatureBytes) == 74);

constexpr std::array<uint8_t, 2> Ed25519 = {'E', 'd'};   // in a key
constexpr std::array<uint8_t, 2> Prehashed = {'E', 'D'}; // in a signature

// False unless the line is the base64 of exactly these bytes. The library takes some lines that it would not
// write.
template <typename Bytes>
bool decode(const std::string& line, Bytes& bytes) {
    constexpr int variant = sodium_base64_VARIANT_ORIGINAL;
    std::array<char, sodium_base64_ENCODED_LEN(sizeof(Bytes), sodium_base64_VARIANT_ORIGINAL)> again;
    auto* const data = reinterpret_cast<unsigned char*>(&bytes);
    size_t size = 0;
    return sodium_base642bin(data, sizeof(bytes), line.data(), line.size(), nullptr, &size, nullptr,
                             variant) == 0 &&
           size == sizeof(bytes) &&
           line == sodium_bin2base64(again.data(), again.size(), data, size, variant);
}

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, strlen(prefix), prefix) == 0;
}

// Takes the last line, which has to have a line end, off the text.
bool takeLastLine(std::string& text, std::string& line) {
    if (text.empty() || text.back() != '\n')
        return false;
    text.pop_back();
    const size_t begin = text.rfind('\n') + 1; // 0 behind no line end
    line = text.substr(begin);
    text.erase(begin);
    return true;
}

bool isVerified(const std::array<uint8_t, 64>& signature, const std::string& text, const PublicKey& key) {
    return crypto_sign_ed25519_verify_detached(signature.data(),
                                               reinterpret_cast<const unsigned char*>(text.data()),
                                               text.size(), key.key.data()) == 0;
}

} // namespace

std::string toText(const KeyId& id) {
    uint64_t number = 0;
    for (size_t i = id.size(); i-- > 0;)
        number = number << 8 | id[i];
    std::array<char, 17> text;
    snprintf(text.data(), text.size(), "%" PRIX64, number);
    return text.data();
}

bool parsePublicKey(const std::string& content, PublicKey& key) {
    std::string rest = content;
    std::string line;
    std::string comment;
    KeyBytes bytes;
    if (!takeLastLine(rest, line) || !takeLastLine(rest, comment) || !rest.empty() ||
        !startsWith(comment, UntrustedComment) || !decode(line, bytes) || bytes.algorithm != Ed25519)
        return false;
    key.id = bytes.id;
    key.key = bytes.key;
    return true;
}

bool splitSigned(const std::string& content, std::string& text, Signature& signature) {
    text = content;
    std::string comment;
    std::string line;
    std::string trusted;
    std::string global;
    SignatureBytes bytes;
    if (!takeLastLine(text, global) || !takeLastLine(text, trusted) || !takeLastLine(text, line) ||
        !takeLastLine(text, comment) || !startsWith(comment, UntrustedComment) ||
        !startsWith(trusted, TrustedComment) || !decode(line, bytes) || bytes.algorithm != Prehashed ||
        !decode(global, signature.global))
        return false;
    signature.id = bytes.id;
    signature.signature = bytes.signature;
    signature.trustedComment = trusted.substr(strlen(TrustedComment));
    return true;
}

bool isKeyKnown(const Signature& signature, const std::vector<PublicKey>& keys) {
    return std::any_of(keys.begin(), keys.end(),
                       [&](const PublicKey& key) { return key.id == signature.id; });
}

bool verify(const std::string& text, const Signature& signature, const std::vector<PublicKey>& keys) {
    static const bool isReady = sodium_init() >= 0;
    std::string hash(crypto_generichash_blake2b_BYTES_MAX, '\0');
    if (!isReady || crypto_generichash_blake2b(reinterpret_cast<unsigned char*>(hash.data()), hash.size(),
                                               reinterpret_cast<const unsigned char*>(text.data()),
                                               text.size(), nullptr, 0) != 0)
        return false;
    const std::string commented =
        std::string(signature.signature.begin(), signature.signature.end()) + signature.trustedComment;
    return std::any_of(keys.begin(), keys.end(), [&](const PublicKey& key) {
        return key.id == signature.id && isVerified(signature.signature, hash, key) &&
               isVerified(signature.global, commented, key);
    });
}

} // namespace seal
