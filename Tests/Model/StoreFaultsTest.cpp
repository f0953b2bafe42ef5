#include <sqlite3.h>

#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxstorage/KeyValueTable.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/StoreTest.h"

namespace {

using namespace testing_support;
namespace git = noxstorage::git;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

/// A store whose databases can be made to fail.
class StoreFaults : public StoreTest
{
protected:
    ~StoreFaults() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
        mVfs.reset();
    }

    static std::string FolderOf(const dto::Session& inSession)
    {
        return GitBox::Folder::SessionFolder(inSession.mIdentifier, SessionKind::LocalOnly);
    }
    static bool LogIsThere(const dto::Session& inSession)
    {
        return Files().FileExists(Join(FolderOf(inSession), "git/odb.sqlite3-wal"));
    }
    static GitBox::SandboxPtr SandboxOf(const dto::Session& inSession)
    {
        return GitBox::Sandboxes::Instance()->FindSandbox(inSession.mIdentifier);
    }

    void Release()
    {
        mScheduler->Advance(1000);
        mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks());
    }

    /// A commit whose sync fails, and the system lets go of what it could not write: all since the last release.
    void FailASync(const dto::Session& inSession)
    {
        const auto transaction = OpenTransaction(inSession.mIdentifier);
        mVfs->SetFault({FileOperation::Sync, 1, SQLITE_IOERR_FSYNC, false, "odb.sqlite3-wal", 0});
        EXPECT_EQ(500, Commit(transaction));
        EXPECT_EQ(1U, mVfs->FaultsReported());
        mVfs->ClearFaults();
        EXPECT_TRUE(Files().WriteFileDurably(Join(FolderOf(inSession), "git/odb.sqlite3-wal"), ""));
    }

    void FailReads()
    {
        mVfs->SetFault({FileOperation::Read, 1, SQLITE_IOERR_READ, true, "odb.sqlite3", 0});
        mVfs->SetFault({FileOperation::Read, 1, SQLITE_IOERR_READ, true, "odb.sqlite3-wal", 0});
    }

    std::unique_ptr<FaultVfs> mVfs = std::make_unique<FaultVfs>(mContext);
    const ImmutableString mID = "11111111-1111-4111-8111-111111111111";
    const ImmutableString mOtherID = "22222222-2222-4222-8222-222222222222";
};

TEST_F(StoreFaults, HandlesThatWereReleasedAreClosedAndOpenAgainWithTheNextRead)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("clip"), mID);
    ASSERT_EQ(200, Commit(transaction));
    EXPECT_TRUE(LogIsThere(session));
    Release();
    EXPECT_FALSE(LogIsThere(session));  // moved into the file when that was closed
    mVfs->ResetCounts();
    EXPECT_EQ(1U, GetAssets(session.mIdentifier).size());
    EXPECT_NE(0U, mVfs->Count(FileOperation::Open));
}

TEST_F(StoreFaults, ContentThatWasAcceptedOutlivesARelease)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("clip", "clip", {{"proxy", "payload"}}), mID);
    Release();
    EXPECT_FALSE(LogIsThere(session));
    ASSERT_EQ(200, Commit(transaction));
    ReopenStore();
    const auto assets = GetAssets(session.mIdentifier);
    ASSERT_EQ(1U, assets.size());
    ConstRecycledMemoryPtr payload;
    ASSERT_EQ(200,
              mStore->GetAssetEnclosure(session.mIdentifier, {}, mID, assets[0].mEnclosures[0].mEnclosureID, payload));
    EXPECT_EQ("payload", payload->View());
}

TEST_F(StoreFaults, ContentThatCannotBeWrittenKeepsItsHandles)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("clip"), mID);
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "odb.sqlite3-wal", 0});
    Release();
    EXPECT_TRUE(LogIsThere(session));
    mVfs->ClearFaults();
    EXPECT_EQ(200, Commit(transaction));
    EXPECT_EQ(1U, GetAssets(session.mIdentifier).size());
}

TEST_F(StoreFaults, HandlesInUseStayWhereTheyAre)
{
    const dto::Session session = CreateSession();
    GitBox::Sandbox::Handles used;
    ASSERT_TRUE(SandboxOf(session)->RetainDB(used));
    Release();
    EXPECT_TRUE(LogIsThere(session));
    mVfs->ResetCounts();
    GitBox::Sandbox::Handles again;
    ASSERT_TRUE(SandboxOf(session)->RetainDB(again));
    EXPECT_EQ(used.mRepo, again.mRepo);
    EXPECT_EQ(used.mDb, again.mDb);
    EXPECT_EQ(0U, mVfs->Count(FileOperation::Open));
}

TEST_F(StoreFaults, ACommitWhoseContentWentWithAFailedSyncIsRefused)
{
    const dto::Session session = CreateSession();
    Release();
    const auto withAsset = OpenTransaction(session.mIdentifier);
    const auto withEnclosure = OpenTransaction(session.mIdentifier);
    const AssetContent content = MakeAsset("clip", "clip", {{"proxy", "payload"}});
    Add(withAsset, content, mID);
    EnclosureContent enclosure;
    enclosure.mEnclosure.mEnclosureID = mOtherID;
    enclosure.mPayload = Bytes("poster");
    dto::Enclosure added;
    ASSERT_EQ(200, mStore->AddOrUpdateProductionEnclosure(withEnclosure, enclosure, added));
    FailASync(session);
    EXPECT_EQ(200, mStore->FlushTransactionContent(withAsset));  // nothing waits any more
    EXPECT_EQ(500, Commit(withAsset));
    EXPECT_EQ(500, Commit(withEnclosure));
    EXPECT_EQ(2U, mLog->Count("Content of a commit is not in the store"));
    EXPECT_TRUE(GetAssets(session.mIdentifier).empty());
    const auto again = OpenTransaction(session.mIdentifier);
    Add(again, content, mID);
    ASSERT_EQ(200, mStore->AddOrUpdateProductionEnclosure(again, enclosure, added));
    ASSERT_EQ(200, Commit(again));
    ReopenStore();
    EXPECT_EQ(1U, GetAssets(session.mIdentifier).size());
}

TEST_F(StoreFaults, ACommitOfAnIdThatTheStoreDoesNotHaveOrHasAsSomethingElseIsRefused)
{
    const dto::Session session = CreateSession();
    const ImmutableString blob = mStore->ComputeContentHash(session.mIdentifier, Bytes("payload"));
    const ImmutableString none(std::string(40, '1'));
    for (const ImmutableString& wrong : {blob, none, ImmutableString("no id")}) {
        TransactionChanges changes;
        changes.mAssets.emplace_back();
        changes.mAssets.back().mAssetID = mID;
        changes.mAssets.back().mAssetContentID = wrong;
        dto::Session committed;
        ImmutableString previous;
        EXPECT_EQ(500, SandboxOf(session)->CommitTransaction(false, "wrong", {}, changes, committed, previous));
    }
    EXPECT_EQ(session.mRevision, GetSession(session.mIdentifier).mRevision);
}

TEST_F(StoreFaults, AnAssetWhosePartsWentWithAFailedSyncIsRefusedToo)
{
    const dto::Session session = CreateSession();
    Release();
    dto::Asset asset;
    asset.mAssetID = mID;
    asset.mProperties = dto::RawJSON(R"({"name":"clip"})");
    dto::Enclosure& enclosure = asset.mEnclosures.emplace_back();
    enclosure.mEnclosureID = mOtherID;
    enclosure.mName = "proxy";
    enclosure.mEnclosureContentID = mStore->ComputeContentHash(session.mIdentifier, Bytes("payload"));
    FailASync(session);
    TransactionChanges changes;
    const auto sandbox = SandboxOf(session);
    ASSERT_EQ(200, sandbox->ComputeContentHashAndEmbedInAsset(asset));  // the tree is new; the payload is gone
    changes.mAssets.push_back({asset.mAssetID, asset.mAssetContentID, {}, {}, false});
    dto::Session committed;
    ImmutableString previous;
    EXPECT_EQ(500, sandbox->CommitTransaction(false, "broken", {}, changes, committed, previous));
    EXPECT_EQ(enclosure.mEnclosureContentID, mStore->ComputeContentHash(session.mIdentifier, Bytes("payload")));
    EXPECT_EQ(200, sandbox->CommitTransaction(false, "whole", {}, changes, committed, previous));
    EXPECT_EQ(session.mRevision, previous);
    ConstRecycledMemoryPtr payload;
    EXPECT_EQ(200, mStore->GetAssetEnclosure(session.mIdentifier, {}, mID, mOtherID, payload));
}

TEST_F(StoreFaults, ACreationThatFailsLeavesNoFolderBehind)
{
    const auto folders = [] {
        std::vector<noxcore::filesupport::DirectoryEntry> entries;
        Files().ListDirectory(GitBox::Folder::LocalSessions(), entries);
        return entries.size();
    };
    const std::size_t before = folders();
    for (const char* const file : {"session.sqlite3", "session.sqlite3-wal", "odb.sqlite3", "odb.sqlite3-wal"}) {
        mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, file});
        dto::Session session;
        EXPECT_EQ(500, mStore->CreateSession({}, {dto::RawJSON("{}"), {}}, SessionKind::LocalOnly, session)) << file;
        mVfs->ClearFaults();
        EXPECT_EQ(before, folders()) << file;
    }
    CreateSession();
    EXPECT_EQ(before + 1, folders());
}

TEST_F(StoreFaults, AfterAFailedSyncTheSessionOpensAnewOnceTheOldHandleIsGone)
{
    const dto::Session session = CreateSession();
    Release();
    GitBox::Sandbox::Handles used;
    ASSERT_TRUE(SandboxOf(session)->RetainDB(used));
    FailASync(session);
    EXPECT_TRUE(used.mRepo->NeedsReopen());
    EXPECT_EQ(500, Commit(OpenTransaction(session.mIdentifier)));
    EXPECT_NE(nullptr, git::GetCommitForBranch(used.mRepo, GitBox::kBranch_Session));
    used = {};
    dto::Session committed;
    EXPECT_EQ(200, Commit(OpenTransaction(session.mIdentifier), &committed));
    ReopenStore();
    EXPECT_EQ(committed.mRevision, GetSession(session.mIdentifier).mRevision);
    std::vector<std::string> faults;
    ASSERT_TRUE(SandboxOf(session)->RetainDB(used));
    EXPECT_TRUE(git::SQLite3OdbBackend::Scrub(used.mRepo, faults)) << faults.front();
}

TEST_F(StoreFaults, WhatCannotBeReadIsAFailureAndWhatIsNotThereIsAbsent)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    AssetContent content = MakeAsset("clip", "clip", {{"proxy", std::string(100, 'p')}});
    content.mEnclosures[0].mEnclosure.mEnclosureID = mOtherID;
    const dto::Asset added = Add(transaction, content, mID);
    EnclosureContent enclosure;
    enclosure.mEnclosure.mEnclosureID = mID;
    enclosure.mPayload = Bytes("poster");
    dto::Enclosure production;
    ASSERT_EQ(200, mStore->AddOrUpdateProductionEnclosure(transaction, enclosure, production));
    dto::Session committed;
    ASSERT_EQ(200, Commit(transaction, &committed));

    const ImmutableString id = session.mIdentifier;
    const ImmutableString none(std::string(40, '0'));
    dto::Asset asset;
    ConstRecycledMemoryPtr payload;
    dto::Session record;
    StoredVersion version;
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    AssetListPtr assets;
    std::vector<dto::Enclosure> enclosures;
    ImmutableString reverted;
    using Read = std::function<int(bool inThere)>;
    const auto revision = [&](bool inThere) { return inThere ? session.mRevision : none; };
    const auto later = [&](bool inThere) { return inThere ? committed.mRevision : none; };
    const Read reads[] = {
        [&](bool inThere) { return mStore->GetAsset(id, later(inThere), mID, asset); },
        [&](bool inThere) { return mStore->GetAsset(id, {}, inThere ? mID : mOtherID, asset); },
        [&](bool inThere) { return mStore->GetAssets(id, revision(inThere), {}, true, assets); },
        [&](bool inThere) { return mStore->GetAssets(id, inThere ? "production" : "nowhere", {}, true, assets); },
        [&](bool inThere) { return mStore->GetAssetEnclosure(id, later(inThere), mID, mOtherID, payload); },
        [&](bool inThere) { return mStore->GetAssetEnclosure(id, {}, mID, inThere ? mOtherID : mID, payload); },
        [&](bool inThere) {
            const ImmutableString content = inThere ? added.mEnclosures[0].mEnclosureContentID : none;
            return mStore->GetAssetEnclosureByContentHash(id, content, payload);
        },
        [&](bool inThere) { return mStore->GetProductionEnclosures(id, revision(inThere), enclosures); },
        [&](bool inThere) {
            return mStore->GetProductionEnclosure(id, {}, inThere ? mID : mOtherID, production, payload);
        },
        [&](bool inThere) { return mStore->GetProduction(id, revision(inThere), record); },
        [&](bool inThere) { return mStore->GetHistoryRevision(id, revision(inThere), version); },
        [&](bool inThere) { return mStore->RevertSession(id, revision(inThere), reverted); },
    };
    std::size_t number = 0;
    for (const Read& read : reads) {
        SCOPED_TRACE(number++);
        EXPECT_EQ(404, read(false));
        for (const bool there : {true, false}) {
            ReopenStore();  // nothing stands in memory
            GetSession(id);
            FailReads();
            EXPECT_EQ(500, read(there));
            EXPECT_EQ(500, mStore->GetSessionHistory(id, 0, 10, versions, total));
            mVfs->ClearFaults();
        }
        EXPECT_EQ(200, read(true));
    }
}

TEST_F(StoreFaults, ARevisionThatCannotBeReadDoesNotCountAsThere)
{
    const dto::Session session = CreateSession();
    EXPECT_TRUE(mStore->RevisionExists(session.mIdentifier, session.mRevision));
    ReopenStore();
    GetSession(session.mIdentifier);
    FailReads();
    EXPECT_FALSE(mStore->RevisionExists(session.mIdentifier, session.mRevision));
}

TEST_F(StoreFaults, RevisionsThatCannotBeReadAreNotTakenForEqual)
{
    const dto::Session session = CreateSession();
    ReopenStore();
    GetSession(session.mIdentifier);
    const ImmutableString none(std::string(40, '7'));
    const ImmutableString other(std::string(40, '8'));
    FailReads();
    EXPECT_TRUE(SandboxOf(session)->RevisionsDiffer(none, other));
    mVfs->ClearFaults();
    EXPECT_FALSE(SandboxOf(session)->RevisionsDiffer(none, other));
}

TEST_F(StoreFaults, ContentThatCannotBeLookedForIsNotToldAsAbsent)
{
    const dto::Session session = CreateSession();
    ReopenStore();
    GetSession(session.mIdentifier);
    const auto transaction = OpenTransaction(session.mIdentifier);
    EnclosureContent enclosure;
    enclosure.mEnclosure.mEnclosureContentID = ImmutableString(std::string(40, '7'));
    dto::Enclosure stored;
    FailReads();
    EXPECT_EQ(500, mStore->HasContent(session.mIdentifier, enclosure.mEnclosure.mEnclosureContentID));
    EXPECT_EQ(500, mStore->AddOrUpdateProductionEnclosure(transaction, enclosure, stored));
    mVfs->ClearFaults();
    EXPECT_EQ(404, mStore->HasContent(session.mIdentifier, enclosure.mEnclosure.mEnclosureContentID));
    EXPECT_EQ(400, mStore->AddOrUpdateProductionEnclosure(transaction, enclosure, stored));
}

TEST_F(StoreFaults, ASessionWhoseProductionCannotBeReadIsNotOpened)
{
    const dto::Session session = CreateSession();
    ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier)));
    mStore.reset();
    const std::string folder = FolderOf(session);
    bool ended = false;
    for (unsigned nth = 1; !ended && nth < 200; ++nth) {
        mVfs->SetFault({FileOperation::Read, nth, SQLITE_IOERR_READ, false, "odb.sqlite3", 0});
        const unsigned before = mVfs->FaultsReported();
        GitBox::IO::RepoPtr repo;
        dto::Session found;
        const bool read = GitBox::IO::ReadSessionRepo(folder, repo, found);
        mVfs->ClearFaults();
        ended = mVfs->FaultsReported() == before;
        if (read) {
            EXPECT_EQ(session.mProductionRevision, found.mProductionRevision) << nth;
        }
        EXPECT_TRUE(read || !ended);
    }
    EXPECT_TRUE(ended);
}

TEST_F(StoreFaults, AChangeCountThatCannotBeReadIsNotBegunAnew)
{
    const dto::Session session = CreateSession();
    std::int64_t count = 0;
    ASSERT_TRUE(SandboxOf(session)->IncrementChangeCount(count));
    ASSERT_TRUE(SandboxOf(session)->IncrementChangeCount(count));
    EXPECT_EQ(2, count);
    ReopenStore();
    GitBox::Sandbox::Handles handles;
    ASSERT_TRUE(SandboxOf(session)->RetainDB(handles));
    namespace table = noxstorage::sqlite::KeyValueTable;
    table::WriteValue(*handles.mDb, "ChangeCount", "not a number");
    EXPECT_FALSE(SandboxOf(session)->IncrementChangeCount(count));
    EXPECT_EQ(2, count);
    EXPECT_EQ(1U, mLog->Count("Failed to write change count for session"));
    std::string stored;
    table::ReadValue(*handles.mDb, "ChangeCount", stored);
    EXPECT_EQ("not a number", stored);
    table::WriteValueAs(*handles.mDb, "ChangeCount", 2);
    ASSERT_TRUE(SandboxOf(session)->IncrementChangeCount(count));
    EXPECT_EQ(3, count);
}

TEST_F(StoreFaults, TheChangeCountGoesOnBehindEveryCountThatTheSyncDatabaseKnows)
{
    // After a power cut the session's database may be as it was long before the sync database.
    const dto::Session session = CreateSession();
    const ImmutableString id = session.mIdentifier;
    AssociationForSync association;
    association.mServerURL = "https://hub.example";
    association.mSessionID = "remote";
    association.mDate = RFC3339DateTime::Now();
    ASSERT_TRUE(mStore->WriteAssociationForSync(id, association));
    SyncPoint point;
    point.mRemoteRevision = "first";
    point.mLocalRevision = session.mRevision;
    point.mDate = RFC3339DateTime::Now();
    std::int64_t first = 0;
    ASSERT_TRUE(mStore->WriteSyncPoint(id, point, first));
    const auto forget = [&] {
        GitBox::Sandbox::Handles handles;
        ASSERT_TRUE(SandboxOf(session)->RetainDB(handles));
        ASSERT_TRUE(GitBox::Lyra2Db::WriteChangeCount(*handles.mDb, 0));
        handles = {};
        ReopenStore();
    };
    forget();
    point.mRemoteRevision = "second";
    std::int64_t second = 0;
    ASSERT_TRUE(mStore->WriteSyncPoint(id, point, second));
    EXPECT_GT(second, first);
    SyncPoint latest;
    ASSERT_TRUE(mStore->ReadLatestSyncPoint(id, latest));
    EXPECT_EQ("second", latest.mRemoteRevision);

    SyncChangeCount exchanged;
    exchanged.mCount = 100;
    ASSERT_TRUE(mStore->SetUserEnclosureSyncChangeCount(id, exchanged));
    forget();
    std::int64_t count = 0;
    ASSERT_TRUE(SandboxOf(session)->IncrementChangeCount(count));
    EXPECT_EQ(101, count);
}

TEST_F(StoreFaults, AnAssociationAndASyncPointMakeASessionSynchronizedAtOnce)
{
    const dto::Session session = CreateSession();
    const ImmutableString id = session.mIdentifier;
    AssociationForSync association;
    association.mServerURL = "https://hub.example";
    association.mProductionID = "p-remote";
    association.mSessionID = "remote";
    association.mUserID = "user";
    association.mDate = RFC3339DateTime::Now();
    ASSERT_TRUE(mStore->WriteLocalOnlyMode(id));
    EXPECT_TRUE(GetSession(id).mLocalOnly);
    ASSERT_TRUE(mStore->WriteAssociationForSync(id, association));
    EXPECT_FALSE(GetSession(id).mLocalOnly);
    EXPECT_FALSE(mStore->IsLocalOnly(id));

    ASSERT_TRUE(mStore->WriteLocalOnlyMode(id));
    EXPECT_TRUE(GetSession(id).mLocalOnly);
    SyncPoint point;
    point.mRemoteRevision = "remote revision";
    point.mLocalRevision = session.mRevision;
    point.mDate = RFC3339DateTime::Now();
    std::int64_t count = 0;
    ASSERT_TRUE(mStore->WriteSyncPoint(id, point, count));
    EXPECT_FALSE(GetSession(id).mLocalOnly);
}

TEST_F(StoreFaults, ABinCountThatWasNotWrittenWithItsCommitIsCountedAnew)
{
    const dto::Session session = CreateSession();
    EXPECT_FALSE(GetSession(session.mIdentifier).mHasBin);
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("bin", "bin"), mID);
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "session.sqlite3-wal", 0});
    ASSERT_EQ(200, Commit(transaction));
    EXPECT_NE(0U, mVfs->FaultsReported());
    mVfs->ClearFaults();
    EXPECT_TRUE(GetSession(session.mIdentifier).mHasBin);
    ReopenStore();
    EXPECT_TRUE(GetSession(session.mIdentifier).mHasBin);
    // Now it stands beside the commit that it was counted at, and is believed.
    GitBox::Sandbox::Handles handles;
    ASSERT_TRUE(SandboxOf(session)->RetainDB(handles));
    std::int64_t count = 0;
    ASSERT_TRUE(GitBox::Lyra2Db::ReadBinCount(*handles.mDb, GetSession(session.mIdentifier).mRevision, count));
    EXPECT_EQ(1, count);
}

TEST_F(StoreFaults, ABinCountIsBelievedAfterACleanEndAndWrittenOnlyWhenItChangesOrTheSessionIsClosed)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("bin", "bin"), mID);
    ASSERT_EQ(200, Commit(transaction));
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "session.sqlite3-wal", 0});
    dto::Session committed;
    ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier), &committed));
    EXPECT_EQ(0U, mVfs->FaultsReported());
    mVfs->ClearFaults();
    for (const bool release : {true, false}) {
        if (release)
            Release();
        else
            ReopenStore();
        const auto sandbox = SandboxOf(session);
        GitBox::Sandbox::Handles handles;
        ASSERT_TRUE(sandbox->RetainDB(handles));
        std::int64_t count = 0;
        EXPECT_TRUE(GitBox::Lyra2Db::ReadBinCount(*handles.mDb, committed.mRevision, count));
        EXPECT_EQ(1, count);
        handles = {};
        ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier), &committed));
    }
}

TEST_F(StoreFaults, ARevertOfASessionThatWasJustOpenedCountsItsBins)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("bin", "bin"), mID);
    dto::Session committed;
    ASSERT_EQ(200, Commit(transaction, &committed));
    ReopenStore();
    ImmutableString revision;
    ASSERT_EQ(200, mStore->RevertSession(session.mIdentifier, session.mRevision, revision));
    EXPECT_FALSE(GetSession(session.mIdentifier).mHasBin);
    ASSERT_EQ(200, mStore->RevertSession(session.mIdentifier, committed.mRevision, revision));
    ReopenStore();
    EXPECT_TRUE(GetSession(session.mIdentifier).mHasBin);
}

TEST_F(StoreFaults, ALargestRowOutOfRangeIsTheDefaultWhenASessionIsMadeAndWhenItIsUpgraded)
{
    const auto settings = noxcore::debug::DebugDatabase::Instance();
    for (const char* value : {"0", "-1", "524288001", "9223372036854775807"}) {
        settings->SetEntry("VY.Config.LocalHub.ODB.MaxBlobSize", value);
        const dto::Session session = CreateSession();
        GitBox::Sandbox::Handles handles;
        ASSERT_TRUE(SandboxOf(session)->RetainDB(handles));
        EXPECT_EQ(10485760U, git::SQLite3OdbBackend::GetMaxBlobSize(handles.mRepo)) << value;
        ASSERT_EQ(200, mStore->DowngradeRepository(session.mIdentifier));
        EXPECT_EQ(0U, git::SQLite3OdbBackend::GetMaxBlobSize(handles.mRepo));
        ASSERT_EQ(200, mStore->UpgradeRepository(session.mIdentifier));
        EXPECT_EQ(10485760U, git::SQLite3OdbBackend::GetMaxBlobSize(handles.mRepo)) << value;
    }
    settings->SetEntry("VY.Config.LocalHub.ODB.MaxBlobSize", "20000");
    EXPECT_EQ(20000U, GitBox::IO::MaxBlobSize());
}

}  // namespace
