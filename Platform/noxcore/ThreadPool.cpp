#include "Platform/noxcore/ThreadPool.h"

#include <pthread.h>

#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"

namespace noxcore::threads {

namespace {

std::int64_t SteadyNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// A thread cannot join itself: one that drops the last reference to its own pool goes on alone and ends.
void JoinOrDetach(std::thread& inThread)
{
    if (!inThread.joinable()) return;
    if (inThread.get_id() == std::this_thread::get_id()) {
        inThread.detach();
    } else {
        inThread.join();
    }
}

}  // namespace

void RunGuarded(const Task& inTask)
{
    try {
        inTask();
    } catch (const std::exception& exception) {
        logging::LogError("noxcore", "A task ended with an exception", {{"exception", exception.what()}});
    } catch (...) {
        logging::LogError("noxcore", "A task ended with an exception", {{"exception", "unknown"}});
    }
}

TimerQueue::~TimerQueue()
{
    {
        const std::lock_guard lock(mState->mMutex);
        mState->mStop = true;
    }
    mState->mChanged.notify_all();
    JoinOrDetach(mThread);
}

bool TimerQueue::Add(unsigned inMilliseconds, Task inTask)
{
    const std::lock_guard lock(mState->mMutex);
    try {
        if (!mThread.joinable()) mThread = std::thread([state = mState] { Run(state); });
    } catch (const std::system_error&) {
        return false;
    }
    mState->mDue.emplace(SteadyNanoseconds() + std::int64_t{inMilliseconds} * 1000000, std::move(inTask));
    mState->mChanged.notify_all();
    return true;
}

void TimerQueue::Run(const std::shared_ptr<State>& inState)
{
    pthread_setname_np(pthread_self(), "timer");
    std::unique_lock lock(inState->mMutex);
    while (!inState->mStop) {
        if (inState->mDue.empty()) {
            inState->mChanged.wait(lock);
            continue;
        }
        const auto first = inState->mDue.begin();
        if (first->first > SteadyNanoseconds()) {
            const std::chrono::steady_clock::time_point due{std::chrono::nanoseconds(first->first)};
            inState->mChanged.wait_until(lock, due);
            continue;
        }
        Task task = std::move(first->second);
        inState->mDue.erase(first);
        lock.unlock();
        RunGuarded(task);
        task = nullptr;
        lock.lock();
    }
}

ThreadPool::ThreadPool(std::string inName, std::size_t inWidth, std::shared_ptr<TimerQueue> inTimer)
    : mName(std::move(inName)), mWidth(inWidth), mTimer(std::move(inTimer)), mState(std::make_shared<State>())
{
}

ThreadPool::~ThreadPool()
{
    {
        const std::lock_guard lock(mState->mMutex);
        mState->mShuttingDown = true;
        mState->mStop = true;
    }
    mState->mWork.notify_all();
    for (std::thread& thread : mThreads)
        JoinOrDetach(thread);
}

bool ThreadPool::Queue(Task inTask)
{
    return QueueBound(BindCurrentContext(std::move(inTask)));
}

bool ThreadPool::QueueBound(Task inTask)
{
    const std::lock_guard lock(mState->mMutex);
    if (mState->mShuttingDown) return false;
    mState->mTasks.push_back(std::move(inTask));
    // A sleeper that was woken still counts as asleep until it runs: it is good for one of the tasks that wait.
    const bool needsThread = mState->mTasks.size() > mState->mSleeping && mThreads.size() < mWidth;
    if (needsThread && StartThread()) return true;
    if (mThreads.empty()) {
        inTask = std::move(mState->mTasks.back());  // goes after the lock
        mState->mTasks.pop_back();
        return false;
    }
    mState->mWork.notify_one();
    return true;
}

bool ThreadPool::StartThread()
{
    try {
        mThreads.emplace_back([state = mState, name = mName] { Run(state, name); });
        return true;
    } catch (const std::system_error&) {
        return false;  // as many as there are do the work
    }
}

bool ThreadPool::QueueAfter(unsigned inMilliseconds, Task inTask)
{
    if (IsShuttingDown()) return false;
    return mTimer->Add(inMilliseconds, [weak = weak_from_this(), task = BindCurrentContext(std::move(inTask))] {
        if (const auto self = weak.lock()) self->QueueBound(task);
    });
}

bool ThreadPool::IsShuttingDown() const
{
    const std::lock_guard lock(mState->mMutex);
    return mState->mShuttingDown;
}

void ThreadPool::ShutDownAndWait()
{
    std::unique_lock lock(mState->mMutex);
    mState->mShuttingDown = true;
    mState->mIdle.wait(lock, [this] { return mState->mTasks.empty() && mState->mRunning == 0; });
}

void ThreadPool::Run(const std::shared_ptr<State>& inState, const std::string& inName)
{
    pthread_setname_np(pthread_self(), inName.substr(0, 15).c_str());
    std::unique_lock lock(inState->mMutex);
    for (;;) {
        if (inState->mTasks.empty()) {
            if (inState->mStop) return;
            ++inState->mSleeping;
            inState->mWork.wait(lock);
            --inState->mSleeping;
            continue;
        }
        Task task = std::move(inState->mTasks.front());
        inState->mTasks.pop_front();
        ++inState->mRunning;
        lock.unlock();
        RunGuarded(task);
        task = nullptr;  // what it holds may lock: never under the pool's mutex
        lock.lock();
        if (--inState->mRunning == 0 && inState->mTasks.empty()) inState->mIdle.notify_all();
    }
}

bool SubExecutor::Queue(Task inTask)
{
    return QueueBound(BindCurrentContext(std::move(inTask)));
}

bool SubExecutor::QueueBound(Task inTask)
{
    {
        const std::lock_guard lock(mMutex);
        if (mShuttingDown) return false;
        mTasks.push_back(std::move(inTask));
        if (mActive >= mWidth) return true;
        ++mActive;
    }
    if (mParent->Queue([self = shared_from_this()] { self->RunOne(); })) return true;
    const std::lock_guard lock(mMutex);
    if (--mActive == 0) {
        mTasks.clear();
        mIdle.notify_all();
    }
    return false;
}

void SubExecutor::RunOne()
{
    Task task;
    {
        const std::lock_guard lock(mMutex);
        if (!mTasks.empty()) {
            task = std::move(mTasks.front());
            mTasks.pop_front();
        }
    }
    if (task) RunGuarded(task);
    task = nullptr;
    {
        const std::lock_guard lock(mMutex);
        if (mTasks.empty()) {
            if (--mActive == 0) mIdle.notify_all();
            return;
        }
    }
    // The turn goes back to the parent between tasks, so that one busy sub-executor does not starve the others.
    if (mParent->Queue([self = shared_from_this()] { self->RunOne(); })) return;
    const std::lock_guard lock(mMutex);
    mTasks.clear();
    if (--mActive == 0) mIdle.notify_all();
}

bool SubExecutor::QueueAfter(unsigned inMilliseconds, Task inTask)
{
    if (IsShuttingDown()) return false;
    // The parent's timer only hands the task on, so a delayed task holds no turn.
    return mParent->QueueAfter(inMilliseconds, [weak = weak_from_this(), task = BindCurrentContext(std::move(inTask))] {
        if (const auto self = weak.lock()) self->QueueBound(task);
    });
}

bool SubExecutor::IsShuttingDown() const
{
    const std::lock_guard lock(mMutex);
    return mShuttingDown;
}

void SubExecutor::ShutDownAndWait()
{
    std::unique_lock lock(mMutex);
    mShuttingDown = true;
    mIdle.wait(lock, [this] { return mTasks.empty() && mActive == 0; });
}

}  // namespace noxcore::threads
