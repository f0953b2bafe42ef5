#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Inc/Model/SyncChangeCount.h"
#include "Platform/noxappsupport/RFC3339DateTime.h"
#include "Platform/noxcore/ImmutableString.h"

namespace VantryLocalHub {

using noxappsupport::cloudservice::RFC3339DateTime;
using noxcore::utility::ImmutableString;

/// The fact that a local revision and a remote revision hold the same content: where the next difference starts.
struct SyncPoint
{
    ImmutableString mRemoteSessionID;
    ImmutableString mRemoteRevision;
    ImmutableString mRemoteTag;  ///< the server's tag of the session revision; copied along, not stored
    ImmutableString mLocalRevision;
    RFC3339DateTime mDate;

    friend bool operator==(const SyncPoint&, const SyncPoint&) = default;
};

/// An association to write or to end: which remote session a local one is linked to, and for whom.
struct AssociationForSync
{
    ImmutableString mServerURL;
    ImmutableString mProductionID;
    ImmutableString mSessionID;
    RFC3339DateTime mDate;
    ImmutableString mUserID;     ///< of the remote user; not looked at when an association is ended
    ImmutableString mCorvaneID;  ///< the user's identity at the sign-in service; likewise

    friend bool operator==(const AssociationForSync&, const AssociationForSync&) = default;
};

/// The association that is current, as read.
struct RemoteAssociation
{
    ImmutableString mServerURL;
    ImmutableString mProductionID;
    ImmutableString mSessionID;
    ImmutableString mUserID;
    ImmutableString mCorvaneID;
    std::int64_t mChangeCount = kNoChangeCount;  ///< the session's change count when it was written

    friend bool operator==(const RemoteAssociation&, const RemoteAssociation&) = default;
};

/// What a link between a session and its remote side begins with, as one moment had it.
struct LinkState
{
    bool mAssociated = false;
    RemoteAssociation mAssociation;  ///< the user's ids even where there is no association
    SyncPoint mSyncPoint;            ///< the latest; empty where there is none
    bool mLocalOnly = false;

    friend bool operator==(const LinkState&, const LinkState&) = default;
};

/// What a session knows about its counterpart on a remote hub: which session that is, which local and remote revisions
/// are equal, and how far media locators and user enclosures have been exchanged.
///
/// Operations are true on success. False with a record in the log: the database cannot be read or written. False
/// without one: what was asked for is not there, which is no error. Out arguments keep their value unless true is
/// returned or it says otherwise. Nothing throws.
/// Threading: any thread. May wait 10 000 ms for a busy database.
class ProjectBoxSyncDb
{
public:
    virtual ~ProjectBoxSyncDb() = default;

    /// Lets the files close as soon as no operation uses them; the next operation opens them again. Never waits.
    virtual void ReleaseDb() = 0;
    /// The active association with the highest change count. The user's two ids are given even where there is none
    /// and false is returned: a session may belong to a user before it has a remote side.
    virtual bool ReadCurrentRemoteAssociation(RemoteAssociation& outAssociation) = 0;
    /// The newest sync point of an active association.
    virtual bool ReadLatestSyncPoint(SyncPoint& outPoint) = 0;
    virtual bool WriteUserID(const ImmutableString& inUserID, const ImmutableString& inCorvaneID) = 0;
    /// Also makes the session a synchronized one of that user. Fails for a server and session that were associated
    /// before, even where that association is ended.
    virtual bool WriteAssociationForSync(const AssociationForSync& inAssociation) = 0;
    /// The association's sync points stay but no longer count as latest. True as well when there is none to end.
    virtual bool InvalidateAssociationForSync(const AssociationForSync& inAssociation) = 0;
    /// Adds a sync point of the current association; the point's own session id is not looked at. Fails for a pair of
    /// revisions that is there already.
    virtual bool WriteSyncPoint(const SyncPoint& inPoint, std::int64_t& outChangeCount) = 0;
    virtual bool ReadSyncPointForLocalRevision(const ImmutableString& inRevision, SyncPoint& outPoint) = 0;
    virtual bool ReadSyncPointForRemoteRevision(const ImmutableString& inRevision, SyncPoint& outPoint) = 0;
    /// Both revisions of all sync points, oldest first; equal places belong to one point.
    virtual bool ReadSyncPointRevisions(std::vector<ImmutableString>& outLocal,
                                        std::vector<ImmutableString>& outRemote) = 0;
    /// The marks never go back: a count at or below the stored one is logged and left, which counts as success.
    virtual bool SetMediaLocatorSyncChangeCount(const SyncChangeCount& inCount) = 0;
    virtual bool ResetMediaLocatorSyncChangeCount() = 0;
    virtual bool SetUserEnclosureSyncChangeCount(const SyncChangeCount& inCount) = 0;
    virtual bool ResetUserEnclosureSyncChangeCount() = 0;
    virtual bool SetUserEnclosureSyncEtag(const ImmutableString& inEtag) = 0;
    virtual bool ReadDeletedDate(std::string& outDate) = 0;
    virtual bool WriteDeletedDate(const std::string& inDate) = 0;
    virtual bool RemoveDeletedDate() = 0;
    /// Forgets the sync points that are newer than a remote revision to which the remote session was restored, and
    /// gives the remote revision of what is then the latest. A revision that is in no sync point changes nothing.
    virtual bool ResolveRestoredRemoteRevision(const ImmutableString& inRemoteRevision,
                                               ImmutableString& outLatestRemoteRevision) = 0;
    /// False as well when the mode was never written. True as well when it cannot be read: what may have to stay here
    /// is not sent.
    virtual bool IsLocalOnly() = 0;
    virtual bool WriteSynchronizedMode() = 0;
    virtual bool WriteLocalOnlyMode() = 0;

    // Beside the slots: reads of which a failure is not taken for "there is none". False, with a record, is a failure.
    virtual bool ReadLocalOnly(bool& outLocalOnly) = 0;
    virtual bool ReadLinkState(LinkState& outState) = 0;
};

}  // namespace VantryLocalHub
