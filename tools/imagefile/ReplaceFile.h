// Output files that are there whole or not at all. For any thread; failures are std::runtime_error with the
// file's name and the reason.
#ifndef IMAGEFILE_REPLACEFILE_H
#define IMAGEFILE_REPLACEFILE_H

#include <functional>
#include <string>

namespace imagefile {

// Makes or replaces a regular file whole: `fill` writes the file of the temporary name that it is given, in
// the same directory, which then is synced and takes the place of `path`. When `fill` throws a
// std::exception, or anything else fails, `path` is as before and nothing is left behind; where the
// exception's text names the temporary file, it is made to name `path`. The target of a symbolic link is
// replaced, not the link; anything but a regular file, a device for example, is left alone and a failure.
void replaceFile(const std::string& path, const std::function<void(const std::string& temporary)>& fill);

// Throws if the two names are one file, which a replacement would lose.
void refuseInput(const std::string& output, const std::string& input);

// Writes a file from its beginning.
void writeContent(const std::string& path, const std::string& content);

} // namespace imagefile

#endif
