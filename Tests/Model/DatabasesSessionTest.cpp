#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <utility>

#include "Inc/Model/Lyra2Db.h"
#include "Platform/noxstorage/KeyValueTable.h"
#include "Tests/Support/DatabaseTest.h"

namespace VantryLocalHub::GitBox {
namespace {

using namespace Lyra2Db;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testing_support::FileOperation;

constexpr int kFull = 13;

std::string Locator(const std::string& inID, const std::string& inTime)
{
    return R"({"vy:mediaLocatorId":")" + inID + R"(","vy:lastModified":")" + inTime + R"("})";
}

std::vector<std::string> DTOs(const std::vector<StoredRecord>& inRecords)
{
    std::vector<std::string> texts;
    texts.reserve(inRecords.size());
    for (const auto& record : inRecords)
        texts.push_back(record.mDTO);
    return texts;
}

class SessionDatabaseTest : public testing_support::DatabaseTest
{
protected:
    void SetUp() override { ASSERT_TRUE(OpenSessionDatabase(mFolder.Path(), mDb)); }

    void Reopen()
    {
        mDb.reset();
        ASSERT_TRUE(OpenSessionDatabase(mFolder.Path(), mDb));
    }

    DbPtr mDb;
};

TEST_F(SessionDatabaseTest, TheTablesAreMadeByExactlyTheseStatements)
{
    EXPECT_EQ("CREATE TABLE MediaLocators (ID text PRIMARY KEY, DTO text, ChangeCount INTEGER) WITHOUT ROWID",
              QueryOne(*mDb, "SELECT sql FROM sqlite_master WHERE name='MediaLocators'"));
    EXPECT_EQ(
        "CREATE TABLE UserEnclosures (User text, ID text PRIMARY KEY, DTO text, Content text, ChangeCount INTEGER) "
        "WITHOUT ROWID",
        QueryOne(*mDb, "SELECT sql FROM sqlite_master WHERE name='UserEnclosures'"));
    EXPECT_THAT(Query(*mDb, "SELECT name FROM sqlite_master WHERE type='table'"),
                UnorderedElementsAre("MediaLocators", "UserEnclosures", "KeyValue"));
}

TEST_F(SessionDatabaseTest, ItRunsWithAWriteAheadLogAndTenSecondsOfPatience)
{
    EXPECT_EQ("wal", QueryOne(*mDb, "PRAGMA journal_mode"));
    EXPECT_EQ("1", QueryOne(*mDb, "PRAGMA synchronous"));
    EXPECT_EQ("10000", QueryOne(*mDb, "PRAGMA busy_timeout"));
    EXPECT_EQ(mFolder / "session.sqlite3", mDb->DbFilename());
}

TEST_F(SessionDatabaseTest, ANewDatabaseCountsFromZeroAndAnOldOneGoesOn)
{
    std::int64_t count = -7;
    ASSERT_TRUE(ReadChangeCount(*mDb, count));
    EXPECT_EQ(0, count);
    ASSERT_TRUE(WriteChangeCount(*mDb, 41));
    Reopen();
    ASSERT_TRUE(ReadChangeCount(*mDb, count));
    EXPECT_EQ(41, count);
}

TEST_F(SessionDatabaseTest, OneInMemoryHasTheSameTablesAndNoFile)
{
    mVfs.ResetCounts();
    DbPtr db;
    ASSERT_TRUE(OpenSessionDatabaseInMemory(db));
    EXPECT_EQ("", db->DbFilename());
    std::int64_t count = -7;
    EXPECT_TRUE(ReadChangeCount(*db, count));
    EXPECT_EQ(0, count);
    EXPECT_TRUE(WriteMediaLocator(*db, "a", "{}", 1));
    EXPECT_TRUE(WriteUserEnclosure(*db, "u", "e", "{}", "x", 1));
    EXPECT_EQ(0u, mVfs.Count(FileOperation::Write));
}

TEST_F(SessionDatabaseTest, ALocatorWrittenTwiceKeepsOneRowWithTheNewerCount)
{
    ASSERT_TRUE(WriteMediaLocator(*mDb, "a", "first", 3));
    ASSERT_TRUE(WriteMediaLocator(*mDb, "a", "second", 5));
    Reopen();
    EXPECT_EQ("1", QueryOne(*mDb, "SELECT COUNT(*) FROM MediaLocators"));
    StoredRecord record;
    ASSERT_EQ(Lookup::Found, ReadMediaLocator(*mDb, "a", record));
    EXPECT_EQ("second", record.mDTO);
    EXPECT_EQ(5, record.mChangeCount);
}

TEST_F(SessionDatabaseTest, UpdatingALocatorChangesThatOneAlone)
{
    ASSERT_TRUE(WriteMediaLocator(*mDb, "a", "of a", 1));
    ASSERT_TRUE(WriteMediaLocator(*mDb, "b", "of b", 1));
    ASSERT_TRUE(UpdateMediaLocator(*mDb, "a", "new", 2));
    ASSERT_TRUE(UpdateMediaLocator(*mDb, "absent", "new", 2));
    EXPECT_THAT(Query(*mDb, "SELECT ID || ' ' || DTO || ' ' || ChangeCount FROM MediaLocators"),
                UnorderedElementsAre("a new 2", "b of b 1"));
}

TEST_F(SessionDatabaseTest, ReadingAfterACountGivesWhatCameLaterAndAfterNoneEverything)
{
    std::vector<StoredRecord> records{{"left over", 1}};
    ASSERT_TRUE(ReadMediaLocatorsChangedAfter(*mDb, 0, records));
    EXPECT_THAT(records, IsEmpty());

    ASSERT_TRUE(WriteMediaLocator(*mDb, "a", "of a", kNoChangeCount));
    ASSERT_TRUE(WriteMediaLocator(*mDb, "b", "of b", 4));
    ASSERT_TRUE(WriteMediaLocator(*mDb, "c", "of c", 5));
    ASSERT_TRUE(ReadMediaLocatorsChangedAfter(*mDb, 4, records));
    EXPECT_THAT(DTOs(records), ElementsAre("of c"));
    EXPECT_EQ(5, records.front().mChangeCount);
    ASSERT_TRUE(ReadMediaLocatorsChangedAfter(*mDb, kNoChangeCount, records));
    EXPECT_THAT(DTOs(records), UnorderedElementsAre("of a", "of b", "of c"));
    std::int64_t count = 0;
    EXPECT_TRUE(CountMediaLocators(*mDb, count));
    EXPECT_EQ(3, count);
}

TEST_F(SessionDatabaseTest, SeveralLocatorsAreFoundByTheirIdsWithTheirPlaces)
{
    ASSERT_TRUE(WriteMediaLocator(*mDb, "a", "of a", 1));
    ASSERT_TRUE(WriteMediaLocator(*mDb, "c", "of c", 2));
    const std::vector<std::string_view> ids{"c", "b", "a", "c"};
    std::vector<std::string> found;
    ASSERT_TRUE(ReadMediaLocatorsByID(*mDb, ids, [&](std::size_t inPlace, const StoredRecord& inRecord) {
        found.push_back(std::to_string(inPlace) + " " + inRecord.mDTO + " " + std::to_string(inRecord.mChangeCount));
    }));
    EXPECT_THAT(found, UnorderedElementsAre("0 of c 2", "2 of a 1", "3 of c 2"));
    EXPECT_TRUE(ReadMediaLocatorsByID(*mDb, {}, [](std::size_t, const StoredRecord&) { FAIL(); }));
}

TEST_F(SessionDatabaseTest, TheLastWritesAreKeptByKindAndWithTheCounterWhereItMoves)
{
    LastWrite write{7, 7};
    ASSERT_TRUE(ReadLastWrite(*mDb, SideData::MediaLocators, write));
    EXPECT_EQ((LastWrite{0, 0}), write);
    ASSERT_TRUE(WriteLastWriteAndChangeCount(*mDb, SideData::MediaLocators, {12, 0}));
    ASSERT_TRUE(WriteLastWrite(*mDb, SideData::UserEnclosures, {11, 3}));
    Reopen();
    std::int64_t count = 0;
    ASSERT_TRUE(ReadChangeCount(*mDb, count));
    EXPECT_EQ(12, count);
    ASSERT_TRUE(ReadLastWrite(*mDb, SideData::MediaLocators, write));
    EXPECT_EQ("12", write.Text());
    ASSERT_TRUE(ReadLastWrite(*mDb, SideData::UserEnclosures, write));
    EXPECT_EQ("11.3", write.Text());
    EXPECT_EQ((LastWrite{11, 3}), write);

    mVfs.SetFault({.mOperation = FileOperation::Write, .mNth = 1, .mCode = kFull, .mOnlyEndingIn = "-wal"});
    EXPECT_FALSE(WriteLastWriteAndChangeCount(*mDb, SideData::MediaLocators, {13, 0}));
    ASSERT_TRUE(ReadChangeCount(*mDb, count));
    EXPECT_EQ(12, count);
    ASSERT_TRUE(ReadLastWrite(*mDb, SideData::MediaLocators, write));
    EXPECT_EQ("12", write.Text());
    ASSERT_EQ(0, mDb->ExecuteCmd("DROP TABLE KeyValue"));
    EXPECT_FALSE(ReadLastWrite(*mDb, SideData::MediaLocators, write));
    EXPECT_EQ("12", write.Text());
}

TEST_F(SessionDatabaseTest, ABatchOfLocatorsRaisesTheTimeOfTheNewest)
{
    RFC3339DateTime time;
    EXPECT_FALSE(ReadLastModifiedMediaLocatorTime(*mDb, time));
    const std::vector<MediaLocatorRow> batch{{"a", Locator("a", "2026-03-01T10:00:00Z")},
                                             {"b", Locator("b", "2026-03-01T12:00:00.25Z")},
                                             {"c", Locator("c", "2026-03-01T12:30:00+01:00")}};
    ASSERT_TRUE(WriteMediaLocators(*mDb, batch, 9));
    ASSERT_TRUE(ReadLastModifiedMediaLocatorTime(*mDb, time));
    EXPECT_EQ("2026-03-01T12:00:00.25Z", time.Text());
    EXPECT_THAT(Query(*mDb, "SELECT ID FROM MediaLocators WHERE ChangeCount=9"), UnorderedElementsAre("a", "b", "c"));

    const std::vector<MediaLocatorRow> older{{"d", Locator("d", "2020-01-01T00:00:00Z")}, {"e", "no JSON"}};
    ASSERT_TRUE(WriteMediaLocators(*mDb, older, 10));
    ASSERT_TRUE(ReadLastModifiedMediaLocatorTime(*mDb, time));
    EXPECT_EQ("2026-03-01T12:00:00.25Z", time.Text());
    EXPECT_TRUE(WriteMediaLocators(*mDb, {}, 11));
}

TEST_F(SessionDatabaseTest, OfEqualIdsInABatchTheLastStays)
{
    const std::vector<MediaLocatorRow> batch{{"b", "first"}, {"a", "{}"}, {"b", "second"}, {"c", "{}"}, {"b", "third"}};
    ASSERT_TRUE(WriteMediaLocators(*mDb, batch, 1));
    StoredRecord record;
    ASSERT_EQ(Lookup::Found, ReadMediaLocator(*mDb, "b", record));
    EXPECT_EQ("third", record.mDTO);
    EXPECT_EQ("3", QueryOne(*mDb, "SELECT COUNT(*) FROM MediaLocators"));
}

TEST_F(SessionDatabaseTest, TheNewestOfManyLocatorsIsFoundWhereverItStands)
{
    for (const std::size_t place : {0u, 1u, 999u}) {
        std::vector<std::string> records(1000, Locator("x", "2026-01-01T00:00:00Z"));
        records[place] = Locator("y", "2026-01-01T00:00:01Z");
        records[500] = R"({"vy:lastModified":7})";
        records[501] = R"({"vy:lastModified":"soon"})";
        const std::vector<std::string_view> views(records.begin(), records.end());
        RFC3339DateTime newest;
        CompareLastModifiedMediaLocatorTime(views, newest);
        EXPECT_EQ("2026-01-01T00:00:01Z", newest.Text());
        newest = RFC3339DateTime::FromText("2027-01-01T00:00:00Z");
        CompareLastModifiedMediaLocatorTime(views, newest);
        EXPECT_EQ("2027-01-01T00:00:00Z", newest.Text());
    }
    RFC3339DateTime none;
    CompareLastModifiedMediaLocatorTime({}, none);
    EXPECT_FALSE(none.IsValid());
}

TEST_F(SessionDatabaseTest, ABatchWithOneBadRowLeavesNothing)
{
    ASSERT_EQ(0, mDb->ExecuteCmd("CREATE TRIGGER no BEFORE INSERT ON MediaLocators WHEN NEW.ID='bad' BEGIN SELECT "
                                 "RAISE(ABORT, 'bad'); END"));
    const std::vector<MediaLocatorRow> batch{{"a", Locator("a", "2026-03-01T10:00:00Z")}, {"bad", "{}"}, {"c", "{}"}};
    EXPECT_FALSE(WriteMediaLocators(*mDb, batch, 2));
    EXPECT_EQ("0", QueryOne(*mDb, "SELECT COUNT(*) FROM MediaLocators"));
    RFC3339DateTime time;
    EXPECT_FALSE(ReadLastModifiedMediaLocatorTime(*mDb, time));
    const auto inserts = mLog->Find("WriteMediaLocators: Cannot insert into transaction");
    ASSERT_EQ(1u, inserts.size());
    EXPECT_EQ("19", inserts.front().Value("main"));
    EXPECT_EQ("result != sqlite::kDone", inserts.front().Value("expression"));
    EXPECT_EQ(1u, mLog->Count("Cannot write media locators into db"));
    EXPECT_TRUE(WriteMediaLocators(*mDb, std::vector<MediaLocatorRow>{{"c", "{}"}}, 3)) << "the transaction is closed";
}

TEST_F(SessionDatabaseTest, ABatchThatCannotBeEndedLeavesNothing)
{
    mVfs.SetFault({.mOperation = FileOperation::Write, .mNth = 2, .mCode = kFull, .mOnlyEndingIn = "-wal"});
    EXPECT_FALSE(WriteMediaLocators(*mDb, std::vector<MediaLocatorRow>{{"a", "{}"}, {"b", "{}"}}, 2));
    EXPECT_EQ(1u, mVfs.FaultsReported());
    EXPECT_EQ(0u, mLog->Count("WriteMediaLocators: Cannot insert into transaction"));
    const auto failures = mLog->Find("Cannot write media locators into db");
    ASSERT_EQ(1u, failures.size());
    EXPECT_EQ("END", failures.front().Value("command"));
    EXPECT_EQ("13", failures.front().Value("main"));
    Reopen();
    EXPECT_EQ("0", QueryOne(*mDb, "SELECT COUNT(*) FROM MediaLocators"));
}

TEST_F(SessionDatabaseTest, ABatchInsideATransactionIsRefused)
{
    ASSERT_EQ(0, mDb->ExecuteCmd("BEGIN;INSERT INTO MediaLocators VALUES ('a', '{}', 1)"));
    EXPECT_FALSE(WriteMediaLocators(*mDb, std::vector<MediaLocatorRow>{{"b", "{}"}}, 2));
    EXPECT_EQ(1u, mLog->Count("WriteMediaLocators: Cannot open transaction"));
    ASSERT_EQ(0, mDb->ExecuteCmd("END"));
    EXPECT_THAT(Query(*mDb, "SELECT ID FROM MediaLocators"), ElementsAre("a"));
}

TEST_F(SessionDatabaseTest, AfterAPowerCutABatchIsThereAsAWholeOrNotAtAll)
{
    std::vector<MediaLocatorRow> batch(5);
    mVfs.StartRecording(mFolder.Path());
    for (int round = 0; round < 6; ++round) {
        for (std::size_t i = 0; i < batch.size(); ++i) {
            batch[i] = {std::to_string(round) + "-" + std::to_string(i), std::string(1500, 'x')};
        }
        ASSERT_TRUE(WriteMediaLocators(*mDb, batch, round));
    }
    mDb.reset();
    const auto recording = mVfs.StopRecording();
    ASSERT_GT(recording.Events().size(), 20u);
    for (std::size_t events = 0; events <= recording.Events().size(); events += 3) {
        testing_support::WriteFolderImage(recording.AfterPowerCut(events, mScheduler->Seed() + events),
                                          mFolder / "after");
        DbPtr db;
        ASSERT_TRUE(OpenSessionDatabase(mFolder / "after", db));
        ASSERT_EQ("ok", QueryOne(*db, "PRAGMA integrity_check"));
        std::int64_t count = -1;
        ASSERT_TRUE(CountMediaLocators(*db, count));
        ASSERT_EQ(0, count % 5) << "after event " << events;
    }
}

TEST_F(SessionDatabaseTest, AnEnclosureIdIsHeldByOneUserOnly)
{
    EXPECT_THAT(Query(*mDb, "SELECT name FROM pragma_table_info('UserEnclosures') WHERE pk>0"), ElementsAre("ID"));
    ASSERT_TRUE(WriteUserEnclosure(*mDb, "anna", "e", "{\"name\":\"of anna\"}", "a", 1));
    ASSERT_TRUE(WriteUserEnclosure(*mDb, "berta", "e", "{\"name\":\"of berta\"}", "b", 2));
    EXPECT_EQ("1", QueryOne(*mDb, "SELECT COUNT(*) FROM UserEnclosures"));
    std::string content;
    EXPECT_EQ(Lookup::Absent, ReadUserEnclosureContent(*mDb, "anna", "e", content));
    ASSERT_EQ(Lookup::Found, ReadUserEnclosureContent(*mDb, "berta", "e", content));
    EXPECT_EQ("b", content);
    EXPECT_THAT(mLog->All(), IsEmpty()) << "a read that finds nothing is no error";
}

TEST_F(SessionDatabaseTest, AnEnclosureKeepsItsBytesAndItsMetadata)
{
    const std::string bytes("\0\xff\x80 tail", 8);
    ASSERT_TRUE(WriteUserEnclosure(*mDb, "anna", "e", "{\"name\":\"n\"}", bytes, 1));
    std::string content;
    std::string metadata;
    ASSERT_EQ(Lookup::Found, ReadUserEnclosureContent(*mDb, "anna", "e", content));
    ASSERT_EQ(Lookup::Found, ReadUserEnclosureMetadata(*mDb, "anna", "e", metadata));
    EXPECT_EQ(bytes, content);
    EXPECT_EQ("{\"name\":\"n\"}", metadata);
    EXPECT_EQ(Lookup::Absent, ReadUserEnclosureMetadata(*mDb, "anna", "absent", metadata));
    EXPECT_EQ("{\"name\":\"n\"}", metadata);
}

TEST_F(SessionDatabaseTest, EnclosuresAreUpdatedListedAndDeletedByUserAndId)
{
    ASSERT_TRUE(WriteUserEnclosure(*mDb, "anna", "1", "first", "a", 1));
    ASSERT_TRUE(WriteUserEnclosure(*mDb, "anna", "2", "second", "b", 2));
    ASSERT_TRUE(WriteUserEnclosure(*mDb, "berta", "3", "third", "c", 3));
    ASSERT_TRUE(UpdateUserEnclosure(*mDb, "anna", "1", "changed", "A", 4));
    ASSERT_TRUE(UpdateUserEnclosure(*mDb, "anna", "3", "stolen", "A", 5)) << "nothing of that user";
    std::vector<StoredRecord> records;
    ASSERT_TRUE(ReadUserEnclosures(*mDb, "anna", records));
    EXPECT_THAT(DTOs(records), UnorderedElementsAre("changed", "second"));
    ASSERT_TRUE(ReadUserEnclosuresChangedAfter(*mDb, "anna", 2, records));
    EXPECT_THAT(DTOs(records), ElementsAre("changed"));
    ASSERT_TRUE(ReadUserEnclosuresChangedAfter(*mDb, "anna", kNoChangeCount, records));
    EXPECT_EQ(2u, records.size());
    ASSERT_TRUE(ReadUserEnclosuresChangedAfter(*mDb, "nobody", 0, records));
    EXPECT_THAT(records, IsEmpty());
    ASSERT_TRUE(DeleteUserEnclosure(*mDb, "anna", "3"));
    ASSERT_TRUE(DeleteUserEnclosure(*mDb, "anna", "1"));
    EXPECT_THAT(Query(*mDb, "SELECT ID FROM UserEnclosures"), UnorderedElementsAre("2", "3"));
}

TEST_F(SessionDatabaseTest, EverythingCanBeReadForACopy)
{
    ASSERT_TRUE(WriteMediaLocator(*mDb, "a", "{}", 1));
    ASSERT_TRUE(WriteUserEnclosure(*mDb, "anna", "e", "{\"name\":\"n\"}", "payload", 1));
    ASSERT_TRUE(WriteUserEnclosure(*mDb, "anna", "broken", "[]", "lost", 1));
    ASSERT_TRUE(WriteBinCount(*mDb, "abc", 12));
    std::vector<StoredRecord> locators;
    std::vector<UserEnclosureRow> enclosures;
    KeyValues keyValues;
    ASSERT_TRUE(ReadAllSessionData(*mDb, locators, enclosures, keyValues));
    EXPECT_THAT(DTOs(locators), ElementsAre("{}"));
    ASSERT_EQ(1u, enclosures.size());
    EXPECT_EQ("anna", enclosures.front().mUser);
    EXPECT_EQ("e", enclosures.front().mID);
    EXPECT_EQ("{\"name\":\"n\"}", enclosures.front().mDTO);
    EXPECT_EQ("payload", enclosures.front().mContent);
    EXPECT_EQ((KeyValues{{"BinCount", "12"}, {"BinCountRevision", "abc"}, {"ChangeCount", "0"}}), keyValues);
    const auto broken = mLog->Find("ReadAllSessionData: failed to read user enclosure");
    ASSERT_EQ(1u, broken.size());
    EXPECT_EQ("anna", broken.front().Value("userID"));
    EXPECT_EQ("broken", broken.front().Value("enclosureID"));
}

TEST_F(SessionDatabaseTest, ACopyFailsOverEachTableThatCannotBeRead)
{
    std::vector<StoredRecord> locators{{"kept", 1}};
    std::vector<UserEnclosureRow> enclosures;
    KeyValues keyValues;
    const std::vector<std::pair<std::string, std::string>> cases{
        {"KeyValue", "ReadAllSessionData: failed to read key value table"},
        {"UserEnclosures", "ReadAllSessionData: failed to read user enclosures"},
        {"MediaLocators", "ReadAllSessionData: failed to read media locators"}};
    for (const auto& [table, message] : cases) {
        ASSERT_EQ(0, mDb->ExecuteCmd("DROP TABLE " + table));
        EXPECT_FALSE(ReadAllSessionData(*mDb, locators, enclosures, keyValues));
        EXPECT_EQ(1u, mLog->Count(message)) << message;
        EXPECT_EQ(1u, mLog->All().size());
        mLog->Clear();
    }
    EXPECT_THAT(DTOs(locators), ElementsAre("kept"));
}

TEST_F(SessionDatabaseTest, CountersAreKeptAndAMissingOneIsNoError)
{
    std::int64_t bins = 5;
    EXPECT_FALSE(ReadBinCount(*mDb, "abc", bins));
    EXPECT_EQ(5, bins);
    ASSERT_TRUE(WriteBinCount(*mDb, "abc", -3));
    EXPECT_FALSE(ReadBinCount(*mDb, "abd", bins));
    EXPECT_EQ(5, bins);
    ASSERT_TRUE(ReadBinCount(*mDb, "abc", bins));
    EXPECT_EQ(-3, bins);
    EXPECT_THAT(mLog->All(), IsEmpty());
    noxstorage::sqlite::KeyValueTable::WriteValue(*mDb, "BinCount", "many");
    EXPECT_FALSE(ReadBinCount(*mDb, "abc", bins));
    EXPECT_EQ(1u, mLog->Count("Cannot read key from session db"));

    ASSERT_TRUE(WriteLastModifiedMediaLocatorTime(*mDb, RFC3339DateTime::FromText("2026-03-01T12:00:00Z")));
    RFC3339DateTime time;
    ASSERT_TRUE(ReadLastModifiedMediaLocatorTime(*mDb, time));
    EXPECT_EQ("2026-03-01T12:00:00Z", time.Text());
}

TEST_F(SessionDatabaseTest, SizesAreCachedAsOneRecordWithItsKeysInOrder)
{
    dto::SizeInfo info;
    EXPECT_FALSE(ReadSizeInfo(*mDb, info));
    info.mProductionID = "p-1";
    info.mSessionID = "1";
    info.mCommitID = "c0ffee";
    info.mSizeOnDisk = 1;
    info.mSizeOfHead = 2;
    info.mAutosaves = 3;
    info.mAssets = 4;
    info.mAssetEnclosures = 5;
    info.mProductionEnclosures = 6;
    info.mMediaLocators = 7;
    info.mPathOnDisk = "/somewhere";
    ASSERT_TRUE(WriteSizeInfo(*mDb, info));
    dto::SizeInfo read;
    ASSERT_TRUE(ReadSizeInfo(*mDb, read));
    EXPECT_EQ(info, read);
    EXPECT_EQ(
        R"({"productionId":"p-1","sessionId":"1","commitId":"c0ffee","sizeOnDisk":1,"sizeOfHead":2,"autosaves":3,)"
        R"("assets":4,"assetEnclosures":5,"productionEnclosures":6,"mediaLocators":7,"pathOnDisk":"/somewhere"})",
        QueryOne(*mDb, "SELECT Value FROM KeyValue WHERE Key='SizeInfo'"));
    noxstorage::sqlite::KeyValueTable::WriteValue(*mDb, "SizeInfo", R"({"assets":"many"})");
    EXPECT_FALSE(ReadSizeInfo(*mDb, read));
    EXPECT_EQ(info, read) << "a record that cannot be read leaves what was there";
}

TEST_F(SessionDatabaseTest, EachFailedCommandIsLoggedInItsOwnWords)
{
    struct Case
    {
        const char* mMessage;
        std::function<bool()> mRun;
    };
    StoredRecord record;
    std::vector<StoredRecord> records;
    std::string text;
    const std::vector<std::string_view> ids{"a"};
    const std::vector<Case> cases{
        {"Cannot write media locator into db", [&] { return WriteMediaLocator(*mDb, "a", "{}", 1); }},
        {"Cannot update media locator", [&] { return UpdateMediaLocator(*mDb, "a", "{}", 1); }},
        {"Cannot read media locator from db", [&] { return ReadMediaLocator(*mDb, "a", record) != Lookup::Failed; }},
        {"Cannot read media locators from db", [&] { return ReadMediaLocators(*mDb, records); }},
        {"Cannot read media locators from db",
         [&] { return ReadMediaLocatorsByID(*mDb, ids, [](std::size_t, const StoredRecord&) {}); }},
        {"Cannot write user enclosure into db", [&] { return WriteUserEnclosure(*mDb, "u", "e", "{}", "", 1); }},
        {"Cannot update user enclosure", [&] { return UpdateUserEnclosure(*mDb, "u", "e", "{}", "", 1); }},
        {"Cannot read user enclosure from db",
         [&] { return ReadUserEnclosureContent(*mDb, "u", "e", text) != Lookup::Failed; }},
        {"Cannot read user enclosures from db", [&] { return ReadUserEnclosures(*mDb, "u", records); }},
        {"Cannot delete user enclosure", [&] { return DeleteUserEnclosure(*mDb, "u", "e"); }}};
    ASSERT_EQ(0, mDb->ExecuteCmd("DROP TABLE MediaLocators;DROP TABLE UserEnclosures"));
    for (const Case& failing : cases) {
        EXPECT_FALSE(failing.mRun()) << failing.mMessage;
        const auto found = mLog->All();
        ASSERT_EQ(1u, found.size()) << failing.mMessage;
        EXPECT_EQ(failing.mMessage, found.front().mMessage);
        EXPECT_EQ(noxcore::logging::Level::Error, found.front().mLevel);
        EXPECT_NE("", found.front().Value("command"));
        EXPECT_EQ("1", found.front().Value("main"));
        EXPECT_EQ("1", found.front().Value("extended"));
        EXPECT_EQ("result != sqlite::kDone", found.front().Value("expression"));
        mLog->Clear();
    }
    ASSERT_EQ(0, mDb->ExecuteCmd("DROP TABLE KeyValue"));
    EXPECT_FALSE(WriteChangeCount(*mDb, 1));
    EXPECT_EQ(1u, mLog->Count("Cannot write key into session db"));
}

TEST_F(SessionDatabaseTest, BothCodesOfAFullDiskAreLogged)
{
    constexpr int kIOErrorWrite = 10 | (3 << 8);
    mVfs.SetFault({.mOperation = FileOperation::Write, .mNth = 1, .mCode = kIOErrorWrite, .mOnlyEndingIn = "-wal"});
    EXPECT_FALSE(WriteMediaLocator(*mDb, "a", "{}", 1));
    const auto found = mLog->Find("Cannot write media locator into db");
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ("INSERT OR REPLACE INTO MediaLocators (ID, DTO, ChangeCount) VALUES (?, ?, ?)",
              found.front().Value("command"));
    EXPECT_EQ("10", found.front().Value("main"));
    EXPECT_EQ("778", found.front().Value("extended"));
}

TEST_F(SessionDatabaseTest, ADatabaseThatCannotBeOpenedSaysWhy)
{
    DbPtr db = mDb;
    EXPECT_FALSE(OpenSessionDatabase(mFolder / "absent", db));
    EXPECT_EQ(nullptr, db);
    const auto missing = mLog->Find("Can't open database");
    ASSERT_EQ(1u, missing.size());
    EXPECT_EQ((mFolder / "absent") + "/session.sqlite3", missing.front().Value("path"));
    EXPECT_EQ("14", missing.front().Value("main"));
    EXPECT_NE("", missing.front().Value("extended"));

    mDb.reset();
    std::ofstream(mFolder / "session.sqlite3", std::ios::trunc) << std::string(8192, 'x');
    EXPECT_TRUE(OpenSessionDatabase(mFolder.Path(), db));
    ASSERT_EQ(2u, mLog->Count("Can't open database"));
    EXPECT_EQ("26", mLog->Find("Can't open database").back().Value("main"));
    const auto aside = mLog->Find("Put a damaged database aside");
    ASSERT_EQ(1u, aside.size());
    EXPECT_EQ(mFolder / "session.sqlite3", aside.front().Value("path"));
    EXPECT_EQ(8192u, noxcore::filesupport::Files().Size(std::string(aside.front().Value("as"))));
    std::int64_t count = 0;
    EXPECT_TRUE(ReadChangeCount(*db, count));
    EXPECT_EQ(mContext->GetClock().NowTicks() / noxcore::kTicksPerSecond, count);

    mContext->SetInstance(
        std::make_shared<noxstorage::sqlite::VfsChoice>(noxstorage::sqlite::VfsChoice{"no such VFS"}));
    EXPECT_FALSE(OpenSessionDatabaseInMemory(db));
    EXPECT_EQ(nullptr, db);
    EXPECT_EQ(1u, mLog->Count("Can't open in-memory database"));
}

}  // namespace
}  // namespace VantryLocalHub::GitBox
