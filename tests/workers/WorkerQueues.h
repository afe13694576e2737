// The two queues of a worker, and waiting for what its thread does.
#ifndef TESTS_WORKERS_WORKERQUEUES_H
#define TESTS_WORKERS_WORKERQUEUES_H

#include "common/wqueue.h"
#include "support/LogCapture.h"
#include "workitems/Events.h"
#include <chrono>
#include <gtest/gtest.h>
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

class WorkerQueues {
  protected:
    // Whether the item comes back next.
    bool isReturned(const FwWorkItem& item) {
        return eventually([&] { return out.size() > 0; }) && out.remove() == &item;
    }

    // Queues the item and waits until it comes back.
    bool isAnswered(FwWorkItem& item) {
        in.add(&item);
        return isReturned(item);
    }

    // Queues what the worker has no use for, and a stop. Whether nothing comes back and the thread ends.
    bool dropsAndStops(FwWorkItem& other) {
        ExitRunLoop exit;
        for (FwWorkItem* item : std::initializer_list<FwWorkItem*>{nullptr, &other, &exit})
            in.add(item);
        return eventually([&] { return log.count("::run() Stopped.") == 1; }) && out.size() == 0;
    }

    const support::LogCapture log;
    wqueue<FwWorkItem*> in;
    wqueue<FwWorkItem*> out;
};

#endif
