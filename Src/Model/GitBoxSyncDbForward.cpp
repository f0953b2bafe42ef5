// The sync database's operations of the interface: find the session, get its sync database, forward. A session that
// cannot be found is a failure of the operation.

#include "Inc/Model/GitBox.h"

namespace VantryLocalHub::GitBox {

bool GitBox::ReadCurrentRemoteAssociation(const ImmutableString& inSessionID, RemoteAssociation& outAssociation)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && sandbox->GetSyncDb()->ReadCurrentRemoteAssociation(outAssociation);
}

bool GitBox::ReadLatestSyncPoint(const ImmutableString& inSessionID, SyncPoint& outPoint)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && sandbox->GetSyncDb()->ReadLatestSyncPoint(outPoint);
}

bool GitBox::WriteUserID(const ImmutableString& inSessionID, const ImmutableString& inUserID,
                         const ImmutableString& inCorvaneID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->WriteUserID(inUserID, inCorvaneID));
}

bool GitBox::WriteAssociationForSync(const ImmutableString& inSessionID, const AssociationForSync& inAssociation)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return false;
    const bool written = sandbox->GetSyncDb()->WriteAssociationForSync(inAssociation);
    sandbox->ForgetLocalOnly();
    return NoteSyncWrite(*sandbox, written);
}

bool GitBox::InvalidateAssociationForSync(const ImmutableString& inSessionID, const AssociationForSync& inAssociation)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->InvalidateAssociationForSync(inAssociation));
}

bool GitBox::WriteSyncPoint(const ImmutableString& inSessionID, const SyncPoint& inPoint, std::int64_t& outChangeCount)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return false;
    const bool written = sandbox->GetSyncDb()->WriteSyncPoint(inPoint, outChangeCount);
    sandbox->ForgetLocalOnly();
    return NoteSyncWrite(*sandbox, written);
}

bool GitBox::ReadSyncPointForLocalRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                           SyncPoint& outPoint)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && sandbox->GetSyncDb()->ReadSyncPointForLocalRevision(inRevision, outPoint);
}

bool GitBox::ReadSyncPointForRemoteRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                            SyncPoint& outPoint)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && sandbox->GetSyncDb()->ReadSyncPointForRemoteRevision(inRevision, outPoint);
}

bool GitBox::ReadSyncPointRevisions(const ImmutableString& inSessionID, std::vector<ImmutableString>& outLocal,
                                    std::vector<ImmutableString>& outRemote)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && sandbox->GetSyncDb()->ReadSyncPointRevisions(outLocal, outRemote);
}

bool GitBox::SetMediaLocatorSyncChangeCount(const ImmutableString& inSessionID, const SyncChangeCount& inCount)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->SetMediaLocatorSyncChangeCount(inCount));
}

bool GitBox::ResetMediaLocatorSyncChangeCount(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->ResetMediaLocatorSyncChangeCount());
}

bool GitBox::SetUserEnclosureSyncChangeCount(const ImmutableString& inSessionID, const SyncChangeCount& inCount)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->SetUserEnclosureSyncChangeCount(inCount));
}

bool GitBox::ResetUserEnclosureSyncChangeCount(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->ResetUserEnclosureSyncChangeCount());
}

bool GitBox::SetUserEnclosureSyncEtag(const ImmutableString& inSessionID, const ImmutableString& inEtag)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->SetUserEnclosureSyncEtag(inEtag));
}

bool GitBox::ReadDeletedDate(const ImmutableString& inSessionID, std::string& outDate)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && sandbox->GetSyncDb()->ReadDeletedDate(outDate);
}

bool GitBox::WriteDeletedDate(const ImmutableString& inSessionID, const std::string& inDate)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->WriteDeletedDate(inDate));
}

bool GitBox::RemoveDeletedDate(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->RemoveDeletedDate());
}

bool GitBox::ResolveRestoredRemoteRevision(const ImmutableString& inSessionID, const ImmutableString& inRemoteRevision,
                                           ImmutableString& outLatestRemoteRevision)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->GetSyncDb()->ResolveRestoredRemoteRevision(
                                                  inRemoteRevision, outLatestRemoteRevision));
}

bool GitBox::IsLocalOnly(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && sandbox->IsLocalOnly();
}

bool GitBox::WriteSynchronizedMode(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->SetLocalOnly(false));
}

bool GitBox::WriteLocalOnlyMode(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && NoteSyncWrite(*sandbox, sandbox->SetLocalOnly(true));
}

bool GitBox::ReadLinkState(const ImmutableString& inSessionID, LinkState& outState)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox && sandbox->ReadLinkStateInPassing(outState);
}

}  // namespace VantryLocalHub::GitBox
