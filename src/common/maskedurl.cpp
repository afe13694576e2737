#include "common/maskedurl.h"

#include "common/printable.h"
#include <algorithm>

std::string maskedUrl(const std::string& url) {
    const size_t scheme =
        url.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.");
    const bool hasScheme = scheme != std::string::npos && url.compare(scheme, 2, ":/") == 0;
    const size_t begin = hasScheme ? url.find_first_not_of('/', scheme + 1) : 0;
    if (begin == std::string::npos)
        return printable(url);
    const size_t end = std::min(url.find_first_of("/?#", begin), url.size());
    size_t at = url.find_last_of('@', end);
    if (at == std::string::npos || at < begin) {
        // A password with one of these characters ends where a port should be.
        const size_t colon = std::min(url.find(':', begin), end);
        const bool isPort = url[begin] == '[' || url.find_first_not_of("0123456789", colon + 1) >= end;
        at = isPort ? std::string::npos : url.rfind('@');
    }
    if (at == std::string::npos || at < begin)
        return printable(url);
    return printable(url.substr(0, begin) + "***" + url.substr(at));
}
