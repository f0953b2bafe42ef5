#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Platform/noxcore/Executor.h"

namespace noxcore::threads {

/// Runs functions once their delay has passed, on one thread that is made when first needed. The functions only hand
/// work on. Standard mutexes here: this is what the hub's own mutex and executors are made of.
class TimerQueue
{
public:
    TimerQueue() : mState(std::make_shared<State>()) {}
    ~TimerQueue();
    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;
    /// False, and the function is dropped, when there is no thread for it.
    bool Add(unsigned inMilliseconds, Task inTask);

private:
    struct State
    {
        std::mutex mMutex;
        std::condition_variable mChanged;
        std::multimap<std::int64_t, Task> mDue;  ///< steady time in nanoseconds -> function
        bool mStop = false;
    };
    static void Run(const std::shared_ptr<State>& inState);

    std::shared_ptr<State> mState;
    std::thread mThread;
};

/// An executor with threads of its own, made as work arrives, up to the width.
class ThreadPool final : public Executor, public std::enable_shared_from_this<ThreadPool>
{
public:
    ThreadPool(std::string inName, std::size_t inWidth, std::shared_ptr<TimerQueue> inTimer);
    ~ThreadPool() override;

    bool Queue(Task inTask) override;
    bool QueueAfter(unsigned inMilliseconds, Task inTask) override;
    [[nodiscard]] bool IsShuttingDown() const override;
    void ShutDownAndWait() override;

private:
    /// What the threads share; it outlives the pool when a pool's own task drops its last reference.
    struct State
    {
        mutable std::mutex mMutex;
        std::condition_variable mWork;
        std::condition_variable mIdle;
        std::deque<Task> mTasks;
        std::size_t mRunning = 0;
        std::size_t mSleeping = 0;
        bool mShuttingDown = false;
        bool mStop = false;
    };
    static void Run(const std::shared_ptr<State>& inState, const std::string& inName);
    bool QueueBound(Task inTask);
    /// Under the lock. False when the system gives no further thread.
    bool StartThread();

    const std::string mName;
    const std::size_t mWidth;
    const std::shared_ptr<TimerQueue> mTimer;
    const std::shared_ptr<State> mState;
    std::vector<std::thread> mThreads;  ///< guarded by mState->mMutex
};

/// An executor of a smaller width whose tasks take turns on a parent's threads.
class SubExecutor final : public Executor, public std::enable_shared_from_this<SubExecutor>
{
public:
    SubExecutor(std::shared_ptr<Executor> inParent, std::size_t inWidth) : mParent(std::move(inParent)), mWidth(inWidth)
    {
    }

    bool Queue(Task inTask) override;
    bool QueueAfter(unsigned inMilliseconds, Task inTask) override;
    [[nodiscard]] bool IsShuttingDown() const override;
    void ShutDownAndWait() override;

private:
    bool QueueBound(Task inTask);
    void RunOne();

    const std::shared_ptr<Executor> mParent;
    const std::size_t mWidth;
    mutable std::mutex mMutex;
    std::condition_variable mIdle;
    std::deque<Task> mTasks;
    std::size_t mActive = 0;  ///< turns asked of the parent that have not ended
    bool mShuttingDown = false;
};

/// Calls a task and swallows what it throws, with a record.
void RunGuarded(const Task& inTask);

}  // namespace noxcore::threads
