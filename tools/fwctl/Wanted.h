// What may be configured as a version and its URL.
#ifndef FWCTL_WANTED_H
#define FWCTL_WANTED_H

#include <optional>
#include <string>

// A version as the configuration database has it.
struct Wanted {
    std::string major;
    std::string minor; // without leading zeros
    std::string label;

    // As the daemon writes it.
    std::string text() const { return major + "." + (minor.size() < 2 ? "0" : "") + minor + "-" + label; }
};

// From a text like "1.05-7"; nothing when it is not one.
std::optional<Wanted> parseWanted(const std::string& text);

// What is wrong with a URL of an image; empty when nothing is.
std::string faultOfUrl(const std::string& url);

#endif
