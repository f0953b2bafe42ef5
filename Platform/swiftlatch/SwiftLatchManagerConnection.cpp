#include "Platform/swiftlatch/SwiftLatchManagerConnection.h"

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

constexpr unsigned kReconnectDelayInMilliseconds = 1000;
/// A manager that dies again and again is left alone.
constexpr int kMaxReconnects = 5;

}  // namespace

std::shared_ptr<SwiftLatchManagerConnection> SwiftLatchManagerConnection::Create(ServerInformation inServer,
                                                                                 ServerAddress inAddress)
{
    auto gremlin = std::make_shared<SwiftLatchManagerConnectionGremlin>(std::move(inServer), std::move(inAddress));
    gremlin->Connect();
    return gremlin;
}

SwiftLatchManagerConnectionGremlin::SwiftLatchManagerConnectionGremlin(ServerInformation inServer,
                                                                       ServerAddress inAddress)
    : mServer(std::move(inServer)), mAddress(std::move(inAddress))
{
}

void SwiftLatchManagerConnectionGremlin::Connect()
{
    std::shared_ptr<RPCClient> client;
    try {
        client = LaunchSwiftlatchManagerRPC();
    } catch (const LinkError&) {
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
        inCall, [](const JSONValue&) {}, std::move(inOnFailure));
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
        if (++mReconnects > kMaxReconnects) return;
    }
    noxcore::threads::IOBoundExecutor()->QueueAfter(kReconnectDelayInMilliseconds, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->Connect();
    });
}

}  // namespace swiftlatch::server
