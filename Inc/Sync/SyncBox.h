#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Client/Wire/Collaborators.h"
#include "Client/Wire/Differences.h"
#include "Client/Wire/History.h"
#include "Client/Wire/MediaLocator.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/Session.h"
#include "Client/Wire/Status.h"
#include "Client/Wire/User.h"
#include "Inc/Model/StoreRecords.h"
#include "Inc/Sync/SyncRecords.h"
#include "Platform/noxcore/Lifetime.h"
#include "Platform/noxcore/Messaging.h"

namespace VantryLocalHub {

class RemoteHub;

/// The whole face of what concerns a remote hub, behind one interface. HubSync is its complete implementation.
///
/// Each component of the engine inherits this virtually and overrides its slice; it reaches the others through the
/// same interface. What no component overrides answers that it cannot be done: 501 where the result is a status or
/// goes to a completion, and else a count of 0, false, an empty list or text, or no object.
///
/// Results are HTTP statuses unless stated. A session is named by its local session id; an id without a link is 404.
/// Out arguments keep their value after a failure unless stated. An operation with a completion calls it exactly
/// once, on any thread, with no lock held; a completion may be empty. Nothing throws outward.
///
/// Threading: any thread. Locks: none of its own.
class SyncBox : public std::enable_shared_from_this<SyncBox>
{
public:
    using JobLock = VantryLocalHub::JobLock;
    using StatusCompletion = std::function<void(int inStatus)>;
    using SessionCompletion = std::function<void(int inStatus, const dto::Session& inSession)>;
    using SessionListCompletion = std::function<void(int inStatus, const std::vector<dto::Session>& inSessions)>;
    using DifferencesCompletion = std::function<void(int inStatus, const dto::DifferencesResource& inDifferences)>;
    using ShareCompletion = std::function<void(int inStatus, const dto::ShareResult& inResult)>;
    using LoginCompletion = std::function<void(int inStatus, const dto::LoginError& inError)>;
    using InvitesCompletion = std::function<void(int inStatus, const dto::InvitesResource& inInvites)>;
    using AcceptCompletion = std::function<void(int inStatus, const ImmutableString& inProductionID)>;
    using CollaboratorsCompletion =
        std::function<void(int inStatus, const dto::CollaboratorsResource& inCollaborators)>;
    using ActivityCompletion = std::function<void(int inStatus, const dto::ActivityResource& inActivity)>;
    using ProductionLinkCompletion = std::function<void(int inStatus, const dto::ProductionLink& inProduction)>;

    /// The state of a session's link changed.
    class SyncStatusChangedMessage : public noxcore::messaging::MessageBase<SyncStatusChangedMessage>
    {
    public:
        static constexpr std::string_view kTypeName = "VantryLocalHub::SyncBox::SyncStatusChangedMessage";
        explicit SyncStatusChangedMessage(ImmutableString inSessionID) : mSessionID(std::move(inSessionID)) {}
        const ImmutableString mSessionID;
    };

    /// Somebody opened or left a production.
    class CollaboratorsPresenceChangedMessage
        : public noxcore::messaging::MessageBase<CollaboratorsPresenceChangedMessage>
    {
    public:
        static constexpr std::string_view kTypeName = "VantryLocalHub::SyncBox::CollaboratorsPresenceChangedMessage";
        explicit CollaboratorsPresenceChangedMessage(ImmutableString inProductionID)
            : mProductionID(std::move(inProductionID))
        {
        }
        const ImmutableString mProductionID;
    };

    /// A baton of a production changed hands.
    class ProductionBatonsChangedMessage : public noxcore::messaging::MessageBase<ProductionBatonsChangedMessage>
    {
    public:
        static constexpr std::string_view kTypeName = "VantryLocalHub::SyncBox::ProductionBatonsChangedMessage";
        explicit ProductionBatonsChangedMessage(ImmutableString inProductionID)
            : mProductionID(std::move(inProductionID))
        {
        }
        const ImmutableString mProductionID;
    };

    /// A remote hub connected, disconnected or logged in.
    class RemoteHubStatusChangedMessage : public noxcore::messaging::MessageBase<RemoteHubStatusChangedMessage>
    {
    public:
        static constexpr std::string_view kTypeName = "VantryLocalHub::SyncBox::RemoteHubStatusChangedMessage";
    };

    /// An entry of the remote production list is new, different or gone.
    class RemoteProductionListItemChangedMessage
        : public noxcore::messaging::MessageBase<RemoteProductionListItemChangedMessage>
    {
    public:
        static constexpr std::string_view kTypeName = "VantryLocalHub::SyncBox::RemoteProductionListItemChangedMessage";
        explicit RemoteProductionListItemChangedMessage(dto::ProductionLink inItem) : mItem(std::move(inItem)) {}
        const dto::ProductionLink mItem;
    };

    /// The engine of the current hub; null, with a record, once it is shut. Whoever asks must be ready for that.
    static std::shared_ptr<SyncBox> Instance();
    static void SetInstance(std::shared_ptr<SyncBox> inInstance);
    /// Where the engine's messages are posted; made on first use.
    static std::shared_ptr<noxcore::messaging::MessageStation> Station();
    /// Withdraws the instance and waits until nobody holds it any more; disposes of the station.
    static void Close();

    SyncBox() = default;
    SyncBox(const SyncBox&) = delete;
    SyncBox& operator=(const SyncBox&) = delete;
    virtual ~SyncBox() = default;

    // 1 to 4: life
    virtual void Terminate();
    /// Gives back what no session's link has used since that moment of the monotonic clock.
    virtual void ReleaseUnusedDB(std::int64_t inCutOffTicks);
    virtual void PermitRemoteConnections();
    virtual void RestrictRemoteConnections();

    // 5 to 13: watching the remote side
    virtual int EngagePollingForSync(const ImmutableString& inSessionID, const DataServerRef& inServer,
                                     const EditingSessionRef& inRemoteSession);
    virtual int EngagePollingForSync(const ImmutableString& inSessionID, bool inForce);
    virtual int EngagePollingForSyncIfIsPollingForSync(const ImmutableString& inSessionID);
    virtual void DisengagePollingForSync(const DataServerRef& inServer);
    virtual int DisengagePollingForSync(const ImmutableString& inSessionID);
    virtual bool IsPollingForSync(const ImmutableString& inSessionID);
    virtual void SyncPollingSessionsToRemote();
    virtual int GetRemoteStatusCollection(const ImmutableString& inSessionID, dto::SessionStatus& outStatus);
    virtual std::vector<dto::HistoryVersion> GetRemoteChanges(const ImmutableString& inSessionID);

    // 14, 15: making the remote side of a local session
    virtual void CreateRemoteAssociatedSession(const ImmutableString& inSessionID, StatusCompletion inCompletion);
    virtual int GetCreationStatus(const ImmutableString& inSessionID);

    // 16 to 33: links
    virtual std::vector<SyncStatus> GetSyncStatus();
    /// The server by its URL, or by host and port.
    virtual std::vector<SyncStatus> GetSyncStatusForServer(const ImmutableString& inServerURL);
    /// Makes the link where there is none.
    virtual int GetSyncStatusForSession(const ImmutableString& inSessionID, SyncStatus& outStatus);
    /// The session has a remote side.
    virtual bool IsAssociated(const ImmutableString& inSessionID);
    /// The session belongs to a user of a remote hub, with a remote side or without.
    virtual bool IsLinked(const ImmutableString& inSessionID);
    /// Empty when no local session belongs to that production.
    virtual ImmutableString FindAssociatedLocalSession(const ImmutableString& inRemoteProductionID);
    virtual int AssociateForSync(const ImmutableString& inSessionID, const EditingSessionRef& inRemoteSession,
                                 const DataServerRef& inServer, const ImmutableString& inUserID);
    virtual int DisassociateForSync(const ImmutableString& inSessionID);
    virtual int ReassociateForSync(const ImmutableString& inSessionID, const ImmutableString& inUserID,
                                   const ImmutableString& inCorvaneID);
    virtual int AssociateWithUserOnly(const ImmutableString& inSessionID, const ImmutableString& inUserID,
                                      bool inLocalOnly);
    virtual ImmutableString GetRemoteProductionID(const ImmutableString& inSessionID);
    virtual ImmutableString GetUserID(const ImmutableString& inSessionID);
    virtual ImmutableString GetCorvaneID(const ImmutableString& inSessionID);
    virtual int RecordSyncPoint(const ImmutableString& inSessionID, const ImmutableString& inLocalRevision,
                                const ImmutableString& inRemoteRevision);
    virtual bool GetLatestSyncPoint(const ImmutableString& inSessionID, SyncPoint& outPoint);
    virtual int ReconstructLatestSyncPointFromHistory(const ImmutableString& inSessionID,
                                                      const std::vector<dto::HistoryVersion>& inHistory);
    virtual int UpdateRemoteRevisionList(const ImmutableString& inSessionID, const ImmutableString& inRemoteRevision);
    virtual void ClearRemoteChanges(const ImmutableString& inSessionID);

    // 34 to 39: media locators
    virtual int AddMediaLocators(const ImmutableString& inSessionID, std::vector<dto::MediaLocator>& ioLocators);
    virtual int EditMediaLocators(const ImmutableString& inSessionID, std::vector<dto::MediaLocator>& ioLocators);
    virtual int EditMediaLocators(const ImmutableString& inSessionID, dto::MediaLocator& ioLocator);
    virtual void UpdateRemoteMediaLocators(const ImmutableString& inSessionID, StatusCompletion inCompletion);
    virtual void UpdateLocalMediaLocators(const ImmutableString& inSessionID, StatusCompletion inCompletion);
    virtual void UpdateLinkedProductionMediaLocatorsLater(const ImmutableString& inSessionID,
                                                          const ImmutableString& inLinkedSourceSessionID);

    // 40 to 47: differences and sharing
    virtual void GetDifferences(const ImmutableString& inSessionID, const ImmutableString& inFromRevision,
                                const ImmutableString& inToRevision, DifferencesCompletion inCompletion);
    virtual int LoadDifferences(const ImmutableString& inSessionID, const ImmutableString& inFromRevision,
                                const ImmutableString& inToRevision, const CompoundAsyncOperationRef& inOperation);
    virtual void GetOutgoingChanges(const ImmutableString& inSessionID, bool inForce,
                                    DifferencesCompletion inCompletion);
    virtual void GetIncomingChanges(const ImmutableString& inSessionID, bool inForce,
                                    DifferencesCompletion inCompletion);
    virtual void PullIncomingChanges(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                     const ImmutableString& inMergeStrategy, ShareCompletion inCompletion);
    virtual void PushOutgoingChanges(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                     const CommitMessage& inMessage, const ImmutableString& inResolveStrategy,
                                     ShareCompletion inCompletion);
    /// The hook after a push.
    virtual void AutoShare(const ImmutableString& inSessionID, StatusCompletion inCompletion);
    virtual void CacheDifferences(const ImmutableString& inSessionID, const ImmutableString& inFromRevision,
                                  const ImmutableString& inToRevision, const dto::DifferencesResource& inDifferences);

    // 48 to 62: jobs
    virtual std::vector<dto::Job> GetSyncJobs();
    virtual std::vector<dto::Job> GetSyncJobs(const ImmutableString& inSessionID);
    virtual std::size_t GetUnfinishedSyncJobCount();
    /// The session's status in outStatus, and its server where the state lets it be used.
    virtual int GetDataServerForSession(const ImmutableString& inSessionID, SyncStatus& outStatus,
                                        DataServerRef& outServer);
    /// Whether such a job may run and must: 200 yes, 206 the sync point has to be rewound first, 304 nothing to do,
    /// 400, 401, 403, 412, 426 no. outStatus is always written.
    virtual int GetSyncRequestStatus(const ImmutableString& inSessionID, const JobParams& inParams,
                                     SyncStatus& outStatus);
    /// 201 a new job, 200 one that runs already, 304, 412 not now, 424 the engine ends.
    virtual int RequestSyncJob(const SyncJobRequest& inRequest, dto::Job& outJob);
    /// 412 when none runs.
    virtual int FindMatchingRunningSyncJob(const ImmutableString& inSessionID, const JobParams& inParams,
                                           dto::Job& outJob);
    virtual void RequestAutoShareSyncJob(const ImmutableString& inSessionID, const Guid& inJobToSuppress);
    /// False while somebody else holds the session's lock of that category. The requester's name is for the log.
    virtual bool AcquireJobLock(const ImmutableString& inSessionID, const Guid& inJobID, std::string_view inRequester,
                                JobCategory inCategory, std::shared_ptr<JobLock>& outLock);
    /// 200; 400: the state is no cancellation; 404: no such job.
    virtual int ChangeSyncJobState(const Guid& inJobID, const ImmutableString& inNewState, dto::Job& outJob);
    virtual void PermitIdleSyncJobs();
    virtual void UpdateIdlePushSyncJobs();
    virtual void RestrictIdleSyncJobs();
    virtual void UpdateIdlePullSyncJobForSession(const ImmutableString& inSessionID);
    virtual void RunUnfinishedSyncJobs();

    // 63 to 75: remote hubs and the people there
    virtual void ConnectToRemoteHub(const ImmutableString& inServerURL, const ImmutableString& inServerType,
                                    const dto::LoginCredentials& inCredentials, LoginCompletion inCompletion);
    virtual int DisconnectFromRemoteHub(const ImmutableString& inServerURL);
    virtual std::vector<dto::RemoteLoginStatus> GetRemoteHubStatusList();
    /// Null while nobody is logged in anywhere.
    virtual DataServerRef GetLoggedInDataServer();
    virtual std::shared_ptr<RemoteHub> GetRemoteHub(const DataServerRef& inServer);
    virtual void GetInvites(const ImmutableString& inType, InvitesCompletion inCompletion);
    virtual void AcceptInvite(const dto::Invite& inInvite, AcceptCompletion inCompletion);
    virtual void RejectInvite(const dto::Invite& inInvite, StatusCompletion inCompletion);
    virtual void InviteCollaborators(const ImmutableString& inProductionID,
                                     const std::vector<dto::Invitation>& inInvitations,
                                     CollaboratorsCompletion inCompletion);
    virtual void GetCollaborators(const ImmutableString& inProductionID, const ImmutableString& inRemoteProductionID,
                                  CollaboratorsCompletion inCompletion);
    virtual std::vector<dto::HistoryVersion> GetLatestCachedProductionHistory(const ImmutableString& inProductionID);
    /// Makes the activity of a session's collaborators anew and tells them of ours.
    virtual void UpdateCollaboratorActivity(const ImmutableString& inSessionID, ActivityCompletion inCompletion);
    virtual int GetRemoteSession(const ImmutableString& inSessionID, const ImmutableString& inRemoteRevision,
                                 DataServerRef& outServer, ProductionRef& outProduction);

    // 76 to 91: productions, local and remote as one
    /// The user's productions: local sessions and the remote hub's, each once. Completes with 200 or a failure.
    virtual void GetProductionList(SessionListCompletion inCompletion);
    virtual void GetArchivedProductionList(SessionListCompletion inCompletion);
    /// Of a production in the remote list; empty when it is not there.
    virtual ImmutableString GetRemoteProductionURL(const ImmutableString& inRemoteProductionID);
    virtual ImmutableString GetRemoteProductionURN(const ImmutableString& inRemoteProductionID);
    virtual bool IsConnectedDataServer(const DataServerRef& inServer);
    virtual bool IsLoggedInDataServer(const DataServerRef& inServer);
    virtual void CreateRemoteProduction(const dto::ProductionProperties& inProperties,
                                        ProductionLinkCompletion inCompletion);
    /// A server's own list. False while it has not been loaded; outProductions is empty then.
    virtual bool GetProductionList(const ImmutableString& inServerURL,
                                   std::vector<dto::ProductionLink>& outProductions);
    /// The archived ones of the logged-in server; of one production.
    virtual bool GetArchivedProductionList(std::vector<dto::ProductionLink>& outProductions);
    virtual bool GetArchivedProduction(const ImmutableString& inRemoteProductionID, dto::ProductionLink& outProduction);
    virtual void ArchiveProduction(const ImmutableString& inProductionID, StatusCompletion inCompletion);
    virtual void UnarchiveProduction(const ImmutableString& inRemoteProductionID, StatusCompletion inCompletion);
    virtual void RenameProduction(const ImmutableString& inRemoteProductionID, const std::string& inName,
                                  StatusCompletion inCompletion);
    virtual void DeleteRemoteProduction(const ImmutableString& inRemoteProductionID, StatusCompletion inCompletion);
    /// One production as the merged list shows it.
    virtual int GetProduction(const ImmutableString& inProductionID, dto::Session& outProduction);
    /// 201. The user's e-mail may be empty: nobody is signed in.
    virtual int CreateSession(const dto::ProductionProperties& inProperties, const ImmutableString& inUserEmail,
                              bool inLocalOnly, dto::Session& outSession);

    // 92 to 102: opening, closing, copying
    virtual int OpenSnapshot(const std::string& inZipFile, const ImmutableString& inRootAssetID,
                             const dto::ProductionProperties& inProperties, bool inCreateSession,
                             dto::Session& outSession);
    virtual int CloseSnapshot(const ImmutableString& inSessionID);
    /// 204. The session goes for good when inDeleteNow is set, or when it has been cut off for long enough and holds
    /// nothing that was never sent.
    virtual int DisconnectOrDeleteSession(const ImmutableString& inSessionID, bool inDeleteNow);
    /// 204. The session's files stay. What is known of the session is read anew with the next question; of one that the
    /// store does not have, nothing is known any more: 404.
    virtual int DisconnectAndCloseSession(const ImmutableString& inSessionID);
    virtual void CreateLocalAssociatedSession(const ImmutableString& inRemoteProductionID,
                                              const ImmutableString& inServerURL, const ImmutableString& inUserID,
                                              SessionCompletion inCompletion);
    virtual void CreateLocalAssociatedSession(const ImmutableString& inProductionID, SessionCompletion inCompletion);
    virtual void CopyProduction(const ImmutableString& inProductionID, const ImmutableString& inRevision,
                                const dto::ProductionProperties& inProperties, const std::string& inLocation,
                                bool inLocalOnly, SessionCompletion inCompletion);
    virtual void CompactSession(const ImmutableString& inSessionID, StatusCompletion inCompletion);
    virtual int ConfirmRemoteProductionAccess(const ImmutableString& inRemoteProductionID);
    /// True only when the session's remote side is surely gone and the local copy holds nothing else.
    virtual bool CanSessionBeScheduledForCleanup(const ImmutableString& inSessionID);
    virtual void ReconnectDisconnectedSessions(const ImmutableString& inRemoteProductionID);

    // 103 to 105: changing a session
    /// 200 and what was committed, or the store's status. Sync follows in the background and is no part of the result.
    /// A resolve strategy that is not empty clears the conflict marks of what the transaction changes.
    virtual int CommitTransaction(const ImmutableString& inTransactionID, const CommitMessage& inMessage,
                                  const ImmutableString& inResolveStrategy, CommitOutcome& outOutcome);
    /// 200 with the session at that revision; 304: jobs kept the session busy for all attempts.
    virtual void RollbackSessionToRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                           SessionCompletion inCompletion);
    virtual int RenameRemoteProduction(const ImmutableString& inSessionID, const std::string& inName);

    // 106 to 114: conflicts
    virtual void ResolveRemoteConflict(const ImmutableString& inSessionID, const BulkConflicts& inConflicts,
                                       StatusCompletion inCompletion);
    virtual void ResolveAssetConflict(const ImmutableString& inSessionID, const ConflictDecision& inDecision,
                                      StatusCompletion inCompletion);
    virtual void ResolveProductionEnclosureConflict(const ImmutableString& inSessionID,
                                                    const ConflictDecision& inDecision, StatusCompletion inCompletion);
    virtual void ResolveProductionPropertiesConflict(const ImmutableString& inSessionID,
                                                     const ConflictDecision& inDecision, StatusCompletion inCompletion);
    virtual void DiscardLocalChanges(const ImmutableString& inSessionID, StatusCompletion inCompletion);
    virtual int EngageSessionConflictState(const ImmutableString& inSessionID, const ImmutableString& inRemoteRevision);
    /// No conflict state: the session is not in conflict any more.
    virtual int UpdateSessionConflictState(const ImmutableString& inSessionID,
                                           const std::optional<ImmutableString>& inConflictState);
    virtual void RestoreAssetFromProduction(const ImmutableString& inSessionID, const ImmutableString& inProductionID,
                                            const ImmutableString& inAssetID, StatusCompletion inCompletion);
    virtual void ResolveRestoredAssetConflicts(const ImmutableString& inSessionID,
                                               const std::set<ImmutableString>& inAssetIDs,
                                               StatusCompletion inCompletion);

    // 115 to 121: batons, presence, servers
    virtual void AcquireProductionBaton(const ImmutableString& inSessionID, const ImmutableString& inAssetID,
                                        StatusCompletion inCompletion);
    virtual void ReleaseProductionBaton(const ImmutableString& inSessionID, const ImmutableString& inAssetID,
                                        StatusCompletion inCompletion);
    virtual int GetProductionBatons(const ImmutableString& inSessionID, dto::BatonsResource& outBatons);
    virtual int GetCollaboratorsPresence(const ImmutableString& inSessionID, dto::PresenceResource& outPresence);
    virtual void TerminateSyncJobsForSession(const ImmutableString& inSessionID);
    virtual DataServerRef GetDataServer(const ImmutableString& inServerURL);
    virtual bool GetArchivedProductionList(const ImmutableString& inServerURL,
                                           std::vector<dto::ProductionLink>& outProductions);

private:
    const noxcore::Lifetime mLifetime;  ///< tells Close when the last holder has let go
};

}  // namespace VantryLocalHub
