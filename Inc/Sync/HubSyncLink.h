#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Inc/Sync/HubSync.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// What is known of the relation between one local session and its remote side. It caches: the session's sync
/// database is the authority, and every change is written there first.
///
/// Results are HTTP statuses unless stated. Threading: any thread. Locks: mMutex guards all fields (rank SyncLink,
/// after HubSync); it is given back before a session is loaded, a complaint filed or a message posted.
class HubSync::SyncLink
{
public:
    /// Reads the fields from the session's sync database. Where that fails the link is one of a session that is local
    /// only: nothing is sent that may have to stay.
    SyncLink(ImmutableString inLocalSessionID, ImmutableString inLocalProductionID);
    SyncLink(const SyncLink&) = delete;
    SyncLink& operator=(const SyncLink&) = delete;

    /// Computes the status anew, and tells listeners when its state is another than last time.
    void DetermineSyncStatus(SyncBox& inEngine, SyncStatus& outStatus);
    int GetSyncRequestStatus(SyncBox& inEngine, const JobParams& inParams, SyncStatus& outStatus);

    /// False: the link does not know what its session is linked to, and is not to be kept.
    [[nodiscard]] bool WasRead() const { return mWasRead; }
    [[nodiscard]] const ImmutableString& LocalSessionID() const { return mLocalSessionID; }
    [[nodiscard]] const ImmutableString& LocalProductionID() const { return mLocalProductionID; }
    [[nodiscard]] bool IsAssociated() const;
    [[nodiscard]] bool IsForciblyDisconnected() const;
    [[nodiscard]] ImmutableString GetRemoteServerURL() const;
    [[nodiscard]] ImmutableString GetRemoteProductionID() const;
    [[nodiscard]] ImmutableString GetUserID() const;
    [[nodiscard]] ImmutableString GetCorvaneID() const;
    /// False when there is none; outPoint keeps its value then.
    bool GetLatestSyncPoint(SyncPoint& outPoint) const;

    /// 200 or 500. A session that is local only stays so over restarts; that is written before its user.
    int AssociateWithUserOnly(const ImmutableString& inUserID, const ImmutableString& inCorvaneID, bool inLocalOnly);
    /// 200 or 500; 200 as well when there was no association.
    int DisassociateForSync();
    /// 200 or 500. Both must be revisions, not names of moving ends; 500 leaves the sync point as it was.
    int RecordSyncPoint(const ImmutableString& inLocalRevision, const ImmutableString& inRemoteRevision);
    /// Takes note of a newer remote revision; one that is known already changes nothing.
    void UpdateRemoteRevisionList(const ImmutableString& inRemoteRevision);
    /// No conflict state: the session is in conflict no more.
    void UpdateSessionConflictState(const std::optional<ImmutableString>& inConflictState);

    /// Cuts the session off, with a complaint. True when it is to be deleted: at once, which whoever does it knows and
    /// nothing is complained of, or because it has been cut off for long enough and holds nothing that was never sent.
    bool DisconnectOrDelete(bool inDeleteNow);
    /// Takes back the complaint of DisconnectOrDelete.
    void WithdrawComplaint();
    /// Undoes DisconnectOrDelete, once the server grants access again.
    void Reconnect();
    /// Gives back what can be read again, unless the link was used after that time or is in use now.
    void ReleaseIfUnused(std::int64_t inCutOffTicks);

private:
    ImmutableString SelectState(SyncBox& inEngine) const;
    void DetermineTargets(SyncStatus& ioStatus);
    void RefreshLocalRevisions(const ImmutableString& inHead, const ImmutableString& inSyncPointRevision);
    bool NeedsToPullRemoteRevision(const ImmutableString& inRemoteRevision) const;
    bool HasDisconnectionExpired() const;
    void StoreStatus(const SyncStatus& inStatus);
    void TouchLocked() REQUIRES(mMutex);

    // Constant after construction.
    const ImmutableString mLocalSessionID;
    const ImmutableString mLocalProductionID;
    bool mWasRead = false;

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::SyncLink};
    ImmutableString mServerURL GUARDED_BY(mMutex);
    ImmutableString mUserID GUARDED_BY(mMutex);
    ImmutableString mCorvaneID GUARDED_BY(mMutex);
    bool mLocalOnly GUARDED_BY(mMutex) = false;
    ImmutableString mRemoteProductionID GUARDED_BY(mMutex);
    ImmutableString mRemoteSessionID GUARDED_BY(mMutex);
    std::vector<ImmutableString> mLocalRevisions GUARDED_BY(mMutex);   // after the sync point, newest last
    std::vector<ImmutableString> mRemoteRevisions GUARDED_BY(mMutex);  // likewise
    SyncPoint mSyncPoint GUARDED_BY(mMutex);
    std::optional<SyncStatus> mStatus GUARDED_BY(mMutex);  // as computed last
    std::optional<ImmutableString> mConflictState GUARDED_BY(mMutex);
    bool mForciblyDisconnected GUARDED_BY(mMutex) = false;
    std::string mComplaintID GUARDED_BY(mMutex);  // of the cut; empty when none is filed
    std::int64_t mLastUsed GUARDED_BY(mMutex) = 0;
};

}  // namespace VantryLocalHub
