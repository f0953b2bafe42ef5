#include "Platform/noxstorage/OdbTreeCache.h"

#include <utility>

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kSmallestTree = 512;  ///< bytes; of smaller ones there are as many as assets
constexpr std::size_t kLargestTree = 4 * 1024 * 1024;
constexpr std::size_t kOverhead = 400;            ///< bytes of a tree beside its content, and of its place here
constexpr std::size_t kHalfOfPart = 1024 * 1024;  ///< bytes; 16 parts of two halves: 32 MB at most, a tree more each

}  // namespace

TreePtr TreeCache::Find(const Oid& inOid)
{
    Part& part = mParts[inOid.Bytes()[0] % kParts];
    const ScopedLock lock(part.mMutex);
    const auto young = part.mYoung.find(inOid);
    if (young != part.mYoung.end()) return young->second;
    const auto old = part.mOld.find(inOid);
    if (old == part.mOld.end()) return nullptr;
    TreePtr tree = old->second;
    part.AddLocked(tree);
    return tree;
}

void TreeCache::Add(const TreePtr& inTree, bool inOfCommit)
{
    const std::size_t size = inTree->Raw().size();
    if ((size < kSmallestTree && !inOfCommit) || size > kLargestTree) return;
    Part& part = mParts[inTree->ID().Bytes()[0] % kParts];
    const ScopedLock lock(part.mMutex);
    part.AddLocked(inTree);
}

void TreeCache::Part::AddLocked(const TreePtr& inTree)
{
    if (!mYoung.try_emplace(inTree->ID(), inTree).second) return;
    mYoungBytes += inTree->Raw().size() + kOverhead;
    if (mYoungBytes <= kHalfOfPart) return;
    mOld = std::exchange(mYoung, {});
    mYoungBytes = 0;
}

}  // namespace noxstorage::git::odb
