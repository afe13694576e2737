// Bytes as hexadecimal text.
#ifndef VEXCTL_HEXTEXT_H
#define VEXCTL_HEXTEXT_H

#include <cstddef>
#include <string>
#include <vector>

// Two lower-case digits per byte.
std::string toHex(const void* data, size_t length);

// The bytes of `text`, two digits each in either case. False when it is anything else; then `bytes` is
// unspecified.
[[nodiscard]] bool fromHex(const std::string& text, std::vector<unsigned char>& bytes);

#endif
