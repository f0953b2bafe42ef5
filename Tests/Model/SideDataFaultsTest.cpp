#include <gmock/gmock.h>
#include <sqlite3.h>

#include <fstream>
#include <functional>

#include "Tests/Support/SideDataFixture.h"

namespace {

using namespace testing_support;
namespace Lyra2Db = GitBox::Lyra2Db;
using testing::IsEmpty;

class SideDataFaults : public SideDataFixture
{
protected:
    SideDataFaults()
    {
        EXPECT_EQ(200, AddLocator(Locator("kept", "file:///before")));
        EXPECT_EQ(200, AddEnclosure("anna", "kept", "before"));
    }

    void Drop(const std::string& inTable) { ASSERT_EQ(SQLITE_OK, Db()->ExecuteCmd("DROP TABLE " + inTable)); }

    /// All that a restart finds: locators with their counts, enclosures with their contents.
    std::string Contents()
    {
        ReopenStore();
        std::vector<Lyra2Db::StoredRecord> locators;
        std::vector<Lyra2Db::UserEnclosureRow> enclosures;
        Lyra2Db::KeyValues ignored;
        EXPECT_TRUE(Lyra2Db::ReadAllSessionData(*Db(), locators, enclosures, ignored));
        std::string text;
        for (const auto& locator : locators)
            text += locator.mDTO + " " + std::to_string(locator.mChangeCount) + "\n";
        for (const auto& enclosure : enclosures)
            text += enclosure.mUser + " " + enclosure.mDTO + " " + enclosure.mContent + "\n";
        return text;
    }

    std::vector<dto::MediaLocator> mBatch{Locator("x"), Locator("kept", "file:///batch"), Locator("y")};
    const std::vector<std::pair<std::string, std::function<int()>>> mWrites{
        {"AddMediaLocator", [&] { return AddLocator(Locator("new")); }},
        {"AddMediaLocators", [&] { return mStore->AddMediaLocators(mID, WriteMode::LocalEdit, mBatch); }},
        {"EditMediaLocator", [&] { return EditLocator(Locator("kept", "file:///after")); }},
        {"ApplyRemote",
         [&] {
             bool changed = false;
             return mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, RemoteLocator("r", "https://r"), "anna",
                                                                        changed);
         }},
        {"AddUserEnclosure", [&] { return AddEnclosure("anna", "new", "new"); }},
        {"UpdateUserEnclosure",
         [&] {
             dto::UserEnclosure update;
             update.mEnclosureID = "kept";
             return mStore->UpdateUserEnclosure(mID, "anna", WriteMode::LocalEdit, Bytes("after"), update);
         }},
        {"DeleteUserEnclosure", [&] { return mStore->DeleteUserEnclosure(mID, "anna", "kept"); }}};
};

TEST_F(SideDataFaults, AWriteThatFailsAtAnyPlaceIs500AndLosesNothing)
{
    for (const auto& [name, write] : mWrites) {
        const std::string before = Contents();
        unsigned failures = 0;
        for (unsigned place = 1; place < 40; ++place) {
            Tags();
            const std::int64_t count = ChangeCount();
            mVfs->SetFault({FileOperation::Write, place, SQLITE_FULL, true, "session.sqlite3-wal", 0});
            const unsigned reported = mVfs->FaultsReported();
            const int status = write();
            const bool reached = mVfs->FaultsReported() != reported;
            mVfs->ClearFaults();
            const std::string after = Contents();
            EXPECT_LE(count, ChangeCount());
            if (status == 200) {
                EXPECT_NE(before, after) << name;
                if (!reached) break;
                continue;
            }
            EXPECT_EQ(500, status) << name;
            EXPECT_TRUE(reached) << name;
            EXPECT_EQ(before, after) << name << " failed at write " << place;
            ++failures;
        }
        EXPECT_GE(failures, 2U) << name;
    }
}

TEST_F(SideDataFaults, ACounterThatCannotBeWrittenKeepsItsValueAndIsSaidTwice)
{
    const std::pair<const char*, std::function<int()>> cases[] = {
        {"AddMediaLocator: Failed to increment change count.", mWrites[0].second},
        {"AddMediaLocators: Failed to increment change count.", mWrites[1].second},
        {"EditMediaLocator: Failed to increment change count.", mWrites[2].second}};
    for (const auto& [message, write] : cases) {
        const SideDataTags tags = Tags();
        mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "session.sqlite3-wal", 0});
        EXPECT_EQ(500, write());
        mVfs->ClearFaults();
        EXPECT_EQ(1U, mLog->Count(message)) << message;
        const auto failures = mLog->Find("Failed to write change count for session");
        ASSERT_EQ(1U, failures.size());
        EXPECT_EQ(mID, failures.front().Value("sessionID"));
        EXPECT_NE("", failures.front().Value("stackTrace"));
        EXPECT_EQ(tags.mMediaLocators, Tags().mMediaLocators);
        EXPECT_EQ(2, ChangeCount());
        mLog->Clear();
    }
    ASSERT_EQ(200, AddLocator(Locator("next")));
    EXPECT_EQ(3, ChangeCountOf("next"));
}

TEST_F(SideDataFaults, ACountThatAFailedWriteTookIsNotGivenOutAgain)
{
    ASSERT_EQ(SQLITE_OK, Db()->ExecuteCmd("CREATE TRIGGER no BEFORE INSERT ON MediaLocators WHEN NEW.ID='bad' BEGIN "
                                          "SELECT RAISE(ABORT, 'bad'); END"));
    EXPECT_EQ(500, AddLocator(Locator("bad")));
    std::vector<dto::MediaLocator> batch{Locator("good"), Locator("bad")};
    const std::vector<dto::MediaLocator> before = batch;
    EXPECT_EQ(500, mStore->AddMediaLocators(mID, WriteMode::LocalEdit, batch));
    EXPECT_EQ(before, batch) << "what was not written was not stamped";
    EXPECT_EQ(1U, mLog->Count("Cannot write media locators into db"));
    EXPECT_EQ(1U, LocatorIDs().size());
    ASSERT_EQ(200, AddLocator(Locator("good")));
    EXPECT_EQ(5, ChangeCountOf("good"));
}

TEST_F(SideDataFaults, WhatCannotBeReadIsAFailureAndNotAbsent)
{
    dto::MediaLocator locator = Locator("kept");
    std::vector<dto::MediaLocator> locators;
    dto::UserEnclosure enclosure;
    enclosure.mEnclosureID = "kept";
    std::vector<dto::UserEnclosure> enclosures;
    ConstRecycledMemoryPtr payload;
    SyncChangeCount count;
    RFC3339DateTime time;
    bool changed = true;
    Drop("MediaLocators");
    Drop("UserEnclosures");
    EXPECT_EQ(500, mStore->GetMediaLocator(mID, "kept", locator));
    EXPECT_EQ(500, mStore->GetMediaLocators(mID, locators));
    EXPECT_EQ(500, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(mID, locators, count));
    EXPECT_EQ(500, mStore->GetLastModifiedMediaLocatorTime(mID, time));
    EXPECT_EQ(500, mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, locator, "anna", changed));
    EXPECT_EQ(500, mStore->GetUserEnclosures(mID, "anna", enclosures));
    EXPECT_EQ(500, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures(mID, "anna", enclosures, count));
    EXPECT_EQ(500, mStore->GetUserEnclosure(mID, "anna", "kept", enclosure, payload));
    for (const auto& [name, write] : mWrites)
        EXPECT_EQ(500, write()) << name;
    EXPECT_TRUE(changed);
    EXPECT_TRUE(count.IsNone());
    EXPECT_EQ(nullptr, payload);
}

TEST_F(SideDataFaults, ACounterThatCannotBeReadStopsWritesAndWhatIsBuiltOnIt)
{
    std::vector<dto::MediaLocator> locators;
    std::vector<dto::UserEnclosure> enclosures;
    SyncChangeCount count;
    SideDataTags tags;
    Drop("KeyValue");
    // Another store over the same file, so that nothing of it is in memory.
    GitBox::Sandbox::Handles handles;
    const auto known = GitBox::Sandboxes::Instance()->FindSandbox(mID);
    ASSERT_TRUE(known->RetainDB(handles));
    const auto sandbox = GitBox::Sandbox::Create(known->GetFolder(), mSession, handles);
    EXPECT_EQ(500, sandbox->GetUnsynchronizedLocallyModifiedMediaLocators(locators, count));
    EXPECT_EQ(500, sandbox->GetUnsynchronizedLocallyModifiedUserEnclosures("anna", enclosures, count));
    EXPECT_EQ(500, sandbox->GetSideDataTags(tags));
    dto::MediaLocator locator = Locator("new");
    EXPECT_EQ(500, sandbox->AddMediaLocator(WriteMode::LocalEdit, locator));
    EXPECT_EQ(500, sandbox->AddMediaLocator(WriteMode::SyncEngine, locator));
    EXPECT_EQ(500, sandbox->DeleteUserEnclosure("anna", "kept"));
    EXPECT_EQ(200, sandbox->GetMediaLocators(locators));
    EXPECT_EQ(1U, locators.size());
}

TEST_F(SideDataFaults, ASyncDatabaseThatCannotBeReadLetsTheSyncEngineChangeNothing)
{
    ExchangeLocators();
    ReopenStore();
    const SideDataTags tags = Tags();
    const FileFault cannotOpen{FileOperation::Open, 1, SQLITE_CANTOPEN, true, "sync.sqlite3", 0};
    mVfs->SetFault(cannotOpen);
    bool changed = false;
    EXPECT_EQ(500, AddLocator(RemoteLocator("r", "https://r"), WriteMode::SyncEngine));
    EXPECT_EQ(500, mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, RemoteLocator("kept", "https://r"), "anna",
                                                                       changed));
    EXPECT_EQ(500, AddEnclosure("anna", "new", "new", WriteMode::SyncEngine));
    EXPECT_EQ(500, AddLocator(Locator("local"))) << "the first edit asks which counts were given out";
    mVfs->ClearFaults();
    EXPECT_EQ(200, AddLocator(Locator("local")));
    mVfs->SetFault(cannotOpen);
    EXPECT_EQ(200, AddLocator(Locator("next"))) << "from then on a local edit asks nobody";
    mVfs->ClearFaults();
    EXPECT_FALSE(changed);
    EXPECT_EQ("file:///before", HrefOf("kept"));
    EXPECT_EQ(tags.mUserEnclosures, Tags().mUserEnclosures);
    EXPECT_EQ(3U, LocatorIDs().size());
}

TEST_F(SideDataFaults, AfterAPowerCutNoCountIsBeyondTheCounter)
{
    const std::string folder = GitBox::Sandboxes::Instance()->FindSandbox(mID)->GetFolder();
    mVfs->StartRecording(folder);
    for (int round = 0; round < 4; ++round) {
        EXPECT_EQ(200, AddLocator(Locator("a" + std::to_string(round), std::string(3000, 'x'))));
        EXPECT_EQ(200, mStore->AddMediaLocators(mID, WriteMode::LocalEdit, mBatch));
        EXPECT_EQ(200, AddEnclosure("anna", std::to_string(round), std::string(5000, 'y')));
        EXPECT_EQ(200, mStore->DeleteUserEnclosure(mID, "anna", std::to_string(round)));
    }
    const std::string last = Tags().mUserEnclosures.Text();
    mStore.reset();
    const auto recording = mVfs->StopRecording();
    ASSERT_GT(recording.Events().size(), 20U);
    const std::string copy = mHome / "after";
    for (std::size_t events = 0; events <= recording.Events().size(); events += 3) {
        WriteFolderImage(recording.AfterPowerCut(events, mScheduler->Seed() + events), copy);
        Lyra2Db::DbPtr db;
        ASSERT_TRUE(Lyra2Db::OpenSessionDatabase(copy, db));
        std::int64_t count = -1;
        Lyra2Db::LastWrite write;
        std::vector<Lyra2Db::StoredRecord> beyond;
        ASSERT_TRUE(Lyra2Db::ReadChangeCount(*db, count));
        ASSERT_TRUE(Lyra2Db::ReadMediaLocatorsChangedAfter(*db, count, beyond));
        ASSERT_TRUE(Lyra2Db::ReadLastWrite(*db, SideData::UserEnclosures, write));
        EXPECT_THAT(beyond, IsEmpty()) << "after event " << events;
        EXPECT_LE(write.mChangeCount, count) << "after event " << events;
        if (events == recording.Events().size()) EXPECT_EQ(last, write.Text());
    }
    ReopenStore();
    EXPECT_EQ(last, Tags().mUserEnclosures.Text());
}

/// What memory knows of side data goes with the database that it was read from.
class LostSideData : public SideDataFaults
{
protected:
    /// As the idle while after a use does, with the file then spoilt or taken away.
    void Lose(const std::function<void(const std::string& inPath)>& inHow)
    {
        const auto sandbox = GitBox::Sandboxes::Instance()->FindSandbox(mID);
        ASSERT_TRUE(sandbox->ReleaseDB());
        inHow(noxcore::filesupport::Join(sandbox->GetFolder(), "session.sqlite3"));
    }
    static void Spoil(const std::string& inPath) { std::ofstream(inPath, std::ios::trunc) << std::string(8192, 'x'); }
    RFC3339DateTime NewestLocator()
    {
        RFC3339DateTime time;
        EXPECT_EQ(200, mStore->GetLastModifiedMediaLocatorTime(mID, time));
        return time;
    }
};

TEST_F(LostSideData, WhatADamagedDatabaseHeldIsNotToldOfTheOneInItsPlace)
{
    const SideDataTags before = Tags();
    EXPECT_TRUE(NewestLocator().IsValid());
    Lose(Spoil);
    EXPECT_THAT(LocatorIDs(), IsEmpty());
    EXPECT_EQ(1U, mLog->Count("Put a damaged database aside"));
    EXPECT_FALSE(NewestLocator().IsValid());
    EXPECT_NE(before.mMediaLocators, Tags().mMediaLocators);
    EXPECT_NE(before.mUserEnclosures, Tags().mUserEnclosures);
    const std::int64_t first = ChangeCount();
    EXPECT_LT(2, first);
    ASSERT_EQ(200, AddLocator(Locator("next")));
    EXPECT_EQ(first + 1, ChangeCountOf("next")) << "counted on from where the new database begins";
    const SideDataTags after = Tags();
    ReopenStore();
    EXPECT_EQ(after.mMediaLocators, Tags().mMediaLocators) << "and a restart knows the same";
    EXPECT_EQ(after.mUserEnclosures, Tags().mUserEnclosures);
}

TEST_F(LostSideData, ACountThatADatabaseGaveOutIsNotGivenOutAgainByTheOneInItsPlace)
{
    ASSERT_EQ(2, ChangeCount());
    const SideDataTags before = Tags();
    Lose([](const std::string& inPath) { ASSERT_TRUE(noxcore::filesupport::Files().DeleteFile(inPath)); });
    EXPECT_THAT(LocatorIDs(), IsEmpty());
    EXPECT_NE(before.mMediaLocators, Tags().mMediaLocators);
    ASSERT_EQ(200, AddLocator(Locator("next")));
    EXPECT_EQ(3, ChangeCountOf("next"));
}

TEST_F(LostSideData, ADatabaseThatIsMerelyOpenedAgainIsNotReadAgain)
{
    const SideDataTags before = Tags();
    Lose([](const std::string&) {});
    ASSERT_EQ(200, AddEnclosure("anna", "other", "x"));
    EXPECT_EQ(before.mMediaLocators, Tags().mMediaLocators);
    EXPECT_EQ(3, ChangeCount());
    EXPECT_EQ(1U, LocatorIDs().size());
}

}  // namespace
