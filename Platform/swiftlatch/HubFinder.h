#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Platform/noxmarshal/RPCClient.h"
#include "Platform/swiftlatch/Protocol.h"
#include "Platform/swiftlatch/Records.h"

namespace swiftlatch {

/// An open session with a hub. The hub stays for as long as one is held.
class HubConnection
{
public:
    HubConnection(std::shared_ptr<noxmarshal::RPCClient> inClient, ServerAddress inAddress, std::uint16_t inHTTPPort)
        : mClient(std::move(inClient)), mAddress(std::move(inAddress)), mHTTPPort(inHTTPPort)
    {
    }

    /// Where the hub serves HTTP.
    [[nodiscard]] const std::string& Address() const { return mAddress.mAddress; }
    [[nodiscard]] std::uint16_t HTTPPort() const { return mHTTPPort; }
    [[nodiscard]] bool IsOpen() const { return mClient->IsOpen(); }
    /// Sets what is called once when the hub has gone.
    void SetOnLost(std::function<void()> inOnLost) { mClient->SetOnLost(std::move(inOnLost)); }
    void Close() { mClient->Close(); }

private:
    const std::shared_ptr<noxmarshal::RPCClient> mClient;
    const ServerAddress mAddress;
    const std::uint16_t mHTTPPort;
};

/// Opens a session with the user's hub, which is started where none runs, and tells it who asks. Null, with the
/// reason, when there is none to be had.
///
/// Uses the Paths of the current context. Waits, at most about a minute: not on the transport's thread.
std::shared_ptr<HubConnection> FindHub(const ClientInformation& inClient, noxmarshal::RPCError& outError,
                                       const std::string& inServerName = std::string(kLocalHubServerName));

/// The same for a hub whose address is known.
std::shared_ptr<HubConnection> ConnectToHub(const ServerAddress& inAddress, const ClientInformation& inClient,
                                            noxmarshal::RPCError& outError);

}  // namespace swiftlatch
