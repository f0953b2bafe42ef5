#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/SystemParts.h"
#include "Platform/noxcore/ThreadPool.h"

namespace noxcore {

namespace {

/// The event loop over a queue. Whoever runs or registers it last is the main thread.
class QueueMainThread final : public threads::MainThread, public std::enable_shared_from_this<QueueMainThread>
{
public:
    void Post(threads::Task inTask) override
    {
        {
            const std::lock_guard lock(mMutex);
            if (mEnded) return;
            mTasks.push_back(BindCurrentContext(std::move(inTask)));
        }
        mChanged.notify_one();
    }

    void PostAfter(unsigned inMilliseconds, threads::Task inTask) override
    {
        mTimer.Add(inMilliseconds, [weak = weak_from_this(), task = BindCurrentContext(std::move(inTask))] {
            if (const auto self = weak.lock()) self->Post(task);
        });
    }

    void RunLoop() override
    {
        mThread = std::this_thread::get_id();
        std::unique_lock lock(mMutex);
        while (!mQuit) {
            if (mTasks.empty()) {
                mChanged.wait(lock);
                continue;
            }
            threads::Task task = std::move(mTasks.front());
            mTasks.pop_front();
            lock.unlock();
            threads::RunGuarded(task);
            task = nullptr;
            lock.lock();
        }
        mEnded = true;
        std::deque<threads::Task> dropped;
        dropped.swap(mTasks);
        lock.unlock();  // what they hold may post
    }

    void Quit() override
    {
        {
            const std::lock_guard lock(mMutex);
            mQuit = true;
        }
        mChanged.notify_one();
    }

    [[nodiscard]] bool IsCurrentThread() const override { return mThread == std::this_thread::get_id(); }

    void Register(std::thread::id inThread) { mThread = inThread; }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<threads::Task> mTasks;
    bool mQuit = false;
    bool mEnded = false;  ///< the loop was left for good
    std::atomic<std::thread::id> mThread;
    threads::TimerQueue mTimer;
};

}  // namespace

std::shared_ptr<threads::MainThread> MakeSystemMainThread()
{
    return std::make_shared<QueueMainThread>();
}

void threads::RegisterCurrentThreadAsMainThread()
{
    const auto main = std::dynamic_pointer_cast<QueueMainThread>(GetRegisteredMainThread());
    if (main) main->Register(std::this_thread::get_id());
}

void threads::UnregisterMainThread()
{
    const auto main = std::dynamic_pointer_cast<QueueMainThread>(GetRegisteredMainThread());
    if (main) main->Register({});
}

}  // namespace noxcore
