#pragma once

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

}  // namespace noxcore::threads
