// Client of the terminal's configuration database: text values by key, shared by all processes.
//
// The database is the file $VEX_CONFIGDB, else /var/lib/vex/config.db. The connection is used by one thread
// at a time, and not across a fork. A write is on disk when the call returns; another process that writes at
// the same moment is waited for, up to 5 s. A file that took the name of the open one is opened anew by the
// next call.
#ifndef VEX_CONFIGDATABASECONNECTION_H
#define VEX_CONFIGDATABASECONNECTION_H

#include "vex/Export.h"
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace common {

class CBusConnection;

struct ConfigDatabaseRecord {
    enum Type { TypeUnspecified = 0, TypeInteger = 1, TypeString = 2 };

    int type;          // one of Type
    const char* value; // terminated text; may be null
};

class VEX_PUBLIC ConfigDatabaseConnection {
  public:
    ~ConfigDatabaseConnection();
    ConfigDatabaseConnection(const ConfigDatabaseConnection&) = delete;
    ConfigDatabaseConnection& operator=(const ConfigDatabaseConnection&) = delete;

    // The process-wide client, made on first use and never destroyed before the process ends.
    static ConfigDatabaseConnection* getInstance();

    // Opens the database, making file and table when absent, but not its directory. `bus` must be connected.
    // False, with the reason in the system log, on failure; may be tried again. Opens anew when open.
    [[nodiscard]] bool connect(CBusConnection& bus);

    // The same without a bus, for tools.
    [[nodiscard]] bool open();

    // The same for whoever only reads: one that is absent, or an empty file, is a failure; none is made.
    [[nodiscard]] bool openExisting();

    bool connected() const;
    void disconnect();

    // Reads the records of `key`. True when there is at least one; then `records` points at `count` records
    // to be released with free(). False when there is none, or on failure; then `count` is 0, `records` null.
    // What fails is tried five times more within a second first.
    [[nodiscard]] bool read(const char* key, unsigned& count, ConfigDatabaseRecord*& records);

    // Releases what read() gave; null is ignored.
    void free(ConfigDatabaseRecord* records);

    // Stores one text value under `key`, replacing what was there.
    [[nodiscard]] bool writeString(const char* key, const char* value);

    // Stores several text values by key; all of them or, on failure, none.
    [[nodiscard]] bool writeStrings(const std::vector<std::pair<std::string, std::string>>& values);

    // Removes `key`; true also when it was not there.
    [[nodiscard]] bool erase(const char* key);

    // The keys that begin with `prefix`, in ascending order. False on failure.
    [[nodiscard]] bool list(const char* prefix, std::vector<std::string>& keys);

    // Why the last call failed, one line; empty when it did not, so also after a read() of an absent key.
    const std::string& lastError() const;

  private:
    ConfigDatabaseConnection();
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

} // namespace common

#endif
