#pragma once

#include <memory>
#include <string>

#include "Platform/noxtransport/SocketTransport.h"

namespace noxmarshal {

/// Answers JSON-RPC 2.0 requests that come over a transport's server with the handlers of the MessageRegistrar of the
/// context it was made in. Batches are not taken.
///
/// A text that is not JSON, or that is no request, is answered with the matching error; a stream whose framing is
/// broken with a parse error, and closed. Ends with its destruction: no handler runs any more afterwards.
/// Threading: handlers run on the transport's thread; do not destroy this from a handler.
class RPCServer
{
public:
    RPCServer(std::shared_ptr<noxtransport::SocketTransport::Server> inServer, std::string inName);
    ~RPCServer();
    RPCServer(const RPCServer&) = delete;
    RPCServer& operator=(const RPCServer&) = delete;

private:
    class Dispatcher;
    const std::shared_ptr<noxtransport::SocketTransport::Server> mServer;
    const std::shared_ptr<Dispatcher> mDispatcher;
};

}  // namespace noxmarshal
