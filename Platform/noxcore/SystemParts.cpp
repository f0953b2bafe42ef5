#include "Platform/noxcore/SystemParts.h"

#include <sys/random.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/ThreadPool.h"

namespace noxcore {

namespace {

class SystemClock final : public Clock
{
public:
    std::int64_t NowTicks() override { return Ticks(std::chrono::system_clock::now()); }
    std::int64_t MonotonicTicks() override { return Ticks(std::chrono::steady_clock::now()); }

private:
    template <class TimePoint>
    static std::int64_t Ticks(TimePoint inTime)
    {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(inTime.time_since_epoch()).count() / 100;
    }
};

class KernelRandomSource final : public RandomSource
{
public:
    void Fill(std::span<std::uint8_t> outBytes) override
    {
        std::size_t filled = 0;
        while (filled < outBytes.size()) {
            const ssize_t got = getrandom(outBytes.data() + filled, outBytes.size() - filled, 0);
            if (got < 0 && errno == EINTR) continue;
            // Identifiers that repeat would lose work, so there is no going on without randomness.
            if (got <= 0) throw std::runtime_error("the kernel gives no random bytes");
            filled += static_cast<std::size_t>(got);
        }
    }
};

class SystemThreading final : public threads::ThreadingModel
{
public:
    SystemThreading() : mTimer(std::make_shared<threads::TimerQueue>()), mMainThread(MakeSystemMainThread()) {}

    std::shared_ptr<threads::Executor> CreateExecutor(std::string_view inName, std::size_t inWidth) override
    {
        return std::make_shared<threads::ThreadPool>(std::string(inName), inWidth == 0 ? Processors() : inWidth,
                                                     mTimer);
    }

    std::shared_ptr<threads::Executor> CreateSubExecutor(const std::shared_ptr<threads::Executor>& inParent,
                                                         std::size_t inWidth) override
    {
        return std::make_shared<threads::SubExecutor>(inParent, inWidth);
    }

    std::shared_ptr<threads::MainThread> GetMainThread() override { return mMainThread; }

    void RunOnAllProcessors(const std::function<void(std::size_t, std::size_t)>& inFunction) override
    {
        const std::size_t count = Processors();
        std::vector<std::thread> helpers;
        helpers.reserve(count - 1);
        const auto context = HubContext::Current();
        try {
            for (std::size_t i = 1; i < count; ++i) {
                helpers.emplace_back([&inFunction, &context, i, count] {
                    const HubContext::Scope scope(context);
                    threads::RunGuarded([&] { inFunction(i, count); });
                });
            }
        } catch (const std::system_error&) {
            // What no thread was given for is done here, one after the other.
        }
        threads::RunGuarded([&] { inFunction(0, count); });
        for (std::size_t i = helpers.size() + 1; i < count; ++i)
            threads::RunGuarded([&] { inFunction(i, count); });
        for (std::thread& helper : helpers)
            helper.join();
    }

private:
    static std::size_t Processors() { return std::max<std::size_t>(1, std::thread::hardware_concurrency()); }

    const std::shared_ptr<threads::TimerQueue> mTimer;
    const std::shared_ptr<threads::MainThread> mMainThread;
};

}  // namespace

std::shared_ptr<Clock> MakeSystemClock()
{
    return std::make_shared<SystemClock>();
}
std::shared_ptr<RandomSource> MakeSystemRandomSource()
{
    return std::make_shared<KernelRandomSource>();
}
std::shared_ptr<threads::ThreadingModel> MakeSystemThreading()
{
    return std::make_shared<SystemThreading>();
}

}  // namespace noxcore
