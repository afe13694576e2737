// Input and output files of the tool. Failures are InputError with the file's name and the reason.
#ifndef ZEMP_FILES_H
#define ZEMP_FILES_H

#include <cstdint>
#include <functional>
#include <string>

namespace zemp {

// Content of a regular file of at most `limit` bytes.
std::string readFile(const std::string& path, uint64_t limit);

// Makes or replaces a regular file whole: `fill` writes the file of the temporary name that it is given, in
// the same directory, which then is synced and takes the place of `path`. When `fill` throws a
// std::exception, or anything else fails, `path` is as before and nothing is left behind; where the
// exception's text names the temporary file, it is made to name `path`.
void replaceFile(const std::string& path, const std::function<void(const std::string& temporary)>& fill);

// The same with the whole content at hand.
void writeFile(const std::string& path, const std::string& content);

} // namespace zemp

#endif
