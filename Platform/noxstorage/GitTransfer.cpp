#include "Platform/noxstorage/GitTransfer.h"

#include <algorithm>
#include <atomic>
#include <numeric>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kThreadsBesideTheCaller = 1;
constexpr std::size_t kPartOfIDs = 32768;       ///< looked up by one thread
constexpr std::size_t kPartOfObjects = 2048;    ///< copied by one thread
constexpr std::size_t kRoom = 1 * 1024 * 1024;  ///< bytes copied in one transaction

/// Calls the function with each part of the items, by several threads.
template <class Item, class Function>
void ShareParts(std::span<Item> inItems, std::size_t inPart, Function inFunction)
{
    const std::size_t parts = (inItems.size() + inPart - 1) / inPart;
    noxcore::threads::ShareWork(noxcore::threads::IOBoundExecutor(), kThreadsBesideTheCaller, parts,
                                [&](std::size_t inIndex) {
                                    const std::span<Item> rest = inItems.subspan(inIndex * inPart);
                                    inFunction(rest.first(std::min(inPart, rest.size())));
                                });
}

/// The object's bytes; those of a compressed one in ioRoom.
bool DecodeContent(const odb::EncodedObject& inObject, std::string& ioRoom, std::string_view& outContent)
{
    const odb::Encoded& object = inObject.mObject;
    outContent = object.mData.mView;
    if (object.mEncoding == 0) return outContent.size() == object.mSize;
    if (!odb::Decode(object.mEncoding, object.mData.mView, object.mSize, ioRoom)) return false;
    outContent = ioRoom;
    return true;
}

/// Objects on their way from store to store.
class Transfer
{
public:
    Transfer(const RepoPtr& inSource, odb::Store& inDestination) : mSource(inSource), mDestination(inDestination) {}

    bool Run(std::span<const PlacedObject> inObjects)
    {
        mDestination.BeginTransfer();
        ShareParts(inObjects, kPartOfObjects, [&](std::span<const PlacedObject> inPart) {
            if (!mFailed && !CopyPart(inPart)) mFailed = true;
        });
        return mDestination.EndTransfer(TakeRows()) && !mFailed;
    }

private:
    bool CopyPart(std::span<const PlacedObject> inPart)
    {
        odb::EncodedBatch batch(kRoom);
        std::string room;
        std::vector<PlacedObject> rows;
        while (!inPart.empty() && !mFailed) {
            batch.Clear();
            if (!mSource->GetStore().ReadEncoded(inPart, batch)) return false;
            for (const odb::EncodedObject& object : batch.Objects())
                if (!IsWhole(object, room)) return false;
            if (!mDestination.WriteEncoded(batch.Objects(), rows)) return false;
        }
        const ScopedLock lock(mMutex);
        mRows.insert(mRows.end(), rows.begin(), rows.end());
        return true;
    }

    std::vector<PlacedObject> TakeRows()
    {
        const ScopedLock lock(mMutex);
        return std::move(mRows);
    }

    static bool IsWhole(const odb::EncodedObject& inObject, std::string& ioRoom)
    {
        std::string_view content;
        if (DecodeContent(inObject, ioRoom, content) &&
            ComputeObjectID(inObject.mObject.mType, content) == inObject.mOid)
            return true;
        LogGitError(kErrorMismatch, inObject.mOid.Text(), kErrorClassOdb, "the content has another id");
        return false;
    }

    const RepoPtr& mSource;
    odb::Store& mDestination;
    std::atomic<bool> mFailed{false};
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::vector<PlacedObject> mRows GUARDED_BY(mMutex);
};

}  // namespace

std::vector<PlacedObject> InOrderOfPlaces(const RepoPtr& inRepo, std::span<const Oid> inOids)
{
    std::vector<PlacedObject> objects;
    objects.reserve(inOids.size());
    for (const Oid& oid : inOids)
        objects.push_back({oid, 0});
    // The index is in the order of ids.
    std::sort(objects.begin(), objects.end(),
              [](const PlacedObject& inLeft, const PlacedObject& inRight) { return inLeft.mOid < inRight.mOid; });
    // What is not found is asked for by its id later, and fails then.
    ShareParts(std::span(objects), kPartOfIDs,
               [&](std::span<PlacedObject> inPart) { inRepo->GetStore().FindRows(inPart); });
    std::sort(objects.begin(), objects.end(), IsBefore);
    return objects;
}

bool VisitObjects(const RepoPtr& inRepo, std::span<const PlacedObject> inObjects,
                  const std::function<bool(const Oid&, ObjectType, std::string_view)>& inVisitor)
{
    odb::EncodedBatch batch(kRoom);
    std::string room;
    std::string_view content;
    while (!inObjects.empty()) {
        batch.Clear();
        if (!inRepo->GetStore().ReadEncoded(inObjects, batch)) return false;
        for (const odb::EncodedObject& object : batch.Objects()) {
            if (!DecodeContent(object, room, content) || !inVisitor(object.mOid, object.mObject.mType, content))
                return false;
        }
    }
    return true;
}

bool TransferObjects(const RepoPtr& inSource, const RepoPtr& inDestination, std::span<const PlacedObject> inObjects)
{
    return Transfer(inSource, inDestination->GetStore()).Run(inObjects);
}

}  // namespace noxstorage::git
