#include "zemp/DescriptionTable.h"

#include "cli/CommandLine.h"
#include "zemp/Files.h"
#include "zemp/InputError.h"
#include <cctype>
#include <cstdio>
#include <limits>

namespace zemp {

namespace {

constexpr uint64_t MaximumDescriptionBytes = 64ULL * 1024 * 1024; // inline bodies included

std::string locate(const std::string& file, const toml::source_position& position) {
    return file + ":" + std::to_string(position.line) + ":" + std::to_string(position.column) + ": ";
}

toml::table parse(const std::string& file) {
    const std::string content = readFile(file, MaximumDescriptionBytes);
    try {
        return toml::parse(content, file);
    } catch (const toml::parse_error& error) {
        throw InputError(locate(file, error.source().begin) + std::string(error.description()));
    }
}

// Days from 1970-01-01 to a date of the Gregorian calendar.
int64_t daysSinceEpoch(const toml::date& date) {
    const int64_t year = date.month > 2 ? date.year : date.year - 1; // years begin in March here
    const int64_t month = (date.month + 9) % 12;
    return year * 365 + year / 4 - year / 100 + year / 400 + (month * 306 + 5) / 10 + date.day - 1 - 719468;
}

int64_t secondsSinceEpoch(const toml::date_time& at) {
    const int64_t offset = at.offset ? at.offset->minutes : 0; // without one: UTC
    const int64_t hours = daysSinceEpoch(at.date) * 24 + at.time.hour;
    return (hours * 60 + at.time.minute - offset) * 60 + at.time.second;
}

// Reads a decimal number up to `maximum`; false if there is none.
bool takeNumber(const std::string& text, size_t& at, unsigned maximum, unsigned& value) {
    value = 0;
    const size_t begin = at;
    for (; at < text.size() && isdigit(static_cast<unsigned char>(text[at])) != 0; ++at) {
        value = value * 10 + static_cast<unsigned>(text[at] - '0');
        if (value > maximum)
            return false;
    }
    return at > begin;
}

bool parseVersion(const std::string& text, imagefile::Version& version) {
    unsigned major = 0;
    unsigned minor = 0;
    unsigned build = 0;
    size_t at = 0;
    if (!takeNumber(text, at, 255, major) || text[at] != '.' || !takeNumber(text, ++at, 255, minor) ||
        (text[at] != '.' && text[at] != '-') || !takeNumber(text, ++at, 65535, build) || at != text.size())
        return false;
    version.major = static_cast<uint8_t>(major);
    version.minor = static_cast<uint8_t>(minor);
    version.build = static_cast<uint16_t>(build);
    return true;
}

} // namespace

DescriptionTable::DescriptionTable(std::string file, const toml::table& table, std::string what)
    : mFile(std::move(file)), mTable(table), mWhat(std::move(what)) {}

void DescriptionTable::failAt(const toml::source_region& source, const std::string& text) const {
    // An empty document has no position.
    toml::source_position position = source.begin;
    if (position.line == 0)
        position = {1, 1};
    throw InputError(locate(mFile, position) + text);
}

void DescriptionTable::fail(const std::string& key, const std::string& text) const {
    const toml::node* node = mTable.get(key);
    failAt(node != nullptr ? node->source() : mTable.source(), text);
}

void DescriptionTable::fail(const std::string& text) const {
    failAt(mTable.source(), text);
}

const toml::node* DescriptionTable::find(const std::string& key) {
    mKnownKeys.insert(key);
    return mTable.get(key);
}

const toml::node& DescriptionTable::require(const std::string& key) {
    const toml::node* node = find(key);
    if (node != nullptr)
        return *node;
    for (const auto& [name, other] : mTable)
        if (mKnownKeys.count(std::string(name.str())) == 0 &&
            cli::countSlips(std::string(name.str()), key) <= cli::MostSlips)
            failAt(name.source(), "the " + mWhat + " has no '" + key + "'; is '" + std::string(name.str()) +
                                      "' meant to be it?");
    fail("the " + mWhat + " has no '" + key + "'");
}

bool DescriptionTable::has(const std::string& key) {
    return find(key) != nullptr;
}

std::string DescriptionTable::textOf(const toml::node& node, const std::string& key, size_t maximum) const {
    const auto* value = node.as_string();
    if (value == nullptr)
        fail(key, "'" + key + "' has to be a text in quotes");
    if ((*value)->size() > maximum)
        fail(key, "'" + key + "' has " + std::to_string((*value)->size()) + " bytes; at most " +
                      std::to_string(maximum) + " fit");
    if ((*value)->find('\0') != std::string::npos)
        fail(key, "'" + key + "' has a zero byte");
    return **value;
}

std::string DescriptionTable::text(const std::string& key, size_t maximum) {
    return textOf(require(key), key, maximum);
}

std::string DescriptionTable::text(const std::string& key, size_t maximum, const std::string& fallback) {
    const toml::node* node = find(key);
    return node != nullptr ? textOf(*node, key, maximum) : fallback;
}

int64_t DescriptionTable::numberOf(const toml::node& node, const std::string& key, int64_t minimum,
                                   int64_t maximum) const {
    const auto* value = node.as_integer();
    if (value == nullptr)
        fail(key, "'" + key + "' has to be a whole number");
    if (value->get() < minimum || value->get() > maximum)
        fail(key,
             "'" + key + "' has to be from " + std::to_string(minimum) + " to " + std::to_string(maximum));
    return value->get();
}

int64_t DescriptionTable::number(const std::string& key, int64_t minimum, int64_t maximum) {
    return numberOf(require(key), key, minimum, maximum);
}

int64_t DescriptionTable::number(const std::string& key, int64_t minimum, int64_t maximum, int64_t fallback) {
    const toml::node* node = find(key);
    return node != nullptr ? numberOf(*node, key, minimum, maximum) : fallback;
}

bool DescriptionTable::flag(const std::string& key, bool fallback) {
    const toml::node* node = find(key);
    if (node == nullptr)
        return fallback;
    const auto* value = node->as_boolean();
    if (value == nullptr)
        fail(key, "'" + key + "' has to be true or false");
    return value->get();
}

imagefile::Version DescriptionTable::version(const std::string& key) {
    imagefile::Version version;
    if (!parseVersion(text(key, std::numeric_limits<size_t>::max()), version))
        fail(key, "'" + key + "' has to be like \"1.5.7\": major and minor up to 255, build up to 65535");
    return version;
}

uint32_t DescriptionTable::time(const std::string& key) {
    const toml::node* node = find(key);
    if (node == nullptr)
        return 0;
    int64_t seconds = -1;
    if (const auto* number = node->as_integer())
        seconds = number->get();
    else if (const auto* at = node->as_date_time())
        seconds = secondsSinceEpoch(at->get());
    else
        fail(key, "'" + key + "' has to be a date and time, or seconds since 1970");
    if (seconds < 0 || seconds > std::numeric_limits<uint32_t>::max())
        fail(key, "'" + key + "' has to be from 1970 to 2106");
    return static_cast<uint32_t>(seconds);
}

imagefile::Bytes DescriptionTable::hex(const std::string& key) {
    std::string digits;
    for (const char c : text(key, std::numeric_limits<size_t>::max())) {
        if (isxdigit(static_cast<unsigned char>(c)) != 0)
            digits += c;
        else if (isspace(static_cast<unsigned char>(c)) == 0)
            fail(key, std::string("'") + key + "' has a character that is no hexadecimal digit: '" + c + "'");
    }
    if (digits.size() % 2 != 0)
        fail(key, "'" + key + "' has an odd number of digits");
    imagefile::Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

DescriptionTable DescriptionTable::table(const std::string& key) {
    const toml::node& node = require(key);
    if (node.as_table() == nullptr)
        fail(key, "'" + key + "' has to be a table: [" + key + "]");
    return {mFile, *node.as_table(), key};
}

std::vector<DescriptionTable> DescriptionTable::tables(const std::string& key, const std::string& what) {
    std::vector<DescriptionTable> tables;
    const toml::node* node = find(key);
    if (node == nullptr)
        return tables;
    if (node->as_array() == nullptr || !node->as_array()->is_homogeneous(toml::node_type::table))
        fail(key, "'" + key + "' has to be tables, in double brackets");
    for (const toml::node& element : *node->as_array())
        tables.emplace_back(mFile, *element.as_table(), what);
    return tables;
}

void DescriptionTable::rejectOtherKeys() const {
    for (const auto& [key, value] : mTable)
        if (mKnownKeys.count(std::string(key.str())) == 0)
            failAt(key.source(), "the " + mWhat + " knows no key '" + std::string(key.str()) + "'");
}

Description::Description(const std::string& file) : mFile(file), mTable(parse(file)) {}

std::string Description::resolve(const std::string& path) const {
    const size_t slash = mFile.find_last_of('/');
    if (slash == std::string::npos || (!path.empty() && path[0] == '/'))
        return path;
    return mFile.substr(0, slash + 1) + path;
}

} // namespace zemp
