#include "lab/TemporaryDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace lab {

TemporaryDirectory::TemporaryDirectory(const std::string& prefix) : mOwner(getpid()) {
    const char* const place = getenv("TMPDIR");
    std::string pattern =
        std::string(place != nullptr && *place != '\0' ? place : "/tmp") + "/" + prefix + ".XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot make a temporary directory '" + pattern + "': " + strerror(errno));
    pattern = std::filesystem::absolute(pattern);
    mPath = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    if (getpid() == mOwner && !mKept)
        std::filesystem::remove_all(mPath, ignored);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& content) const {
    std::string path = file(name);
    std::filesystem::remove(path);
    std::ofstream stream(path, std::ios::binary);
    if (!(stream << content << std::flush))
        throw std::runtime_error("cannot write " + path);
    return path;
}

std::string TemporaryDirectory::read(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace lab
