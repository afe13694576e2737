// Compiling an update of which 75 MiB are needed. The time of the disk is in it.
#include "bench/BenchFiles.h"
#include "bench/UpdateParts.h"
#include "image/ZempCreator.h"
#include <benchmark/benchmark.h>

namespace {

void compileLargeImage(benchmark::State& state) {
    const BenchFiles& files = BenchFiles::get();
    const UpdateParts parts(files.largeImage(), files.updateParts());
    ZempCreator::setTempFilename(files.scratch("temp"));
    for (auto _ : state)
        if (!ZempCreator(parts.map()).createZemp(files.scratch("output")))
            state.SkipWithError("compile failed");
}

BENCHMARK(compileLargeImage)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
