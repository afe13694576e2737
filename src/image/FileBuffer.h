// The bytes of a file as the parser sees them: memory of a given size that holds the file's bytes from its
// start and zero bytes where the file is shorter.
//
// Images are large and most of their bytes are only run through a CRC, so bytes are read when they are asked
// for, and memory is used for headers and small bodies only. Each byte is read once, however often it is
// asked for, as long as requests move forward, so of a file that changes meanwhile no byte has two values. A
// file that is cut meanwhile reads as zero. Used by one thread.
#ifndef IMAGE_FILEBUFFER_H
#define IMAGE_FILEBUFFER_H

#include "seal/Gate.h"
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

class FileBuffer {
  public:
    FileBuffer() = default;
    ~FileBuffer();
    FileBuffer(const FileBuffer&) = delete;
    FileBuffer& operator=(const FileBuffer&) = delete;

    // Reserves `size` bytes (at least 1) of zeroed memory. False when the system refuses.
    [[nodiscard]] bool allocate(uint32_t size);

    // Opens the file for reading. False with errno set when that fails.
    [[nodiscard]] bool open(const std::string& filename);

    const uint8_t* data() const { return mData; }

    // Makes `length` bytes from `at` readable. The range lies within the memory.
    void load(const uint8_t* at, uint32_t length);

    // CRC-32 of such a range, whether it was loaded or not, and the digest's sum too unless that is null. A
    // cancellation point.
    uint32_t crc(const uint8_t* at, uint32_t length, seal::Hash* hash = nullptr);

  private:
    // Large enough to make system calls cheap, small enough to stay in the second-level cache until the CRC
    // ran.
    static constexpr size_t WindowBytes = 131072;
    struct alignas(4096) Window {
        uint8_t bytes[WindowBytes];
    };

    // Reads from the file, to the end of `length` unless the file or the medium ends it. The rest is zeroed.
    void read(uint8_t* to, size_t offset, size_t length);

    std::string mFilename; // for messages
    int mFd = -1;
    uint8_t* mData = nullptr;
    size_t mSize = 0;
    size_t mLoadedBegin = 0; // the bytes between these two offsets stand in memory
    size_t mLoadedEnd = 0;
    bool mHasReadFailed = false; // and that was logged
    std::unique_ptr<Window> mWindow;
};

#endif
