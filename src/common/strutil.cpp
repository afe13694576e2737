#include "common/strutil.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t TokenGrowth = 4; // entries by which the token array grows

bool isQuote(char c) {
    return c == '\'' || c == '"';
}

bool isBlank(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

// The end of a quoted token: the next such quote, or the end of the text.
char* findQuote(char* text, char quote) {
    char* end = strchr(text, quote);
    return end != nullptr ? end : text + strlen(text);
}

// Array of tokens that always ends in a null entry.
class TokenList {
  public:
    // False if memory is short; the list is unchanged then.
    bool append(char* token) {
        if (mCount + 1 >= mCapacity && !grow())
            return false;
        mTokens[mCount++] = token;
        mTokens[mCount] = nullptr;
        return true;
    }

    bool grow() {
        auto* grown = static_cast<char**>(
            realloc(static_cast<void*>(mTokens), (mCapacity + TokenGrowth) * sizeof(char*)));
        if (grown == nullptr)
            return false;
        mTokens = grown;
        mCapacity += TokenGrowth;
        mTokens[mCount] = nullptr;
        return true;
    }

    char** get() const { return mTokens; }
    unsigned count() const { return static_cast<unsigned>(mCount); }

  private:
    char** mTokens = nullptr; // handed to the caller, or released by it
    size_t mCount = 0;
    size_t mCapacity = 0;
};

// Cuts `text` into tokens, the first of which begins within `quote` unless that is zero. False if memory is
// short.
bool cutTokens(char* text, const char* delimiters, char quote, TokenList& tokens) {
    char* next = text;
    while (*next != '\0') {
        char* token = next;
        if (quote == '\0' && isQuote(*token))
            quote = *token++;
        char* end = quote != '\0' ? findQuote(token, quote) : token + strcspn(token, delimiters);
        if (!tokens.append(token))
            return false;
        if (*end == '\0')
            break;
        *end++ = '\0';
        next = end + strspn(end, delimiters);
        quote = '\0';
    }
    return true;
}

} // namespace

unsigned strhash(const char* s) {
    uint32_t hash = 0;
    for (; *s != '\0'; ++s)
        hash = hash * 31 + static_cast<unsigned char>(*s);
    return hash;
}

char** strsplit(const char* s, const char* delimiters, unsigned* count) {
    if (s == nullptr || delimiters == nullptr)
        return nullptr;
    s += strspn(s, delimiters);
    const char quote = isQuote(*s) ? *s++ : '\0';
    // The first token begins where the copy does, so that releasing the first token releases the copy.
    char* copy = strdup(s);
    TokenList tokens;
    if (copy == nullptr || !tokens.grow() || !cutTokens(copy, delimiters, quote, tokens)) {
        free(copy);
        free(static_cast<void*>(tokens.get()));
        return nullptr;
    }
    if (tokens.count() == 0)
        free(copy);
    if (count != nullptr)
        *count = tokens.count();
    return tokens.get();
}

void strsplit_free(char** tokens) {
    if (tokens == nullptr)
        return;
    free(tokens[0]);
    free(static_cast<void*>(tokens));
}

char* strtrim(char* s) {
    while (isBlank(*s))
        ++s;
    char* end = s + strcspn(s, "#");
    while (end > s && isBlank(end[-1]))
        --end;
    *end = '\0';
    return end > s ? s : nullptr;
}
