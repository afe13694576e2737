// Helpers for tests that need files of their own or what the program prints.
#ifndef TESTS_COMMON_SCRATCH_H
#define TESTS_COMMON_SCRATCH_H

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>

// A directory of its own, removed with all that is in it.
class ScratchDir {
  public:
    ScratchDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "fwtest-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no scratch directory");
        mPath = pattern;
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string path(const std::string& name = "") const { return name.empty() ? mPath : mPath + "/" + name; }

    // Writes a file and returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

    static std::string read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::string mPath;
};

// What `action` writes to standard output, by whatever way.
inline std::string standardOutputOf(const std::function<void()>& action) {
    const ScratchDir scratch;
    const std::string path = scratch.path("output");
    fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    FILE* file = fopen(path.c_str(), "w");
    if (saved < 0 || file == nullptr || dup2(fileno(file), STDOUT_FILENO) < 0)
        throw std::runtime_error("standard output cannot be redirected");
    action();
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    fclose(file);
    return ScratchDir::read(path);
}

#endif
