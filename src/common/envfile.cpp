#include "common/envfile.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t LineSize = 256; // with its final zero byte
constexpr size_t NameSize = 33;  // 32 characters and a zero byte

// Drops trailing white space and a pair of quotes; the value's first character.
char* trimValue(char* value) {
    size_t length = strlen(value);
    while (length > 0 && isspace(static_cast<unsigned char>(value[length - 1])) != 0)
        --length;
    value[length] = '\0';
    const char quote = *value;
    if (quote != '"' && quote != '\'')
        return value;
    ++value;
    char* end = strrchr(value, quote);
    *(end != nullptr ? end : value) = '\0';
    return value;
}

} // namespace

int env_source(const char* path) {
    FILE* file = fopen(path, "r");
    if (file == nullptr)
        return 0;
    char line[LineSize];
    while (fgets(line, sizeof line, file) != nullptr) {
        char name[NameSize] = "";
        int valueOffset = 0; // stays 0 unless the scan gets past the equals sign
        const int conversions = sscanf(line, "export %32[^=]=%n", name, &valueOffset);
        if (conversions < 1 || valueOffset == 0)
            continue;
        setenv(name, trimValue(line + valueOffset), 1);
    }
    return fclose(file);
}
