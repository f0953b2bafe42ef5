#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxcore/RecycledMemory.h"
#include "Platform/noxstorage/GitObjects.h"

namespace noxstorage::git {

class Repo;
class TreeBuilderNode;
using RepoPtr = std::shared_ptr<Repo>;
using TreeBuilderNodePtr = std::shared_ptr<TreeBuilderNode>;

/// One folder of a tree under construction: a stored tree and the changes to it. Folders below it that were asked for
/// are nodes of their own; all others keep their id unseen.
///
/// Threading: any thread may use any node; a node's own mutex guards its changes (rank None: nothing of the hub is
/// locked above it but the root's). Nodes are made under the mutex of their root (rank TreeBuilder).
/// FinalizeTreeBuilderNode wants all other work on the nodes to have ended.
class TreeBuilderNode
{
public:
    struct Entry
    {
        std::uint32_t mMode = 0;
        Oid mOid;
    };

    TreeBuilderNode(RepoPtr inRepo, std::string inPath, TreeBuilderNode* inRoot);
    TreeBuilderNode(const TreeBuilderNode&) = delete;
    TreeBuilderNode& operator=(const TreeBuilderNode&) = delete;

    /// Puts an entry under the name, in place of what was there. False for a name that git forbids or a zero id.
    bool Insert(std::string_view inName, const Oid& inOid, std::uint32_t inMode);
    /// Takes an entry away, with all changes below it; false, without a log, when there was none.
    bool Remove(std::string_view inName);
    /// Takes all entries away, below it too.
    void Clear();
    /// False when absent. Entries of nodes below show as they were before their changes.
    bool Find(std::string_view inName, Entry& outEntry) const;
    /// Number of entries; folders that were only asked for and hold nothing do not count.
    [[nodiscard]] std::size_t EntryCount() const;
    /// The folder's path from the root, without "/" at its ends; empty for the root.
    [[nodiscard]] const std::string& Path() const { return mPath; }

private:
    friend class TreeFinalizer;
    friend TreeBuilderNodePtr ConstructRootTreeBuilderNode(const RepoPtr&, const TreePtr&);
    friend TreeBuilderNodePtr ConstructSubTreeBuilderNodeForPath(const RepoPtr&, const TreeBuilderNodePtr&,
                                                                 std::string_view, std::string&);
    TreeBuilderNodePtr Child(std::string_view inName);
    TreeBuilderNode& Root() { return mRoot != nullptr ? *mRoot : *this; }
    /// Makes the folder what the id says (zero: empty), and those below it that were asked for too.
    void ResetTo(const Oid& inTree);
    bool ResetChild(std::string_view inName, const Oid& inTree);
    [[nodiscard]] bool HasEntries() const;
    const Tree* BaseLocked() const REQUIRES(mMutex);
    bool FindLocked(std::string_view inName, Entry& outEntry) const REQUIRES(mMutex);

    const RepoPtr mRepo;
    const std::string mPath;
    TreeBuilderNode* const mRoot;  ///< null for the root itself, which owns all others

    mutable noxcore::threads::RecursiveMutex mMakeMutex{
        noxcore::threads::LockRank::TreeBuilder};                      ///< the root's serves
    std::map<std::string, TreeBuilderNodePtr, std::less<>> mChildren;  ///< name -> node; under the root's mMakeMutex
    std::atomic<bool> mHasChildren{false};

    mutable noxcore::threads::RecursiveMutex mMutex;
    Oid mBaseID GUARDED_BY(mMutex);            ///< the stored tree that the changes apply to; zero for an empty folder
    mutable TreePtr mBase GUARDED_BY(mMutex);  ///< loaded when first needed
    mutable bool mBroken GUARDED_BY(mMutex) = false;  ///< the stored tree cannot be read
    bool mTouched GUARDED_BY(mMutex) = false;         ///< differs, maybe, from what the parent holds
    std::map<std::string, std::optional<Entry>, std::less<>> mChanges GUARDED_BY(mMutex);  ///< nothing: taken away
};

/// A root node on a tree; null for an empty root.
TreeBuilderNodePtr ConstructRootTreeBuilderNode(const RepoPtr& inRepo, const TreePtr& inTree);

/// The node of the folder part of a path under the root; outLeaf receives the last component (empty when the path ends
/// in "/", as in "conflict/"). The same path gives the same node. A folder that the tree lacks starts empty, and one
/// that stays empty leaves no trace.
TreeBuilderNodePtr ConstructSubTreeBuilderNodeForPath(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot,
                                                      std::string_view inPath, std::string& outLeaf);

/// Stores the trees of all changed folders, from the leaves upward, and gives the id of the root tree; all zero on
/// failure. Folders left empty are dropped from their parents. Untouched folders keep their ids and are not read.
/// The node may be changed and finalized again afterwards.
Oid FinalizeTreeBuilderNode(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot);

/// Stores the bytes as a blob and inserts it with mode 0100644.
bool TreeBuilderInsertPayload(const RepoPtr& inRepo, const TreeBuilderNodePtr& inNode, std::string_view inName,
                              const noxcore::utility::ConstRecycledMemoryPtr& inPayload);
bool TreeBuilderInsertBuffer(const RepoPtr& inRepo, const TreeBuilderNodePtr& inNode, std::string_view inName,
                             const void* inData, std::size_t inSize);

/// One entry of a tree to be written.
struct NewTreeEntry
{
    std::string_view mName;
    std::uint32_t mMode = kModeBlob;
    Oid mOid;
};

/// Stores a small tree of given entries, in any order, names all different; zero on failure.
Oid WriteTree(const RepoPtr& inRepo, std::vector<NewTreeEntry> inEntries);

}  // namespace noxstorage::git
