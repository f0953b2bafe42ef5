#pragma once

#include <map>
#include <memory>
#include <string>

#include "Platform/noxtransport/SocketSession.h"

namespace noxtransport {

/// A listening socket and the sessions that came over it.
///
/// Threading: everything below the constants belongs to the loop's thread.
class SocketServer final : public IOLoop::Watched, public std::enable_shared_from_this<SocketServer>
{
public:
    enum class Kind
    {
        Loopback,
        Local
    };

    SocketServer(std::shared_ptr<IOLoop> inLoop, Descriptor inListener, Kind inKind, const Settings& inSettings,
                 std::string inPath);

    void SetReceiver(std::weak_ptr<Receiver> inReceiver);
    void BeginAccepting(SocketTransport::OnSessionOpened inOpened, SocketTransport::OnSessionClosed inClosed);
    /// Closes listener and sessions. A second call does nothing.
    void Stop();

    int GetDescriptor() const override { return mListener.Get(); }
    short WantedEvents() override;
    void OnEvents(short inEvents) override;
    void OnLoopEnding() override { Stop(); }

private:
    bool AcceptOne();
    [[nodiscard]] bool IsOurUser(int inSocket) const;
    void Offer(Descriptor inSocket);
    void SessionEnded(const std::string& inID);
    void BackOff();

    const std::shared_ptr<IOLoop> mLoop;
    const Kind mKind;
    const Settings mSettings;
    const std::string mPath;  ///< of a Unix socket; removed when the server ends

    Descriptor mListener;
    std::weak_ptr<Receiver> mReceiver;
    SocketTransport::OnSessionOpened mOpened;
    SocketTransport::OnSessionClosed mClosed;
    std::map<std::string, std::shared_ptr<SocketSession>> mSessions;  // id -> accepted session
    bool mAccepting = false;
    bool mBackingOff = false;
};

}  // namespace noxtransport
