// What a shell command does.
#ifndef SUPPORT_SHELLOUTPUT_H
#define SUPPORT_SHELLOUTPUT_H

#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace support {

struct ShellOutput {
    int status; // -1: ended by a signal
    std::string text;
};

// Reads a process of popen() to its end.
inline ShellOutput finish(FILE* process) {
    std::string text;
    for (int c = fgetc(process); c != EOF; c = fgetc(process))
        text += static_cast<char>(c);
    const int status = pclose(process);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

inline ShellOutput runShell(const std::string& command) {
    return finish(popen(command.c_str(), "r"));
}

} // namespace support

#endif
