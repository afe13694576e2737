// A seal: the lines that tell what a release consists of, and who signed them. For any thread; nothing here
// throws or logs.
#ifndef SEAL_SEAL_H
#define SEAL_SEAL_H

#include "seal/SealLines.h"
#include "seal/Signature.h"
#include <optional>

namespace seal {

constexpr size_t MaximumSealBytes = size_t{64} * 1024;

// What the name of a seal adds to the name of its image.
constexpr const char* NameSuffix = ".seal";

struct Seal {
    SealLines lines;
    KeyId key{};                    // that signed it
    std::string comment;            // signed like the lines
    std::optional<uint64_t> serial; // of the comment "fw VERSION serial NUMBER"
};

enum class Fault { None, TooLong, WrongForm, UnknownKey, BadSignature };

struct Verdict {
    Fault fault;
    std::string reason; // for a line of the log; empty when there is no fault
};

// Reads a seal, and checks that one of the keys signed it before anything of it is looked at. On a fault
// `seal` is unspecified.
[[nodiscard]] Verdict open(const std::string& content, const std::vector<PublicKey>& keys, Seal& seal);

// Whether a comment goes with a release: "fw VERSION", "fw VERSION serial NUMBER", or anything that does not
// begin with the word "fw".
bool isCommentRight(const std::string& comment, const std::string& release);

// The URL of the seal of an image: the suffix goes before a query or a fragment.
std::string sealUrl(const std::string& imageUrl);

} // namespace seal

#endif
