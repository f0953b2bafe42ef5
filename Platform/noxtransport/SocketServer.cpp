#include "Platform/noxtransport/SocketServer.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Platform/noxcore/Logging.h"

namespace noxtransport {

namespace {

/// Accepted at a time, so that a flood of connections does not keep the sessions waiting.
constexpr int kAcceptsAtATime = 16;

/// The back-off is over.
void WeakResumeAccepting(const std::weak_ptr<IOLoop>& inLoop, noxcore::threads::Task inResume)
{
    if (const auto loop = inLoop.lock()) loop->Post(std::move(inResume));
}

}  // namespace

SocketServer::SocketServer(std::shared_ptr<IOLoop> inLoop, Descriptor inListener, Kind inKind,
                           const Settings& inSettings, std::string inPath)
    : mLoop(std::move(inLoop)),
      mKind(inKind),
      mSettings(inSettings),
      mPath(std::move(inPath)),
      mListener(std::move(inListener))
{
}

void SocketServer::SetReceiver(std::weak_ptr<Receiver> inReceiver)
{
    for (const auto& [id, session] : mSessions)
        session->SetReceiver(inReceiver);
    mReceiver = std::move(inReceiver);
}

void SocketServer::BeginAccepting(SocketTransport::OnSessionOpened inOpened, SocketTransport::OnSessionClosed inClosed)
{
    mOpened = std::move(inOpened);
    mClosed = std::move(inClosed);
    mAccepting = true;
}

void SocketServer::Stop()
{
    mLoop->Unwatch(this);
    if (mListener.IsOpen() && mKind == Kind::Local) unlink(mPath.c_str());
    mListener.Close();
    while (!mSessions.empty()) {
        const auto session = mSessions.begin()->second;
        session->CloseNow();  // SessionEnded takes it out
    }
    mOpened = nullptr;
    mClosed = nullptr;
}

short SocketServer::WantedEvents()
{
    return mAccepting && !mBackingOff && mSessions.size() < mSettings.mMaxConnections ? POLLIN : 0;
}

void SocketServer::OnEvents(short)
{
    for (int i = 0; i < kAcceptsAtATime && WantedEvents() != 0 && AcceptOne(); ++i) {
    }
}

bool SocketServer::AcceptOne()
{
    Descriptor socket = Accept(mListener.Get());
    if (!socket.IsOpen()) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) BackOff();
        return false;
    }
    if (!IsOurUser(socket.Get())) {
        // A loopback port is open to every user: whoever checks its peers tells of them, and keeps count.
        if (mKind == Kind::Local)
            noxcore::logging::LogWarning("noxtransport", "A connection that is not our user's was closed");
        return true;
    }
    Offer(std::move(socket));
    return true;
}

bool SocketServer::IsOurUser(int inSocket) const
{
    if (mKind == Kind::Local) {
        uid_t user = 0;
        return GetPeerUser(inSocket, user) && user == geteuid();
    }
    PeerPair pair;
    if (!mSettings.mPeerCheck) return false;
    if (!GetAddresses(inSocket, pair.mLocalAddress, pair.mLocalPort, pair.mPeerAddress, pair.mPeerPort)) return false;
    bool ours = false;
    CallGuarded([&] { ours = mSettings.mPeerCheck(pair); });
    return ours;
}

void SocketServer::Offer(Descriptor inSocket)
{
    const auto session = std::make_shared<SocketSession>(mLoop, std::move(inSocket), mSettings);
    TransportError answer = TransportError::None;
    if (mOpened && !CallGuarded([&] { answer = mOpened(session->ID()); })) answer = TransportError::Refused;
    if (answer != TransportError::None) return;  // closes with its last reference, and nobody is told
    session->SetReceiver(mReceiver);
    session->SetOnEnded([weak = weak_from_this()](const std::shared_ptr<SocketSession>& inSession) {
        if (const auto self = weak.lock()) self->SessionEnded(inSession->ID());
    });
    mSessions.emplace(session->ID(), session);
    mLoop->Watch(session);
}

void SocketServer::SessionEnded(const std::string& inID)
{
    mSessions.erase(inID);
    if (mClosed) CallGuarded([&] { mClosed(inID); });
}

void SocketServer::BackOff()
{
    mBackingOff = true;
    noxcore::logging::LogWarning("noxtransport", "No descriptor is left for a new connection");
    auto resume = [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->mBackingOff = false;
    };
    const bool queued = noxcore::threads::IOBoundExecutor()->QueueAfter(
        mSettings.mAcceptBackOffInMilliseconds,
        [loop = std::weak_ptr<IOLoop>(mLoop), resume] { WeakResumeAccepting(loop, resume); });
    if (!queued) mBackingOff = false;
}

}  // namespace noxtransport
