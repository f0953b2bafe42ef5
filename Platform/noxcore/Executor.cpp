#include "Platform/noxcore/Executor.h"

#include <exception>
#include <mutex>

#include "Platform/noxcore/HubContext.h"

namespace noxcore::threads {

namespace {

constexpr std::size_t kIOBoundWidth = 8;

/// The three executors that every component of a hub shares, made on first use.
struct SharedExecutors
{
    std::shared_ptr<Executor> mIOBound;
    std::shared_ptr<Executor> mCPUBound;
    std::shared_ptr<Executor> mPreTermination;

    SharedExecutors()
    {
        ThreadingModel& threading = HubContext::Current()->GetThreading();
        mIOBound = threading.CreateExecutor("io", kIOBoundWidth);
        mCPUBound = threading.CreateExecutor("cpu", 0);
        mPreTermination = threading.CreateExecutor("pretermination", 1);
    }
};

SharedExecutors& Shared()
{
    return *HubContext::Current()->GetOrCreateInstance<SharedExecutors>();
}

}  // namespace

std::shared_ptr<Executor> IOBoundExecutor()
{
    return Shared().mIOBound;
}
std::shared_ptr<Executor> CPUBoundExecutor()
{
    return Shared().mCPUBound;
}
std::shared_ptr<Executor> PreTerminationExecutor()
{
    return Shared().mPreTermination;
}

std::shared_ptr<Executor> CreateIOBoundExecutor(std::string_view inName, std::size_t inWidth)
{
    return HubContext::Current()->GetThreading().CreateExecutor(inName, inWidth);
}

std::shared_ptr<Executor> CreateSubExecutor(const std::shared_ptr<Executor>& inParent, std::size_t inWidth)
{
    return HubContext::Current()->GetThreading().CreateSubExecutor(inParent, inWidth);
}

void ExecuteCPUBoundTaskOnAllProcessors(const std::function<void(std::size_t, std::size_t)>& inFunction)
{
    // That a part is missing must not be taken for work done: the caller gets the first exception.
    std::mutex mutex;
    std::exception_ptr first;
    HubContext::Current()->GetThreading().RunOnAllProcessors([&](std::size_t inIndex, std::size_t inCount) {
        try {
            inFunction(inIndex, inCount);
        } catch (...) {
            const std::lock_guard lock(mutex);
            if (first == nullptr) first = std::current_exception();
        }
    });
    if (first != nullptr) std::rethrow_exception(first);
}

std::shared_ptr<MainThread> GetRegisteredMainThread()
{
    return HubContext::Current()->GetThreading().GetMainThread();
}

void RunPlatformEventLoop()
{
    GetRegisteredMainThread()->RunLoop();
}

void AsyncCallFromMainThread(Task inTask)
{
    GetRegisteredMainThread()->Post(std::move(inTask));
}

}  // namespace noxcore::threads
