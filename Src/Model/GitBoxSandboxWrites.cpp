#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxSandbox.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_Conflict;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_OK;

namespace {

void LogHeadMismatch(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                     const ImmutableString& inRequiredHead)
{
    noxcore::logging::LogWarning(
        "GitBox", "CommitTransaction: session HEAD does not match transaction required HEAD",
        {{"sessionID", inSessionID}, {"sessionRevision", inRevision}, {"transactionHeadRevision", inRequiredHead}});
}

}  // namespace

ImmutableString Sandbox::ComputeContentHash(const std::vector<dto::Asset>& inAssets)
{
    Handles handles;
    return RetainDB(handles) ? IO::ComputeContentHash(handles.mRepo, inAssets) : ImmutableString();
}

ImmutableString Sandbox::ComputeContentHash(const ConstRecycledMemoryPtr& inPayload)
{
    Handles handles;
    return RetainDB(handles) ? IO::ComputeContentHash(handles.mRepo, inPayload) : ImmutableString();
}

int Sandbox::ComputeContentHashAndEmbedInAsset(dto::Asset& ioAsset)
{
    {
        Handles handles;
        if (RetainDB(handles) && IO::ComputeContentHashAndEmbedInAsset(handles.mRepo, ioAsset)) return kHTTPStatus_OK;
    }
    if (IsRope()) ComplainOfAsset(ioAsset.mAssetID);
    return kHTTPStatus_InternalServerError;
}

int Sandbox::FlushContent()
{
    Handles handles;
    return RetainDB(handles) && git::FlushObjects(handles.mRepo) ? kHTTPStatus_OK : kHTTPStatus_InternalServerError;
}

ImmutableString Sandbox::Head()
{
    const ScopedLock lock(mMainMutex);
    return mSession.mRevision;
}

void Sandbox::UpdateRecordLocked(const IO::CommitPtr& inCommit)
{
    mSession.mRevision = inCommit->ID().Text();
    mSession.mModified = RFC3339DateTime::FromSeconds(inCommit->Time());
}

int Sandbox::CommitTransaction(bool inClearConflicts, std::string_view inMessage, const ImmutableString& inRequiredHead,
                               const TransactionChanges& inChanges, dto::Session& outSession,
                               ImmutableString& outPreviousRevision)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    IsLocalOnly();  // a part of the record that is read from another file, so not under the mutex
    const ImmutableString seen = Head();
    // Trees are compared outside the mutex; what matters inside is only that the head did not move meanwhile.
    if (!inRequiredHead.empty() && inRequiredHead != seen && IO::DifferInContent(handles.mRepo, inRequiredHead, seen)) {
        LogHeadMismatch(mSessionID, seen, inRequiredHead);
        return kHTTPStatus_Conflict;
    }
    const ScopedLock write(mWriteMutex);
    const ImmutableString head = Head();
    if (!inRequiredHead.empty() && head != seen && IO::DifferInContent(handles.mRepo, inRequiredHead, head)) {
        LogHeadMismatch(mSessionID, head, inRequiredHead);
        return kHTTPStatus_Conflict;
    }
    {
        const ScopedLock lock(mMainMutex);
        LoadBinCountLocked(handles);
    }
    IO::CommitPtr commit;
    std::int64_t binDelta = 0;
    if (!IO::Write(handles.mRepo, inChanges, inClearConflicts, IsRope(), inMessage, commit, binDelta)) {
        return kHTTPStatus_InternalServerError;
    }
    const ScopedLock lock(mMainMutex);
    if (inChanges.mProperties) mSession.mProperties = inChanges.mProperties->mProperties;
    outPreviousRevision = mSession.mRevision;
    UpdateRecordLocked(commit);
    AddToBinCountLocked(handles, binDelta);
    outSession = RecordLocked();
    return kHTTPStatus_OK;
}

int Sandbox::RevertSession(const ImmutableString& inRevision, ImmutableString& outRevision)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    IO::CommitPtr target;
    const int status = ResolveRevision(handles.mRepo, inRevision, target);
    if (status != kHTTPStatus_OK) return status;
    // A head whose properties cannot be read would be the end of the session.
    dto::RawJSON properties;
    RFC3339DateTime ignored;
    if (!IO::ReadSessionProperties(handles.mRepo, target->ID().Text(), properties, ignored))
        return kHTTPStatus_InternalServerError;
    const ScopedLock write(mWriteMutex);
    const git::Oid tree = IO::TreeUnderOwnIDs(handles.mRepo, target);
    if (tree.IsZero()) return kHTTPStatus_InternalServerError;
    const IO::CommitPtr commit = git::WriteCommit(handles.mRepo, tree, MakeAuthor(), MakeCommitter(),
                                                  MakeCommitMessage(CommitMessageCode::Reverted), kBranch_Session,
                                                  IsRope() ? kBranch_SessionBackup : std::string_view());
    if (!commit) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mMainMutex);
    UpdateRecordLocked(commit);
    mSession.mProperties = std::move(properties);
    // The bins of the older tree are counted anew.
    mBinCount.reset();
    LoadBinCountLocked(handles);
    outRevision = mSession.mRevision;
    return kHTTPStatus_OK;
}

int Sandbox::AdvanceProduction(const ImmutableString& inRevision)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    const IO::CommitPtr source = IO::ResolveCommit(handles.mRepo, inRevision);
    if (!source) return kHTTPStatus_InternalServerError;
    const ScopedLock write(mWriteMutex);
    const IO::CommitPtr commit =
        git::WriteCommit(handles.mRepo, source->TreeID(), source->Author(), source->Committer(), source->Message(),
                         kBranch_Production, IsRope() ? kBranch_ProductionBackup : std::string_view());
    if (!commit) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mMainMutex);
    mProduction.mRevision = commit->ID().Text();
    mProduction.mModified = RFC3339DateTime::FromSeconds(commit->Time());
    return kHTTPStatus_OK;
}

int Sandbox::ResetProductionToRevision(const ImmutableString& inRevision)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    const ScopedLock write(mWriteMutex);
    ImmutableString revision;
    RFC3339DateTime time;
    if (!IO::SetProductionCommitContentHash(handles.mRepo, inRevision, IsRope(), revision, time)) {
        return kHTTPStatus_InternalServerError;
    }
    const ScopedLock lock(mMainMutex);
    mProduction.mRevision = revision;
    return IO::ReadSessionProperties(handles.mRepo, revision, mProduction.mProperties, mProduction.mModified)
               ? kHTTPStatus_OK
               : kHTTPStatus_InternalServerError;
}

}  // namespace VantryLocalHub::GitBox
