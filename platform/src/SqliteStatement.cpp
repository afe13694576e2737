#include "SqliteStatement.h"

SqliteStatement::SqliteStatement(sqlite3* database, const char* sql)
    : mResult(sqlite3_prepare_v2(database, sql, -1, &mStatement, nullptr)) {}

SqliteStatement::~SqliteStatement() {
    sqlite3_finalize(mStatement);
}

void SqliteStatement::bind(int index, const std::string& text) {
    if (mResult == SQLITE_OK)
        mResult =
            sqlite3_bind_text64(mStatement, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void SqliteStatement::bind(int index, int value) {
    if (mResult == SQLITE_OK)
        mResult = sqlite3_bind_int(mStatement, index, value);
}

int SqliteStatement::step() {
    if (mResult == SQLITE_OK || mResult == SQLITE_ROW)
        mResult = sqlite3_step(mStatement);
    return mResult;
}

const char* SqliteStatement::text(int column) {
    return reinterpret_cast<const char*>(sqlite3_column_text(mStatement, column));
}

int SqliteStatement::integer(int column) {
    return sqlite3_column_int(mStatement, column);
}

int SqliteStatement::run(sqlite3* database, const char* sql) {
    return sqlite3_exec(database, sql, nullptr, nullptr, nullptr);
}

SqliteTransaction::SqliteTransaction(sqlite3* database)
    : mDatabase(database), mOpen(SqliteStatement::run(database, "BEGIN IMMEDIATE") == SQLITE_OK) {}

// A rollback that fails leaves nothing behind that the next transaction would not show.
SqliteTransaction::~SqliteTransaction() {
    if (mOpen)
        (void)SqliteStatement::run(mDatabase, "ROLLBACK");
}

bool SqliteTransaction::commit() {
    if (SqliteStatement::run(mDatabase, "COMMIT") != SQLITE_OK)
        return false;
    mOpen = false;
    return true;
}
