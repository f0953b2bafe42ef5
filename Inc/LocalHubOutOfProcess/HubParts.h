#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Inc/Service/VantryAPIService.h"
#include "Platform/noxmarshal/RPCServer.h"
#include "Platform/noxnet/HTTPServer.h"
#include "Platform/noxtransport/SocketTransport.h"
#include "Platform/swiftlatch/SwiftLatchManagerConnection.h"

namespace VantryLocalHub {

/// The project store as the process needs it: made, asked for maintenance, and ended. All else goes through ProjectBox.
///
/// It keeps no reference to the store, since Close waits until nobody holds one. Threading: any thread.
class StorePart
{
public:
    virtual ~StorePart() = default;
    /// 200; 404: no such session, or its repository could not be changed.
    virtual int UpgradeRepository(const ImmutableString& inSessionID) = 0;
    virtual int DowngradeRepository(const ImmutableString& inSessionID) = 0;
    /// Gives back what was not used since that moment of the monotonic clock. Nothing happens where the store is shut.
    virtual void ReleaseUnusedDB(std::int64_t inCutOffTicks) = 0;
    /// Withdraws the store and waits until nobody holds it any more.
    virtual void Close() = 0;
};

/// The sync engine as the process needs it; as above, over SyncBox. Nothing happens where the engine is shut.
class EnginePart
{
public:
    virtual ~EnginePart() = default;
    /// Empty where the engine is shut.
    virtual std::optional<std::size_t> GetUnfinishedSyncJobCount() = 0;
    virtual void RunUnfinishedSyncJobs() = 0;
    /// The cut-off is a moment of the monotonic clock.
    virtual void ReleaseUnusedDB(std::int64_t inCutOffTicks) = 0;
    virtual void Terminate() = 0;
    virtual void Close() = 0;
};

/// What a hub is put together from. Each part is made when its turn comes.
struct HubParts
{
    using HTTPServer = noxnet::http::server::Server;
    using Transport = noxtransport::SocketTransport;
    using LinkManagerConnection = swiftlatch::server::SwiftLatchManagerConnection;

    std::function<std::shared_ptr<HTTPServer>(std::uint16_t inPort, bool inFirst, int inReserved)> mCreateHTTPServer;
    /// Makes the store and publishes it.
    std::function<std::unique_ptr<StorePart>()> mCreateStore;
    /// Makes the sync engine and publishes it; the store stands already.
    std::function<std::unique_ptr<EnginePart>()> mCreateEngine;
    /// All services, in the order in which their expressions are tried.
    std::function<std::vector<std::shared_ptr<VantryAPIService>>()> mMakeServices;

    std::function<std::shared_ptr<Transport>()> mGetTransport;
    /// Null where the transport cannot listen.
    std::function<std::shared_ptr<Transport::Server>(const std::shared_ptr<Transport>& inTransport)> mStartTransport;
    std::function<std::shared_ptr<noxmarshal::RPCServer>(const std::shared_ptr<Transport::Server>& inServer,
                                                         const std::string& inName)>
        mCreateRPCServer;
    std::function<std::shared_ptr<LinkManagerConnection>(swiftlatch::ServerInformation inServer,
                                                         swiftlatch::ServerAddress inAddress)>
        mConnectToLinkManager;

    /// Ends what the network layer keeps.
    std::function<void()> mShutDownNetwork;

    /// The parts of the program itself.
    static HubParts Real();
};

}  // namespace VantryLocalHub
