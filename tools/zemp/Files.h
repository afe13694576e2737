// Input and output files of the tool. Failures are InputError with the file's name and the reason.
#ifndef ZEMP_FILES_H
#define ZEMP_FILES_H

#include <cstdint>
#include <string>

namespace zemp {

// Content of a regular file of at most `limit` bytes.
std::string readFile(const std::string& path, uint64_t limit);

// Makes or replaces a regular file whole, as imagefile::replaceFile() does; also ends at an interrupt.
void writeFile(const std::string& path, const std::string& content);

} // namespace zemp

#endif
