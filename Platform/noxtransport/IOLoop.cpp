#include "Platform/noxtransport/IOLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <future>
#include <utility>

#include "Platform/noxcore/Logging.h"

namespace noxtransport {

using noxcore::threads::ScopedLock;
using noxcore::threads::Task;

namespace {

thread_local const IOLoop* tCurrentLoop = nullptr;

}  // namespace

bool CallGuarded(const Task& inTask)
{
    try {
        inTask();
        return true;
    } catch (const std::exception& exception) {
        noxcore::logging::LogError("noxtransport", "A callback ended with an exception",
                                   {{"exception", exception.what()}});
    } catch (...) {
        noxcore::logging::LogError("noxtransport", "A callback ended with an exception", {{"exception", "unknown"}});
    }
    return false;
}

std::shared_ptr<IOLoop> IOLoop::Start()
{
    Descriptor wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake.IsOpen()) {
        LogSystemError("The transport cannot make its event descriptor");
        return nullptr;
    }
    auto executor = noxcore::threads::CreateIOBoundExecutor("transport", 1);
    std::shared_ptr<IOLoop> loop(new IOLoop(std::move(wake), executor));
    // The task keeps the loop, so that Run never outlives what it runs on.
    if (!executor->Queue([loop] { loop->Run(); })) {
        noxcore::logging::LogError("noxtransport", "The transport cannot have a thread");
        return nullptr;
    }
    return loop;
}

IOLoop::IOLoop(Descriptor inWake, std::shared_ptr<noxcore::threads::Executor> inExecutor)
    : mWake(std::move(inWake)), mExecutor(std::move(inExecutor))
{
}

IOLoop::~IOLoop() = default;

bool IOLoop::IsCurrentThread() const
{
    return tCurrentLoop == this;
}

bool IOLoop::Post(Task inTask)
{
    {
        const ScopedLock lock(mMutex);
        if (mEnded) return false;
        mCommands.push_back(std::move(inTask));
    }
    Wake();
    return true;
}

bool IOLoop::RunAndWait(const Task& inTask)
{
    if (IsCurrentThread()) {
        inTask();
        return true;
    }
    // Shared: the loop may still be inside set_value when the waiting thread goes on.
    const auto done = std::make_shared<std::promise<void>>();
    const bool posted = Post([done, &inTask] {
        CallGuarded(inTask);
        done->set_value();
    });
    if (posted) done->get_future().wait();
    return posted;
}

void IOLoop::End()
{
    {
        const ScopedLock lock(mMutex);
        mStop = true;
    }
    Wake();
    if (!IsCurrentThread()) mExecutor->ShutDownAndWait();
}

void IOLoop::Wake() const
{
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then the loop is awake anyway.
    [[maybe_unused]] const ssize_t written = write(mWake.Get(), &one, sizeof one);
}

void IOLoop::Watch(std::shared_ptr<Watched> inWatched)
{
    mWatched.push_back(std::move(inWatched));
}

void IOLoop::Unwatch(const Watched* inWatched)
{
    std::erase_if(mWatched, [&](const auto& inEntry) { return inEntry.get() == inWatched; });
}

void IOLoop::Run()
{
    tCurrentLoop = this;
    for (;;) {
        {
            const ScopedLock lock(mMutex);
            if (mStop) break;
        }
        RunCommands(false);
        WaitOnce();
    }
    // In the order they came, so a listener before its sessions: no new one follows an ending one.
    while (!mWatched.empty()) {
        const auto watched = std::move(mWatched.front());
        mWatched.erase(mWatched.begin());
        watched->OnLoopEnding();
    }
    RunCommands(true);
    tCurrentLoop = nullptr;
}

void IOLoop::RunCommands(bool inLast)
{
    for (;;) {
        std::vector<Task> commands;
        {
            const ScopedLock lock(mMutex);
            commands.swap(mCommands);
            if (commands.empty()) {
                mEnded = inLast;
                return;
            }
        }
        for (const Task& command : commands)
            CallGuarded(command);
    }
}

void IOLoop::WaitOnce()
{
    // A copy: what is watched changes while events are handed out.
    const std::vector<std::shared_ptr<Watched>> watched = mWatched;
    std::vector<pollfd> descriptors;
    descriptors.reserve(watched.size() + 1);
    descriptors.push_back({mWake.Get(), POLLIN, 0});
    for (const auto& entry : watched)
        descriptors.push_back({entry->GetDescriptor(), entry->WantedEvents(), 0});
    if (poll(descriptors.data(), descriptors.size(), -1) < 0) return;  // interrupted
    if (descriptors[0].revents != 0) {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t got = read(mWake.Get(), &count, sizeof count);
    }
    for (std::size_t i = 0; i < watched.size(); ++i) {
        const short events = descriptors[i + 1].revents;
        // Closed meanwhile by an earlier one's events: its descriptor may be another's by now.
        if (events == 0 || watched[i]->GetDescriptor() != descriptors[i + 1].fd) continue;
        watched[i]->OnEvents(events);
    }
}

}  // namespace noxtransport
