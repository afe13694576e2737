// Puts CRC-32 values of neighbouring byte ranges together, without the bytes. Any thread may call it.
#ifndef IMAGE_CRC32APPEND_H
#define IMAGE_CRC32APPEND_H

#include <cstdint>

// For ranges of one fixed length, which costs some work once and makes each step cheap.
class Crc32Append {
  public:
    // `length` in bytes, of each range that is appended.
    explicit Crc32Append(uint64_t length);

    // CRC-32 of the bytes behind `crc` followed by a range with the CRC-32 `next`.
    uint32_t operator()(uint32_t crc, uint32_t next) const;

  private:
    const uint32_t mShift;
};

#endif
