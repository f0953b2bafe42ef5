#pragma once

#include <array>
#include <unordered_map>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/GitObjects.h"

namespace noxstorage::git::odb {

/// Trees of many entries (a bucket of assets, the list of buckets), so that each asset does not parse them again.
/// Bounded by bytes: what was not asked for while half of them were filled anew goes.
///
/// Threading: any thread; divided into parts, each with a mutex held for one look-up (rank None).
class TreeCache
{
public:
    TreePtr Find(const Oid& inOid);
    /// Keeps the tree if it is worth it: many entries, or those of a commit, with which every question begins.
    void Add(const TreePtr& inTree, bool inOfCommit = false);

private:
    using Mutex = noxcore::threads::RecursiveMutex;
    struct Part
    {
        Mutex mMutex;
        std::unordered_map<Oid, TreePtr> mYoung GUARDED_BY(mMutex);
        std::unordered_map<Oid, TreePtr> mOld GUARDED_BY(mMutex);
        std::size_t mYoungBytes GUARDED_BY(mMutex) = 0;

        void AddLocked(const TreePtr& inTree) REQUIRES(mMutex);
    };
    static constexpr std::size_t kParts = 16;
    std::array<Part, kParts> mParts;
};

}  // namespace noxstorage::git::odb
