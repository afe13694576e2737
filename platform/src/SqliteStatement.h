// Owners of SQLite's statements and transactions. Failures are SQLite's own result codes; the text of the
// last one stays with the database handle.
#ifndef PLATFORM_SQLITESTATEMENT_H
#define PLATFORM_SQLITESTATEMENT_H

#include <sqlite3.h>
#include <string>

// One statement, finalised at the end of its scope. When it could not be prepared, step() says so.
class SqliteStatement {
  public:
    SqliteStatement(sqlite3* database, const char* sql);
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    // Sets a parameter, counted from 1. The text is copied.
    void bind(int index, const std::string& text);
    void bind(int index, int value);

    // SQLITE_ROW, SQLITE_DONE, or an error.
    [[nodiscard]] int step();

    // Columns of the current row, counted from 0. The text is null for a null value and ends with the next
    // step().
    const char* text(int column);
    int integer(int column);

    // Runs a statement without parameters whose rows do not matter. SQLITE_OK or an error.
    [[nodiscard]] static int run(sqlite3* database, const char* sql);

  private:
    sqlite3_stmt* mStatement = nullptr;
    int mResult; // of the last call
};

// A write transaction, rolled back at the end of its scope unless committed.
class SqliteTransaction {
  public:
    // Waits for other writers as long as the database's busy timeout says.
    explicit SqliteTransaction(sqlite3* database);
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;

    bool begun() const { return mOpen; }

    // True when everything written since the beginning is on disk.
    [[nodiscard]] bool commit();

  private:
    sqlite3* const mDatabase;
    bool mOpen;
};

#endif
