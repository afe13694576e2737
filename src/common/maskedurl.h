// URLs in log lines. Any thread may call this.
#ifndef COMMON_MASKEDURL_H
#define COMMON_MASKEDURL_H

#include <string>

// The URL as it may be logged: "***" in place of user and password, and printable. One that is malformed
// loses everything before its last "@" when there is anything like a password in it.
std::string maskedUrl(const std::string& url);

#endif
