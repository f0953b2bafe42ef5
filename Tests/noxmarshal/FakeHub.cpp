// A program in the place of the hub: registers with the broker, answers the two questions of a client, and ends when
// its last client has gone. FAKE_HUB_FOLDER names the folder that holds the socket folder.

#include <atomic>
#include <cstdlib>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxmarshal/MessageRegistrar.h"
#include "Platform/noxmarshal/RPCServer.h"
#include "Platform/swiftlatch/Paths.h"
#include "Platform/swiftlatch/Protocol.h"
#include "Platform/swiftlatch/SharedTransport.h"
#include "Platform/swiftlatch/SwiftLatchManagerConnection.h"

int main()
{
    using noxmarshal::Arguments;
    using noxmarshal::MessageRegistrar;
    using ResponderPtr = std::shared_ptr<noxmarshal::Responder>;

    const char* folder = std::getenv("FAKE_HUB_FOLDER");  // NOLINT(concurrency-mt-unsafe): one thread so far
    if (folder == nullptr) return 1;
    const auto context = noxcore::HubContext::Current();
    auto paths = std::make_shared<swiftlatch::Paths>();
    paths->mSocketFolder = std::string(folder) + "/sockets";
    paths->mProgramFolder = folder;
    context->SetInstance(paths);
    auto settings = std::make_shared<noxtransport::Settings>();
    settings->mPeerCheck = [](const noxtransport::PeerPair&) { return true; };
    context->SetInstance(settings);

    noxcore::threads::RegisterCurrentThreadAsMainThread();
    MessageRegistrar::Register(swiftlatch::kMessage_GetServerInformation,
                               [](const Arguments&, const ResponderPtr& inResponder) {
                                   inResponder->SendGeneralResult(swiftlatch::PortInformation{8123});
                               });
    MessageRegistrar::Register(swiftlatch::kMessage_GiveClientInformation,
                               [](const Arguments&, const ResponderPtr& inResponder) { inResponder->SendSimpleOK(); });
    const auto transport = swiftlatch::GetSharedTransport();
    const auto server = transport->ServerStart(0, true);
    const noxmarshal::RPCServer rpcServer(server, "VantryOutOfProcess");
    std::atomic<int> count{0};
    server->SetSessionCallbacks(
        [&](const std::string&) {
            ++count;
            return noxtransport::TransportError::None;
        },
        [&](const std::string&) {
            if (--count == 0) noxcore::threads::GetRegisteredMainThread()->Quit();
        });
    auto connection = swiftlatch::server::SwiftLatchManagerConnection::Create(
        {std::string(swiftlatch::kLocalHubServerName), "fake", "1", "1", true, true, false},
        {server->GetAddress(), server->GetPort()});
    noxcore::threads::RunPlatformEventLoop();
    connection.reset();
    return 0;
}
