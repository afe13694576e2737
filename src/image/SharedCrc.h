// CRC-32 of a long range that two threads read and compute together. Reading and computing take about the
// same time, so a second processor, where there is one, halves the wait.
#ifndef IMAGE_SHAREDCRC_H
#define IMAGE_SHAREDCRC_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

class SharedCrc {
  public:
    // Fills `length` bytes at `to` from `offset` of the file. Called by both threads at the same time.
    using Read = std::function<void(uint8_t* to, size_t offset, size_t length)>;

    // Bytes of one step; a range shorter than a few of them is not worth the second thread.
    static constexpr size_t StepBytes = 131072;
    static constexpr size_t MinimumBytes = 32 * StepBytes;

    // Whether this process may use more than one processor.
    static bool isUseful();

    // The bytes from `begin` to `end`, which are at least one step apart. Starts the second thread; without
    // one, when the system refuses, the caller's thread does all the work.
    SharedCrc(Read read, size_t begin, size_t end);

    // Stops the second thread after its present step, and waits for it.
    ~SharedCrc();
    SharedCrc(const SharedCrc&) = delete;
    SharedCrc& operator=(const SharedCrc&) = delete;

    // Takes part in the work and waits for its end. To be called once; a cancellation point.
    uint32_t get();

  private:
    bool step(uint8_t* window);
    void join();

    const Read mRead;
    const size_t mBegin;
    const size_t mEnd;
    std::vector<uint32_t> mCrcs;  // of each step; written by the thread that took the step
    std::atomic<size_t> mNext{0}; // step that nobody has taken yet
    std::thread mHelper;
};

#endif
