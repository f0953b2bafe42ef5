#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "Tests/Service/RouterServer.h"
#include "Tests/Support/MockProjectBox.h"
#include "Tests/Support/MockSyncBox.h"
#include "Tests/Support/VirtualHub.h"

namespace service_test {

using testing::_;
using testing::DoAll;
using testing::Return;
using testing::SetArgReferee;
using testing_support::MockProjectBox;
using testing_support::MockSyncBox;

inline dto::Session MakeSession(const std::string& inRevision = "c0ffee")
{
    dto::Session session;
    session.mIdentifier = "session-1";
    session.mProductionID = "p-1";
    session.mRevision = inRevision;
    session.mProductionRevision = "ba5e";
    session.mProperties.mText = R"({"name":"Film"})";
    return session;
}

/// All services of one hub over a store and an engine that the test plays.
class ServiceFixture : public testing::Test
{
protected:
    ServiceFixture()
    {
        ProjectBox::SetInstance(mStore);
        SyncBox::SetInstance(mSync);
        // Asked at the end of every request that brought content.
        EXPECT_CALL(*mStore, FlushTransactionContent)
            .Times(testing::AnyNumber())
            .WillRepeatedly(testing::Return(noxnet::kHTTPStatus_OK));
    }
    ~ServiceFixture() override
    {
        ProjectBox::SetInstance(nullptr);
        SyncBox::SetInstance(nullptr);
    }

    void RegisterAll()
    {
        for (const auto& service : MakeAllServices()) {
            service->Register(mServer);
            mServices.push_back(service);
        }
    }

    AnswerPtr Start(const std::string& inMethod, const std::string& inTarget, const std::string& inBody = {},
                    const HeaderList& inHeaders = kHost)
    {
        auto answer = std::make_shared<Answer>();
        mServer.Dispatch(noxnet::http::server::MakeRequest(inMethod, inTarget, inHeaders,
                                                           noxcore::utility::CopyToRecycledMemory(inBody)),
                         [answer](const ResponsePtr& inResponse) { answer->mResponses.push_back(inResponse); });
        mScheduler->RunUntilIdle();
        return answer;
    }
    Answer Send(const std::string& inMethod, const std::string& inTarget, const std::string& inBody = {},
                const HeaderList& inHeaders = kHost)
    {
        return *Start(inMethod, inTarget, inBody, inHeaders);
    }

    [[nodiscard]] std::size_t LogCount(std::string_view inMessage) const { return mLog->Count(inMessage); }
    [[nodiscard]] std::string LogValue(std::string_view inMessage, std::string_view inKey) const
    {
        const auto records = mLog->Find(inMessage);
        return records.empty() ? "no record" : std::string(records.front().Value(inKey));
    }

    std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();
    std::shared_ptr<testing_support::VirtualScheduler> mScheduler =
        std::make_shared<testing_support::VirtualScheduler>(testing_support::TestSeed());
    std::shared_ptr<noxcore::HubContext> mContext = mScheduler->MakeContext(mLog);
    noxcore::HubContext::Scope mScope{mContext};
    RouterServer mServer;
    std::vector<std::shared_ptr<VantryAPIService>> mServices;
    std::shared_ptr<testing::StrictMock<MockProjectBox>> mStore =
        std::make_shared<testing::StrictMock<MockProjectBox>>();
    std::shared_ptr<testing::StrictMock<MockSyncBox>> mSync = std::make_shared<testing::StrictMock<MockSyncBox>>();
};

}  // namespace service_test
