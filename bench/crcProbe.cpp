// CRC-32 of memory, in a program with little else, so that its instructions can be counted.
//
//     crc_probe bytewise|library KILOBYTES
#include "bench/BytewiseCrc.h"
#include "image/zemp_validate.h"
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

int main(int argc, char** argv) {
    if (argc != 3)
        return 1;
    constexpr size_t MaximumBytes = 1 << 20;
    const size_t size = strtoul(argv[2], nullptr, 0) * 1024;
    if (size > MaximumBytes)
        return 1;
    const auto bytes = std::make_unique<uint8_t[]>(MaximumBytes); // as much work whatever the size
    const bool isBytewise = strcmp(argv[1], "bytewise") == 0;
    printf("%08x\n", isBytewise ? bytewiseCrc(0, bytes.get(), size) : crc32_calc(0, bytes.get(), size));
    return 0;
}
