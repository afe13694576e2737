// CRC-32: ours, the library behind it called directly, and the plain table.
#include "bench/BytewiseCrc.h"
#include "image/zemp_validate.h"
#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <vector>

namespace {

constexpr int64_t SmallBytes = 16 << 10;
constexpr int64_t LargeBytes = 75 << 20;

template <typename Routine>
void measure(benchmark::State& state, const Routine& routine) {
    const auto size = static_cast<size_t>(state.range(0));
    const std::vector<uint8_t> bytes(size, 'x');
    uint32_t crc = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(crc = routine(crc, bytes.data(), size));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void crcCalc(benchmark::State& state) {
    measure(state, crc32_calc);
}

void crcLibdeflate(benchmark::State& state) {
    measure(state, libdeflate_crc32);
}

void crcBytewise(benchmark::State& state) {
    measure(state, bytewiseCrc);
}

BENCHMARK(crcCalc)->Arg(SmallBytes)->Arg(LargeBytes);
BENCHMARK(crcLibdeflate)->Arg(SmallBytes)->Arg(LargeBytes);
BENCHMARK(crcBytewise)->Arg(SmallBytes);

} // namespace
