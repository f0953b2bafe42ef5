// How the sync database opens, fails, and lives with its session.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

#include "Inc/Model/GitBoxSyncDb.h"
#include "Platform/noxcore/Executor.h"
#include "Tests/Model/SyncDatabaseTest.h"

namespace VantryLocalHub::GitBox {
namespace {

using testing::IsEmpty;
using testing_support::FileOperation;

TEST_F(SyncDatabaseTest, TheCounterIsTakenBeforeTheWriteAndOutsideTheLock)
{
    // TearDown fails where the counter's mutex was taken under the database's.
    Associate();
    Write("l1", "r1");
    mSandbox->mFails = true;
    std::int64_t count = 0;
    EXPECT_FALSE(mDb->WriteSyncPoint(Point("l2", "r2"), count));
    EXPECT_FALSE(mDb->WriteAssociationForSync(Association("https://b.example", "2")));
    EXPECT_EQ("1", QueryOne(*Connection(), "SELECT COUNT(*) FROM SyncPointHistory"));
    EXPECT_EQ("1", QueryOne(*Connection(), "SELECT COUNT(*) FROM RemoteAssociations"));
}

TEST_F(SyncDatabaseTest, ASingleFileProjectHasNoCounterToTake)
{
    mSandbox->mIsRope = true;
    mSandbox->mFails = true;
    Associate();
    std::int64_t count = -5;
    EXPECT_TRUE(mDb->WriteSyncPoint(Point("l1", "r1"), count));
    EXPECT_EQ(0, count);
}

TEST_F(SyncDatabaseTest, NothingWorksWithoutItsSession)
{
    SyncDb lonely;
    {
        const auto gone = std::make_shared<FakeSandbox>(mFolder.Path());
        lonely.SetSandbox(gone);
        EXPECT_EQ(gone, lonely.GetSandbox());
        EXPECT_TRUE(lonely.WriteSynchronizedMode());
    }
    lonely.ReleaseDb();
    EXPECT_EQ(nullptr, lonely.GetSandbox());
    EXPECT_FALSE(lonely.WriteSynchronizedMode());
    EXPECT_EQ(1u, mLog->Count("Failed to retain sync database"));
    EXPECT_FALSE(lonely.WriteAssociationForSync(Association(kServer, "remote")));
    EXPECT_EQ(1u, mLog->Count("Sync database has no sandbox"));
}

TEST_F(SyncDatabaseTest, TheConnectionLivesAsLongAsSomebodyHoldsIt)
{
    auto held = Connection();
    EXPECT_EQ(held, Connection());
    mDb->ReleaseDb();
    mDb->ReleaseDb();
    EXPECT_EQ(held, Connection()) << "taken up again from its other user";
    mDb->ReleaseDb();
    EXPECT_EQ("ok", QueryOne(*held, "PRAGMA integrity_check"));
    mVfs.ResetCounts();
    held.reset();
    EXPECT_EQ("sync.sqlite3 ", Files("sync.sqlite3")) << "closed: no log is left";
    ASSERT_TRUE(mDb->WriteSynchronizedMode());
    EXPECT_GT(mVfs.Count(FileOperation::Open), 0u) << "opened anew";
}

TEST_F(SyncDatabaseTest, ADatabaseThatCannotBeOpenedSaysWhy)
{
    std::ofstream(mFolder / "sync.sqlite3") << std::string(8192, 'x');
    mVfs.SetFault({.mOperation = FileOperation::Open, .mNth = 2, .mCode = 14, .mOnlyEndingIn = "sync.sqlite3"});
    EXPECT_FALSE(mDb->WriteSynchronizedMode());
    const auto damaged = mLog->Find("Can't open session sync db");
    ASSERT_EQ(2u, damaged.size()) << "the file that lay there, and the one in its place";
    EXPECT_EQ(mFolder / "sync.sqlite3", damaged.front().Value("path"));
    EXPECT_EQ("26", damaged.front().Value("main"));
    EXPECT_EQ("14", damaged.back().Value("main"));
    const auto retain = mLog->Find("Failed to retain sync database");
    ASSERT_EQ(1u, retain.size());
    EXPECT_EQ(mFolder.Path(), retain.front().Value("path"));
    EXPECT_EQ("!result", retain.front().Value("expression"));

    const auto elsewhere = std::make_shared<FakeSandbox>(mFolder / "absent");
    mDb->SetSandbox(elsewhere);
    EXPECT_TRUE(mDb->IsLocalOnly()) << "what may have to stay is not sent";
    bool localOnly = false;
    LinkState state;
    EXPECT_FALSE(mDb->ReadLocalOnly(localOnly));
    EXPECT_FALSE(mDb->ReadLinkState(state));
    EXPECT_FALSE(localOnly);
    EXPECT_EQ(LinkState(), state);
    EXPECT_EQ(3u, mLog->Count("Can't access session folder"));
    EXPECT_EQ(4u, mLog->Count("Failed to retain sync database"));
    for (const auto& record : mLog->All())
        EXPECT_EQ("HubSync", record.mCategory);
}

TEST_F(SyncDatabaseTest, ADamagedDatabaseIsKeptUnderAnotherNameAndItsSuccessorIsLocalOnly)
{
    const std::string nonsense(8192, 'x');
    std::ofstream(mFolder / "sync.sqlite3") << nonsense;
    EXPECT_TRUE(mDb->IsLocalOnly());
    const auto aside = mLog->Find("Put a damaged database aside");
    ASSERT_EQ(1u, aside.size());
    std::string kept;
    EXPECT_TRUE(noxcore::filesupport::Files().ReadFile(std::string(aside.front().Value("as")), kept));
    EXPECT_EQ(nonsense, kept);
    Associate();
    EXPECT_FALSE(mDb->IsLocalOnly());
}

TEST_F(SyncDatabaseTest, WhatALinkBeginsWithIsReadAsOne)
{
    LinkState state;
    ASSERT_TRUE(mDb->ReadLinkState(state));
    EXPECT_EQ(LinkState(), state);
    ASSERT_TRUE(mDb->WriteUserID("u", "c"));
    ASSERT_TRUE(mDb->WriteLocalOnlyMode());
    ASSERT_TRUE(mDb->ReadLinkState(state));
    EXPECT_FALSE(state.mAssociated);
    EXPECT_TRUE(state.mLocalOnly);
    EXPECT_EQ("u", state.mAssociation.mUserID);
    Associate();
    Write("l1", "r1");
    ASSERT_TRUE(mDb->ReadLinkState(state));
    EXPECT_TRUE(state.mAssociated);
    EXPECT_FALSE(state.mLocalOnly);
    EXPECT_EQ((RemoteAssociation{kServer, "p-remote", "remote", "user", "corvane", 1}), state.mAssociation);
    EXPECT_EQ("l1", state.mSyncPoint.mLocalRevision);
    EXPECT_EQ("remote", state.mSyncPoint.mRemoteSessionID);
    EXPECT_THAT(mLog->All(), IsEmpty());
    for (const char* table : {"SyncPointHistory", "RemoteAssociations", "KeyValue"}) {
        ASSERT_EQ(0, Connection()->ExecuteCmd("DROP TABLE " + std::string(table)));
        EXPECT_FALSE(mDb->ReadLinkState(state)) << table;
        EXPECT_EQ("l1", state.mSyncPoint.mLocalRevision);
    }
}

TEST_F(SyncDatabaseTest, EachFailedCommandIsLogged)
{
    const auto db = Connection();
    Associate();
    ASSERT_EQ(0, db->ExecuteCmd("DROP TABLE SyncPointHistory"));
    SyncPoint point;
    std::vector<ImmutableString> revisions;
    std::int64_t count = 0;
    EXPECT_FALSE(mDb->ReadLatestSyncPoint(point));
    EXPECT_FALSE(mDb->ReadSyncPointForLocalRevision("l", point));
    EXPECT_FALSE(mDb->ReadSyncPointForRemoteRevision("r", point));
    EXPECT_FALSE(mDb->ReadSyncPointRevisions(revisions, revisions));
    const auto reads = mLog->Find("Cannot read from sync point table");
    ASSERT_EQ(4u, reads.size());
    EXPECT_EQ("SELECT LocalCommitID, RemoteCommitID FROM SyncPointHistory ORDER BY SyncPointHistory.ChangeCount",
              reads.back().Value("command"));
    EXPECT_EQ("1", reads.back().Value("main"));
    EXPECT_EQ("1", reads.back().Value("extended"));
    EXPECT_FALSE(mDb->WriteSyncPoint(Point("l", "r"), count));
    EXPECT_EQ(1u, mLog->Count("Cannot write session sync point into db"));

    ASSERT_EQ(0, db->ExecuteCmd("DROP TABLE RemoteAssociations"));
    RemoteAssociation association;
    EXPECT_FALSE(mDb->ReadCurrentRemoteAssociation(association));
    EXPECT_EQ(1u, mLog->Count("Cannot read from remote association table"));
    EXPECT_FALSE(mDb->InvalidateAssociationForSync(Association(kServer, "remote")));
    EXPECT_EQ(1u, mLog->Count("Cannot invalidate sync association in db"));

    ASSERT_EQ(0, db->ExecuteCmd("DROP TABLE KeyValue"));
    std::string text;
    EXPECT_FALSE(mDb->ReadDeletedDate(text));
    EXPECT_EQ(1u, mLog->Count("Cannot read key from sync db"));
    EXPECT_FALSE(mDb->WriteUserID("u", "c"));
    EXPECT_EQ(1u, mLog->Count("Cannot write key into sync db"));
    EXPECT_FALSE(mDb->RemoveDeletedDate());
    EXPECT_EQ(1u, mLog->Count("Cannot remove key from sync db"));
}

TEST_F(SyncDatabaseTest, AfterAPowerCutTheHistoryIsAPrefixOfWhatWasWritten)
{
    mVfs.StartRecording(mFolder.Path());
    Associate();
    for (int i = 0; i < 8; ++i)
        Write("l" + std::to_string(i), "r" + std::to_string(i));
    mDb->ReleaseDb();
    const auto recording = mVfs.StopRecording();
    ASSERT_GT(recording.Events().size(), 20u);
    for (std::size_t events = 0; events <= recording.Events().size(); events += 2) {
        testing_support::WriteFolderImage(recording.AfterPowerCut(events, mScheduler->Seed() + events),
                                          mFolder / "after");
        Lyra2SyncDb::DbPtr db;
        ASSERT_TRUE(Lyra2SyncDb::OpenSyncDatabase(mFolder / "after", db));
        ASSERT_EQ("ok", QueryOne(*db, "PRAGMA integrity_check"));
        std::vector<ImmutableString> local;
        std::vector<ImmutableString> remote;
        ASSERT_TRUE(Lyra2SyncDb::ReadSyncPointRevisions(*db, local, remote));
        for (std::size_t i = 0; i < local.size(); ++i)
            ASSERT_EQ("l" + std::to_string(i), local[i].Text());
        RemoteAssociation association;
        const bool associated = Lyra2SyncDb::ReadCurrentRemoteAssociation(*db, association);
        ASSERT_EQ(associated ? "user" : "", association.mUserID.Text()) << "association and user go together";
        ASSERT_TRUE(associated || local.empty());
    }
}

TEST(SyncDatabaseThreads, WritersAndReleasesAtTheSameTimeLoseNothing)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    noxcore::HubContext::Parts parts;
    parts.mLog = log;
    const auto context = noxcore::HubContext::Create(std::move(parts));
    const noxcore::HubContext::Scope scope(context);
    const testing_support::TempFolder folder;
    const auto sandbox = std::make_shared<FakeSandbox>(folder.Path());
    const auto db = std::make_shared<SyncDb>();
    db->SetSandbox(sandbox);
    ASSERT_TRUE(db->WriteAssociationForSync(Association(kServer, "remote")));
    const unsigned violations = noxcore::threads::LockOrderViolations();

    constexpr int kPoints = 60;
    std::atomic<int> written{0};
    const auto executor = noxcore::threads::CreateIOBoundExecutor("writers", 4);
    for (int i = 0; i < kPoints; ++i) {
        ASSERT_TRUE(executor->Queue([&, i] {
            std::int64_t count = 0;
            if (db->WriteSyncPoint(Point("l" + std::to_string(i), "r" + std::to_string(i)), count)) ++written;
            SyncPoint latest;
            db->ReadLatestSyncPoint(latest);
        }));
        if (i % 3 == 0) {
            ASSERT_TRUE(executor->Queue([&] { db->ReleaseDb(); }));
        }
    }
    executor->ShutDownAndWait();

    EXPECT_EQ(kPoints, written);
    EXPECT_EQ(kPoints + 1, sandbox->Count());
    std::vector<ImmutableString> local;
    std::vector<ImmutableString> remote;
    ASSERT_TRUE(db->ReadSyncPointRevisions(local, remote));
    EXPECT_EQ(static_cast<std::size_t>(kPoints), local.size());
    EXPECT_THAT(log->All(), IsEmpty());
    EXPECT_EQ(violations, noxcore::threads::LockOrderViolations());
}

}  // namespace
}  // namespace VantryLocalHub::GitBox
