#include "Platform/noxstorage/GitTreeBuilder.h"

#include <algorithm>

#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitTrees.h"

namespace noxstorage::git {

using noxcore::threads::ScopedLock;

TreeBuilderNode::TreeBuilderNode(RepoPtr inRepo, std::string inPath, TreeBuilderNode* inRoot)
    : mRepo(std::move(inRepo)), mPath(std::move(inPath)), mRoot(inRoot)
{
}

const Tree* TreeBuilderNode::BaseLocked() const
{
    if (mBase == nullptr && !mBaseID.IsZero() && !mBroken) {
        mBase = GetTree(mRepo, mBaseID);
        mBroken = mBase == nullptr;
    }
    return mBase.get();
}

bool TreeBuilderNode::FindLocked(std::string_view inName, Entry& outEntry) const
{
    const auto change = mChanges.find(inName);
    if (change != mChanges.end()) {
        const std::optional<Entry>& entry = change->second;
        if (entry.has_value()) outEntry = *entry;
        return entry.has_value();
    }
    const Tree* base = BaseLocked();
    TreeEntry entry;
    if (base == nullptr || !base->Find(inName, entry)) return false;
    outEntry = {entry.mMode, entry.mOid};
    return true;
}

bool TreeBuilderNode::Find(std::string_view inName, Entry& outEntry) const
{
    const ScopedLock lock(mMutex);
    return FindLocked(inName, outEntry);
}

std::size_t TreeBuilderNode::EntryCount() const
{
    const ScopedLock lock(mMutex);
    const Tree* base = BaseLocked();
    std::size_t count = base != nullptr ? base->EntryCount() : 0;
    TreeEntry entry;
    for (const auto& [name, change] : mChanges) {
        const bool was = base != nullptr && base->Find(name, entry);
        if (was && !change.has_value()) --count;
        if (!was && change.has_value()) ++count;
    }
    return count;
}

bool TreeBuilderNode::HasEntries() const
{
    if (EntryCount() != 0) return true;
    return std::any_of(mChildren.begin(), mChildren.end(),
                       [](const auto& inChild) { return inChild.second->HasEntries(); });
}

bool TreeBuilderNode::Insert(std::string_view inName, const Oid& inOid, std::uint32_t inMode)
{
    if (!IsAllowedEntryName(inName) || inOid.IsZero()) {
        LogGitError(-1, inName, kErrorClassOdb, "no valid tree entry");
        return false;
    }
    const Entry entry{inMode, inOid};
    if (mHasChildren) ResetChild(inName, (inMode & 0170000) == kModeTree ? inOid : Oid());
    const ScopedLock lock(mMutex);
    mChanges.insert_or_assign(std::string(inName), entry);
    mTouched = true;
    return true;
}

bool TreeBuilderNode::Remove(std::string_view inName)
{
    const bool hadChild = mHasChildren && ResetChild(inName, Oid());
    const ScopedLock lock(mMutex);
    Entry entry;
    if (!FindLocked(inName, entry)) return hadChild;
    mChanges.insert_or_assign(std::string(inName), std::nullopt);
    mTouched = true;
    return true;
}

void TreeBuilderNode::Clear()
{
    const ScopedLock makeLock(Root().mMakeMutex);
    ResetTo(Oid());
    const ScopedLock lock(mMutex);
    mTouched = true;
}

bool TreeBuilderNode::ResetChild(std::string_view inName, const Oid& inTree)
{
    const ScopedLock makeLock(Root().mMakeMutex);
    const auto child = mChildren.find(inName);
    if (child == mChildren.end()) return false;
    const bool hadEntries = child->second->HasEntries();
    child->second->ResetTo(inTree);
    return hadEntries;
}

void TreeBuilderNode::ResetTo(const Oid& inTree)
{
    {
        const ScopedLock lock(mMutex);
        mBaseID = inTree;
        mBase = nullptr;
        mBroken = false;
        mTouched = false;
        mChanges.clear();
    }
    for (const auto& [name, child] : mChildren) {
        Entry entry;
        const bool isFolder = Find(name, entry) && (entry.mMode & 0170000) == kModeTree;
        child->ResetTo(isFolder ? entry.mOid : Oid());
    }
}

TreeBuilderNodePtr TreeBuilderNode::Child(std::string_view inName)
{
    const auto known = mChildren.find(inName);
    if (known != mChildren.end()) return known->second;
    const std::string path = mPath.empty() ? std::string(inName) : mPath + "/" + std::string(inName);
    auto child = std::make_shared<TreeBuilderNode>(mRepo, path, &Root());
    Entry entry;
    if (Find(inName, entry) && (entry.mMode & 0170000) == kModeTree) child->ResetTo(entry.mOid);
    mChildren.emplace(inName, child);
    mHasChildren = true;
    return child;
}

TreeBuilderNodePtr ConstructRootTreeBuilderNode(const RepoPtr& inRepo, const TreePtr& inTree)
{
    auto root = std::make_shared<TreeBuilderNode>(inRepo, std::string(), nullptr);
    const ScopedLock lock(root->mMutex);
    if (inTree != nullptr) {
        root->mBaseID = inTree->ID();
        root->mBase = inTree;
    }
    return root;
}

TreeBuilderNodePtr ConstructSubTreeBuilderNodeForPath(const RepoPtr&, const TreeBuilderNodePtr& inRoot,
                                                      std::string_view inPath, std::string& outLeaf)
{
    outLeaf.clear();
    if (inRoot == nullptr) return nullptr;
    const ScopedLock lock(inRoot->Root().mMakeMutex);
    TreeBuilderNodePtr node = inRoot;
    std::string_view rest = inPath;
    for (std::size_t slash = 0; (slash = rest.find('/')) != std::string_view::npos; rest.remove_prefix(slash + 1)) {
        const std::string_view part = rest.substr(0, slash);
        if (!IsAllowedEntryName(part)) {
            LogGitError(-1, inPath, kErrorClassOdb, "no valid path");
            return nullptr;
        }
        node = node->Child(part);
    }
    outLeaf = rest;
    return node;
}

bool TreeBuilderInsertPayload(const RepoPtr& inRepo, const TreeBuilderNodePtr& inNode, std::string_view inName,
                              const noxcore::utility::ConstRecycledMemoryPtr& inPayload)
{
    if (inNode == nullptr) return false;
    const Oid blob = WriteBlob(inRepo, inPayload);
    return !blob.IsZero() && inNode->Insert(inName, blob, kModeBlob);
}

bool TreeBuilderInsertBuffer(const RepoPtr& inRepo, const TreeBuilderNodePtr& inNode, std::string_view inName,
                             const void* inData, std::size_t inSize)
{
    if (inNode == nullptr) return false;
    const Oid blob = WriteBlob(inRepo, inData, inSize);
    return !blob.IsZero() && inNode->Insert(inName, blob, kModeBlob);
}

}  // namespace noxstorage::git
