#include "image/SharedCrc.h"
#include "common/Thread.h"
#include "image/ImageFixtures.h"
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace {

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
            0, SharedCrc::StepBytes * 1000000)
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
