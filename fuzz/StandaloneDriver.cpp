// Runs a fuzz target without libFuzzer over every file of a corpus, so that any compiler's build has the
// targets as ordinary tests: TARGET DIRECTORY. Each file is named before it is run; the last one is the one
// that failed.

#include "fuzz/FuzzTarget.h"
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

bool runFile(const std::filesystem::path& path) {
    fprintf(stderr, "%s\n", path.c_str());
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    // Exactly as large as the file, so that a read beyond it shows.
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    return file.is_open() && LLVMFuzzerTestOneInput(input.data(), input.size()) == 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        if (!runFile(entry.path()))
            return 1;
        ++files;
    }
    return files > 0 ? 0 : 1;
}
