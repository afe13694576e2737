// Times and memory of processes, from the system's own accounting. Used by one thread.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <cstdint>
#include <string>
#include <vector>

// Processor time of this process so far, in seconds, that of the system on its behalf included.
double processorSeconds();

// The most memory this program has used so far, in kB.
long peakKilobytes();

struct Figures {
    double wall = 0;      // seconds
    double processor = 0; // seconds, user and system
    long peak = 0;        // kB
    int status = 0;       // as wait() gives it
};

// Runs a program to its end with its standard output on /dev/null. Throws std::runtime_error when it cannot
// be started.
Figures runProgram(const std::vector<std::string>& arguments);

// Runs a program until `text` stands in its standard output, then ends it. `wall` is the time to the text,
// the rest that of the whole run.
Figures runUntil(const std::string& text, const std::vector<std::string>& arguments);

// Runs a program until it has so many threads, then ends it. `wall` is the time to that.
Figures runUntilThreads(unsigned threads, const std::vector<std::string>& arguments);

#endif
