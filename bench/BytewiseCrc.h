// The plain way to a CRC-32, one table look-up per byte: what other ways are compared with.
#ifndef BENCH_BYTEWISECRC_H
#define BENCH_BYTEWISECRC_H

#include <array>
#include <cstddef>
#include <cstdint>

inline uint32_t bytewiseCrc(uint32_t crc, const uint8_t* data, size_t length) {
    static const auto table = [] {
        std::array<uint32_t, 256> entries{};
        for (uint32_t i = 0; i < entries.size(); ++i) {
            uint32_t value = i;
            for (int bit = 0; bit < 8; ++bit)
                value = (value & 1U) != 0 ? (value >> 1) ^ 0xEDB88320U : value >> 1;
            entries[i] = value;
        }
        return entries;
    }();
    crc = ~crc;
    for (size_t i = 0; i < length; ++i)
        crc = table[(crc ^ data[i]) & 0xFFU] ^ (crc >> 8);
    return ~crc;
}

#endif
