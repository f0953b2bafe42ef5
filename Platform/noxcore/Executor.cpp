#include "Platform/noxcore/Executor.h"

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
    HubContext::Current()->GetThreading().RunOnAllProcessors(inFunction);
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
