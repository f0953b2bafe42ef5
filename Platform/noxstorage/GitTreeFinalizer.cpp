#include <algorithm>
#include <atomic>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitTreeBuilder.h"
#include "Platform/noxstorage/GitTrees.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kWorthAllProcessors = 16;  ///< folders of one depth

}  // namespace

/// Stores the changed trees of a builder, the deepest first, each depth on all processors.
class TreeFinalizer
{
public:
    explicit TreeFinalizer(RepoPtr inRepo) : mRepo(std::move(inRepo)) {}

    Oid Run(const TreeBuilderNodePtr& inRoot)
    {
        {
            const ScopedLock lock(inRoot->Root().mMakeMutex);
            Collect(*inRoot, 0);
        }
        for (auto level = mLevels.rbegin(); level != mLevels.rend() && !mFailed; ++level)
            StoreLevel(*level);
        if (mFailed) return Oid();
        const ScopedLock lock(inRoot->mMutex);
        return inRoot->mBaseID.IsZero() ? WriteObject(mRepo, ObjectType::Tree, {}) : inRoot->mBaseID;
    }

private:
    void Collect(TreeBuilderNode& inNode, std::size_t inDepth)
    {
        if (mLevels.size() <= inDepth) mLevels.resize(inDepth + 1);
        mLevels[inDepth].push_back(&inNode);
        for (const auto& [name, child] : inNode.mChildren)
            Collect(*child, inDepth + 1);
    }

    void StoreLevel(const std::vector<TreeBuilderNode*>& inNodes)
    {
        if (inNodes.size() < kWorthAllProcessors) {
            for (TreeBuilderNode* node : inNodes)
                Store(*node);
            return;
        }
        std::atomic<std::size_t> next{0};
        noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t, std::size_t) {
            for (std::size_t index = next++; index < inNodes.size(); index = next++)
                Store(*inNodes[index]);
        });
    }

    /// Takes the results of the folders below, then stores this one if it changed.
    void Store(TreeBuilderNode& inNode)
    {
        if (mFailed) return;
        const ScopedLock lock(inNode.mMutex);
        for (const auto& [name, child] : inNode.mChildren) {
            const ScopedLock childLock(child->mMutex);
            if (!child->mTouched) continue;
            child->mTouched = false;
            inNode.mTouched = true;
            using Entry = TreeBuilderNode::Entry;
            inNode.mChanges.insert_or_assign(
                name, child->mBaseID.IsZero() ? std::nullopt : std::optional(Entry{kModeTree, child->mBaseID}));
        }
        if (inNode.mChanges.empty()) return;
        const Tree* base = inNode.BaseLocked();
        if (base == nullptr && !inNode.mBaseID.IsZero()) {
            mFailed = true;
            return;
        }
        std::string raw = Merge(base, inNode.mChanges);
        if (raw.empty()) {
            inNode.mBaseID = Oid();
            inNode.mBase = nullptr;
        } else if (!StoreTree(std::move(raw), inNode.mBaseID, inNode.mBase)) {
            mFailed = true;
            return;
        }
        inNode.mChanges.clear();
    }

    bool StoreTree(std::string&& inRaw, Oid& inoutID, TreePtr& inoutTree)
    {
        const Oid oid = ComputeObjectID(ObjectType::Tree, inRaw);
        if (oid.IsZero()) return false;
        if (oid == inoutID) return true;
        auto content = std::make_shared<const std::string>(std::move(inRaw));
        if (!mRepo->GetStore().Write(oid, ObjectType::Tree, odb::Content::Share(content))) return false;
        inoutTree = Tree::Parse(oid, std::move(content));
        if (inoutTree == nullptr) return false;
        mRepo->GetStore().Trees().Add(inoutTree);  // the next edit starts from it
        inoutID = oid;
        return true;
    }

    using Changes = std::map<std::string, std::optional<TreeBuilderNode::Entry>, std::less<>>;
    static std::string Merge(const Tree* inBase, const Changes& inChanges)
    {
        std::vector<NewTreeEntry> added;
        for (const auto& [name, change] : inChanges)
            if (change.has_value()) added.push_back({name, change->mMode, change->mOid});
        const auto isTree = [](std::uint32_t inMode) { return (inMode & 0170000) == kModeTree; };
        std::sort(added.begin(), added.end(), [&](const NewTreeEntry& inLeft, const NewTreeEntry& inRight) {
            return CompareEntryNames(inLeft.mName, isTree(inLeft.mMode), inRight.mName, isTree(inRight.mMode)) < 0;
        });

        std::string raw;
        raw.reserve((inBase != nullptr ? inBase->Raw().size() : 0) + added.size() * 72);
        auto next = added.begin();
        const auto appendNext = [&] {
            AppendTreeEntry(raw, next->mName, next->mMode, next->mOid);
            ++next;
        };
        if (inBase != nullptr) {
            for (const TreeEntry& entry : *inBase) {
                if (inChanges.contains(entry.mName)) continue;
                while (next != added.end() &&
                       CompareEntryNames(next->mName, isTree(next->mMode), entry.mName, isTree(entry.mMode)) < 0)
                    appendNext();
                AppendTreeEntry(raw, entry.mName, entry.mMode, entry.mOid);
            }
        }
        while (next != added.end())
            appendNext();
        return raw;
    }

    const RepoPtr mRepo;
    std::vector<std::vector<TreeBuilderNode*>> mLevels;
    std::atomic<bool> mFailed{false};
};

Oid FinalizeTreeBuilderNode(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot)
{
    return inRepo != nullptr && inRoot != nullptr ? TreeFinalizer(inRepo).Run(inRoot) : Oid();
}

Oid WriteTree(const RepoPtr& inRepo, std::vector<NewTreeEntry> inEntries)
{
    const auto isTree = [](const NewTreeEntry& inEntry) { return (inEntry.mMode & 0170000) == kModeTree; };
    std::sort(inEntries.begin(), inEntries.end(), [&](const NewTreeEntry& inLeft, const NewTreeEntry& inRight) {
        return CompareEntryNames(inLeft.mName, isTree(inLeft), inRight.mName, isTree(inRight)) < 0;
    });
    std::string raw;
    for (const NewTreeEntry& entry : inEntries) {
        if (!IsAllowedEntryName(entry.mName) || entry.mOid.IsZero()) {
            LogGitError(-1, entry.mName, kErrorClassOdb, "no valid tree entry");
            return Oid();
        }
        AppendTreeEntry(raw, entry.mName, entry.mMode, entry.mOid);
    }
    return WriteObject(inRepo, ObjectType::Tree, raw);
}

}  // namespace noxstorage::git
