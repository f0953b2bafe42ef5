#pragma once

#include <cstdint>
#include <memory>

#include "Platform/noxnet/Router.h"

namespace noxnet::http::server {

/// Where a server's requests come from: the loopback interface, or whatever a test puts in its place.
///
/// Threading: Open, StopReceiving and Close from one thread.
class Listener
{
public:
    virtual ~Listener() = default;
    /// Begins to receive. False when the port cannot be had; 0 lets the listener choose.
    virtual bool Open(std::uint16_t inPort) = 0;
    /// The port that is listened at.
    [[nodiscard]] virtual std::uint16_t Port() const = 0;
    /// Hands no further request to the router; answers still go out.
    virtual void StopReceiving() = 0;
    /// Sends the answers given so far, as far as they go out at once, and closes everything.
    virtual void Close() = 0;
};

/// Makes listeners. Published in the HubContext to replace sockets; the real one where none is published.
class ListenerFactory
{
public:
    virtual ~ListenerFactory() = default;
    virtual std::unique_ptr<Listener> Create(std::shared_ptr<Router> inRouter, const Limits& inLimits) = 0;
};

/// Listens on 127.0.0.1 with one I/O thread.
std::unique_ptr<Listener> MakeSocketListener(std::shared_ptr<Router> inRouter, const Limits& inLimits);

}  // namespace noxnet::http::server
