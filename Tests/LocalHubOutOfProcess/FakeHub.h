#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Client/VYClient/Environment.h"
#include "Inc/LocalHubOutOfProcess/OutOfProcessServer.h"
#include "Platform/noxnet/IncomingRequest.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace VantryLocalHub {

/// What the fakes were asked to do, in order, and what they are to answer.
struct HubScript
{
    std::vector<std::string> mEvents;
    std::deque<int> mStartResults;  ///< of the HTTP servers, one a Start; 200 once it is empty
    bool mTransportListens = true;
    bool mEngineIsThere = true;
    std::size_t mJobs = 0;
    int mMaintenanceResult = 200;
    std::vector<std::int64_t> mCutOffs;  ///< of the releases of unused databases
    swiftlatch::ServerInformation mRegistered;
    swiftlatch::ServerAddress mRegisteredAddress;
    noxtransport::SocketTransport::OnSessionOpened mOpened;
    noxtransport::SocketTransport::OnSessionClosed mClosed;
    std::function<void()> mWhenRegistered;  ///< runs as the last step of a server's construction

    void Note(std::string inEvent) { mEvents.push_back(std::move(inEvent)); }
    [[nodiscard]] std::size_t Count(std::string_view inEvent) const
    {
        return static_cast<std::size_t>(std::count(mEvents.begin(), mEvents.end(), inEvent));
    }
    /// The events that begin with a text, without it.
    [[nodiscard]] std::vector<std::string> After(std::string_view inBegin) const
    {
        std::vector<std::string> found;
        for (const auto& event : mEvents) {
            if (event.starts_with(inBegin)) found.push_back(event.substr(inBegin.size()));
        }
        return found;
    }
};

/// Notes when it goes.
struct Tracked
{
    Tracked(std::shared_ptr<HubScript> inScript, std::string inName)
        : mScript(std::move(inScript)), mName(std::move(inName))
    {
    }
    ~Tracked() { mScript->Note(mName + " gone"); }
    Tracked(const Tracked&) = delete;
    Tracked& operator=(const Tracked&) = delete;

    const std::shared_ptr<HubScript> mScript;
    const std::string mName;
};

/// A pointer that stands for an object nobody may touch: its owner is tracked, and it points nowhere.
template <class T>
std::shared_ptr<T> Opaque(const std::shared_ptr<HubScript>& inScript, const std::string& inName)
{
    return std::shared_ptr<T>(std::make_shared<Tracked>(inScript, inName), nullptr);
}

/// A server that listens nowhere, and complains about calls out of their order.
class FakeHTTPServer final : public noxnet::http::server::Server
{
public:
    FakeHTTPServer(std::shared_ptr<HubScript> inScript, std::uint16_t inPort)
        : mScript(std::move(inScript)), mPort(inPort)
    {
    }
    ~FakeHTTPServer() override { mScript->Note("HTTP server gone"); }

    int Start() override
    {
        EXPECT_FALSE(mStarted);
        int result = 200;
        if (!mScript->mStartResults.empty()) {
            result = mScript->mStartResults.front();
            mScript->mStartResults.pop_front();
        }
        mStarted = result == 200;
        if (mStarted && mPort == 0) mPort = 49152;
        mScript->Note("start with " + std::to_string(mServices) + " services");
        return result;
    }
    [[nodiscard]] std::uint16_t GetPort() const override { return mPort; }
    void Stop() override { mScript->Note("HTTP server stopped"); }
    void RegisterService(const noxnet::http::server::PathExpression& inExpression,
                         std::shared_ptr<noxnet::http::server::Service> inService) override
    {
        EXPECT_NE(nullptr, inService);
        ++mServices;
        mScript->Note("register " + inExpression.Pattern());
    }
    void UnregisterService(const noxnet::http::server::PathExpression& inExpression) override
    {
        --mServices;
        mScript->Note("unregister " + inExpression.Pattern());
    }
    void SetInfoPort(std::uint16_t inPort) override { mScript->Note("info port " + std::to_string(inPort)); }
    void Dispatch(std::shared_ptr<noxnet::http::server::IncomingRequest>, Fulfillment) override { ADD_FAILURE(); }

private:
    const std::shared_ptr<HubScript> mScript;
    std::uint16_t mPort;
    bool mStarted = false;
    int mServices = 0;
};

class FakeTransportServer final : public noxtransport::SocketTransport::Server
{
public:
    explicit FakeTransportServer(std::shared_ptr<HubScript> inScript) : mScript(std::move(inScript)) {}
    ~FakeTransportServer() override { mScript->Note("transport server gone"); }
    [[nodiscard]] std::uint16_t GetPort() const override { return 40001; }
    [[nodiscard]] const std::string& GetAddress() const override { return mAddress; }
    void SetReceiver(std::weak_ptr<noxtransport::Receiver>) override { ADD_FAILURE(); }
    void SetSessionCallbacks(noxtransport::SocketTransport::OnSessionOpened inOpened,
                             noxtransport::SocketTransport::OnSessionClosed inClosed) override
    {
        mScript->Note("session callbacks");
        mScript->mOpened = std::move(inOpened);
        mScript->mClosed = std::move(inClosed);
    }
    void Stop() override { ADD_FAILURE(); }

private:
    const std::shared_ptr<HubScript> mScript;
    const std::string mAddress = "127.0.0.1";
};

class FakeLinkManagerConnection final : public swiftlatch::server::SwiftLatchManagerConnection
{
public:
    explicit FakeLinkManagerConnection(std::shared_ptr<HubScript> inScript) : mTracked(std::move(inScript), "link") {}
    void UpdateOpenGenericAssets(const swiftlatch::OpenAssetList&) override { ADD_FAILURE(); }
    [[nodiscard]] bool IsConnected() const override { return true; }

private:
    const Tracked mTracked;
};

class FakeStore final : public StorePart
{
public:
    explicit FakeStore(std::shared_ptr<HubScript> inScript) : mScript(std::move(inScript)) {}
    int UpgradeRepository(const ImmutableString& inSessionID) override
    {
        mScript->Note("upgrade " + inSessionID.Text());
        return mScript->mMaintenanceResult;
    }
    int DowngradeRepository(const ImmutableString& inSessionID) override
    {
        mScript->Note("downgrade " + inSessionID.Text());
        return mScript->mMaintenanceResult;
    }
    void ReleaseUnusedDB(std::int64_t inCutOffTicks) override
    {
        mScript->Note("store releases");
        mScript->mCutOffs.push_back(inCutOffTicks);
    }
    void Close() override { mScript->Note("store closed"); }

private:
    const std::shared_ptr<HubScript> mScript;
};

class FakeEngine final : public EnginePart
{
public:
    explicit FakeEngine(std::shared_ptr<HubScript> inScript) : mScript(std::move(inScript)) {}
    std::optional<std::size_t> GetUnfinishedSyncJobCount() override
    {
        return mScript->mEngineIsThere ? std::optional(mScript->mJobs) : std::nullopt;
    }
    void RunUnfinishedSyncJobs() override { mScript->Note("jobs run"); }
    void ReleaseUnusedDB(std::int64_t) override { mScript->Note("engine releases"); }
    void Terminate() override { mScript->Note("engine terminated"); }
    void Close() override { mScript->Note("engine closed"); }

private:
    const std::shared_ptr<HubScript> mScript;
};

/// A service of the routing table that answers nothing.
class FakeService final : public VantryAPIService
{
public:
    FakeService(std::shared_ptr<HubScript> inScript, const Routes::Service& inRoute)
        : VantryAPIService(inRoute), mScript(std::move(inScript)), mExpression(inRoute.mExpression)
    {
    }
    [[nodiscard]] const noxnet::http::server::PathExpression& Expression() const override { return mExpression; }
    void FailAllAsyncFulfillments() override { mScript->Note("fail " + std::string(Route().mName)); }

private:
    const std::shared_ptr<HubScript> mScript;
    const noxnet::http::server::PathExpression mExpression;
};

inline std::vector<std::shared_ptr<VantryAPIService>> MakeTwoServices(const std::shared_ptr<HubScript>& inScript)
{
    return {std::make_shared<FakeService>(inScript, *Routes::FindService("RootService")),
            std::make_shared<FakeService>(inScript, *Routes::FindService("SessionsService"))};
}

inline HubParts MakeFakeParts(const std::shared_ptr<HubScript>& inScript)
{
    HubParts parts;
    parts.mCreateHTTPServer = [inScript](std::uint16_t inPort, bool inFirst, int inReserved) {
        inScript->Note("HTTP server " + std::to_string(inPort) + (inFirst ? " first " : " replacement ") +
                       std::to_string(inReserved));
        return std::make_shared<FakeHTTPServer>(inScript, inPort);
    };
    parts.mCreateStore = [inScript] {
        inScript->Note("store made");
        return std::make_unique<FakeStore>(inScript);
    };
    parts.mCreateEngine = [inScript] {
        inScript->Note("engine made");
        return std::make_unique<FakeEngine>(inScript);
    };
    parts.mMakeServices = [inScript] { return MakeTwoServices(inScript); };
    parts.mGetTransport = [inScript] { return Opaque<noxtransport::SocketTransport>(inScript, "transport"); };
    parts.mStartTransport = [inScript](const auto&) {
        inScript->Note("transport started");
        return inScript->mTransportListens ? std::make_shared<FakeTransportServer>(inScript) : nullptr;
    };
    parts.mCreateRPCServer = [inScript](const auto&, const std::string& inName) {
        inScript->Note("RPC server " + inName);
        return Opaque<noxmarshal::RPCServer>(inScript, "RPC server");
    };
    parts.mConnectToLinkManager = [inScript](const auto& inServer, const auto& inAddress) {
        inScript->Note("link manager asked");
        inScript->mRegistered = inServer;
        inScript->mRegisteredAddress = inAddress;
        if (inScript->mWhenRegistered) inScript->mWhenRegistered();
        return std::make_shared<FakeLinkManagerConnection>(inScript);
    };
    parts.mShutDownNetwork = [inScript] { inScript->Note("network shut down"); };
    return parts;
}

/// A process of its own in virtual time, with a home of its own.
class FakeProcess
{
public:
    FakeProcess()
        : mLog(std::make_shared<testing_support::LogCapture>()),
          mScheduler(std::make_shared<testing_support::VirtualScheduler>(testing_support::TestSeed())),
          mContext(mScheduler->MakeContext(mLog)),
          mScope(mContext)
    {
        mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(
            mHome.Path(), std::map<std::string, std::string, std::less<>>{{"TMPDIR", mHome / "tmp"}}));
    }

    testing_support::TempFolder mHome;
    std::shared_ptr<testing_support::LogCapture> mLog;
    std::shared_ptr<testing_support::VirtualScheduler> mScheduler;
    std::shared_ptr<noxcore::HubContext> mContext;
    noxcore::HubContext::Scope mScope;
    std::shared_ptr<HubScript> mScript = std::make_shared<HubScript>();
};

}  // namespace VantryLocalHub
