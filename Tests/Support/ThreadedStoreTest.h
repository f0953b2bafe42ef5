#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Client/VYClient/Environment.h"
#include "Inc/Model/GitBox.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TempFolder.h"

namespace testing_support {

/// A store with real threads and one session.
class ThreadedStoreTest : public testing::Test
{
protected:
    explicit ThreadedStoreTest(VantryLocalHub::SessionKind inKind = VantryLocalHub::SessionKind::LocalOnly)
    {
        using namespace VantryLocalHub;
        mContext->SetLog(mLog);
        mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(mHome.Path()));
        mStore = std::make_shared<GitBox::GitBox>(true);
        EXPECT_EQ(201, mStore->CreateSession({}, {dto::RawJSON(R"({"name":"Feature"})"), {}}, inKind, mSession));
    }
    ~ThreadedStoreTest() override
    {
        mStore.reset();
        // The messages that were posted, then the end of the loop.
        noxcore::threads::AsyncCallFromMainThread([] { noxcore::threads::GetRegisteredMainThread()->Quit(); });
        noxcore::threads::RunPlatformEventLoop();
        EXPECT_EQ(mViolations, noxcore::threads::LockOrderViolations());
    }

    static void RunTogether(const std::vector<noxcore::threads::Task>& inTasks)
    {
        const auto executor = noxcore::threads::CreateIOBoundExecutor("test", inTasks.size());
        for (const auto& task : inTasks)
            executor->Queue(task);
        executor->ShutDownAndWait();
    }

    /// Lets go of all that nobody is using.
    void ReleaseAll() { mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks() + 1); }

    const unsigned mViolations = noxcore::threads::LockOrderViolations();
    const TempFolder mHome;
    const std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    const std::shared_ptr<noxcore::HubContext> mContext = noxcore::HubContext::Create({});
    const noxcore::HubContext::Scope mScope{mContext};
    std::shared_ptr<VantryLocalHub::GitBox::GitBox> mStore;
    VantryLocalHub::dto::Session mSession;
};

}  // namespace testing_support
