// Where snapshots may lie and what they may hold: nothing of the hub's own is opened as one or overwritten by one, and
// what came with an archive is there or the call fails.

#include <gmock/gmock.h>
#include <sqlite3.h>

#include "Tests/Support/SnapshotFixture.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;
namespace IO = VantryLocalHub::GitBox::IO;

class SnapshotPlaces : public SnapshotFixture
{
protected:
    int Open(const std::string& inFile)
    {
        dto::Session opened;
        const int status = mStore->ExtractSnapshot(inFile, {}, opened);
        mOpened = opened.mIdentifier;
        return status;
    }
    int Make(const std::string& inFile)
    {
        dto::Session made;
        return mStore->CreateSessionFromSnapshot(inFile, {}, made);
    }
    int Apply(const std::string& inFile)
    {
        dto::Session applied;
        return mStore->ApplySnapshot(mSession.mIdentifier, inFile, false, true, applied);
    }
    /// Puts something else in the place of a file of an archive.
    void ReplaceIn(const std::string& inFile, const std::string& inName, const std::string& inContent)
    {
        ASSERT_TRUE(IO::ExtractZipFile(inFile, In("box")));
        std::ofstream(In("box/" + inName), std::ios::binary) << inContent;
        ASSERT_TRUE(IO::CreateZipFile(In("box"), inFile));
        fs::remove_all(In("box"));
    }
    static std::string ReadWhole(const std::string& inPath)
    {
        std::ifstream file(inPath, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    ImmutableString mOpened;
};

TEST_F(SnapshotPlaces, TheFolderOfASessionIsNeverOpenedAsASnapshot)
{
    const std::string folder = FolderOf(mSession.mIdentifier);
    const auto expected = Content(mSession.mIdentifier);
    ReopenStore();
    const std::string file = folder.substr(0, folder.size() - std::string(".lyra2").size()) + ".zip";
    EXPECT_EQ(400, Open(file));
    fs::create_directory_symlink(folder, In("linked.lyra2"));
    EXPECT_EQ(400, Open(In("linked.zip")));
    EXPECT_EQ(2U, mLog->Count("Won't open what belongs to another session as a snapshot"));
    EXPECT_EQ(1U, mStore->GetSessions().size());
    EXPECT_EQ(expected, Content(mSession.mIdentifier));
}

TEST_F(SnapshotPlaces, WhatIsListedAsASnapshotAndLiesAmongTheSessionsIsLeftAlone)
{
    const std::string folder = FolderOf(mSession.mIdentifier);
    EXPECT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("ExtractedSnapshots", "[\"" + folder + "\"]"));
    ReopenStore();
    EXPECT_EQ(1U, mStore->GetSessions().size());
    EXPECT_TRUE(mStore->SessionExists(mSession.mIdentifier));
}

TEST_F(SnapshotPlaces, ASnapshotTakesThePlaceOfAnArchiveAloneAndOfNothingOfTheHub)
{
    const auto expected = Content(mSession.mIdentifier);
    const std::string folder = FolderOf(mSession.mIdentifier);
    std::ofstream(In("letter.txt")) << "dear";
    for (const std::string& file : {folder + "/session.sqlite3", folder + "/git/odb.sqlite3", folder + "/new.zip",
                                    VYCL::LocalHub::GetBaseSuiteDataFolder() + "/system.sqlite3", In("letter.txt")})
        EXPECT_EQ(400, Take(file)) << file;
    EXPECT_EQ("dear", ReadWhole(In("letter.txt")));
    ReopenStore();
    EXPECT_EQ(expected, Content(mSession.mIdentifier));
    std::ofstream(In("empty.zip")).flush();
    EXPECT_EQ(200, Take(In("empty.zip")));
    EXPECT_EQ(200, Take(In("empty.zip")));
}

TEST_F(SnapshotPlaces, ASnapshotWithoutItsSessionDatabaseOrWithADamagedOneIsRefusedAndLeavesNothing)
{
    const auto before = Locators(mSession.mIdentifier);
    for (const char* const content : {"", "no database at all"}) {
        ASSERT_EQ(200, Take(In("a.zip")));
        ReplaceIn(In("a.zip"), "session.sqlite3", content);
        EXPECT_EQ(500, Open(In("a.zip")));
        EXPECT_FALSE(fs::exists(In("a.lyra2")));
        EXPECT_EQ(500, Make(In("a.zip")));
        EXPECT_EQ(500, Apply(In("a.zip")));
    }
    EXPECT_EQ(before, Locators(mSession.mIdentifier));
    EXPECT_EQ(1U, mStore->GetSessions().size());
    EXPECT_EQ(0U, TemporaryFolders());
}

TEST_F(SnapshotPlaces, ASnapshotThatLiesInAnArchiveOrInAFolderOfOneIsNotLookedFor)
{
    const auto expected = Content(mSession.mIdentifier);
    fs::create_directories(In("box"));
    ASSERT_EQ(200, Take(In("box/inner.zip")));
    ASSERT_TRUE(IO::CreateZipFile(In("box"), In("a.zip")));
    fs::create_directories(In("outer"));
    ASSERT_TRUE(IO::ExtractZipFile(In("box/inner.zip"), In("outer/inner.lyra2")));
    ASSERT_TRUE(IO::CreateZipFile(In("outer"), In("b.zip")));
    for (const std::string& file : {In("a.zip"), In("b.zip")}) {
        SCOPED_TRACE(file);
        EXPECT_EQ(500, Open(file));
        EXPECT_EQ(500, Make(file));
        EXPECT_EQ(500, Apply(file));
    }
    EXPECT_FALSE(fs::exists(In("a.lyra2")));
    EXPECT_FALSE(fs::exists(In("b.lyra2")));
    EXPECT_EQ(0U, TemporaryFolders());
    EXPECT_EQ(1U, mStore->GetSessions().size());
    EXPECT_EQ(expected, Content(mSession.mIdentifier));
}

TEST_F(SnapshotPlaces, AnArchiveOfFarMoreThanItHoldsIsRefused)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    ASSERT_TRUE(IO::ExtractZipFile(In("a.zip"), In("box")));
    fs::remove(In("a.zip"));
    std::ofstream(In("box/sync.sqlite3")).flush();
    fs::resize_file(In("box/sync.sqlite3"), std::uintmax_t{400} * 1024 * 1024);
    ASSERT_TRUE(IO::CreateZipFile(In("box"), In("a.zip")));
    fs::remove_all(In("box"));
    EXPECT_EQ(500, Open(In("a.zip")));
    EXPECT_EQ("The content is out of all proportion to the archive",
              mLog->Find("ZipFile: cannot unpack").at(0).Value("error"));
    EXPECT_FALSE(fs::exists(In("a.lyra2")));
}

TEST_F(SnapshotPlaces, WhatKilledProcessesLeftOfAnArchiveIsRemovedAfterADay)
{
    constexpr const char* kGuid = ".3f2504e0-4f89-41d3-9a0c-0305e82c3301.tmp";
    ASSERT_EQ(200, Take(In("a.zip")));
    const std::string packing = In("a.zip") + kGuid;
    const std::string unpacking = In("a.lyra2") + kGuid;
    const std::vector<std::string> others = {In("b.zip") + kGuid, In("a.zip.tmp"), In("a.zip.3f2504e0.tmp")};
    std::ofstream(packing) << "half";
    fs::create_directories(unpacking + "/git");
    for (const std::string& other : others)
        std::ofstream(other) << "of others";
    mScheduler->Advance(1000);
    const auto setAge = [&](std::chrono::hours inAge) {
        const auto now = std::chrono::sys_time<std::chrono::nanoseconds>(
            std::chrono::nanoseconds(100 * mContext->GetClock().NowTicks()));
        const auto time = std::chrono::file_clock::from_sys(now - inAge);
        for (const std::string& path : {packing, unpacking})
            fs::last_write_time(path, std::chrono::time_point_cast<fs::file_time_type::duration>(time));
    };
    setAge(std::chrono::hours(23));
    EXPECT_EQ(200, Take(In("a.zip")));
    EXPECT_EQ(200, Open(In("a.zip")));
    EXPECT_TRUE(fs::exists(packing) && fs::exists(unpacking)) << "somebody may still be at it";
    EXPECT_EQ(200, mStore->ClearExtractedSnapshot(mOpened));
    fs::remove_all(In("a.lyra2"));
    setAge(std::chrono::hours(25));
    EXPECT_EQ(200, Take(In("a.zip")));
    EXPECT_EQ(200, Open(In("a.zip")));
    EXPECT_FALSE(fs::exists(packing) || fs::exists(unpacking));
    for (const std::string& other : others)
        EXPECT_TRUE(fs::exists(other)) << other;
}

TEST_F(SnapshotPlaces, AnApplicationThatFailsLeavesNoRowWithoutAnIndexEntry)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    const dto::Session other = CreateSession();
    ASSERT_TRUE(IO::ExtractZipFile(In("a.zip"), In("box")));
    const auto execute = [](const std::string& inFile, const std::string& inCommand) {
        sqlite3* db = nullptr;
        std::int64_t number = -1;
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open(inFile.c_str(), &db));
        EXPECT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, inCommand.c_str(), -1, &statement, nullptr));
        if (sqlite3_step(statement) == SQLITE_ROW) number = sqlite3_column_int64(statement, 0);
        sqlite3_finalize(statement);
        sqlite3_close(db);
        return number;
    };
    // The largest object lies in a batch of its own.
    execute(In("box/git/odb.sqlite3"),
            "UPDATE objects SET data=zeroblob(length(data)) WHERE row=(SELECT row FROM objects WHERE oid IS NOT NULL "
            "ORDER BY size DESC LIMIT 1)");
    ASSERT_TRUE(IO::CreateZipFile(In("box"), In("damaged.zip")));
    dto::Session applied;
    EXPECT_EQ(500, mStore->ApplySnapshot(other.mIdentifier, In("damaged.zip"), false, true, applied));
    const std::string folder = FolderOf(other.mIdentifier);
    mStore.reset();
    mScheduler->RunUntilIdle();
    EXPECT_EQ(0, execute(folder + "/git/odb.sqlite3",
                         "SELECT count(*) FROM objects WHERE oid IS NOT NULL AND "
                         "row<=(SELECT value FROM settings WHERE name='indexedRow') AND "
                         "row NOT IN (SELECT row FROM oids) AND row NOT IN (SELECT row FROM collided)"));
}

TEST_F(SnapshotPlaces, AfterAnApplicationTheNewestLocatorIsOneThatIsThere)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    SideDataTags before;
    ASSERT_EQ(200, mStore->GetSideDataTags(mSession.mIdentifier, before));
    mScheduler->Advance(5000);
    dto::MediaLocator locator;
    locator.mMediaLocatorID = "m-used";
    locator.mProperties = dto::RawJSON(R"({"path":"/elsewhere"})");
    ASSERT_EQ(200, mStore->AddMediaLocator(mSession.mIdentifier, WriteMode::LocalEdit, locator));
    ASSERT_EQ(200, Apply(In("a.zip")));
    RFC3339DateTime newest;
    EXPECT_EQ(200, mStore->GetLastModifiedMediaLocatorTime(mSession.mIdentifier, newest));
    std::vector<dto::MediaLocator> locators;
    ASSERT_EQ(200, mStore->GetMediaLocators(mSession.mIdentifier, locators));
    const auto isOfIt = [&](const dto::MediaLocator& inLocator) { return inLocator.mLastModified == newest; };
    EXPECT_TRUE(std::any_of(locators.begin(), locators.end(), isOfIt)) << newest.Text();
}

}  // namespace
