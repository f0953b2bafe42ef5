#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/RecursiveMutex.h"
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
    executor->ShutDownAndWait();
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
