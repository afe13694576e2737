#include "image/SharedCrc.h"

#include "common/Thread.h"
#include "image/Crc32Append.h"
#include "image/zemp_validate.h"
#include <algorithm>
#include <system_error>

bool SharedCrc::isUseful() {
    static const bool isMultiprocessor = std::thread::hardware_concurrency() > 1;
    return isMultiprocessor;
}

SharedCrc::SharedCrc(Read read, size_t begin, size_t end)
    : mRead(std::move(read)), mBegin(begin), mEnd(end), mCrcs((end - begin + StepBytes - 1) / StepBytes) {
    try {
        mHelper = std::thread([this] {
            const std::unique_ptr<uint8_t[]> window(new uint8_t[StepBytes]);
            while (step(window.get())) {
            }
        });
    } catch (const std::system_error&) {
        // then without
    }
}

SharedCrc::~SharedCrc() {
    mNext = mCrcs.size();
    join();
}

void SharedCrc::join() {
    if (mHelper.joinable())
        mHelper.join();
}

// False when there is no step left to take.
bool SharedCrc::step(uint8_t* window) {
    const size_t index = mNext.fetch_add(1, std::memory_order_relaxed);
    if (index >= mCrcs.size())
        return false;
    const size_t offset = mBegin + index * StepBytes;
    const size_t length = std::min(mEnd - offset, StepBytes);
    mRead(window, offset, length);
    mCrcs[index] = crc32_calc(0, window, length);
    return true;
}

uint32_t SharedCrc::get() {
    const std::unique_ptr<uint8_t[]> window(new uint8_t[StepBytes]);
    do {
        CancellationPoint::test();
    } while (step(window.get()));
    join();
    const Crc32Append appendStep(StepBytes);
    uint32_t crc = 0;
    for (size_t i = 0; i + 1 < mCrcs.size(); ++i)
        crc = appendStep(crc, mCrcs[i]);
    const size_t last = mBegin + (mCrcs.size() - 1) * StepBytes;
    return Crc32Append(mEnd - last)(crc, mCrcs.back());
}
