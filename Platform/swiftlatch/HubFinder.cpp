#include "Platform/swiftlatch/HubFinder.h"

#include "Platform/noxmarshal/BuildCall.h"
#include "Platform/swiftlatch/ManagerLauncher.h"
#include "Platform/swiftlatch/SharedTransport.h"

namespace swiftlatch {

using noxcore::serialization::BuildCall;
using noxmarshal::RPCClient;
using noxmarshal::RPCError;

namespace {

constexpr unsigned kHubLimitInMilliseconds = 10000;
constexpr unsigned kFindLimitInMilliseconds = 30000;  ///< longer than the manager waits for a hub to start
/// A hub that was found may end before it is reached.
constexpr int kAttempts = 3;

bool FindServer(const std::string& inServerName, ServerAddress& outAddress, RPCError& outError)
{
    try {
        const auto manager = LaunchSwiftlatchManagerRPC();
        return manager->Ask(BuildCall(kMessage_FindServer, inServerName), kFindLimitInMilliseconds, outAddress,
                            outError);
    } catch (const LinkError& error) {
        outError = {noxmarshal::kRPCError_ConnectionLost, error.what()};
        return false;
    }
}

}  // namespace

std::shared_ptr<HubConnection> ConnectToHub(const ServerAddress& inAddress, const ClientInformation& inClient,
                                            RPCError& outError)
{
    outError = {noxmarshal::kRPCError_ConnectionLost, "The hub does not answer"};
    const auto transport = GetSharedTransport();
    const auto client = transport ? RPCClient::Connect(transport, inAddress.mAddress, inAddress.mPort) : nullptr;
    if (client == nullptr) return nullptr;
    PortInformation port;
    if (!client->Ask(BuildCall(kMessage_GetServerInformation), kHubLimitInMilliseconds, port, outError)) return nullptr;
    if (!client->Ask(BuildCall(kMessage_GiveClientInformation, inClient), kHubLimitInMilliseconds, outError)) {
        return nullptr;
    }
    return std::make_shared<HubConnection>(client, inAddress, port.mPort);
}

std::shared_ptr<HubConnection> FindHub(const ClientInformation& inClient, RPCError& outError,
                                       const std::string& inServerName)
{
    const auto transport = GetSharedTransport();  // one for all that follows
    for (int i = 0; i < kAttempts; ++i) {
        ServerAddress address;
        if (!FindServer(inServerName, address, outError)) return nullptr;
        if (auto hub = ConnectToHub(address, inClient, outError)) return hub;
    }
    return nullptr;
}

}  // namespace swiftlatch
