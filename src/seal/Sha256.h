// SHA-256 of bytes that come piece by piece. For any thread, an object for one at a time.
#ifndef SEAL_SHA256_H
#define SEAL_SHA256_H

#include "seal/Gate.h"
#include <sodium/crypto_hash_sha256.h>
#include <string>

namespace seal {

static_assert(crypto_hash_sha256_BYTES == sizeof(Digest));

class Sha256 : public Hash {
  public:
    Sha256();
    void update(const void* data, size_t size) override;
    Digest finish() override;

  private:
    crypto_hash_sha256_state mState;
};

Digest sha256(const void* data, size_t size);

// 64 lower-case hexadecimal digits.
std::string toHex(const Digest& digest);

// False, and `digest` is unspecified, unless the text is what toHex() prints.
[[nodiscard]] bool fromHex(const std::string& text, Digest& digest);

} // namespace seal

#endif
