#include "Tests/Support/VirtualHub.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "Platform/noxcore/SystemParts.h"

namespace testing_support {

using noxcore::threads::Task;

class VirtualExecutor final : public noxcore::threads::Executor
{
public:
    explicit VirtualExecutor(const std::shared_ptr<VirtualScheduler>& inScheduler)
        : mScheduler(inScheduler), mQueue(inScheduler->MakeQueue())
    {
    }

    bool Queue(Task inTask) override
    {
        if (!mQueue->mOpen) return false;
        mQueue->mTasks.push_back(noxcore::BindCurrentContext(std::move(inTask)));
        return true;
    }

    bool QueueAfter(unsigned inMilliseconds, Task inTask) override
    {
        const auto scheduler = mScheduler.lock();
        if (!mQueue->mOpen || !scheduler) return false;
        scheduler->AddTimer(inMilliseconds, mQueue, noxcore::BindCurrentContext(std::move(inTask)));
        return true;
    }

    [[nodiscard]] bool IsShuttingDown() const override { return !mQueue->mOpen; }

    void ShutDownAndWait() override
    {
        mQueue->mOpen = false;
        while (VirtualScheduler::StepQueue(mQueue)) {
        }
    }

private:
    const std::weak_ptr<VirtualScheduler> mScheduler;
    const VirtualScheduler::QueuePtr mQueue;
};

class VirtualMainThread final : public noxcore::threads::MainThread
{
public:
    explicit VirtualMainThread(const std::shared_ptr<VirtualScheduler>& inScheduler)
        : mScheduler(inScheduler), mQueue(inScheduler->MakeQueue())
    {
    }

    void Post(Task inTask) override
    {
        if (mQueue->mOpen) mQueue->mTasks.push_back(noxcore::BindCurrentContext(std::move(inTask)));
    }

    void PostAfter(unsigned inMilliseconds, Task inTask) override
    {
        if (const auto scheduler = mScheduler.lock()) {
            scheduler->AddTimer(inMilliseconds, mQueue, noxcore::BindCurrentContext(std::move(inTask)));
        }
    }

    void RunLoop() override
    {
        const auto scheduler = mScheduler.lock();
        while (!mQuit && scheduler && scheduler->RunUntil([this] { return mQuit; })) {
        }
        // A real loop would wait for ever here.
        EXPECT_TRUE(mQuit) << "nothing is left to run, and nobody has told the event loop to end";
    }

    void Quit() override { mQuit = true; }

    [[nodiscard]] bool IsCurrentThread() const override { return true; }

private:
    const std::weak_ptr<VirtualScheduler> mScheduler;
    const VirtualScheduler::QueuePtr mQueue;
    bool mQuit = false;
};

class VirtualThreading final : public noxcore::threads::ThreadingModel
{
public:
    explicit VirtualThreading(const std::shared_ptr<VirtualScheduler>& inScheduler)
        : mScheduler(inScheduler), mMainThread(std::make_shared<VirtualMainThread>(inScheduler))
    {
    }

    std::shared_ptr<noxcore::threads::Executor> CreateExecutor(std::string_view, std::size_t) override
    {
        return std::make_shared<VirtualExecutor>(mScheduler.lock());
    }

    std::shared_ptr<noxcore::threads::Executor> CreateSubExecutor(const std::shared_ptr<noxcore::threads::Executor>&,
                                                                  std::size_t) override
    {
        return std::make_shared<VirtualExecutor>(mScheduler.lock());
    }

    std::shared_ptr<noxcore::threads::MainThread> GetMainThread() override { return mMainThread; }

    void RunOnAllProcessors(const std::function<void(std::size_t, std::size_t)>& inFunction) override
    {
        constexpr std::size_t kProcessors = 2;
        for (std::size_t i = 0; i < kProcessors; ++i)
            inFunction(i, kProcessors);
    }

private:
    const std::weak_ptr<VirtualScheduler> mScheduler;
    const std::shared_ptr<noxcore::threads::MainThread> mMainThread;
};

VirtualScheduler::VirtualScheduler(std::uint64_t inSeed)
    : mSeed(inSeed), mGenerator(inSeed), mClock(std::make_shared<VirtualClock>())
{
}

VirtualScheduler::~VirtualScheduler()
{
    // Tasks hold contexts, and contexts what they run on: that ring is opened here.
    mTimers.clear();
    for (const auto& weak : mQueues) {
        const auto queue = weak.lock();
        if (!queue) continue;
        queue->mOpen = false;
        while (!queue->mTasks.empty())
            std::exchange(queue->mTasks, {}).clear();
    }
}

VirtualScheduler::QueuePtr VirtualScheduler::MakeQueue()
{
    auto queue = std::make_shared<QueueOfTasks>();
    mQueues.push_back(queue);
    return queue;
}

void VirtualScheduler::AddTimer(unsigned inMilliseconds, QueuePtr inQueue, Task inTask)
{
    const std::int64_t due = mClock->MonotonicTicks() + std::int64_t{inMilliseconds} * noxcore::kTicksPerMillisecond;
    mTimers.emplace(due, std::pair(std::move(inQueue), std::move(inTask)));
}

void VirtualScheduler::FireDueTimers()
{
    while (!mTimers.empty() && mTimers.begin()->first <= mClock->MonotonicTicks()) {
        auto node = mTimers.extract(mTimers.begin());
        auto& [queue, task] = node.mapped();
        if (queue->mOpen) queue->mTasks.push_back(std::move(task));
    }
}

bool VirtualScheduler::StepQueue(const QueuePtr& inQueue)
{
    if (inQueue->mTasks.empty()) return false;
    const Task task = std::move(inQueue->mTasks.front());
    inQueue->mTasks.erase(inQueue->mTasks.begin());
    task();
    return true;
}

bool VirtualScheduler::Step()
{
    FireDueTimers();
    std::erase_if(mQueues, [](const auto& inQueue) { return inQueue.expired(); });
    std::vector<QueuePtr> ready;
    for (const auto& weak : mQueues) {
        auto queue = weak.lock();
        if (queue && !queue->mTasks.empty()) ready.push_back(std::move(queue));
    }
    if (ready.empty()) return false;
    return StepQueue(ready[mGenerator() % ready.size()]);
}

void VirtualScheduler::RunUntilIdle()
{
    while (Step()) {
    }
}

void VirtualScheduler::Advance(unsigned inMilliseconds)
{
    const std::int64_t end = mClock->MonotonicTicks() + std::int64_t{inMilliseconds} * noxcore::kTicksPerMillisecond;
    RunUntilIdle();
    while (!mTimers.empty() && mTimers.begin()->first <= end) {
        mClock->SetMonotonic(mTimers.begin()->first);
        RunUntilIdle();
    }
    mClock->SetMonotonic(end);
    RunUntilIdle();
}

bool VirtualScheduler::RunUntil(const std::function<bool()>& inCondition)
{
    while (!inCondition()) {
        if (Step()) continue;
        if (mTimers.empty()) return false;
        mClock->SetMonotonic(mTimers.begin()->first);
    }
    return true;
}

std::shared_ptr<noxcore::HubContext> VirtualScheduler::MakeContext(
    const std::shared_ptr<LogCapture>& inLog, const std::shared_ptr<noxcore::filesupport::FileSystem>& inFiles)
{
    noxcore::HubContext::Parts parts;
    parts.mClock = mClock;
    parts.mRandom = std::make_shared<SeededRandomSource>(mGenerator());
    parts.mThreading = std::make_shared<VirtualThreading>(shared_from_this());
    parts.mLog = inLog;
    parts.mFiles = inFiles;
    return noxcore::HubContext::Create(std::move(parts));
}

namespace {

std::uint64_t Printed(std::uint64_t inSeed)
{
    std::printf("seed: %llu\n", static_cast<unsigned long long>(inSeed));
    return inSeed;
}

const char* SeedFromOutside()
{
    return std::getenv("HUB_TEST_SEED");  // NOLINT(concurrency-mt-unsafe): tests read the environment only
}

}  // namespace

std::uint64_t TestSeed()
{
    const char* text = SeedFromOutside();
    return Printed(text == nullptr ? 20231114 : std::strtoull(text, nullptr, 10));
}

std::uint64_t FreshTestSeed()
{
    if (SeedFromOutside() != nullptr) return TestSeed();
    std::array<std::uint8_t, 3> bytes{};
    noxcore::MakeSystemRandomSource()->Fill(bytes);
    std::uint64_t seed = 0;
    for (const std::uint8_t byte : bytes)
        seed = seed << 8 | byte;
    return Printed(seed);
}

}  // namespace testing_support
