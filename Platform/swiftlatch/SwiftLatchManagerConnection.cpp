#include "Platform/swiftlatch/SwiftLatchManagerConnection.h"

#include <algorithm>
#include <utility>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxmarshal/BuildCall.h"
#include "Platform/swiftlatch/ManagerLauncher.h"
#include "Platform/swiftlatch/Protocol.h"

namespace swiftlatch::server {

using noxcore::serialization::BuildCall;
using noxcore::threads::ScopedLock;
using noxmarshal::JSONValue;
using noxmarshal::RPCClient;
using noxmarshal::RPCError;

namespace {

constexpr unsigned kLongestReconnectDelayInMilliseconds = 60000;

}  // namespace

std::shared_ptr<SwiftLatchManagerConnection> SwiftLatchManagerConnection::Create(ServerInformation inServer,
                                                                                 ServerAddress inAddress)
{
    auto gremlin = std::make_shared<SwiftLatchManagerConnectionGremlin>(std::move(inServer), std::move(inAddress));
    gremlin->Connect(false);
    return gremlin;
}

SwiftLatchManagerConnectionGremlin::SwiftLatchManagerConnectionGremlin(ServerInformation inServer,
                                                                       ServerAddress inAddress)
    : mServer(std::move(inServer)), mAddress(std::move(inAddress))
{
}

void SwiftLatchManagerConnectionGremlin::Connect(bool inAgain)
{
    std::shared_ptr<RPCClient> client;
    try {
        client = LaunchSwiftlatchManagerRPC();
    } catch (const LinkError&) {
        if (inAgain) ConnectLater();
        return;
    }
    OpenAssetList assets;
    {
        const ScopedLock lock(mMutex);
        mClient = client;
        assets = mAssets;
    }
    RegisterServerWithVersionGeneric(assets);
    client->SetOnLost([weak = weak_from_this()] { WeakOnManagerLost(weak); });
}

void SwiftLatchManagerConnectionGremlin::UpdateOpenGenericAssets(const OpenAssetList& inAssets)
{
    {
        const ScopedLock lock(mMutex);
        mAssets = inAssets;
    }
    RegisterServerWithVersionGeneric(inAssets);
}

bool SwiftLatchManagerConnectionGremlin::IsConnected() const
{
    const auto client = Client();
    return client != nullptr && client->IsOpen();
}

std::shared_ptr<RPCClient> SwiftLatchManagerConnectionGremlin::Client() const
{
    const ScopedLock lock(mMutex);
    return mClient;
}

void SwiftLatchManagerConnectionGremlin::Send(const std::string& inCall, RPCClient::OnFailure inOnFailure)
{
    const auto client = Client();
    if (client == nullptr) return;
    client->SendRequest(
        inCall, [weak = weak_from_this()](const JSONValue&) { WeakOnRegistered(weak); }, std::move(inOnFailure));
}

void SwiftLatchManagerConnectionGremlin::RegisterServerWithVersionGeneric(const OpenAssetList& inAssets)
{
    Send(BuildCall(kMessage_RegisterServerWithVersionGeneric, mServer, mAddress, inAssets),
         [weak = weak_from_this(), inAssets](const RPCError&) {
             WeakOnServerAndAssetsRegistrationFailure(weak, inAssets);
         });
}

void SwiftLatchManagerConnectionGremlin::WeakOnServerAndAssetsRegistrationFailure(const Weak& inSelf,
                                                                                  const OpenAssetList& inAssets)
{
    if (const auto self = inSelf.lock()) self->OnServerAndAssetsRegistrationFailure(inAssets);
}

void SwiftLatchManagerConnectionGremlin::OnServerAndAssetsRegistrationFailure(const OpenAssetList& inAssets)
{
    Send(BuildCall(kMessage_RegisterServerWithVersion, mServer, mAddress, ToProjectList(inAssets)),
         [weak = weak_from_this(), inAssets](const RPCError&) {
             WeakOnServerRegistrationWithVersionFailure(weak, inAssets);
         });
}

void SwiftLatchManagerConnectionGremlin::WeakOnServerRegistrationWithVersionFailure(const Weak& inSelf,
                                                                                    const OpenAssetList& inAssets)
{
    if (const auto self = inSelf.lock()) self->OnServerRegistrationWithVersionFailure(inAssets);
}

void SwiftLatchManagerConnectionGremlin::OnServerRegistrationWithVersionFailure(const OpenAssetList& inAssets)
{
    Send(BuildCall(kMessage_RegisterServer, mServer.mName, mAddress, ToProjectList(inAssets), mServer.mHeadless,
                   mServer.mHeadlessOnly, mServer.mSelflinkOnly),
         [](const RPCError& inError) {
             noxcore::logging::LogWarning("swiftlatch", "The link manager did not register this server",
                                          {{"code", inError.mCode}, {"reason", inError.mMessage}});
         });
}

void SwiftLatchManagerConnectionGremlin::WeakOnManagerLost(const Weak& inSelf)
{
    if (const auto self = inSelf.lock()) self->OnManagerLost();
}

void SwiftLatchManagerConnectionGremlin::OnManagerLost()
{
    std::shared_ptr<RPCClient> gone;  // ends after the lock
    {
        const ScopedLock lock(mMutex);
        gone.swap(mClient);
    }
    ConnectLater();
}

void SwiftLatchManagerConnectionGremlin::ConnectLater()
{
    unsigned delay = 0;
    {
        const ScopedLock lock(mMutex);
        delay = mReconnectDelay;
        mReconnectDelay = std::min(2 * mReconnectDelay, kLongestReconnectDelayInMilliseconds);
    }
    noxcore::threads::IOBoundExecutor()->QueueAfter(delay, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->Connect(true);
    });
}

void SwiftLatchManagerConnectionGremlin::WeakOnRegistered(const Weak& inSelf)
{
    if (const auto self = inSelf.lock()) self->OnRegistered();
}

void SwiftLatchManagerConnectionGremlin::OnRegistered()
{
    {
        const ScopedLock lock(mMutex);
        mReconnectDelay = kFirstReconnectDelayInMilliseconds;
    }
    noxcore::logging::LogInformation("swiftlatch", "Registered with the link manager", {{"name", mServer.mName}});
}

}  // namespace swiftlatch::server
