// The version text that the main header and the manifest compare with.
#ifndef IMAGE_RAWVERSION_H
#define IMAGE_RAWVERSION_H

#include <cstdint>
#include <string>

// Like ZempPart::getVersionString(), but with `minor` as one raw character behind a zero digit: minor 53
// gives what getVersionString() gives for minor 5.
inline std::string rawVersionText(uint8_t major, uint8_t minor, uint16_t build) {
    return std::to_string(unsigned{major}) + ".0" + static_cast<char>(minor) + "-" +
           std::to_string(unsigned{build});
}

#endif
