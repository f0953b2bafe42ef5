#include "Src/Model/WalkAndCopy.h"

#include <algorithm>
#include <exception>
#include <string>

#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/GitTrees.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using git::ObjectType;
using git::Oid;
using git::PlacedObject;
using noxcore::threads::ScopedLock;

namespace {

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
    {
        const ScopedLock lock(mMutex);
        if (!mMet.emplace(inTree, ObjectType::Tree).second) return true;
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
    return ioTransfer.Copy(git::InOrderOfPlaces(mSource, TakeAll(&WalkAndCopyContext::mBlobs)));
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
                       [&](const PlacedObjects& inLevel) { return ioTransfer.Copy(inLevel); });
}

bool WalkAndCopyContext::NoteVisited(const Oid& inOid, ObjectType inType, std::string_view inContent)
{
    const ScopedLock lock(mMutex);
    if (const auto met = mMet.find(inOid); met == mMet.end() || met->second != inType) return false;
    const auto note = [this](const git::TreeEntry& inEntry) REQUIRES(mMutex) {
        if (mMet.emplace(inEntry.mOid, inEntry.Type()).second)
            (inEntry.Type() == ObjectType::Tree ? mTrees : mBlobs).insert(inEntry.mOid);
    };
    return inType != ObjectType::Tree || git::VisitEntries(inContent, note);
}

WalkAndCopyContext::Oids WalkAndCopyContext::TakeAll(OidSet WalkAndCopyContext::*inSet)
{
    const ScopedLock lock(mMutex);
    OidSet& set = this->*inSet;
    Oids oids(set.begin(), set.end());
    set.clear();
    return oids;
}

void WalkAndCopyContext::LeaveOutWhatIsThere(PlacedObjects& ioObjects) const
{
    const git::ReadScope scope(mDestination);
    std::erase_if(ioObjects,
                  [this](const PlacedObject& inObject) { return git::HasObject(mDestination, inObject.mOid); });
}

}  // namespace VantryLocalHub::GitBox
