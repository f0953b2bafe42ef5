#include "Platform/noxstorage/SQLite.h"

#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <map>
#include <utility>

#include "Platform/noxstorage/KeyValueTable.h"
#include "Tests/Support/DatabaseTest.h"

namespace noxstorage::sqlite {
namespace {

class SQLiteTest : public testing_support::DatabaseTest
{
protected:
    void SetUp() override { ASSERT_EQ(kOK, mDb.Open16(mFolder / "test.db")) << mDb.Errmsg(); }

    Db mDb;
};

TEST_F(SQLiteTest, ValuesComeBackAsTheyWereBound)
{
    const std::string bytes("a\0b\xff", 4);
    ASSERT_EQ(kOK, mDb.ExecuteCmd("CREATE TABLE t (a, b, c, d)"));
    Statement insert;
    ASSERT_EQ(kOK, PrepareAndBindCmd(mDb, insert, "INSERT INTO t VALUES (?, ?, ?, ?)", std::int64_t{-5},
                                     std::string_view(), std::string("tex\0t", 5), Bytes{bytes}));
    ASSERT_EQ(kDone, insert.Step());
    EXPECT_EQ(1, mDb.Changes());

    Statement select;
    ASSERT_EQ(kOK, select.PrepareV2(mDb, "SELECT a, b, c, d, b IS NULL, NULL FROM t"));
    ASSERT_EQ(kRow, select.Step());
    EXPECT_EQ(-5, select.ColumnInt64(0));
    EXPECT_EQ("", select.ColumnText(1));
    EXPECT_EQ(std::string_view("tex\0t", 5), select.ColumnText(2));
    EXPECT_EQ(bytes, select.ColumnBlob(3));
    EXPECT_EQ(4, select.ColumnBytes(3));
    EXPECT_EQ(0, select.ColumnInt64(4)) << "an empty text is no NULL";
    EXPECT_EQ("", select.ColumnText(5));
    EXPECT_EQ(kDone, select.Step());
}

TEST_F(SQLiteTest, AStatementCanBeUsedAgainAfterReset)
{
    ASSERT_EQ(kOK, mDb.ExecuteCmd("CREATE TABLE t (a)"));
    Statement insert;
    ASSERT_EQ(kOK, insert.PrepareV2(mDb, "INSERT INTO t VALUES (?)"));
    for (std::int64_t i = 0; i < 3; ++i) {
        ASSERT_EQ(kOK, insert.BindInt64(1, i));
        ASSERT_EQ(kDone, insert.Step());
        ASSERT_EQ(kOK, insert.Reset());
    }
    EXPECT_EQ("3", QueryOne(mDb, "SELECT COUNT(*) FROM t"));
}

TEST_F(SQLiteTest, AConnectionThatWasNeverOpenedRefusesEverything)
{
    Db db;
    Statement statement;
    EXPECT_NE(kOK, db.ExecuteCmd("SELECT 1"));
    EXPECT_NE(kOK, db.BusyTimeout(1));
    EXPECT_NE(kOK, db.DbConfig(kDBConfigEnableFKey, 1));
    EXPECT_NE(kOK, statement.PrepareV2(db, "SELECT 1"));
    EXPECT_NE(kRow, statement.Step());
    EXPECT_EQ("", db.DbFilename());
    EXPECT_NE("", db.Errmsg());
}

TEST_F(SQLiteTest, AStatementThatOutlivesItsConnectionKeepsTheFileOpen)
{
    ASSERT_EQ(kOK, mDb.ExecuteCmd("CREATE TABLE t (a);INSERT INTO t VALUES (7)"));
    Statement statement;
    {
        Db second;
        ASSERT_EQ(kOK, second.Open16(mFolder / "test.db"));
        ASSERT_EQ(kOK, statement.PrepareV2(second, "SELECT a FROM t"));
    }
    ASSERT_EQ(kRow, statement.Step());
    EXPECT_EQ(7, statement.ColumnInt64(0));
}

TEST_F(SQLiteTest, OpeningReadOnlyMakesNoFile)
{
    Db reader;
    EXPECT_NE(kOK, reader.OpenReadOnly(mFolder / "absent.db"));
    EXPECT_EQ("", Files("absent.db"));
    ASSERT_EQ(kOK, mDb.ExecuteCmd("CREATE TABLE t (a)"));
    ASSERT_EQ(kOK, reader.OpenReadOnly(mFolder / "test.db"));
    EXPECT_EQ(mFolder / "test.db", reader.DbFilename());
    EXPECT_NE(kOK, reader.ExecuteCmd("INSERT INTO t VALUES (1)"));
}

TEST_F(SQLiteTest, TheContextChoosesTheVfs)
{
    EXPECT_GT(mVfs.Count(testing_support::FileOperation::Open), 0u);
    mContext->SetInstance(std::make_shared<VfsChoice>(VfsChoice{"no such VFS"}));
    Db db;
    EXPECT_EQ(kError, db.Open16(mFolder / "other.db"));
    EXPECT_EQ(kError, db.Errcode());
    mContext->SetInstance<VfsChoice>(nullptr);
    mVfs.ResetCounts();
    EXPECT_EQ(kOK, db.Open16(mFolder / "other.db"));
    EXPECT_EQ(kOK, db.ExecuteCmd("CREATE TABLE t (a)"));
    EXPECT_EQ(0u, mVfs.Count(testing_support::FileOperation::Open));
}

TEST_F(SQLiteTest, AFileThatIsNoDatabaseShowsAsDamage)
{
    std::ofstream(mFolder / "noise.db") << std::string(8192, 'x');
    Db db;
    ASSERT_EQ(kOK, db.Open16(mFolder / "noise.db"));
    const int result = db.ExecuteCmd("CREATE TABLE t (a)");
    EXPECT_EQ(26, result);
    EXPECT_TRUE(IsDamage(result));
    EXPECT_FALSE(IsTransientOrFull(result));
}

TEST_F(SQLiteTest, LackOfRoomTimeOrAccessIsNeverTakenForDamage)
{
    constexpr int kShortRead = 10 | (2 << 8);
    for (const int code : {5, 6, 7, 9, 10, 13, 14, 15, kShortRead}) {
        EXPECT_TRUE(IsTransientOrFull(code)) << code;
        EXPECT_FALSE(IsDamage(code)) << code;
    }
    constexpr int kDamagedIndex = 11 | (3 << 8);
    for (const int code : {11, 26, kDamagedIndex}) {
        EXPECT_FALSE(IsTransientOrFull(code)) << code;
        EXPECT_TRUE(IsDamage(code)) << code;
    }
    for (const int code : {kOK, kError, 19, kRow, kDone}) {
        EXPECT_FALSE(IsTransientOrFull(code) || IsDamage(code)) << code;
    }
}

TEST_F(SQLiteTest, ForeignKeysHoldOnlyWhereTheyAreSwitchedOn)
{
    ASSERT_EQ(kOK, mDb.ExecuteCmd("CREATE TABLE p (a PRIMARY KEY);CREATE TABLE c (a REFERENCES p(a))"));
    EXPECT_EQ(kOK, mDb.ExecuteCmd("INSERT INTO c VALUES (1)"));
    ASSERT_EQ(kOK, mDb.DbConfig(kDBConfigEnableFKey, 1));
    EXPECT_EQ(19, mDb.ExecuteCmd("INSERT INTO c VALUES (2)"));
}

TEST_F(SQLiteTest, ATransactionThatIsNotEndedLeavesNothing)
{
    ASSERT_EQ(kOK, mDb.ExecuteCmd("CREATE TABLE t (a)"));
    {
        Transaction transaction(mDb);
        ASSERT_EQ(kOK, transaction.Begin());
        ASSERT_EQ(kOK, mDb.ExecuteCmd("INSERT INTO t VALUES (1)"));
    }
    EXPECT_EQ("0", QueryOne(mDb, "SELECT COUNT(*) FROM t"));
    Transaction transaction(mDb);
    ASSERT_EQ(kOK, transaction.Begin());
    ASSERT_EQ(kOK, mDb.ExecuteCmd("INSERT INTO t VALUES (1)"));
    ASSERT_EQ(kOK, transaction.End());
    transaction.Rollback();
    EXPECT_EQ("1", QueryOne(mDb, "SELECT COUNT(*) FROM t"));
}

TEST_F(SQLiteTest, ATransactionInsideAnotherIsRefusedAndTheOuterOneGoesOn)
{
    ASSERT_EQ(kOK, mDb.ExecuteCmd("CREATE TABLE t (a)"));
    Transaction outer(mDb);
    ASSERT_EQ(kOK, outer.Begin());
    ASSERT_EQ(kOK, mDb.ExecuteCmd("INSERT INTO t VALUES (1)"));
    {
        Transaction inner(mDb);
        EXPECT_EQ(kError, inner.Begin());
    }
    ASSERT_EQ(kOK, outer.End());
    EXPECT_EQ("1", QueryOne(mDb, "SELECT COUNT(*) FROM t"));
}

class KeyValueTableTest : public SQLiteTest
{
protected:
    void SetUp() override
    {
        SQLiteTest::SetUp();
        ASSERT_EQ(kDone, KeyValueTable::CreateKeyValueTable(mDb));
    }
};

TEST_F(KeyValueTableTest, TheTableIsThereOnlyOnceItWasMade)
{
    Db other;
    ASSERT_EQ(kOK, other.Open16(":memory:"));
    int code = -1;
    EXPECT_FALSE(KeyValueTable::HasKeyValueTable(other, code));
    EXPECT_EQ(kOK, code);
    EXPECT_TRUE(KeyValueTable::HasKeyValueTable(mDb, code));
    EXPECT_EQ(kOK, code);
    EXPECT_EQ(kDone, KeyValueTable::CreateKeyValueTable(mDb)) << "making it again does nothing";
    std::string value;
    EXPECT_EQ(kError, KeyValueTable::ReadValue(other, "a", value));
    Db closed;
    EXPECT_FALSE(KeyValueTable::HasKeyValueTable(closed, code));
    EXPECT_NE(kOK, code);
}

TEST_F(KeyValueTableTest, ValuesAreBytesAndTheLastOneCounts)
{
    std::string value = "before";
    EXPECT_EQ(kDone, KeyValueTable::ReadValue(mDb, "a", value));
    EXPECT_EQ("before", value);
    const std::string bytes("\0\xff\n", 3);
    EXPECT_EQ(kDone, KeyValueTable::WriteValue(mDb, "a", "first"));
    EXPECT_EQ(kDone, KeyValueTable::WriteValue(mDb, "a", bytes));
    EXPECT_EQ(kRow, KeyValueTable::ReadValue(mDb, "a", value));
    EXPECT_EQ(bytes, value);
    EXPECT_EQ(kDone, KeyValueTable::WriteValue(mDb, "a", ""));
    EXPECT_EQ(kRow, KeyValueTable::ReadValue(mDb, "a", value));
    EXPECT_EQ("", value);
    EXPECT_EQ(kDone, KeyValueTable::RemoveKey(mDb, "a"));
    EXPECT_EQ(kDone, KeyValueTable::RemoveKey(mDb, "a"));
    EXPECT_EQ(kDone, KeyValueTable::ReadValue(mDb, "a", value));
}

TEST_F(KeyValueTableTest, AllEntriesAreVisitedInTheOrderOfTheirKeys)
{
    for (const char* key : {"b", "c", "a"})
        KeyValueTable::WriteValue(mDb, key, std::string("of ") + key);
    std::vector<std::pair<std::string, std::string>> seen;
    EXPECT_EQ(kDone, KeyValueTable::ReadAll(mDb, [&](std::string_view inKey, std::string_view inValue) {
                  seen.emplace_back(inKey, inValue);
              }));
    const std::vector<std::pair<std::string, std::string>> expected{{"a", "of a"}, {"b", "of b"}, {"c", "of c"}};
    EXPECT_EQ(expected, seen);
}

TEST_F(KeyValueTableTest, WholeNumbersOfAnySizeSurvive)
{
    for (const std::int64_t number :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{42}, std::numeric_limits<std::int64_t>::max(),
          std::numeric_limits<std::int64_t>::min()}) {
        EXPECT_EQ(kDone, KeyValueTable::WriteValueAs(mDb, "n", number));
        std::int64_t read = 1;
        EXPECT_EQ(kRow, KeyValueTable::ReadValueAs(mDb, "n", read));
        EXPECT_EQ(number, read);
    }
    std::string text;
    KeyValueTable::WriteValueAs(mDb, "n", -17);
    EXPECT_EQ(kRow, KeyValueTable::ReadValue(mDb, "n", text));
    EXPECT_EQ("-17", text);
}

TEST_F(KeyValueTableTest, ReadingANumberStopsWhereItEndsOrWouldOverflow)
{
    const std::map<std::string, std::int64_t> readable{{"12abc", 12},
                                                       {"-12 ", -12},
                                                       {"007", 7},
                                                       {"9223372036854775808", 922337203685477580},
                                                       {"-9223372036854775809", -922337203685477580},
                                                       {"99999999999999999999", 999999999999999999}};
    for (const auto& [text, expected] : readable) {
        std::int64_t number = 1;
        KeyValueTable::WriteValue(mDb, "n", text);
        EXPECT_EQ(kRow, KeyValueTable::ReadValueAs(mDb, "n", number)) << text;
        EXPECT_EQ(expected, number) << text;
    }
    for (const char* text : {"", "-", "abc", " 1", "+1", "--1"}) {
        std::int64_t number = 1;
        KeyValueTable::WriteValue(mDb, "n", text);
        EXPECT_EQ(kMismatch, KeyValueTable::ReadValueAs(mDb, "n", number)) << text;
        EXPECT_EQ(1, number) << text;
    }
    std::int64_t number = 1;
    EXPECT_EQ(kDone, KeyValueTable::ReadValueAs(mDb, "absent", number));
    EXPECT_EQ(1, number);
}

}  // namespace
}  // namespace noxstorage::sqlite
