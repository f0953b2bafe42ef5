#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Tests/Support/LogCapture.h"

namespace testing_support {

/// Time that moves only when a test moves it.
class VirtualClock final : public noxcore::Clock
{
public:
    std::int64_t NowTicks() override { return kStart + mTicks; }
    std::int64_t MonotonicTicks() override { return mTicks; }
    void SetMonotonic(std::int64_t inTicks) { mTicks = inTicks; }

private:
    static constexpr std::int64_t kStart = 17000000000000000;  ///< a moment in November 2023
    std::int64_t mTicks = 0;
};

class SeededRandomSource final : public noxcore::RandomSource
{
public:
    explicit SeededRandomSource(std::uint64_t inSeed) : mGenerator(inSeed) {}
    void Fill(std::span<std::uint8_t> outBytes) override
    {
        for (std::uint8_t& byte : outBytes)
            byte = static_cast<std::uint8_t>(mGenerator());
    }

private:
    std::mt19937_64 mGenerator;
};

/// One thread that runs everything of one or more hubs: executors, timers and event loops, in an order that depends
/// on the seed alone. The test turns the crank.
class VirtualScheduler : public std::enable_shared_from_this<VirtualScheduler>
{
public:
    explicit VirtualScheduler(std::uint64_t inSeed);
    /// Drops what has not run. Executors that outlive the scheduler accept no work.
    ~VirtualScheduler();
    VirtualScheduler(const VirtualScheduler&) = delete;
    VirtualScheduler& operator=(const VirtualScheduler&) = delete;

    /// Runs one task that is due; false when there is none. Among executors the seed chooses whose turn it is.
    bool Step();
    /// Runs until nothing is due.
    void RunUntilIdle();
    /// Moves time on, running what falls due on the way, each at its own moment.
    void Advance(unsigned inMilliseconds);
    /// Runs until the condition holds, moving time on to the next timer where nothing else is due. False when
    /// nothing is left to run.
    bool RunUntil(const std::function<bool()>& inCondition);

    [[nodiscard]] std::shared_ptr<VirtualClock> GetClock() const { return mClock; }
    [[nodiscard]] std::uint64_t Seed() const { return mSeed; }

    /// A context whose parts are all of this scheduler, with a log of its own; the files are the real ones unless
    /// given.
    std::shared_ptr<noxcore::HubContext> MakeContext(
        const std::shared_ptr<LogCapture>& inLog,
        const std::shared_ptr<noxcore::filesupport::FileSystem>& inFiles = nullptr);

private:
    friend class VirtualExecutor;
    friend class VirtualMainThread;
    friend class VirtualThreading;

    struct QueueOfTasks
    {
        std::vector<noxcore::threads::Task> mTasks;
        bool mOpen = true;
        bool mHeld = false;  ///< an event loop that nobody runs
    };
    using QueuePtr = std::shared_ptr<QueueOfTasks>;

    QueuePtr MakeQueue();
    void AddTimer(unsigned inMilliseconds, QueuePtr inQueue, noxcore::threads::Task inTask);
    void FireDueTimers();
    static bool StepQueue(const QueuePtr& inQueue);

    const std::uint64_t mSeed;
    std::mt19937_64 mGenerator;
    const std::shared_ptr<VirtualClock> mClock;
    std::vector<std::weak_ptr<QueueOfTasks>> mQueues;
    std::multimap<std::int64_t, std::pair<QueuePtr, noxcore::threads::Task>> mTimers;
};

/// A seed from the environment (HUB_TEST_SEED) or a fixed one; printed, so that a failing run can be repeated.
std::uint64_t TestSeed();
/// The same, but another one in each run where none is given: for tests that try a part of what there is.
std::uint64_t FreshTestSeed();

}  // namespace testing_support
