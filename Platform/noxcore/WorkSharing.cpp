#include "Platform/noxcore/WorkSharing.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>

#include "Platform/noxcore/ThreadPool.h"

namespace noxcore::threads {

namespace {

struct SharedWork
{
    std::mutex mMutex;
    std::condition_variable mDone;
    std::size_t mNext = 0;
    std::size_t mRunning = 0;  ///< helpers that have begun
    std::size_t mCount = 0;
    const std::function<void(std::size_t)>* mFunction = nullptr;  ///< valid while anything is left or running
    std::exception_ptr mException;                                ///< the first that a call ended with

    void TakeAll()
    {
        std::unique_lock lock(mMutex);
        while (mNext < mCount) {
            const std::size_t index = mNext++;
            lock.unlock();
            std::exception_ptr thrown;
            try {
                (*mFunction)(index);
            } catch (...) {
                thrown = std::current_exception();
            }
            lock.lock();
            if (thrown == nullptr) continue;
            if (mException == nullptr) mException = thrown;
            mNext = mCount;  // what is missing now makes the rest worth nothing
        }
    }

    void Help()
    {
        {
            const std::lock_guard lock(mMutex);
            if (mNext >= mCount) return;
            ++mRunning;
        }
        TakeAll();
        const std::lock_guard lock(mMutex);
        if (--mRunning == 0) mDone.notify_all();
    }
};

}  // namespace

void ShareWork(const std::shared_ptr<Executor>& inExecutor, std::size_t inHelpers, std::size_t inCount,
               const std::function<void(std::size_t)>& inFunction)
{
    const auto work = std::make_shared<SharedWork>();
    work->mCount = inCount;
    work->mFunction = &inFunction;
    const std::size_t helpers = inCount == 0 ? 0 : std::min(inHelpers, inCount - 1);
    for (std::size_t i = 0; i < helpers; ++i) {
        bool isQueued = false;
        try {
            isQueued = inExecutor->Queue([work] { work->Help(); });
        } catch (const std::exception&) {
            // The caller does the work alone: it may not leave while one that has begun uses its function.
        }
        if (!isQueued) break;
    }
    work->TakeAll();
    std::unique_lock lock(work->mMutex);
    work->mDone.wait(lock, [&] { return work->mRunning == 0; });
    if (work->mException != nullptr) std::rethrow_exception(work->mException);
}

void ShareSeparateWork(const std::shared_ptr<Executor>& inExecutor, std::size_t inHelpers, std::size_t inCount,
                       const std::function<void(std::size_t)>& inFunction)
{
    ShareWork(inExecutor, inHelpers, inCount, [&](std::size_t inIndex) { RunGuarded([&] { inFunction(inIndex); }); });
}

}  // namespace noxcore::threads
