#include <fcntl.h>
#include <sys/resource.h>

#include <mutex>
#include <thread>

#include "Inc/Service/DropAllLongPolls.h"
#include "Platform/noxnet/HTTPServer.h"
#include "Tests/Service/StoreServicesFixture.h"
#include "Tests/Support/WaitUntil.h"
#include "Tests/noxnet/SocketClient.h"

// Clients that wait on sockets, and what becomes of their places.

namespace service_test {

namespace {

using noxnet::http::server::PathExpression;
using noxnet::http::server::Request;
using testing_support::SocketClient;
using testing_support::WaitUntil;

/// A service as it is, and the requests that somebody still keeps of it.
class WatchedService final : public noxnet::http::server::Service
{
public:
    explicit WatchedService(std::shared_ptr<VantryAPIService> inService) : mService(std::move(inService)) {}

    void FulfillResource(RequestPtr inRequest, ResponsePtr inResponse, Fulfillment inFulfillment) override
    {
        {
            const std::lock_guard lock(mMutex);
            mRequests.push_back(inRequest);
        }
        mService->FulfillResource(std::move(inRequest), std::move(inResponse), std::move(inFulfillment));
        ++mHandled;
    }
    [[nodiscard]] const PathExpression& Expression() const override { return mService->Expression(); }

    [[nodiscard]] std::size_t Handled() const { return mHandled; }
    std::size_t Kept()
    {
        const std::lock_guard lock(mMutex);
        return static_cast<std::size_t>(std::ranges::count_if(
            mRequests, [](const std::weak_ptr<const Request>& inRequest) { return !inRequest.expired(); }));
    }

private:
    const std::shared_ptr<VantryAPIService> mService;
    std::mutex mMutex;
    std::vector<std::weak_ptr<const Request>> mRequests;
    std::atomic<std::size_t> mHandled = 0;
};

class SocketPollTest : public StoreServicesTest
{
protected:
    SocketPollTest()
    {
        for (const auto& service : mServices) {
            if (service->Route().mName != "SessionStatusService") continue;
            mWatched = std::make_shared<WatchedService>(service);
            mHub->RegisterService(mWatched->Expression(), mWatched);
        }
        EXPECT_EQ(200, mHub->Start());
        SocketClient first(mHub->GetPort());
        mTag = first.Ask(RequestText()).Header("ETag");
        EXPECT_FALSE(mTag.empty());
        EXPECT_TRUE(WaitUntil([&] { return mWatched->Handled() == 1 && mWatched->Kept() == 0; }));
    }
    ~SocketPollTest() override
    {
        mHub->Stop();
        noxcore::threads::GetRegisteredMainThread()->Quit();
        mLoop.join();
    }

    std::string RequestText(const std::string& inHeaders = {}) const
    {
        return "GET /api/session/status/" + mProduction +
               " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(mHub->GetPort()) + "\r\n" + inHeaders + "\r\n";
    }
    std::string PollText() const { return RequestText("X-LongPoll: 1\r\nIf-None-Match: " + mTag + "\r\n"); }

    /// Clients that all wait: their requests are with the service, and the main thread has seen them.
    std::vector<SocketClient> MakeWaiting(std::size_t inCount)
    {
        const std::size_t handled = mWatched->Handled();
        std::vector<SocketClient> clients;
        for (std::size_t i = 0; i < inCount; ++i) {
            clients.emplace_back(mHub->GetPort());
            clients.back().Send(PollText());
        }
        EXPECT_TRUE(WaitUntil([&] { return mWatched->Handled() == handled + inCount; }));
        std::promise<void> seen;
        noxcore::threads::GetRegisteredMainThread()->Post([&] { seen.set_value(); });
        seen.get_future().wait();
        EXPECT_EQ(inCount, mWatched->Kept());
        return clients;
    }

    const std::shared_ptr<noxnet::http::server::Server> mHub = noxnet::http::server::Server::Create(0, true, -1);
    std::shared_ptr<WatchedService> mWatched;
    std::string mTag;
    std::thread mLoop{[context = mContext] {
        const noxcore::HubContext::Scope scope(context);
        noxcore::threads::GetRegisteredMainThread()->RunLoop();
    }};
};

TEST_F(SocketPollTest, AClientThatDiesWhileItWaitsFreesItsPlaceAndTheOthersWaitOn)
{
    constexpr std::size_t kClients = 20;
    for (const bool isReset : {false, true}) {
        auto clients = MakeWaiting(kClients);
        for (std::size_t i = 0; i + 1 < kClients; ++i)
            isReset ? clients[i].Reset() : clients[i].Close();
        EXPECT_TRUE(WaitUntil([&] { return mWatched->Kept() == 1; })) << "a dead client's request is kept";
        DropAllLongPollsMessage::Post();
        EXPECT_EQ(304, clients.back().Read().mStatus);
        EXPECT_TRUE(WaitUntil([&] { return mWatched->Kept() == 0; }));
    }
}

TEST_F(SocketPollTest, AClientThatOnlyEndsItsSendingStillGetsItsAnswer)
{
    auto clients = MakeWaiting(1);
    clients[0].FinishSending();
    DropAllLongPollsMessage::Post();
    EXPECT_EQ(304, clients[0].Read().mStatus);
}

TEST_F(SocketPollTest, WithoutADescriptorLeftThoseWhoWaitAreAnsweredAndThoseWhoComeAreServedLater)
{
    auto waiting = MakeWaiting(5);
    std::vector<SocketClient> late(5);  // have their descriptors already
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &before));
    const rlimit small{200, before.rlim_max};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &small));
    std::vector<int> fillers;
    for (int descriptor = 0; (descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
        fillers.push_back(descriptor);
    const std::size_t handled = mWatched->Handled();
    for (SocketClient& client : late) {
        EXPECT_TRUE(client.Connect(mHub->GetPort()));
        client.Send(PollText());
    }
    EXPECT_TRUE(WaitUntil([&] { return mLog->Count("Accepting rests: no descriptor left") == 1; }));
    DropAllLongPollsMessage::Post();
    for (SocketClient& client : waiting)
        EXPECT_EQ(304, client.Read().mStatus);

    for (const int descriptor : fillers)
        ::close(descriptor);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_TRUE(WaitUntil([&] { return mWatched->Handled() == handled + late.size(); }));
    DropAllLongPollsMessage::Post();
    for (SocketClient& client : late)
        EXPECT_EQ(304, client.Read().mStatus);
}

}  // namespace

}  // namespace service_test
