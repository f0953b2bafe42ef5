#include "Inc/Sync/ProductionMesh.h"

#include "Client/VYClient/LocalHub.h"
#include "Inc/Sync/ProductionListMesh.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/FileSupport.h"
#include "Tests/Sync/MeshFixture.h"

namespace VantryLocalHub {
namespace {

using namespace testing;
using namespace VYCL::LocalHub;

class ProductionMeshTest : public MeshFixture
{
protected:
    std::vector<std::string> ListedIDs()
    {
        std::vector<std::string> ids;
        int calls = 0;
        mMesh->GetProductionList([&](int inStatus, const std::vector<dto::Session>& inSessions) {
            mProbe.Check();
            ++calls;
            EXPECT_EQ(200, inStatus);
            for (const auto& session : inSessions)
                ids.push_back(session.mIdentifier.Text());
        });
        EXPECT_EQ(1, calls);
        return ids;
    }

    void HaveList(const std::vector<const char*>& inIDs)
    {
        std::vector<dto::Session> sessions(inIDs.size());
        for (std::size_t i = 0; i < inIDs.size(); ++i)
            sessions[i].mIdentifier = inIDs[i];
        EXPECT_CALL(*mBox, GetSessions()).WillRepeatedly(Return(sessions));
    }

    /// Three sessions: of two users, and of nobody.
    void HaveUsers()
    {
        HaveList({"anns", "bobs", "nobodys"});
        for (const char* id : {"anns", "bobs", "nobodys"})
            Have(id, "c1");
        EXPECT_CALL(*mMesh, GetSyncStatusForSession(_, _)).WillRepeatedly(Return(200));
        EXPECT_CALL(*mMesh, GetCorvaneID(_)).WillRepeatedly(Return(ImmutableString()));
        EXPECT_CALL(*mMesh, GetUserID(ImmutableString("anns"))).WillRepeatedly(Return(ImmutableString("ann")));
        EXPECT_CALL(*mMesh, GetUserID(ImmutableString("bobs"))).WillRepeatedly(Return(ImmutableString("bob")));
        EXPECT_CALL(*mMesh, GetUserID(ImmutableString("nobodys"))).WillRepeatedly(Return(ImmutableString()));
    }

    void ExpectCommit(const char* inRevision, const std::set<ImmutableString>& inRestored = {}, bool inClear = false,
                      const char* inProperties = "{}")
    {
        CommitOutcome outcome;
        outcome.mSession.mProperties = dto::RawJSON(inProperties);
        outcome.mSession.mIdentifier = "s1";
        outcome.mSession.mRevision = inRevision;
        outcome.mPreviousRevision = "c1";
        outcome.mRestoredAssets = inRestored;
        EXPECT_CALL(*mBox, CommitTransaction(ImmutableString("t1"), _, inClear, _))
            .WillOnce(DoAll(SetArgReferee<3>(outcome), Return(200)));
    }

    void ExpectState(const ImmutableString& inState)
    {
        SyncStatus status;
        status.mState = inState;
        EXPECT_CALL(*mMesh, GetSyncStatusForSession(ImmutableString("s1"), _))
            .WillOnce(DoAll(SetArgReferee<1>(status), Return(200)));
    }

    int Commit(const char* inStrategy = "")
    {
        CommitOutcome outcome;
        return mMesh->CommitTransaction("t1", {"first take"}, inStrategy, outcome);
    }
};

TEST_F(ProductionMeshTest, TheListHoldsEverySessionThatCanBeRead)
{
    HaveList({"s1", "broken", "s2"});
    Have("s1", "c1");
    Have("s2", "c2");
    Lack("broken");
    EXPECT_EQ((std::vector<std::string>{"s1", "s2"}), ListedIDs());
}

TEST_F(ProductionMeshTest, WithoutAStoreTheListFailsAndIsAnsweredAllTheSame)
{
    ProjectBox::SetInstance(nullptr);
    int status = 0;
    mMesh->GetProductionList([&](int inStatus, const auto&) { status = inStatus; });
    EXPECT_EQ(500, status);
}

TEST_F(ProductionMeshTest, SessionsOfAnotherUserOrHubAreHiddenAndSessionsOfNobodyStay)
{
    SyncStatus elsewhere;
    elsewhere.mServerURL = "https://other.example";
    EXPECT_CALL(*mMesh, GetSyncStatusForSession(_, _)).WillRepeatedly(Return(200));
    EXPECT_CALL(*mMesh, GetSyncStatusForSession(ImmutableString("elsewhere"), _))
        .WillOnce(DoAll(SetArgReferee<1>(elsewhere), Return(200)));
    EXPECT_CALL(*mMesh, GetUserID(_)).WillRepeatedly(Return(ImmutableString()));
    EXPECT_CALL(*mMesh, GetUserID(ImmutableString("anns"))).WillOnce(Return(ImmutableString("ann")));
    EXPECT_CALL(*mMesh, GetUserID(ImmutableString("bobs"))).WillOnce(Return(ImmutableString("bob")));
    EXPECT_CALL(*mMesh, GetCorvaneID(_)).WillRepeatedly(Return(ImmutableString()));
    EXPECT_CALL(*mMesh, GetCorvaneID(ImmutableString("twins"))).WillOnce(Return(ImmutableString("other person")));

    std::vector<dto::Session> sessions(5);
    const char* const ids[] = {"anns", "bobs", "elsewhere", "nobodys", "twins"};
    for (std::size_t i = 0; i < 5; ++i)
        sessions[i].mIdentifier = ids[i];
    HideSessionsOfOthers(*mMesh, {"https://hub.example", "ann", "a person"}, sessions);
    ASSERT_EQ(2U, sessions.size());
    EXPECT_EQ("anns", sessions[0].mIdentifier.Text());
    EXPECT_EQ("nobodys", sessions[1].mIdentifier.Text());
    EXPECT_EQ(1U, mLog->Count("Hiding local session -- it is associated with a different remote hub"));
    EXPECT_EQ(2U, mLog->Count("Hiding local session -- it is associated with a different remote user"));
}

TEST_F(ProductionMeshTest, TheListShowsTheLastUsersSessionsAndThoseOfNobodyUnlessItIsNotFiltered)
{
    HaveUsers();
    EXPECT_EQ((std::vector<std::string>{"anns", "bobs", "nobodys"}), ListedIDs()) << "nobody is known";
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("LastUserEmail", "ann"));
    EXPECT_EQ((std::vector<std::string>{"anns", "nobodys"}), ListedIDs());
    mMesh->mServer = std::make_shared<FakeServer>("bob");
    EXPECT_EQ((std::vector<std::string>{"bobs", "nobodys"}), ListedIDs()) << "who is logged in counts first";
    noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.FilterProductionList", "false");
    EXPECT_EQ((std::vector<std::string>{"anns", "bobs", "nobodys"}), ListedIDs());
}

TEST_F(ProductionMeshTest, SessionsOfOthersAreOnlyHiddenAndComeBackWithTheirUser)
{
    HaveUsers();
    mMesh->mServer = std::make_shared<FakeServer>("ann");
    EXPECT_EQ((std::vector<std::string>{"anns", "nobodys"}), ListedIDs());
    mMesh->mServer = std::make_shared<FakeServer>("bob");
    EXPECT_EQ((std::vector<std::string>{"bobs", "nobodys"}), ListedIDs());
    mMesh->mServer = std::make_shared<FakeServer>("ann");
    EXPECT_EQ((std::vector<std::string>{"anns", "nobodys"}), ListedIDs());
}

TEST_F(ProductionMeshTest, OneProductionIsFoundAsTheListShowsIt)
{
    HaveUsers();
    Lack("gone");
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("LastUserEmail", "ann"));
    dto::Session production;
    EXPECT_EQ(200, mMesh->GetProduction("p-anns", production));
    EXPECT_EQ("anns", production.mIdentifier.Text());
    EXPECT_EQ(404, mMesh->GetProduction("p-bobs", production));
    EXPECT_EQ(404, mMesh->GetProduction("gone", production));
    EXPECT_EQ("anns", production.mIdentifier.Text());
    noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.FilterProductionList", "false");
    EXPECT_EQ(200, mMesh->GetProduction("p-bobs", production));
}

TEST_F(ProductionMeshTest, TheViewerIsWhoIsLoggedInElseWhoWasLast)
{
    EXPECT_TRUE(ReadProductionViewer(*mMesh).IsUnknown());
    auto& files = noxcore::filesupport::Files();
    const auto folder = VYCL::LocalHub::GetSettingsFolder();
    ASSERT_TRUE(files.EnsureDirectoryExists(folder));
    ASSERT_TRUE(files.WriteFileDurably(noxcore::filesupport::Join(folder, "lastlogin.json"),
                                       R"({"personGUID":"g-cleo","userEmail":"cleo"})"));
    EXPECT_EQ("cleo", ReadProductionViewer(*mMesh).mUserID.Text());
    EXPECT_EQ("g-cleo", ReadProductionViewer(*mMesh).mCorvaneID.Text());
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("LastPersonGUID", "g-ann"));
    ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("LastUserEmail", "ann"));
    EXPECT_EQ("ann", ReadProductionViewer(*mMesh).mUserID.Text());
    EXPECT_EQ("g-ann", ReadProductionViewer(*mMesh).mCorvaneID.Text());
    mMesh->mServer = std::make_shared<FakeServer>("bob");
    EXPECT_EQ("bob", ReadProductionViewer(*mMesh).mUserID.Text());
    EXPECT_EQ("https://hub.example", ReadProductionViewer(*mMesh).mServerURL.Text());
}

TEST_F(ProductionMeshTest, ASessionWhoseModeCannotBeWrittenIsNotCalledLocalOnly)
{
    dto::Session made;
    made.mIdentifier = "s1";
    EXPECT_CALL(*mBox, CreateSession(_, _, SessionKind::LocalOnly, _))
        .WillOnce(DoAll(SetArgReferee<3>(made), Return(201)));
    EXPECT_CALL(*mMesh, AssociateWithUserOnly(_, _, true)).WillOnce(Return(500));
    dto::Session session;
    EXPECT_EQ(201, mMesh->CreateSession({}, "ann@example.com", true, session));
    EXPECT_FALSE(session.mLocalOnly);
    const auto records = mLog->Find("CreateSession: cannot associate session with user");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("s1", records[0].Value("localSessionID"));
    EXPECT_EQ("500", records[0].Value("status"));
}

TEST_F(ProductionMeshTest, ALocalOnlySessionIsMadeInItsOwnPlaceAndBelongsToItsMaker)
{
    dto::Session made;
    made.mIdentifier = "s1";
    EXPECT_CALL(*mBox, CreateSession(ImmutableString(), _, SessionKind::LocalOnly, _))
        .WillOnce(DoAll(SetArgReferee<3>(made), Return(201)));
    EXPECT_CALL(*mMesh, AssociateWithUserOnly(ImmutableString("s1"), ImmutableString("ann@example.com"), true))
        .WillOnce(Return(200));
    dto::Session session;
    EXPECT_EQ(201, mMesh->CreateSession({}, "ann@example.com", true, session));
    EXPECT_EQ("s1", session.mIdentifier.Text());
    EXPECT_TRUE(session.mLocalOnly);
}

TEST_F(ProductionMeshTest, ASynchronizedSessionStandsThoughItsRemoteSideCannotBeMade)
{
    dto::Session made;
    made.mIdentifier = "s1";
    EXPECT_CALL(*mBox, CreateSession(ImmutableString(), _, SessionKind::Synchronized, _))
        .WillOnce(DoAll(SetArgReferee<3>(made), Return(201)));
    EXPECT_CALL(*mMesh, AssociateWithUserOnly(ImmutableString("s1"), ImmutableString(), false)).WillOnce(Return(200));
    EXPECT_CALL(*mMesh, CreateRemoteAssociatedSession(ImmutableString("s1"), _)).Times(1);
    dto::Session session;
    EXPECT_EQ(201, mMesh->CreateSession({}, "", false, session));
}

TEST_F(ProductionMeshTest, ASessionThatTheStoreRefusesIsAssociatedWithNobody)
{
    EXPECT_CALL(*mBox, CreateSession(_, _, _, _)).WillOnce(Return(409));
    dto::Session session;
    EXPECT_EQ(409, mMesh->CreateSession({}, "ann@example.com", false, session));
}

TEST_F(ProductionMeshTest, ASnapshotIsOpenedAsASessionOrExtractedAndBelongsToNobody)
{
    dto::Session opened;
    opened.mIdentifier = "sn-1";
    EXPECT_CALL(*mBox, CreateSessionFromSnapshot("a.zip", _, _)).WillOnce(DoAll(SetArgReferee<2>(opened), Return(201)));
    EXPECT_CALL(*mBox, ExtractSnapshot("a.zip", ImmutableString("root"), _))
        .WillOnce(DoAll(SetArgReferee<2>(opened), Return(200)))
        .WillOnce(Return(404));
    EXPECT_CALL(*mMesh, AssociateWithUserOnly(ImmutableString("sn-1"), ImmutableString(), false))
        .Times(2)
        .WillRepeatedly(Return(200));
    dto::Session session;
    EXPECT_EQ(201, mMesh->OpenSnapshot("a.zip", "root", {}, true, session));
    EXPECT_EQ(200, mMesh->OpenSnapshot("a.zip", "root", {}, false, session));
    EXPECT_EQ(404, mMesh->OpenSnapshot("a.zip", "root", {}, false, session));
}

/// What a copy answered, and how often.
struct CopyAnswer
{
    int mStatus = 0;
    int mCalls = 0;
    ImmutableString mSession;

    SyncBox::SessionCompletion Completion()
    {
        return [this](int inStatus, const dto::Session& inSession) {
            mStatus = inStatus;
            mSession = inSession.mIdentifier;
            ++mCalls;
        };
    }
};

TEST_F(ProductionMeshTest, ALocalCopyIsMadeOnAWorkerAndIsLocalOnly)
{
    dto::Session source;
    source.mIdentifier = "s1";
    dto::Session made;
    made.mIdentifier = "s2";
    EXPECT_CALL(*mBox, GetProduction(ImmutableString("p-1"), _, _))
        .WillRepeatedly(DoAll(SetArgReferee<2>(source), Return(200)));
    EXPECT_CALL(*mBox, CopySessionToLyra2(ImmutableString("s1"), ImmutableString("c0ffee"), _, _))
        .WillOnce(DoAll(SetArgReferee<3>(made), Return(201)))
        .WillOnce(Return(404));
    EXPECT_CALL(*mMesh, AssociateWithUserOnly(ImmutableString("s2"), ImmutableString(), true)).WillOnce(Return(200));
    CopyAnswer answer;
    mMesh->CopyProduction("p-1", "c0ffee", {}, {}, true, answer.Completion());
    EXPECT_EQ(0, answer.mCalls);
    mScheduler->RunUntilIdle();
    EXPECT_EQ(201, answer.mStatus);
    EXPECT_EQ("s2", answer.mSession);
    mMesh->CopyProduction("p-1", "c0ffee", {}, {}, true, answer.Completion());
    mScheduler->RunUntilIdle();
    EXPECT_EQ(404, answer.mStatus);
    EXPECT_EQ(2, answer.mCalls);
}

TEST_F(ProductionMeshTest, WhatBelongsToThisComputerIsNotCopiedToAServer)
{
    dto::Session plain;
    plain.mIdentifier = "s1";
    std::vector<dto::Session> sources(4, plain);
    sources[0].mSnapshotRootAssetID = "a1";
    sources[1].mIdentifier = "sn-1";
    sources[2].mLocalOnly = true;
    sources[3].mRopeFileID = "r-1";
    CopyAnswer answer;
    for (const dto::Session& source : sources) {
        EXPECT_CALL(*mBox, GetProduction(_, _, _)).WillOnce(DoAll(SetArgReferee<2>(source), Return(200)));
        mMesh->CopyProduction("p-1", "c0ffee", {}, {}, false, answer.Completion());
        EXPECT_EQ(400, answer.mStatus);
    }
    EXPECT_EQ(4U, mLog->Count("ProductionMesh::CopySession: Root Asset, snapshot file, local-only cannot be used in a "
                              "remote production copy operation"));
    EXPECT_CALL(*mBox, GetProduction(_, _, _)).WillOnce(DoAll(SetArgReferee<2>(plain), Return(200)));
    mMesh->CopyProduction("p-1", "c0ffee", {}, {}, false, answer.Completion());
    EXPECT_EQ(501, answer.mStatus);
    EXPECT_EQ(5, answer.mCalls);
}

TEST_F(ProductionMeshTest, APathOfTwoThousandAndFortyEightCharactersIsTooLongForACopy)
{
    dto::Session source;
    source.mIdentifier = "s1";
    EXPECT_CALL(*mBox, GetProduction(_, _, _)).WillRepeatedly(DoAll(SetArgReferee<2>(source), Return(200)));
    CopyAnswer answer;
    mMesh->CopyProduction("p-1", "c0ffee", {}, "/" + std::string(2047, 'x'), true, answer.Completion());
    EXPECT_EQ(400, answer.mStatus);
    // A shorter one is that of a single file.
    const std::string file = "/" + std::string(2046, 'x');
    EXPECT_CALL(*mBox, CopyToRopeFile(ImmutableString("s1"), ImmutableString("c0ffee"), file, false, _))
        .WillOnce(Return(409));
    mMesh->CopyProduction("p-1", "c0ffee", {}, file, true, answer.Completion());
    mScheduler->RunUntilIdle();
    EXPECT_EQ(409, answer.mStatus);
}

TEST_F(ProductionMeshTest, ACopyOfWhatIsNotThereAnswersTheStoresStatus)
{
    EXPECT_CALL(*mBox, GetProduction(_, _, _)).WillOnce(Return(404));
    CopyAnswer answer;
    mMesh->CopyProduction("p-1", "c0ffee", {}, {}, true, answer.Completion());
    EXPECT_EQ(404, answer.mStatus);
    EXPECT_EQ(1, answer.mCalls);
}

TEST_F(ProductionMeshTest, WhereNoWorkIsTakenOnAnyMoreNeitherCopyNorCompactionIsBegun)
{
    dto::Session source;
    source.mIdentifier = "s1";
    EXPECT_CALL(*mBox, GetProduction(_, _, _)).WillOnce(DoAll(SetArgReferee<2>(source), Return(200)));
    EXPECT_CALL(*mBox, GetSession(_, _)).WillOnce(DoAll(SetArgReferee<1>(source), Return(200)));
    EXPECT_CALL(*mBox, GetRopeFilePath(_, _)).WillOnce(Return(200));
    noxcore::threads::CPUBoundExecutor()->ShutDownAndWait();
    CopyAnswer copy;
    mMesh->CopyProduction("p-1", "c0ffee", {}, {}, true, copy.Completion());
    EXPECT_EQ(500, copy.mStatus);
    int compacted = 0;
    mMesh->CompactSession("s1", [&](int inStatus) { compacted = inStatus; });
    EXPECT_EQ(500, compacted);
    EXPECT_EQ(1U, mLog->Count("ProductionMesh::CopySession: Could not start copy session operation"));
    EXPECT_EQ(1U, mLog->Count("ProductionMesh::CompactSession: Could not start compact session operation"));
}

TEST_F(ProductionMeshTest, ACompactionThatThrowsIsAnsweredOnceAndKeepsTheLinkWhereTheFileIsTheOldOne)
{
    dto::Session source;
    source.mIdentifier = "s1";
    EXPECT_CALL(*mBox, GetSession(_, _)).WillOnce(DoAll(SetArgReferee<1>(source), Return(200)));
    EXPECT_CALL(*mBox, GetRopeFilePath(_, _)).WillOnce(Return(200));
    EXPECT_CALL(*mBox, GetSessionHistory(_, _, _, _, _)).WillOnce(testing::Throw(std::bad_alloc()));
    EXPECT_CALL(*mMesh, DisconnectAndCloseSession(_)).Times(0);
    SyncBox::SetInstance(mMesh);
    std::vector<int> answers;
    mMesh->CompactSession("s1", [&](int inStatus) { answers.push_back(inStatus); });
    mScheduler->RunUntilIdle();
    SyncBox::SetInstance(nullptr);
    EXPECT_EQ(std::vector<int>{500}, answers);
    EXPECT_EQ(1U, mLog->Count("ProductionMesh::CompactSession: Caught exception"));
}

TEST_F(ProductionMeshTest, ACompactionThatThrowsWhileTheFileMayBeReplacedTakesTheLinkAway)
{
    dto::Session source;
    source.mIdentifier = "s1";
    EXPECT_CALL(*mBox, GetSession(_, _)).WillOnce(DoAll(SetArgReferee<1>(source), Return(200)));
    EXPECT_CALL(*mBox, GetRopeFilePath(_, _)).WillOnce(Return(200));
    EXPECT_CALL(*mBox, GetSessionHistory(_, _, _, _, _)).WillOnce(DoAll(SetArgReferee<4>(0), Return(200)));
    EXPECT_CALL(*mBox, ThinHistoryToRopeFile(_, _, _)).WillOnce(testing::Throw(std::bad_alloc()));
    EXPECT_CALL(*mMesh, DisconnectAndCloseSession(ImmutableString("s1"))).WillOnce(Return(204));
    SyncBox::SetInstance(mMesh);
    std::vector<int> answers;
    mMesh->CompactSession("s1", [&](int inStatus) { answers.push_back(inStatus); });
    mScheduler->RunUntilIdle();
    SyncBox::SetInstance(nullptr);
    EXPECT_EQ(std::vector<int>{500}, answers);
}

TEST_F(ProductionMeshTest, ACopyThatThrowsIsAnsweredOnce)
{
    dto::Session source;
    source.mIdentifier = "s1";
    EXPECT_CALL(*mBox, GetProduction(_, _, _)).WillOnce(DoAll(SetArgReferee<2>(source), Return(200)));
    EXPECT_CALL(*mBox, CopySessionToLyra2(_, _, _, _)).WillOnce(testing::Throw(std::bad_alloc()));
    CopyAnswer answer;
    mMesh->CopyProduction("p-1", "c0ffee", {}, {}, true, answer.Completion());
    mScheduler->RunUntilIdle();
    EXPECT_EQ(1, answer.mCalls);
    EXPECT_EQ(500, answer.mStatus);
    EXPECT_EQ(1U, mLog->Count("ProductionMesh::CopySession: Caught exception"));
}

TEST_F(ProductionMeshTest, ASnapshotThatIsClosedButStaysListedLosesItsLink)
{
    EXPECT_CALL(*mBox, ClearExtractedSnapshot(_)).WillRepeatedly(Return(500));
    EXPECT_CALL(*mBox, GetSession(ImmutableString("sn-1"), _)).WillOnce(Return(404));
    EXPECT_CALL(*mBox, GetSession(ImmutableString("sn-2"), _)).WillOnce(Return(200));
    EXPECT_CALL(*mMesh, DisconnectOrDeleteSession(ImmutableString("sn-1"), false)).WillOnce(Return(404));
    EXPECT_EQ(500, mMesh->CloseSnapshot("sn-1"));
    EXPECT_EQ(500, mMesh->CloseSnapshot("sn-2"));
}

TEST_F(ProductionMeshTest, ClosingASnapshotClearsItsFilesBeforeItsLink)
{
    const InSequence inOrder;
    EXPECT_CALL(*mBox, ClearExtractedSnapshot(ImmutableString("sn-1"))).WillOnce(Return(200));
    EXPECT_CALL(*mMesh, DisconnectOrDeleteSession(ImmutableString("sn-1"), false)).WillOnce(Return(404));
    EXPECT_CALL(*mBox, ClearExtractedSnapshot(ImmutableString("sn-2"))).WillOnce(Return(404));
    EXPECT_CALL(*mBox, GetSession(ImmutableString("sn-2"), _)).WillOnce(Return(200));
    EXPECT_EQ(204, mMesh->CloseSnapshot("sn-1"));
    EXPECT_EQ(404, mMesh->CloseSnapshot("sn-2"));
}

TEST_F(ProductionMeshTest, ACommitOutOfSyncIsPushedAtOnceAndStandsThoughThePushIsRefused)
{
    ExpectCommit("c2");
    ExpectState(SyncState_OutOfSync());
    EXPECT_CALL(*mMesh, UpdateCollaboratorActivity(ImmutableString("s1"), _)).Times(1);
    SyncJobRequest request;
    EXPECT_CALL(*mMesh, RequestHistoryJob(_, _)).WillOnce(DoAll(SaveArg<0>(&request), Return(412)));
    EXPECT_EQ(200, Commit());
    EXPECT_EQ(SyncDirection_Push(), request.mParams.mDirection);
    EXPECT_EQ(Revision_LatestSyncPoint(), request.mParams.mFromRevision);
    EXPECT_EQ(Revision_HEAD(), request.mParams.mToRevision);
    EXPECT_GE(request.mParams.mPriority, 100);
    EXPECT_TRUE(request.mParams.mTimestamp.IsValid());
    EXPECT_EQ(500, request.mResults->mStatus);
}

TEST_F(ProductionMeshTest, ACommitInAnyOtherStateAsksForNoJob)
{
    for (const auto& state : {SyncState_NotAssociated(), SyncState_LocalOnly(), SyncState_LocalSessionConflict(),
                              SyncState_InSync(), SyncState_Disconnected()}) {
        ExpectCommit("c2");
        ExpectState(state);
        EXPECT_CALL(*mMesh, UpdateCollaboratorActivity(_, _)).Times(1);
        EXPECT_EQ(200, Commit()) << state.View();
        Mock::VerifyAndClearExpectations(mMesh.get());
    }
}

TEST_F(ProductionMeshTest, ACommitOfASessionWhoseStateIsNotKnownStandsAndAsksForNoJob)
{
    ExpectCommit("c2");
    SyncStatus status;
    status.mState = SyncState_OutOfSync();
    EXPECT_CALL(*mMesh, GetSyncStatusForSession(_, _)).WillOnce(DoAll(SetArgReferee<1>(status), Return(404)));
    EXPECT_CALL(*mMesh, UpdateCollaboratorActivity(_, _)).Times(1);
    EXPECT_EQ(200, Commit());
}

TEST_F(ProductionMeshTest, ACommitThatChangedNothingTellsNobody)
{
    ExpectCommit("c1");
    EXPECT_EQ(200, Commit());
    EXPECT_EQ(0U, mLog->Count("Generating activity after CommitTransaction"));
}

TEST_F(ProductionMeshTest, ARefusedCommitKeepsItsStatus)
{
    EXPECT_CALL(*mBox, CommitTransaction(_, _, false, _)).WillOnce(Return(409));
    EXPECT_EQ(409, Commit());
}

TEST_F(ProductionMeshTest, AResolveStrategyClearsConflictsAndRestoredAssetsAreResolved)
{
    ExpectCommit("c2", {"a1"}, true);
    ExpectState(SyncState_NotAssociated());
    EXPECT_CALL(*mMesh, UpdateCollaboratorActivity(_, _)).Times(1);
    EXPECT_CALL(*mMesh, ResolveRestoredAssetConflicts(ImmutableString("s1"), std::set<ImmutableString>{"a1"}, _))
        .WillOnce(InvokeArgument<2>(501));
    EXPECT_EQ(200, Commit("accept-yours"));
    const auto activity = mLog->Find("Generating activity after CommitTransaction");
    ASSERT_EQ(1U, activity.size());
    EXPECT_EQ("CollaboratorsActivity", activity.front().mCategory);
    EXPECT_EQ("501", mLog->Find("CommitTransaction: ResolveRestoredAssetConflicts complete").at(0).Value("result"));
}

TEST_F(ProductionMeshTest, ACommitToASprintIsToldToCollaboratorsButNotSent)
{
    const std::pair<const char*, bool> types[] = {{R"({"lumo:productionType":"Sprint"})", true},
                                                  {R"({"lumo:productionType":"sprint"})", false},
                                                  {R"({"name":"Sprint"})", false}};
    for (const auto& [properties, isSprint] : types) {
        mLog->Clear();
        ExpectCommit("c2", {"a1"}, false, properties);
        EXPECT_CALL(*mMesh, UpdateCollaboratorActivity(_, _)).Times(1);
        EXPECT_CALL(*mMesh, ResolveRestoredAssetConflicts(_, _, _)).Times(1);
        if (!isSprint) {
            ExpectState(SyncState_OutOfSync());
            EXPECT_CALL(*mMesh, RequestHistoryJob(_, _)).WillOnce(Return(201));
        }
        EXPECT_EQ(200, Commit()) << "its marker is for the log alone";
        const auto records = mLog->Find("CommitTransaction: a sprint is not synchronized");
        ASSERT_EQ(isSprint ? 1U : 0U, records.size()) << properties;
        for (const auto& record : records)
            EXPECT_EQ("320", record.Value("status"));
    }
}

}  // namespace
}  // namespace VantryLocalHub
