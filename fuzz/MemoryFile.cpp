#include "fuzz/MemoryFile.h"

#include "fuzz/FuzzTarget.h"
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

MemoryFile::MemoryFile()
    : mFd(memfd_create("fuzz", MFD_CLOEXEC)), mPath("/proc/self/fd/" + std::to_string(mFd)) {
    FUZZ_REQUIRE(mFd >= 0);
}

MemoryFile::~MemoryFile() {
    close(mFd);
}

void MemoryFile::write(const uint8_t* data, size_t size) {
    FUZZ_REQUIRE(ftruncate(mFd, 0) == 0);
    FUZZ_REQUIRE(pwrite(mFd, data, size, 0) == static_cast<ssize_t>(size));
}

} // namespace fuzz
