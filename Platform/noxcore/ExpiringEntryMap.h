#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace noxcore::utility {

/// Entries that are shared with whoever finds them and forgotten some time after they were put in, however often they
/// were asked for meanwhile.
///
/// One that is past its age is not found any more, and leaves the memory with the next sweep. A map without entries
/// has no timer. Where entries are given weights, the oldest leave when all together weigh more than the map holds; the
/// newest stays whatever it weighs.
/// Threading: any thread. mMutex guards the entries (rank Leaf); an entry that goes is let go after mMutex, so that its
/// destructor may lock what it likes.
template <class Key, class Value>
class ExpiringEntryMap : public std::enable_shared_from_this<ExpiringEntryMap<Key, Value>>
{
public:
    using Entry = std::shared_ptr<Value>;

    /// The executor runs the sweeps. A timer that waits does not keep the map alive.
    static std::shared_ptr<ExpiringEntryMap> Create(const std::shared_ptr<threads::Executor>& inExecutor,
                                                    unsigned inLifetimeSeconds, unsigned inSweepSeconds,
                                                    std::size_t inMostWeight = 0)
    {
        constexpr unsigned kMillisecondsPerSecond = 1000;
        std::shared_ptr<ExpiringEntryMap> map(new ExpiringEntryMap(inLifetimeSeconds, inMostWeight));
        map->mSweep = threads::QueueOnlyOnce::Create(
            inExecutor, [weak = std::weak_ptr(map)] { WeakSweep(weak); }, inSweepSeconds * kMillisecondsPerSecond);
        return map;
    }

    ExpiringEntryMap(const ExpiringEntryMap&) = delete;
    ExpiringEntryMap& operator=(const ExpiringEntryMap&) = delete;

    /// False where the key has an entry already, which stays and gets no younger.
    bool Insert(const Key& inKey, Entry inEntry, std::size_t inWeight = 0)
    {
        const std::int64_t now = Now();
        std::vector<Entry> gone;
        {
            const threads::ScopedLock lock(mMutex);
            auto [place, isNew] = mEntries.try_emplace(inKey);
            if (!isNew && !IsExpired(place->second, now)) return false;
            mWeight += inWeight - place->second.mWeight;
            gone.push_back(std::exchange(place->second, {std::move(inEntry), now, ++mLast, inWeight}).mEntry);
            while (mWeight > mMostWeight && mEntries.size() > 1)
                gone.push_back(RemoveLocked(OldestLocked()));
        }
        mSweep->Queue();
        return true;
    }

    /// Null where there is none.
    [[nodiscard]] Entry Find(const Key& inKey) const
    {
        const std::int64_t now = Now();
        const threads::ScopedLock lock(mMutex);
        const auto found = mEntries.find(inKey);
        return found == mEntries.end() || IsExpired(found->second, now) ? nullptr : found->second.mEntry;
    }

    /// In the order of their keys.
    [[nodiscard]] std::vector<Entry> Entries() const
    {
        const std::int64_t now = Now();
        std::vector<Entry> entries;
        const threads::ScopedLock lock(mMutex);
        for (const auto& [key, stamped] : mEntries) {
            if (!IsExpired(stamped, now)) entries.push_back(stamped.mEntry);
        }
        return entries;
    }

private:
    struct StampedEntry
    {
        Entry mEntry;
        std::int64_t mInserted = 0;  ///< ticks of the monotonic clock
        std::uint64_t mNumber = 0;   ///< tells which of two came first
        std::size_t mWeight = 0;
    };
    using StampedEntries = std::map<Key, StampedEntry>;

    ExpiringEntryMap(unsigned inLifetimeSeconds, std::size_t inMostWeight)
        : mLifetime(inLifetimeSeconds * kTicksPerSecond), mMostWeight(inMostWeight)
    {
    }

    static std::int64_t Now() { return HubContext::Current()->GetClock().MonotonicTicks(); }

    static void WeakSweep(const std::weak_ptr<ExpiringEntryMap>& inMap)
    {
        if (const auto map = inMap.lock()) map->Sweep();
    }

    [[nodiscard]] bool IsExpired(const StampedEntry& inEntry, std::int64_t inNow) const
    {
        return inNow - inEntry.mInserted >= mLifetime;
    }

    typename StampedEntries::iterator OldestLocked() REQUIRES(mMutex)
    {
        return std::min_element(mEntries.begin(), mEntries.end(), [](const auto& inLeft, const auto& inRight) {
            return inLeft.second.mNumber < inRight.second.mNumber;
        });
    }

    Entry RemoveLocked(typename StampedEntries::iterator inPlace) REQUIRES(mMutex)
    {
        mWeight -= inPlace->second.mWeight;
        return std::move(mEntries.extract(inPlace).mapped().mEntry);
    }

    void Sweep()
    {
        const std::int64_t now = Now();
        std::vector<Entry> expired;
        bool isEmpty = false;
        {
            const threads::ScopedLock lock(mMutex);
            for (auto place = mEntries.begin(); place != mEntries.end();) {
                const auto entry = place++;
                if (IsExpired(entry->second, now)) expired.push_back(RemoveLocked(entry));
            }
            isEmpty = mEntries.empty();
        }
        if (!isEmpty) mSweep->Queue();
    }

    const std::int64_t mLifetime;   ///< ticks
    const std::size_t mMostWeight;  ///< of all entries together
    std::shared_ptr<threads::QueueOnlyOnce> mSweep;
    mutable threads::RecursiveMutex mMutex{threads::LockRank::Leaf};
    StampedEntries mEntries GUARDED_BY(mMutex);
    std::size_t mWeight GUARDED_BY(mMutex) = 0;  ///< of all entries
    std::uint64_t mLast GUARDED_BY(mMutex) = 0;
};

}  // namespace noxcore::utility
