// Parsing from the page cache: a whole image, a small part, a full manifest; and reading alone.
#include "bench/BenchFiles.h"
#include "image/ZempParser.h"
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t ReadBytes = 131072;

void parse(benchmark::State& state, const std::string& file, FileFragment::FragmentType type) {
    for (auto _ : state) {
        ZempParser parser;
        if (!parser.parseFile(file, 0, type))
            state.SkipWithError("not valid");
        for (uint32_t i = 0; i < parser.getNumberOfZempParts(); ++i)
            const std::unique_ptr<ZempPart> part(parser.getZempPartAt(i));
    }
}

void parseLargeImage(benchmark::State& state) {
    parse(state, BenchFiles::get().largeImage(), FileFragment::ZempFile);
}

void parsePart(benchmark::State& state) {
    parse(state, BenchFiles::get().part(), FileFragment::ContentPart);
}

void parseManifest(benchmark::State& state) {
    parse(state, BenchFiles::get().manifestImage(), FileFragment::ZempStart);
}

void readLargeImage(benchmark::State& state) {
    std::vector<char> buffer(ReadBytes);
    for (auto _ : state) {
        const int fd = open(BenchFiles::get().largeImage().c_str(), O_RDONLY | O_CLOEXEC);
        while (read(fd, buffer.data(), buffer.size()) > 0) {
        }
        close(fd);
    }
}

BENCHMARK(parseLargeImage)->Unit(benchmark::kMillisecond);
BENCHMARK(readLargeImage)->Unit(benchmark::kMillisecond);
BENCHMARK(parsePart)->Unit(benchmark::kMicrosecond);
BENCHMARK(parseManifest)->Unit(benchmark::kMicrosecond);

} // namespace
