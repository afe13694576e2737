#include "fwctl/Wanted.h"

#include <algorithm>
#include <cctype>

namespace {

bool isNumber(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return isdigit(c); });
}

// It becomes part of file names.
bool isLabel(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return isalnum(c) != 0 || c == '.' || c == '_' || c == '-';
    });
}

} // namespace

std::optional<Wanted> parseWanted(const std::string& text) {
    const size_t dot = text.find('.');
    const size_t dash = dot == std::string::npos ? dot : text.find('-', dot);
    if (dash == std::string::npos)
        return {};
    Wanted wanted = {text.substr(0, dot), text.substr(dot + 1, dash - dot - 1), text.substr(dash + 1)};
    if (!isNumber(wanted.major) || !isNumber(wanted.minor) || !isLabel(wanted.label))
        return {};
    wanted.minor.erase(0, std::min(wanted.minor.find_first_not_of('0'), wanted.minor.size() - 1));
    return wanted;
}

std::string faultOfUrl(const std::string& url) {
    const size_t scheme = url.rfind("http://", 0) == 0 ? 7 : url.rfind("https://", 0) == 0 ? 8 : 0;
    if (scheme == 0)
        return "it does not begin with http:// or https://";
    if (std::any_of(url.begin(), url.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; }))
        return "it has a blank or a control character";
    const std::string authority = url.substr(scheme, url.find_first_of("/?#", scheme) - scheme);
    const std::string host = authority.substr(authority.rfind('@') + 1);
    return host.empty() || host[0] == ':' ? "it names no host" : "";
}
