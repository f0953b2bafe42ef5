#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

namespace noxcore::threads {

using Task = std::function<void()>;

/// Runs tasks, at most `width` at a time, in the order they were queued.
///
/// Each task runs under the HubContext of whoever queued it. An exception out of a task is logged and swallowed.
/// Threading: any thread may queue. A task must not wait for another task of the same executor.
class Executor
{
public:
    virtual ~Executor() = default;
    /// False when the executor accepts no further work, or the system gives it not even one thread; the task is
    /// dropped then.
    virtual bool Queue(Task inTask) = 0;
    /// Queues the task once the delay has passed, unless the executor was shut down meanwhile. False as for Queue.
    virtual bool QueueAfter(unsigned inMilliseconds, Task inTask) = 0;
    [[nodiscard]] virtual bool IsShuttingDown() const = 0;
    /// Accepts no further work and waits until what was queued has run; delayed tasks that are not due are dropped.
    virtual void ShutDownAndWait() = 0;
};

/// The main thread's queue: the platform event loop, which also carries all posted messages.
class MainThread
{
public:
    virtual ~MainThread() = default;
    /// Runs the task on the main thread, after what was posted before. Dropped after the loop has ended for good.
    virtual void Post(Task inTask) = 0;
    virtual void PostAfter(unsigned inMilliseconds, Task inTask) = 0;
    /// Runs posted tasks until Quit.
    virtual void RunLoop() = 0;
    /// Makes RunLoop return after the running task. Stays asked for: a loop that starts later returns at once.
    virtual void Quit() = 0;
    [[nodiscard]] virtual bool IsCurrentThread() const = 0;
};

/// How tasks come to run: real threads in the hub, one thread that a test turns by hand elsewhere.
class ThreadingModel
{
public:
    virtual ~ThreadingModel() = default;
    virtual std::shared_ptr<Executor> CreateExecutor(std::string_view inName, std::size_t inWidth) = 0;
    /// An executor of smaller width whose tasks run on the parent's threads.
    virtual std::shared_ptr<Executor> CreateSubExecutor(const std::shared_ptr<Executor>& inParent,
                                                        std::size_t inWidth) = 0;
    virtual std::shared_ptr<MainThread> GetMainThread() = 0;
    /// Calls the function once for each index below the number of processors, at the same time where there are
    /// threads, and returns when all calls have ended. The function gets index and count.
    virtual void RunOnAllProcessors(const std::function<void(std::size_t, std::size_t)>& inFunction) = 0;
};

/// The process-wide pool for work that waits for disks and peers; 8 wide.
std::shared_ptr<Executor> IOBoundExecutor();
/// The process-wide pool for work that computes; as wide as there are processors.
std::shared_ptr<Executor> CPUBoundExecutor();
/// Work that must be done before the process ends, though nobody waits for it: deleting folders.
std::shared_ptr<Executor> PreTerminationExecutor();
std::shared_ptr<Executor> CreateIOBoundExecutor(std::string_view inName, std::size_t inWidth);
std::shared_ptr<Executor> CreateSubExecutor(const std::shared_ptr<Executor>& inParent, std::size_t inWidth);

/// Calls the function once for each processor, with its number and how many there are, on as many threads. The caller
/// gets the first exception that one of them ended with, once all have.
void ExecuteCPUBoundTaskOnAllProcessors(const std::function<void(std::size_t, std::size_t)>& inFunction);

/// Declares the calling thread the main thread of the current context.
void RegisterCurrentThreadAsMainThread();
/// No thread is the main thread of the current context any more.
void UnregisterMainThread();
std::shared_ptr<MainThread> GetRegisteredMainThread();
void RunPlatformEventLoop();
/// Runs the function on the main thread, later.
void AsyncCallFromMainThread(Task inTask);

/// A task that is pending at most once: queuing it again while it waits adds nothing. Queuing from inside the running
/// task is allowed, and makes it run once more.
///
/// Threading: any thread. Its mutex guards the pending flag alone (rank Leaf).
class QueueOnlyOnce
{
public:
    static std::shared_ptr<QueueOnlyOnce> Create(std::shared_ptr<Executor> inExecutor, Task inTask,
                                                 unsigned inDelayMilliseconds);
    virtual ~QueueOnlyOnce() = default;
    virtual void Queue() = 0;
    [[nodiscard]] virtual bool IsPending() const = 0;
};

}  // namespace noxcore::threads
