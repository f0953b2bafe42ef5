#include "Inc/Sync/SyncBox.h"

#include <functional>
#include <vector>

#include "Tests/Sync/SyncFixture.h"

namespace VantryLocalHub {
namespace {

class BareSyncBox : public SyncBox
{
};

/// Turns the completion of any kind into a status; -1 while it has not been called, -2 when called twice.
class Answer
{
public:
    template <class... Values>
    operator std::function<void(int, Values...)>()
    {
        return [this](int inStatus, const auto&...) { mStatus = mStatus == -1 ? inStatus : -2; };
    }
    int mStatus = -1;
};

/// Who does the work in a HubSync: nobody yet, or one of its components.
enum class Work
{
    None,
    Component
};

struct StatusOperation
{
    const char* mName;
    std::function<int(SyncBox&)> mCall;
    Work mWork = Work::None;
};

#define RESULT(...) [](SyncBox& inBox) { return inBox.__VA_ARGS__; }
#define COMPLETED(...)         \
    [](SyncBox& inBox) {       \
        Answer answer;         \
        inBox.__VA_ARGS__;     \
        return answer.mStatus; \
    }

const ImmutableString kID("9e5c2b62-5d3f-4f2e-8c55-6d1df1a2f001");

template <class T>
T& Out()
{
    static T value;
    return value;
}

std::vector<StatusOperation> StatusOperations()
{
    return {
        {"5", RESULT(EngagePollingForSync(kID, DataServerRef(), EditingSessionRef()))},
        {"6", RESULT(EngagePollingForSync(kID, true))},
        {"7", RESULT(EngagePollingForSyncIfIsPollingForSync(kID))},
        {"9", RESULT(DisengagePollingForSync(kID))},
        {"12", RESULT(GetRemoteStatusCollection(kID, Out<dto::SessionStatus>()))},
        {"14", COMPLETED(CreateRemoteAssociatedSession(kID, answer))},
        {"15", RESULT(GetCreationStatus(kID))},
        {"18", RESULT(GetSyncStatusForSession(kID, Out<SyncStatus>())), Work::Component},
        {"22", RESULT(AssociateForSync(kID, nullptr, nullptr, kID))},
        {"23", RESULT(DisassociateForSync(kID)), Work::Component},
        {"24", RESULT(ReassociateForSync(kID, kID, kID))},
        {"25", RESULT(AssociateWithUserOnly(kID, kID, true)), Work::Component},
        {"29", RESULT(RecordSyncPoint(kID, kID, kID)), Work::Component},
        {"31", RESULT(ReconstructLatestSyncPointFromHistory(kID, {}))},
        {"32", RESULT(UpdateRemoteRevisionList(kID, kID)), Work::Component},
        {"34", RESULT(AddMediaLocators(kID, Out<std::vector<dto::MediaLocator>>())), Work::Component},
        {"35", RESULT(EditMediaLocators(kID, Out<std::vector<dto::MediaLocator>>())), Work::Component},
        {"36", RESULT(EditMediaLocators(kID, Out<dto::MediaLocator>())), Work::Component},
        {"37", COMPLETED(UpdateRemoteMediaLocators(kID, answer))},
        {"38", COMPLETED(UpdateLocalMediaLocators(kID, answer))},
        {"40", COMPLETED(GetDifferences(kID, kID, kID, answer)), Work::Component},
        {"41", RESULT(LoadDifferences(kID, kID, kID, nullptr))},
        {"42", COMPLETED(GetOutgoingChanges(kID, true, answer))},
        {"43", COMPLETED(GetIncomingChanges(kID, true, answer))},
        {"44", COMPLETED(PullIncomingChanges(kID, kID, kID, answer))},
        {"45", COMPLETED(PushOutgoingChanges(kID, kID, {}, kID, answer))},
        {"46", COMPLETED(AutoShare(kID, answer)), Work::Component},
        {"51", RESULT(GetDataServerForSession(kID, Out<SyncStatus>(), Out<DataServerRef>()))},
        {"52", RESULT(GetSyncRequestStatus(kID, {}, Out<SyncStatus>())), Work::Component},
        {"53", RESULT(RequestSyncJob({}, Out<dto::Job>())), Work::Component},
        {"54", RESULT(FindMatchingRunningSyncJob(kID, {}, Out<dto::Job>())), Work::Component},
        {"57", RESULT(ChangeSyncJobState({}, kID, Out<dto::Job>())), Work::Component},
        {"63", COMPLETED(ConnectToRemoteHub(kID, kID, {}, answer))},
        {"64", RESULT(DisconnectFromRemoteHub(kID))},
        {"68", COMPLETED(GetInvites(kID, answer))},
        {"69", COMPLETED(AcceptInvite({}, answer))},
        {"70", COMPLETED(RejectInvite({}, answer))},
        {"71", COMPLETED(InviteCollaborators(kID, {}, answer))},
        {"72", COMPLETED(GetCollaborators(kID, kID, answer))},
        {"74", COMPLETED(UpdateCollaboratorActivity(kID, answer))},
        {"75", RESULT(GetRemoteSession(kID, kID, Out<DataServerRef>(), Out<ProductionRef>()))},
        {"76", COMPLETED(GetProductionList(SyncBox::SessionListCompletion(answer))), Work::Component},
        {"77", COMPLETED(GetArchivedProductionList(SyncBox::SessionListCompletion(answer))), Work::Component},
        {"82", COMPLETED(CreateRemoteProduction({}, answer))},
        {"86", COMPLETED(ArchiveProduction(kID, answer))},
        {"87", COMPLETED(UnarchiveProduction(kID, answer))},
        {"88", COMPLETED(RenameProduction(kID, "", answer))},
        {"89", COMPLETED(DeleteRemoteProduction(kID, answer))},
        {"90", RESULT(GetProduction(kID, Out<dto::Session>())), Work::Component},
        {"91", RESULT(CreateSession({}, kID, true, Out<dto::Session>())), Work::Component},
        {"92", RESULT(OpenSnapshot("", kID, {}, true, Out<dto::Session>())), Work::Component},
        {"93", RESULT(CloseSnapshot(kID)), Work::Component},
        {"94", RESULT(DisconnectOrDeleteSession(kID, true)), Work::Component},
        {"95", RESULT(DisconnectAndCloseSession(kID)), Work::Component},
        {"96", COMPLETED(CreateLocalAssociatedSession(kID, kID, kID, answer))},
        {"97", COMPLETED(CreateLocalAssociatedSession(kID, answer))},
        {"98", COMPLETED(CopyProduction(kID, kID, {}, "", true, answer)), Work::Component},
        {"99", COMPLETED(CompactSession(kID, answer)), Work::Component},
        {"100", RESULT(ConfirmRemoteProductionAccess(kID))},
        {"103", RESULT(CommitTransaction(kID, {}, {}, Out<CommitOutcome>())), Work::Component},
        {"104", COMPLETED(RollbackSessionToRevision(kID, kID, answer)), Work::Component},
        {"105", RESULT(RenameRemoteProduction(kID, ""))},
        {"106", COMPLETED(ResolveRemoteConflict(kID, {}, answer))},
        {"107", COMPLETED(ResolveAssetConflict(kID, {}, answer))},
        {"108", COMPLETED(ResolveProductionEnclosureConflict(kID, {}, answer))},
        {"109", COMPLETED(ResolveProductionPropertiesConflict(kID, {}, answer))},
        {"110", COMPLETED(DiscardLocalChanges(kID, answer)), Work::Component},
        {"111", RESULT(EngageSessionConflictState(kID, kID)), Work::Component},
        {"112", RESULT(UpdateSessionConflictState(kID, std::nullopt)), Work::Component},
        {"113", COMPLETED(RestoreAssetFromProduction(kID, kID, kID, answer)), Work::Component},
        {"114", COMPLETED(ResolveRestoredAssetConflicts(kID, {}, answer))},
        {"115", COMPLETED(AcquireProductionBaton(kID, kID, answer))},
        {"116", COMPLETED(ReleaseProductionBaton(kID, kID, answer))},
        {"117", RESULT(GetProductionBatons(kID, Out<dto::BatonsResource>()))},
        {"118", RESULT(GetCollaboratorsPresence(kID, Out<dto::PresenceResource>()))},
    };
}

/// The operations whose answer is no status, and is nothing: counts, tests, lists, texts and objects.
void ExpectNothing(SyncBox& inBox)
{
    EXPECT_FALSE(inBox.IsPollingForSync(kID));                                   // 10
    EXPECT_TRUE(inBox.GetRemoteChanges(kID).empty());                            // 13
    EXPECT_TRUE(inBox.GetSyncStatus().empty());                                  // 16
    EXPECT_TRUE(inBox.GetSyncStatusForServer(kID).empty());                      // 17
    EXPECT_FALSE(inBox.IsAssociated(kID));                                       // 19
    EXPECT_FALSE(inBox.IsLinked(kID));                                           // 20
    EXPECT_TRUE(inBox.FindAssociatedLocalSession(kID).empty());                  // 21
    EXPECT_TRUE(inBox.GetRemoteProductionID(kID).empty());                       // 26
    EXPECT_TRUE(inBox.GetUserID(kID).empty());                                   // 27
    EXPECT_TRUE(inBox.GetCorvaneID(kID).empty());                                // 28
    EXPECT_FALSE(inBox.GetLatestSyncPoint(kID, Out<SyncPoint>()));               // 30
    EXPECT_TRUE(inBox.GetSyncJobs().empty());                                    // 48
    EXPECT_TRUE(inBox.GetSyncJobs(kID).empty());                                 // 49
    EXPECT_EQ(0U, inBox.GetUnfinishedSyncJobCount());                            // 50
    EXPECT_TRUE(inBox.GetRemoteHubStatusList().empty());                         // 65
    EXPECT_EQ(nullptr, inBox.GetLoggedInDataServer());                           // 66
    EXPECT_EQ(nullptr, inBox.GetRemoteHub(nullptr));                             // 67
    EXPECT_TRUE(inBox.GetLatestCachedProductionHistory(kID).empty());            // 73
    EXPECT_TRUE(inBox.GetRemoteProductionURL(kID).empty());                      // 78
    EXPECT_TRUE(inBox.GetRemoteProductionURN(kID).empty());                      // 79
    EXPECT_FALSE(inBox.IsConnectedDataServer(nullptr));                          // 80
    EXPECT_FALSE(inBox.IsLoggedInDataServer(nullptr));                           // 81
    EXPECT_FALSE(inBox.GetArchivedProduction(kID, Out<dto::ProductionLink>()));  // 85
    EXPECT_FALSE(inBox.CanSessionBeScheduledForCleanup(kID));                    // 101
    EXPECT_EQ(nullptr, inBox.GetDataServer(kID));                                // 120
    std::vector<dto::ProductionLink> links(1);
    EXPECT_FALSE(inBox.GetProductionList(kID, links));  // 83
    EXPECT_TRUE(links.empty());
    links.resize(1);
    EXPECT_FALSE(inBox.GetArchivedProductionList(links));  // 84
    EXPECT_TRUE(links.empty());
    links.resize(1);
    EXPECT_FALSE(inBox.GetArchivedProductionList(kID, links));  // 121
    EXPECT_TRUE(links.empty());
}

/// The operations without an answer: they must be harmless.
void CallTheRest(SyncBox& inBox)
{
    inBox.ReleaseUnusedDB(0);                                  // 2
    inBox.PermitRemoteConnections();                           // 3
    inBox.DisengagePollingForSync(DataServerRef());            // 8
    inBox.SyncPollingSessionsToRemote();                       // 11
    inBox.ClearRemoteChanges(kID);                             // 33
    inBox.UpdateLinkedProductionMediaLocatorsLater(kID, kID);  // 39
    inBox.CacheDifferences(kID, kID, kID, {});                 // 47
    inBox.RequestAutoShareSyncJob(kID, {});                    // 55
    inBox.PermitIdleSyncJobs();                                // 58
    inBox.UpdateIdlePushSyncJobs();                            // 59
    inBox.RestrictIdleSyncJobs();                              // 60
    inBox.UpdateIdlePullSyncJobForSession(kID);                // 61
    inBox.RunUnfinishedSyncJobs();                             // 62
    inBox.ReconnectDisconnectedSessions(kID);                  // 102
    inBox.TerminateSyncJobsForSession(kID);                    // 119
    inBox.RestrictRemoteConnections();                         // 4
    inBox.Terminate();                                         // 1
}

class SyncBoxTest : public SyncFixture
{
};

TEST_F(SyncBoxTest, AnOperationThatNobodyImplementsSaysSo)
{
    const auto box = std::make_shared<BareSyncBox>();
    for (const auto& operation : StatusOperations())
        EXPECT_EQ(501, operation.mCall(*box)) << operation.mName;
    ExpectNothing(*box);
    std::shared_ptr<JobLock> lock;
    EXPECT_FALSE(box->AcquireJobLock(kID, {}, "test", JobCategory::History, lock));  // 56
    EXPECT_EQ(nullptr, lock);
    CallTheRest(*box);
}

TEST_F(SyncBoxTest, TheEngineAnswersNotImplementedExactlyWhereItHasNoComponent)
{
    const auto engine = std::make_shared<HubSync>();
    for (const auto& operation : StatusOperations()) {
        const int status = operation.mCall(*engine);
        EXPECT_GE(status, 200) << operation.mName;
        EXPECT_EQ(operation.mWork == Work::None, status == 501) << operation.mName;
    }
    ExpectNothing(*engine);
    CallTheRest(*engine);
}

TEST_F(SyncBoxTest, AnEmptyCompletionIsNotCalled)
{
    const auto engine = std::make_shared<HubSync>();
    engine->CreateRemoteAssociatedSession(kID, {});
    engine->UpdateCollaboratorActivity(kID, {});
    engine->GetProductionList(SyncBox::SessionListCompletion());
    engine->RollbackSessionToRevision(kID, kID, {});
}

TEST_F(SyncBoxTest, NothingIsSharedOnItsOwn)
{
    Answer answer;
    std::make_shared<HubSync>()->AutoShare(kID, answer);
    EXPECT_EQ(304, answer.mStatus);
}

TEST_F(SyncBoxTest, AConnectionWhileTheGateIsClosedIsRefused)
{
    const auto engine = std::make_shared<HubSync>();
    engine->RestrictRemoteConnections();
    Answer restricted;
    engine->ConnectToRemoteHub(kID, kID, {}, restricted);
    EXPECT_EQ(412, restricted.mStatus);

    engine->PermitRemoteConnections();
    Answer permitted;
    engine->ConnectToRemoteHub(kID, kID, {}, permitted);
    EXPECT_EQ(501, permitted.mStatus);
}

TEST_F(SyncBoxTest, WhoeverAsksForAnEngineThatIsShutGetsNothingAndARecord)
{
    EXPECT_EQ(nullptr, SyncBox::Instance());
    ASSERT_EQ(1U, mLog->Count("SyncBox is shut"));
    EXPECT_EQ("VantryLocalHub", mLog->Find("SyncBox is shut")[0].mCategory);
}

/// Lets go of the engine when it reads that somebody has it.
class LettingGo final : public noxcore::logging::Sink
{
public:
    void Write(const noxcore::logging::Record& inRecord) override
    {
        if (inRecord.mMessage != "SyncBox is still in use") return;
        mCount = inRecord.Value("count");
        mUser.reset();
    }
    std::shared_ptr<SyncBox> mUser;
    std::string mCount;
};

TEST_F(SyncBoxTest, AnEngineThatIsStillInUseIsReportedBeforeItsEndIsWaitedFor)
{
    const auto sink = std::make_shared<LettingGo>();
    const noxcore::HubContext::Scope scope(MakeContext(sink));
    SyncBox::SetInstance(std::make_shared<HubSync>());
    sink->mUser = SyncBox::Instance();
    SyncBox::Close();
    EXPECT_EQ("1", sink->mCount);
}

TEST_F(SyncBoxTest, ClosingWithdrawsTheInstanceAndSilencesItsMessages)
{
    SyncBox::SetInstance(std::make_shared<HubSync>());
    const std::weak_ptr<SyncBox> engine = SyncBox::Instance();
    int heard = 0;
    const auto station = SyncBox::Station();
    const auto listener = station->Listen<SyncBox::RemoteHubStatusChangedMessage>([&](const auto&) { ++heard; });
    const auto post = [&] {
        noxcore::messaging::PostMessageToUIThread(station, std::make_shared<SyncBox::RemoteHubStatusChangedMessage>());
        mScheduler->RunUntilIdle();
    };
    post();
    EXPECT_EQ(1, heard);

    SyncBox::Close();
    EXPECT_TRUE(engine.expired());
    EXPECT_EQ(nullptr, SyncBox::Instance());
    post();
    EXPECT_EQ(1, heard);
    ASSERT_EQ(1U, mLog->Count("Closing SyncBox"));
    EXPECT_EQ("VantryLocalHub", mLog->Find("Closing SyncBox")[0].mCategory);
    EXPECT_NE(station, SyncBox::Station());
}

}  // namespace
}  // namespace VantryLocalHub
