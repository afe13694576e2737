#include "Commands.h"
#include "KnownNames.h"
#include "vex/ConfigDatabaseConnection.h"
#include <algorithm>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <utility>

using common::ConfigDatabaseConnection;
using common::ConfigDatabaseRecord;

namespace {

// Does `action` if the database has been opened, and closes it. What the action returns is the exit status.
int withDatabase(bool isOpen, const std::function<int(ConfigDatabaseConnection&)>& action) {
    ConfigDatabaseConnection& database = *ConfigDatabaseConnection::getInstance();
    const int status = isOpen ? action(database) : complain(sFailed, database.lastError());
    database.disconnect();
    return status;
}

int withNewDatabase(const std::function<int(ConfigDatabaseConnection&)>& action) {
    return withDatabase(ConfigDatabaseConnection::getInstance()->open(), action);
}

// Looking at a database never makes one.
int withExistingDatabase(const std::function<int(ConfigDatabaseConnection&)>& action) {
    return withDatabase(ConfigDatabaseConnection::getInstance()->openExisting(), action);
}

// The value of the first record of `key`; false, with the reason in the database, when there is none.
bool readValue(ConfigDatabaseConnection& database, const std::string& key, std::string& value) {
    unsigned count = 0;
    ConfigDatabaseRecord* records = nullptr;
    if (!database.read(key.c_str(), count, records))
        return false;
    value = records[0].value != nullptr ? records[0].value : "";
    database.free(records);
    return true;
}

int finishOutput() {
    std::cout.flush();
    return std::cout ? sDone : complain(sFailed, "cannot write to standard output");
}

} // namespace

int configGet(const std::string& key) {
    return withExistingDatabase([&](ConfigDatabaseConnection& database) {
        std::string value;
        if (readValue(database, key, value)) {
            std::cout << value << '\n';
            return finishOutput();
        }
        return complain(sFailed,
                        database.lastError().empty() ? "there is no key " + key : database.lastError());
    });
}

int configSet(const std::vector<std::string>& keysAndValues) {
    if (keysAndValues.empty() || keysAndValues.size() % 2 != 0)
        return complain(sWrongUse, "config set: give KEY VALUE [KEY VALUE ...], a value for every key");
    std::vector<std::pair<std::string, std::string>> values;
    for (size_t i = 0; i < keysAndValues.size(); i += 2) {
        if (keysAndValues[i].empty())
            return complain(sWrongUse, "config set: a key is empty");
        const std::string meant = findMisspelt(keysAndValues[i]);
        if (!meant.empty()) // other programs may have such a key
            complain(sDone, "warning: fw_download reads no key '" + keysAndValues[i] + "'; is '" + meant +
                                "' meant?");
        values.emplace_back(keysAndValues[i], keysAndValues[i + 1]);
    }
    return withNewDatabase([&](ConfigDatabaseConnection& database) {
        return database.writeStrings(values) ? sDone : complain(sFailed, database.lastError());
    });
}

int configErase(const std::vector<std::string>& keys) {
    if (keys.empty())
        return complain(sWrongUse, "config erase: give KEY ...");
    return withNewDatabase([&](ConfigDatabaseConnection& database) {
        for (const std::string& key : keys)
            if (!database.erase(key.c_str()))
                return complain(sFailed, database.lastError());
        return sDone;
    });
}

namespace {

constexpr char Delete = 0x7f; // the one control character that JSON leaves as it is

// In quotes, with the escapes of JSON.
std::string inQuotes(const std::string& text) {
    std::string result = nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    for (size_t at = 0; (at = result.find(Delete, at)) != std::string::npos;)
        result.replace(at, 1, "\\u007f");
    return result;
}

bool hasControls(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == Delete; });
}

// A line KEY=VALUE that is read in one way only: what could be taken for something else is in quotes.
std::string lineOf(const std::string& key, const std::string& value) {
    const bool isBlankAtEnds = !value.empty() && (value.front() == ' ' || value.back() == ' ');
    const bool isKeyPlain = !hasControls(key) && key.find('=') == std::string::npos && key.rfind('"', 0) != 0;
    const bool isValuePlain = !hasControls(value) && !isBlankAtEnds && value.rfind('"', 0) != 0;
    return (isKeyPlain ? key : inQuotes(key)) + "=" + (isValuePlain ? value : inQuotes(value));
}

} // namespace

int configList(const std::string& prefix, bool isJson) {
    return withExistingDatabase([&](ConfigDatabaseConnection& database) {
        std::vector<std::string> keys;
        if (!database.list(prefix.c_str(), keys))
            return complain(sFailed, database.lastError());
        nlohmann::json all = nlohmann::json::object();
        for (const std::string& key : keys) {
            std::string value;
            if (!readValue(database, key, value)) {
                if (!database.lastError().empty())
                    return complain(sFailed, database.lastError());
            } else if (isJson) {
                all[key] = value;
            } else {
                std::cout << lineOf(key, value) << '\n';
            }
        }
        if (isJson)
            std::cout << all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        return finishOutput();
    });
}
