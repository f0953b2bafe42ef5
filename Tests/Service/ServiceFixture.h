#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "Inc/Service/ServiceRegistry.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxnet/IncomingRequest.h"
#include "Platform/noxnet/Router.h"
#include "Tests/Support/MockProjectBox.h"
#include "Tests/Support/MockSyncBox.h"
#include "Tests/Support/VirtualHub.h"

namespace service_test {

using namespace VantryLocalHub;
using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;
using noxnet::http::server::HeaderList;
using testing::_;
using testing::DoAll;
using testing::Return;
using testing::SetArgReferee;
using testing_support::MockProjectBox;
using testing_support::MockSyncBox;

/// A server without sockets: it keeps the registrations, and the test hands requests to the router.
class RouterServer final : public noxnet::http::server::Server
{
public:
    int Start() override { return noxnet::kHTTPStatus_OK; }
    std::uint16_t GetPort() const override { return 0; }
    void Stop() override {}
    void RegisterService(const noxnet::http::server::PathExpression& inExpression,
                         std::shared_ptr<noxnet::http::server::Service> inService) override
    {
        mOrder.push_back(inExpression.Pattern());
        mRouter->Register(inExpression, std::move(inService));
    }
    void UnregisterService(const noxnet::http::server::PathExpression& inExpression) override
    {
        mRouter->Unregister(inExpression);
    }
    void SetInfoPort(std::uint16_t) override {}
    void Dispatch(std::shared_ptr<noxnet::http::server::IncomingRequest> inRequest, Fulfillment inFulfillment) override
    {
        mRouter->Deliver(std::move(inRequest), std::move(inFulfillment));
    }

    std::vector<std::string> mOrder;
    std::shared_ptr<noxnet::http::server::Router> mRouter =
        std::make_shared<noxnet::http::server::Router>(noxnet::http::server::Limits());
};

/// What came back for one request.
struct Answer
{
    std::vector<ResponsePtr> mResponses;

    [[nodiscard]] int Status() const { return mResponses.size() == 1 ? mResponses.front()->mStatus : 0; }
    [[nodiscard]] std::string Header(std::string_view inName) const
    {
        return std::string(mResponses.front()->Header(inName));
    }
    [[nodiscard]] std::string Body() const
    {
        const auto& payload = mResponses.front()->mPayload;
        return payload == nullptr ? std::string() : std::string(payload->View());
    }
};
using AnswerPtr = std::shared_ptr<Answer>;

inline const HeaderList kHost = {{"Host", "127.0.0.1:7777"}};

inline HeaderList WithHost(const std::string& inName, const std::string& inValue)
{
    HeaderList headers = kHost;
    headers.emplace_back(inName, inValue);
    return headers;
}

/// The link of a relation in the links of a JSON answer; empty for none.
inline std::string FindLink(const JSONValue& inLinks, std::string_view inRelation)
{
    for (const JSONValue& link : inLinks.Children()) {
        std::string relation;
        std::string href;
        if (link["rel"].GetString(relation) && relation == inRelation && link["href"].GetString(href)) return href;
    }
    return {};
}

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
