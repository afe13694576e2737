// Reads typed values out of a description in TOML. Whatever is wrong is an InputError that begins with
// "FILE:LINE:COLUMN: ".
#ifndef ZEMP_DESCRIPTIONTABLE_H
#define ZEMP_DESCRIPTIONTABLE_H

#include "imagefile/ImageBuilder.h"
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <toml++/toml.h>
#include <vector>

namespace zemp {

// One table of the description. It refers to the document, which outlives it. Keys that are asked for are
// known; rejectOtherKeys() refuses the rest, so that a misspelt key is found.
class DescriptionTable {
  public:
    // `what` names the table in messages, for example "part".
    DescriptionTable(std::string file, const toml::table& table, std::string what);

    bool has(const std::string& key);

    // A text of at most `maximum` bytes, without a zero byte; the first form requires it.
    std::string text(const std::string& key, size_t maximum);
    std::string text(const std::string& key, size_t maximum, const std::string& fallback);

    // A whole number within the limits.
    int64_t number(const std::string& key, int64_t minimum, int64_t maximum);
    int64_t number(const std::string& key, int64_t minimum, int64_t maximum, int64_t fallback);

    bool flag(const std::string& key, bool fallback);

    // A text "1.5.7" or "1.05-7", all numbers decimal.
    imagefile::Version version(const std::string& key);

    // Seconds since 1970-01-01 UTC, as a number or a date and time; 0 if there is none.
    uint32_t time(const std::string& key);

    // Bytes written as pairs of hexadecimal digits, with blanks wherever they please.
    imagefile::Bytes hex(const std::string& key);

    // The table under a key, which is required; and the tables of an array, none if the key is missing.
    DescriptionTable table(const std::string& key);
    std::vector<DescriptionTable> tables(const std::string& key, const std::string& what);

    void rejectOtherKeys() const;

    // Where the table begins in the file, from 1.
    unsigned line() const { return mTable.source().begin.line; }

    // Throws for the value of a key, or for the table.
    [[noreturn]] void fail(const std::string& key, const std::string& text) const;
    [[noreturn]] void fail(const std::string& text) const;

  private:
    // The value, or null; marks the key as known.
    const toml::node* find(const std::string& key);
    const toml::node& require(const std::string& key);
    std::string textOf(const toml::node& node, const std::string& key, size_t maximum) const;
    int64_t numberOf(const toml::node& node, const std::string& key, int64_t minimum, int64_t maximum) const;
    [[noreturn]] void failAt(const toml::source_region& source, const std::string& text) const;

    const std::string mFile;
    const toml::table& mTable;
    const std::string mWhat;
    std::set<std::string> mKnownKeys;
};

// A description file.
class Description {
  public:
    // Reads and parses it.
    explicit Description(const std::string& file);

    DescriptionTable root() const { return {mFile, mTable, "description"}; }

    // A path in the description, which is relative to the description's directory.
    std::string resolve(const std::string& path) const;

  private:
    const std::string mFile;
    const toml::table mTable;
};

} // namespace zemp

#endif
