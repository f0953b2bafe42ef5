#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxtransport/Framing.h"
#include "Platform/noxtransport/TransportError.h"

namespace noxtransport {

class IOLoop;

/// One open connection that carries messages both ways. Threading: any thread.
class Session
{
public:
    virtual ~Session() = default;
    /// A text of its own for logs and tables.
    [[nodiscard]] virtual const std::string& ID() const = 0;
    /// Puts a message after those sent before. False when the session is closed, or when the peer has let so much
    /// lie unread that the session is closed now.
    virtual bool Send(std::string_view inMessage) = 0;
    /// Closes once what was sent has gone out.
    virtual void Close() = 0;
};

/// Takes what comes over sessions. Called on the transport's thread, which carries all sessions: a receiver must not
/// wait there. What it throws is logged and goes no further.
class Receiver
{
public:
    virtual ~Receiver() = default;
    virtual void OnMessage(const std::shared_ptr<Session>& inSession, std::string_view inMessage) = 0;
    /// The stream cannot be cut into messages any more. The session is closed afterwards, once what is sent here has
    /// gone out.
    virtual void OnBroken(const std::shared_ptr<Session>& inSession, std::string_view inReason) = 0;
    /// The session has ended, by either side. Last call for the session.
    virtual void OnClosed(const std::shared_ptr<Session>& inSession) = 0;
};

/// The two ends of an accepted loopback connection, seen from here.
struct PeerPair
{
    std::string mLocalAddress;
    std::uint16_t mLocalPort = 0;
    std::string mPeerAddress;
    std::uint16_t mPeerPort = 0;
};

/// True when the process at the other end belongs to this process's user. Called on the transport's thread.
using PeerCheck = std::function<bool(const PeerPair&)>;

struct Settings
{
    PeerCheck mPeerCheck;  ///< without one every loopback peer is refused
    FramingLimits mFraming;
    std::size_t mMaxConnections = 256;              ///< of one server; further ones wait in the kernel's queue
    std::size_t mMaxUnsentBytes = 4 * 1024 * 1024;  ///< of one session, before it is closed
    unsigned mAcceptBackOffInMilliseconds = 200;    ///< after descriptors ran out
};

/// Framed messages over loopback TCP and Unix sockets. One thread carries everything of one transport.
///
/// All callbacks run on that thread and under the HubContext that created the transport.
/// Threading: any thread, but end a transport and its servers with no lock held that a callback takes, and not from a
/// callback. Locks: rank Leaf inside, none held while callbacks run.
class SocketTransport
{
public:
    /// 0 to accept a session (its ID is given), anything else to refuse it.
    using OnSessionOpened = std::function<TransportError(const std::string&)>;
    using OnSessionClosed = std::function<void(const std::string&)>;

    /// A listening socket with its sessions. Ends with its last reference: its sessions are closed, and no callback
    /// runs any more afterwards.
    class Server
    {
    public:
        virtual ~Server() = default;
        [[nodiscard]] virtual std::uint16_t GetPort() const = 0;  ///< 0 for a Unix socket
        /// "127.0.0.1", or the path of the Unix socket.
        [[nodiscard]] virtual const std::string& GetAddress() const = 0;

        /// Sets who takes the messages; sessions that have nobody to take a message are closed. Held weakly.
        virtual void SetReceiver(std::weak_ptr<Receiver> inReceiver) = 0;
        /// Begins to accept. Until then connections wait in the kernel's queue, so that no session is missed.
        ///
        /// Every connection of our own user is offered to the first function. For each session that it accepted the
        /// second is called once, when the session has ended or the server ends; never for a refused one.
        virtual void SetSessionCallbacks(OnSessionOpened inOpened, OnSessionClosed inClosed) = 0;
        /// Ends the server ahead of its last reference. A second call does nothing.
        virtual void Stop() = 0;
    };

    /// Null, with a record, when the thread cannot be had.
    static std::shared_ptr<SocketTransport> Create(Settings inSettings);
    ~SocketTransport();
    SocketTransport(const SocketTransport&) = delete;
    SocketTransport& operator=(const SocketTransport&) = delete;

    /// Listens on 127.0.0.1; port 0 lets the system choose. The flag says that only the loopback interface may be
    /// listened at; without it nothing is started, for this transport knows no other. Null, with a record, on failure.
    std::shared_ptr<Server> ServerStart(std::uint16_t inPort, bool inLoopbackOnly);
    /// Listens at a Unix socket, in place of whatever has that path: the caller knows that nobody listens there, until
    /// the server has ended and removed it. Only peers of this process's effective user are let in. Null, with a
    /// record, on failure.
    std::shared_ptr<Server> ServerStartLocal(const std::string& inPath);

    /// Opens a session to a server; null when nobody answers there (no record: that is often expected). The receiver
    /// is held weakly; without it the session closes. May wait a few seconds for a server with a full queue.
    std::shared_ptr<Session> Connect(const std::string& inAddress, std::uint16_t inPort,
                                     std::weak_ptr<Receiver> inReceiver);
    std::shared_ptr<Session> ConnectLocal(const std::string& inPath, std::weak_ptr<Receiver> inReceiver);

private:
    SocketTransport(Settings inSettings, std::shared_ptr<IOLoop> inLoop);

    const Settings mSettings;
    const std::shared_ptr<IOLoop> mLoop;
};

}  // namespace noxtransport
