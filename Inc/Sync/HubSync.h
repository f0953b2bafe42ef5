#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "Inc/Sync/Differentiator.h"
#include "Inc/Sync/JobControl.h"
#include "Inc/Sync/LocalSessionCreator.h"
#include "Inc/Sync/MediaLocatorInterchange.h"
#include "Inc/Sync/ProductionMesh.h"
#include "Inc/Sync/RemoteSessionCreator.h"
#include "Inc/Sync/Remotes.h"
#include "Inc/Sync/ResolutionCentre.h"
#include "Inc/Sync/SharingRelay.h"
#include "Inc/Sync/SyncBox.h"
#include "Inc/Sync/TeamworkNotator.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// The sync engine: all components in one object, and the links between local sessions and their remote sides.
///
/// Threading: any thread. mMutex guards the map of links alone (rank HubSync, before a SyncLink); a link is called
/// after it was given back.
class HubSync : public Remotes,
                public JobControl,
                public ProductionMesh,
                public TeamworkNotator,
                public SharingRelay,
                public ResolutionCentre,
                public Differentiator,
                public MediaLocatorInterchange,
                public LocalSessionCreator,
                public RemoteSessionCreator
{
public:
    class SyncLink;

    HubSync();
    ~HubSync() override;

    void Terminate() override;
    void ReleaseUnusedDB(std::int64_t inCutOffTicks) override;

    std::vector<SyncStatus> GetSyncStatus() override;
    std::vector<SyncStatus> GetSyncStatusForServer(const ImmutableString& inServerURL) override;
    int GetSyncStatusForSession(const ImmutableString& inSessionID, SyncStatus& outStatus) override;
    int GetSyncRequestStatus(const ImmutableString& inSessionID, const JobParams& inParams,
                             SyncStatus& outStatus) override;
    bool IsAssociated(const ImmutableString& inSessionID) override;
    bool IsLinked(const ImmutableString& inSessionID) override;
    ImmutableString FindAssociatedLocalSession(const ImmutableString& inRemoteProductionID) override;
    ImmutableString GetRemoteProductionID(const ImmutableString& inSessionID) override;
    ImmutableString GetUserID(const ImmutableString& inSessionID) override;
    ImmutableString GetCorvaneID(const ImmutableString& inSessionID) override;
    bool GetLatestSyncPoint(const ImmutableString& inSessionID, SyncPoint& outPoint) override;

    int AssociateWithUserOnly(const ImmutableString& inSessionID, const ImmutableString& inUserID,
                              bool inLocalOnly) override;
    int DisassociateForSync(const ImmutableString& inSessionID) override;
    int RecordSyncPoint(const ImmutableString& inSessionID, const ImmutableString& inLocalRevision,
                        const ImmutableString& inRemoteRevision) override;
    int UpdateRemoteRevisionList(const ImmutableString& inSessionID, const ImmutableString& inRemoteRevision) override;
    int EngageSessionConflictState(const ImmutableString& inSessionID,
                                   const ImmutableString& inRemoteRevision) override;
    int UpdateSessionConflictState(const ImmutableString& inSessionID,
                                   const std::optional<ImmutableString>& inConflictState) override;

    int DisconnectOrDeleteSession(const ImmutableString& inSessionID, bool inDeleteNow) override;
    int DisconnectAndCloseSession(const ImmutableString& inSessionID) override;
    void ReconnectDisconnectedSessions(const ImmutableString& inRemoteProductionID) override;

private:
    using SyncLinkPtr = std::shared_ptr<SyncLink>;
    using LinkMap = std::map<ImmutableString, SyncLinkPtr>;  ///< local session id -> link

    /// The link of a session or production id; null where none was made.
    SyncLinkPtr GetSyncLink(const ImmutableString& inID);
    /// Null for a session that the store does not have or cannot open. A link whose session cannot be read now is made
    /// anew with each call.
    SyncLinkPtr GetOrCreateSyncLink(const ImmutableString& inID);
    SyncLinkPtr FindLink(const ImmutableString& inSessionID);
    /// The link that is in the map now: of two that are made at once the first one stays. Null where links were removed
    /// since that count was taken and none is there: what the given one has read may be past.
    SyncLinkPtr InsertLink(const SyncLinkPtr& inLink, std::uint64_t inRemovals);
    /// By session or production id; null where there is none. One that is being read meanwhile is read again.
    SyncLinkPtr RemoveLink(const ImmutableString& inID);
    std::vector<SyncLinkPtr> AllLinks();

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::HubSync};
    LinkMap mLinks GUARDED_BY(mMutex);
    std::uint64_t mRemovals GUARDED_BY(mMutex) = 0;  // of links, whether they were there or not
};

}  // namespace VantryLocalHub
