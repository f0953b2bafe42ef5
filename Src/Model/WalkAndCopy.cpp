#include "Src/Model/WalkAndCopy.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <iterator>
#include <span>
#include <string>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxstorage/GitTrees.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using git::ObjectType;
using git::Oid;
using git::PlacedObject;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kThreadsBesideTheCaller = 1;
constexpr std::size_t kTreesOfTask = 2048;

/// What the trees of one level name, read by several tasks.
class Level
{
public:
    explicit Level(const git::RepoPtr& inSource) : mSource(inSource) {}

    bool Read(std::span<const PlacedObject> inTrees)
    {
        std::atomic<bool> failed{false};
        noxcore::threads::ShareWork(noxcore::threads::IOBoundExecutor(), kThreadsBesideTheCaller,
                                    (inTrees.size() + kTreesOfTask - 1) / kTreesOfTask, [&](std::size_t inIndex) {
                                        const auto rest = inTrees.subspan(inIndex * kTreesOfTask);
                                        if (!failed && !AsyncCopyEntry(rest.first(std::min(rest.size(), kTreesOfTask))))
                                            failed = true;
                                    });
        return !failed;
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
    bool AsyncCopyEntry(std::span<const PlacedObject> inTrees)
    {
        std::vector<Oid> trees;
        std::vector<Oid> blobs;
        const auto read = [&](const Oid&, ObjectType inType, std::string_view inContent) {
            // Whether the bytes are those of the id is looked at when they are copied.
            return inType == ObjectType::Tree && git::VisitEntries(inContent, [&](const git::TreeEntry& inEntry) {
                       (inEntry.Type() == ObjectType::Tree ? trees : blobs).push_back(inEntry.mOid);
                   });
        };
        if (!git::VisitObjects(mSource, inTrees, read)) return false;
        const ScopedLock lock(mMutex);
        mTrees.insert(mTrees.end(), trees.begin(), trees.end());
        mBlobs.insert(mBlobs.end(), blobs.begin(), blobs.end());
        return true;
    }

    const git::RepoPtr& mSource;
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::vector<Oid> mTrees GUARDED_BY(mMutex);
    std::vector<Oid> mBlobs GUARDED_BY(mMutex);
};

void Append(std::vector<PlacedObject>& ioObjects, const std::vector<PlacedObject>& inMore)
{
    ioObjects.insert(ioObjects.end(), inMore.begin(), inMore.end());
}

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
    std::vector<PlacedObject> objects;
    for (Oids trees{inTree}; TakeNew(trees), !trees.empty();) {
        const std::vector<PlacedObject> placed = git::InOrderOfPlaces(mSource, trees);
        Append(objects, placed);
        Level level(mSource);
        if (!level.Read(placed)) return false;
        trees = level.TakeTrees();
        Oids blobs = level.TakeBlobs();
        TakeNew(blobs);
        Append(objects, git::InOrderOfPlaces(mSource, blobs));
    }
    std::sort(objects.begin(), objects.end(),
              [](const PlacedObject& inLeft, const PlacedObject& inRight) { return inLeft.mPlace < inRight.mPlace; });
    if (mLooksFirst) LeaveOutWhatIsThere(objects);
    return git::TransferObjects(mSource, mDestination, objects);
}

void WalkAndCopyContext::TakeNew(Oids& ioOids)
{
    std::erase_if(ioOids, [this](const Oid& inOid) { return !mCopied.insert(inOid).second; });
}

void WalkAndCopyContext::LeaveOutWhatIsThere(PlacedObjects& ioObjects) const
{
    const git::ReadScope scope(mDestination);
    std::erase_if(ioObjects,
                  [this](const PlacedObject& inObject) { return git::HasObject(mDestination, inObject.mOid); });
}

}  // namespace VantryLocalHub::GitBox
