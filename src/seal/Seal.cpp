#include "seal/Seal.h"

#include <algorithm>
#include <sstream>

namespace seal {

namespace {

// False when the comment begins like one of ours and is none, or tells another version: a serial that is
// misspelt must not go unnoticed.
bool readComment(const std::string& comment, const std::string& release, std::optional<uint64_t>& serial) {
    serial.reset();
    std::istringstream in(comment);
    std::string word;
    if (!(in >> word) || word != "fw")
        return true;
    std::string expected = "fw " + release;
    if (in >> word && in >> word) {
        // A sign, which a stream takes with unsigned numbers, does not come out again below.
        uint64_t number = 0;
        if (!(in >> number))
            return false;
        serial = number;
        expected += " serial " + std::to_string(number);
    }
    return comment == expected;
}

} // namespace

Verdict open(const std::string& content, const std::vector<PublicKey>& keys, Seal& seal) {
    if (content.size() > MaximumSealBytes)
        return {Fault::TooLong, "it is longer than " + std::to_string(MaximumSealBytes) + " bytes"};
    std::string text;
    Signature signature;
    if (!splitSigned(content, text, signature))
        return {Fault::WrongForm, "it does not end in a signature"};
    if (!isKeyKnown(signature, keys))
        return {Fault::UnknownKey, "it is signed by the unknown key " + toText(signature.id)};
    if (!verify(text, signature, keys))
        return {Fault::BadSignature, "its signature by the key " + toText(signature.id) + " is wrong"};
    const std::string problem = parse(text, seal.lines);
    if (!problem.empty())
        return {Fault::WrongForm, problem};
    seal.key = signature.id;
    seal.comment = signature.trustedComment;
    if (!readComment(seal.comment, seal.lines.release, seal.serial))
        return {Fault::WrongForm, "its comment does not go with release " + seal.lines.release};
    return {Fault::None, ""};
}

bool isCommentRight(const std::string& comment, const std::string& release) {
    std::optional<uint64_t> serial;
    return readComment(comment, release, serial);
}

std::string sealUrl(const std::string& imageUrl) {
    std::string url = imageUrl;
    return url.insert(std::min(url.find_first_of("?#"), url.size()), NameSuffix);
}

} // namespace seal
