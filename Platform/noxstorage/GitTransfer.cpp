#include "Platform/noxstorage/GitTransfer.h"

#include <algorithm>
#include <exception>

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
    return odb::DecodeInto(object.mData.mView, object.mSize, ioRoom, outContent);
}

/// Whether the content is that of the id.
bool IsWhole(const odb::EncodedObject& inObject, std::string& ioRoom, std::string_view& outContent)
{
    return DecodeContent(inObject, ioRoom, outContent) &&
           ComputeObjectID(inObject.mObject.mType, outContent) == inObject.mOid;
}

}  // namespace

std::vector<PlacedObject> InOrderOfPlaces(const RepoPtr& inRepo, std::span<const Oid> inOids)
{
    std::vector<PlacedObject> objects;
    objects.reserve(inOids.size());
    for (const Oid& oid : inOids)
        objects.push_back({oid, 0});
    // The index is in the order of ids.
    const auto executor = noxcore::threads::IOBoundExecutor();
    noxcore::threads::SortShared(executor, objects, [](const PlacedObject& inLeft, const PlacedObject& inRight) {
        return inLeft.mOid < inRight.mOid;
    });
    // What is not found is asked for by its id later, and fails then.
    ShareParts(std::span(objects), kPartOfIDs,
               [&](std::span<PlacedObject> inPart) { inRepo->GetStore().FindRows(inPart); });
    noxcore::threads::SortShared(executor, objects, IsBefore);
    return objects;
}

Transfer::Transfer(RepoPtr inSource, const RepoPtr& inDestination)
    : mSource(std::move(inSource)), mDestination(inDestination->GetStore())
{
    mDestination.BeginTransfer();
}

Transfer::~Transfer()
{
    try {
        if (!mEnded) End();
    } catch (const std::exception& exception) {
        // Whoever opens the file next takes up what the index lacks.
        LogGitError(-1, mSource->Path(), kErrorClassOdb, exception.what());
    }
}

bool Transfer::Copy(std::span<const PlacedObject> inObjects, const ContentVisitor& inVisitor, const Chooser& inChooser)
{
    return Share(inObjects, {true, inVisitor, inChooser});
}

bool Transfer::Visit(std::span<const PlacedObject> inObjects, const ContentVisitor& inVisitor)
{
    return Share(inObjects, {false, inVisitor, {}});
}

bool Transfer::End()
{
    std::vector<PlacedObject> rows;
    mEnded = true;
    {
        const ScopedLock lock(mMutex);
        rows = std::move(mRows);
    }
    return mDestination.EndTransfer(std::move(rows));
}

bool Transfer::Share(std::span<const PlacedObject> inObjects, const Work& inWork)
{
    ShareParts(inObjects, kPartOfObjects, [&](std::span<const PlacedObject> inPart) {
        if (!mFailed && !DoPart(inPart, inWork)) mFailed = true;
    });
    return !mFailed;
}

bool Transfer::DoPart(std::span<const PlacedObject> inPart, const Work& inWork)
{
    using Between = odb::Store::Between;
    odb::EncodedBatch batch(kRoom);
    std::string room;
    std::vector<PlacedObject> rows;
    while (!inPart.empty() && !mFailed) {
        batch.Clear();
        if (!mSource->GetStore().ReadEncoded(inPart, inWork.mChooser ? Between::Read : Between::PassedOver, batch) ||
            !VisitBatch(batch, inWork, room))
            return false;
        if (!inWork.mCopies) continue;
        batch.KeepWanted();
        rows.clear();
        if (!mDestination.WriteEncoded(batch.Objects(), rows)) return false;
        // What is written goes into the index whatever becomes of the rest.
        const ScopedLock lock(mMutex);
        mRows.insert(mRows.end(), rows.begin(), rows.end());
    }
    return true;
}

bool Transfer::VisitBatch(odb::EncodedBatch& ioBatch, const Work& inWork, std::string& ioRoom)
{
    const auto objects = ioBatch.Objects();
    for (auto object = objects.rbegin(); object != objects.rend(); ++object) {
        std::string_view content;
        object->mIsWanted = object->mIsWanted || inWork.mChooser(object->mOid);
        if (!object->mIsWanted) continue;
        if (!IsWhole(*object, ioRoom, content)) {
            LogGitError(kErrorMismatch, object->mOid.Text(), kErrorClassOdb, "the content has another id");
            NoteDamaged(mSource, object->mOid);
            return false;
        }
        if (inWork.mVisitor && !inWork.mVisitor(object->mOid, object->mObject.mType, content)) return false;
    }
    return true;
}

}  // namespace noxstorage::git
