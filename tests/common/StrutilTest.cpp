#include "common/strutil.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

// The tokens, each in brackets; their count is checked.
std::string split(const char* text, const char* delimiters = " ") {
    unsigned count = 99;
    char** tokens = strsplit(text, delimiters, &count);
    if (tokens == nullptr)
        return "null";
    std::string result;
    unsigned entries = 0;
    for (; tokens[entries] != nullptr; ++entries)
        result += "[" + std::string(tokens[entries]) + "]";
    EXPECT_EQ(entries, count);
    strsplit_free(tokens);
    return result;
}

TEST(Strsplit, CutsAtDelimitersOutsideQuotes) {
    const char* const rows[][2] = {
        {"  a 'b c'  d", "[a][b c][d]"},
        {"1 2 3 4 5 6 7 8 9", "[1][2][3][4][5][6][7][8][9]"},
        {"\"it's\" x", "[it's][x]"},
        {"a 'open end", "[a][open end]"},
        {"a'b c'", "[a'b][c']"},
        {"'' ''", "[][]"},
        {"a '", "[a][]"},
        {"'a''b'", "[a][b]"},
        {"   ", ""},
        {"'", ""},
    };
    for (const auto& [text, tokens] : rows)
        EXPECT_EQ(split(text), tokens) << text;
    EXPECT_EQ(split("a;:b;", ":;"), "[a][b]");
    EXPECT_EQ(split("a b", ""), "[a b]");
    EXPECT_EQ(split(nullptr) + split("a", nullptr), "nullnull");
    strsplit_free(nullptr);
    strsplit_free(strsplit("a b", " ", nullptr));
}

TEST(Strhash, IsModulo32BitsOverUnsignedBytes) {
    EXPECT_EQ(strhash("\xff"), 255U);
    EXPECT_EQ(strhash("firmware download"), 0x2d58314dU);
}

TEST(Strtrim, CutsBlanksAndComments) {
    const auto trim = [](const char* text) -> std::string {
        char buffer[64] = "";
        strncpy(buffer, text, sizeof buffer - 1);
        const char* const trimmed = strtrim(buffer);
        return trimmed != nullptr ? trimmed : "null";
    };
    EXPECT_EQ(trim("  key = v  # c "), "key = v");
    EXPECT_EQ(trim("a#b#c"), "a");
    EXPECT_EQ(trim("\t x \xe4 \r\n"), "x \xe4");
    for (const char* nothing : {"", "   ", "   # note", "#", "\n"})
        EXPECT_EQ(trim(nothing), "null") << nothing;
}

} // namespace
