#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <optional>

#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxnet/HTTPServer.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/noxnet/SocketClient.h"

namespace testing_support {

namespace server = noxnet::http::server;

/// A context with a log that the test reads, and a clock that it moves where it gives one.
inline std::shared_ptr<noxcore::HubContext> MakeLoggingContext(const std::shared_ptr<LogCapture>& inLog,
                                                               const std::shared_ptr<noxcore::Clock>& inClock = nullptr)
{
    noxcore::HubContext::Parts parts;
    parts.mClock = inClock;
    parts.mLog = inLog;
    return noxcore::HubContext::Create(std::move(parts));
}

/// A clock for real threads that stands still until the test moves it.
class SteppedClock final : public noxcore::Clock
{
public:
    std::int64_t NowTicks() override { return 17000000000000000 + mTicks; }
    std::int64_t MonotonicTicks() override { return mTicks; }
    void AdvanceSeconds(std::int64_t inSeconds) { mTicks += inSeconds * noxcore::kTicksPerSecond; }

private:
    std::atomic<std::int64_t> mTicks = noxcore::kTicksPerSecond;
};

/// A service whose handler is a function of the test. Counts its requests.
class TestService final : public server::Service
{
public:
    using Handler = std::function<void(std::shared_ptr<const server::Request>, std::shared_ptr<server::MutableResponse>,
                                       server::Fulfillment)>;

    TestService(std::string_view inPattern, Handler inHandler, bool inAtOnce = false)
        : mExpression(inPattern), mHandler(std::move(inHandler)), mAtOnce(inAtOnce)
    {
    }

    void FulfillResource(std::shared_ptr<const server::Request> inRequest,
                         std::shared_ptr<server::MutableResponse> inResponse,
                         server::Fulfillment inFulfillment) override
    {
        ++mRequests;
        mHandler(std::move(inRequest), std::move(inResponse), std::move(inFulfillment));
    }
    [[nodiscard]] const server::PathExpression& Expression() const override { return mExpression; }
    [[nodiscard]] bool AnswersAtOnce(const server::Request& /*inRequest*/) const override { return mAtOnce; }
    [[nodiscard]] int Requests() const { return mRequests; }

private:
    const server::PathExpression mExpression;
    const Handler mHandler;
    const bool mAtOnce;
    std::atomic<int> mRequests = 0;
};

/// Answers with method, path and the size of the body.
inline void Echo(const std::shared_ptr<const server::Request>& inRequest,
                 const std::shared_ptr<server::MutableResponse>& inResponse, const server::Fulfillment& inFulfillment)
{
    inResponse->mPayload =
        noxcore::utility::MakeRecycledMemory(inRequest->Method().Text() + " " + std::string(inRequest->Path()) + " " +
                                             std::to_string(inRequest->Payload()->size()));
    inFulfillment(inResponse);
}

/// Keeps requests open until the test answers them, and lets the test wait for them to come.
class Waiters
{
public:
    struct Waiter
    {
        std::shared_ptr<const server::Request> mRequest;
        std::shared_ptr<server::MutableResponse> mResponse;
        server::Fulfillment mFulfillment;
    };

    void Add(std::shared_ptr<const server::Request> inRequest, std::shared_ptr<server::MutableResponse> inResponse,
             server::Fulfillment inFulfillment)
    {
        const std::lock_guard lock(mMutex);
        mWaiting.push_back({std::move(inRequest), std::move(inResponse), std::move(inFulfillment)});
        mChanged.notify_all();
    }
    bool IsEmpty()
    {
        const std::lock_guard lock(mMutex);
        return mWaiting.empty();
    }
    Waiter Take()
    {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [this] { return !mWaiting.empty(); });
        Waiter waiter = std::move(mWaiting.front());
        mWaiting.erase(mWaiting.begin());
        return waiter;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Waiter> mWaiting;
};

/// A context with a log to read and, where a test wants it, a clock to move; and servers in it.
class ServerTest : public ::testing::Test
{
protected:
    ~ServerTest() override
    {
        for (const auto& running : mServers)
            running->Stop();
    }

    std::shared_ptr<server::Server> MakeServer(std::uint16_t inPort = 0)
    {
        return mServers.emplace_back(server::Server::Create(inPort, true, -1));
    }
    /// A server that listens, with one service.
    std::shared_ptr<server::Server> Serve(const std::shared_ptr<TestService>& inService)
    {
        auto made = MakeServer();
        made->RegisterService(inService->Expression(), inService);
        EXPECT_EQ(200, made->Start());
        return made;
    }
    std::shared_ptr<server::Server> ServeEcho()
    {
        mEcho = std::make_shared<TestService>("^/api/echo.*$", Echo);
        return Serve(mEcho);
    }
    std::shared_ptr<server::Server> ServeWaiters()
    {
        return Serve(std::make_shared<TestService>("^/api/wait$", [this](auto inRequest, auto inResponse, auto inDone) {
            mWaiters.Add(std::move(inRequest), std::move(inResponse), std::move(inDone));
        }));
    }
    void Set(std::string_view inName, std::string_view inValue)
    {
        noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.HTTP." + std::string(inName), inValue);
    }
    static std::string Get(const std::shared_ptr<server::Server>& inServer, const std::string& inPath,
                           const std::string& inHeaders = {})
    {
        return "GET " + inPath + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(inServer->GetPort()) + "\r\n" +
               inHeaders + "\r\n";
    }
    static std::string Post(const std::shared_ptr<server::Server>& inServer, const std::string& inPath,
                            const std::string& inBody, const std::string& inHeaders = {})
    {
        return "POST " + inPath + " HTTP/1.1\r\nHost: localhost:" + std::to_string(inServer->GetPort()) +
               "\r\nContent-Length: " + std::to_string(inBody.size()) + "\r\n" + inHeaders + "\r\n" + inBody;
    }

    std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    std::shared_ptr<SteppedClock> mClock = std::make_shared<SteppedClock>();
    noxcore::HubContext::Scope mScope{MakeLoggingContext(mLog, mClock)};
    std::shared_ptr<TestService> mEcho;
    Waiters mWaiters;
    std::vector<std::shared_ptr<server::Server>> mServers;
};

}  // namespace testing_support
