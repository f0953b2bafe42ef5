#include "Inc/Model/GitBoxSandbox.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using noxcore::filesupport::Join;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

namespace {

/// Adds up what the trees `assets` and `enclosures` of a revision hold. Payloads are measured, not read.
class HeadMeter
{
public:
    HeadMeter(IO::RepoPtr inRepo, dto::SizeInfo& outInfo) : mRepo(std::move(inRepo)), mInfo(outInfo) {}

    bool Measure(const ImmutableString& inRevision)
    {
        const git::ReadScope scope(mRepo);
        const auto commit = IO::ResolveCommit(mRepo, inRevision);
        const auto root = commit ? git::GetTreeAtCommit(mRepo, commit) : nullptr;
        return root &&
               ForEachBelowBuckets(git::GetTree(mRepo, root, "assets"),
                                   [this](const git::TreeEntry& inEntry) { return Asset(inEntry); }) &&
               ForEachBelowBuckets(git::GetTree(mRepo, root, "enclosures"), [this](const git::TreeEntry& inEntry) {
                   ++mInfo.mProductionEnclosures;
                   return Blobs(git::GetTree(mRepo, inEntry.mOid));
               });
    }

private:
    template <class Function>
    bool ForEachBelowBuckets(const git::TreePtr& inTree, const Function& inFunction)
    {
        if (!inTree) return true;
        for (const git::TreeEntry& bucket : *inTree) {
            const auto tree = git::GetTree(mRepo, bucket.mOid);
            if (!tree) return false;
            for (const git::TreeEntry& entry : *tree) {
                if (entry.Type() == git::ObjectType::Tree && !inFunction(entry)) return false;
            }
        }
        return true;
    }

    bool Asset(const git::TreeEntry& inEntry)
    {
        ++mInfo.mAssets;
        const auto tree = git::GetTree(mRepo, inEntry.mOid);
        if (!tree || !Blobs(tree)) return false;
        const auto enclosures = git::GetTree(mRepo, tree, "enclosures");
        if (!enclosures) return true;
        for (const git::TreeEntry& enclosure : *enclosures) {
            ++mInfo.mAssetEnclosures;
            if (!Blobs(git::GetTree(mRepo, enclosure.mOid))) return false;
        }
        return true;
    }

    bool Blobs(const git::TreePtr& inTree)
    {
        if (!inTree) return false;
        for (const git::TreeEntry& entry : *inTree) {
            if (entry.Type() != git::ObjectType::Blob) continue;
            git::ObjectType type = git::ObjectType::Invalid;
            std::uint64_t size = 0;
            if (!git::ReadObjectHeader(mRepo, entry.mOid, type, size)) return false;
            mInfo.mSizeOfHead += static_cast<std::int64_t>(size);
        }
        return true;
    }

    const IO::RepoPtr mRepo;
    dto::SizeInfo& mInfo;
};

}  // namespace

int Sandbox::StatusOf(IO::ReadResult inResult)
{
    switch (inResult) {
        case IO::ReadResult::Found:
            return kHTTPStatus_OK;
        case IO::ReadResult::Absent:
            return kHTTPStatus_NotFound;
        case IO::ReadResult::Failed:
            break;
    }
    return kHTTPStatus_InternalServerError;
}

int Sandbox::ResolveRevision(const IO::RepoPtr& inRepo, const ImmutableString& inRevision, IO::CommitPtr& outCommit)
{
    return StatusOf(IO::ResolveCommit(inRepo, inRevision, outCommit));
}

int Sandbox::ConvertReferenceNameToID(const IO::RepoPtr& inRepo, const ImmutableString& inRevision,
                                      ImmutableString& outID)
{
    git::Oid id;
    IO::CommitPtr commit;
    if (!git::Oid::FromText(inRevision, id)) {
        const int status = ResolveRevision(inRepo, inRevision, commit);
        if (status != kHTTPStatus_OK) return status;
        id = commit->ID();
    }
    outID = id.Text();
    return kHTTPStatus_OK;
}

int Sandbox::GetAssets(const ImmutableString& inRevision, bool inWithEnclosures, AssetListPtr& outAssets)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    ImmutableString revision;
    const int status = ConvertReferenceNameToID(handles.mRepo, inRevision, revision);
    if (status != kHTTPStatus_OK) return status;
    const ScopedLock lock(mAssetCache.mMutex);
    if (mAssetCache.mRevision != revision || (inWithEnclosures && !mAssetCache.mComplete)) {
        mAssetCache.mRevision = {};
        mAssetCache.mValues.reset();
        auto assets = std::make_shared<AssetList>();
        const int read = StatusOf(IO::ReadAssets(handles.mRepo, revision, inWithEnclosures, *assets));
        if (read != kHTTPStatus_OK) return read;
        mAssetCache.mValues = std::move(assets);
        mAssetCache.mRevision = revision;
        mAssetCache.mComplete = inWithEnclosures;
    }
    outAssets = mAssetCache.mValues;
    return kHTTPStatus_OK;
}

int Sandbox::GetAsset(const ImmutableString& inRevision, const ImmutableString& inAssetID, dto::Asset& outAsset)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    if (!IsUsableID(inAssetID)) return kHTTPStatus_NotFound;
    return StatusOf(IO::ReadAsset(handles.mRepo, inRevision, inAssetID, outAsset));
}

int Sandbox::GetAssetByContentHash(const ImmutableString& inContentID, const ImmutableString& inAssetID,
                                   dto::Asset& outAsset)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    return StatusOf(IO::ReadAssetByContentHash(handles.mRepo, inContentID, inAssetID, outAsset));
}

int Sandbox::GetAssetEnclosure(const ImmutableString& inRevision, const ImmutableString& inAssetID,
                               const ImmutableString& inEnclosureID, ConstRecycledMemoryPtr& outPayload)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    return StatusOf(IO::ReadAssetEnclosure(handles.mRepo, inRevision, inAssetID, inEnclosureID, outPayload));
}

int Sandbox::GetProductionEnclosures(const ImmutableString& inRevision, std::vector<dto::Enclosure>& outEnclosures)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    ImmutableString revision;
    const int status = ConvertReferenceNameToID(handles.mRepo, inRevision, revision);
    if (status != kHTTPStatus_OK) return status;
    const ScopedLock lock(mEnclosureCache.mMutex);
    if (mEnclosureCache.mRevision != revision) {
        mEnclosureCache.mRevision = {};
        auto enclosures = std::make_shared<std::vector<dto::Enclosure>>();
        const int read = StatusOf(IO::ReadProductionEnclosures(handles.mRepo, revision, *enclosures));
        if (read != kHTTPStatus_OK) return read;
        mEnclosureCache.mValues = std::move(enclosures);
        mEnclosureCache.mRevision = revision;
    }
    outEnclosures = *mEnclosureCache.mValues;
    return kHTTPStatus_OK;
}

int Sandbox::GetProductionEnclosure(const ImmutableString& inRevision, const ImmutableString& inEnclosureID,
                                    dto::Enclosure& outEnclosure, ConstRecycledMemoryPtr& outPayload)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    return StatusOf(IO::ReadProductionEnclosure(handles.mRepo, inRevision, inEnclosureID, outEnclosure, outPayload));
}

int Sandbox::GetPayloadByContentHash(const ImmutableString& inContentID, ConstRecycledMemoryPtr& outPayload)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    return StatusOf(IO::ReadPayloadByContentHash(handles.mRepo, inContentID, outPayload));
}

int Sandbox::HasContent(const ImmutableString& inContentID)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    git::Oid content;
    return StatusOf(IO::FindContent(handles.mRepo, inContentID, git::ObjectType::Blob, content));
}

int Sandbox::GetSessionHistory(std::size_t inStart, std::size_t inCount, std::vector<StoredVersion>& outVersions,
                               std::size_t& outTotal)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    const git::ReadScope scope(handles.mRepo);
    return IO::ReadSessionHistory(handles.mRepo, kBranch_Session, inStart, inCount, outVersions, outTotal)
               ? kHTTPStatus_OK
               : kHTTPStatus_InternalServerError;
}

int Sandbox::GetHistoryRevision(const ImmutableString& inRevision, StoredVersion& outVersion)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    IO::CommitPtr commit;
    const int status = ResolveRevision(handles.mRepo, inRevision, commit);
    // The repository holds nothing but this session, so that every commit in it belongs to the history.
    if (status == kHTTPStatus_OK) outVersion = IO::ReadVersion(commit);
    return status;
}

int Sandbox::GetHeadParentCount(std::size_t& outCount)
{
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    const auto head = IO::ResolveCommit(handles.mRepo, {});
    if (!head) return kHTTPStatus_InternalServerError;
    outCount = head->ParentCount();
    return kHTTPStatus_OK;
}

bool Sandbox::RevisionExists(const ImmutableString& inRevision)
{
    Handles handles;
    return RetainDB(handles) && IO::ResolveCommit(handles.mRepo, inRevision) != nullptr;
}

bool Sandbox::RevisionsDiffer(const ImmutableString& inLeft, const ImmutableString& inRight)
{
    Handles handles;
    return !RetainDB(handles) || IO::DifferInContent(handles.mRepo, inLeft, inRight);
}

bool Sandbox::ReadCachedSizeInfo(const Handles& inHandles, const ImmutableString& inRevision, bool inDetailed,
                                 dto::SizeInfo& outInfo)
{
    const auto settings = noxcore::debug::DebugDatabase::Instance();
    if (!settings->GetBoolean("VY.Config.LocalHub.UseSizeInfoCache", false)) return false;
    dto::SizeInfo cached;
    if (!inHandles.mDb || !Lyra2Db::ReadSizeInfo(*inHandles.mDb, cached) || cached.mCommitID != inRevision)
        return false;
    if (inDetailed && cached.mAutosaves == 0) return false;
    outInfo = std::move(cached);
    return true;
}

int Sandbox::GetSizeInfo(bool inDetailed, dto::SizeInfo& outInfo)
{
    const auto fileSize = [this](std::string_view inName) {
        return static_cast<std::int64_t>(noxcore::filesupport::Dir::Size(Join(mFolder, inName)));
    };
    dto::SizeInfo info;
    info.mProductionID = mProductionID;
    info.mSessionID = mSessionID;
    info.mPathOnDisk = IsRope() ? mRopeFile : mFolder;
    info.mSizeOnDisk = static_cast<std::int64_t>(noxcore::filesupport::Dir::Size(info.mPathOnDisk));
    Handles handles;
    if (!RetainDB(handles)) {
        outInfo = std::move(info);
        return kHTTPStatus_OK;
    }
    ImmutableString revision;
    if (ConvertReferenceNameToID(handles.mRepo, {}, revision) != kHTTPStatus_OK) return kHTTPStatus_InternalServerError;
    if (ReadCachedSizeInfo(handles, revision, inDetailed, outInfo)) return kHTTPStatus_OK;
    info.mCommitID = revision;
    if (!HeadMeter(handles.mRepo, info).Measure(revision)) return kHTTPStatus_InternalServerError;
    const auto count = [&info](const IO::CommitPtr&) {
        ++info.mAutosaves;
        return true;
    };
    if (inDetailed &&
        !IO::ListVersionsFromCommit(handles.mRepo, IO::ResolveCommit(handles.mRepo, revision), {}, count)) {
        return kHTTPStatus_InternalServerError;
    }
    if (handles.mDb) {
        for (const std::string_view name : {"session.sqlite3", "session.sqlite3-shm", "session.sqlite3-wal"})
            info.mSizeOfHead += fileSize(name);
        Lyra2Db::CountMediaLocators(*handles.mDb, info.mMediaLocators);
        Lyra2Db::WriteSizeInfo(*handles.mDb, info);
    } else {
        RopeFile::Db::CountMediaLocators(handles.mRepo, info.mMediaLocators);
    }
    outInfo = std::move(info);
    return kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::GitBox
