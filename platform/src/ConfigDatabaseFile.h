// The configuration database's file: where it is, what is in it, and how it is opened.
//
// One table, config: key, type (2 = string), value. A key may have several records. The schema's version is
// the file's user_version.
#ifndef PLATFORM_CONFIGDATABASEFILE_H
#define PLATFORM_CONFIGDATABASEFILE_H

#include <memory>
#include <sqlite3.h>
#include <string>

struct SqliteCloser {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};

using SqliteDatabase = std::unique_ptr<sqlite3, SqliteCloser>;

// $VEX_CONFIGDB, else the system's place.
std::string configDatabasePath();

// Opens `path` for reading and writing and makes file and table when absent. Null on failure, with the reason
// in `error`: among others a missing directory, a schema newer than this library, another program's file.
SqliteDatabase openConfigDatabase(const std::string& path, std::string& error);

#endif
