#include "Platform/noxstorage/OdbWaiting.h"

#include <algorithm>

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kItemOverhead = 200;  ///< bytes of tables and pointers that one waiting object takes

std::size_t Weight(const Encoded& inObject)
{
    return inObject.mData.mView.size() + kItemOverhead;
}

}  // namespace

bool WaitingObjects::Add(const Oid& inOid, std::shared_ptr<const Encoded> inObject)
{
    const std::size_t weight = Weight(*inObject);
    // Table and list change together, or neither does: whoever finds the id here relies on the next commit to write it.
    const ScopedLock listLock(mListMutex);
    mList.push_back({inOid, inObject});
    bool added = false;
    try {
        Part& part = PartOf(inOid);
        const ScopedLock lock(part.mMutex);
        added = part.mPlaces.try_emplace(inOid, Place{0, inObject, inObject->mType}).second;
    } catch (...) {
        mList.pop_back();
        throw;
    }
    if (!added) {
        mList.pop_back();
        return false;
    }
    ++mPlacesCount;
    mWaitingBytes += weight;
    return true;
}

bool WaitingObjects::Find(const Oid& inOid, Place& outPlace) const
{
    if (mPlacesCount == 0) return false;
    const Part& part = PartOf(inOid);
    const ScopedLock lock(part.mMutex);
    const auto found = part.mPlaces.find(inOid);
    if (found == part.mPlaces.end()) return false;
    outPlace = found->second;
    return true;
}

bool WaitingObjects::Contains(const Oid& inOid) const
{
    if (mPlacesCount == 0) return false;
    const Part& part = PartOf(inOid);
    const ScopedLock lock(part.mMutex);
    return part.mPlaces.contains(inOid);
}

bool WaitingObjects::HasWaiting() const
{
    const ScopedLock lock(mListMutex);
    return !mList.empty();
}

WaitingObjects::Batch WaitingObjects::Take()
{
    const ScopedLock lock(mListMutex);
    return std::exchange(mList, {});
}

void WaitingObjects::PutBack(Batch inBatch)
{
    const ScopedLock lock(mListMutex);
    if (mList.empty()) {
        mList = std::move(inBatch);
        return;
    }
    inBatch.insert(inBatch.end(), std::make_move_iterator(mList.begin()), std::make_move_iterator(mList.end()));
    mList = std::move(inBatch);
}

void WaitingObjects::MarkStored(const Batch& inBatch, const std::vector<std::int64_t>& inRows)
{
    std::size_t stored = 0;
    std::size_t bytes = 0;
    for (std::size_t index = 0; index < inBatch.size(); ++index) {
        const Oid& oid = inBatch[index].mOid;
        bytes += Weight(*inBatch[index].mObject);
        Part& part = PartOf(oid);
        const ScopedLock lock(part.mMutex);
        if (inRows[index] == kIndexed) {
            part.mPlaces.erase(oid);
            continue;
        }
        part.mPlaces[oid] = Place{inRows[index], nullptr, inBatch[index].mObject->mType};
        ++stored;
    }
    mWaitingBytes -= bytes;
    mStoredCount += stored;
    mPlacesCount -= inBatch.size() - stored;
}

void WaitingObjects::AddStored(const Oid& inOid, std::int64_t inRow, ObjectType inType)
{
    Part& part = PartOf(inOid);
    const ScopedLock lock(part.mMutex);
    if (!part.mPlaces.try_emplace(inOid, Place{inRow, nullptr, inType}).second) return;
    ++mPlacesCount;
    ++mStoredCount;
}

std::vector<std::pair<Oid, std::int64_t>> WaitingObjects::NotIndexed() const
{
    std::vector<std::pair<Oid, std::int64_t>> found;
    found.reserve(mStoredCount);
    for (const Part& part : mParts) {
        const ScopedLock lock(part.mMutex);
        for (const auto& [oid, place] : part.mPlaces)
            if (place.mRow != 0) found.emplace_back(oid, place.mRow);
    }
    std::sort(found.begin(), found.end());
    return found;
}

void WaitingObjects::Forget(std::span<const std::pair<Oid, std::int64_t>> inIndexed)
{
    for (const auto& [oid, row] : inIndexed) {
        Part& part = PartOf(oid);
        const ScopedLock lock(part.mMutex);
        part.mPlaces.erase(oid);
    }
    mStoredCount -= inIndexed.size();
    mPlacesCount -= inIndexed.size();
}

void WaitingObjects::CollectByPrefix(std::string_view inBytes, std::vector<Oid>& outOids) const
{
    for (const Part& part : mParts) {
        const ScopedLock lock(part.mMutex);
        for (const auto& [oid, place] : part.mPlaces)
            if (oid.View().starts_with(inBytes)) outOids.push_back(oid);
    }
}

}  // namespace noxstorage::git::odb
