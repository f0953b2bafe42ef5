#include <atomic>
#include <string>
#include <vector>

#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Sync/HubSync.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/FileSupport.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Sync/EngineStoreFixture.h"

// The engine over the store as it is on disk.

namespace {

using namespace testing_support;
using namespace VYCL::LocalHub;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

constexpr int kCannotOpen = 14;  // SQLITE_CANTOPEN
constexpr int kCannotRead = 10;  // SQLITE_IOERR

class EngineOverStoreTest : public EngineStoreFixture
{
protected:
    ~EngineOverStoreTest() override
    {
        Withdraw();
        mStore.reset();
    }

    ImmutableString Create(bool inLocalOnly)
    {
        dto::Session session;
        EXPECT_EQ(201, mEngine->CreateSession({dto::RawJSON(R"({"name":"Feature"})"), {}}, "ann@example.com",
                                              inLocalOnly, session));
        EXPECT_EQ(inLocalOnly, session.mLocalOnly);
        return session.mIdentifier;
    }
    bool Associate(const ImmutableString& inID)
    {
        return mStore->WriteAssociationForSync(
            inID, {"https://hub.example", "rp-1", "rs-1", RFC3339DateTime::Now(), "ann", ""});
    }
    ImmutableString State(const ImmutableString& inID)
    {
        SyncStatus status;
        EXPECT_EQ(200, mEngine->GetSyncStatusForSession(inID, status));
        return status.mState;
    }
    std::vector<dto::Session> List()
    {
        std::vector<dto::Session> listed;
        mEngine->GetProductionList([&](int inStatus, const std::vector<dto::Session>& inSessions) {
            EXPECT_EQ(200, inStatus);
            listed = inSessions;
        });
        return listed;
    }
    void FailToOpen(const char* inName)
    {
        mVfs.SetFault(
            {.mOperation = FileOperation::Open, .mCode = kCannotOpen, .mFromThenOn = true, .mOnlyEndingIn = inName});
    }
    void CloseAll() { mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks() + 1); }
    unsigned OpensOf(const std::function<void()>& inRead)
    {
        mVfs.ResetCounts();
        inRead();
        return mVfs.Count(FileOperation::Open);
    }
    static std::vector<std::string> FilesOf(const ImmutableString& inID, SessionKind inKind, std::string_view inPart)
    {
        std::vector<noxcore::filesupport::DirectoryEntry> entries;
        Files().ListDirectory(GitBox::Folder::SessionFolder(inID, inKind), entries);
        std::vector<std::string> names;
        for (const auto& entry : entries) {
            if (entry.mName.find(inPart) != std::string::npos) names.push_back(entry.mName);
        }
        return names;
    }
    /// Leaves a file that is no database, with the store closed and opened again.
    void Damage(const ImmutableString& inID, SessionKind inKind, const char* inName)
    {
        Withdraw();
        mStore.reset();
        EXPECT_TRUE(Files().WriteFileDurably(Join(GitBox::Folder::SessionFolder(inID, inKind), inName),
                                             std::string(8192, 'x')));
        ReopenStore();
        Publish();
    }

    FaultVfs mVfs{mContext};
};

TEST_F(EngineOverStoreTest, ASessionMadeLocalOnlyIsStillSoAfterARestart)
{
    const auto local = Create(true);
    const auto shared = Create(false);
    EXPECT_EQ(SyncState_LocalOnly(), State(local));
    Restart();
    EXPECT_TRUE(GetSession(local).mLocalOnly);
    EXPECT_EQ(SyncState_LocalOnly(), State(local));
    EXPECT_EQ("ann@example.com", mEngine->GetUserID(local).Text());
    EXPECT_FALSE(GetSession(shared).mLocalOnly);
    EXPECT_EQ(SyncState_NotAssociated(), State(shared));
}

TEST_F(EngineOverStoreTest, ASessionThatIsLinkedIsLocalOnlyNoMore)
{
    const auto id = Create(true);
    ASSERT_TRUE(GetSession(id).mLocalOnly);
    ASSERT_TRUE(Associate(id));
    EXPECT_FALSE(GetSession(id).mLocalOnly);
}

TEST_F(EngineOverStoreTest, AFailedReadOfTheSyncDatabaseHoldsOnlyUntilTheNextRead)
{
    const auto local = Create(true);
    const auto shared = Create(false);
    ASSERT_TRUE(Associate(shared));
    Restart();
    FailToOpen("sync.sqlite3");
    for (const auto& session : List())
        EXPECT_TRUE(session.mLocalOnly) << "nothing leaves that may have to stay";
    EXPECT_EQ(SyncState_LocalOnly(), State(local));
    EXPECT_EQ(SyncState_LocalOnly(), State(shared));
    EXPECT_FALSE(mEngine->IsAssociated(shared));
    mVfs.ClearFaults();
    EXPECT_TRUE(GetSession(local).mLocalOnly);
    EXPECT_FALSE(GetSession(shared).mLocalOnly);
    EXPECT_EQ(SyncState_LocalOnly(), State(local));
    EXPECT_EQ(SyncState_Disconnected(), State(shared));
    EXPECT_TRUE(mEngine->IsAssociated(shared));
}

TEST_F(EngineOverStoreTest, ASessionThatCannotBeOpenedIsLeftOutOfTheListAndComesBack)
{
    const auto id = Create(true);
    Restart();
    FailToOpen("odb.sqlite3");
    EXPECT_TRUE(List().empty());
    dto::Session session;
    EXPECT_EQ(500, mStore->GetSession(id, session));
    EXPECT_EQ(500, mStore->GetProduction(id, "HEAD", session));
    mVfs.ClearFaults();
    ASSERT_EQ(1U, List().size());
    EXPECT_TRUE(List().front().mLocalOnly);
}

TEST_F(EngineOverStoreTest, ADamagedSyncDatabaseIsPutAsideAndItsSessionStaysHere)
{
    const auto id = Create(false);
    ASSERT_TRUE(Associate(id));
    Damage(id, SessionKind::Synchronized, "sync.sqlite3");
    EXPECT_TRUE(GetSession(id).mLocalOnly);
    EXPECT_EQ(SyncState_LocalOnly(), State(id));
    EXPECT_EQ(1U, FilesOf(id, SessionKind::Synchronized, "sync.sqlite3.damaged-").size());
    EXPECT_EQ(1U, mLog->Count("Put a damaged database aside"));
    Restart();
    EXPECT_EQ(SyncState_LocalOnly(), State(id));
    EXPECT_EQ(1U, mLog->Count("Put a damaged database aside"));
    EXPECT_TRUE(Associate(id));
    EXPECT_FALSE(GetSession(id).mLocalOnly);
}

TEST_F(EngineOverStoreTest, ADamagedSessionDatabaseIsPutAsideAndItsSuccessorCountsOnBeyondIt)
{
    const auto id = Create(false);
    ASSERT_TRUE(Associate(id));
    SyncPoint point;
    point.mLocalRevision = "l1";
    point.mRemoteRevision = "r1";
    std::int64_t before = 0;
    ASSERT_TRUE(mStore->WriteSyncPoint(id, point, before));
    Damage(id, SessionKind::Synchronized, "session.sqlite3");
    GetSession(id);
    EXPECT_EQ(1U, FilesOf(id, SessionKind::Synchronized, "session.sqlite3.damaged-").size());
    point.mLocalRevision = "l2";
    std::int64_t after = 0;
    ASSERT_TRUE(mStore->WriteSyncPoint(id, point, after));
    EXPECT_LT(before, after);
    ASSERT_TRUE(mStore->ReadLatestSyncPoint(id, point));
    EXPECT_EQ("l2", point.mLocalRevision.Text());
}

TEST_F(EngineOverStoreTest, AFileThatCannotBeReadNowIsNotTakenForADamagedOne)
{
    const auto id = Create(true);
    Restart();
    for (const int code : {kCannotOpen, kCannotRead}) {
        mVfs.SetFault(
            {.mOperation = FileOperation::Open, .mCode = code, .mFromThenOn = true, .mOnlyEndingIn = "sync.sqlite3"});
        EXPECT_TRUE(GetSession(id).mLocalOnly);
        mVfs.ClearFaults();
    }
    EXPECT_TRUE(FilesOf(id, SessionKind::LocalOnly, "damaged").empty());
    EXPECT_EQ(0U, mLog->Count("Put a damaged database aside"));
}

TEST_F(EngineOverStoreTest, TheListClosesWhatItOpenedAndIsAnsweredFromMemoryAfterwards)
{
    const auto idle = Create(true);
    const auto busy = Create(false);
    Restart();
    GetAssets(busy);
    EXPECT_LT(0U, OpensOf([&] { EXPECT_EQ(2U, List().size()); }));
    EXPECT_FALSE(FilesOf(busy, SessionKind::Synchronized, "-wal").empty());
    EXPECT_TRUE(FilesOf(idle, SessionKind::LocalOnly, "-wal").empty()) << "closed again";
    EXPECT_EQ(0U, OpensOf([&] { EXPECT_EQ(2U, mStore->GetSessions().size()); }));
    EXPECT_EQ(0U, OpensOf([&] { GetAssets(busy); })) << "was in use before the list";
    EXPECT_LT(0U, OpensOf([&] { GetAssets(idle); }));
}

TEST_F(EngineOverStoreTest, MakingTheLinksOfAllSessionsLeavesNoneOpen)
{
    const auto id = Create(false);
    Restart();
    EXPECT_TRUE(mEngine->FindAssociatedLocalSession("rp-1").empty());
    EXPECT_EQ(1U, mEngine->GetSyncStatus().size());
    EXPECT_TRUE(FilesOf(id, SessionKind::Synchronized, "-wal").empty());
}

TEST_F(EngineOverStoreTest, TheRecordFollowsACommitThoughItIsAnsweredFromMemory)
{
    const auto id = Create(true);
    const auto first = GetSession(id);
    const auto transaction = OpenTransaction(id);
    Add(transaction, MakeAsset("shots", "bin"));
    dto::Session committed;
    ASSERT_EQ(200, Commit(transaction, &committed));
    EXPECT_NE(first.mRevision, committed.mRevision);
    CloseAll();
    EXPECT_EQ(0U, OpensOf([&] {
                  EXPECT_EQ(committed.mRevision, GetSession(id).mRevision);
                  EXPECT_TRUE(GetSession(id).mHasBin);
              }));
}

TEST_F(EngineOverStoreTest, ADeletedSessionLeavesNoLink)
{
    const auto id = Create(true);
    State(id);
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("p-" + id.Text(), true));
    EXPECT_TRUE(mEngine->GetSyncStatus().empty());
    SyncStatus status;
    EXPECT_EQ(404, mEngine->GetSyncStatusForSession(id, status));
}

/// One thread's share of what clients, timers and the engine do to a store at the same time.
void UseAtTheSameTime(HubSync& inEngine, ProjectBox& inStore, int inTurn, std::atomic<int>& outFailures)
{
    const auto expect = [&](bool inHolds) { outFailures += inHolds ? 0 : 1; };
    dto::Session session;
    expect(inEngine.CreateSession({dto::RawJSON("{}"), {}}, "ann@example.com", inTurn % 2 == 0, session) == 201);
    inEngine.GetProductionList([&](int inStatus, const auto&) { expect(inStatus == 200); });
    dto::TransactionResource transaction;
    expect(inStore.OpenTransaction(session.mIdentifier, {}, VYCL::GetTransactionType_Edit(), {}, transaction) == 201);
    CommitOutcome outcome;
    expect(inEngine.CommitTransaction(transaction.mTransactionID, {"a commit"}, {}, outcome) == 200);
    inStore.ReleaseUnusedDB(noxcore::HubContext::Current()->GetClock().MonotonicTicks() + 1);
    inEngine.ReleaseUnusedDB(noxcore::HubContext::Current()->GetClock().MonotonicTicks() + 1);
    for (const auto& other : inStore.GetSessions()) {
        SyncStatus status;
        const int result = inEngine.GetSyncStatusForSession(other.mIdentifier, status);
        expect(result == 200 || result == 404);  // somebody deletes sessions meanwhile
    }
    if (inTurn % 3 == 0) expect(inEngine.DisconnectOrDeleteSession(session.mIdentifier, true) == 204);
    inEngine.GetSyncStatus();
}

TEST(EngineOverStoreThreads, CommitsListsDeletionsAndReleasesKeepTheLockOrderAndLoseNothing)
{
    constexpr int kTurns = 12;
    const TempFolder home;
    const auto log = std::make_shared<LogCapture>();
    noxcore::HubContext::Parts parts;
    parts.mLog = log;
    const auto context = noxcore::HubContext::Create(std::move(parts));
    const noxcore::HubContext::Scope scope(context);
    context->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(home.Path()));
    const auto store = std::make_shared<GitBox::GitBox>(true);
    ProjectBox::SetInstance(store);
    const auto engine = std::make_shared<HubSync>();
    const unsigned violations = noxcore::threads::LockOrderViolations();

    std::atomic<int> failures{0};
    const auto executor = noxcore::threads::CreateIOBoundExecutor("clients", 3);
    for (int turn = 0; turn < kTurns; ++turn) {
        ASSERT_TRUE(executor->Queue([&, turn] { UseAtTheSameTime(*engine, *store, turn, failures); }));
    }
    executor->ShutDownAndWait();

    EXPECT_EQ(0, failures);
    EXPECT_EQ(violations, noxcore::threads::LockOrderViolations());
    const auto sessions = store->GetSessions();
    EXPECT_EQ(static_cast<std::size_t>(kTurns - kTurns / 3), sessions.size());
    for (const auto& session : sessions) {
        std::size_t parents = 0;
        EXPECT_EQ(200, store->GetHeadParentCount(session.mIdentifier, parents));
        EXPECT_EQ(1U, parents);
    }
    for (const auto& status : engine->GetSyncStatus())
        EXPECT_TRUE(store->SessionExists(status.mLocalSessionID)) << "a link outlived its session";
    engine->Terminate();
    ProjectBox::SetInstance(nullptr);
    // Messages that wait keep their context, which keeps the loop where they wait.
    const auto loop = noxcore::threads::GetRegisteredMainThread();
    loop->Post([&loop] { loop->Quit(); });
    loop->RunLoop();
}

}  // namespace
