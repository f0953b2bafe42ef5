#pragma once

#include <memory>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxmarshal/RPCClient.h"
#include "Platform/swiftlatch/Records.h"

namespace swiftlatch::server {

/// A server's registration with the link manager. It lasts as long as this object.
class SwiftLatchManagerConnection
{
public:
    virtual ~SwiftLatchManagerConnection() = default;

    /// Reaches the manager and registers. Without a manager the connection stays silent, which is no failure: clients
    /// may know the server by other means.
    static std::shared_ptr<SwiftLatchManagerConnection> Create(ServerInformation inServer, ServerAddress inAddress);

    /// Registers again, with what is open now.
    virtual void UpdateOpenGenericAssets(const OpenAssetList& inAssets) = 0;
    /// True while there is a session with a manager.
    [[nodiscard]] virtual bool IsConnected() const = 0;
};

/// The one that does it: tries the newest form of the registration first, and an older one where the manager refuses.
/// When the manager goes while the server stays, it is reached again, for as long as that takes, with a delay that
/// doubles from one second to a minute.
///
/// Threading: any thread. mMutex guards client, assets and delay (rank Leaf); nothing is sent while it is held.
class SwiftLatchManagerConnectionGremlin final : public SwiftLatchManagerConnection,
                                                 public std::enable_shared_from_this<SwiftLatchManagerConnectionGremlin>
{
public:
    SwiftLatchManagerConnectionGremlin(ServerInformation inServer, ServerAddress inAddress);

    /// Reaches the manager and registers. Where it cannot be reached that is tried later only if there was one before
    /// (inAgain). Waits for a manager to start: not on the transport's thread.
    void Connect(bool inAgain);
    void UpdateOpenGenericAssets(const OpenAssetList& inAssets) override;
    bool IsConnected() const override;

private:
    using Weak = std::weak_ptr<SwiftLatchManagerConnectionGremlin>;
    static constexpr unsigned kFirstReconnectDelayInMilliseconds = 1000;

    static void WeakOnServerAndAssetsRegistrationFailure(const Weak& inSelf, const OpenAssetList& inAssets);
    static void WeakOnServerRegistrationWithVersionFailure(const Weak& inSelf, const OpenAssetList& inAssets);
    static void WeakOnManagerLost(const Weak& inSelf);
    static void WeakOnRegistered(const Weak& inSelf);
    void RegisterServerWithVersionGeneric(const OpenAssetList& inAssets);
    void OnServerAndAssetsRegistrationFailure(const OpenAssetList& inAssets);
    void OnServerRegistrationWithVersionFailure(const OpenAssetList& inAssets);
    void OnManagerLost();
    void OnRegistered();
    void ConnectLater();
    void Send(const std::string& inCall, noxmarshal::RPCClient::OnFailure inOnFailure);
    [[nodiscard]] std::shared_ptr<noxmarshal::RPCClient> Client() const;

    const ServerInformation mServer;
    const ServerAddress mAddress;

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::shared_ptr<noxmarshal::RPCClient> mClient GUARDED_BY(mMutex);
    OpenAssetList mAssets GUARDED_BY(mMutex);  ///< the last that were told
    unsigned mReconnectDelay GUARDED_BY(mMutex) = kFirstReconnectDelayInMilliseconds;
};

}  // namespace swiftlatch::server
