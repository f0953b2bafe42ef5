#include <gtest/gtest.h>

#include <functional>

#include "Client/VYClient/Environment.h"
#include "Inc/Model/GitBox.h"
#include "Inc/Service/ServiceRegistry.h"
#include "Inc/Sync/HubSync.h"
#include "Platform/noxcore/JSON.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"
#include "Tests/noxnet/MemoryListener.h"

using namespace VantryLocalHub;
using namespace testing_support;
namespace server = noxnet::http::server;

namespace {

/// What one request was answered with; empty while it is under way.
struct Reply
{
    int mStatus = 0;
    std::string mLocation;
    std::string mBody;

    [[nodiscard]] std::string Text(std::string_view inKey) const
    {
        noxcore::serialization::JSONDocument document;
        std::string text;
        EXPECT_TRUE(document.Parse(mBody) && document.Root()[inKey].GetString(text)) << inKey << " in " << mBody;
        return text;
    }
};
using ReplyPtr = std::shared_ptr<Reply>;

/// A whole hub - store, engine, services and server - in a home and a context of its own.
class WholeHub
{
public:
    WholeHub(const std::shared_ptr<VirtualScheduler>& inScheduler, const std::shared_ptr<MemoryNetwork>& inNetwork)
        : mContext(inScheduler->MakeContext(mLog)), mNetwork(inNetwork)
    {
        const noxcore::HubContext::Scope scope(mContext);
        mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(mHome.Path()));
        mContext->SetInstance<server::ListenerFactory>(mNetwork);
        ProjectBox::SetInstance(std::make_shared<GitBox::GitBox>(true));
        SyncBox::SetInstance(std::make_shared<HubSync>());
        mServer = server::Server::Create(0, true, -1);
        mServices = MakeAllServices();
        for (const auto& service : mServices)
            service->Register(*mServer);
        EXPECT_EQ(200, mServer->Start());
        mHost = "127.0.0.1:" + std::to_string(mServer->GetPort());
    }
    ~WholeHub()
    {
        const noxcore::HubContext::Scope scope(mContext);
        for (const auto& service : mServices)
            service->Unregister(*mServer);
        mServer->Stop();
        SyncBox::Instance()->Terminate();
        SyncBox::SetInstance(nullptr);
        ProjectBox::SetInstance(nullptr);
    }
    WholeHub(const WholeHub&) = delete;
    WholeHub& operator=(const WholeHub&) = delete;

    ReplyPtr Start(const std::string& inMethod, const std::string& inTarget, const std::string& inBody,
                   const std::string& inType)
    {
        auto reply = std::make_shared<Reply>();
        const bool sent = mNetwork->Send(
            mServer->GetPort(),
            server::MakeRequest(inMethod, inTarget, {{"Host", mHost}, {"Content-Type", inType}},
                                noxcore::utility::CopyToRecycledMemory(inBody)),
            [reply](const auto& inResponse) {
                *reply = {inResponse->mStatus, std::string(inResponse->Header("Location")),
                          inResponse->mPayload ? std::string(inResponse->mPayload->View()) : std::string()};
            });
        EXPECT_TRUE(sent);
        return reply;
    }

private:
    const TempFolder mHome;
    const std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    const std::shared_ptr<noxcore::HubContext> mContext;
    const std::shared_ptr<MemoryNetwork> mNetwork;
    std::shared_ptr<server::Server> mServer;
    std::vector<std::shared_ptr<VantryAPIService>> mServices;
    std::string mHost;
};

/// Two hubs that are asked the same at the same time, each about its own.
class TwoHubs
{
public:
    explicit TwoHubs(std::uint64_t inSeed) : mScheduler(std::make_shared<VirtualScheduler>(inSeed)) {}
    ~TwoHubs()
    {
        mHubs[0].reset();
        mHubs[1].reset();
        mScheduler->RunUntilIdle();
    }

    /// Both requests are under way before either is answered.
    std::array<Reply, 2> Ask(const std::string& inMethod, const std::function<std::string(std::size_t)>& inTarget,
                             const std::string& inBody = {}, const std::string& inType = "application/json")
    {
        std::array<ReplyPtr, 2> replies;
        for (std::size_t i = 0; i < 2; ++i)
            replies[i] = mHubs[i]->Start(inMethod, inTarget(i), inBody, inType);
        EXPECT_TRUE(mScheduler->RunUntil([&] { return replies[0]->mStatus != 0 && replies[1]->mStatus != 0; }));
        for (const auto& reply : replies)
            mTranscript += std::to_string(reply->mStatus) + " " + reply->mLocation + " " + reply->mBody + "\n";
        return {*replies[0], *replies[1]};
    }
    void Advance(unsigned inMilliseconds) { mScheduler->Advance(inMilliseconds); }
    [[nodiscard]] const std::string& Transcript() const { return mTranscript; }

private:
    const std::shared_ptr<VirtualScheduler> mScheduler;
    const std::shared_ptr<MemoryNetwork> mNetwork = std::make_shared<MemoryNetwork>();
    std::array<std::unique_ptr<WholeHub>, 2> mHubs = {std::make_unique<WholeHub>(mScheduler, mNetwork),
                                                      std::make_unique<WholeHub>(mScheduler, mNetwork)};
    std::string mTranscript;
};

/// Creates, commits and reads in both hubs, and gives all that they said.
std::string LiveOneDay(std::uint64_t inSeed)
{
    TwoHubs hubs(inSeed);
    const auto made = hubs.Ask(
        "POST", [](auto) { return "/api/productions?localOnly=true"; }, R"({"name":"Feature"})");
    std::array<std::string, 2> id;
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(made[i].mStatus == 200 || made[i].mStatus == 201) << made[i].mStatus;
        id[i] = made[i].Text("vy:sessionId");
    }
    EXPECT_NE(id[0], id[1]);
    hubs.Advance(24 * 3600 * 1000);

    const auto opened = hubs.Ask(
        "POST", [&](auto i) { return "/api/transactions/" + id[i] + "/HEAD"; }, "{}");
    const auto transaction = [&](std::size_t i) { return "/api/transaction/" + opened[i].Text("vy:transactionId"); };
    const auto added = hubs.Ask(
        "POST", [&](auto i) { return transaction(i) + "/bulkCreate"; },
        "assets%2B1%2Bproperties=%7B%22name%22%3A%22Clip%22%7D", "application/x-www-form-urlencoded");
    const auto committed = hubs.Ask(
        "POST", [&](auto i) { return transaction(i) + "/commit"; }, "{}");
    const auto redirected = hubs.Ask("GET", [&](auto i) { return "/api/assets/" + id[i] + "/HEAD"; });
    const auto assets = hubs.Ask("GET", [&](auto i) { return redirected[i].mLocation; });
    const auto other = hubs.Ask("GET", [&](auto i) { return redirected[1 - i].mLocation; });
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(201, opened[i].mStatus);
        EXPECT_EQ(200, added[i].mStatus) << added[i].mBody;
        EXPECT_EQ(200, committed[i].mStatus);
        EXPECT_EQ("2023-11-15", committed[i].Text("vy:lastModified").substr(0, 10)) << "a day after the clock's start";
        EXPECT_EQ(307, redirected[i].mStatus);
        EXPECT_EQ("/api/assets/" + id[i] + "/" + committed[i].Text("commitId"), redirected[i].mLocation);
        EXPECT_NE(std::string::npos, assets[i].mBody.find(R"("name":"Clip")")) << assets[i].mBody;
        EXPECT_EQ(404, other[i].mStatus) << "what the other hub holds is not here";
    }
    return hubs.Transcript();
}

TEST(TwoWholeHubs, LiveInOneProcessUnderOneSeedAndKeepToTheirOwn)
{
    const std::uint64_t seed = TestSeed();
    const std::string transcript = LiveOneDay(seed);
    EXPECT_EQ(transcript, LiveOneDay(seed)) << "the same seed tells the same story, to the last id";
    EXPECT_NE(transcript, LiveOneDay(seed + 1));
}

}  // namespace
