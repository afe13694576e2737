#include "seal/Sha256.h"

#include <sodium/utils.h>

namespace seal {

Sha256::Sha256() {
    crypto_hash_sha256_init(&mState);
}

void Sha256::update(const void* data, size_t size) {
    crypto_hash_sha256_update(&mState, static_cast<const unsigned char*>(data), size);
}

Digest Sha256::finish() {
    Digest digest;
    crypto_hash_sha256_final(&mState, digest.data());
    crypto_hash_sha256_init(&mState);
    return digest;
}

Digest sha256(const void* data, size_t size) {
    Sha256 sum;
    sum.update(data, size);
    return sum.finish();
}

std::string toHex(const Digest& digest) {
    std::array<char, 2 * sizeof(Digest) + 1> text;
    return sodium_bin2hex(text.data(), text.size(), digest.data(), digest.size());
}

bool fromHex(const std::string& text, Digest& digest) {
    size_t size = 0;
    return sodium_hex2bin(digest.data(), digest.size(), text.data(), text.size(), nullptr, &size, nullptr) ==
               0 &&
           size == digest.size() && text == toHex(digest);
}

} // namespace seal
