#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>

#include "Inc/Model/SystemDb.h"
#include "Platform/noxcore/Executor.h"
#include "Tests/Support/DatabaseTest.h"

namespace VantryLocalHub {
namespace {

using testing::IsEmpty;
using testing_support::FileOperation;

class SystemDatabaseTest : public testing_support::DatabaseTest
{
protected:
    void SetUp() override { SetFolder(mFolder / "data"); }
    void SetFolder(const std::string& inFolder)
    {
        mContext->SetInstance(std::make_shared<SystemDb::Location>(SystemDb::Location{inFolder}));
    }
    std::string Read(const std::string& inID)
    {
        std::string value = "unread";
        const int status = SystemDb::GetSystemEnclosure(inID, value);
        return std::to_string(status) + " " + value;
    }
};

TEST_F(SystemDatabaseTest, AnEnclosureIsKeptReplacedAndDeleted)
{
    const std::string bytes("\0\xff image", 8);
    EXPECT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("PosterFrameRendition", "first"));
    EXPECT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("PosterFrameRendition", bytes));
    EXPECT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("LastUserEmail", ""));
    EXPECT_EQ("200 " + bytes, Read("PosterFrameRendition"));
    EXPECT_EQ("200 ", Read("LastUserEmail"));
    EXPECT_EQ(200, SystemDb::DeleteSystemEnclosure("PosterFrameRendition"));
    EXPECT_EQ("404 unread", Read("PosterFrameRendition"));
    EXPECT_EQ(200, SystemDb::DeleteSystemEnclosure("PosterFrameRendition"));
    EXPECT_THAT(mLog->All(), IsEmpty());
}

TEST_F(SystemDatabaseTest, AReadOnANewFileFindsNothingAndMakesNoTable)
{
    EXPECT_EQ("404 unread", Read("LastUserEmail"));
    EXPECT_EQ(200, SystemDb::DeleteSystemEnclosure("LastUserEmail"));
    noxstorage::sqlite::Db db;
    ASSERT_EQ(0, db.Open16(mFolder / "data/system.sqlite3"));
    EXPECT_THAT(Query(db, "SELECT name FROM sqlite_master"), IsEmpty());
    EXPECT_THAT(mLog->All(), IsEmpty());
}

TEST_F(SystemDatabaseTest, ItKeepsARollbackJournalAndLeavesNothingBesideTheFile)
{
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("a", "b"));
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    ASSERT_TRUE(noxcore::filesupport::Files().ListDirectory(mFolder / "data", entries));
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ("system.sqlite3", entries.front().mName);
    noxstorage::sqlite::Db db;
    ASSERT_EQ(0, db.Open16(mFolder / "data/system.sqlite3"));
    EXPECT_EQ("delete", QueryOne(db, "PRAGMA journal_mode"));
}

TEST_F(SystemDatabaseTest, EachCallOpensTheFileAnew)
{
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("a", "b"));
    mVfs.ResetCounts();
    Read("a");
    Read("a");
    EXPECT_EQ(2u, mVfs.Count(FileOperation::Open));
}

TEST_F(SystemDatabaseTest, WhatWasAnsweredOutlastsAPowerCut)
{
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("n", "0"));
    std::vector<std::size_t> answered{0};
    mVfs.StartRecording(mFolder / "data");
    for (int i = 1; i <= 4; ++i) {
        ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("n", std::to_string(i)));
        answered.push_back(mVfs.RecordedEvents());
    }
    const auto recording = mVfs.StopRecording();
    SetFolder(mFolder / "after");
    for (std::size_t events = 0; events <= recording.Events().size(); ++events) {
        testing_support::WriteFolderImage(recording.AfterPowerCut(events, mScheduler->Seed() + events),
                                          mFolder / "after");
        std::string value;
        ASSERT_EQ(200, SystemDb::GetSystemEnclosure("n", value)) << "after event " << events;
        const auto least = std::upper_bound(answered.begin(), answered.end(), events) - answered.begin() - 1;
        ASSERT_GE(std::stoi(value), least) << "after event " << events;
    }
}

TEST_F(SystemDatabaseTest, AFileThatCannotBeOpenedIsReported)
{
    std::ofstream(mFolder / "file") << "no folder";
    SetFolder(mFolder / "file");
    EXPECT_EQ(500, SystemDb::AddOrUpdateSystemEnclosure("a", "b"));
    EXPECT_EQ("500 unread", Read("a"));
    EXPECT_EQ(500, SystemDb::DeleteSystemEnclosure("a"));
    const auto opens = mLog->Find("Can't open system database");
    ASSERT_EQ(3u, opens.size());
    EXPECT_EQ(mFolder / "file/system.sqlite3", opens.front().Value("path"));
    EXPECT_NE("", opens.front().Value("extended"));
    const auto operations = mLog->Find("Unable to open system database");
    ASSERT_EQ(3u, operations.size());
    EXPECT_EQ("a", operations.front().Value("enclosureID"));

    SetFolder(mFolder / "data");
    mVfs.SetFault({.mOperation = FileOperation::Open, .mNth = 1, .mCode = 14});
    EXPECT_EQ(500, SystemDb::AddOrUpdateSystemEnclosure("a", "b"));
    EXPECT_EQ("14", mLog->Find("Can't open system database").back().Value("extended"));
    mContext->SetInstance<SystemDb::Location>(nullptr);
    EXPECT_EQ("500 unread", Read("a"));
}

TEST_F(SystemDatabaseTest, FailedCommandsAreReported)
{
    mVfs.SetFault({.mOperation = FileOperation::Write, .mNth = 1, .mCode = 13, .mFromThenOn = true});
    EXPECT_EQ(500, SystemDb::AddOrUpdateSystemEnclosure("a", "b"));
    const auto writes = mLog->Find("Cannot write system enclosure into db");
    ASSERT_EQ(1u, writes.size());
    EXPECT_EQ("a", writes.front().Value("enclosureID"));
    EXPECT_EQ("13", writes.front().Value("main"));
    EXPECT_EQ("13", writes.front().Value("extended"));
    mVfs.ClearFaults();
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("a", "b"));

    noxstorage::sqlite::Db db;
    ASSERT_EQ(0, db.Open16(mFolder / "data/system.sqlite3"));
    ASSERT_EQ(0, db.ExecuteCmd("DROP TABLE KeyValue;CREATE TABLE KeyValue (Other)"));
    EXPECT_EQ("500 unread", Read("a"));
    EXPECT_EQ(1u, mLog->Count("Cannot read system enclosure from db"));
    EXPECT_EQ(500, SystemDb::DeleteSystemEnclosure("a"));
    EXPECT_EQ(1u, mLog->Count("Cannot delete system enclosure from db"));
}

TEST_F(SystemDatabaseTest, OfSeveralValuesAllAreKeptOrNone)
{
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosures({{"a", "0"}, {"b", "0"}}));
    const std::string large(100000, '1');  // more pages than the two small ones had
    unsigned failed = 0;
    for (unsigned nth = 1;; ++nth) {
        mVfs.ClearFaults();
        mVfs.SetFault({.mOperation = FileOperation::Write, .mNth = nth, .mCode = 13, .mFromThenOn = true});
        const int status = SystemDb::AddOrUpdateSystemEnclosures({{"a", "1"}, {"b", large}});
        mVfs.ClearFaults();
        if (status == 200) break;
        ++failed;
        ASSERT_EQ("200 0", Read("a")) << nth;
        ASSERT_EQ("200 0", Read("b")) << nth;
    }
    EXPECT_GT(failed, 5U);
    EXPECT_EQ("200 1", Read("a"));
    EXPECT_EQ("200 " + large, Read("b"));
}

TEST_F(SystemDatabaseTest, ADamagedFileIsReportedAndStaysAsItIs)
{
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("a", "b"));
    const std::string noise(8192, 'x');
    std::ofstream(mFolder / "data/system.sqlite3", std::ios::trunc) << noise;
    EXPECT_EQ("500 unread", Read("a"));
    EXPECT_EQ(500, SystemDb::AddOrUpdateSystemEnclosure("a", "c"));
    const auto opens = mLog->Find("Can't open system database");
    ASSERT_EQ(2u, opens.size());
    EXPECT_EQ("26", opens.front().Value("extended"));
    std::string content;
    ASSERT_TRUE(noxcore::filesupport::Files().ReadFile(mFolder / "data/system.sqlite3", content));
    EXPECT_EQ(noise, content);
}

TEST(SystemDatabaseThreads, CallsAtTheSameTimeWaitForEachOther)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    noxcore::HubContext::Parts parts;
    parts.mLog = log;
    const auto context = noxcore::HubContext::Create(std::move(parts));
    const noxcore::HubContext::Scope scope(context);
    const testing_support::TempFolder folder;
    context->SetInstance(std::make_shared<SystemDb::Location>(SystemDb::Location{folder.Path()}));
    std::atomic<int> succeeded{0};
    const auto executor = noxcore::threads::CreateIOBoundExecutor("writers", 3);
    for (int i = 0; i < 30; ++i) {
        ASSERT_TRUE(executor->Queue([&, i] {
            const std::string id = std::to_string(i);
            std::string value;
            if (SystemDb::AddOrUpdateSystemEnclosure(id, "of " + id) == 200 &&
                SystemDb::GetSystemEnclosure(id, value) == 200 && value == "of " + id) {
                ++succeeded;
            }
        }));
    }
    executor->ShutDownAndWait();
    EXPECT_EQ(30, succeeded);
    EXPECT_THAT(log->All(), IsEmpty());
}

}  // namespace
}  // namespace VantryLocalHub
