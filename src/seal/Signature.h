// Signatures and public keys in the form of the tool minisign: Ed25519 over the BLAKE2b-512 of the signed
// text
// ("prehashed"), and a second signature over the first and the trusted comment. For any thread; nothing here
// throws or logs.
#ifndef SEAL_SIGNATURE_H
#define SEAL_SIGNATURE_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace seal {

using KeyId = std::array<uint8_t, 8>;

// As minisign prints it: hexadecimal, upper case, without leading zeros.
std::string toText(const KeyId& id);

struct PublicKey {
    KeyId id{};
    std::array<uint8_t, 32> key{};
};

// Reads a public key file: an untrusted comment and a line. False when it is none.
[[nodiscard]] bool parsePublicKey(const std::string& content, PublicKey& key);

struct Signature {
    KeyId id{}; // of the key that made it
    std::array<uint8_t, 64> signature{};
    std::array<uint8_t, 64> global{}; // over signature and trusted comment
    std::string trustedComment;
};

// Splits a text that ends in the four lines of a signature. False when it does not; then the results are
// unspecified.
[[nodiscard]] bool splitSigned(const std::string& content, std::string& text, Signature& signature);

// Whether one of the keys has the signature's id, and whether such a key made both signatures.
bool isKeyKnown(const Signature& signature, const std::vector<PublicKey>& keys);
[[nodiscard]] bool verify(const std::string& text, const Signature& signature,
                          const std::vector<PublicKey>& keys);

} // namespace seal

#endif
