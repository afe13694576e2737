// Hand-over of work items: on one thread, and to another thread and back.
#include "common/wqueue.h"
#include "workitems/Events.h"
#include <benchmark/benchmark.h>

namespace {

// Sends everything back, up to the first null.
class Echo : public Thread {
  public:
    Echo(wqueue<FwWorkItem*>& in, wqueue<FwWorkItem*>& out) : mIn(in), mOut(out) {}
    ~Echo() override {
        mIn.add(nullptr);
        cancelAndJoin();
    }
    void* run() override {
        while (FwWorkItem* const item = mIn.remove())
            mOut.add(item);
        return nullptr;
    }

  private:
    wqueue<FwWorkItem*>& mIn;
    wqueue<FwWorkItem*>& mOut;
};

void queueAddRemove(benchmark::State& state) {
    wqueue<FwWorkItem*> queue;
    ExitRunLoop item;
    for (auto _ : state) {
        queue.add(&item);
        benchmark::DoNotOptimize(queue.remove());
    }
}

void queueThereAndBack(benchmark::State& state) {
    wqueue<FwWorkItem*> there;
    wqueue<FwWorkItem*> back;
    Echo echo(there, back);
    if (echo.start() != 0)
        state.SkipWithError("no thread");
    ExitRunLoop item;
    for (auto _ : state) {
        there.add(&item);
        benchmark::DoNotOptimize(back.remove());
    }
}

BENCHMARK(queueAddRemove);
BENCHMARK(queueThereAndBack)->UseRealTime();

} // namespace
