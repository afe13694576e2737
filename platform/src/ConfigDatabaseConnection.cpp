#include "vex/ConfigDatabaseConnection.h"

#include "CBusHandle.h"
#include "CancellationBlock.h"
#include "ConfigDatabaseFile.h"
#include "SqliteStatement.h"
#include "vex/CBusConnection.h"
#include "vex/kq.h"
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sys/stat.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>

namespace common {

namespace {

struct StoredRecord {
    int type;
    std::optional<std::string> value;
};

// Everything in one block, the texts behind the records, so that free() needs no more than the pointer.
ConfigDatabaseRecord* copyOut(const std::vector<StoredRecord>& stored) {
    size_t size = stored.size() * sizeof(ConfigDatabaseRecord);
    for (const StoredRecord& record : stored)
        size += record.value ? record.value->size() + 1 : 0;
    auto* const records = static_cast<ConfigDatabaseRecord*>(malloc(size));
    if (records == nullptr)
        return nullptr;
    char* text = reinterpret_cast<char*>(records + stored.size());
    for (size_t i = 0; i < stored.size(); ++i) {
        records[i] = ConfigDatabaseRecord{stored[i].type, nullptr};
        if (!stored[i].value)
            continue;
        const size_t length = stored[i].value->size() + 1;
        memcpy(text, stored[i].value->c_str(), length);
        records[i].value = text;
        text += length;
    }
    return records;
}

// The caller has the transaction.
bool store(sqlite3* database, const std::string& key, const std::string& value) {
    SqliteStatement remove(database, "DELETE FROM config WHERE key = ?1");
    remove.bind(1, key);
    if (remove.step() != SQLITE_DONE)
        return false;
    SqliteStatement insert(database, "INSERT INTO config (key, type, value) VALUES (?1, ?2, ?3)");
    insert.bind(1, key);
    insert.bind(2, ConfigDatabaseRecord::TypeString);
    insert.bind(3, value);
    return insert.step() == SQLITE_DONE;
}

// Reads again when the file could not be read: one fault of a flash must not look like a key that is absent.
// A lock was waited for already.
constexpr int ReadAttempts = 6;
constexpr std::chrono::milliseconds ReadPause(200);

int readRecords(sqlite3* database, const char* key, std::vector<StoredRecord>& stored) {
    SqliteStatement select(database, "SELECT type, value FROM config WHERE key = ?1 ORDER BY rowid");
    select.bind(1, key);
    stored.clear();
    int result = select.step();
    for (; result == SQLITE_ROW; result = select.step()) {
        const char* const text = select.text(1);
        stored.push_back(
            {select.integer(0), text != nullptr ? std::make_optional<std::string>(text) : std::nullopt});
    }
    return result;
}

// What tells a file from another that took its name.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;

    bool exists() const { return inode != 0; }
    bool operator==(const FileId& other) const { return device == other.device && inode == other.inode; }
};

// All zero when there is no such file.
FileId identify(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? FileId{status.st_dev, status.st_ino} : FileId();
}

} // namespace

struct [[gnu::visibility("hidden")]] ConfigDatabaseConnection::Impl {
    // Notes and logs why a call failed; always false.
    bool fail(const std::string& what, const std::string& why) {
        lastError = what + ": " + why;
        kq_slog(LOG_ERR, "ConfigDatabaseConnection: %s", lastError.c_str());
        return false;
    }

    // The beginning of every call; false, and noted, when there is no database or no key.
    bool begin(const std::string& what, bool complete) {
        lastError.clear();
        if (!isWanted)
            return fail(what, "not connected");
        if (database == nullptr ? !open() : isReplaced() && !openReplacement())
            return false;
        return complete || fail(what, "key or value missing");
    }

    bool failInDatabase(const std::string& what) {
        return fail(what, sqlite3_errmsg(database.get()));
    }

    bool open() {
        isWanted = true;
        path = configDatabasePath();
        std::string error;
        database.reset();
        database = openConfigDatabase(path, error);
        if (database == nullptr)
            return fail("cannot open the configuration database " + path, error);
        file = identify(path);
        log = identify(logPath());
        return true;
    }

    // The old file's log still stands beside the new file, and would be taken for its own.
    bool openReplacement() {
        database.reset();
        if (log.exists() && identify(logPath()) == log) {
            unlink(logPath().c_str());
            unlink((path + "-shm").c_str());
        }
        return open();
    }

    // Whether another file took the name of the open one.
    bool isReplaced() const {
        const FileId now = identify(path);
        return now.exists() && !(now == file);
    }

    std::string logPath() const {
        return path + "-wal";
    }

    bool isWanted = false;   // opened once, and not disconnected
    SqliteDatabase database; // null while not connected
    std::string path;        // of its file
    FileId file;
    FileId log; // the write-ahead log beside it
    std::string lastError;
};

ConfigDatabaseConnection::ConfigDatabaseConnection() : mImpl(std::make_unique<Impl>()) {}

ConfigDatabaseConnection::~ConfigDatabaseConnection() = default;

ConfigDatabaseConnection* ConfigDatabaseConnection::getInstance() {
    static ConfigDatabaseConnection* const sInstance = new ConfigDatabaseConnection;
    return sInstance;
}

bool ConfigDatabaseConnection::connect(CBusConnection& bus) {
    if (!cbusIsOpen(bus.getHandle())) {
        disconnect();
        return mImpl->fail("cannot open the configuration database", "no bus");
    }
    return open();
}

bool ConfigDatabaseConnection::open() {
    const CancellationBlock block;
    mImpl->lastError.clear();
    if (mImpl->open())
        return true;
    mImpl->isWanted = false;
    return false;
}

bool ConfigDatabaseConnection::openExisting() {
    const std::string path = configDatabasePath();
    struct stat status = {};
    const bool isThere = stat(path.c_str(), &status) == 0;
    if (isThere && (!S_ISREG(status.st_mode) || status.st_size > 0)) // an empty file would become one
        return open();
    const std::string error = isThere ? "it is empty" : strerror(errno);
    disconnect();
    return mImpl->fail("cannot open the configuration database " + path, error);
}

bool ConfigDatabaseConnection::connected() const {
    return mImpl->database != nullptr;
}

void ConfigDatabaseConnection::disconnect() {
    const CancellationBlock block;
    mImpl->isWanted = false;
    mImpl->database.reset();
}

bool ConfigDatabaseConnection::read(const char* key, unsigned& count, ConfigDatabaseRecord*& records) {
    const CancellationBlock block;
    count = 0;
    records = nullptr;
    const std::string what = std::string("cannot read ") + (key != nullptr ? key : "a key");
    if (!mImpl->begin(what, key != nullptr))
        return false;
    std::vector<StoredRecord> stored;
    int result = readRecords(mImpl->database.get(), key, stored);
    for (int attempt = 1; result != SQLITE_DONE && result != SQLITE_BUSY && attempt < ReadAttempts;
         ++attempt) {
        std::this_thread::sleep_for(ReadPause);
        result = readRecords(mImpl->database.get(), key, stored);
    }
    if (result != SQLITE_DONE)
        return mImpl->failInDatabase(what);
    if (stored.empty())
        return false;
    records = copyOut(stored);
    if (records == nullptr)
        return mImpl->fail(what, "out of memory");
    count = static_cast<unsigned>(stored.size());
    return true;
}

void ConfigDatabaseConnection::free(ConfigDatabaseRecord* records) {
    ::free(records);
}

bool ConfigDatabaseConnection::writeString(const char* key, const char* value) {
    if (key == nullptr || value == nullptr)
        return mImpl->begin(std::string("cannot write ") + (key != nullptr ? key : "a key"), false);
    return writeStrings({{key, value}});
}

bool ConfigDatabaseConnection::writeStrings(const std::vector<std::pair<std::string, std::string>>& values) {
    const CancellationBlock block;
    std::string what = "cannot write " + (values.empty() ? "nothing" : values.front().first);
    if (!mImpl->begin(what, true))
        return false;
    SqliteTransaction transaction(mImpl->database.get());
    if (!transaction.begun())
        return mImpl->failInDatabase(what);
    for (const auto& value : values) {
        what = "cannot write " + value.first;
        if (!store(mImpl->database.get(), value.first, value.second))
            return mImpl->failInDatabase(what);
    }
    return transaction.commit() || mImpl->failInDatabase(what);
}

bool ConfigDatabaseConnection::erase(const char* key) {
    const CancellationBlock block;
    const std::string what = std::string("cannot erase ") + (key != nullptr ? key : "a key");
    if (!mImpl->begin(what, key != nullptr))
        return false;
    SqliteTransaction transaction(mImpl->database.get());
    if (!transaction.begun())
        return mImpl->failInDatabase(what);
    SqliteStatement remove(mImpl->database.get(), "DELETE FROM config WHERE key = ?1");
    remove.bind(1, key);
    const bool removed = remove.step() == SQLITE_DONE;
    return (removed && transaction.commit()) || mImpl->failInDatabase(what);
}

bool ConfigDatabaseConnection::list(const char* prefix, std::vector<std::string>& keys) {
    const CancellationBlock block;
    keys.clear();
    const std::string what = "cannot list the keys";
    if (!mImpl->begin(what, true))
        return false;
    SqliteStatement select(
        mImpl->database.get(),
        "SELECT DISTINCT key FROM config WHERE substr(key, 1, length(?1)) = ?1 ORDER BY key");
    select.bind(1, prefix != nullptr ? prefix : "");
    int result = select.step();
    for (; result == SQLITE_ROW; result = select.step())
        keys.emplace_back(select.text(0));
    return result == SQLITE_DONE || mImpl->failInDatabase(what);
}

const std::string& ConfigDatabaseConnection::lastError() const {
    return mImpl->lastError;
}

} // namespace common
