#include "Tools/hubctl/HubLink.h"

#include <filesystem>

#include "Client/VYClient/LocalHub.h"
#include "Client/Wire/URLTemplates.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/ProgramIdentity.h"
#include "Platform/swiftlatch/Paths.h"

namespace hubctl {

namespace {

constexpr const char* kLoopback = "127.0.0.1";

/// Where the broker lies, beside this program. Empty when it cannot be told.
std::string OwnFolder()
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

/// A hub at a port that was given may not be there.
bool AnswersHTTP(HubAPI& inAPI, std::string& outError)
{
    std::string body;
    Failure failure;
    if (inAPI.Get(std::string(VYCL::URLTemplate::kDiscovery), body, failure) || failure.GotAnswer()) return true;
    outError = "no hub can be reached: " + failure.mText;
    return false;
}

bool OpenSession(HubLink& outLink, std::string& outError)
{
    noxcore::HubContext::Current()->SetInstance(
        std::make_shared<swiftlatch::Paths>(swiftlatch::Paths{.mSocketFolder = VYCL::LocalHub::GetSocketFolder(),
                                                              .mProgramFolder = OwnFolder(),
                                                              .mLogFolder = VYCL::LocalHub::GetLogFolder()}));
    const auto identity = noxcore::ProgramIdentity::Current();
    noxmarshal::RPCError error;
    outLink.mSession = swiftlatch::FindHub({"hubctl", identity->mVersion, identity->mBuild, {true}}, error);
    if (outLink.mSession == nullptr) {
        outError = "no hub can be reached: " + error.mMessage + " (logs: " + VYCL::LocalHub::GetLogFolder() + ")";
        return false;
    }
    outLink.mPort = outLink.mSession->HTTPPort();
    return true;
}

}  // namespace

bool OpenHub(std::uint16_t inPort, bool inWaits, HubLink& outLink, std::string& outError)
{
    outLink.mPort = inPort;
    if (inPort == 0 && !OpenSession(outLink, outError)) return false;
    noxnet::http::client::Settings settings;
    if (inWaits) settings.mStallTimeoutInSeconds = 0;
    auto client = noxnet::http::client::Client::Create(kLoopback, outLink.mPort, settings);
    if (client == nullptr) {
        outError = "the HTTP library cannot be used";
        return false;
    }
    outLink.mAPI = std::make_unique<HubAPI>(std::move(client));
    return inPort == 0 || AnswersHTTP(*outLink.mAPI, outError);
}

}  // namespace hubctl
