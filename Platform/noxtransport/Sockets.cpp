#include "Platform/noxtransport/Sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace noxtransport {

namespace {

constexpr int kBacklog = 128;
constexpr timeval kConnectTimeout{5, 0};

/// The address of a Unix socket by way of its folder's descriptor: a path of any length fits.
class LocalAddress
{
public:
    explicit LocalAddress(const std::string& inPath)
        : mName(noxcore::filesupport::BaseName(inPath)),
          mFolder(
              open(std::string(noxcore::filesupport::ParentFolder(inPath)).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
    {
        const std::string path = "/proc/self/fd/" + std::to_string(mFolder.Get()) + "/" + mName;
        if (!mFolder.IsOpen()) return;
        if (path.size() >= sizeof mAddress.sun_path) {
            errno = ENAMETOOLONG;
            return;
        }
        mAddress.sun_family = AF_UNIX;
        std::memcpy(mAddress.sun_path, path.c_str(), path.size() + 1);
        mValid = true;
    }

    [[nodiscard]] bool IsValid() const { return mValid; }
    [[nodiscard]] const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&mAddress); }
    [[nodiscard]] socklen_t Size() const { return sizeof mAddress; }
    [[nodiscard]] int Folder() const { return mFolder.Get(); }
    [[nodiscard]] const char* Name() const { return mName.c_str(); }

private:
    const std::string mName;
    const Descriptor mFolder;
    sockaddr_un mAddress{};
    bool mValid = false;
};

sockaddr_in LoopbackAddress(std::uint16_t inPort)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(inPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

const sockaddr* Plain(const sockaddr_in& inAddress)
{
    return reinterpret_cast<const sockaddr*>(&inAddress);
}

/// Small messages that wait for their answer: nothing is gained by holding them back.
void SendAtOnce(int inSocket)
{
    const int on = 1;
    setsockopt(inSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

Descriptor FinishConnect(Descriptor inSocket, const sockaddr* inAddress, socklen_t inSize)
{
    setsockopt(inSocket.Get(), SOL_SOCKET, SO_SNDTIMEO, &kConnectTimeout, sizeof kConnectTimeout);
    if (connect(inSocket.Get(), inAddress, inSize) != 0) return {};
    if (fcntl(inSocket.Get(), F_SETFL, O_NONBLOCK) != 0) return {};
    return inSocket;
}

}  // namespace

void Descriptor::Close()
{
    if (mDescriptor < 0) return;
    const int error = errno;  // who failed reports its own cause
    close(std::exchange(mDescriptor, -1));
    errno = error;
}

void LogSystemError(std::string_view inMessage, std::string_view inSubject)
{
    const std::string cause = std::system_category().message(errno);
    noxcore::logging::LogError("noxtransport", inMessage, {{"subject", inSubject}, {"error", cause}});
}

Descriptor ListenLoopback(std::uint16_t inPort)
{
    Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!listener.IsOpen()) return {};
    const int on = 1;
    setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = LoopbackAddress(inPort);
    if (bind(listener.Get(), Plain(address), sizeof address) != 0) return {};
    if (listen(listener.Get(), kBacklog) != 0) return {};
    return listener;
}

Descriptor ListenLocal(const std::string& inPath)
{
    const LocalAddress address(inPath);
    if (!address.IsValid()) return {};
    Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!listener.IsOpen()) return {};
    unlinkat(address.Folder(), address.Name(), 0);
    if (bind(listener.Get(), address.Get(), address.Size()) != 0) return {};
    // The folder keeps others out; this is for a folder that somebody opened.
    if (fchmodat(address.Folder(), address.Name(), S_IRUSR | S_IWUSR, 0) != 0) return {};
    if (listen(listener.Get(), kBacklog) != 0) return {};
    return listener;
}

Descriptor ConnectLoopback(const std::string& inAddress, std::uint16_t inPort)
{
    sockaddr_in address = LoopbackAddress(inPort);
    if (inet_pton(AF_INET, inAddress.c_str(), &address.sin_addr) != 1) {
        errno = EINVAL;
        return {};
    }
    Descriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!connection.IsOpen()) return {};
    SendAtOnce(connection.Get());
    return FinishConnect(std::move(connection), Plain(address), sizeof address);
}

Descriptor ConnectLocal(const std::string& inPath)
{
    const LocalAddress address(inPath);
    if (!address.IsValid()) return {};
    Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!connection.IsOpen()) return {};
    return FinishConnect(std::move(connection), address.Get(), address.Size());
}

Descriptor Accept(int inListener)
{
    Descriptor accepted(accept4(inListener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (accepted.IsOpen()) SendAtOnce(accepted.Get());
    return accepted;
}

std::uint16_t LocalPort(int inSocket)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(inSocket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    return ntohs(address.sin_port);
}

bool GetAddresses(int inSocket, std::string& outLocal, std::uint16_t& outLocalPort, std::string& outPeer,
                  std::uint16_t& outPeerPort)
{
    sockaddr_in local{};
    sockaddr_in peer{};
    socklen_t localSize = sizeof local;
    socklen_t peerSize = sizeof peer;
    if (getsockname(inSocket, reinterpret_cast<sockaddr*>(&local), &localSize) != 0) return false;
    if (getpeername(inSocket, reinterpret_cast<sockaddr*>(&peer), &peerSize) != 0) return false;
    if (local.sin_family != AF_INET || peer.sin_family != AF_INET) return false;
    char text[INET_ADDRSTRLEN] = {};
    outLocal = inet_ntop(AF_INET, &local.sin_addr, text, sizeof text);
    outPeer = inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
    outLocalPort = ntohs(local.sin_port);
    outPeerPort = ntohs(peer.sin_port);
    return true;
}

bool GetPeerUser(int inSocket, uid_t& outUser)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(inSocket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return false;
    outUser = credentials.uid;
    return true;
}

}  // namespace noxtransport
