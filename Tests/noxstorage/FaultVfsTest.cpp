#include "Tests/Support/FaultVfs.h"

#include <gtest/gtest.h>

#include <utility>

#include "Platform/noxstorage/SQLite.h"
#include "Tests/Support/DatabaseTest.h"

namespace testing_support {
namespace {

using noxstorage::sqlite::Db;
using noxstorage::sqlite::kOK;

constexpr int kIOError = 10;
constexpr int kIOErrorWrite = 10 | (3 << 8);
constexpr int kIOErrorSync = 10 | (4 << 8);
constexpr int kFull = 13;
constexpr int kCannotOpen = 14;

class FaultVfsTest : public DatabaseTest
{
protected:
    void Open(Db& outDb, const std::string& inSettings)
    {
        ASSERT_EQ(kOK, outDb.Open16(mFolder / "test.db")) << outDb.Errmsg();
        ASSERT_EQ(kOK, outDb.ExecuteCmd(inSettings)) << outDb.Errmsg();
    }

    static int Insert(Db& inDb, int inNumber)
    {
        return inDb.ExecuteCmd("INSERT INTO t VALUES (" + std::to_string(inNumber) + ", hex(randomblob(600)))");
    }

    // Numbers from 1 upward without a gap; how many, or -1 for anything else, damage included.
    int RowsOf(const std::string& inFolder)
    {
        Db db;
        if (db.Open16(inFolder + "/test.db") != kOK) return -1;
        noxstorage::sqlite::Statement check;
        if (check.PrepareV2(db, "PRAGMA integrity_check") != kOK || check.Step() != noxstorage::sqlite::kRow ||
            check.ColumnText(0) != "ok") {
            return -1;
        }
        noxstorage::sqlite::Statement rows;
        if (rows.PrepareV2(db, "SELECT COUNT(*), COALESCE(MAX(a), 0) FROM t") != kOK ||
            rows.Step() != noxstorage::sqlite::kRow) {
            return 0;  // cut before the table was made
        }
        return rows.ColumnInt64(0) == rows.ColumnInt64(1) ? static_cast<int>(rows.ColumnInt64(0)) : -1;
    }

    // Writes rows one by one and tells how many were answered after how many events.
    FileRecording RecordInserts(const std::string& inSettings, int inRows, std::vector<std::size_t>& outAnswered)
    {
        Db db;
        mVfs.StartRecording(mFolder.Path());
        Open(db, inSettings);
        EXPECT_EQ(kOK, db.ExecuteCmd("CREATE TABLE t (a INTEGER PRIMARY KEY, b)")) << db.Errmsg();
        for (int i = 1; i <= inRows; ++i) {
            EXPECT_EQ(kOK, Insert(db, i)) << db.Errmsg();
            outAnswered.push_back(mVfs.RecordedEvents());
        }
        return mVfs.StopRecording();
    }

    static int AnsweredBy(const std::vector<std::size_t>& inAnswered, std::size_t inEvents)
    {
        int rows = 0;
        for (const std::size_t events : inAnswered)
            rows += events <= inEvents ? 1 : 0;
        return rows;
    }
};

constexpr const char* kFullWal = "PRAGMA journal_mode = WAL;PRAGMA synchronous = FULL;PRAGMA wal_autocheckpoint = 5";
constexpr const char* kNormalWal =
    "PRAGMA journal_mode = WAL;PRAGMA synchronous = NORMAL;PRAGMA wal_autocheckpoint = 5";

TEST_F(FaultVfsTest, OperationsAreCounted)
{
    Db db;
    Open(db, "CREATE TABLE t (a INTEGER PRIMARY KEY, b)");
    EXPECT_GT(mVfs.Count(FileOperation::Open), 0u);
    EXPECT_GT(mVfs.Count(FileOperation::Write), 0u);
    EXPECT_GT(mVfs.Count(FileOperation::Sync), 0u);
    EXPECT_EQ(1u, mVfs.Count(FileOperation::Delete)) << "the rollback journal";
    mVfs.ResetCounts();
    EXPECT_EQ(0u, mVfs.Count(FileOperation::Write));
}

TEST_F(FaultVfsTest, AFaultHappensOnceAtTheOperationItWasSetFor)
{
    Db db;
    Open(db, std::string(kFullWal) + ";CREATE TABLE t (a INTEGER PRIMARY KEY, b)");
    mVfs.SetFault({.mOperation = FileOperation::Write, .mNth = 2, .mCode = kFull, .mOnlyEndingIn = "-wal"});
    EXPECT_EQ(kFull, Insert(db, 1));
    EXPECT_EQ(1u, mVfs.FaultsReported());
    EXPECT_EQ(kOK, Insert(db, 1));
    EXPECT_EQ("1", QueryOne(db, "SELECT COUNT(*) FROM t"));
}

TEST_F(FaultVfsTest, AFaultCanStayUntilItIsCleared)
{
    Db db;
    Open(db, std::string(kFullWal) + ";CREATE TABLE t (a INTEGER PRIMARY KEY, b)");
    mVfs.SetFault({.mOperation = FileOperation::Sync, .mNth = 1, .mCode = kIOErrorSync, .mFromThenOn = true});
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(kIOError, Insert(db, 1));
        EXPECT_EQ(kIOErrorSync, db.ExtendedErrcode());
    }
    mVfs.ClearFaults();
    EXPECT_EQ(kOK, Insert(db, 1));
}

TEST_F(FaultVfsTest, AWriteCanBeCutShort)
{
    Db db;
    Open(db, "PRAGMA journal_mode = WAL");
    mVfs.StartRecording(mFolder.Path());
    mVfs.SetFault({.mOperation = FileOperation::Write,
                   .mNth = 1,
                   .mCode = kIOErrorWrite,
                   .mOnlyEndingIn = "-wal",
                   .mBytesThatPass = 7});
    EXPECT_EQ(kIOError, db.ExecuteCmd("CREATE TABLE t (a)"));
    const FileRecording recording = mVfs.StopRecording();
    ASSERT_EQ(2u, recording.Events().size()) << "the log was made, then written to";
    const FileEvent& write = recording.Events().back();
    EXPECT_EQ(FileOperation::Write, write.mOperation);
    EXPECT_EQ("test.db-wal", write.mPath);
    EXPECT_EQ(7u, write.mBytes.size());
    EXPECT_EQ(write.mBytes, recording.AfterKill(2).at("test.db-wal"));
}

TEST_F(FaultVfsTest, DeletingTruncatingAndOpeningCanFailToo)
{
    Db db;
    Open(db, "CREATE TABLE t (a INTEGER PRIMARY KEY, b)");
    mVfs.SetFault({.mOperation = FileOperation::Delete, .mNth = 1, .mCode = kIOErrorWrite});
    EXPECT_EQ(kIOError, Insert(db, 1));
    ASSERT_EQ(kOK, db.ExecuteCmd("PRAGMA journal_mode = TRUNCATE"));
    mVfs.SetFault({.mOperation = FileOperation::Truncate, .mNth = 1, .mCode = kIOErrorWrite});
    EXPECT_EQ(kIOError, Insert(db, 1));
    mVfs.SetFault({.mOperation = FileOperation::Open, .mNth = 1, .mCode = kCannotOpen});
    Db other;
    EXPECT_EQ(kCannotOpen, other.Open16(mFolder / "other.db"));
}

TEST_F(FaultVfsTest, ABusyDatabaseIsGivenUpWithoutWaiting)
{
    Db first;
    Db second;
    Open(first, "CREATE TABLE t (a INTEGER PRIMARY KEY, b)");
    Open(second, "");
    ASSERT_EQ(kOK, second.BusyTimeout(10000));
    ASSERT_EQ(kOK, first.ExecuteCmd("BEGIN IMMEDIATE"));
    EXPECT_EQ(5, Insert(second, 1));
    EXPECT_GT(mVfs.Waits(), 50u);
    ASSERT_EQ(kOK, first.ExecuteCmd("END"));
    EXPECT_EQ(kOK, Insert(second, 1));
}

TEST_F(FaultVfsTest, MappedReadsAndSharedLogsWorkThroughIt)
{
    Db writer;
    Db reader;
    Open(writer, std::string(kNormalWal) + ";CREATE TABLE t (a INTEGER PRIMARY KEY, b)");
    Open(reader, "PRAGMA mmap_size = 1048576");
    EXPECT_EQ("1048576", QueryOne(reader, "PRAGMA mmap_size"));
    for (int i = 1; i <= 40; ++i) {
        ASSERT_EQ(kOK, Insert(writer, i));
        ASSERT_EQ(std::to_string(i), QueryOne(reader, "SELECT COUNT(*) FROM t"));
    }
    EXPECT_EQ("ok", QueryOne(reader, "PRAGMA integrity_check"));
}

TEST_F(FaultVfsTest, AKilledProcessLosesNothingThatWasAnswered)
{
    std::vector<std::size_t> answered;
    const FileRecording recording = RecordInserts(kNormalWal, 12, answered);
    for (std::size_t events = 0; events <= recording.Events().size(); ++events) {
        WriteFolderImage(recording.AfterKill(events), mFolder / "after");
        const int rows = RowsOf(mFolder / "after");
        ASSERT_GE(rows, AnsweredBy(answered, events)) << "after event " << events;
    }
}

struct PowerCutCase
{
    const char* mSettings;
    bool mKeepsWhatWasAnswered;
};

class PowerCutTest : public FaultVfsTest, public testing::WithParamInterface<PowerCutCase>
{
};

TEST_P(PowerCutTest, LeavesASoundDatabaseWithTheFirstSoManyRows)
{
    std::vector<std::size_t> answered;
    const FileRecording recording = RecordInserts(GetParam().mSettings, 12, answered);
    ASSERT_GT(recording.Events().size(), 30u);
    for (std::size_t events = 0; events <= recording.Events().size(); ++events) {
        for (std::uint64_t seed = 0; seed < 3; ++seed) {
            WriteFolderImage(recording.AfterPowerCut(events, mScheduler->Seed() + seed), mFolder / "after");
            const int rows = RowsOf(mFolder / "after");
            const int least = GetParam().mKeepsWhatWasAnswered ? AnsweredBy(answered, events) : 0;
            ASSERT_GE(rows, least) << "after event " << events << ", seed " << mScheduler->Seed() + seed;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Settings, PowerCutTest,
                         testing::Values(PowerCutCase{kFullWal, true}, PowerCutCase{kNormalWal, false},
                                         PowerCutCase{"PRAGMA journal_mode = DELETE", false},
                                         PowerCutCase{"PRAGMA synchronous = EXTRA", true}));

TEST_F(FaultVfsTest, APowerCutWithoutSyncsDoesDamage)
{
    std::vector<std::size_t> answered;
    const FileRecording recording =
        RecordInserts("PRAGMA journal_mode = WAL;PRAGMA synchronous = OFF;PRAGMA wal_autocheckpoint = 5", 12, answered);
    int damaged = 0;
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        WriteFolderImage(recording.AfterPowerCut(recording.Events().size(), seed), mFolder / "after");
        damaged += RowsOf(mFolder / "after") < 12 ? 1 : 0;
    }
    EXPECT_GT(damaged, 0) << "or a power cut loses nothing here, and the tests above prove nothing";
}

TEST_F(FaultVfsTest, WhatHappensInPartLeavesHalfOfAWriteAndAllOfWhatHasNoHalves)
{
    Db db;
    Open(db, "PRAGMA journal_mode = WAL");
    mVfs.StartRecording(mFolder.Path());
    mVfs.SetFault({.mOperation = FileOperation::Write, .mNth = 1, .mCode = kIOErrorWrite, .mHappensInPart = true});
    EXPECT_EQ(kIOError, db.ExecuteCmd("CREATE TABLE t (a)"));
    mVfs.SetFault({.mOperation = FileOperation::Open, .mNth = 1, .mCode = kCannotOpen, .mHappensInPart = true});
    Db other;
    EXPECT_EQ(kCannotOpen, other.Open16(mFolder / "other.db"));
    const FileRecording recording = mVfs.StopRecording();
    const FolderImage after = recording.AfterKill(recording.Events().size());
    EXPECT_EQ(16u, after.at("test.db-wal").size()) << "half of the log's header";
    EXPECT_TRUE(after.contains("other.db"));
}

TEST_F(FaultVfsTest, AFullDiskStaysFullForWhateverNeedsRoom)
{
    Db db;
    Open(db, std::string(kFullWal) + ";CREATE TABLE t (a INTEGER PRIMARY KEY, b)");
    mVfs.SetFault({.mOperation = FileOperation::Sync, .mNth = 1, .mCode = kIOErrorSync, .mFillsDisk = true});
    EXPECT_EQ(kIOError, Insert(db, 1));
    EXPECT_EQ(kFull, Insert(db, 1));
    EXPECT_NE(0, mVfs.Judge(FileOperation::WritePlain, "any").mCode);
    EXPECT_EQ(0, mVfs.Judge(FileOperation::DeletePlain, "any").mCode);
    mVfs.ClearFaults();
    EXPECT_EQ(kOK, Insert(db, 1));
}

TEST_F(FaultVfsTest, TheSameSeedLeavesTheSameFiles)
{
    std::vector<std::size_t> answered;
    const FileRecording recording = RecordInserts(kNormalWal, 5, answered);
    std::size_t events = recording.Events().size();
    while (!recording.Events()[events - 1].mPath.ends_with("-wal"))
        --events;
    --events;  // before the last sync of the log
    EXPECT_EQ(recording.AfterPowerCut(events, 1), recording.AfterPowerCut(events, 1));
    bool differs = false;
    for (std::uint64_t seed = 2; seed < 10; ++seed) {
        differs |= recording.AfterPowerCut(events, seed) != recording.AfterPowerCut(events, 1);
    }
    EXPECT_TRUE(differs);
}

}  // namespace
}  // namespace testing_support
