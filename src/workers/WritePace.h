// Spaces out the writes of a transfer, so that a fast link is taken at a given speed, evenly.
//
// One thread waits; any thread may interrupt.
#ifndef WORKERS_WRITEPACE_H
#define WORKERS_WRITEPACE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

class WritePace {
  public:
    // A write of at most `size` bytes in each `interval`.
    WritePace(size_t size, std::chrono::microseconds interval) : mSize(size), mInterval(interval) {}
    WritePace(const WritePace&) = delete;
    WritePace& operator=(const WritePace&) = delete;

    // Most bytes of one write.
    size_t size() const { return mSize; }

    // Waits until an interval has passed since the last wait ended. False once interrupted, then at once.
    [[nodiscard]] bool wait();

    // Ends a wait, and all that come.
    void interrupt();
    [[nodiscard]] bool isInterrupted();

  private:
    const size_t mSize;
    const std::chrono::microseconds mInterval;
    std::chrono::steady_clock::time_point mNext; // used by the waiting thread
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mInterrupted = false; // guarded by mMutex
};

#endif
