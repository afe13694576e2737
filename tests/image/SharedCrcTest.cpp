#include "image/SharedCrc.h"
#include "common/Thread.h"
#include "image/ImageFixtures.h"
#include "image/zemp_validate.h"
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

namespace {

constexpr size_t Step = SharedCrc::StepBytes;

TEST(SharedCrc, IsTheCrcOfTheRange) {
    const Bytes bytes = pattern(40 * Step);
    const auto read = [&](uint8_t* to, size_t offset, size_t length) {
        memcpy(to, bytes.data() + offset, length);
    };
    for (const size_t begin : {size_t{0}, size_t{345}})
        for (const size_t length : {Step, Step + 1, 7 * Step - 1, 39 * Step + 77})
            EXPECT_EQ(SharedCrc(read, begin, begin + length).get(),
                      crc32_calc(0, bytes.data() + begin, length))
                << begin << " " << length;
}

// Reads slowly, so that a cancellation comes in the middle.
class SlowReader : public Thread {
  public:
    ~SlowReader() override { cancelAndJoin(); }
    void* run() override {
        SharedCrc(
            [this](uint8_t*, size_t, size_t) {
                ++mReads;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            },
            0, Step * 1000000)
            .get();
        return nullptr;
    }
    std::atomic<int> mReads{0};
};

TEST(SharedCrc, CancellationEndsBothThreads) {
    SlowReader reader;
    ASSERT_EQ(reader.start(), 0);
    while (reader.mReads < 10)
        std::this_thread::yield();
} // a thread that went on would be reported by the sanitizers, and never end

TEST(SharedCrc, LargeBodyIsCheckedToItsLastByte) {
    const Quiet quiet;
    ImageBuilder image;
    image.software("root", {1, 2, 3}, "root-build", pattern(SharedCrc::MinimumBytes + 3));
    Bytes part = image.buildPart(0);
    EXPECT_TRUE(Parse(part, FileFragment::ContentPart).at(0)->isBodyValid());
    part[part.size() - 2] ^= 1; // before the one byte of padding
    EXPECT_FALSE(Parse(part, FileFragment::ContentPart).at(0)->isBodyValid());
}

} // namespace
