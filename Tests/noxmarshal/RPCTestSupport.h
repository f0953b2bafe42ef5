#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/SystemParts.h"
#include "Platform/noxmarshal/BuildCall.h"
#include "Platform/noxmarshal/MessageRegistrar.h"
#include "Platform/noxmarshal/RPCClient.h"
#include "Platform/noxmarshal/RPCServer.h"
#include "Platform/noxtransport/Framing.h"
#include "Platform/noxtransport/SocketTransport.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TempFolder.h"

namespace rpc_test {

/// Long enough for a loaded machine; only a broken build waits for it.
constexpr unsigned kPatienceInMilliseconds = 60000;

/// Real threads, but delays pass only when the test says so.
class HandTurnedTime final : public noxcore::threads::ThreadingModel,
                             public std::enable_shared_from_this<HandTurnedTime>
{
public:
    using ExecutorPtr = std::shared_ptr<noxcore::threads::Executor>;
    using Task = noxcore::threads::Task;

    ExecutorPtr CreateExecutor(std::string_view inName, std::size_t inWidth) override
    {
        return std::make_shared<Timed>(mReal->CreateExecutor(inName, inWidth), shared_from_this());
    }
    ExecutorPtr CreateSubExecutor(const ExecutorPtr& inParent, std::size_t inWidth) override
    {
        return std::make_shared<Timed>(mReal->CreateSubExecutor(inParent, inWidth), shared_from_this());
    }
    std::shared_ptr<noxcore::threads::MainThread> GetMainThread() override { return mReal->GetMainThread(); }
    void RunOnAllProcessors(const std::function<void(std::size_t, std::size_t)>& inFunction) override
    {
        mReal->RunOnAllProcessors(inFunction);
    }

    /// Lets what is due run, each at its own moment, and waits for it.
    void Advance(unsigned inMilliseconds)
    {
        std::unique_lock lock(mMutex);
        const std::uint64_t end = mNow + inMilliseconds;
        while (!mTimers.empty() && mTimers.begin()->first <= end) {
            mNow = mTimers.begin()->first;
            const auto timer = std::move(mTimers.begin()->second);
            mTimers.erase(mTimers.begin());
            lock.unlock();
            RunOn(timer.first, timer.second);
            lock.lock();
        }
        mNow = end;
    }

    /// Forgets what is not due yet: a delayed task keeps its context, which keeps this.
    void DropTimers()
    {
        decltype(mTimers) dropped;  // goes after the lock: what it holds may do anything
        const std::lock_guard lock(mMutex);
        dropped.swap(mTimers);
    }

    /// Waits until somebody has set so many timers since the start.
    void WaitForTimers(std::size_t inCount)
    {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [&] { return mTimersEver >= inCount; });
    }

private:
    class Timed final : public noxcore::threads::Executor
    {
    public:
        Timed(ExecutorPtr inReal, std::weak_ptr<HandTurnedTime> inTime)
            : mReal(std::move(inReal)), mTime(std::move(inTime))
        {
        }
        bool Queue(Task inTask) override { return mReal->Queue(std::move(inTask)); }
        bool QueueAfter(unsigned inMilliseconds, Task inTask) override
        {
            const auto time = mTime.lock();
            if (time == nullptr || mReal->IsShuttingDown()) return false;
            time->Add(inMilliseconds, mReal, noxcore::BindCurrentContext(std::move(inTask)));
            return true;
        }
        bool IsShuttingDown() const override { return mReal->IsShuttingDown(); }
        void ShutDownAndWait() override { mReal->ShutDownAndWait(); }

    private:
        const ExecutorPtr mReal;
        const std::weak_ptr<HandTurnedTime> mTime;
    };

    void Add(unsigned inMilliseconds, const ExecutorPtr& inExecutor, Task inTask)
    {
        const std::lock_guard lock(mMutex);
        mTimers.emplace(mNow + inMilliseconds, std::pair(inExecutor, std::move(inTask)));
        ++mTimersEver;
        mChanged.notify_all();
    }

    static void RunOn(const std::weak_ptr<noxcore::threads::Executor>& inExecutor, const Task& inTask)
    {
        const auto executor = inExecutor.lock();
        if (executor == nullptr) return;
        const auto ended = std::make_shared<std::promise<void>>();
        // A task that is dropped takes its promise along, which ends the wait as well.
        const bool queued = executor->Queue([ended, task = inTask] {
            task();
            ended->set_value();
        });
        if (queued) ended->get_future().wait();
    }

    const std::shared_ptr<noxcore::threads::ThreadingModel> mReal = noxcore::MakeSystemThreading();
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::multimap<std::uint64_t, std::pair<std::weak_ptr<noxcore::threads::Executor>, Task>> mTimers;
    std::uint64_t mNow = 0;
    std::size_t mTimersEver = 0;
};

/// Things that happened on other threads, for a test to wait for.
template <class T>
class Events
{
public:
    void Add(T inEvent)
    {
        const std::lock_guard lock(mMutex);
        mEvents.push_back(std::move(inEvent));
        mChanged.notify_all();  // under the lock: who waits may destroy this as soon as it is free
    }
    /// Waits until so many have happened, and gives all.
    std::vector<T> WaitFor(std::size_t inCount)
    {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [&] { return mEvents.size() >= inCount; });
        return mEvents;
    }
    std::vector<T> All()
    {
        const std::lock_guard lock(mMutex);
        return mEvents;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<T> mEvents;
};

/// A context with real threads, hand-turned delays and a log to read.
struct TestContext
{
    TestContext() = default;
    ~TestContext() { mTime->DropTimers(); }
    TestContext(const TestContext&) = delete;
    TestContext& operator=(const TestContext&) = delete;

    const std::shared_ptr<HandTurnedTime> mTime = std::make_shared<HandTurnedTime>();
    const std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();
    const std::shared_ptr<noxcore::HubContext> mContext = Make();

private:
    std::shared_ptr<noxcore::HubContext> Make()
    {
        noxcore::HubContext::Parts parts;
        parts.mThreading = mTime;
        parts.mLog = mLog;
        return noxcore::HubContext::Create(std::move(parts));
    }
};

/// A peer that can break every rule.
class RawPeer
{
public:
    explicit RawPeer(std::uint16_t inPort) : mSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(inPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Connect(reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    explicit RawPeer(const std::string& inPath) : mSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, inPath.c_str(), sizeof address.sun_path - 1);
        Connect(reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ~RawPeer() { Close(); }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    void Close()
    {
        if (mSocket >= 0) close(std::exchange(mSocket, -1));
    }
    [[nodiscard]] int Socket() const { return mSocket; }
    [[nodiscard]] bool IsConnected() const { return mConnected; }

    void SendBytes(std::string_view inBytes) const
    {
        while (!inBytes.empty()) {
            const ssize_t sent = send(mSocket, inBytes.data(), inBytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) return;
            inBytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }
    void SendMessage(std::string_view inMessage) const { SendBytes(noxtransport::EncodeFrame(inMessage)); }

    /// The next message; empty when the connection ends first.
    std::string ReadMessage()
    {
        std::string message;
        while (mDecoder.Next(message) != noxtransport::FrameStatus::Message) {
            char buffer[4096];
            const ssize_t got = recv(mSocket, buffer, sizeof buffer, 0);
            if (got <= 0) return {};
            mDecoder.Feed(std::string_view(buffer, static_cast<std::size_t>(got)));
        }
        return message;
    }
    /// True when the other side has closed; what it had sent before is passed over.
    bool WaitForEnd() const
    {
        char buffer[4096];
        ssize_t got = 0;
        while ((got = recv(mSocket, buffer, sizeof buffer, 0)) > 0) {
        }
        return got == 0 || errno == ECONNRESET;
    }

private:
    void Connect(const sockaddr* inAddress, socklen_t inSize)
    {
        const timeval limit{kPatienceInMilliseconds / 1000, 0};  // a hung server fails the test instead of hanging it
        setsockopt(mSocket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        mConnected = connect(mSocket, inAddress, inSize) == 0;
    }

    int mSocket;
    bool mConnected = false;
    noxtransport::FrameDecoder mDecoder{{4096, 64 * 1024 * 1024}};
};

inline noxtransport::Settings OpenSettings()
{
    noxtransport::Settings settings;
    settings.mPeerCheck = [](const noxtransport::PeerPair&) { return true; };
    return settings;
}

}  // namespace rpc_test
