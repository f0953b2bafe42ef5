#pragma once

#include <array>
#include <atomic>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/OdbContent.h"

namespace noxstorage::git::odb {

/// The objects that the index of the file does not know yet: those that wait in memory to be written, and those whose
/// row is written but not indexed. Readers look here first.
///
/// The life of an entry: Add (content, no row) -> MarkStored (row) -> Forget (in the index).
/// Threading: any thread. The list of waiting objects has a mutex (rank Leaf); the table is divided into parts, each
/// with a mutex held for one look-up (rank None), which may be taken under the first.
class WaitingObjects
{
public:
    struct Item
    {
        Oid mOid;
        std::shared_ptr<const Encoded> mObject;
    };
    using Batch = std::vector<Item>;

    struct Place
    {
        std::int64_t mRow = 0;                   ///< 0: not written yet
        std::shared_ptr<const Encoded> mObject;  ///< null once written
        ObjectType mType = ObjectType::Invalid;
    };

    /// False when the id is known here.
    bool Add(const Oid& inOid, std::shared_ptr<const Encoded> inObject);
    bool Find(const Oid& inOid, Place& outPlace) const;
    [[nodiscard]] bool Contains(const Oid& inOid) const;

    [[nodiscard]] bool HasWaiting() const;
    /// All that waits, in order of arrival. Readers find it still.
    Batch Take();
    /// Gives a batch back that could not be written.
    void PutBack(Batch inBatch);
    /// The batch is written: item n in the n-th row given, or found in the index (kIndexed).
    static constexpr std::int64_t kIndexed = -1;
    void MarkStored(const Batch& inBatch, const std::vector<std::int64_t>& inRows);
    /// An object whose row was written by other ways.
    void AddStored(const Oid& inOid, std::int64_t inRow, ObjectType inType);

    /// Written objects without an index entry, in the order of their ids.
    [[nodiscard]] std::vector<std::pair<Oid, std::int64_t>> NotIndexed() const;
    void Forget(std::span<const std::pair<Oid, std::int64_t>> inIndexed);
    /// All entries, waiting or stored, whose id begins with the bytes given.
    void CollectByPrefix(std::string_view inBytes, std::vector<Oid>& outOids) const;

    /// What is in memory only, batches that were taken included: they may come back.
    [[nodiscard]] std::size_t WaitingBytes() const { return mWaitingBytes; }
    [[nodiscard]] std::size_t NotIndexedCount() const { return mStoredCount; }

private:
    using Mutex = noxcore::threads::RecursiveMutex;
    struct Part
    {
        mutable Mutex mMutex;
        boost::unordered_flat_map<Oid, Place, std::hash<Oid>> mPlaces GUARDED_BY(mMutex);
    };
    static constexpr std::size_t kParts = 32;
    Part& PartOf(const Oid& inOid) { return mParts[inOid.Bytes()[0] % kParts]; }
    const Part& PartOf(const Oid& inOid) const { return mParts[inOid.Bytes()[0] % kParts]; }

    std::array<Part, kParts> mParts;
    mutable Mutex mListMutex{noxcore::threads::LockRank::Leaf};
    Batch mList GUARDED_BY(mListMutex);
    std::atomic<std::size_t> mWaitingBytes{0};
    std::atomic<std::size_t> mStoredCount{0};
    std::atomic<std::size_t> mPlacesCount{0};  ///< lets readers pass by when there is nothing
};

}  // namespace noxstorage::git::odb
