// A file without a disk, for code that takes a path.
#ifndef FUZZ_MEMORYFILE_H
#define FUZZ_MEMORYFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

class MemoryFile {
  public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // Replaces what the file holds.
    void write(const uint8_t* data, size_t size);

    // A path that opens it anew, in this process only.
    const std::string& path() const { return mPath; }

  private:
    int mFd;
    std::string mPath;
};

} // namespace fuzz

#endif
