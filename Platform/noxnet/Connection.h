#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "Platform/noxnet/AnswerText.h"
#include "Platform/noxnet/BodyShare.h"
#include "Platform/noxnet/Router.h"

namespace boost::asio {
class io_context;
}

namespace noxnet::http::server {

/// What a connection needs of the listener that it belongs to. Threading: the I/O thread, but for QueueAnswer.
class ConnectionHost
{
public:
    virtual ~ConnectionHost() = default;
    virtual Router& GetRouter() = 0;
    virtual const Limits& GetLimits() = 0;
    virtual const std::shared_ptr<BodyMemory>& GetBodyMemory() = 0;
    /// Room to read into, shared by all connections: what is to stay must be copied out before the next read.
    virtual std::span<char> Scratch() = 0;
    /// Takes the answer to a connection's request. Any thread.
    virtual void QueueAnswer(std::uint64_t inConnection, std::uint64_t inRequest, EncodedAnswer inAnswer) = 0;
    /// The connection has closed itself.
    virtual void Remove(std::uint64_t inConnection) = 0;
    /// A host whose I/O thread has ended takes no answers any more.
    virtual std::weak_ptr<ConnectionHost> Weak() = 0;
};

/// One client's connection: reads requests, hands each to the router and sends its answer before it reads the next.
///
/// Between requests and while one waits for its answer it holds no buffer and watches the socket, so that a waiting
/// client costs little and its going is seen. Threading: the I/O thread only.
class Connection
{
public:
    static std::shared_ptr<Connection> Create(ConnectionHost& inHost, boost::asio::io_context& inIO, int inDescriptor,
                                              const SocketPair& inPair, std::uint64_t inID);
    virtual ~Connection() = default;

    virtual void Start() = 0;
    /// Answers with this status alone and closes.
    virtual void Refuse(int inStatus) = 0;
    /// Sends the answer to a request, unless that was given up.
    virtual void Answer(std::uint64_t inRequest, EncodedAnswer inAnswer) = 0;
    /// Takes an answer that is given while the request is still being handed over; false outside that moment.
    virtual bool TakeAtOnce(std::uint64_t inRequest, EncodedAnswer& ioAnswer) = 0;
    /// Ends what has taken too long, in monotonic ticks, and what waits for a client that has gone.
    virtual void CheckTime(std::int64_t inNow) = 0;
    /// Begins no further request.
    virtual void StopReceiving() = 0;
    virtual void Close() = 0;
};

}  // namespace noxnet::http::server
