#include "Src/LocalHubOutOfProcess/RPCSettings.h"

#include <arpa/inet.h>

#include <filesystem>
#include <memory>
#include <system_error>

#include "Client/VYClient/LocalHub.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxnet/Gate.h"
#include "Platform/noxtransport/SocketTransport.h"
#include "Platform/swiftlatch/Paths.h"

namespace VantryLocalHub {

namespace {

bool ReadAddress(const std::string& inText, std::array<std::uint8_t, 4>& outAddress)
{
    return inet_pton(AF_INET, inText.c_str(), outAddress.data()) == 1;
}

bool Admit(noxnet::Gate& inGate, const noxtransport::PeerPair& inPair)
{
    noxnet::SocketPair pair;
    pair.mOwnPort = inPair.mLocalPort;
    pair.mPeerPort = inPair.mPeerPort;
    return ReadAddress(inPair.mLocalAddress, pair.mOwnAddress) && ReadAddress(inPair.mPeerAddress, pair.mPeerAddress) &&
           inGate.AdmitPeer(pair);
}

/// Empty when it cannot be told; no link manager is started then.
std::string ProgramFolder()
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

}  // namespace

void PublishRPCSettings()
{
    const auto context = noxcore::HubContext::Current();
    const auto gate = std::make_shared<noxnet::Gate>(noxnet::PeerUserLookup::Current());
    auto settings = std::make_shared<noxtransport::Settings>();
    settings->mPeerCheck = [gate](const noxtransport::PeerPair& inPair) { return Admit(*gate, inPair); };
    context->SetInstance(std::move(settings));
    context->SetInstance(
        std::make_shared<swiftlatch::Paths>(swiftlatch::Paths{.mSocketFolder = VYCL::LocalHub::GetSocketFolder(),
                                                              .mProgramFolder = ProgramFolder(),
                                                              .mLogFolder = VYCL::LocalHub::GetLogFolder()}));
}

}  // namespace VantryLocalHub
