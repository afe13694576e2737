#include "workers/RegularFile.h"

#include "main/ArgParser.h"
#include <cstdlib>
#include <memory>
#include <sys/stat.h>

std::string resolveRegularFile(const std::string& path) {
    const std::unique_ptr<char, decltype(&free)> resolved(ArgParser::verifyIsFile(path), &free);
    struct stat status = {};
    // The check above lets other kinds of files pass with a warning.
    if (!resolved || stat(resolved.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return "";
    return resolved.get();
}
