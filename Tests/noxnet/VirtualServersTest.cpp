#include <gtest/gtest.h>

#include "Platform/noxnet/HTTPServer.h"
#include "Tests/Support/VirtualHub.h"
#include "Tests/noxnet/MemoryListener.h"
#include "Tests/noxnet/ServerFixture.h"

using namespace testing_support;

/// Two hubs on one thread, with a network of their own instead of sockets.
class VirtualServers : public ::testing::Test
{
protected:
    std::shared_ptr<server::Server> MakeHub(const std::shared_ptr<TestService>& inService, std::uint16_t inPort)
    {
        const auto context = mScheduler->MakeContext(mLog);
        context->SetInstance<server::ListenerFactory>(mNetwork);
        const noxcore::HubContext::Scope scope(context);
        auto made = server::Server::Create(inPort, true, -1);
        made->RegisterService(inService->Expression(), inService);
        return made;
    }
    int Ask(std::uint16_t inPort, const std::string& inPath)
    {
        std::optional<int> status;
        const bool sent = mNetwork->Send(inPort, server::MakeRequest("GET", inPath, {}, nullptr),
                                         [&](const auto& inResponse) { status = inResponse->mStatus; });
        if (sent) mScheduler->RunUntil([&] { return status.has_value(); });
        return status.value_or(0);
    }

    std::shared_ptr<VirtualScheduler> mScheduler = std::make_shared<VirtualScheduler>(TestSeed());
    std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    std::shared_ptr<MemoryNetwork> mNetwork = std::make_shared<MemoryNetwork>();
};

TEST_F(VirtualServers, TwoHubsServeEachOtherOnOneThread)
{
    const auto leaf = std::make_shared<TestService>("^/leaf$", Echo);
    const auto second = MakeHub(leaf, 0);
    ASSERT_EQ(200, second->Start());
    // The first hub answers only once the second has answered it.
    const auto relay = std::make_shared<TestService>("^/relay$", [&](auto, auto inResponse, auto inDone) {
        mNetwork->Send(second->GetPort(), server::MakeRequest("GET", "/leaf", {}, nullptr),
                       [inResponse, inDone](const auto& inAnswer) {
                           inResponse->mStatus = inAnswer->mStatus + 1;
                           inDone(inResponse);
                       });
    });
    const auto first = MakeHub(relay, 0);
    ASSERT_EQ(200, first->Start());
    EXPECT_NE(first->GetPort(), second->GetPort());
    EXPECT_EQ(201, Ask(first->GetPort(), "/relay"));
    EXPECT_EQ(1, leaf->Requests());
    EXPECT_EQ(404, Ask(second->GetPort(), "/relay"));
    const std::uint16_t port = second->GetPort();
    second->Stop();
    EXPECT_EQ(0, Ask(port, "/leaf"));
}

TEST_F(VirtualServers, AnOccupiedPortMakesStartFailHereToo)
{
    mNetwork->Occupy(4711);
    const auto hub = MakeHub(std::make_shared<TestService>("^/leaf$", Echo), 4711);
    EXPECT_EQ(500, hub->Start());
    EXPECT_EQ(0, Ask(4711, "/leaf"));
}
