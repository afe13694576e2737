// Waiting for what another thread does.
#ifndef TESTS_WORKERS_EVENTUALLY_H
#define TESTS_WORKERS_EVENTUALLY_H

#include <chrono>
#include <memory>
#include <thread>

using Clock = std::chrono::steady_clock;

// Longest time that the stop of a worker may take.
constexpr std::chrono::milliseconds PromptStop{900};

// True as soon as `condition` holds, false when it does not within ten seconds.
template <typename Condition>
bool eventually(Condition condition) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Destroys a worker; how long it took.
template <typename Worker>
std::chrono::milliseconds stopTime(std::unique_ptr<Worker>& worker) {
    const auto begin = Clock::now();
    worker.reset();
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
}

#endif
