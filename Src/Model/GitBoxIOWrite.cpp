#include <algorithm>
#include <atomic>
#include <unordered_map>

#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/Record.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox::IO {

namespace git = noxstorage::git;
using git::TreeBuilderNodePtr;
using noxcore::logging::LogError;

namespace {

/// Below this many changes one thread is done before others have begun.
constexpr std::size_t kWorthParallelWork = 512;

/// Builds trees of assets: an asset's own, or one that holds several.
class AssetTreeBuilder
{
public:
    explicit AssetTreeBuilder(RepoPtr inRepo) : mRepo(std::move(inRepo)) {}

    /// Zero on failure. With a list of entries the asset's tree is added to it under the literal name "assets".
    Oid BuildAssetTree(const dto::Asset& inAsset)
    {
        std::vector<git::NewTreeEntry> entries;
        const Oid enclosures = BuildEnclosuresTree(inAsset);
        if (!inAsset.mEnclosures.empty() && enclosures.IsZero()) return {};
        if (!enclosures.IsZero()) entries.push_back({"enclosures", git::kModeTree, enclosures});
        const std::string_view properties = inAsset.mProperties.Text();
        const Oid blob = git::WriteBlob(mRepo, properties.data(), properties.size(), &mWritten);
        if (blob.IsZero()) return {};
        entries.push_back({"properties", git::kModeBlob, blob});
        return git::WriteTree(mRepo, std::move(entries));
    }

    Oid BuildAssetsTree(const std::vector<dto::Asset>& inAssets)
    {
        std::vector<git::NewTreeEntry> entries;
        for (const dto::Asset& asset : inAssets) {
            const Oid tree = BuildAssetTree(asset);
            if (tree.IsZero()) return {};
            // The entry's name is this word for each of them, so that each replaces the one before.
            entries.assign(1, {"assets", git::kModeTree, tree});
        }
        return git::WriteTree(mRepo, std::move(entries));
    }

private:
    Oid BuildEnclosuresTree(const dto::Asset& inAsset)
    {
        std::vector<git::NewTreeEntry> entries;
        for (const dto::Enclosure& enclosure : inAsset.mEnclosures) {
            Oid content;
            if (!Oid::FromText(enclosure.mEnclosureContentID, content)) return {};
            const Oid name = git::WriteBlob(mRepo, enclosure.mName.data(), enclosure.mName.size(), &mWritten);
            if (name.IsZero()) return {};
            const Oid tree =
                git::WriteTree(mRepo, {{"name", git::kModeBlob, name}, {"content", git::kModeBlob, content}});
            if (tree.IsZero()) return {};
            entries.push_back({enclosure.mEnclosureID.View(), git::kModeTree, tree});
        }
        return entries.empty() ? Oid() : git::WriteTree(mRepo, std::move(entries));
    }

    const RepoPtr mRepo;
    git::OidSet mWritten;
};

/// What a commit refers to must be in the store before it.
class ContentCheck
{
public:
    explicit ContentCheck(RepoPtr inRepo) : mRepo(std::move(inRepo)), mWhole(mRepo->MayLackContent()) {}

    /// Whether the object is there, and not of another type; where content may have been lost, also all that it refers
    /// to.
    [[nodiscard]] bool IsStored(const Oid& inOid, git::ObjectType inType) const
    {
        git::ObjectType type = git::ObjectType::Invalid;
        const ReadResult result =
            mWhole ? git::FindObjectType(mRepo, inOid, type) : git::FindObject(mRepo, inOid, type);
        const bool hasType = type == inType || (!mWhole && type == git::ObjectType::Invalid);
        if (result != ReadResult::Found || !hasType) {
            LogError("GitBox", "Content of a commit is not in the store",
                     {{"path", mRepo->Path()}, {"contentID", inOid.Text()}});
            return false;
        }
        return !mWhole || type != git::ObjectType::Tree || AreEntriesStored(inOid);
    }

    /// All of them; in order of ids, which are looked up faster than in any other.
    [[nodiscard]] bool AreStored(std::vector<Oid> inOids, git::ObjectType inType) const
    {
        std::sort(inOids.begin(), inOids.end());
        if (inOids.size() < kWorthParallelWork) return AreStored(inOids.data(), inOids.size(), inType);
        std::atomic<bool> failed{false};
        noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t inIndex, std::size_t inCount) {
            const std::size_t begin = inOids.size() * inIndex / inCount;
            const std::size_t end = inOids.size() * (inIndex + 1) / inCount;
            if (!AreStored(inOids.data() + begin, end - begin, inType)) failed = true;
        });
        return !failed;
    }

private:
    [[nodiscard]] bool AreStored(const Oid* inOids, std::size_t inCount, git::ObjectType inType) const
    {
        const git::ReadScope scope(mRepo);
        return std::all_of(inOids, inOids + inCount, [&](const Oid& inOid) { return IsStored(inOid, inType); });
    }

    [[nodiscard]] bool AreEntriesStored(const Oid& inTree) const
    {
        const TreePtr tree = git::GetTree(mRepo, inTree);
        return tree && std::all_of(tree->begin(), tree->end(), [this](const git::TreeEntry& inEntry) {
                   return IsStored(inEntry.mOid, inEntry.Type());
               });
    }

    const RepoPtr mRepo;
    const bool mWhole;
};

/// One commit in the making: the changes of a transaction on the trees of the head.
class ChangeWriter
{
public:
    ChangeWriter(RepoPtr inRepo, TreeBuilderNodePtr inRoot, bool inClearConflicts)
        : mRepo(std::move(inRepo)), mRoot(std::move(inRoot)), mClearConflicts(inClearConflicts)
    {
    }

    bool Write(const TransactionChanges& inChanges)
    {
        if (!IsContentStored(inChanges) || (mClearConflicts && !ClearMarkers())) return false;
        mHasMarkers = HasMarkers();
        return WriteAssets(inChanges) && DeleteAssets(inChanges.mDeletedAssets) &&
               WriteProductionEnclosures(inChanges.mProductionEnclosures) &&
               DeleteProductionEnclosures(inChanges.mDeletedProductionEnclosures) &&
               (!inChanges.mProperties || WriteProperties(*inChanges.mProperties));
    }

    /// How many more bins there are than before.
    [[nodiscard]] std::int64_t BinDelta() const { return mBinDelta; }

private:
    [[nodiscard]] bool IsContentStored(const TransactionChanges& inChanges) const
    {
        std::vector<Oid> assets(inChanges.mAssets.size());
        std::vector<Oid> enclosures(inChanges.mProductionEnclosures.size());
        const auto read = [](const ImmutableString& inText, Oid& outOid) { return Oid::FromText(inText, outOid); };
        bool valid = true;
        for (std::size_t i = 0; i < assets.size(); ++i)
            valid = read(inChanges.mAssets[i].mAssetContentID, assets[i]) && valid;
        for (std::size_t i = 0; i < enclosures.size(); ++i)
            valid = read(inChanges.mProductionEnclosures[i].mEnclosureContentID, enclosures[i]) && valid;
        const ContentCheck check(mRepo);
        return valid && check.AreStored(std::move(assets), git::ObjectType::Tree) &&
               check.AreStored(std::move(enclosures), git::ObjectType::Blob);
    }

    /// Calls the function for each item, those of one fan-out bucket on one thread.
    template <class Item, class Name, class Function>
    bool ForEachInBuckets(const std::vector<const Item*>& inItems, const Name& inName, const Function& inFunction) const
    {
        if (inItems.size() < kWorthParallelWork) {
            return std::all_of(inItems.begin(), inItems.end(), [&](const Item* inItem) { return inFunction(*inItem); });
        }
        std::unordered_map<std::string_view, std::vector<const Item*>> byBucket;
        for (const Item* item : inItems)
            byBucket[inName(*item).substr(0, 2)].push_back(item);
        std::vector<const std::vector<const Item*>*> buckets;
        buckets.reserve(byBucket.size());
        for (const auto& [name, items] : byBucket)
            buckets.push_back(&items);
        std::atomic<std::size_t> next{0};
        std::atomic<bool> failed{false};
        noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t, std::size_t) {
            const git::ReadScope scope(mRepo);
            for (std::size_t i = next++; i < buckets.size() && !failed; i = next++) {
                for (const Item* item : *buckets[i]) {
                    if (!inFunction(*item)) failed = true;
                }
            }
        });
        return !failed;
    }

    TreeBuilderNodePtr Node(const std::string& inPath, std::string& outLeaf)
    {
        return git::ConstructSubTreeBuilderNodeForPath(mRepo, mRoot, inPath, outLeaf);
    }

    bool ClearMarkers()
    {
        std::string leaf;
        const auto node = Node("conflict/", leaf);
        if (!node) return false;
        node->Clear();
        return true;
    }

    bool HasMarkers() const
    {
        git::TreeBuilderNode::Entry entry;
        return mRoot->Find("conflict", entry) && !mClearConflicts;
    }

    /// Sets the marker at the path, or takes away one that stands there.
    bool WriteMarker(const std::string& inPath, const ImmutableString& inBase, const ImmutableString& inOther)
    {
        const bool hasConflict = !inBase.empty() || !inOther.empty();
        if (!hasConflict && !mHasMarkers) return true;
        std::string leaf;
        const auto node = Node(inPath, leaf);
        if (!node) return false;
        if (!hasConflict) {
            node->Remove(leaf);
            return true;
        }
        const std::string text = dto::ToJSON(dto::ConflictMarker{inBase, inOther});
        return git::TreeBuilderInsertBuffer(mRepo, node, leaf, text.data(), text.size());
    }

    /// Whether an asset that the commit replaces is a bin. One that cannot be read never counted.
    [[nodiscard]] bool IsBin(const Oid& inTree) const
    {
        const git::ReadScope scope(mRepo);
        const TreePtr tree = git::GetTree(mRepo, inTree);
        git::TreeEntry properties;
        const auto blob = tree && tree->Find("properties", properties) ? git::GetBlob(mRepo, properties.mOid) : nullptr;
        return blob &&
               dto::ReadAssetTraits(dto::RawJSON(std::string(blob->Content()))).mAssetType == VYCL::GetAssetType_Bin();
    }

    /// The bins are counted against the very tree that is written on: when the transaction took the asset, the head
    /// may have been another.
    void CountBin(const git::TreeBuilderNode& inNode, std::string_view inName, const Oid& inNewTree, bool inIsBin)
    {
        git::TreeBuilderNode::Entry replaced;
        const bool hasReplaced = inNode.Find(inName, replaced);
        if (hasReplaced && replaced.mOid == inNewTree) return;
        mBinDelta += (inIsBin ? 1 : 0) - (hasReplaced && IsBin(replaced.mOid) ? 1 : 0);
    }

    bool WriteAsset(const ChangedAsset& inAsset)
    {
        Oid tree;
        std::string leaf;
        const auto node = Node(MakeObjectPath({}, "assets", inAsset.mAssetID), leaf);
        if (!node || !Oid::FromText(inAsset.mAssetContentID, tree)) return false;
        CountBin(*node, leaf, tree, inAsset.mIsBin);
        return node->Insert(leaf, tree, git::kModeTree) &&
               WriteMarker(MarkerPath("assets", inAsset.mAssetID), inAsset.mBaseCommitID,
                           inAsset.mConflictsWithContentID);
    }

    bool WriteAssets(const TransactionChanges& inChanges)
    {
        std::vector<const ChangedAsset*> items;
        items.reserve(inChanges.mAssets.size());
        for (const ChangedAsset& asset : inChanges.mAssets)
            items.push_back(&asset);
        return ForEachInBuckets(
            items, [](const ChangedAsset& inAsset) { return inAsset.mAssetID.View(); },
            [this](const ChangedAsset& inAsset) { return WriteAsset(inAsset); });
    }

    bool DeleteAssets(const std::set<ImmutableString>& inIDs)
    {
        std::vector<const ImmutableString*> items;
        items.reserve(inIDs.size());
        for (const ImmutableString& id : inIDs)
            items.push_back(&id);
        return ForEachInBuckets(
            items, [](const ImmutableString& inID) { return inID.View(); },
            [this](const ImmutableString& inID) {
                std::string leaf;
                const auto node = Node(MakeObjectPath({}, "assets", inID), leaf);
                if (!node) return false;
                CountBin(*node, leaf, {}, false);
                node->Remove(leaf);
                return WriteMarker(MarkerPath("assets", inID), {}, {});
            });
    }

    bool WriteProductionEnclosure(const dto::Enclosure& inEnclosure)
    {
        Oid content;
        std::string leaf;
        const auto node = Node(MakeObjectPath({}, "enclosures", inEnclosure.mEnclosureID, "content"), leaf);
        if (!node || !Oid::FromText(inEnclosure.mEnclosureContentID, content)) return false;
        if (inEnclosure.mName.empty()) {
            node->Remove("name");
        } else if (!git::TreeBuilderInsertBuffer(mRepo, node, "name", inEnclosure.mName.data(),
                                                 inEnclosure.mName.size())) {
            return false;
        }
        return node->Insert(leaf, content, git::kModeBlob) &&
               WriteMarker(MarkerPath("enclosures", inEnclosure.mEnclosureID), inEnclosure.mBaseCommitID,
                           inEnclosure.mConflictsWithContentID);
    }

    bool WriteProductionEnclosures(const std::vector<dto::Enclosure>& inEnclosures)
    {
        std::vector<const dto::Enclosure*> items;
        items.reserve(inEnclosures.size());
        for (const dto::Enclosure& enclosure : inEnclosures)
            items.push_back(&enclosure);
        return ForEachInBuckets(
            items, [](const dto::Enclosure& inEnclosure) { return inEnclosure.mEnclosureID.View(); },
            [this](const dto::Enclosure& inEnclosure) { return WriteProductionEnclosure(inEnclosure); });
    }

    bool DeleteProductionEnclosures(const std::set<ImmutableString>& inIDs)
    {
        return std::all_of(inIDs.begin(), inIDs.end(), [this](const ImmutableString& inID) {
            std::string leaf;
            const auto node = Node(MakeObjectPath({}, "enclosures", inID), leaf);
            if (!node) return false;
            node->Remove(leaf);
            return WriteMarker(MarkerPath("enclosures", inID), {}, {});
        });
    }

    bool WriteProperties(const dto::ProductionProperties& inProperties)
    {
        const std::string_view text = inProperties.mProperties.Text();
        if (!git::TreeBuilderInsertBuffer(mRepo, mRoot, "properties", text.data(), text.size())) return false;
        const dto::ConflictMarker marker = inProperties.mConflict.value_or(dto::ConflictMarker());
        return !inProperties.mConflict ||
               WriteMarker(std::string(kSessionMarkerPath), marker.mBaseCommitID, marker.mConflictsWithContentID);
    }

    const RepoPtr mRepo;
    const TreeBuilderNodePtr mRoot;
    const bool mClearConflicts;
    bool mHasMarkers = false;  ///< the head has markers that edits may take away
    std::atomic<std::int64_t> mBinDelta{0};
};

/// A commit to be made on the head of `session`.
class NextCommit
{
public:
    NextCommit(const RepoPtr& inRepo, bool inKeepBackup)
        : mRepo(inRepo),
          mBackup(inKeepBackup ? kBranch_SessionBackup : std::string_view()),
          mHead(git::GetCommitForBranch(inRepo, kBranch_Session, mBackup))
    {
        const TreePtr tree = mHead ? git::GetTreeAtCommit(inRepo, mHead) : nullptr;
        if (tree)
            mRoot = git::ConstructRootTreeBuilderNode(inRepo, tree);
        else
            LogError("GitBox", "Unable to get odb for repository", {{"path", inRepo->Path()}});
    }

    /// The head's tree, to be changed; null when that cannot be read.
    [[nodiscard]] const TreeBuilderNodePtr& Root() const { return mRoot; }

    bool Write(std::string_view inMessage, CommitPtr& outCommit)
    {
        const Oid tree = git::FinalizeTreeBuilderNode(mRepo, mRoot);
        if (tree.IsZero()) return false;
        if (!git::HasObject(mRepo, tree)) {
            LogError("GitBox", "Unable to commit transaction", {{"path", mRepo->Path()}});
            return false;
        }
        const Oid expected = mHead->ID();
        CommitPtr commit = git::WriteCommit(mRepo, tree, MakeAuthor(), MakeCommitter(), inMessage, kBranch_Session,
                                            mBackup, &expected);
        if (!commit) return false;
        outCommit = std::move(commit);
        return true;
    }

private:
    const RepoPtr& mRepo;
    const std::string_view mBackup;
    const CommitPtr mHead;
    TreeBuilderNodePtr mRoot;
};

}  // namespace

ImmutableString ComputeContentHash(const RepoPtr& inRepo, const ConstRecycledMemoryPtr& inPayload)
{
    if (!inPayload || inPayload->empty()) return {};
    const Oid id = git::WriteBlob(inRepo, inPayload);
    return id.IsZero() ? ImmutableString() : ImmutableString(id.Text());
}

ImmutableString ComputeContentHash(const RepoPtr& inRepo, const std::vector<dto::Asset>& inAssets)
{
    const Oid id = AssetTreeBuilder(inRepo).BuildAssetsTree(inAssets);
    if (!id.IsZero()) return ImmutableString(id.Text());
    LogError("GitBox", "Can't build assets tree", {{"count", inAssets.size()}});
    return {};
}

bool ComputeContentHashAndEmbedInAsset(const RepoPtr& inRepo, dto::Asset& ioAsset)
{
    ioAsset.mAssetContentID = {};
    ioAsset.mEtag = {};
    const Oid tree = AssetTreeBuilder(inRepo).BuildAssetTree(ioAsset);
    if (tree.IsZero()) {
        LogError("GitBox", "Can't build asset tree", {{"assetId", ioAsset.mAssetID}, {"contentId", ""}});
        return false;
    }
    ioAsset.mAssetContentID = tree.Text();
    ioAsset.mEtag = EtagOfContent(ioAsset.mAssetContentID);
    return true;
}

bool Write(const RepoPtr& inRepo, const TransactionChanges& inChanges, bool inClearConflicts, bool inKeepBackup,
           std::string_view inMessage, CommitPtr& outCommit, std::int64_t& outBinDelta)
{
    try {
        NextCommit next(inRepo, inKeepBackup);
        if (!next.Root()) return false;
        ChangeWriter writer(inRepo, next.Root(), inClearConflicts);
        if (!writer.Write(inChanges) || !next.Write(inMessage, outCommit)) return false;
        outBinDelta = writer.BinDelta();
        return true;
    } catch (const std::exception& exception) {
        LogError("GitBox", "Unable to commit transaction", {{"path", inRepo->Path()}, {"exception", exception.what()}});
        return false;
    }
}

bool WriteWhole(const RepoPtr& inRepo, const WholeContent& inContent, bool inKeepBackup, std::string_view inMessage,
                CommitPtr& outCommit)
{
    NextCommit next(inRepo, inKeepBackup);
    const TreeBuilderNodePtr root = next.Root();
    if (!root) return false;
    root->Remove("conflict");
    for (const auto& [name, tree] :
         {std::pair("assets", inContent.mAssets), std::pair("enclosures", inContent.mProductionEnclosures)}) {
        root->Remove(name);
        if (!tree.IsZero() && !root->Insert(name, tree, git::kModeTree)) return false;
    }
    const std::string_view properties = inContent.mProperties.Text();
    return git::TreeBuilderInsertBuffer(inRepo, root, "properties", properties.data(), properties.size()) &&
           next.Write(inMessage, outCommit);
}

}  // namespace VantryLocalHub::GitBox::IO
