// Helpers for tests that need files of their own or what the program prints.
#ifndef TESTS_COMMON_SCRATCH_H
#define TESTS_COMMON_SCRATCH_H

#include "common/VexStreamLog.h"
#include "lab/TemporaryDirectory.h"
#include <cstdio>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <unistd.h>

using ScratchDir = lab::TemporaryDirectory;

// What `action` writes to standard output, by whatever way.
inline std::string standardOutputOf(const std::function<void()>& action) {
    const ScratchDir scratch;
    const std::string path = scratch.file("output");
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

// Console output of `action` while std::clog writes to a log buffer of this level.
inline std::string logOf(LogPriority level, const std::function<void()>& action, const char* ident = "log") {
    return standardOutputOf([&] {
        const LogPriority savedLevel = VexStreamLog::getLevel();
        VexStreamLog log(ident, VexStreamLog::Console, level);
        std::streambuf* saved = std::clog.rdbuf(&log);
        action();
        std::clog.rdbuf(saved);
        VexStreamLog::setLevel(savedLevel);
    });
}

#endif
