#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace support {

TemporaryDirectory::TemporaryDirectory() : mOwner(getpid()) {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/fwtest.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("no temporary directory " + pattern);
    mPath = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    if (getpid() == mOwner)
        std::filesystem::remove_all(mPath, ignored);
}

} // namespace support
