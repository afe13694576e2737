// Text of others, fit for a terminal and for a log of one line each.
#ifndef COMMON_PRINTABLE_H
#define COMMON_PRINTABLE_H

#include <string>

// The text with "?" for each control character of ASCII: line ends, tabs, zero bytes and escapes too. Bytes
// from 0x80 on stay, as they may be UTF-8.
std::string printable(std::string text);

#endif
