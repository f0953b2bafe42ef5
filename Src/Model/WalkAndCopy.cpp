#include "Src/Model/WalkAndCopy.h"

#include <algorithm>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/WorkSharing.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using git::ObjectType;
using git::TreeEntry;

namespace {

constexpr std::size_t kCopiersBesideTheCaller = 3;

}  // namespace

bool WalkAndCopyContext::Copy(const Oid& inTree)
{
    if (!mFailed && CopyWhole(inTree)) return true;
    noxcore::logging::LogError(kCategory, "Failure in WalkAndCopy", {{"srcRepo", mSource->Path()}});
    return false;
}

bool WalkAndCopyContext::CopyWhole(const Oid& inTree)
{
    TreePtr root;
    if (!CopyTree(inTree, root)) return false;
    if (!root) return true;
    std::vector<TreeEntry> folders;
    std::vector<TreePtr> owners;  // the entries' names point into them
    for (const TreeEntry& entry : *root) {
        TreePtr tree;
        if (entry.Type() != ObjectType::Tree) {
            if (!CopyBlob(entry.mOid)) return false;
            continue;
        }
        if (!CopyTree(entry.mOid, tree)) return false;
        if (!tree) continue;
        folders.insert(folders.end(), tree->begin(), tree->end());
        owners.push_back(std::move(tree));
    }
    noxcore::threads::ShareWork(noxcore::threads::IOBoundExecutor(), kCopiersBesideTheCaller, folders.size(),
                                [&](std::size_t inIndex) { AsyncCopyEntry(folders[inIndex]); });
    return !mFailed;
}

void WalkAndCopyContext::AsyncCopyEntry(const TreeEntry& inEntry)
{
    if (mFailed) return;
    const git::ReadScope scope(mSource);
    if (!CopyEntry(inEntry)) mFailed = true;
}

bool WalkAndCopyContext::CopyEntry(const TreeEntry& inEntry)
{
    if (inEntry.Type() != ObjectType::Tree) return CopyBlob(inEntry.mOid);
    TreePtr tree;
    if (!CopyTree(inEntry.mOid, tree)) return false;
    return !tree ||
           std::all_of(tree->begin(), tree->end(), [this](const TreeEntry& inChild) { return CopyEntry(inChild); });
}

bool WalkAndCopyContext::Take(const Oid& inOid)
{
    Part& part = mParts[inOid.Bytes()[0] % mParts.size()];
    const noxcore::threads::ScopedLock lock(part.mMutex);
    return part.mCopied.insert(inOid).second;
}

bool WalkAndCopyContext::CopyTree(const Oid& inTree, TreePtr& outTree)
{
    if (!Take(inTree)) return true;
    const TreePtr tree = git::GetTree(mSource, inTree);
    if (!tree || git::WriteObject(mDestination, ObjectType::Tree, tree->Raw()) != inTree) return false;
    outTree = tree;
    return true;
}

bool WalkAndCopyContext::CopyBlob(const Oid& inBlob)
{
    if (!Take(inBlob)) return true;
    const auto blob = git::GetBlob(mSource, inBlob);
    // The id is computed anew: content that was changed behind the store's back is no copy.
    return blob && git::WriteBlob(mDestination, git::BlobToConstRecycledMemoryPtr(blob)) == inBlob;
}

}  // namespace VantryLocalHub::GitBox::RopeFile
