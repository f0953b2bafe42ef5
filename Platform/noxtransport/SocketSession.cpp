#include "Platform/noxtransport/SocketSession.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"

namespace noxtransport {

using noxcore::threads::ScopedLock;

namespace {

/// Read at a time, so that a flood from one peer does not keep the others waiting.
constexpr std::size_t kReadBytes = 16 * 1024;

bool WouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

SocketSession::SocketSession(std::shared_ptr<IOLoop> inLoop, Descriptor inSocket, const Settings& inSettings)
    : mID(noxcore::utility::Guid::CreateUnique().Text()),
      mLoop(std::move(inLoop)),
      mMaxUnsentBytes(inSettings.mMaxUnsentBytes),
      mSocket(std::move(inSocket)),
      mDecoder(inSettings.mFraming)
{
}

bool SocketSession::Send(std::string_view inMessage)
{
    bool tooMuch = false;
    {
        const ScopedLock lock(mMutex);
        if (mClosing) return false;
        std::string frame = EncodeFrame(inMessage);
        tooMuch = mUnsentBytes + frame.size() > mMaxUnsentBytes;
        if (tooMuch) {
            mClosing = true;
        } else {
            mUnsentBytes += frame.size();
            mUnsent.push_back(std::move(frame));
        }
    }
    if (tooMuch) {
        noxcore::logging::LogWarning("noxtransport", "A peer does not read what it is sent", {{"session", mID}});
        mLoop->Post([self = shared_from_this()] { self->CloseNow(); });
        return false;
    }
    if (mLoop->IsCurrentThread()) {
        Flush();
        return true;
    }
    return mLoop->Post([self = shared_from_this()] { self->Flush(); });
}

void SocketSession::Close()
{
    mLoop->Post([self = shared_from_this()] { self->BeginClosing(); });
}

void SocketSession::BeginClosing()
{
    bool done = false;
    {
        const ScopedLock lock(mMutex);
        mClosing = true;
        done = mUnsent.empty();
    }
    if (done) CloseNow();
}

void SocketSession::CloseNow()
{
    if (mEnded) return;
    mEnded = true;
    {
        const ScopedLock lock(mMutex);
        mClosing = true;
        mUnsent.clear();
        mUnsentBytes = 0;
    }
    const auto self = shared_from_this();
    mLoop->Unwatch(this);
    mSocket.Close();
    if (const auto receiver = mReceiver.lock()) CallGuarded([&] { receiver->OnClosed(self); });
    if (const auto onEnded = std::exchange(mOnEnded, nullptr)) CallGuarded([&] { onEnded(self); });
}

short SocketSession::WantedEvents()
{
    const ScopedLock lock(mMutex);
    const int reading = mClosing ? 0 : POLLIN;
    const int writing = mUnsent.empty() ? 0 : POLLOUT;
    return static_cast<short>(reading | writing);
}

void SocketSession::OnEvents(short inEvents)
{
    if ((inEvents & POLLOUT) != 0) Flush();
    if (mEnded) return;
    if ((inEvents & POLLIN) != 0) {
        Receive();
    } else if ((inEvents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        CloseNow();
    }
}

void SocketSession::Receive()
{
    char buffer[kReadBytes];
    const ssize_t got = recv(mSocket.Get(), buffer, sizeof buffer, 0);
    if (got < 0 && WouldBlock()) return;
    if (got <= 0) {
        CloseNow();
        return;
    }
    mDecoder.Feed(std::string_view(buffer, static_cast<std::size_t>(got)));
    HandOutMessages();
}

void SocketSession::HandOutMessages()
{
    const auto self = shared_from_this();
    std::string message;
    while (!mEnded) {
        {
            const ScopedLock lock(mMutex);
            if (mClosing) return;
        }
        const FrameStatus status = mDecoder.Next(message);
        if (status == FrameStatus::NeedMore) return;
        const auto receiver = mReceiver.lock();
        if (receiver == nullptr) {
            CloseNow();
            return;
        }
        if (status == FrameStatus::Message) {
            CallGuarded([&] { receiver->OnMessage(self, message); });
            continue;
        }
        noxcore::logging::LogWarning("noxtransport", "A peer broke the framing",
                                     {{"session", mID}, {"reason", mDecoder.Reason()}});
        CallGuarded([&] { receiver->OnBroken(self, mDecoder.Reason()); });
        BeginClosing();
        return;
    }
}

void SocketSession::Flush()
{
    bool failed = false;
    bool done = false;
    {
        const ScopedLock lock(mMutex);
        while (!mEnded && !mUnsent.empty()) {
            const std::string& first = mUnsent.front();
            const ssize_t sent =
                send(mSocket.Get(), first.data() + mSentOfFirst, first.size() - mSentOfFirst, MSG_NOSIGNAL);
            if (sent < 0) {
                failed = !WouldBlock();
                break;
            }
            mSentOfFirst += static_cast<std::size_t>(sent);
            mUnsentBytes -= static_cast<std::size_t>(sent);
            if (mSentOfFirst < first.size()) break;
            mUnsent.pop_front();
            mSentOfFirst = 0;
        }
        // A failed write means the peer has gone: what it sent before is still read, then its end is seen.
        if (failed) {
            mUnsent.clear();
            mSentOfFirst = 0;
            mUnsentBytes = 0;
        }
        done = mClosing && mUnsent.empty();
    }
    if (done) CloseNow();
}

}  // namespace noxtransport
