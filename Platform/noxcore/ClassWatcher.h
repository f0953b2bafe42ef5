#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxcore/RecursiveMutex.h"

namespace noxcore::classref {

/// Counts the living objects of classes that ask for it, for each HubContext.
///
/// Threading: any thread; the mutex guards the map (rank Leaf).
class ClassWatcher
{
public:
    /// A member of a watched class: counts the object it is part of, copies included.
    class Counter
    {
    public:
        explicit Counter(std::string_view inClass) : mCount(Instance()->CountOf(inClass)) { ++*mCount; }
        Counter(const Counter& inOther) : mCount(inOther.mCount) { ++*mCount; }
        Counter& operator=(const Counter&) { return *this; }  // NOLINT(bugprone-unhandled-self-assignment)
        ~Counter() { --*mCount; }

    private:
        const std::shared_ptr<std::atomic<std::int64_t>> mCount;
    };

    /// The current context's.
    static std::shared_ptr<ClassWatcher> Instance();
    /// Reports every class of the current context that has living objects, one warning each; their number.
    static std::int64_t DetectLeaks();

private:
    std::shared_ptr<std::atomic<std::int64_t>> CountOf(std::string_view inClass);

    threads::RecursiveMutex mMutex{threads::LockRank::Leaf};
    std::map<std::string, std::shared_ptr<std::atomic<std::int64_t>>, std::less<>> mCounts GUARDED_BY(mMutex);
};

}  // namespace noxcore::classref
