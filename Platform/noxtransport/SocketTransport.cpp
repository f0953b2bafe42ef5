#include "Platform/noxtransport/SocketTransport.h"

#include <utility>

#include "Platform/noxcore/Logging.h"
#include "Platform/noxtransport/IOLoop.h"
#include "Platform/noxtransport/SocketServer.h"
#include "Platform/noxtransport/SocketSession.h"

namespace noxtransport {

namespace {

/// What the owner of a server holds; the socket itself lives on the loop's thread.
class ServerHandle final : public SocketTransport::Server
{
public:
    ServerHandle(std::shared_ptr<IOLoop> inLoop, std::shared_ptr<SocketServer> inServer, std::string inAddress,
                 std::uint16_t inPort)
        : mLoop(std::move(inLoop)), mServer(std::move(inServer)), mAddress(std::move(inAddress)), mPort(inPort)
    {
    }
    ~ServerHandle() override { ServerHandle::Stop(); }

    std::uint16_t GetPort() const override { return mPort; }
    const std::string& GetAddress() const override { return mAddress; }

    void SetReceiver(std::weak_ptr<Receiver> inReceiver) override
    {
        mLoop->RunAndWait([&] { mServer->SetReceiver(std::move(inReceiver)); });
    }

    void SetSessionCallbacks(SocketTransport::OnSessionOpened inOpened,
                             SocketTransport::OnSessionClosed inClosed) override
    {
        mLoop->RunAndWait([&] { mServer->BeginAccepting(std::move(inOpened), std::move(inClosed)); });
    }

    void Stop() override
    {
        mLoop->RunAndWait([&] { mServer->Stop(); });
    }

private:
    const std::shared_ptr<IOLoop> mLoop;
    const std::shared_ptr<SocketServer> mServer;
    const std::string mAddress;
    const std::uint16_t mPort;
};

std::shared_ptr<SocketTransport::Server> StartServer(const std::shared_ptr<IOLoop>& inLoop, Descriptor inListener,
                                                     SocketServer::Kind inKind, const Settings& inSettings,
                                                     const std::string& inAddress)
{
    const std::uint16_t port = inKind == SocketServer::Kind::Local ? 0 : LocalPort(inListener.Get());
    const auto server = std::make_shared<SocketServer>(inLoop, std::move(inListener), inKind, inSettings, inAddress);
    if (!inLoop->RunAndWait([&] { inLoop->Watch(server); })) return nullptr;
    return std::make_shared<ServerHandle>(inLoop, server, inAddress, port);
}

/// The session of the connecting side. The loop keeps it until it is closed.
std::shared_ptr<Session> StartClient(const std::shared_ptr<IOLoop>& inLoop, Descriptor inSocket,
                                     const Settings& inSettings, std::weak_ptr<Receiver> inReceiver)
{
    if (!inSocket.IsOpen()) return nullptr;
    const auto session = std::make_shared<SocketSession>(inLoop, std::move(inSocket), inSettings);
    session->SetReceiver(std::move(inReceiver));
    if (!inLoop->RunAndWait([&] { inLoop->Watch(session); })) return nullptr;
    return session;
}

}  // namespace

std::shared_ptr<SocketTransport> SocketTransport::Create(Settings inSettings)
{
    auto loop = IOLoop::Start();
    if (loop == nullptr) return nullptr;
    return std::shared_ptr<SocketTransport>(new SocketTransport(std::move(inSettings), std::move(loop)));
}

SocketTransport::SocketTransport(Settings inSettings, std::shared_ptr<IOLoop> inLoop)
    : mSettings(std::move(inSettings)), mLoop(std::move(inLoop))
{
}

SocketTransport::~SocketTransport()
{
    mLoop->End();
}

std::shared_ptr<SocketTransport::Server> SocketTransport::ServerStart(std::uint16_t inPort, bool inLoopbackOnly)
{
    if (!inLoopbackOnly) {
        noxcore::logging::LogError("noxtransport", "The transport listens at the loopback interface only");
        return nullptr;
    }
    Descriptor listener = ListenLoopback(inPort);
    if (!listener.IsOpen()) {
        LogSystemError("The transport cannot listen", std::to_string(inPort));
        return nullptr;
    }
    return StartServer(mLoop, std::move(listener), SocketServer::Kind::Loopback, mSettings, "127.0.0.1");
}

std::shared_ptr<SocketTransport::Server> SocketTransport::ServerStartLocal(const std::string& inPath)
{
    Descriptor listener = ListenLocal(inPath);
    if (!listener.IsOpen()) {
        LogSystemError("The transport cannot listen", inPath);
        return nullptr;
    }
    return StartServer(mLoop, std::move(listener), SocketServer::Kind::Local, mSettings, inPath);
}

std::shared_ptr<Session> SocketTransport::Connect(const std::string& inAddress, std::uint16_t inPort,
                                                  std::weak_ptr<Receiver> inReceiver)
{
    return StartClient(mLoop, ConnectLoopback(inAddress, inPort), mSettings, std::move(inReceiver));
}

std::shared_ptr<Session> SocketTransport::ConnectLocal(const std::string& inPath, std::weak_ptr<Receiver> inReceiver)
{
    return StartClient(mLoop, noxtransport::ConnectLocal(inPath), mSettings, std::move(inReceiver));
}

}  // namespace noxtransport
