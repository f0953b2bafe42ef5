#include "Src/Model/WalkAndCopy.h"

#include <exception>
#include <string>

#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/GitTrees.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using git::ObjectType;
using git::Oid;
using git::PlacedObject;
using noxcore::threads::ScopedLock;

namespace {

/// What the trees of one level name. Threading: any thread; mMutex (a leaf) guards the lists.
class Level
{
public:
    bool Add(ObjectType inType, std::string_view inContent)
    {
        const ScopedLock lock(mMutex);
        return inType == ObjectType::Tree &&
               git::VisitEntries(inContent, [this](const git::TreeEntry& inEntry) REQUIRES(mMutex) {
                   (inEntry.Type() == ObjectType::Tree ? mTrees : mBlobs).push_back(inEntry.mOid);
               });
    }

    std::vector<Oid> TakeTrees()
    {
        const ScopedLock lock(mMutex);
        return std::move(mTrees);
    }
    std::vector<Oid> TakeBlobs()
    {
        const ScopedLock lock(mMutex);
        return std::move(mBlobs);
    }

private:
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::vector<Oid> mTrees GUARDED_BY(mMutex);
    std::vector<Oid> mBlobs GUARDED_BY(mMutex);
};

}  // namespace

bool WalkAndCopyContext::Copy(const Oid& inTree)
{
    std::string exception;
    try {
        if (CopyNew(inTree)) return true;
    } catch (const std::exception& caught) {
        exception = caught.what();
    }
    noxcore::logging::LogError("RopeFile", "Failure in WalkAndCopy",
                               {{"srcRepo", mSource->Path()}, {"exception", exception}});
    return false;
}

bool WalkAndCopyContext::CopyNew(const Oid& inTree)
{
    git::Transfer transfer(mSource, mDestination);
    Oids blobs;
    std::vector<PlacedObjects> levels;
    bool isCopied = WalkTrees(inTree, transfer, blobs, levels);
    if (isCopied) {
        PlacedObjects placed = git::InOrderOfPlaces(mSource, blobs);
        LeaveOutWhatIsThere(placed);
        isCopied = transfer.Copy(placed);
    }
    for (auto trees = levels.rbegin(); isCopied && trees != levels.rend(); ++trees)
        isCopied = transfer.Copy(*trees);
    return transfer.End() && isCopied;
}

bool WalkAndCopyContext::WalkTrees(const Oid& inTree, git::Transfer& ioTransfer, Oids& outBlobs,
                                   std::vector<PlacedObjects>& outTrees)
{
    for (Oids trees{inTree}; TakeNew(trees), !trees.empty();) {
        Level level;
        const auto add = [&](const Oid&, ObjectType inType, std::string_view inContent) {
            return level.Add(inType, inContent);
        };
        PlacedObjects placed = git::InOrderOfPlaces(mSource, trees);
        if (!(mLooksFirst ? ioTransfer.Visit(placed, add) : ioTransfer.Copy(placed, add))) return false;
        if (mLooksFirst) {
            LeaveOutWhatIsThere(placed);
            outTrees.push_back(std::move(placed));
        }
        trees = level.TakeTrees();
        Oids blobs = level.TakeBlobs();
        TakeNew(blobs);
        outBlobs.insert(outBlobs.end(), blobs.begin(), blobs.end());
    }
    return true;
}

void WalkAndCopyContext::TakeNew(Oids& ioOids)
{
    std::erase_if(ioOids, [this](const Oid& inOid) { return !mCopied.insert(inOid).second; });
}

void WalkAndCopyContext::LeaveOutWhatIsThere(PlacedObjects& ioObjects) const
{
    if (!mLooksFirst) return;
    const git::ReadScope scope(mDestination);
    std::erase_if(ioObjects,
                  [this](const PlacedObject& inObject) { return git::HasObject(mDestination, inObject.mOid); });
}

}  // namespace VantryLocalHub::GitBox
