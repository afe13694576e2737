// The entry points of a fuzz target, and how a target says that something is wrong.
//
// A target gives any bytes to code of ours and asserts what must hold whatever they are. The same sources are
// linked with libFuzzer, which searches for inputs, or with the standalone driver, which runs the corpus as
// an ordinary test.
#ifndef FUZZ_FUZZTARGET_H
#define FUZZ_FUZZTARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" {

// Runs one input; always 0. Does not change the input, keeps nothing of it, and may not call exit().
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Of targets whose inputs need care to get deep: changes an input in place and returns its new size, at most
// `maxSize`. The same seed gives the same change.
size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed);

// A blind change, offered to mutators by libFuzzer; null without it, where no mutator is called.
__attribute__((weak)) size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);
}

// Ends the process, which is a finding, unless the condition holds. In every build type.
#define FUZZ_REQUIRE(condition)                                                                              \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);                   \
            abort();                                                                                         \
        }                                                                                                    \
    } while (0)

#endif
