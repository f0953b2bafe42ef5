#pragma once

#include <array>
#include <atomic>

#include "Inc/Model/RopeFileBranches.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub::GitBox::RopeFile {

/// Copies what trees name into a repository that was empty at first. What one object copied is not read again by the
/// next, nor looked for where it was written, which would wait for the writer there.
///
/// Threading: Copy is called from one thread; it has the folders of the second level copied by several. Each part of
/// the set of copied ids has a mutex of its own (rank None).
class WalkAndCopyContext
{
public:
    WalkAndCopyContext(RepoPtr inSource, RepoPtr inDestination)
        : mSource(std::move(inSource)), mDestination(std::move(inDestination))
    {
    }

    /// False when an object cannot be read or written, or its content has another id than its name.
    bool Copy(const Oid& inTree);

private:
    struct Part
    {
        noxcore::threads::RecursiveMutex mMutex;
        noxstorage::git::OidSet mCopied GUARDED_BY(mMutex);
    };

    bool CopyWhole(const Oid& inTree);
    void AsyncCopyEntry(const noxstorage::git::TreeEntry& inEntry);
    bool CopyEntry(const noxstorage::git::TreeEntry& inEntry);
    /// Null where the tree, and so all below it, was copied already.
    bool CopyTree(const Oid& inTree, TreePtr& outTree);
    bool CopyBlob(const Oid& inBlob);
    /// False when somebody has it in hand already.
    bool Take(const Oid& inOid);

    const RepoPtr mSource;
    const RepoPtr mDestination;
    std::atomic<bool> mFailed{false};
    std::array<Part, 16> mParts;
};

}  // namespace VantryLocalHub::GitBox::RopeFile
