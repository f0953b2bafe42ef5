#include <utility>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace noxcore::threads {

namespace {

class DelayedTask final : public QueueOnlyOnce, public std::enable_shared_from_this<DelayedTask>
{
public:
    DelayedTask(std::shared_ptr<Executor> inExecutor, Task inTask, unsigned inDelay)
        : mExecutor(std::move(inExecutor)), mTask(std::move(inTask)), mDelay(inDelay)
    {
    }

    void Queue() override
    {
        {
            const ScopedLock lock(mMutex);
            if (mPending) return;
            mPending = true;
        }
        const bool queued = mExecutor->QueueAfter(mDelay, [weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->Run();
        });
        if (queued) return;
        const ScopedLock lock(mMutex);
        mPending = false;
    }

    bool IsPending() const override
    {
        const ScopedLock lock(mMutex);
        return mPending;
    }

private:
    void Run()
    {
        {
            const ScopedLock lock(mMutex);
            mPending = false;
        }
        mTask();
    }

    const std::shared_ptr<Executor> mExecutor;
    const Task mTask;
    const unsigned mDelay;
    mutable RecursiveMutex mMutex{LockRank::Leaf};
    bool mPending GUARDED_BY(mMutex) = false;
};

}  // namespace

std::shared_ptr<QueueOnlyOnce> QueueOnlyOnce::Create(std::shared_ptr<Executor> inExecutor, Task inTask,
                                                     unsigned inDelayMilliseconds)
{
    return std::make_shared<DelayedTask>(std::move(inExecutor), std::move(inTask), inDelayMilliseconds);
}

}  // namespace noxcore::threads
