#include "Src/Model/WalkAndCopy.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/GitTrees.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using git::ObjectType;
using git::Oid;
using git::PlacedObject;
using noxcore::threads::ScopedLock;

bool WalkAndCopyContext::Copy(const Oid& inTree)
{
    std::string exception;
    try {
        if (!mHasFailed && CopyNew(inTree)) return true;
    } catch (const std::exception& caught) {
        exception = caught.what();
    }
    mHasFailed = true;  // of what it met, not all is there
    noxcore::logging::LogError("RopeFile", "Failure in WalkAndCopy",
                               {{"srcRepo", mSource->Path()}, {"exception", exception}});
    return false;
}

bool WalkAndCopyContext::CopyNew(const Oid& inTree)
{
    {
        const ScopedLock lock(mMutex);
        const auto [met, isNew] = mMet.emplace(inTree, ObjectType::Tree);
        if (!isNew) return met->second == ObjectType::Tree;
        mTrees.insert(inTree);
    }
    git::Transfer transfer(mSource, mDestination);
    const bool isCopied = mLooksFirst ? CopyWhatIsMissing(transfer) : CopyAll(transfer);
    return transfer.End() && isCopied;
}

bool WalkAndCopyContext::CopyAll(git::Transfer& ioTransfer)
{
    const auto visit = [this](const Oid& inOid, ObjectType inType, std::string_view inContent) {
        return NoteVisited(inOid, inType, inContent);
    };
    const auto take = [this](const Oid& inOid) {
        const ScopedLock lock(mMutex);
        return mTrees.erase(inOid) + mBlobs.erase(inOid) != 0;
    };
    for (Oids trees; trees = TakeAll(&WalkAndCopyContext::mTrees), !trees.empty();)
        if (!ioTransfer.Copy(git::InOrderOfPlaces(mSource, trees), visit, take)) return false;
    return ioTransfer.Copy(git::InOrderOfPlaces(mSource, TakeAll(&WalkAndCopyContext::mBlobs)), visit);
}

bool WalkAndCopyContext::CopyWhatIsMissing(git::Transfer& ioTransfer)
{
    const auto visit = [this](const Oid& inOid, ObjectType inType, std::string_view inContent) {
        return NoteVisited(inOid, inType, inContent);
    };
    std::vector<PlacedObjects> levels;
    for (Oids trees; trees = TakeAll(&WalkAndCopyContext::mTrees), !trees.empty();) {
        levels.push_back(git::InOrderOfPlaces(mSource, trees));
        if (!ioTransfer.Visit(levels.back(), visit)) return false;
        LeaveOutWhatIsThere(levels.back());
    }
    levels.push_back(git::InOrderOfPlaces(mSource, TakeAll(&WalkAndCopyContext::mBlobs)));
    LeaveOutWhatIsThere(levels.back());
    return std::all_of(levels.rbegin(), levels.rend(),
                       [&](const PlacedObjects& inLevel) { return ioTransfer.Copy(inLevel, visit); });
}

bool WalkAndCopyContext::NoteVisited(const Oid& inOid, ObjectType inType, std::string_view inContent)
{
    const ScopedLock lock(mMutex);
    const auto visited = mMet.find(inOid);
    bool isNamedRightly = visited != mMet.end() && visited->second == inType;
    const auto note = [&](const git::TreeEntry& inEntry) REQUIRES(mMutex) {
        const auto [met, isNew] = mMet.emplace(inEntry.mOid, inEntry.Type());
        if (isNew) (inEntry.Type() == ObjectType::Tree ? mTrees : mBlobs).insert(inEntry.mOid);
        isNamedRightly = isNamedRightly && met->second == inEntry.Type();
    };
    const bool isWhole = inType != ObjectType::Tree || git::VisitEntries(inContent, note);
    if (!isWhole || !isNamedRightly)
        noxcore::logging::LogError("RopeFile", "An object is not what it is named as", {{"oid", inOid.Text()}});
    return isWhole && isNamedRightly;
}

WalkAndCopyContext::Oids WalkAndCopyContext::TakeAll(OidSet WalkAndCopyContext::*inSet)
{
    const ScopedLock lock(mMutex);
    const OidSet taken = std::exchange(this->*inSet, {});
    return {taken.begin(), taken.end()};
}

void WalkAndCopyContext::LeaveOutWhatIsThere(PlacedObjects& ioObjects) const
{
    const git::ReadScope scope(mDestination);
    std::erase_if(ioObjects,
                  [this](const PlacedObject& inObject) { return git::HasObject(mDestination, inObject.mOid); });
}

}  // namespace VantryLocalHub::GitBox
