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

    /// The caller's last step: waits for the helpers that have begun.
    void End()
    {
        std::unique_lock lock(mMutex);
        mNext = mCount;
        mDone.wait(lock, [this] { return mRunning == 0; });
        if (mException != nullptr) std::rethrow_exception(mException);
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

/// False: nobody will come. The caller does the work alone then; it may not leave by an exception while one that has
/// begun uses its function.
bool AskForHelp(Executor& inExecutor, const std::shared_ptr<SharedWork>& inWork)
{
    try {
        return inExecutor.Queue([inWork] { inWork->Help(); });
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

void ShareWork(const std::shared_ptr<Executor>& inExecutor, std::size_t inHelpers, std::size_t inCount,
               const std::function<void(std::size_t)>& inFunction)
{
    const auto work = std::make_shared<SharedWork>();
    work->mCount = inCount;
    work->mFunction = &inFunction;
    const std::size_t helpers = inCount == 0 ? 0 : std::min(inHelpers, inCount - 1);
    for (std::size_t i = 0; i < helpers && AskForHelp(*inExecutor, work); ++i) {
    }
    work->TakeAll();
    work->End();
}

void WorkWithHelp(const std::shared_ptr<Executor>& inExecutor, const std::function<void()>& inHere,
                  const std::function<void()>& inBeside)
{
    const auto work = std::make_shared<SharedWork>();
    const std::function<void(std::size_t)> beside = [&](std::size_t) { inBeside(); };
    work->mCount = 1;
    work->mFunction = &beside;
    AskForHelp(*inExecutor, work);
    std::exception_ptr thrown;
    try {
        inHere();
    } catch (...) {
        thrown = std::current_exception();
    }
    work->End();
    if (thrown != nullptr) std::rethrow_exception(thrown);
}

void ShareSeparateWork(const std::shared_ptr<Executor>& inExecutor, std::size_t inHelpers, std::size_t inCount,
                       const std::function<void(std::size_t)>& inFunction)
{
    ShareWork(inExecutor, inHelpers, inCount, [&](std::size_t inIndex) { RunGuarded([&] { inFunction(inIndex); }); });
}

}  // namespace noxcore::threads
