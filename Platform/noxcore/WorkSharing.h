#pragma once

#include <algorithm>
#include <boost/sort/pdqsort/pdqsort.hpp>
#include <cstddef>
#include <functional>
#include <memory>

#include "Platform/noxcore/Executor.h"

namespace noxcore::threads {

/// Calls the function once for each index below inCount: on the calling thread, and at the same time on up to
/// inHelpers threads of the executor. Returns when all calls have ended.
///
/// After a call that ends with an exception no more are begun, and the caller gets the first such exception: that a
/// part is missing is never taken for work done.
///
/// The caller takes work itself and waits only for helpers that have begun, so that it can be called from a task of
/// the same executor, and makes progress even where no helper ever comes.
void ShareWork(const std::shared_ptr<Executor>& inExecutor, std::size_t inHelpers, std::size_t inCount,
               const std::function<void(std::size_t)>& inFunction);

/// The same for items that stand for themselves: an exception is logged, and the others are done nonetheless.
void ShareSeparateWork(const std::shared_ptr<Executor>& inExecutor, std::size_t inHelpers, std::size_t inCount,
                       const std::function<void(std::size_t)>& inFunction);

/// Calls the one function here, and the other at the same time on a thread of the executor, or not at all where none
/// has come to it by the end of the first. Returns when both have ended; an exception of either reaches the caller.
void WorkWithHelp(const std::shared_ptr<Executor>& inExecutor, const std::function<void()>& inHere,
                  const std::function<void()>& inBeside);

/// Sorts many items by two threads, with room for half of them beside.
template <class Items, class Before = std::less<>>
void SortShared(const std::shared_ptr<Executor>& inExecutor, Items& ioItems, Before inBefore = {})
{
    constexpr std::size_t kWorthAThread = 20000;
    if (ioItems.size() < kWorthAThread)
        return boost::sort::pdqsort_branchless(ioItems.begin(), ioItems.end(), inBefore);
    const auto middle = ioItems.begin() + static_cast<std::ptrdiff_t>(ioItems.size() / 2);
    ShareWork(inExecutor, 1, 2, [&](std::size_t inHalf) {
        boost::sort::pdqsort_branchless(inHalf == 0 ? ioItems.begin() : middle, inHalf == 0 ? middle : ioItems.end(),
                                        inBefore);
    });
    std::inplace_merge(ioItems.begin(), middle, ioItems.end(), inBefore);
}

}  // namespace noxcore::threads
