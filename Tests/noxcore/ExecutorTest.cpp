#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <barrier>
#include <future>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Tests/Support/LockOrderCheck.h"
#include "Tests/Support/VirtualHub.h"

namespace {

using namespace noxcore::threads;

TEST(Executor, ShutDownRunsWhatWasQueuedAndRefusesWhatComesLater)
{
    const auto executor = CreateIOBoundExecutor("test", 2);
    std::atomic<int> ran{0};
    for (int i = 0; i < 1000; ++i)
        executor->Queue([&] { ++ran; });
    executor->ShutDownAndWait();
    EXPECT_EQ(1000, ran);
    EXPECT_FALSE(executor->Queue([&] { ++ran; }));
    EXPECT_TRUE(executor->IsShuttingDown());
}

TEST(Executor, ASubExecutorOfWidthOneRunsOneTaskAtATimeInOrder)
{
    const auto parent = CreateIOBoundExecutor("parent", 4);
    const auto serial = CreateSubExecutor(parent, 1);
    std::vector<int> order;  // no lock: TSan would see a second task at the same time
    for (int i = 0; i < 500; ++i)
        serial->Queue([&order, i] { order.push_back(i); });
    serial->ShutDownAndWait();
    ASSERT_EQ(500U, order.size());
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(i, order[static_cast<std::size_t>(i)]);
    parent->ShutDownAndWait();
}

TEST(Executor, ABurstGetsAThreadForEachTaskThoughOneSleepsAlready)
{
    constexpr int kBurst = 4;
    for (int i = 0; i < 20; ++i) {
        const auto executor = CreateIOBoundExecutor("test", 8);
        std::promise<void> first;
        executor->Queue([&] { first.set_value(); });
        first.get_future().wait();  // its thread is about to sleep, or sleeps already
        std::barrier meeting(kBurst);
        for (int task = 0; task < kBurst; ++task)
            executor->Queue([&] { meeting.arrive_and_wait(); });
        executor->ShutDownAndWait();
    }
}

/// While one lives the system gives no thread, as where a limit is reached: no stack is as large as they ask for.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_attr_t huge;
        pthread_getattr_default_np(&mPrevious);
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 47U);
        EXPECT_EQ(0, pthread_setattr_default_np(&huge));
        pthread_attr_destroy(&huge);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&mPrevious);
        pthread_attr_destroy(&mPrevious);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t mPrevious{};
};

TEST(Executor, WithoutAnyThreadWorkIsRefusedAndLaterWorkIsDone)
{
    const auto context = noxcore::HubContext::Create({});
    const noxcore::HubContext::Scope scope(context);
    const auto executor = CreateIOBoundExecutor("test", 4);
    const auto serial = CreateSubExecutor(executor, 1);
    std::atomic<int> ran{0};
    {
        const NoThreads none;
        EXPECT_FALSE(executor->Queue([&] { ++ran; }));
        EXPECT_FALSE(serial->Queue([&] { ++ran; }));
        EXPECT_FALSE(serial->QueueAfter(1, [&] { ++ran; }));
    }
    EXPECT_TRUE(serial->Queue([&] { ran += 10; }));
    serial->ShutDownAndWait();
    executor->ShutDownAndWait();
    EXPECT_EQ(10, ran);
}

TEST(Executor, WhereNoFurtherThreadIsGivenThoseThatAreThereDoTheWork)
{
    const auto executor = CreateIOBoundExecutor("test", 4);
    std::promise<void> go;
    std::atomic<int> ran{0};
    executor->Queue([&] { go.get_future().wait(); });
    {
        const NoThreads none;
        for (int i = 0; i < 10; ++i)
            EXPECT_TRUE(executor->Queue([&] { ++ran; }));
        std::atomic<std::size_t> calls{0};
        std::atomic<std::size_t> expected{0};
        ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t, std::size_t inCount) {
            expected = inCount;
            ++calls;
        });
        EXPECT_EQ(expected, calls);
    }
    go.set_value();
    executor->ShutDownAndWait();
    EXPECT_EQ(10, ran);
}

TEST(Executor, AnExceptionOutOfATaskDoesNotEndTheThread)
{
    const auto executor = CreateIOBoundExecutor("test", 1);
    std::promise<void> reached;
    executor->Queue([] { throw std::runtime_error("broken task"); });
    executor->Queue([&] { reached.set_value(); });
    reached.get_future().wait();
    executor->ShutDownAndWait();
}

TEST(Executor, ATaskRunsUnderTheContextOfWhoQueuedIt)
{
    const auto executor = CreateIOBoundExecutor("test", 1);
    const auto context = noxcore::HubContext::Create({});
    std::promise<noxcore::HubContext*> seen;
    {
        const noxcore::HubContext::Scope scope(context);
        executor->Queue([&] { seen.set_value(noxcore::HubContext::Current().get()); });
    }
    EXPECT_EQ(context.get(), seen.get_future().get());
    EXPECT_NE(context.get(), noxcore::HubContext::Current().get());
    executor->ShutDownAndWait();
}

TEST(Executor, EveryProcessorIsCalledOnce)
{
    std::atomic<std::size_t> calls{0};
    std::atomic<std::size_t> expected{0};
    ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t inIndex, std::size_t inCount) {
        EXPECT_LT(inIndex, inCount);
        expected = inCount;
        ++calls;
    });
    EXPECT_EQ(expected, calls);
}

TEST(Executor, WhoSharesWorkLearnsThatAPartOfItEndedWithAnException)
{
    for (const std::size_t broken : {std::size_t{0}, std::size_t{40}, std::size_t{99}}) {
        const auto executor = CreateIOBoundExecutor("test", 3);
        std::atomic<std::size_t> whole{0};
        EXPECT_THROW(noxcore::threads::ShareWork(executor, 3, 100,
                                                 [&](std::size_t inIndex) {
                                                     if (inIndex == broken) throw std::bad_alloc();
                                                     ++whole;
                                                 }),
                     std::bad_alloc);
        EXPECT_LT(whole, 100U);
        executor->ShutDownAndWait();
    }
}

TEST(Executor, WorkBesideAnotherHasEndedWhenBothAreDoneOrWasNeverBegun)
{
    const auto executor = CreateIOBoundExecutor("test", 1);
    std::atomic<int> here{0};
    std::atomic<int> beside{0};
    noxcore::threads::WorkWithHelp(
        executor,
        [&] {
            while (beside == 0)
                std::this_thread::yield();
            here = 1;
        },
        [&] { beside = 1; });
    EXPECT_EQ(1, here * beside);

    for (const bool isHere : {true, false}) {
        const auto fail = [](bool inFails) {
            if (inFails) throw std::bad_alloc();
        };
        std::atomic<bool> begun{false};
        EXPECT_THROW(noxcore::threads::WorkWithHelp(
                         executor,
                         [&] {
                             while (!begun)
                                 std::this_thread::yield();
                             fail(isHere);
                         },
                         [&] {
                             begun = true;
                             fail(!isHere);
                         }),
                     std::bad_alloc);
    }
    executor->ShutDownAndWait();
    noxcore::threads::WorkWithHelp(
        executor, [&] { here = 2; }, [&] { beside = 2; });
    EXPECT_EQ(2, here);
    EXPECT_EQ(1, beside) << "nobody came";
}

TEST(Executor, WhoUsesAllProcessorsLearnsThatOneOfThemEndedWithAnException)
{
    std::atomic<std::size_t> calls{0};
    std::size_t count = 0;
    EXPECT_THROW(ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t inIndex, std::size_t inCount) {
                     ++calls;
                     if (inIndex + 1 < inCount) return;
                     count = inCount;
                     throw std::runtime_error("broken share");
                 }),
                 std::runtime_error);
    EXPECT_EQ(count, calls);
}

class VirtualExecutorTest : public testing::Test
{
protected:
    std::shared_ptr<testing_support::VirtualScheduler> mScheduler =
        std::make_shared<testing_support::VirtualScheduler>(testing_support::TestSeed());
    std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();
    std::shared_ptr<noxcore::HubContext> mContext = mScheduler->MakeContext(mLog);
    noxcore::HubContext::Scope mScope{mContext};
};

TEST_F(VirtualExecutorTest, QueueOnlyOnceRunsOnceHoweverOftenItIsAskedForWhileItWaits)
{
    const auto executor = CreateIOBoundExecutor("test", 1);
    int ran = 0;
    const auto task = QueueOnlyOnce::Create(
        executor, [&] { ++ran; }, 5000);
    task->Queue();
    mScheduler->Advance(4999);
    task->Queue();
    EXPECT_EQ(0, ran);
    mScheduler->Advance(1);
    EXPECT_EQ(1, ran);
    mScheduler->Advance(60000);
    EXPECT_EQ(1, ran);
    task->Queue();
    mScheduler->Advance(5000);
    EXPECT_EQ(2, ran);
}

TEST_F(VirtualExecutorTest, QueueOnlyOnceMayQueueItselfFromInsideItsRun)
{
    const auto executor = CreateIOBoundExecutor("test", 1);
    int ran = 0;
    std::shared_ptr<QueueOnlyOnce> task;
    task = QueueOnlyOnce::Create(
        executor,
        [&] {
            if (++ran < 3) task->Queue();
        },
        1000);
    task->Queue();
    mScheduler->Advance(10000);
    EXPECT_EQ(3, ran);
}

TEST_F(VirtualExecutorTest, TheEventLoopEndsWhenItIsToldToQuit)
{
    int delivered = 0;
    AsyncCallFromMainThread([&] { ++delivered; });
    AsyncCallFromMainThread([&] { GetRegisteredMainThread()->Quit(); });
    RunPlatformEventLoop();
    EXPECT_EQ(1, delivered);
}

TEST(MainThread, TheRealEventLoopRunsTasksOfOtherThreadsUntilQuit)
{
    const auto context = noxcore::HubContext::Create({});
    const noxcore::HubContext::Scope scope(context);
    RegisterCurrentThreadAsMainThread();
    EXPECT_TRUE(GetRegisteredMainThread()->IsCurrentThread());
    const auto executor = CreateIOBoundExecutor("test", 1);
    bool ran = false;
    executor->Queue([&] {
        AsyncCallFromMainThread([&] { ran = true; });
        GetRegisteredMainThread()->PostAfter(1, [] { GetRegisteredMainThread()->Quit(); });
    });
    RunPlatformEventLoop();
    EXPECT_TRUE(ran);
    UnregisterMainThread();
    EXPECT_FALSE(GetRegisteredMainThread()->IsCurrentThread());
    executor->ShutDownAndWait();
}

TEST(MainThread, WhatIsPostedAfterTheLoopHasEndedIsDropped)
{
    const auto context = noxcore::HubContext::Create({});
    const noxcore::HubContext::Scope scope(context);
    const auto loop = GetRegisteredMainThread();
    const auto held = std::make_shared<int>(0);
    loop->Post([loop] { loop->Quit(); });
    loop->Post([held] {});
    loop->RunLoop();
    EXPECT_EQ(1, held.use_count()) << "posted before the end, and not run";
    loop->Post([held] {});
    EXPECT_EQ(1, held.use_count());
}

#ifndef NDEBUG
TEST_F(VirtualExecutorTest, AMutexTakenAgainstTheOrderIsReportedAndOneTakenTwiceIsNot)
{
    RecursiveMutex window(LockRank::TransactionWindow);
    RecursiveMutex transaction(LockRank::Transaction);
    const unsigned before = LockOrderViolations();
    {
        const ScopedLock outer(window);
        const ScopedLock inner(transaction);
        EXPECT_TRUE(window.TryLock());  // recursion is no violation, and TryLock never waits
        window.Unlock();
    }
    EXPECT_EQ(before, LockOrderViolations());
    testing_support::ExpectLockOrderViolations(1);
    // Two other mutexes, which are never taken in the right order, so that only the rank can tell.
    RecursiveMutex laterWindow(LockRank::TransactionWindow);
    RecursiveMutex laterTransaction(LockRank::Transaction);
    {
        const ScopedLock outer(laterTransaction);
        const ScopedLock inner(laterWindow);
    }
    EXPECT_EQ(before + 1, LockOrderViolations());
    ASSERT_EQ(1U, mLog->Count("Lock order violation"));
    EXPECT_EQ("TransactionWindow", mLog->Find("Lock order violation").front().Value("taken"));
}
#endif

}  // namespace
