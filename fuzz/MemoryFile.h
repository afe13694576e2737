// A file without a disk, for code that takes a path.
#ifndef FUZZ_MEMORYFILE_H
#define FUZZ_MEMORYFILE_H

#include "fuzz/FuzzTarget.h"
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

class MemoryFile {
  public:
    MemoryFile() { FUZZ_REQUIRE(mFd >= 0); }
    ~MemoryFile() { close(mFd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // Replaces what the file holds.
    void write(const uint8_t* data, size_t size) {
        FUZZ_REQUIRE(ftruncate(mFd, 0) == 0);
        FUZZ_REQUIRE(pwrite(mFd, data, size, 0) == static_cast<ssize_t>(size));
    }

    // A path that opens it anew, in this process only.
    const std::string& path() const { return mPath; }

  private:
    const int mFd = memfd_create("fuzz", MFD_CLOEXEC);
    const std::string mPath = "/proc/self/fd/" + std::to_string(mFd);
};

} // namespace fuzz

#endif
