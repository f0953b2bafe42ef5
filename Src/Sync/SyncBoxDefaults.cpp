#include "Inc/Sync/SyncBox.h"

// What an operation answers while no component does its work.

namespace VantryLocalHub {

namespace {

constexpr int kNotImplemented = 501;

template <class Completion, class... Nothing>
void Decline(const Completion& inCompletion, const Nothing&... inNothing)
{
    if (inCompletion) inCompletion(kNotImplemented, inNothing...);
}

}  // namespace

void SyncBox::Terminate() {}
void SyncBox::ReleaseUnusedDB(std::int64_t) {}
void SyncBox::PermitRemoteConnections() {}
void SyncBox::RestrictRemoteConnections() {}
int SyncBox::EngagePollingForSync(const ImmutableString&, const DataServerRef&, const EditingSessionRef&)
{
    return kNotImplemented;
}
int SyncBox::EngagePollingForSync(const ImmutableString&, bool)
{
    return kNotImplemented;
}
int SyncBox::EngagePollingForSyncIfIsPollingForSync(const ImmutableString&)
{
    return kNotImplemented;
}
void SyncBox::DisengagePollingForSync(const DataServerRef&) {}
int SyncBox::DisengagePollingForSync(const ImmutableString&)
{
    return kNotImplemented;
}
bool SyncBox::IsPollingForSync(const ImmutableString&)
{
    return false;
}
void SyncBox::SyncPollingSessionsToRemote() {}
int SyncBox::GetRemoteStatusCollection(const ImmutableString&, dto::SessionStatus&)
{
    return kNotImplemented;
}
std::vector<dto::HistoryVersion> SyncBox::GetRemoteChanges(const ImmutableString&)
{
    return {};
}
void SyncBox::CreateRemoteAssociatedSession(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
int SyncBox::GetCreationStatus(const ImmutableString&)
{
    return kNotImplemented;
}
std::vector<SyncStatus> SyncBox::GetSyncStatus()
{
    return {};
}
std::vector<SyncStatus> SyncBox::GetSyncStatusForServer(const ImmutableString&)
{
    return {};
}
int SyncBox::GetSyncStatusForSession(const ImmutableString&, SyncStatus&)
{
    return kNotImplemented;
}
bool SyncBox::IsAssociated(const ImmutableString&)
{
    return false;
}
bool SyncBox::IsLinked(const ImmutableString&)
{
    return false;
}
ImmutableString SyncBox::FindAssociatedLocalSession(const ImmutableString&)
{
    return {};
}
int SyncBox::AssociateForSync(const ImmutableString&, const EditingSessionRef&, const DataServerRef&,
                              const ImmutableString&)
{
    return kNotImplemented;
}
int SyncBox::DisassociateForSync(const ImmutableString&)
{
    return kNotImplemented;
}
int SyncBox::ReassociateForSync(const ImmutableString&, const ImmutableString&, const ImmutableString&)
{
    return kNotImplemented;
}
int SyncBox::AssociateWithUserOnly(const ImmutableString&, const ImmutableString&, bool)
{
    return kNotImplemented;
}
ImmutableString SyncBox::GetRemoteProductionID(const ImmutableString&)
{
    return {};
}
ImmutableString SyncBox::GetUserID(const ImmutableString&)
{
    return {};
}
ImmutableString SyncBox::GetCorvaneID(const ImmutableString&)
{
    return {};
}
int SyncBox::RecordSyncPoint(const ImmutableString&, const ImmutableString&, const ImmutableString&)
{
    return kNotImplemented;
}
bool SyncBox::GetLatestSyncPoint(const ImmutableString&, SyncPoint&)
{
    return false;
}
int SyncBox::ReconstructLatestSyncPointFromHistory(const ImmutableString&, const std::vector<dto::HistoryVersion>&)
{
    return kNotImplemented;
}
int SyncBox::UpdateRemoteRevisionList(const ImmutableString&, const ImmutableString&)
{
    return kNotImplemented;
}
void SyncBox::ClearRemoteChanges(const ImmutableString&) {}
int SyncBox::AddMediaLocators(const ImmutableString&, std::vector<dto::MediaLocator>&)
{
    return kNotImplemented;
}
int SyncBox::EditMediaLocators(const ImmutableString&, std::vector<dto::MediaLocator>&)
{
    return kNotImplemented;
}
int SyncBox::EditMediaLocators(const ImmutableString&, dto::MediaLocator&)
{
    return kNotImplemented;
}
void SyncBox::UpdateRemoteMediaLocators(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::UpdateLocalMediaLocators(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::UpdateLinkedProductionMediaLocatorsLater(const ImmutableString&, const ImmutableString&) {}
void SyncBox::GetDifferences(const ImmutableString&, const ImmutableString&, const ImmutableString&,
                             DifferencesCompletion inCompletion)
{
    Decline(inCompletion, dto::DifferencesResource());
}
int SyncBox::LoadDifferences(const ImmutableString&, const ImmutableString&, const ImmutableString&,
                             const CompoundAsyncOperationRef&)
{
    return kNotImplemented;
}
void SyncBox::GetOutgoingChanges(const ImmutableString&, bool, DifferencesCompletion inCompletion)
{
    Decline(inCompletion, dto::DifferencesResource());
}
void SyncBox::GetIncomingChanges(const ImmutableString&, bool, DifferencesCompletion inCompletion)
{
    Decline(inCompletion, dto::DifferencesResource());
}
void SyncBox::PullIncomingChanges(const ImmutableString&, const ImmutableString&, const ImmutableString&,
                                  ShareCompletion inCompletion)
{
    Decline(inCompletion, dto::ShareResult());
}
void SyncBox::PushOutgoingChanges(const ImmutableString&, const ImmutableString&, const CommitMessage&,
                                  const ImmutableString&, ShareCompletion inCompletion)
{
    Decline(inCompletion, dto::ShareResult());
}
void SyncBox::AutoShare(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::CacheDifferences(const ImmutableString&, const ImmutableString&, const ImmutableString&,
                               const dto::DifferencesResource&)
{
}
std::vector<dto::Job> SyncBox::GetSyncJobs()
{
    return {};
}
std::vector<dto::Job> SyncBox::GetSyncJobs(const ImmutableString&)
{
    return {};
}
std::size_t SyncBox::GetUnfinishedSyncJobCount()
{
    return 0;
}
int SyncBox::GetDataServerForSession(const ImmutableString&, SyncStatus&, DataServerRef&)
{
    return kNotImplemented;
}
int SyncBox::GetSyncRequestStatus(const ImmutableString&, const JobParams&, SyncStatus&)
{
    return kNotImplemented;
}
int SyncBox::RequestSyncJob(const SyncJobRequest&, dto::Job&)
{
    return kNotImplemented;
}
int SyncBox::FindMatchingRunningSyncJob(const ImmutableString&, const JobParams&, dto::Job&)
{
    return kNotImplemented;
}
void SyncBox::RequestAutoShareSyncJob(const ImmutableString&, const Guid&) {}
bool SyncBox::AcquireJobLock(const ImmutableString&, const Guid&, std::string_view, JobCategory,
                             std::shared_ptr<JobLock>&)
{
    return false;
}
int SyncBox::ChangeSyncJobState(const Guid&, const ImmutableString&, dto::Job&)
{
    return kNotImplemented;
}
void SyncBox::PermitIdleSyncJobs() {}
void SyncBox::UpdateIdlePushSyncJobs() {}
void SyncBox::RestrictIdleSyncJobs() {}
void SyncBox::UpdateIdlePullSyncJobForSession(const ImmutableString&) {}
void SyncBox::RunUnfinishedSyncJobs() {}
void SyncBox::ConnectToRemoteHub(const ImmutableString&, const ImmutableString&, const dto::LoginCredentials&,
                                 LoginCompletion inCompletion)
{
    Decline(inCompletion, dto::LoginError());
}
int SyncBox::DisconnectFromRemoteHub(const ImmutableString&)
{
    return kNotImplemented;
}
std::vector<dto::RemoteLoginStatus> SyncBox::GetRemoteHubStatusList()
{
    return {};
}
DataServerRef SyncBox::GetLoggedInDataServer()
{
    return {};
}
std::shared_ptr<RemoteHub> SyncBox::GetRemoteHub(const DataServerRef&)
{
    return {};
}
void SyncBox::GetInvites(const ImmutableString&, InvitesCompletion inCompletion)
{
    Decline(inCompletion, dto::InvitesResource());
}
void SyncBox::AcceptInvite(const dto::Invite&, AcceptCompletion inCompletion)
{
    Decline(inCompletion, ImmutableString());
}
void SyncBox::RejectInvite(const dto::Invite&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::InviteCollaborators(const ImmutableString&, const std::vector<dto::Invitation>&,
                                  CollaboratorsCompletion inCompletion)
{
    Decline(inCompletion, dto::CollaboratorsResource());
}
void SyncBox::GetCollaborators(const ImmutableString&, const ImmutableString&, CollaboratorsCompletion inCompletion)
{
    Decline(inCompletion, dto::CollaboratorsResource());
}
std::vector<dto::HistoryVersion> SyncBox::GetLatestCachedProductionHistory(const ImmutableString&)
{
    return {};
}
void SyncBox::UpdateCollaboratorActivity(const ImmutableString&, ActivityCompletion inCompletion)
{
    Decline(inCompletion, dto::ActivityResource());
}
int SyncBox::GetRemoteSession(const ImmutableString&, const ImmutableString&, DataServerRef&, ProductionRef&)
{
    return kNotImplemented;
}
void SyncBox::GetProductionList(SessionListCompletion inCompletion)
{
    Decline(inCompletion, std::vector<dto::Session>());
}
void SyncBox::GetArchivedProductionList(SessionListCompletion inCompletion)
{
    Decline(inCompletion, std::vector<dto::Session>());
}
ImmutableString SyncBox::GetRemoteProductionURL(const ImmutableString&)
{
    return {};
}
ImmutableString SyncBox::GetRemoteProductionURN(const ImmutableString&)
{
    return {};
}
bool SyncBox::IsConnectedDataServer(const DataServerRef&)
{
    return false;
}
bool SyncBox::IsLoggedInDataServer(const DataServerRef&)
{
    return false;
}
void SyncBox::CreateRemoteProduction(const dto::ProductionProperties&, ProductionLinkCompletion inCompletion)
{
    Decline(inCompletion, dto::ProductionLink());
}
bool SyncBox::GetProductionList(const ImmutableString&, std::vector<dto::ProductionLink>& outProductions)
{
    outProductions.clear();
    return false;
}
bool SyncBox::GetArchivedProductionList(std::vector<dto::ProductionLink>& outProductions)
{
    outProductions.clear();
    return false;
}
bool SyncBox::GetArchivedProduction(const ImmutableString&, dto::ProductionLink&)
{
    return false;
}
void SyncBox::ArchiveProduction(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::UnarchiveProduction(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::RenameProduction(const ImmutableString&, const std::string&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::DeleteRemoteProduction(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
int SyncBox::GetProduction(const ImmutableString&, dto::Session&)
{
    return kNotImplemented;
}
int SyncBox::CreateSession(const dto::ProductionProperties&, const ImmutableString&, bool, dto::Session&)
{
    return kNotImplemented;
}
int SyncBox::OpenSnapshot(const std::string&, const ImmutableString&, const dto::ProductionProperties&, bool,
                          dto::Session&)
{
    return kNotImplemented;
}
int SyncBox::CloseSnapshot(const ImmutableString&)
{
    return kNotImplemented;
}
int SyncBox::DisconnectOrDeleteSession(const ImmutableString&, bool)
{
    return kNotImplemented;
}
int SyncBox::DisconnectAndCloseSession(const ImmutableString&)
{
    return kNotImplemented;
}
void SyncBox::CreateLocalAssociatedSession(const ImmutableString&, const ImmutableString&, const ImmutableString&,
                                           SessionCompletion inCompletion)
{
    Decline(inCompletion, dto::Session());
}
void SyncBox::CreateLocalAssociatedSession(const ImmutableString&, SessionCompletion inCompletion)
{
    Decline(inCompletion, dto::Session());
}
void SyncBox::CopyProduction(const ImmutableString&, const ImmutableString&, const dto::ProductionProperties&,
                             const std::string&, bool, SessionCompletion inCompletion)
{
    Decline(inCompletion, dto::Session());
}
void SyncBox::CompactSession(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
int SyncBox::ConfirmRemoteProductionAccess(const ImmutableString&)
{
    return kNotImplemented;
}
bool SyncBox::CanSessionBeScheduledForCleanup(const ImmutableString&)
{
    return false;
}
void SyncBox::ReconnectDisconnectedSessions(const ImmutableString&) {}
int SyncBox::CommitTransaction(const ImmutableString&, const CommitMessage&, const ImmutableString&, CommitOutcome&)
{
    return kNotImplemented;
}
void SyncBox::RollbackSessionToRevision(const ImmutableString&, const ImmutableString&, SessionCompletion inCompletion)
{
    Decline(inCompletion, dto::Session());
}
int SyncBox::RenameRemoteProduction(const ImmutableString&, const std::string&)
{
    return kNotImplemented;
}
void SyncBox::ResolveRemoteConflict(const ImmutableString&, const BulkConflicts&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::ResolveAssetConflict(const ImmutableString&, const ConflictDecision&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::ResolveProductionEnclosureConflict(const ImmutableString&, const ConflictDecision&,
                                                 StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::ResolveProductionPropertiesConflict(const ImmutableString&, const ConflictDecision&,
                                                  StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::DiscardLocalChanges(const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
int SyncBox::EngageSessionConflictState(const ImmutableString&, const ImmutableString&)
{
    return kNotImplemented;
}
int SyncBox::UpdateSessionConflictState(const ImmutableString&, const std::optional<ImmutableString>&)
{
    return kNotImplemented;
}
void SyncBox::RestoreAssetFromProduction(const ImmutableString&, const ImmutableString&, const ImmutableString&,
                                         StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::ResolveRestoredAssetConflicts(const ImmutableString&, const std::set<ImmutableString>&,
                                            StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::AcquireProductionBaton(const ImmutableString&, const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
void SyncBox::ReleaseProductionBaton(const ImmutableString&, const ImmutableString&, StatusCompletion inCompletion)
{
    Decline(inCompletion);
}
int SyncBox::GetProductionBatons(const ImmutableString&, dto::BatonsResource&)
{
    return kNotImplemented;
}
int SyncBox::GetCollaboratorsPresence(const ImmutableString&, dto::PresenceResource&)
{
    return kNotImplemented;
}
void SyncBox::TerminateSyncJobsForSession(const ImmutableString&) {}
DataServerRef SyncBox::GetDataServer(const ImmutableString&)
{
    return {};
}
bool SyncBox::GetArchivedProductionList(const ImmutableString&, std::vector<dto::ProductionLink>& outProductions)
{
    outProductions.clear();
    return false;
}

}  // namespace VantryLocalHub
