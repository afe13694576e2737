#include "HexText.h"

#include <charconv>

namespace {

constexpr const char* sDigits = "0123456789abcdef";

} // namespace

std::string toHex(const void* data, size_t length) {
    const auto* const bytes = static_cast<const unsigned char*>(data);
    std::string text;
    text.reserve(2 * length);
    for (size_t i = 0; i < length; ++i) {
        text += sDigits[bytes[i] >> 4U];
        text += sDigits[bytes[i] & 15U];
    }
    return text;
}

bool fromHex(const std::string& text, std::vector<unsigned char>& bytes) {
    bytes.clear();
    if (text.size() % 2 != 0)
        return false;
    for (size_t i = 0; i < text.size(); i += 2) {
        unsigned char byte = 0;
        const char* const end = text.data() + i + 2;
        const auto parsed = std::from_chars(end - 2, end, byte, 16);
        if (parsed.ec != std::errc() || parsed.ptr != end)
            return false;
        bytes.push_back(byte);
    }
    return true;
}
