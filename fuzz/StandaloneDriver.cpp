// Runs a fuzz target without libFuzzer: every file of a corpus, then simple mutations of each from a fixed
// seed, so that any compiler's build has the targets as ordinary tests.
//
//   TARGET [-mutations=N] [-seed=N] FILE-OR-DIRECTORY...
//
// An input that fails is left in the file "finding" in the current directory.

#include "fuzz/FuzzTarget.h"
#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

// Not every target has a mutator, nor every build a sanitizer.
#pragma weak LLVMFuzzerCustomMutator
extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t GrowthBytes = 64; // most that one mutation adds
constexpr unsigned WalkLength = 8; // mutations on top of each other

std::minstd_rand sRandom; // of the blind mutations
const Bytes* sInput = nullptr;

size_t below(size_t limit) {
    return sRandom() % limit;
}

Bytes readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        fprintf(stderr, "cannot read %s\n", path.c_str());
        exit(2);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

// Files in the order of their names, so that a run can be repeated.
void addFiles(const std::filesystem::path& path, std::vector<std::filesystem::path>& files) {
    if (!std::filesystem::is_directory(path)) {
        files.push_back(path);
        return;
    }
    const size_t first = files.size();
    for (const auto& entry : std::filesystem::directory_iterator(path))
        files.push_back(entry.path());
    std::sort(files.begin() + static_cast<std::ptrdiff_t>(first), files.end());
}

void run(const Bytes& input) {
    sInput = &input;
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

void saveInput() {
    if (FILE* const file = fopen("finding", "wb")) {
        fwrite(sInput->data(), 1, sInput->size(), file);
        fclose(file);
        fputs("the input is in the file \"finding\"\n", stderr);
    }
}

void saveInputAndAbort(int signal) {
    std::signal(signal, SIG_DFL);
    saveInput();
    raise(signal);
}

Bytes mutate(const Bytes& input, unsigned seed) {
    Bytes mutated(input);
    const size_t maxSize = input.size() + GrowthBytes;
    mutated.resize(maxSize);
    sRandom.seed(seed);
    const size_t size = LLVMFuzzerCustomMutator != nullptr
                            ? LLVMFuzzerCustomMutator(mutated.data(), input.size(), maxSize, seed)
                            : LLVMFuzzerMutate(mutated.data(), input.size(), maxSize);
    FUZZ_REQUIRE(size <= maxSize);
    return {mutated.begin(), mutated.begin() + static_cast<std::ptrdiff_t>(size)};
}

// The file's bytes, then a walk of mutations that now and then starts again from them.
size_t runFile(const std::filesystem::path& path, unsigned mutations, unsigned seed) {
    const Bytes original = readFile(path);
    run(original);
    Bytes input = original;
    for (unsigned i = 0; i < mutations; ++i) {
        input = mutate(i % WalkLength == 0 ? original : input, seed + i);
        run(input);
    }
    return 1 + mutations;
}

} // namespace

size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize) {
    const size_t at = below(size + 1);
    const size_t room = maxSize - size;
    switch (below(5)) {
    case 0: // insert
        if (room > 0) {
            memmove(data + at + 1, data + at, size - at);
            data[at] = static_cast<uint8_t>(below(256));
            return size + 1;
        }
        break;
    case 1: // repeat
        if (room > 0 && at < size) {
            const size_t count = 1 + below(std::min({room, size - at, GrowthBytes}));
            memmove(data + at + count, data + at, size - at);
            return size + count;
        }
        break;
    case 2: // cut out
        if (at < size) {
            const size_t count = 1 + below(std::min(size - at, GrowthBytes));
            memmove(data + at, data + at + count, size - at - count);
            return size - count;
        }
        break;
    case 3: // replace
        if (at < size)
            data[at] = static_cast<uint8_t>(below(256));
        break;
    default: // flip a bit
        if (at < size)
            data[at] = static_cast<uint8_t>(data[at] ^ 1U << below(8));
    }
    return size;
}

int main(int argc, char** argv) {
    unsigned mutations = 0;
    unsigned seed = 1;
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("-mutations=", 0) == 0)
            mutations = static_cast<unsigned>(std::stoul(argument.substr(argument.find('=') + 1)));
        else if (argument.rfind("-seed=", 0) == 0)
            seed = static_cast<unsigned>(std::stoul(argument.substr(argument.find('=') + 1)));
        else
            addFiles(argument, files);
    }
    if (files.empty()) {
        fprintf(stderr, "usage: %s [-mutations=N] [-seed=N] FILE-OR-DIRECTORY...\n", argv[0]);
        return 2;
    }
    std::signal(SIGABRT, saveInputAndAbort);
    if (__sanitizer_set_death_callback != nullptr)
        __sanitizer_set_death_callback(saveInput);
    size_t executions = 0;
    for (const auto& file : files)
        executions += runFile(file, mutations, seed);
    printf("%zu files, %zu executions, no findings\n", files.size(), executions);
    return 0;
}
