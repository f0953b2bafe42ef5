#include "Inc/Sync/HubSync.h"

#include "Inc/Model/ComplaintBox.h"
#include "Inc/Sync/JobLockTable.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Tests/Sync/StoreFixture.h"

namespace VantryLocalHub {
namespace {

using namespace testing;
using namespace VYCL::LocalHub;

/// An engine whose remote hub is as a test says.
class EngineWithHub : public HubSync
{
public:
    std::vector<dto::RemoteLoginStatus> GetRemoteHubStatusList() override { return mHubs; }
    DataServerRef GetLoggedInDataServer() override { return mServer; }
    std::size_t GetUnfinishedSyncJobCount() override { return mUnfinished; }
    int GetRemoteSession(const ImmutableString& inID, const ImmutableString& inRevision, DataServerRef& outServer,
                         ProductionRef& outProduction) override
    {
        return mHasRemoteSessions ? 200 : HubSync::GetRemoteSession(inID, inRevision, outServer, outProduction);
    }

    void SetHub(bool inConnected, bool inAuthorized)
    {
        mHubs.resize(1);
        mHubs[0].mServerURL = "https://hub.example";
        mHubs[0].mConnected = inConnected;
        mHubs[0].mAuthorized = inAuthorized;
    }

    std::vector<dto::RemoteLoginStatus> mHubs;
    DataServerRef mServer;
    std::size_t mUnfinished = 0;
    bool mHasRemoteSessions = false;
};

class HubSyncTest : public StoreFixture
{
protected:
    HubSyncTest()
    {
        mListener = SyncBox::Station()->Listen<SyncBox::SyncStatusChangedMessage>(
            [this](const auto& inMessage) { mChanged.push_back(inMessage.mSessionID); });
    }

    ImmutableString State(const char* inID)
    {
        SyncStatus status;
        EXPECT_EQ(200, mEngine->GetSyncStatusForSession(inID, status));
        return status.mState;
    }

    int Requestable(const ImmutableString& inDirection, bool inForce = false)
    {
        JobParams params;
        params.mDirection = inDirection;
        params.mFromRevision = Revision_LatestSyncPoint();
        params.mToRevision = Revision_HEAD();
        params.mForce = inForce;
        SyncStatus status;
        return mEngine->GetSyncRequestStatus("s1", params, status);
    }

    void ExpectHistory(const std::vector<const char*>& inNewestFirst)
    {
        std::vector<StoredVersion> versions(inNewestFirst.size());
        for (std::size_t i = 0; i < versions.size(); ++i)
            versions[i].mCommitID = inNewestFirst[i];
        EXPECT_CALL(*mBox, GetSessionHistory(ImmutableString("s1"), 0, _, _, _))
            .WillRepeatedly(DoAll(SetArgReferee<3>(versions), SetArgReferee<4>(versions.size()), Return(200)));
    }

    std::size_t Complaints() { return ComplaintBox::Instance()->SessionComplaints().count("s1"); }

    std::shared_ptr<EngineWithHub> mEngine = std::make_shared<EngineWithHub>();
    std::vector<ImmutableString> mChanged;
    noxcore::messaging::MessageListener mListener;
};

TEST_F(HubSyncTest, ASessionWithoutARemoteSideIsNotAssociated)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    EXPECT_EQ(SyncState_NotAssociated(), State("s1"));
    EXPECT_FALSE(mEngine->IsAssociated("s1"));
    EXPECT_EQ(400, Requestable(SyncDirection_Push()));
}

TEST_F(HubSyncTest, ALocalOnlySessionSaysSoFromWhatItsDatabaseHolds)
{
    Have("s1", "c1");
    HaveNoAssociation("s1", true);
    EXPECT_EQ(SyncState_LocalOnly(), State("s1"));
    EXPECT_EQ(426, Requestable(SyncDirection_Push()));
}

TEST_F(HubSyncTest, BothIdsOfASessionLeadToOneLinkThatIsReadOnce)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    EXPECT_EQ(SyncState_NotAssociated(), State("s1"));
    EXPECT_EQ(SyncState_NotAssociated(), State("p-s1"));
    EXPECT_EQ(1U, mEngine->GetSyncStatus().size());
}

TEST_F(HubSyncTest, ALinkThatCannotBeReadTellsOfNoChangeHoweverOftenItIsAsked)
{
    Have("s1", "c1");
    EXPECT_CALL(*mBox, ReadLinkState(ImmutableString("s1"), _)).WillRepeatedly(Return(false));
    for (int i = 0; i < 3; ++i)
        State("s1");
    mScheduler->RunUntilIdle();
    EXPECT_TRUE(mChanged.empty());
}

TEST_F(HubSyncTest, AnUnknownSessionGetsNoLink)
{
    Lack("gone");
    SyncStatus status;
    EXPECT_EQ(404, mEngine->GetSyncStatusForSession("gone", status));
    EXPECT_EQ(SyncState_Unknown(), status.mState);
    EXPECT_TRUE(mEngine->GetSyncStatus().empty());
}

TEST_F(HubSyncTest, AStateIsAnnouncedOnceWhenItIsAnotherThanBefore)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    State("s1");
    State("s1");
    mScheduler->RunUntilIdle();
    EXPECT_EQ(std::vector<ImmutableString>{"s1"}, mChanged);
    mEngine->SetHub(true, true);
    EXPECT_EQ(SyncState_InSync(), State("s1"));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(2U, mChanged.size());
    EXPECT_EQ(2, mProbe.Checks());
}

TEST_F(HubSyncTest, TheRemoteHubDecidesWhatAnAssociatedSessionMayDo)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    EXPECT_EQ(SyncState_Disconnected(), State("s1"));
    EXPECT_EQ(412, Requestable(SyncDirection_Pull()));
    mEngine->SetHub(true, false);
    EXPECT_EQ(SyncState_NotAuthorized(), State("s1"));
    EXPECT_EQ(401, Requestable(SyncDirection_Pull()));
    mEngine->SetHub(true, true);
    EXPECT_EQ(SyncState_InSync(), State("s1"));
    EXPECT_EQ(1U, mEngine->GetSyncStatusForServer("https://hub.example").size());
    EXPECT_TRUE(mEngine->GetSyncStatusForServer("https://other.example").empty());
}

TEST_F(HubSyncTest, ALinkOfAnotherUserIsNotAuthorizedAndNeverDisconnected)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    mEngine->SetHub(true, true);
    mEngine->mServer = std::make_shared<FakeServer>("bob");
    EXPECT_EQ(SyncState_NotAuthorized(), State("s1"));
    mEngine->mServer = std::make_shared<FakeServer>("ann");
    EXPECT_EQ(SyncState_InSync(), State("s1"));
}

TEST_F(HubSyncTest, InSyncAPullToTheHeadIsWorthwhileAndAPushOnlyWhenForced)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    mEngine->SetHub(true, true);
    EXPECT_EQ(200, Requestable(SyncDirection_Pull()));
    EXPECT_EQ(304, Requestable(SyncDirection_Push()));
    EXPECT_EQ(200, Requestable(SyncDirection_Push(), true));
}

TEST_F(HubSyncTest, LocalCommitsPutASessionOutOfSyncUntilASyncPointIsRecorded)
{
    Have("s1", "c3");
    HaveAssociation("s1", "c1", "r1");
    ExpectHistory({"c3", "c2", "c1", "c0"});
    mEngine->SetHub(true, true);
    SyncStatus status;
    EXPECT_EQ(200, mEngine->GetSyncStatusForSession("s1", status));
    EXPECT_EQ(SyncState_OutOfSync(), status.mState);
    EXPECT_EQ("c3", status.mTargetLocalRevision.Text());
    EXPECT_EQ("r1", status.mTargetRemoteRevision.Text());
    EXPECT_EQ("rs-1", status.mRemoteSessionID.Text());
    EXPECT_EQ(200, Requestable(SyncDirection_Push()));

    SyncPoint written;
    EXPECT_CALL(*mBox, WriteSyncPoint(ImmutableString("s1"), _, _)).WillOnce(DoAll(SaveArg<1>(&written), Return(true)));
    EXPECT_EQ(200, mEngine->RecordSyncPoint("s1", "c3", "r2"));
    EXPECT_EQ("c3", written.mLocalRevision.Text());
    EXPECT_EQ("r2", written.mRemoteRevision.Text());
    EXPECT_EQ(SyncState_InSync(), State("s1"));
}

TEST_F(HubSyncTest, ASyncPointHoldsRealRevisionsOnlyAndAFailedWriteLeavesTheOldOne)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    EXPECT_EQ(500, mEngine->RecordSyncPoint("s1", Revision_HEAD(), "r2"));
    EXPECT_EQ(500, mEngine->RecordSyncPoint("s1", "c2", Revision_LatestSyncPoint()));
    EXPECT_EQ(500, mEngine->RecordSyncPoint("s1", "", "r2"));
    EXPECT_EQ(3U, mLog->Count("Invalid sync point request!"));
    EXPECT_CALL(*mBox, WriteSyncPoint(_, _, _)).WillOnce(Return(false));
    EXPECT_EQ(500, mEngine->RecordSyncPoint("s1", "c2", "r2"));
    SyncPoint point;
    ASSERT_TRUE(mEngine->GetLatestSyncPoint("s1", point));
    EXPECT_EQ("c1", point.mLocalRevision.Text());
}

TEST_F(HubSyncTest, ARemoteRevisionThatIsKnownAlreadyChangesNothing)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    mEngine->SetHub(true, true);
    for (const char* revision : {"r2", "r3", "r2", "r3"})
        EXPECT_EQ(200, mEngine->UpdateRemoteRevisionList("s1", revision));
    EXPECT_EQ(1U, mLog->Count("Attempting to update SyncLink revision with an older revision!"));
    SyncStatus status;
    mEngine->GetSyncStatusForSession("s1", status);
    EXPECT_EQ("r3", status.mTargetRemoteRevision.Text());
    EXPECT_EQ(SyncState_OutOfSync(), status.mState);
}

TEST_F(HubSyncTest, AConflictStopsAllSyncUntilItIsCleared)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    mEngine->SetHub(true, true);
    EXPECT_EQ(200, mEngine->EngageSessionConflictState("s1", "r9"));
    EXPECT_EQ(SyncState_LocalSessionConflict(), State("s1"));
    EXPECT_EQ(400, Requestable(SyncDirection_Pull()));
    EXPECT_EQ(200, mEngine->UpdateSessionConflictState("s1", std::nullopt));
    EXPECT_EQ(SyncState_InSync(), State("s1"));
}

TEST_F(HubSyncTest, ASessionThatCannotBeReadCountsAsLocalOnlyUntilItCanBe)
{
    Have("s1", "c1");
    EXPECT_CALL(*mBox, ReadLinkState(ImmutableString("s1"), _)).Times(3).WillRepeatedly(Return(false));
    EXPECT_EQ(SyncState_LocalOnly(), State("s1"));
    EXPECT_EQ(426, Requestable(SyncDirection_Push()));
    EXPECT_EQ(500, mEngine->DisconnectOrDeleteSession("s1", false));
    EXPECT_EQ(0U, Complaints());
    EXPECT_TRUE(mEngine->GetSyncStatus().empty()) << "such a link is not kept";
    Mock::VerifyAndClearExpectations(mBox.get());
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    EXPECT_EQ(SyncState_Disconnected(), State("s1"));
}

TEST_F(HubSyncTest, ALinkThatIsMadeWhileItsSessionIsDeletedDoesNotStay)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    EXPECT_CALL(*mBox, SessionExists(ImmutableString("s1"))).WillOnce(Return(false));
    SyncStatus status;
    EXPECT_EQ(404, mEngine->GetSyncStatusForSession("s1", status));
    EXPECT_TRUE(mEngine->GetSyncStatus().empty());
}

TEST_F(HubSyncTest, ALinkThatComesOrGoesIsAnnouncedWhoeverAskedForIt)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    EXPECT_FALSE(mEngine->IsAssociated("s1"));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(std::vector<ImmutableString>{"s1"}, mChanged);
    EXPECT_FALSE(mEngine->IsLinked("s1"));
    State("s1");
    mScheduler->RunUntilIdle();
    EXPECT_EQ(1U, mChanged.size());
    EXPECT_EQ(204, mEngine->DisconnectAndCloseSession("s1"));
    EXPECT_EQ(204, mEngine->DisconnectAndCloseSession("s1"));
    mScheduler->RunUntilIdle();
    EXPECT_EQ((std::vector<ImmutableString>{"s1", "s1"}), mChanged);
}

TEST_F(HubSyncTest, AnAssociationThatMakesASessionLocalOnlyIsAnnounced)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    State("s1");
    mScheduler->RunUntilIdle();
    mChanged.clear();
    EXPECT_CALL(*mBox, WriteLocalOnlyMode(ImmutableString("s1"))).WillOnce(Return(true));
    EXPECT_CALL(*mBox, WriteUserID(_, _, _)).WillOnce(Return(true));
    EXPECT_EQ(200, mEngine->AssociateWithUserOnly("s1", "ann", true));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(std::vector<ImmutableString>{"s1"}, mChanged);
}

TEST_F(HubSyncTest, WhatWasReadBeforeALinkWasToldToGoIsReadAgain)
{
    Have("s1", "c1");
    LinkState changed;
    changed.mLocalOnly = true;
    EXPECT_CALL(*mBox, ReadLinkState(ImmutableString("s1"), _))
        .WillOnce([this](const ImmutableString&, LinkState& outState) {
            outState = {};
            EXPECT_EQ(204, mEngine->DisconnectAndCloseSession("s1"));  // the mode was changed after this was read
            return true;
        })
        .WillOnce(DoAll(SetArgReferee<1>(changed), Return(true)));
    EXPECT_EQ(SyncState_LocalOnly(), State("s1"));
}

TEST_F(HubSyncTest, ClosingASessionThatTheStoreHasLetGoOfForgetsItsLink)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    State("s1");
    Lack("s1");
    EXPECT_EQ(404, mEngine->DisconnectAndCloseSession("s1"));
    EXPECT_TRUE(mEngine->GetSyncStatus().empty());
    SyncStatus status;
    EXPECT_EQ(404, mEngine->GetSyncStatusForSession("s1", status));
}

TEST_F(HubSyncTest, DeletingASessionComplainsOfNothingEvenWhileItIsUnderWay)
{
    Have("s1", "c1");
    HaveNoAssociation("s1", true);
    std::size_t complaints = 0;
    const auto listener = ComplaintBox::Instance()->Station()->Listen<ComplaintBox::ComplaintsChangedMessage>(
        [&](const auto&) { ++complaints; });
    EXPECT_CALL(*mBox, DeletePersistedSessionData(ImmutableString("s1"))).WillOnce([this](const ImmutableString&) {
        EXPECT_EQ(0U, Complaints());
        return 200;
    });
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", true));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(0U, complaints);
}

TEST_F(HubSyncTest, ALinkThatIsAskedForDuringTheDeletionGoesWithIt)
{
    Have("s1", "c1");
    HaveNoAssociation("s1", true);
    EXPECT_CALL(*mBox, DeletePersistedSessionData(ImmutableString("s1"))).WillOnce([this](const ImmutableString&) {
        EXPECT_EQ(SyncState_RevokedOrDeleted(), State("s1"));
        return 200;
    });
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", true));
    EXPECT_TRUE(mEngine->GetSyncStatus().empty());
}

TEST_F(HubSyncTest, ASessionThatTheStoreNoLongerHasLosesItsLinkByEitherId)
{
    for (const char* id : {"s1", "p-s1"}) {
        Have("s1", "c1");
        HaveNoAssociation("s1");
        State("s1");
        Mock::VerifyAndClearExpectations(mBox.get());
        Lack("s1");
        Lack("p-s1");
        EXPECT_EQ(404, mEngine->DisconnectOrDeleteSession(id, false));
        EXPECT_TRUE(mEngine->GetSyncStatus().empty()) << id;
    }
}

TEST_F(HubSyncTest, ASessionIsMarkedLocalOnlyBeforeItGetsAUser)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    const InSequence inOrder;
    EXPECT_CALL(*mBox, WriteLocalOnlyMode(ImmutableString("s1"))).WillOnce(Return(false));
    EXPECT_CALL(*mBox, WriteLocalOnlyMode(ImmutableString("s1"))).WillOnce(Return(true));
    EXPECT_CALL(*mBox, WriteUserID(ImmutableString("s1"), ImmutableString("ann"), ImmutableString()))
        .WillOnce(Return(false));
    EXPECT_EQ(500, mEngine->AssociateWithUserOnly("s1", "ann", true));
    EXPECT_EQ(SyncState_NotAssociated(), State("s1"));
    EXPECT_EQ(500, mEngine->AssociateWithUserOnly("s1", "ann", true));
    EXPECT_EQ(SyncState_LocalOnly(), State("s1"));
    EXPECT_FALSE(mEngine->IsLinked("s1"));
}

TEST_F(HubSyncTest, TheUserOfASessionIsWrittenBeforeTheLinkKnowsIt)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    EXPECT_CALL(*mBox, WriteUserID(ImmutableString("s1"), ImmutableString("ann@example.com"), ImmutableString()))
        .WillOnce(Return(false))
        .WillOnce(Return(true));
    EXPECT_EQ(500, mEngine->AssociateWithUserOnly("s1", "ann@example.com", false));
    EXPECT_FALSE(mEngine->IsLinked("s1"));
    EXPECT_EQ(200, mEngine->AssociateWithUserOnly("s1", "ann@example.com", false));
    EXPECT_TRUE(mEngine->IsLinked("s1"));
    EXPECT_EQ("ann@example.com", mEngine->GetUserID("s1").Text());
    EXPECT_FALSE(mEngine->IsAssociated("s1"));
}

TEST_F(HubSyncTest, DisassociatingNeedsALinkAndEndsTheAssociation)
{
    Have("s1", "c1");
    EXPECT_EQ(404, mEngine->DisassociateForSync("s1"));
    HaveAssociation("s1", "c1", "r1");
    EXPECT_TRUE(mEngine->IsAssociated("s1"));
    EXPECT_EQ("rp-1", mEngine->GetRemoteProductionID("s1").Text());
    EXPECT_CALL(*mBox, InvalidateAssociationForSync(ImmutableString("s1"), _))
        .WillOnce(Return(false))
        .WillOnce(Return(true));
    EXPECT_CALL(*mBox, WriteUserID(ImmutableString("s1"), ImmutableString(), ImmutableString())).WillOnce(Return(true));
    EXPECT_EQ(500, mEngine->DisassociateForSync("s1"));
    EXPECT_TRUE(mEngine->IsAssociated("s1"));
    EXPECT_EQ(200, mEngine->DisassociateForSync("s1"));
    EXPECT_FALSE(mEngine->IsAssociated("s1"));
    EXPECT_TRUE(mEngine->GetUserID("s1").empty());
    SyncPoint point;
    EXPECT_FALSE(mEngine->GetLatestSyncPoint("s1", point));
}

TEST_F(HubSyncTest, DeletingASessionLeavesNoComplaintAndNoLink)
{
    Have("s1", "c1");
    HaveNoAssociation("s1", true);
    EXPECT_CALL(*mBox, DeletePersistedSessionData(ImmutableString("s1"))).WillOnce(Return(200));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("p-s1", true));
    EXPECT_EQ(0U, Complaints());
    EXPECT_TRUE(mEngine->GetSyncStatus().empty());
    EXPECT_EQ(0U, mLog->Count("Filed complaint"));
}

TEST_F(HubSyncTest, DeletingASessionThatWasCutOffTakesItsComplaintBack)
{
    Have("s1", "c1");
    HaveNoAssociation("s1", true);
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    ASSERT_EQ(1U, Complaints());
    EXPECT_CALL(*mBox, DeletePersistedSessionData(ImmutableString("s1"))).WillOnce(Return(200));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", true));
    EXPECT_EQ(0U, Complaints());
    EXPECT_GE(mProbe.Checks(), 2);
}

TEST_F(HubSyncTest, ADeletionThatTheStoreRefusesLeavesTheSessionAsItWas)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    EXPECT_CALL(*mBox, ReadDeletedDate(ImmutableString("s1"), _)).WillOnce(Return(false));
    EXPECT_CALL(*mBox, WriteDeletedDate(ImmutableString("s1"), _)).WillOnce(Return(true));
    EXPECT_CALL(*mBox, DeletePersistedSessionData(ImmutableString("s1"))).WillOnce(Return(500));
    EXPECT_CALL(*mBox, RemoveDeletedDate(ImmutableString("s1"))).WillOnce(Return(true));
    EXPECT_EQ(500, mEngine->DisconnectOrDeleteSession("s1", true));
    EXPECT_EQ(0U, Complaints());
    EXPECT_EQ(SyncState_NotAssociated(), State("s1"));
}

TEST_F(HubSyncTest, ADeletionThatTheStoreRefusesKeepsARevocationFromBefore)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    EXPECT_CALL(*mBox, ReadDeletedDate(_, _)).WillRepeatedly(Return(false));
    EXPECT_CALL(*mBox, WriteDeletedDate(_, _)).WillRepeatedly(Return(true));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    ASSERT_EQ(1U, Complaints());
    EXPECT_CALL(*mBox, DeletePersistedSessionData(ImmutableString("s1"))).WillOnce(Return(500));
    EXPECT_EQ(500, mEngine->DisconnectOrDeleteSession("s1", true));
    EXPECT_EQ(1U, Complaints());
    EXPECT_EQ(SyncState_RevokedOrDeleted(), State("s1"));
}

TEST_F(HubSyncTest, ClosingASessionThatWasCutOffTakesItsComplaintWithIt)
{
    Have("s1", "c1");
    HaveNoAssociation("s1", true);
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    ASSERT_EQ(1U, Complaints());
    EXPECT_EQ(204, mEngine->DisconnectAndCloseSession("s1"));
    EXPECT_EQ(0U, Complaints());
}

TEST_F(HubSyncTest, TheEndLetsAllLinksGoAndLeavesWhatWasComplainedOf)
{
    Have("s1", "c1");
    HaveNoAssociation("s1", true);
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    mEngine->Terminate();
    EXPECT_TRUE(mEngine->GetSyncStatus().empty());
    EXPECT_EQ(1U, Complaints());
}

TEST_F(HubSyncTest, ADelayOfAnySizeIsADelay)
{
    const auto since = RFC3339DateTime::Now().Text();
    noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.SessionDeleteDelay", "1000000000000");
    EXPECT_CALL(*mBox, ReadDeletedDate(_, _)).WillRepeatedly(DoAll(SetArgReferee<1>(since), Return(true)));
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    mScheduler->Advance(10000);
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    EXPECT_EQ(1U, mEngine->GetSyncStatus().size());
}

TEST_F(HubSyncTest, ASessionWithoutAHeadAndWithoutASyncPointIsNotTakenForOneThatIsSent)
{
    const auto since = RFC3339DateTime::Now().Text();
    noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.SessionDeleteDelay", "10");
    EXPECT_CALL(*mBox, ReadDeletedDate(_, _)).WillRepeatedly(DoAll(SetArgReferee<1>(since), Return(true)));
    Have("s1", "");
    HaveNoAssociation("s1");
    mScheduler->Advance(20000);
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    EXPECT_EQ(1U, mEngine->GetSyncStatus().size());
}

TEST_F(HubSyncTest, ASessionThatTheServerDeniesIsKeptWithOneComplaintUntilItMayReconnect)
{
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    std::string first;
    EXPECT_CALL(*mBox, ReadDeletedDate(ImmutableString("s1"), _)).WillRepeatedly(Return(false));
    EXPECT_CALL(*mBox, WriteDeletedDate(ImmutableString("s1"), _)).Times(2).WillRepeatedly(Return(true));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    ASSERT_EQ(1U, Complaints());
    const auto table = ComplaintBox::Instance()->SessionComplaints();
    ASSERT_EQ(1U, table.at("s1").size());
    EXPECT_EQ(403, table.at("s1").begin()->second.mErrorCode);
    EXPECT_EQ("session access revoked or deleted", table.at("s1").begin()->second.mErrorString);
    EXPECT_EQ(SyncState_RevokedOrDeleted(), State("s1"));
    EXPECT_EQ(403, Requestable(SyncDirection_Push()));

    EXPECT_CALL(*mBox, RemoveDeletedDate(ImmutableString("s1"))).WillOnce(Return(true));
    mEngine->ReconnectDisconnectedSessions("rp-1");
    EXPECT_EQ(0U, Complaints());
    EXPECT_EQ(SyncState_Disconnected(), State("s1"));
}

TEST_F(HubSyncTest, AfterTheDelayASessionGoesUnlessItHoldsUnsentCommits)
{
    const auto since = RFC3339DateTime::Now().Text();
    noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.SessionDeleteDelay", "10");
    EXPECT_CALL(*mBox, ReadDeletedDate(_, _)).WillRepeatedly(DoAll(SetArgReferee<1>(since), Return(true)));
    Have("s1", "c1");
    HaveAssociation("s1", "c1", "r1");
    Have("s2", "c9");
    HaveAssociation("s2", "c1", "r1");

    mScheduler->Advance(10000);
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s2", false));
    EXPECT_EQ(2U, mEngine->GetSyncStatus().size());

    mScheduler->Advance(1);
    EXPECT_CALL(*mBox, DeletePersistedSessionData(ImmutableString("s1"))).WillOnce(Return(200));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s1", false));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s2", false));
    EXPECT_EQ(1U, mEngine->GetSyncStatus().size());

    EXPECT_CALL(*mBox, DeletePersistedSessionData(ImmutableString("s2"))).WillOnce(Return(200));
    EXPECT_EQ(204, mEngine->DisconnectOrDeleteSession("s2", true));
}

TEST_F(HubSyncTest, ClosingASessionForgetsItsLinkAndReadsItAnewNextTime)
{
    Have("s1", "c1");
    HaveNoAssociation("s1", false, "", 2);
    State("s1");
    EXPECT_EQ(204, mEngine->DisconnectAndCloseSession("s1"));
    EXPECT_TRUE(mEngine->GetSyncStatus().empty());
    State("s1");
    Lack("gone");
    EXPECT_EQ(404, mEngine->DisconnectAndCloseSession("gone"));
}

TEST_F(HubSyncTest, AnIdleLinkReadsItsHistoryAgainAndABusyOneDoesNot)
{
    Have("s1", "c2");
    HaveAssociation("s1", "c1", "r1");
    std::vector<StoredVersion> versions(2);
    versions[0].mCommitID = "c2";
    versions[1].mCommitID = "c1";
    EXPECT_CALL(*mBox, GetSessionHistory(_, _, _, _, _))
        .Times(2)
        .WillRepeatedly(DoAll(SetArgReferee<3>(versions), SetArgReferee<4>(2), Return(200)));
    mEngine->SetHub(true, true);
    const auto now = [] { return noxcore::HubContext::Current()->GetClock().MonotonicTicks(); };
    State("s1");
    mEngine->ReleaseUnusedDB(now());
    State("s1");
    mScheduler->Advance(1000);
    mEngine->ReleaseUnusedDB(now());
    EXPECT_EQ(SyncState_OutOfSync(), State("s1"));
}

TEST_F(HubSyncTest, TheEndCountsTheJobsBeforeItCancelsThem)
{
    std::shared_ptr<JobLock> lock;
    ASSERT_TRUE(mEngine->AcquireJobLock("s1", Guid::CreateUnique(), "test", JobCategory::History, lock));
    mEngine->mUnfinished = 2;
    mEngine->Terminate();
    std::vector<std::string> messages;
    for (const auto& record : mLog->All())
        messages.push_back(record.mMessage);
    EXPECT_THAT(messages, ElementsAre("Unfinished sync jobs at shutdown!", "Job lock held unexpectedly for job"));
    const auto record = mLog->Find("Unfinished sync jobs at shutdown!")[0];
    EXPECT_EQ(noxcore::logging::Level::Information, record.mLevel);
    EXPECT_EQ("2", record.Value("jobCount"));
    EXPECT_EQ("jobCount != 0", record.Value("expression"));
}

TEST_F(HubSyncTest, AnEndWithoutJobsIsSilent)
{
    mEngine->Terminate();
    EXPECT_TRUE(mLog->All().empty());
}

TEST_F(HubSyncTest, ARequestForASessionThatCannotBeExchangedIsRefused)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    Lack("gone");
    SyncJobRequest request;
    request.mParams.mDirection = SyncDirection_Push();
    request.mParams.mFromRevision = Revision_LatestSyncPoint();
    request.mParams.mToRevision = Revision_HEAD();
    dto::Job job;
    request.mSessionID = "s1";
    EXPECT_EQ(412, mEngine->RequestSyncJob(request, job));
    request.mSessionID = "gone";
    EXPECT_EQ(404, mEngine->RequestSyncJob(request, job));
    EXPECT_TRUE(mEngine->GetSyncJobs().empty());
}

TEST_F(HubSyncTest, APushNeedsAnInitialSyncPoint)
{
    Have("s1", "c2");
    HaveAssociation("s1", "", "r1");
    ExpectHistory({"c2", "c1"});
    mEngine->SetHub(true, true);
    SyncJobRequest request;
    request.mSessionID = "s1";
    request.mParams.mDirection = SyncDirection_Push();
    request.mParams.mFromRevision = Revision_LatestSyncPoint();
    request.mParams.mToRevision = Revision_HEAD();
    dto::Job job;
    EXPECT_EQ(412, mEngine->RequestSyncJob(request, job));
    const auto records = mLog->Find("JobControl: attempting to push changes when there is no initial sync point");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("s1", records.front().Value("localSessionID"));
}

TEST_F(HubSyncTest, ChangesAreDiscardedOfASessionInConflictAlone)
{
    Have("s1", "c1");
    HaveNoAssociation("s1");
    Lack("gone");
    std::vector<int> statuses;
    const auto keep = [&](int inStatus) { statuses.push_back(inStatus); };
    mEngine->DiscardLocalChanges("s1", keep);
    EXPECT_EQ(0U, mLog->Count("Cannot discard local changes"));
    mEngine->DiscardLocalChanges("gone", keep);
    EXPECT_EQ((std::vector<int>{304, 404}), statuses);
    const auto records = mLog->Find("Cannot discard local changes");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("404", records.front().Value("status"));
}

TEST_F(HubSyncTest, AJobStartsAtTheLatestSyncPointAndNeedsTheRemoteSession)
{
    Have("s1", "c2");
    HaveAssociation("s1", "c1", "r1");
    ExpectHistory({"c2", "c1"});
    mEngine->SetHub(true, true);
    SyncJobRequest request;
    request.mSessionID = "s1";
    request.mParams.mDirection = SyncDirection_Push();
    request.mParams.mFromRevision = "c0";
    request.mParams.mToRevision = Revision_HEAD();
    dto::Job job;
    EXPECT_EQ(412, mEngine->RequestSyncJob(request, job));
    EXPECT_EQ(1U, mLog->Count("JobControl: attempting to sync from somewhere other than the latest sync point"));
    request.mParams.mFromRevision = "c1";
    EXPECT_EQ(412, mEngine->RequestSyncJob(request, job));
    EXPECT_EQ(1U, mLog->Count("JobsService: cannot get data server and production"));

    mEngine->mHasRemoteSessions = true;
    mEngine->TerminateSyncJobs();
    EXPECT_EQ(424, mEngine->RequestSyncJob(request, job));
    EXPECT_EQ(1U, mLog->Count("JobControl has been terminated: sync job request failed"));
}

}  // namespace
}  // namespace VantryLocalHub
