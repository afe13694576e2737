#include "common/fileutil.h"

#include "vex/kq.h"
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int LogPriorityError = 3;
constexpr size_t MinimumFreeBytes = 1024; // below this the buffer grows before the next read
constexpr size_t GrowthBytes = 4096;

// Closes the file; the result, or -1 when that fails.
int closeWith(FILE* file, int result) {
    return fclose(file) == 0 ? result : -1;
}

// Grows the buffer to `size` bytes. False, and the buffer is gone, when there is no memory.
bool grow(char*& buffer, size_t size) {
    char* grown = static_cast<char*>(realloc(buffer, size));
    if (grown == nullptr) {
        kq_slog(LogPriorityError, "%s: %m:\n", "slurp");
        free(buffer);
    }
    buffer = grown;
    return grown != nullptr;
}

} // namespace

int fnprintf(const char* path, const char* format, ...) {
    FILE* file = fopen(path, "w");
    if (file == nullptr)
        return -1;
    va_list arguments;
    va_start(arguments, format);
    const int count = vfprintf(file, format, arguments);
    va_end(arguments);
    return closeWith(file, count);
}

int fnscanf(const char* path, const char* format, ...) {
    FILE* file = fopen(path, "r");
    if (file == nullptr)
        return -1;
    va_list arguments;
    va_start(arguments, format);
    const int count = vfscanf(file, format, arguments);
    va_end(arguments);
    return closeWith(file, count);
}

int fnwrite(const char* path, const void* buf, size_t n) {
    FILE* file = fopen(path, "w");
    if (file == nullptr)
        return -1;
    const size_t count = fwrite(buf, 1, n, file);
    return closeWith(file, static_cast<int>(count));
}

int fnread(const char* path, void* buf, size_t n) {
    FILE* file = fopen(path, "r");
    if (file == nullptr)
        return -1;
    const size_t count = fread(buf, 1, n, file);
    return closeWith(file, static_cast<int>(count));
}

int fnexists(const char* path) {
    struct stat status = {};
    return stat(path, &status) == 0 ? 1 : 0;
}

int fnsize(const char* path) {
    struct stat status = {};
    if (stat(path, &status) != 0 || status.st_size > INT_MAX)
        return -1;
    return static_cast<int>(status.st_size);
}

char* slurp(int fd, size_t* len) {
    if (len != nullptr)
        *len = 0;
    char* buffer = nullptr;
    size_t capacity = 0;
    size_t length = 0;
    for (;;) {
        if (capacity - length < MinimumFreeBytes) {
            if (!grow(buffer, capacity + GrowthBytes))
                return nullptr;
            capacity += GrowthBytes;
        }
        const ssize_t count = read(fd, buffer + length, capacity - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        length += static_cast<size_t>(count);
    }
    buffer[length] = '\0';
    if (len != nullptr)
        *len = length;
    return buffer;
}

char* fnslurp(const char* path, size_t* len) {
    if (len != nullptr)
        *len = 0;
    const int fd = open(path, O_RDONLY);
    if (fd < 0) {
        kq_slog(LogPriorityError, "%s: %m: %s\n", "fnslurp", path);
        return nullptr;
    }
    char* buffer = slurp(fd, len);
    close(fd);
    return buffer;
}

char* pslurp(const char* command, size_t* len) {
    if (len != nullptr)
        *len = 0;
    FILE* pipe = popen(command, "r");
    char* buffer = nullptr;
    if (pipe != nullptr)
        buffer = slurp(fileno(pipe), len);
    if (buffer == nullptr)
        kq_slog(LogPriorityError, "%s: %m: %s\n", "pslurp", command);
    if (pipe != nullptr)
        pclose(pipe);
    return buffer;
}
