#include "lab/TemporaryDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace lab {

TemporaryDirectory::TemporaryDirectory(const std::string& prefix) : mOwner(getpid()) {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/" + prefix + ".XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("no temporary directory " + pattern);
    mPath = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    if (getpid() == mOwner && !mKept)
        std::filesystem::remove_all(mPath, ignored);
}

} // namespace lab
