// Real database files: written here and read by the sqlite3 command's library, contended, damaged.
#include <sqlite3.h>
#include <sys/mount.h>

#include "support/test.h"

/// An open connection to a file with the table "registry".
struct Database : SQLiteConnection {
    explicit Database(const std::string &path) {
        SetDBFilename(path);
        Open(&e);
        EXPECT_TRUE(IsOpen() && CreateRegistryTable(&e));
    }
    /// The record's code; behind a call that gave false, to be told from one that did not.
    int code(bool failed = true) const { return failed ? e.GetErrorCode() : -1; }
    SQLiteException e;
};
using SqliteTest = FolderTest;

TEST_F(SqliteTest, RowsTypesAndTheEndAreToldByTheRecord) {
    Database db(path);
    EXPECT_EQ(101, db.code());
    ASSERT_TRUE(db.Execute("CREATE TABLE t (i INTEGER, d REAL, s TEXT)", &db.e));
    std::unique_ptr<SQLitePreparedStatement> insert(db.PrepareStatement("INSERT INTO t VALUES (?, ?, ?)"));
    const std::string texts[] = {"one", std::string("t\0wo", 4), ""};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0, insert->SetInt64(1, (1LL << 40) * (i - 1)) | insert->SetDouble(2, i / 2.0) |
                         insert->SetString(3, texts[i]));
        EXPECT_TRUE(insert->Execute(&db.e) && db.code() == 101);
    }
    EXPECT_EQ(SQLITE_RANGE, insert->SetBoolean(4, true));
    std::unique_ptr<SQLitePreparedStatement> select(db.PrepareStatement("SELECT i, d, s, NULL FROM t WHERE d <= ?"));
    for (const double limit : {1.0, 0.5, -1.0}) {  // bound anew after every run
        EXPECT_EQ(0, select->SetDouble(1, limit));
        SQLiteResultSet rows = select->ExecuteQuery(&db.e);
        int seen = 0;
        while (db.e.IsGood() && !rows.IsLast()) {
            EXPECT_EQ(100, db.code());
            EXPECT_EQ((1LL << 40) * (seen - 1), rows.GetInt64(0));
            EXPECT_EQ(seen / 2.0, rows.GetDouble(1));
            EXPECT_EQ(texts[seen], rows.GetString(2));
            EXPECT_EQ("", rows.GetString(3));
            ++seen;
            const bool end = rows.Next(&db.e);
            EXPECT_EQ(end, rows.IsLast()) << "true only at the end";
        }
        EXPECT_EQ(static_cast<int>(limit * 2 + 1 > 0 ? limit * 2 + 1 : 0), seen);
    }
    std::unique_ptr<SQLitePreparedStatement> truth(db.PrepareStatement("SELECT -1, 2"));
    SQLiteResultSet row = truth->ExecuteQuery(nullptr);
    EXPECT_TRUE(!row.GetBoolean(0) && row.GetBoolean(1));

    EXPECT_EQ(1, db.code(!db.Execute("SELEKT", &db.e)));
    EXPECT_STREQ("near \"SELEKT\": syntax error", db.e.what());
    EXPECT_EQ(nullptr, db.PrepareStatement("SELEKT"));
    EXPECT_EQ(21, db.code(!db.Execute("", &db.e)));
    ASSERT_TRUE(db.Execute("CREATE UNIQUE INDEX u ON t(s)", &db.e));
    insert->SetString(3, texts[0]);
    EXPECT_EQ(19, db.code(!insert->Execute(&db.e)));
    EXPECT_EQ(5, db.Close()) << "statements are alive";
    insert.reset(), select.reset(), truth.reset();
    EXPECT_EQ(21, db.code(!db.Execute("SELECT 1", &db.e)));
}

TEST_F(SqliteTest, RegistryKeepsNamesAndValuesAndLocksNothing) {
    Database db(path), other(path);
    const std::string odd("a'\0b", 4);
    EXPECT_TRUE(db.SetRegistryItem("name", "old", &db.e) && db.SetRegistryItem("name", "new", nullptr));
    EXPECT_TRUE(db.SetRegistryItem(odd, odd, &db.e));
    EXPECT_EQ("new", other.GetRegistryItem("name", &other.e));
    EXPECT_EQ(odd, other.GetRegistryItem(odd, &other.e));
    EXPECT_EQ("", other.GetRegistryItem("absent", &other.e));
    EXPECT_EQ(101, other.code());
    EXPECT_TRUE(db.SetRegistryItem("name", "at once", &db.e)) << "the read left no lock behind";
    EXPECT_EQ("at once", other.GetRegistryItem("name", &other.e));
    sqlite3_limit(db.GetHandle(), SQLITE_LIMIT_LENGTH, 1000);
    const std::string large(1001, 'x');
    EXPECT_EQ(18, db.code(!db.SetRegistryItem("name", large, &db.e))) << "what cannot be bound is not stored as NULL";
    EXPECT_EQ(18, db.code(db.GetRegistryItem(large, &db.e).empty()));
    EXPECT_EQ("at once", db.GetRegistryItem("name", &db.e));
    ASSERT_TRUE(db.Execute("DROP TABLE registry", &db.e));
    EXPECT_EQ(1, other.code(other.GetRegistryItem("name", &other.e).empty()));
    EXPECT_EQ(1, db.code(!db.SetRegistryItem("name", "x", &db.e)));
    EXPECT_TRUE(db.CreateRegistryTable(&db.e) && db.SetRegistryItem("name", "back", &db.e));
}

TEST_F(SqliteTest, TransactionsCommitRollBackAndReportThroughTheRecord) {
    Database db(path);
    for (int i = 0; i < 3; ++i) {  // the statements are kept, the record holds 101 from before
        EXPECT_TRUE(db.SetAutoCommit(false, &db.e));
        EXPECT_TRUE(db.SetRegistryItem("n", std::to_string(i), &db.e));
        EXPECT_TRUE(i == 1 ? db.Rollback(&db.e) : db.SetAutoCommit(true, &db.e));
    }
    EXPECT_EQ("2", db.GetRegistryItem("n", &db.e));
    EXPECT_TRUE(db.SetAutoCommit(true, &db.e)) << "whatever came of it";
    EXPECT_EQ(1, db.code());
    EXPECT_FALSE(db.Rollback(&db.e));
}

TEST_F(SqliteTest, ProcessesWaitForEachOther) {
    { Database(path).SetRegistryItem("n", "0", nullptr); }
    const auto statuses = inChildren(2, [&] {
        Database db(path);
        for (int i = 0; i < 50; ++i) {
            if (!db.SetAutoCommit(false, &db.e)) return 1;
            const int n = std::stoi(db.GetRegistryItem("n", &db.e));
            if (!db.SetRegistryItem("n", std::to_string(n + 1), &db.e) || !db.Commit(&db.e)) return 2;
        }
        return 0;
    });
    EXPECT_THAT(statuses, ElementsAre(0, 0));
    EXPECT_EQ("100", Database(path).GetRegistryItem("n", nullptr));
}

TEST_F(SqliteTest, DamageIsMarkedByItsCodesUntilTheFileIsOpenedAgain) {
    EXPECT_TRUE(Database(path).SetRegistryItem("name", "value", nullptr));
    const std::string whole = readFile(path);
    for (const auto &[page, code] : {std::pair(0, 26), {1, 11}}) {
        writeFile(path, std::string(whole).replace(static_cast<size_t>(page) * 4096, 4096, 4096, '\xff'));
        SQLiteException found;
        SQLiteConnection damaged;
        damaged.SetDBFilename(path);
        ASSERT_TRUE(damaged.CheckOpen(&found)) << "damage shows at the first use";
        EXPECT_EQ("", damaged.GetRegistryItem("name", &found));
        EXPECT_TRUE(found.GetErrorCode() == code && damaged.IsCorrupted()) << found.what();
    }
    writeFile(path, whole);
    EXPECT_EQ("value", Database(path).GetRegistryItem("name", nullptr)) << "nothing was lost";

    SQLiteException e;
    SQLiteConnection none;
    for (const auto &[code, corrupted] : {std::pair(11, true), {267, true}, {26, true}, {523, false}, {5, false}}) {
        Database db(path);
        e.SetErrorCode(&db, code);
        EXPECT_EQ(corrupted, db.IsCorrupted()) << code;
        EXPECT_TRUE(db.Close() == 0 && db.IsCorrupted() == corrupted && db.Open(&e) && !db.IsCorrupted());
    }
    e.SetErrorCode(nullptr, 11);
    EXPECT_STREQ("database disk image is malformed", e.what());
    e.SetErrorCode(nullptr, 0);
    EXPECT_STREQ("database disk image is malformed", e.what()) << "0 changes nothing else";
    none.SetDBFilename(dir.path());
    EXPECT_TRUE(!none.Open(&e) && e.GetErrorCode() == 14 && !none.IsOpen());
}
