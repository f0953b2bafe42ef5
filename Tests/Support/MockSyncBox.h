#pragma once

#include <gmock/gmock.h>

#include "Inc/Sync/SyncBox.h"

namespace testing_support {

using namespace VantryLocalHub;

/// A sync engine whose answers a test gives, as far as services ask it; everything else cannot be done, as in SyncBox.
class MockSyncBox : public SyncBox
{
public:
    MockSyncBox();
    ~MockSyncBox() override;

    // The forms that are not mocked stay reachable.
    using SyncBox::CreateLocalAssociatedSession;
    using SyncBox::DisengagePollingForSync;
    using SyncBox::EngagePollingForSync;
    using SyncBox::GetArchivedProductionList;
    using SyncBox::GetProductionList;

    MOCK_METHOD(int, GetSyncStatusForSession, (const ImmutableString&, SyncStatus&), (override));
    MOCK_METHOD(bool, IsAssociated, (const ImmutableString&), (override));
    MOCK_METHOD(int, DisassociateForSync, (const ImmutableString&), (override));
    MOCK_METHOD(ImmutableString, GetRemoteProductionID, (const ImmutableString&), (override));
    MOCK_METHOD(std::vector<dto::Job>, GetSyncJobs, (const ImmutableString&), (override));
    MOCK_METHOD(std::vector<dto::Job>, GetSyncJobs, (), (override));
    MOCK_METHOD(std::vector<SyncStatus>, GetSyncStatus, (), (override));
    MOCK_METHOD(std::vector<SyncStatus>, GetSyncStatusForServer, (const ImmutableString&), (override));
    MOCK_METHOD(int, RequestSyncJob, (const SyncJobRequest&, dto::Job&), (override));
    MOCK_METHOD(int, FindMatchingRunningSyncJob, (const ImmutableString&, const JobParams&, dto::Job&), (override));
    MOCK_METHOD(bool, AcquireJobLock,
                (const ImmutableString&, const Guid&, std::string_view, JobCategory, std::shared_ptr<JobLock>&),
                (override));
    MOCK_METHOD(int, ChangeSyncJobState, (const Guid&, const ImmutableString&, dto::Job&), (override));
    MOCK_METHOD(void, RequestAutoShareSyncJob, (const ImmutableString&, const Guid&), (override));
    MOCK_METHOD(void, PermitRemoteConnections, (), (override));
    MOCK_METHOD(void, RestrictRemoteConnections, (), (override));
    MOCK_METHOD(void, PermitIdleSyncJobs, (), (override));
    MOCK_METHOD(void, RestrictIdleSyncJobs, (), (override));
    MOCK_METHOD(int, EngagePollingForSync, (const ImmutableString&, bool), (override));
    MOCK_METHOD(int, DisengagePollingForSync, (const ImmutableString&), (override));
    MOCK_METHOD(void, SyncPollingSessionsToRemote, (), (override));
    MOCK_METHOD(void, GetDifferences,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, DifferencesCompletion),
                (override));
    MOCK_METHOD(void, GetIncomingChanges, (const ImmutableString&, bool, DifferencesCompletion), (override));
    MOCK_METHOD(void, GetOutgoingChanges, (const ImmutableString&, bool, DifferencesCompletion), (override));
    MOCK_METHOD(void, PullIncomingChanges,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, ShareCompletion), (override));
    MOCK_METHOD(void, PushOutgoingChanges,
                (const ImmutableString&, const ImmutableString&, const CommitMessage&, const ImmutableString&,
                 ShareCompletion),
                (override));
    MOCK_METHOD(void, ResolveRemoteConflict, (const ImmutableString&, const BulkConflicts&, StatusCompletion),
                (override));
    MOCK_METHOD(void, ResolveAssetConflict, (const ImmutableString&, const ConflictDecision&, StatusCompletion),
                (override));
    MOCK_METHOD(void, ResolveProductionEnclosureConflict,
                (const ImmutableString&, const ConflictDecision&, StatusCompletion), (override));
    MOCK_METHOD(void, ResolveProductionPropertiesConflict,
                (const ImmutableString&, const ConflictDecision&, StatusCompletion), (override));
    MOCK_METHOD(void, DiscardLocalChanges, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(int, AddMediaLocators, (const ImmutableString&, std::vector<dto::MediaLocator>&), (override));
    MOCK_METHOD(int, EditMediaLocators, (const ImmutableString&, std::vector<dto::MediaLocator>&), (override));
    MOCK_METHOD(int, EditMediaLocators, (const ImmutableString&, dto::MediaLocator&), (override));
    MOCK_METHOD(std::vector<dto::RemoteLoginStatus>, GetRemoteHubStatusList, (), (override));
    MOCK_METHOD(void, ConnectToRemoteHub,
                (const ImmutableString&, const ImmutableString&, const dto::LoginCredentials&, LoginCompletion),
                (override));
    MOCK_METHOD(int, DisconnectFromRemoteHub, (const ImmutableString&), (override));
    MOCK_METHOD(int, GetCollaboratorsPresence, (const ImmutableString&, dto::PresenceResource&), (override));
    MOCK_METHOD(int, GetProductionBatons, (const ImmutableString&, dto::BatonsResource&), (override));
    MOCK_METHOD(void, AcquireProductionBaton, (const ImmutableString&, const ImmutableString&, StatusCompletion),
                (override));
    MOCK_METHOD(void, ReleaseProductionBaton, (const ImmutableString&, const ImmutableString&, StatusCompletion),
                (override));
    MOCK_METHOD(void, GetArchivedProductionList, (SessionListCompletion), (override));
    MOCK_METHOD(void, UnarchiveProduction, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(void, GetCollaborators, (const ImmutableString&, const ImmutableString&, CollaboratorsCompletion),
                (override));
    MOCK_METHOD(void, InviteCollaborators,
                (const ImmutableString&, const std::vector<dto::Invitation>&, CollaboratorsCompletion), (override));
    MOCK_METHOD(void, GetInvites, (const ImmutableString&, InvitesCompletion), (override));
    MOCK_METHOD(void, AcceptInvite, (const dto::Invite&, AcceptCompletion), (override));
    MOCK_METHOD(void, RejectInvite, (const dto::Invite&, StatusCompletion), (override));
    MOCK_METHOD(void, UpdateCollaboratorActivity, (const ImmutableString&, ActivityCompletion), (override));
    MOCK_METHOD(void, GetProductionList, (SessionListCompletion), (override));
    MOCK_METHOD(void, ArchiveProduction, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(void, DeleteRemoteProduction, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(int, GetProduction, (const ImmutableString&, dto::Session&), (override));
    MOCK_METHOD(int, CreateSession, (const dto::ProductionProperties&, const ImmutableString&, bool, dto::Session&),
                (override));
    MOCK_METHOD(void, CreateRemoteAssociatedSession, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(int, AssociateWithUserOnly, (const ImmutableString&, const ImmutableString&, bool), (override));
    MOCK_METHOD(int, OpenSnapshot,
                (const std::string&, const ImmutableString&, const dto::ProductionProperties&, bool, dto::Session&),
                (override));
    MOCK_METHOD(int, CloseSnapshot, (const ImmutableString&), (override));
    MOCK_METHOD(int, DisconnectOrDeleteSession, (const ImmutableString&, bool), (override));
    MOCK_METHOD(void, CreateLocalAssociatedSession, (const ImmutableString&, SessionCompletion), (override));
    MOCK_METHOD(void, CopyProduction,
                (const ImmutableString&, const ImmutableString&, const dto::ProductionProperties&, const std::string&,
                 bool, SessionCompletion),
                (override));
    MOCK_METHOD(void, CompactSession, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(int, CommitTransaction,
                (const ImmutableString&, const CommitMessage&, const ImmutableString&, CommitOutcome&), (override));
    MOCK_METHOD(void, RollbackSessionToRevision, (const ImmutableString&, const ImmutableString&, SessionCompletion),
                (override));
    MOCK_METHOD(void, RestoreAssetFromProduction,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, StatusCompletion), (override));
};

}  // namespace testing_support

// Made once, in MockSyncBox.cpp: every table of virtual functions would bring all mock methods with it.
extern template class testing::StrictMock<testing_support::MockSyncBox>;
