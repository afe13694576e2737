#include "imagefile/NumberText.h"

#include <cstdio>
#include <iterator>

namespace imagefile {

std::string groupDigits(uint64_t number) {
    std::string text = std::to_string(number);
    for (size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, " ");
    }
    return text;
}

std::string shortBytes(uint64_t bytes) {
    constexpr double kilo = 1000;
    const char* const units[] = {"bytes", "kB", "MB", "GB"};
    size_t unit = 0;
    auto value = static_cast<double>(bytes);
    while (value >= kilo && unit + 1 < std::size(units)) {
        value /= kilo;
        ++unit;
    }
    char text[64];
    snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text;
}

} // namespace imagefile
