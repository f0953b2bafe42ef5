#pragma once

#include <deque>
#include <memory>
#include <string>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxtransport/IOLoop.h"
#include "Platform/noxtransport/SocketTransport.h"

namespace noxtransport {

/// One connected socket: cuts what comes into messages and sends what is given.
///
/// Threading: the Session operations from any thread, the rest on the loop's. mMutex guards what waits to be sent
/// (rank Leaf).
class SocketSession final : public Session, public IOLoop::Watched, public std::enable_shared_from_this<SocketSession>
{
public:
    /// Told once, on the loop's thread, when the session has ended.
    using OnEnded = std::function<void(const std::shared_ptr<SocketSession>&)>;

    SocketSession(std::shared_ptr<IOLoop> inLoop, Descriptor inSocket, const Settings& inSettings);

    const std::string& ID() const override { return mID; }
    bool Send(std::string_view inMessage) override;
    void Close() override;

    /// Before Watch; loop's thread.
    void SetReceiver(std::weak_ptr<Receiver> inReceiver) { mReceiver = std::move(inReceiver); }
    void SetOnEnded(OnEnded inOnEnded) { mOnEnded = std::move(inOnEnded); }
    /// Closes at once, whatever waits to be sent.
    void CloseNow();

    int GetDescriptor() const override { return mSocket.Get(); }
    short WantedEvents() override;
    void OnEvents(short inEvents) override;
    void OnLoopEnding() override { CloseNow(); }

private:
    void Receive();
    void HandOutMessages();
    void Flush();
    void BeginClosing();

    const std::string mID;
    const std::shared_ptr<IOLoop> mLoop;
    const std::size_t mMaxUnsentBytes;

    // Loop's thread only.
    Descriptor mSocket;
    FrameDecoder mDecoder;
    std::weak_ptr<Receiver> mReceiver;
    OnEnded mOnEnded;
    bool mEnded = false;

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::deque<std::string> mUnsent GUARDED_BY(mMutex);
    std::size_t mSentOfFirst GUARDED_BY(mMutex) = 0;
    std::size_t mUnsentBytes GUARDED_BY(mMutex) = 0;
    bool mClosing GUARDED_BY(mMutex) = false;  ///< takes nothing more to send, and reads no more
};

}  // namespace noxtransport
