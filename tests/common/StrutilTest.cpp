#include "common/strutil.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

// The tokens, each in brackets, and their count.
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

TEST(Strsplit, CutsAtRunsOfDelimiters) {
    EXPECT_EQ(split("  a 'b c'  d"), "[a][b c][d]");
    EXPECT_EQ(split("a;:b;", ":;"), "[a][b]");
    EXPECT_EQ(split("1 2 3 4 5 6 7 8 9"), "[1][2][3][4][5][6][7][8][9]");
    EXPECT_EQ(split("a b", ""), "[a b]");
}

TEST(Strsplit, QuotesKeepDelimitersAndAreDropped) {
    EXPECT_EQ(split("'a b' c"), "[a b][c]");
    EXPECT_EQ(split("\"it's\" x"), "[it's][x]");
    EXPECT_EQ(split("a 'open end"), "[a][open end]");
    EXPECT_EQ(split("'open end"), "[open end]");
    EXPECT_EQ(split("a'b c'"), "[a'b][c']");
    EXPECT_EQ(split("''"), "[]");
    EXPECT_EQ(split("'' ''"), "[][]");
    EXPECT_EQ(split("a '"), "[a][]");
    EXPECT_EQ(split("'a''b'"), "[a][b]");
}

TEST(Strsplit, NothingToSplit) {
    EXPECT_EQ(split(""), "");
    EXPECT_EQ(split("   "), "");
    EXPECT_EQ(split("'"), "");
    EXPECT_EQ(split(nullptr), "null");
    EXPECT_EQ(split("a", nullptr), "null");
    strsplit_free(nullptr);
    strsplit_free(strsplit("a b", " ", nullptr));
}

TEST(Strhash, IsModulo32BitsOverUnsignedBytes) {
    EXPECT_EQ(strhash(""), 0U);
    EXPECT_EQ(strhash("a"), 97U);
    EXPECT_EQ(strhash("ab"), 97U * 31 + 98);
    EXPECT_EQ(strhash("\xff"), 255U);
    EXPECT_EQ(strhash("firmware download"), 0x2d58314dU);
}

std::string trim(const char* text) {
    char buffer[64] = "";
    strncpy(buffer, text, sizeof buffer - 1);
    const char* trimmed = strtrim(buffer);
    return trimmed != nullptr ? trimmed : "null";
}

TEST(Strtrim, CutsBlanksAndComments) {
    EXPECT_EQ(trim("  key = v  # c "), "key = v");
    EXPECT_EQ(trim("a#b#c"), "a");
    EXPECT_EQ(trim("\t x \xe4 \r\n"), "x \xe4");
    for (const char* nothing : {"", "   ", "   # note", "#", "\n"})
        EXPECT_EQ(trim(nothing), "null") << nothing;
}

} // namespace
