// Numbers of bytes as people read them: exact ones with their thousands apart, and short ones. Tables and
// JSON have plain digits.
#ifndef IMAGEFILE_NUMBERTEXT_H
#define IMAGEFILE_NUMBERTEXT_H

#include <cstdint>
#include <string>

namespace imagefile {

// "1 305 913".
std::string groupDigits(uint64_t number);

// "512 bytes", "412.3 kB", "20.0 MB"; exact below 1000 bytes.
std::string shortBytes(uint64_t bytes);

} // namespace imagefile

#endif
