#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Inc/Model/GitBoxSyncDb.h"
#include "Platform/noxstorage/KeyValueTable.h"
#include "Tests/Model/SyncDatabaseTest.h"

namespace VantryLocalHub::GitBox {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testing_support::FileOperation;

TEST_F(SyncDatabaseTest, TheTablesAreMadeByExactlyTheseStatements)
{
    const auto db = Connection();
    EXPECT_EQ(
        "CREATE TABLE RemoteAssociations (ServerURL TEXT, ProductionID TEXT, SessionID TEXT, Active INTEGER, "
        "Timestamp INTEGER, ChangeCount INTEGER, PRIMARY KEY (ServerURL, SessionID))",
        QueryOne(*db, "SELECT sql FROM sqlite_master WHERE name='RemoteAssociations'"));
    EXPECT_EQ(
        "CREATE TABLE SyncPointHistory (LocalCommitID TEXT, RemoteCommitID TEXT, Timestamp INTEGER, ServerURL TEXT, "
        "RemoteSessionID TEXT, ChangeCount INTEGER, PRIMARY KEY (LocalCommitID, RemoteCommitID) FOREIGN "
        "KEY(ServerURL, RemoteSessionID) REFERENCES RemoteAssociations(ServerURL, SessionID))",
        QueryOne(*db, "SELECT sql FROM sqlite_master WHERE name='SyncPointHistory'"));
    EXPECT_EQ("wal", QueryOne(*db, "PRAGMA journal_mode"));
    EXPECT_EQ("1", QueryOne(*db, "PRAGMA synchronous"));
    EXPECT_EQ("10000", QueryOne(*db, "PRAGMA busy_timeout"));
    EXPECT_EQ("1", QueryOne(*db, "PRAGMA foreign_keys"));
    EXPECT_EQ(mFolder / "sync.sqlite3", db->DbFilename());
}

TEST_F(SyncDatabaseTest, ASessionThatWasNeverLinkedHasNothingAndThatIsNoError)
{
    RemoteAssociation association;
    SyncPoint point;
    std::string date = "kept";
    std::vector<ImmutableString> local{"left over"};
    std::vector<ImmutableString> remote;
    EXPECT_FALSE(mDb->ReadCurrentRemoteAssociation(association));
    EXPECT_EQ(RemoteAssociation(), association);
    EXPECT_FALSE(mDb->ReadLatestSyncPoint(point));
    EXPECT_FALSE(mDb->ReadSyncPointForLocalRevision("l", point));
    EXPECT_FALSE(mDb->ReadSyncPointForRemoteRevision("r", point));
    EXPECT_EQ(SyncPoint(), point);
    EXPECT_FALSE(mDb->ReadDeletedDate(date));
    EXPECT_EQ("kept", date);
    EXPECT_FALSE(mDb->IsLocalOnly());
    EXPECT_TRUE(mDb->ReadSyncPointRevisions(local, remote));
    EXPECT_THAT(local, IsEmpty());
    EXPECT_THAT(mLog->All(), IsEmpty());
}

TEST_F(SyncDatabaseTest, AnAssociationMakesTheSessionASynchronizedOneOfItsUser)
{
    ASSERT_TRUE(mDb->WriteLocalOnlyMode());
    EXPECT_TRUE(mDb->IsLocalOnly());
    Associate();
    EXPECT_FALSE(mDb->IsLocalOnly());
    RemoteAssociation association;
    ASSERT_TRUE(mDb->ReadCurrentRemoteAssociation(association));
    EXPECT_EQ((RemoteAssociation{kServer, "p-remote", "remote", "user", "corvane", 1}), association);
    const auto db = Connection();
    EXPECT_EQ("synchronized", QueryOne(*db, "SELECT Value FROM KeyValue WHERE Key='Synchronization'"));
    EXPECT_EQ("1 17775936000000000", QueryOne(*db, "SELECT Active || ' ' || Timestamp FROM RemoteAssociations"));
}

TEST_F(SyncDatabaseTest, AUserIsKnownWithoutAnAssociation)
{
    ASSERT_TRUE(mDb->WriteUserID("u", "c"));
    RemoteAssociation association;
    EXPECT_FALSE(mDb->ReadCurrentRemoteAssociation(association));
    EXPECT_EQ("u", association.mUserID);
    EXPECT_EQ("c", association.mCorvaneID);
}

TEST_F(SyncDatabaseTest, OfTwoActiveAssociationsTheLaterWrittenIsCurrent)
{
    Associate("https://b.example", "2");
    Associate("https://a.example", "1");
    RemoteAssociation association;
    ASSERT_TRUE(mDb->ReadCurrentRemoteAssociation(association));
    EXPECT_EQ("https://a.example", association.mServerURL);
    EXPECT_EQ(2, association.mChangeCount);
    ASSERT_TRUE(mDb->InvalidateAssociationForSync(Association("https://a.example", "1")));
    ASSERT_TRUE(mDb->ReadCurrentRemoteAssociation(association));
    EXPECT_EQ("https://b.example", association.mServerURL);
}

TEST_F(SyncDatabaseTest, AnAssociationThatCannotBeWrittenLeavesNothingOfIt)
{
    Associate();
    auto second = Association(kServer, "remote");
    second.mUserID = "somebody else";
    EXPECT_FALSE(mDb->WriteAssociationForSync(second));
    const auto failures = mLog->Find("Cannot write sync association into db");
    ASSERT_EQ(1u, failures.size());
    EXPECT_EQ("HubSync", failures.front().mCategory);
    EXPECT_EQ(kServer, failures.front().Value("remoteServer"));
    EXPECT_EQ("p-remote", failures.front().Value("remoteProductionID"));
    EXPECT_EQ("19", failures.front().Value("main"));
    RemoteAssociation association;
    ASSERT_TRUE(mDb->ReadCurrentRemoteAssociation(association));
    EXPECT_EQ("user", association.mUserID);

    mVfs.SetFault({.mOperation = FileOperation::Write, .mNth = 2, .mCode = 13, .mOnlyEndingIn = "-wal"});
    EXPECT_FALSE(mDb->WriteAssociationForSync(Association("https://b.example", "2")));
    EXPECT_EQ("1", QueryOne(*Connection(), "SELECT COUNT(*) FROM RemoteAssociations"));
    EXPECT_EQ(3, mSandbox->Count()) << "a gap in the count is harmless";
    Associate("https://b.example", "2");
}

TEST_F(SyncDatabaseTest, SyncPointsAreFoundByEitherRevision)
{
    Associate();
    Write("l1", "r1");
    Write("l2", "r2");
    SyncPoint point;
    ASSERT_TRUE(mDb->ReadSyncPointForLocalRevision("l1", point));
    auto expected = Point("l1", "r1");
    expected.mRemoteSessionID = "remote";
    EXPECT_EQ(expected, point);
    ASSERT_TRUE(mDb->ReadSyncPointForRemoteRevision("r2", point));
    EXPECT_EQ("l2", point.mLocalRevision);
    ASSERT_TRUE(mDb->ReadLatestSyncPoint(point));
    EXPECT_EQ("l2", point.mLocalRevision);
    EXPECT_EQ("2026-05-02T10:11:12.5Z", point.mDate.Text());
    std::vector<ImmutableString> local;
    std::vector<ImmutableString> remote;
    ASSERT_TRUE(mDb->ReadSyncPointRevisions(local, remote));
    EXPECT_THAT(local, ElementsAre("l1", "l2"));
    EXPECT_THAT(remote, ElementsAre("r1", "r2"));
}

TEST_F(SyncDatabaseTest, ASyncPointMakesTheSessionASynchronizedOne)
{
    Associate();
    ASSERT_TRUE(mDb->WriteLocalOnlyMode());
    Write("l1", "r1");
    EXPECT_FALSE(mDb->IsLocalOnly());
}

TEST_F(SyncDatabaseTest, ASyncPointNeedsAnAssociation)
{
    std::int64_t count = -5;
    EXPECT_FALSE(mDb->WriteSyncPoint(Point("l1", "r1"), count));
    EXPECT_EQ(-5, count);
    EXPECT_EQ(1u, mLog->Count("Cannot read current remote association from db"));
    EXPECT_EQ("0", QueryOne(*Connection(), "SELECT COUNT(*) FROM SyncPointHistory"));
}

TEST_F(SyncDatabaseTest, APairOfRevisionsIsWrittenOnce)
{
    Associate();
    Write("l1", "r1");
    std::int64_t count = -5;
    EXPECT_FALSE(mDb->WriteSyncPoint(Point("l1", "r1"), count));
    EXPECT_EQ(-5, count);
    EXPECT_EQ(3, mSandbox->Count());
    const auto failures = mLog->Find("Cannot write session sync point into db");
    ASSERT_EQ(1u, failures.size());
    EXPECT_EQ(R"({"remote":"r1","local":"l1","date":"2026-05-02T10:11:12.5Z"})", failures.front().Value("syncPoint"));
    EXPECT_EQ("19", failures.front().Value("main"));
    EXPECT_EQ("1555", failures.front().Value("extended")) << "the primary key";
}

TEST_F(SyncDatabaseTest, SyncPointsOfAnEndedAssociationStayButAreNotLatest)
{
    Associate();
    Write("l1", "r1");
    ASSERT_TRUE(mDb->InvalidateAssociationForSync(Association(kServer, "remote")));
    EXPECT_EQ("none", LatestLocalRevision());
    SyncPoint point;
    EXPECT_TRUE(mDb->ReadSyncPointForLocalRevision("l1", point));
    EXPECT_EQ("0 " + std::to_string(mContext->GetClock().NowTicks()),
              QueryOne(*Connection(), "SELECT Active || ' ' || Timestamp FROM RemoteAssociations"));
    Associate("https://b.example", "2");
    Write("l2", "r2");
    EXPECT_EQ("l2", LatestLocalRevision());
    EXPECT_THAT(mLog->All(), IsEmpty());
}

TEST_F(SyncDatabaseTest, ARestoredRemoteRevisionForgetsWhatCameAfterIt)
{
    Associate();
    Write("l1", "r1");
    Write("l2", "r2");
    Write("l3", "r2");
    Write("l4", "r4");
    ImmutableString latest;
    ASSERT_TRUE(mDb->ResolveRestoredRemoteRevision("r2", latest));
    EXPECT_EQ("r2", latest);
    EXPECT_EQ("l3", LatestLocalRevision());
    const auto rewinds = mLog->Find("Rewinding sync history");
    ASSERT_EQ(1u, rewinds.size());
    EXPECT_EQ("5", rewinds.front().Value("latestChangeCount"));
    EXPECT_EQ("r4", rewinds.front().Value("latestRevision"));
    EXPECT_EQ("4", rewinds.front().Value("rewoundChangeCount"));
    EXPECT_EQ("r2", rewinds.front().Value("rewoundRevision"));

    ASSERT_TRUE(mDb->ResolveRestoredRemoteRevision("r2", latest));
    EXPECT_EQ(1u, mLog->Count("Rewinding sync history")) << "nothing is left to rewind";
}

TEST_F(SyncDatabaseTest, AnUnknownRestoredRevisionForgetsNothing)
{
    ImmutableString latest = "kept";
    EXPECT_FALSE(mDb->ResolveRestoredRemoteRevision("r9", latest));
    EXPECT_EQ("kept", latest);
    Associate();
    Write("l1", "r1");
    Write("l2", "r2");
    EXPECT_TRUE(mDb->ResolveRestoredRemoteRevision("r9", latest));
    EXPECT_EQ("r2", latest);
    EXPECT_EQ("2", QueryOne(*Connection(), "SELECT COUNT(*) FROM SyncPointHistory"));
    EXPECT_THAT(mLog->All(), IsEmpty());
}

TEST_F(SyncDatabaseTest, AHistoryWithAnEmptyRevisionIsNotRead)
{
    Associate();
    Write("l1", "r1");
    Write("", "r2");
    std::vector<ImmutableString> local{"kept"};
    std::vector<ImmutableString> remote;
    EXPECT_FALSE(mDb->ReadSyncPointRevisions(local, remote));
    EXPECT_THAT(local, ElementsAre("kept"));
    const auto invalid = mLog->Find("Invalid sync point in history");
    ASSERT_EQ(1u, invalid.size());
    EXPECT_EQ("", invalid.front().Value("localRevision"));
    EXPECT_EQ("r2", invalid.front().Value("remoteRevision"));
}

TEST_F(SyncDatabaseTest, SyncPointsMoveToAnotherAddressOnlyWhereTheAssociationIs)
{
    Associate();
    Write("l1", "r1");
    const auto db = Connection();
    EXPECT_FALSE(Lyra2SyncDb::RewriteServerOfSyncPoints(*db, "https://new.example"));
    EXPECT_EQ(1u, mLog->Count("Cannot rewrite server of sync points in db"));
    Associate("https://new.example", "remote");
    ASSERT_TRUE(mDb->InvalidateAssociationForSync(Association(kServer, "remote")));
    EXPECT_EQ("none", LatestLocalRevision());
    EXPECT_TRUE(Lyra2SyncDb::RewriteServerOfSyncPoints(*db, "https://new.example"));
    EXPECT_EQ("l1", LatestLocalRevision());
}

TEST_F(SyncDatabaseTest, TheMarksOfTheExchangeNeverGoBack)
{
    struct Mark
    {
        bool (SyncDb::*mSet)(const SyncChangeCount&);
        bool (SyncDb::*mReset)();
        bool (SyncDb::*mRead)(SyncChangeCount&);
        const char* mKey;
        const char* mMessage;
    };
    const Mark marks[] = {{&SyncDb::SetMediaLocatorSyncChangeCount, &SyncDb::ResetMediaLocatorSyncChangeCount,
                           &SyncDb::ReadMediaLocatorSyncChangeCount, "MediaLocatorSyncChangeCount",
                           "Attempting to update media locator change count to an older change count"},
                          {&SyncDb::SetUserEnclosureSyncChangeCount, &SyncDb::ResetUserEnclosureSyncChangeCount,
                           &SyncDb::ReadUserEnclosureSyncChangeCount, "UserEnclosureSyncChangeCount",
                           "Attempting to update user enclosure change count to an older change count"}};
    for (const Mark& mark : marks) {
        const auto set = [&](std::int64_t inCount) {
            SyncChangeCount count;
            count.mCount = inCount;
            return ((*mDb).*mark.mSet)(count);
        };
        const auto stored = [&] {
            SyncChangeCount count;
            EXPECT_TRUE(((*mDb).*mark.mRead)(count));
            EXPECT_EQ(SyncChangeCount::kNoCommitID, count.mCommitID);
            return count.mCount;
        };
        EXPECT_EQ(kNoChangeCount, stored());
        EXPECT_TRUE(set(0));
        EXPECT_TRUE(set(7));
        EXPECT_EQ(7, stored());
        EXPECT_EQ("7",
                  QueryOne(*Connection(), "SELECT Value FROM KeyValue WHERE Key='" + std::string(mark.mKey) + "'"));
        EXPECT_THAT(mLog->All(), IsEmpty());
        for (const std::int64_t older : {std::int64_t{7}, std::int64_t{6}, kNoChangeCount}) {
            EXPECT_TRUE(set(older));
            EXPECT_EQ(7, stored());
            const auto warnings = mLog->Find(mark.mMessage);
            ASSERT_EQ(1u, warnings.size());
            EXPECT_EQ(noxcore::logging::Level::Warning, warnings.front().mLevel);
            EXPECT_EQ(std::to_string(older), warnings.front().Value("inChangeCount"));
            EXPECT_EQ("7", warnings.front().Value("syncChangeCount"));
            EXPECT_EQ("local", warnings.front().Value("localSessionID"));
            mLog->Clear();
        }
        EXPECT_TRUE(((*mDb).*mark.mReset)());
        EXPECT_EQ(kNoChangeCount, stored());
        EXPECT_TRUE(set(3));
        EXPECT_EQ(3, stored());
    }
}

TEST(SyncChangeCount, IsComparedHalfByHalf)
{
    SyncChangeCount none;
    EXPECT_TRUE(none.IsNone());
    EXPECT_EQ("-1", none.Text());
    SyncChangeCount commit;
    commit.mCommitID = "1000000000000000000000000000000000000000";
    EXPECT_FALSE(commit.IsNone());
    EXPECT_TRUE(none.IsWithin(commit));
    EXPECT_FALSE(commit.IsWithin(none));
    EXPECT_TRUE(commit.IsWithin(commit));
    SyncChangeCount count;
    count.mCount = 5;
    EXPECT_FALSE(count.IsWithin(commit));
    EXPECT_FALSE(commit.IsWithin(count));
    EXPECT_EQ("-1 @1000000000000000000000000000000000000000", commit.Text());
}

TEST_F(SyncDatabaseTest, ADeletedDateIsThereUntilItIsRemoved)
{
    std::string date;
    EXPECT_TRUE(mDb->RemoveDeletedDate());
    ASSERT_TRUE(mDb->WriteDeletedDate("2026-05-01T00:00:00Z"));
    mDb->ReleaseDb();
    ASSERT_TRUE(mDb->ReadDeletedDate(date));
    EXPECT_EQ("2026-05-01T00:00:00Z", date);
    ASSERT_TRUE(mDb->RemoveDeletedDate());
    EXPECT_FALSE(mDb->ReadDeletedDate(date));
}

TEST_F(SyncDatabaseTest, KeysAreWrittenUnderTheirNames)
{
    ASSERT_TRUE(mDb->SetUserEnclosureSyncEtag("etag"));
    ASSERT_TRUE(mDb->WriteUserID("u", "c"));
    ASSERT_TRUE(mDb->WriteDeletedDate("d"));
    ASSERT_TRUE(mDb->WriteLocalOnlyMode());
    const auto db = Connection();
    EXPECT_THAT(Query(*db, "SELECT Key || '=' || Value FROM KeyValue"),
                UnorderedElementsAre("UserEnclosureSyncEtag=etag", "UserID=u", "CorvaneID=c", "Deleted=d",
                                     "Synchronization=localOnly"));
    ASSERT_TRUE(mDb->WriteSynchronizedMode());
    EXPECT_EQ("synchronized", QueryOne(*db, "SELECT Value FROM KeyValue WHERE Key='Synchronization'"));
}

}  // namespace
}  // namespace VantryLocalHub::GitBox
