// What parts of the program cost, one by one. The log is silent unless it is what is measured.
#include "common/VexStreamLog.h"
#include <benchmark/benchmark.h>
#include <iostream>

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    static VexStreamLog log("fw_bench", VexStreamLog::Console, LogError);
    std::clog.rdbuf(&log);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::clog.rdbuf(nullptr);
    return 0;
}
