#include "ConfigDatabaseFile.h"

#include "SqliteStatement.h"
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int sSchemaVersion = 1;

// How long another process's write is waited for.
constexpr int sBusyTimeoutMs = 5000;

// Passwords and addresses may stand in it. Log and shared memory beside it get the same mode from SQLite.
constexpr mode_t sDatabaseMode = 0640;

// Between two attempts at what SQLite's own waiting does not cover.
constexpr std::chrono::milliseconds sRetryPause(20);

constexpr const char* sCreate = "CREATE TABLE config (key TEXT NOT NULL, type INTEGER NOT NULL, value TEXT);"
                                "CREATE INDEX config_key ON config (key);"
                                "PRAGMA user_version = 1";

bool directoryExists(const std::string& path, std::string& directory) {
    const size_t slash = path.rfind('/');
    directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    struct stat status {};
    return stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Readers and writers do not wait for each other in this mode. The file remembers it. The change itself needs
// the file alone, and SQLite may answer busy at once when two processes attempt it together.
bool useWriteAheadLog(sqlite3* database) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(sBusyTimeoutMs);
    for (;;) {
        SqliteStatement statement(database, "PRAGMA journal_mode = WAL");
        const int result = statement.step();
        if (result == SQLITE_ROW)
            return std::string(statement.text(0)) == "wal";
        if (result != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(sRetryPause);
    }
}

// Whether the schema is ours or there is none yet; `version` is then 1 or 0. One statement looks at all,
// since another process may make the schema meanwhile.
bool checkSchema(sqlite3* database, int& version, std::string& error) {
    SqliteStatement statement(
        database, "SELECT user_version, (SELECT count(*) FROM sqlite_master) FROM pragma_user_version");
    if (statement.step() != SQLITE_ROW) {
        error = sqlite3_errmsg(database);
        return false;
    }
    version = statement.integer(0);
    const int tables = statement.integer(1);
    if (version > sSchemaVersion) {
        error = "its schema " + std::to_string(version) + " is newer than the " +
                std::to_string(sSchemaVersion) + " of this library";
        return false;
    }
    if (version < 0 || (version == 0 && tables > 0)) {
        error = "it is not a configuration database";
        return false;
    }
    return true;
}

// Another process may be doing the same: the schema is looked at again inside the transaction.
bool createSchema(sqlite3* database, std::string& error) {
    SqliteTransaction transaction(database);
    int version = 0;
    if (transaction.begun() && !checkSchema(database, version, error))
        return false;
    const bool present = version == sSchemaVersion;
    if (transaction.begun() && (present || SqliteStatement::run(database, sCreate) == SQLITE_OK) &&
        transaction.commit())
        return true;
    error = sqlite3_errmsg(database);
    return false;
}

} // namespace

std::string configDatabasePath() {
    const char* const path = getenv("VEX_CONFIGDB");
    return path != nullptr && *path != '\0' ? path : "/var/lib/vex/config.db";
}

SqliteDatabase openConfigDatabase(const std::string& path, std::string& error) {
    std::string directory;
    if (!directoryExists(path, directory)) {
        error = "there is no directory " + directory;
        return nullptr;
    }
    // SQLite would let everybody read a file that it makes itself; what is there already keeps its mode.
    const int made = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, sDatabaseMode);
    if (made >= 0)
        close(made);
    sqlite3* opened = nullptr;
    const int result =
        sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    SqliteDatabase database(opened);
    if (result != SQLITE_OK) {
        error = opened != nullptr ? sqlite3_errmsg(opened) : sqlite3_errstr(result);
        return nullptr;
    }
    sqlite3_busy_timeout(opened, sBusyTimeoutMs);
    int version = 0;
    if (!checkSchema(opened, version, error))
        return nullptr;
    if (!useWriteAheadLog(opened)) {
        error = std::string("no write-ahead log: ") + sqlite3_errmsg(opened);
        return nullptr;
    }
    if (SqliteStatement::run(opened, "PRAGMA synchronous = FULL") != SQLITE_OK) {
        error = sqlite3_errmsg(opened);
        return nullptr;
    }
    if (version != sSchemaVersion && !createSchema(opened, error))
        return nullptr;
    return database;
}
