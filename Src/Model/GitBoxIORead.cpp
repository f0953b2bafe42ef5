#include <algorithm>
#include <atomic>

#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBoxIO.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/WorkSharing.h"

namespace VantryLocalHub::GitBox::IO {

namespace git = noxstorage::git;
using git::ObjectType;
using git::TreeEntry;
using noxcore::logging::LogError;
using noxcore::logging::LogWarning;

namespace {

constexpr std::size_t kReadersBesideTheCaller = 1;
constexpr std::size_t kReservedAssets = 2048;

std::string_view FanOut(std::string_view inID)
{
    return inID.substr(0, 2);
}

ConstRecycledMemoryPtr ReadPayload(const RepoPtr& inRepo, const Oid& inBlob)
{
    const auto blob = git::GetBlob(inRepo, inBlob);
    return blob ? git::BlobToConstRecycledMemoryPtr(blob) : nullptr;
}

/// One enclosure's tree: `name` and `content`. A name entry that is not there is an empty name.
bool ReadEnclosureTree(const RepoPtr& inRepo, const TreeEntry& inEntry, dto::Enclosure& outEnclosure)
{
    const TreePtr tree = git::GetTree(inRepo, inEntry.mOid);
    TreeEntry content;
    if (!tree || !tree->Find("content", content)) return false;
    TreeEntry name;
    if (tree->Find("name", name)) {
        const auto blob = git::GetBlob(inRepo, name.mOid);
        if (!blob) return false;
        outEnclosure.mName = blob->Content();
    }
    outEnclosure.mEnclosureID = inEntry.mName;
    outEnclosure.mEnclosureContentID = content.mOid.Text();
    outEnclosure.mDataContentID = outEnclosure.mEnclosureContentID;
    return true;
}

/// Absent: the tree is none of an asset.
ReadResult ReadAssetTree(const RepoPtr& inRepo, std::string_view inAssetID, const Oid& inTree, bool inWithEnclosures,
                         dto::Asset& outAsset)
{
    const TreePtr tree = git::GetTree(inRepo, inTree);
    if (!tree) return ReadResult::Failed;
    TreeEntry properties;
    if (!tree->Find("properties", properties)) return ReadResult::Absent;
    const auto blob = git::GetBlob(inRepo, properties.mOid);
    if (!blob) return ReadResult::Failed;
    dto::Asset asset;
    asset.mAssetID = inAssetID;
    asset.mAssetContentID = inTree.Text();
    asset.mEtag = EtagOfContent(asset.mAssetContentID);
    asset.mProperties = dto::RawJSON(std::string(blob->Content()));
    TreeEntry enclosures;
    if (inWithEnclosures && tree->Find("enclosures", enclosures)) {
        const TreePtr list = git::GetTree(inRepo, enclosures.mOid);
        if (!list || !ReadEnclosuresProperties(inRepo, list, asset.mEnclosures)) return ReadResult::Failed;
    }
    outAsset = std::move(asset);
    return ReadResult::Found;
}

/// One asset found by the walk.
struct AssetPlace
{
    std::string mID;
    Oid mTree;
};

/// Walks the tree `assets` of a revision and hands what it finds to readers. Nothing of an asset is read by the walk.
class AssetWalkerContext
{
public:
    AssetWalkerContext(RepoPtr inRepo, std::string_view inRevision) : mRepo(std::move(inRepo)), mRevision(inRevision) {}

    /// A revision without assets gives none.
    ReadResult Walk()
    {
        TreePtr root;
        const ReadResult result = GetTreeAtRevision(mRepo, mRevision, root);
        if (result != ReadResult::Found) return result;
        TreeEntry assets;
        if (!root->Find("assets", assets)) {
            LogWarning("GitBox", "Unable to get asset tree (this may be a new production with no assets)",
                       {{"path", mRepo->Path()}});
            return ReadResult::Found;
        }
        const TreePtr tree = git::GetTree(mRepo, assets.mOid);
        if (tree && WalkLevel(tree)) return ReadResult::Found;
        LogError("GitBox", "Unable to walk asset tree", {{"path", mRepo->Path()}, {"revision", mRevision}});
        return ReadResult::Failed;
    }

    [[nodiscard]] std::vector<AssetPlace>& Places() { return mPlaces; }

private:
    /// A name of two characters is a fan-out folder; any other folder is an asset; the rest is skipped.
    bool WalkLevel(const TreePtr& inTree)
    {
        for (const TreeEntry& entry : *inTree) {
            if (entry.Type() != ObjectType::Tree) continue;
            if (entry.mName.size() != 2) {
                mPlaces.push_back({std::string(entry.mName), entry.mOid});
                continue;
            }
            const TreePtr bucket = git::GetTree(mRepo, entry.mOid);
            if (!bucket || !WalkLevel(bucket)) return false;
        }
        return true;
    }

    const RepoPtr mRepo;
    const std::string mRevision;
    std::vector<AssetPlace> mPlaces;
};

/// Whether the pool takes reads any more. During shut-down it does not: the caller reads alone then, and says so.
bool QueueAsyncRead(const RepoPtr& inRepo, const AssetPlace& inPlace)
{
    if (!noxcore::threads::IOBoundExecutor()->IsShuttingDown()) return true;
    LogWarning("GitBox", "QueueAsyncRead: reading asset tree synchronously",
               {{"asetID", inPlace.mID}, {"oid", inPlace.mTree.Text()}, {"path", inRepo->Path()}});
    return false;
}

/// The places in the order in which they lie in the repository's file: each with where that is.
std::vector<std::pair<std::int64_t, std::size_t>> OrderInFile(const RepoPtr& inRepo,
                                                              const std::vector<AssetPlace>& inPlaces)
{
    std::vector<Oid> trees;
    trees.reserve(inPlaces.size());
    for (const AssetPlace& place : inPlaces)
        trees.push_back(place.mTree);
    const std::vector<std::int64_t> rows = git::FindPlaces(inRepo, trees);
    std::vector<std::pair<std::int64_t, std::size_t>> order;
    order.reserve(inPlaces.size());
    for (std::size_t index = 0; index < inPlaces.size(); ++index)
        order.emplace_back(rows[index], index);
    std::sort(order.begin(), order.end());
    return order;
}

/// Reads many assets on the caller's thread and on threads of the pool for waiting work, in chunks. A visitor that
/// answers false ends it.
template <class Visitor>
bool ReadInParallel(const RepoPtr& inRepo, const std::vector<AssetPlace>& inPlaces, bool inWithEnclosures,
                    std::size_t inHelpers, const Visitor& inVisitor)
{
    constexpr std::size_t kChunk = 256;
    std::atomic<bool> failed{false};
    const std::size_t chunks = (inPlaces.size() + kChunk - 1) / kChunk;
    const bool queued = std::all_of(inPlaces.begin(), inPlaces.end(),
                                    [&](const AssetPlace& inPlace) { return QueueAsyncRead(inRepo, inPlace); });
    const std::vector<std::pair<std::int64_t, std::size_t>> order = OrderInFile(inRepo, inPlaces);
    noxcore::threads::ShareWork(
        noxcore::threads::IOBoundExecutor(), queued ? inHelpers : 0, chunks, [&](std::size_t inChunk) {
            const git::ReadScope scope(inRepo);
            const std::size_t end = std::min(inPlaces.size(), (inChunk + 1) * kChunk);
            for (std::size_t n = inChunk * kChunk; n < end && !failed; ++n) {
                const auto [row, i] = order[n];
                scope.ReadAhead(row);
                dto::Asset asset;
                if (ReadAssetTree(inRepo, inPlaces[i].mID, inPlaces[i].mTree, inWithEnclosures, asset) ==
                    ReadResult::Found) {
                    if (!inVisitor(i, std::move(asset))) failed = true;
                    continue;
                }
                LogError("GitBox", "Unable to get asset tree from repository",
                         {{"assetID", inPlaces[i].mID}, {"oid", inPlaces[i].mTree.Text()}, {"path", inRepo->Path()}});
                failed = true;
            }
        });
    return !failed;
}

}  // namespace

ReadResult GetTreeAtRevision(const RepoPtr& inRepo, std::string_view inRevision, TreePtr& outTree, CommitPtr* outCommit)
{
    CommitPtr commit;
    ReadResult result = ResolveCommit(inRepo, inRevision, commit);
    TreePtr tree = commit ? git::GetTreeAtCommit(inRepo, commit) : nullptr;
    if (tree) {
        outTree = std::move(tree);
        if (outCommit != nullptr) *outCommit = std::move(commit);
        return ReadResult::Found;
    }
    if (result == ReadResult::Found) result = ReadResult::Failed;
    LogError("GitBox", "Unable to get head tree for repository", {{"path", inRepo->Path()}, {"revision", inRevision}});
    return result;
}

ReadResult FindContent(const RepoPtr& inRepo, std::string_view inContentID, ObjectType inType, Oid& outOid)
{
    if (!Oid::FromText(inContentID, outOid)) return ReadResult::Absent;
    ObjectType type = ObjectType::Invalid;
    const ReadResult result = git::FindObjectType(inRepo, outOid, type);
    return result == ReadResult::Found && type != inType ? ReadResult::Absent : result;
}

std::string MakeObjectPath(std::string_view inPrefix, std::string_view inSubtree, std::string_view inID,
                           std::string_view inLeaf)
{
    std::string path;
    path.reserve(inPrefix.size() + inSubtree.size() + inID.size() + inLeaf.size() + 6);
    for (const std::string_view part : {inPrefix, inSubtree, FanOut(inID), inID, inLeaf}) {
        if (part.empty()) continue;
        if (!path.empty()) path.push_back('/');
        path += part;
    }
    return path;
}

bool ReadEnclosuresProperties(const RepoPtr& inRepo, const TreePtr& inTree, std::vector<dto::Enclosure>& outEnclosures)
{
    for (const TreeEntry& entry : *inTree) {
        if (entry.Type() != ObjectType::Tree) continue;
        dto::Enclosure enclosure;
        if (!ReadEnclosureTree(inRepo, entry, enclosure)) {
            LogError("GitBox", "Unable to get enclosure blob", {{"enclosure", entry.mName}});
            return false;
        }
        outEnclosures.push_back(std::move(enclosure));
    }
    return true;
}

bool ReadEnclosuresPropertiesWithPrefixSubtree(const RepoPtr& inRepo, const TreePtr& inTree,
                                               std::vector<dto::Enclosure>& outEnclosures)
{
    for (const TreeEntry& bucket : *inTree) {
        if (bucket.Type() != ObjectType::Tree) continue;
        const TreePtr tree = git::GetTree(inRepo, bucket.mOid);
        if (!tree || !ReadEnclosuresProperties(inRepo, tree, outEnclosures)) return false;
    }
    return true;
}

ReadResult ReadAsset(const RepoPtr& inRepo, std::string_view inRevision, const ImmutableString& inAssetID,
                     dto::Asset& outAsset)
{
    const git::ReadScope scope(inRepo);
    TreePtr root;
    ReadResult result = GetTreeAtRevision(inRepo, inRevision, root);
    if (result != ReadResult::Found) return result;
    TreeEntry entry;
    result = git::FindEntry(inRepo, root, MakeObjectPath({}, "assets", inAssetID), entry);
    if (result != ReadResult::Found) {
        LogWarning("GitBox", "Unable to get asset tree from repository", {{"assetID", inAssetID}});
        return result;
    }
    result = ReadAssetTree(inRepo, inAssetID, entry.mOid, true, outAsset);
    return result == ReadResult::Found ? result : ReadResult::Failed;
}

ReadResult ReadAssetByContentHash(const RepoPtr& inRepo, const ImmutableString& inContentID,
                                  const ImmutableString& inAssetID, dto::Asset& outAsset)
{
    const git::ReadScope scope(inRepo);
    Oid tree;
    ReadResult result = FindContent(inRepo, inContentID, ObjectType::Tree, tree);
    if (result == ReadResult::Found) result = ReadAssetTree(inRepo, inAssetID, tree, true, outAsset);
    if (result != ReadResult::Found) {
        LogWarning("GitBox", "Unable to get asset tree from repository", {{"assetID", inAssetID}});
    }
    return result;
}

ReadResult ReadAssets(const RepoPtr& inRepo, std::string_view inRevision, bool inWithEnclosures,
                      std::vector<dto::Asset>& outAssets)
{
    const git::ReadScope scope(inRepo);
    AssetWalkerContext walker(inRepo, inRevision);
    const ReadResult result = walker.Walk();
    if (result != ReadResult::Found) return result;
    std::vector<dto::Asset> assets;
    assets.reserve(std::max(kReservedAssets, walker.Places().size()));
    assets.resize(walker.Places().size());
    const auto keep = [&assets](std::size_t inIndex, dto::Asset&& inAsset) {
        assets[inIndex] = std::move(inAsset);
        return true;
    };
    if (!ReadInParallel(inRepo, walker.Places(), inWithEnclosures, kReadersBesideTheCaller, keep)) {
        return ReadResult::Failed;
    }
    outAssets = std::move(assets);
    return ReadResult::Found;
}

ReadResult VisitAssets(const RepoPtr& inRepo, std::string_view inRevision, std::size_t inHelpers,
                       const std::function<bool(dto::Asset&&)>& inVisitor)
{
    const git::ReadScope scope(inRepo);
    AssetWalkerContext walker(inRepo, inRevision);
    const ReadResult result = walker.Walk();
    if (result != ReadResult::Found) return result;
    const auto visit = [&](std::size_t, dto::Asset&& inAsset) { return inVisitor(std::move(inAsset)); };
    return ReadInParallel(inRepo, walker.Places(), true, inHelpers, visit) ? result : ReadResult::Failed;
}

bool HasReadableProperties(const RepoPtr& inRepo, std::string_view inRevision)
{
    dto::RawJSON properties;
    RFC3339DateTime ignored;
    if (!ReadSessionProperties(inRepo, inRevision, properties, ignored)) return false;
    const git::ReadScope scope(inRepo);
    AssetWalkerContext walker(inRepo, inRevision);
    if (walker.Walk() != ReadResult::Found) return false;
    const auto look = [&](std::size_t, dto::Asset&& inAsset) {
        dto::RawJSON read;
        if (dto::RawJSON::FromText(inAsset.mProperties.Text(), read)) return true;
        LogError("GitBox", "Stored properties of an asset are no JSON object",
                 {{"assetID", inAsset.mAssetID}, {"path", inRepo->Path()}});
        return false;
    };
    return ReadInParallel(inRepo, walker.Places(), false, kReadersBesideTheCaller, look);
}

ReadResult ReadAssetIDs(const RepoPtr& inRepo, std::string_view inRevision, std::vector<ImmutableString>& outIDs)
{
    const git::ReadScope scope(inRepo);
    AssetWalkerContext walker(inRepo, inRevision);
    const ReadResult result = walker.Walk();
    if (result != ReadResult::Found) return result;
    outIDs.clear();
    outIDs.reserve(walker.Places().size());
    for (const AssetPlace& place : walker.Places())
        outIDs.emplace_back(place.mID);
    return result;
}

bool CountBins(const RepoPtr& inRepo, std::string_view inRevision, std::int64_t& outCount)
{
    const git::ReadScope scope(inRepo);
    AssetWalkerContext walker(inRepo, inRevision);
    if (walker.Walk() != ReadResult::Found) return false;
    std::atomic<std::int64_t> count{0};
    const auto look = [&count](std::size_t, dto::Asset&& inAsset) {
        if (dto::ReadAssetTraits(inAsset.mProperties).mAssetType == VYCL::GetAssetType_Bin()) ++count;
        return true;
    };
    if (!ReadInParallel(inRepo, walker.Places(), false, kReadersBesideTheCaller, look)) return false;
    outCount = count;
    return true;
}

ReadResult ReadAssetEnclosure(const RepoPtr& inRepo, std::string_view inRevision, const ImmutableString& inAssetID,
                              const ImmutableString& inEnclosureID, ConstRecycledMemoryPtr& outPayload)
{
    const git::ReadScope scope(inRepo);
    TreePtr root;
    ReadResult result = GetTreeAtRevision(inRepo, inRevision, root);
    if (result != ReadResult::Found) return result;
    const std::string path =
        MakeObjectPath({}, "assets", inAssetID, "enclosures") + "/" + inEnclosureID.Text() + "/content";
    TreeEntry entry;
    result = git::FindEntry(inRepo, root, path, entry);
    if (result != ReadResult::Found) {
        LogWarning("GitBox", "Unable to get enclosure blob", {{"enclosure", inEnclosureID}});
        return result;
    }
    auto payload = ReadPayload(inRepo, entry.mOid);
    if (!payload) return ReadResult::Failed;
    outPayload = std::move(payload);
    return ReadResult::Found;
}

ReadResult ReadProductionEnclosure(const RepoPtr& inRepo, std::string_view inRevision,
                                   const ImmutableString& inEnclosureID, dto::Enclosure& outEnclosure,
                                   ConstRecycledMemoryPtr& outPayload)
{
    const git::ReadScope scope(inRepo);
    TreePtr root;
    ReadResult result = GetTreeAtRevision(inRepo, inRevision, root);
    if (result != ReadResult::Found) return result;
    TreeEntry entry;
    result = git::FindEntry(inRepo, root, MakeObjectPath({}, "enclosures", inEnclosureID), entry);
    if (result != ReadResult::Found) {
        LogWarning("GitBox", "Unable to get enclosure blob", {{"enclosure", inEnclosureID}});
        return result;
    }
    dto::Enclosure enclosure;
    entry.mName = inEnclosureID;
    Oid content;
    if (!ReadEnclosureTree(inRepo, entry, enclosure) || !Oid::FromText(enclosure.mEnclosureContentID, content)) {
        return ReadResult::Failed;
    }
    auto payload = ReadPayload(inRepo, content);
    if (!payload) return ReadResult::Failed;
    outEnclosure = std::move(enclosure);
    outPayload = std::move(payload);
    return ReadResult::Found;
}

ReadResult ReadProductionEnclosures(const RepoPtr& inRepo, std::string_view inRevision,
                                    std::vector<dto::Enclosure>& outEnclosures)
{
    const git::ReadScope scope(inRepo);
    TreePtr root;
    const ReadResult result = GetTreeAtRevision(inRepo, inRevision, root);
    if (result != ReadResult::Found) return result;
    std::vector<dto::Enclosure> enclosures;
    TreeEntry entry;
    if (root->Find("enclosures", entry)) {
        const TreePtr tree = git::GetTree(inRepo, entry.mOid);
        if (!tree || !ReadEnclosuresPropertiesWithPrefixSubtree(inRepo, tree, enclosures)) return ReadResult::Failed;
    }
    outEnclosures = std::move(enclosures);
    return ReadResult::Found;
}

ReadResult ReadPayloadByContentHash(const RepoPtr& inRepo, const ImmutableString& inContentID,
                                    ConstRecycledMemoryPtr& outPayload)
{
    Oid id;
    const ReadResult result = FindContent(inRepo, inContentID, ObjectType::Blob, id);
    if (result != ReadResult::Found) {
        LogWarning("GitBox", "Unable to get enclosure", {{"contentID", inContentID}});
        return result;
    }
    auto payload = ReadPayload(inRepo, id);
    if (!payload) return ReadResult::Failed;
    outPayload = std::move(payload);
    return ReadResult::Found;
}

}  // namespace VantryLocalHub::GitBox::IO
