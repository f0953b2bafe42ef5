#pragma once

#include <map>

#include "Platform/noxnet/Listener.h"

namespace testing_support {

/// A network in memory: hubs whose contexts publish its factory listen here instead of on sockets, so that several of
/// them run on one thread, under one seed. Ports are unique within it.
///
/// Threading: the one thread of the virtual scheduler.
class MemoryNetwork final : public noxnet::http::server::ListenerFactory,
                            public std::enable_shared_from_this<MemoryNetwork>
{
public:
    using Router = noxnet::http::server::Router;
    using Request = noxnet::http::server::IncomingRequest;

    std::unique_ptr<noxnet::http::server::Listener> Create(std::shared_ptr<Router> inRouter,
                                                           const noxnet::http::server::Limits& /*inLimits*/) override
    {
        return std::make_unique<MemoryListener>(shared_from_this(), std::move(inRouter));
    }

    /// Brings a request to whoever listens at a port; false when nobody does.
    bool Send(std::uint16_t inPort, std::shared_ptr<Request> inRequest, noxnet::http::server::Fulfillment inFulfillment)
    {
        const auto found = mListening.find(inPort);
        if (found == mListening.end()) return false;
        const std::shared_ptr<Router> router = found->second;
        if (!router) return false;
        router->Dispatch(std::move(inRequest), std::move(inFulfillment));
        return true;
    }

    /// Makes a port unavailable, as another program's would be.
    void Occupy(std::uint16_t inPort) { mListening[inPort] = nullptr; }

private:
    class MemoryListener final : public noxnet::http::server::Listener
    {
    public:
        MemoryListener(std::shared_ptr<MemoryNetwork> inNetwork, std::shared_ptr<Router> inRouter)
            : mNetwork(std::move(inNetwork)), mRouter(std::move(inRouter))
        {
        }
        ~MemoryListener() override { MemoryListener::Close(); }

        bool Open(std::uint16_t inPort) override
        {
            const std::uint16_t port = inPort != 0 ? inPort : mNetwork->mNextPort++;
            if (!mNetwork->mListening.emplace(port, mRouter).second) return false;
            mPort = port;
            return true;
        }
        [[nodiscard]] std::uint16_t Port() const override { return mPort; }
        void StopReceiving() override
        {
            if (mPort != 0) mNetwork->mListening.erase(mPort);
            mPort = 0;
        }
        void Close() override { StopReceiving(); }

    private:
        const std::shared_ptr<MemoryNetwork> mNetwork;
        const std::shared_ptr<Router> mRouter;
        std::uint16_t mPort = 0;
    };

    std::map<std::uint16_t, std::shared_ptr<Router>> mListening;
    std::uint16_t mNextPort = 50000;
};

}  // namespace testing_support
