#pragma once

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
/// has no timer.
/// Threading: any thread. mMutex guards the entries (rank Leaf); an entry that goes is let go after mMutex, so that its
/// destructor may lock what it likes.
template <class Key, class Value>
class ExpiringEntryMap : public std::enable_shared_from_this<ExpiringEntryMap<Key, Value>>
{
public:
    using Entry = std::shared_ptr<Value>;

    /// The executor runs the sweeps. A timer that waits does not keep the map alive.
    static std::shared_ptr<ExpiringEntryMap> Create(const std::shared_ptr<threads::Executor>& inExecutor,
                                                    unsigned inLifetimeSeconds, unsigned inSweepSeconds)
    {
        constexpr unsigned kMillisecondsPerSecond = 1000;
        std::shared_ptr<ExpiringEntryMap> map(new ExpiringEntryMap(inLifetimeSeconds));
        map->mSweep = threads::QueueOnlyOnce::Create(
            inExecutor, [weak = std::weak_ptr(map)] { WeakSweep(weak); }, inSweepSeconds * kMillisecondsPerSecond);
        return map;
    }

    ExpiringEntryMap(const ExpiringEntryMap&) = delete;
    ExpiringEntryMap& operator=(const ExpiringEntryMap&) = delete;

    /// False where the key has an entry already, which stays and gets no younger.
    bool Insert(const Key& inKey, Entry inEntry)
    {
        const std::int64_t now = Now();
        Entry expired;
        {
            const threads::ScopedLock lock(mMutex);
            auto [place, isNew] = mEntries.try_emplace(inKey);
            if (!isNew && !IsExpired(place->second, now)) return false;
            expired = std::exchange(place->second, {std::move(inEntry), now}).mEntry;
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
    };

    explicit ExpiringEntryMap(unsigned inLifetimeSeconds) : mLifetime(inLifetimeSeconds * kTicksPerSecond) {}

    static std::int64_t Now() { return HubContext::Current()->GetClock().MonotonicTicks(); }

    static void WeakSweep(const std::weak_ptr<ExpiringEntryMap>& inMap)
    {
        if (const auto map = inMap.lock()) map->Sweep();
    }

    [[nodiscard]] bool IsExpired(const StampedEntry& inEntry, std::int64_t inNow) const
    {
        return inNow - inEntry.mInserted >= mLifetime;
    }

    void Sweep()
    {
        const std::int64_t now = Now();
        std::vector<Entry> expired;
        bool isEmpty = false;
        {
            const threads::ScopedLock lock(mMutex);
            std::erase_if(mEntries, [&](auto& ioEntry) {
                if (!IsExpired(ioEntry.second, now)) return false;
                expired.push_back(std::move(ioEntry.second.mEntry));
                return true;
            });
            isEmpty = mEntries.empty();
        }
        if (!isEmpty) mSweep->Queue();
    }

    const std::int64_t mLifetime;  ///< ticks
    std::shared_ptr<threads::QueueOnlyOnce> mSweep;
    mutable threads::RecursiveMutex mMutex{threads::LockRank::Leaf};
    std::map<Key, StampedEntry> mEntries GUARDED_BY(mMutex);
};

}  // namespace noxcore::utility
