// A CRC is a remainder of polynomials over one bit. Appending n bytes multiplies the remainder so far by
// x^(8n), and adds that of the new bytes. Bit 31 is the coefficient of x^0.
#include "image/Crc32Append.h"

namespace {

constexpr uint32_t Polynomial = 0xEDB88320U;
constexpr uint32_t One = 1U << 31;
constexpr uint32_t Byte = One >> 8; // x^8

uint32_t multiply(uint32_t a, uint32_t b) {
    uint32_t product = 0;
    for (; a != 0; a <<= 1) {
        if ((a & One) != 0)
            product ^= b;
        b = (b & 1U) != 0 ? (b >> 1) ^ Polynomial : b >> 1;
    }
    return product;
}

uint32_t power(uint32_t base, uint64_t exponent) {
    uint32_t result = One;
    for (; exponent != 0; exponent >>= 1) {
        if ((exponent & 1U) != 0)
            result = multiply(result, base);
        base = multiply(base, base);
    }
    return result;
}

} // namespace

Crc32Append::Crc32Append(uint64_t length) : mShift(power(Byte, length)) {}

uint32_t Crc32Append::operator()(uint32_t crc, uint32_t next) const {
    return multiply(mShift, crc) ^ next;
}
