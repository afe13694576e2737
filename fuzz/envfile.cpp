// Fuzz target: the reader of environment files. The environment itself is left alone: the linker sends the
// reader's setenv() here.

#include "common/envfile.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/MemoryFile.h"
#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

using Variables = std::vector<std::pair<std::string, std::string>>;

constexpr size_t LongestLine = 255; // with its line end
constexpr size_t LongestName = 32;
constexpr const char* Blanks = " \t\n\v\f\r";

Variables sVariables;

// The next line, as far as one reads in one go, up to a zero byte.
std::string takeLine(std::string& rest) {
    const size_t end = std::min(rest.find('\n'), LongestLine - 1) + 1;
    const std::string line = rest.substr(0, end);
    rest.erase(0, end);
    return line.substr(0, line.find('\0'));
}

std::string trimmed(const std::string& value) {
    std::string text = value.substr(0, value.find_last_not_of(Blanks) + 1);
    if (text.empty() || (text[0] != '"' && text[0] != '\''))
        return text;
    const size_t quote = text.rfind(text[0]);
    return quote == 0 ? "" : text.substr(1, quote - 1);
}

// The rules of the format, written down a second time.
Variables expectedVariables(std::string text) {
    Variables variables;
    while (!text.empty()) {
        std::string line = takeLine(text);
        if (line.rfind("export", 0) != 0)
            continue;
        line.erase(0, std::min(line.find_first_not_of(Blanks, strlen("export")), line.size()));
        const size_t equals = line.find('=');
        if (equals != std::string::npos && equals > 0 && equals <= LongestName)
            variables.emplace_back(line.substr(0, equals), trimmed(line.substr(equals + 1)));
    }
    return variables;
}

} // namespace

extern "C" int __wrap_setenv(const char* name, const char* value, int overwrite);

int __wrap_setenv(const char* name, const char* value, int overwrite) {
    FUZZ_REQUIRE(overwrite == 1);
    sVariables.emplace_back(name, value);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile file;
    file.write(data, size);
    sVariables.clear();
    FUZZ_REQUIRE(env_source(file.path().c_str()) == 0);
    FUZZ_REQUIRE(sVariables == expectedVariables({data, data + size}));
    return 0;
}
