// Reads a file in the steps that suit a copy.
#ifndef IMAGE_READINSTEPS_H
#define IMAGE_READINSTEPS_H

#include "common/File.h"
#include "common/Thread.h"
#include <algorithm>
#include <memory>

// Writes in large steps that end at multiples of the step let a file system keep a file in few large pieces
// of memory, which costs a quarter less processor time than steps of 10000 bytes behind a buffer. This much
// still stays in the processor's cache between its read and its write.
constexpr size_t CopyBytes = 262144;

// Hands the file's next bytes, at most `size` of them, to `take` in steps, until that returns false. Returns
// the number of bytes it took. The steps are such that a file which is written from `position` on gets
// aligned writes.
template <typename Take>
uint64_t readInSteps(File& file, uint64_t size, uint64_t position, const Take& take) {
    const std::unique_ptr<uint8_t[]> buffer(new uint8_t[CopyBytes]);
    uint64_t done = 0;
    while (done < size) {
        CancellationPoint::test();
        const size_t wanted =
            static_cast<size_t>(std::min<uint64_t>(size - done, CopyBytes - (position + done) % CopyBytes));
        const size_t count = file.read(buffer.get(), wanted);
        if (count > 0 && !take(buffer.get(), count))
            break;
        done += count;
        if (count < wanted)
            break;
    }
    return done;
}

#endif
