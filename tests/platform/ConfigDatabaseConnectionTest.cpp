#include "vex/ConfigDatabaseConnection.h"
#include "support/TestPlatform.h"
#include "vex/CBusConnection.h"
#include "vex/FdLoop.h"
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using common::ConfigDatabaseConnection;
using common::ConfigDatabaseRecord;
using Keys = std::vector<std::string>;

namespace {

// A database of the test's own; what others do to the file goes through SQLite itself.
class ConfigDatabase : public testing::Test {
  protected:
    ~ConfigDatabase() override { database.disconnect(); }

    void execute(const char* sql) const {
        sqlite3* other = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open(mDirectory.file("config.db").c_str(), &other));
        ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, sql, nullptr, nullptr, nullptr)) << sqlite3_errmsg(other);
        sqlite3_close(other);
    }

    // "type=value" of each record, in order; nothing when read() says false.
    Keys read(const char* key) {
        unsigned count = 99;
        ConfigDatabaseRecord* records = nullptr;
        Keys result;
        if (!database.read(key, count, records)) {
            EXPECT_EQ(0U, count);
            EXPECT_EQ(nullptr, records);
        }
        for (unsigned i = 0; i < count; ++i)
            result.push_back(std::to_string(records[i].type) + "=" +
                             (records[i].value != nullptr ? records[i].value : "NULL"));
        database.free(records);
        return result;
    }

    ConfigDatabaseConnection& database = *ConfigDatabaseConnection::getInstance();
    lab::TemporaryDirectory mDirectory;
    support::ScopedEnvironment mFile{"VEX_CONFIGDB", mDirectory.file("config.db")};
};

// Lets reads of the file fail, by a file system of SQLite's between it and the real one.
class FailingReads {
  public:
    FailingReads() {
        sReal = sqlite3_vfs_find(nullptr);
        mSystem = *sReal;
        mSystem.zName = "failing";
        mSystem.xOpen = [](sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
            const int result = sReal->xOpen(sReal, name, file, flags, outFlags);
            if (file->pMethods != nullptr && (flags & SQLITE_OPEN_MAIN_DB) != 0) {
                sRealMethods = file->pMethods;
                sMethods = *sRealMethods;
                sMethods.xRead = [](sqlite3_file* from, void* to, int size, sqlite3_int64 offset) {
                    return sCount > 0 && sCount-- > 0 ? SQLITE_IOERR_READ
                                                      : sRealMethods->xRead(from, to, size, offset);
                };
                file->pMethods = &sMethods;
            }
            return result;
        };
        sqlite3_vfs_register(&mSystem, 1);
    }
    ~FailingReads() {
        sCount = 0;
        sqlite3_vfs_unregister(&mSystem);
        sqlite3_vfs_register(sReal, 1);
    }
    FailingReads(const FailingReads&) = delete;
    FailingReads& operator=(const FailingReads&) = delete;

    static int sCount; // so many will fail

  private:
    static sqlite3_vfs* sReal;
    static const sqlite3_io_methods* sRealMethods;
    static sqlite3_io_methods sMethods;
    sqlite3_vfs mSystem{};
};

int FailingReads::sCount = 0;
sqlite3_vfs* FailingReads::sReal = nullptr;
const sqlite3_io_methods* FailingReads::sRealMethods = nullptr;
sqlite3_io_methods FailingReads::sMethods;

TEST_F(ConfigDatabase, ReadsAgainBeforeItReportsAFailure) {
    const FailingReads failing;
    ASSERT_TRUE(database.open());
    execute("INSERT INTO config VALUES ('cfg.a', 2, 'value'); PRAGMA wal_checkpoint(TRUNCATE)");
    FailingReads::sCount = 4;
    EXPECT_EQ(Keys{"2=value"}, read("cfg.a"));
    EXPECT_EQ(0, FailingReads::sCount) << "it did not read from the file";
    execute("INSERT INTO config VALUES ('cfg.a', 2, 'value'); PRAGMA wal_checkpoint(TRUNCATE)");
    FailingReads::sCount = 1000;
    EXPECT_EQ(Keys{}, read("cfg.a"));
    EXPECT_NE("", database.lastError());
    FailingReads::sCount = 0;
    EXPECT_EQ(Keys({"2=value", "2=value"}), read("cfg.a"));
    database.disconnect();
}

TEST_F(ConfigDatabase, FileThatWasReplacedIsOpenedAnew) {
    const std::string file = mDirectory.file("config.db");
    const std::string other = mDirectory.file("other.db");
    const auto replaceBy = [&](const std::string& replacement) {
        EXPECT_EQ(0, rename(replacement.c_str(), file.c_str()));
    };
    ASSERT_TRUE(database.open());
    ASSERT_TRUE(database.writeString("cfg.a", "before"));
    database.disconnect();
    ASSERT_EQ(0, rename(file.c_str(), other.c_str()));
    ASSERT_TRUE(database.open());
    ASSERT_TRUE(database.writeString("cfg.a", "after"));
    EXPECT_EQ(Keys{"2=after"}, read("cfg.a"));
    replaceBy(other);
    EXPECT_EQ(Keys{"2=before"}, read("cfg.a")) << "nothing of the old file's log";
    EXPECT_TRUE(database.writeString("cfg.b", "new"));
    EXPECT_EQ(Keys{"2=new"}, read("cfg.b"));

    // What takes its place and is no database fails each call, until it is replaced again.
    replaceBy(mDirectory.write("no.db", std::string(5000, 'x')));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Keys{}, read("cfg.a"));
        EXPECT_NE("", database.lastError());
    }
    ASSERT_EQ(0, unlink(file.c_str()));
    EXPECT_TRUE(database.writeString("cfg.a", "anew"));
    EXPECT_EQ(Keys{"2=anew"}, read("cfg.a"));
}

TEST_F(ConfigDatabase, WritesReadsErasesAndLists) {
    ASSERT_TRUE(database.open());
    EXPECT_TRUE(database.connected());
    EXPECT_EQ(Keys{}, read("cfg.a"));
    EXPECT_EQ("", database.lastError()) << "an absent key is no failure";
    EXPECT_TRUE(database.writeString("cfg.a", "first"));
    EXPECT_TRUE(database.writeString("cfg.a", "it's; \"quoted\" \xc3\xbc"));
    EXPECT_TRUE(database.writeStrings({{"cfg.b", ""}, {"state.c", "3"}, {"cfg.b", "last one counts"}}));
    EXPECT_EQ(Keys{"2=it's; \"quoted\" \xc3\xbc"}, read("cfg.a"));
    EXPECT_EQ(Keys{"2=last one counts"}, read("cfg.b"));

    Keys keys;
    EXPECT_TRUE(database.list("cfg.", keys));
    EXPECT_EQ((Keys{"cfg.a", "cfg.b"}), keys);
    EXPECT_TRUE(database.list("%", keys));
    EXPECT_EQ(Keys{}, keys);
    EXPECT_TRUE(database.erase("cfg.a"));
    EXPECT_TRUE(database.erase("cfg.a"));
    ASSERT_TRUE(database.open()) << "opens anew";
    EXPECT_TRUE(database.list(nullptr, keys));
    EXPECT_EQ((Keys{"cfg.b", "state.c"}), keys);
    struct stat status {};
    for (const char* const suffix : {"", "-wal", "-shm"}) {
        ASSERT_EQ(0, stat(mDirectory.file(std::string("config.db") + suffix).c_str(), &status));
        EXPECT_EQ(0640U, status.st_mode & 07777) << suffix;
    }
}

TEST_F(ConfigDatabase, RecordsOfAnyTypeAndNumberAreRead) {
    ASSERT_TRUE(database.open());
    execute("INSERT INTO config VALUES ('n', 1, 7), ('n', 2, 'seven'), ('n', 0, NULL)");
    EXPECT_EQ((Keys{"1=7", "2=seven", "0=NULL"}), read("n"));
    EXPECT_TRUE(database.writeString("n", "one"));
    EXPECT_EQ(Keys{"2=one"}, read("n"));
}

TEST_F(ConfigDatabase, NothingWorksUnconnectedOrWithoutKey) {
    Keys keys;
    EXPECT_EQ(Keys{}, read("a"));
    EXPECT_EQ("cannot read a: not connected", database.lastError());
    EXPECT_FALSE(database.connected() || database.writeString("a", "b") || database.erase("a"));
    EXPECT_FALSE(database.list("", keys));
    ASSERT_TRUE(database.open());
    EXPECT_EQ(Keys{}, read(nullptr));
    EXPECT_FALSE(database.writeString(nullptr, "b") || database.writeString("a", nullptr));
    EXPECT_FALSE(database.erase(nullptr));
}

TEST_F(ConfigDatabase, ConnectNeedsALivingBus) {
    support::TestPlatform platform;
    common::FdLoop loop;
    common::CBusConnection bus;
    EXPECT_FALSE(database.connect(bus));
    ASSERT_TRUE(bus.connect("client", loop));
    EXPECT_TRUE(database.connect(bus));
    EXPECT_TRUE(database.writeString("a", "b"));
    platform.bus().stop();
    EXPECT_FALSE(bus.sendSignal("a", nullptr, 0));
    EXPECT_FALSE(database.connect(bus));
    EXPECT_FALSE(database.connected());
}

TEST_F(ConfigDatabase, FilesThatAreNotOursAreRefusedAndLeftAlone) {
    const auto expectRefused = [&](const char* why) {
        EXPECT_FALSE(database.open());
        EXPECT_NE(std::string::npos, database.lastError().find(why)) << database.lastError();
    };
    ASSERT_TRUE(database.open());
    execute("PRAGMA user_version = 2");
    expectRefused("schema 2 is newer than the 1 of this library");

    ASSERT_EQ(0, unlink(mDirectory.file("config.db").c_str()));
    execute("CREATE TABLE other (x)");
    expectRefused("not a configuration database");

    mDirectory.write("config.db", std::string(5000, 'x'));
    expectRefused("not a database");

    const support::ScopedEnvironment missing("VEX_CONFIGDB", mDirectory.file("no/such.db"));
    expectRefused("there is no directory");
    EXPECT_FALSE(database.connected());
}

// Each process counts in keys of its own and rewrites a shared one; the file is made by whoever comes first.
TEST_F(ConfigDatabase, ProcessesWriteSideBySide) {
    constexpr int sProcesses = 4;
    constexpr int sWrites = 50;
    for (int process = 0; process < sProcesses; ++process) {
        if (fork() != 0)
            continue;
        bool good = database.open();
        const std::string mine = "p" + std::to_string(process) + ".";
        for (int i = 0; good && i < sWrites; ++i)
            good = database.writeStrings({{mine + std::to_string(i), "x"}, {"shared", mine}});
        database.disconnect();
        EXPECT_EQ("", database.lastError());
        _exit(good ? 0 : 1);
    }
    for (int process = 0; process < sProcesses; ++process) {
        int status = -1;
        ASSERT_GT(wait(&status), 0);
        EXPECT_EQ(0, status);
    }
    ASSERT_TRUE(database.open());
    Keys keys;
    ASSERT_TRUE(database.list("p", keys));
    EXPECT_EQ(static_cast<size_t>(sProcesses * sWrites), keys.size());
    EXPECT_EQ(1U, read("shared").size());
}

} // namespace
