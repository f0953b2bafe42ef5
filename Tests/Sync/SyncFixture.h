#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Client/VYClient/Environment.h"
#include "Inc/Model/SystemDb.h"
#include "Inc/Sync/HubSync.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace VantryLocalHub {

/// Notices a mutex of the hub that is held where none may be: the lowest rank can be taken only with nothing held.
class NoLockProbe
{
public:
    void Check()
    {
        const noxcore::threads::ScopedLock lock(mMutex);
        ++mChecks;
    }
    [[nodiscard]] int Checks() const { return mChecks; }

private:
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::OutOfProcessServer};
    int mChecks = 0;
};

/// The main thread of a context, probed at each post.
class ProbedMainThread final : public noxcore::threads::MainThread
{
public:
    ProbedMainThread(std::shared_ptr<MainThread> inReal, NoLockProbe& inProbe)
        : mReal(std::move(inReal)), mProbe(inProbe)
    {
    }
    void Post(noxcore::threads::Task inTask) override
    {
        mProbe.Check();
        mReal->Post(std::move(inTask));
    }
    void PostAfter(unsigned inMilliseconds, noxcore::threads::Task inTask) override
    {
        mReal->PostAfter(inMilliseconds, std::move(inTask));
    }
    void RunLoop() override { mReal->RunLoop(); }
    void Quit() override { mReal->Quit(); }
    [[nodiscard]] bool IsCurrentThread() const override { return mReal->IsCurrentThread(); }

private:
    const std::shared_ptr<MainThread> mReal;
    NoLockProbe& mProbe;
};

class ProbedThreading final : public noxcore::threads::ThreadingModel
{
    using Executor = noxcore::threads::Executor;

public:
    ProbedThreading(std::shared_ptr<noxcore::HubContext> inReal, NoLockProbe& inProbe)
        : mReal(std::move(inReal)),
          mMainThread(std::make_shared<ProbedMainThread>(mReal->GetThreading().GetMainThread(), inProbe))
    {
    }
    std::shared_ptr<Executor> CreateExecutor(std::string_view inName, std::size_t inWidth) override
    {
        return mReal->GetThreading().CreateExecutor(inName, inWidth);
    }
    std::shared_ptr<Executor> CreateSubExecutor(const std::shared_ptr<Executor>& inParent, std::size_t inWidth) override
    {
        return mReal->GetThreading().CreateSubExecutor(inParent, inWidth);
    }
    std::shared_ptr<noxcore::threads::MainThread> GetMainThread() override { return mMainThread; }
    void RunOnAllProcessors(const std::function<void(std::size_t, std::size_t)>& inFunction) override
    {
        mReal->GetThreading().RunOnAllProcessors(inFunction);
    }

private:
    const std::shared_ptr<noxcore::HubContext> mReal;
    const std::shared_ptr<noxcore::threads::MainThread> mMainThread;
};

/// A hub of its own under virtual time, with its log and a home, that notices messages posted under a lock.
class SyncFixture : public testing::Test
{
protected:
    ~SyncFixture() override
    {
        // A message that waits keeps its context, which keeps the scheduler where it waits.
        mScheduler->RunUntilIdle();
        EXPECT_EQ(mViolations, noxcore::threads::LockOrderViolations());
    }

    std::shared_ptr<noxcore::HubContext> MakeContext(const std::shared_ptr<noxcore::logging::Sink>& inLog)
    {
        noxcore::HubContext::Parts parts;
        parts.mClock = mScheduler->GetClock();
        parts.mRandom = std::make_shared<testing_support::SeededRandomSource>(mScheduler->Seed());
        parts.mThreading = std::make_shared<ProbedThreading>(mScheduler->MakeContext(mLog), mProbe);
        parts.mLog = inLog;
        auto context = noxcore::HubContext::Create(std::move(parts));
        // What the user of this machine has set must not show in a test.
        context->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(mHome.Path()));
        context->SetInstance(std::make_shared<SystemDb::Location>(SystemDb::Location{mHome.Path()}));
        return context;
    }

    const testing_support::TempFolder mHome;
    const unsigned mViolations = noxcore::threads::LockOrderViolations();
    NoLockProbe mProbe;
    std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();
    std::shared_ptr<testing_support::VirtualScheduler> mScheduler =
        std::make_shared<testing_support::VirtualScheduler>(testing_support::TestSeed());
    noxcore::HubContext::Scope mScope{MakeContext(mLog)};
};

}  // namespace VantryLocalHub
