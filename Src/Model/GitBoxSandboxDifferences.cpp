#include "Inc/Model/GitBoxIODiff.h"
#include "Inc/Model/GitBoxSandbox.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_OK;

int Sandbox::GetDifferences(const ImmutableString& inFrom, const ImmutableString& inTo,
                            SessionDifferences& outDifferences)
{
    return GetDifferences(mDifferenceCache, false, inFrom, inTo, outDifferences);
}

int Sandbox::GetOutgoingChanges(const ImmutableString& inFrom, const ImmutableString& inTo,
                                SessionDifferences& outDifferences)
{
    return GetDifferences(mOutgoingCache, true, inFrom, inTo, outDifferences);
}

int Sandbox::GetDifferences(DifferenceCache& ioCache, bool inOutgoingOnly, const ImmutableString& inFrom,
                            const ImmutableString& inTo, SessionDifferences& outDifferences)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    IO::CommitPtr from;
    IO::CommitPtr to;
    const IO::ReadResult result = IO::ResolveDifferenceEnds(handles.mRepo, inFrom, inTo, from, to);
    if (result != IO::ReadResult::Found) return StatusOf(result);
    // Names move: what is kept is known by the commits.
    const ImmutableString fromID(from->ID().Text());
    const ImmutableString toID(to->ID().Text());
    std::shared_ptr<const SessionDifferences> kept;
    {
        const ScopedLock lock(ioCache.mMutex);
        kept = ioCache.mDifferences;
    }
    if (kept && kept->mFromRevision == fromID && kept->mToRevision == toID) {
        outDifferences = *kept;
        return kHTTPStatus_OK;
    }
    SessionDifferences differences;
    if (!IO::ReadSessionDifferences(handles.mRepo, fromID, toID, inOutgoingOnly, differences)) {
        return kHTTPStatus_InternalServerError;
    }
    kept = std::make_shared<const SessionDifferences>(std::move(differences));
    outDifferences = *kept;
    const ScopedLock lock(ioCache.mMutex);
    ioCache.mDifferences = std::move(kept);
    return kHTTPStatus_OK;
}

int Sandbox::GetConflictInfo(const ImmutableString& inRevision, const std::string& inPath,
                             dto::ConflictMarker& outMarker)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    const git::ReadScope scope(handles.mRepo);
    IO::TreePtr tree;
    const int status = StatusOf(IO::GetTreeAtRevision(handles.mRepo, inRevision, tree));
    if (status != kHTTPStatus_OK) return status;
    return StatusOf(IO::ReadConflictMarker(handles.mRepo, tree, inPath, outMarker));
}

int Sandbox::AuditConflictMarkers(dto::Session& outSession)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    IsLocalOnly();  // a part of the record that is read from another file, so not under the mutex
    const ScopedLock write(mWriteMutex);
    IO::CommitPtr commit;
    if (!IO::AuditConflictMarkers(handles.mRepo, IsRope(), commit)) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mMainMutex);
    if (commit) {
        UpdateRecordLocked(commit);
        AddToBinCountLocked(handles, 0);
    }
    outSession = RecordLocked();
    return kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::GitBox
