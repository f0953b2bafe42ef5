#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Platform/swiftlatch/HubFinder.h"
#include "Tools/hubctl/HubAPI.h"

namespace hubctl {

/// A hub to talk to, with the session that keeps it running.
struct HubLink
{
    std::shared_ptr<swiftlatch::HubConnection> mSession;  ///< null where the port was given
    std::uint16_t mPort = 0;
    std::unique_ptr<HubAPI> mAPI;
};

/// Finds the user's hub through the link broker, starting what does not run; or takes the hub at a port (not 0), of
/// which no session is held. A link that waits has all the time for an answer. False with the reason.
bool OpenHub(std::uint16_t inPort, bool inWaits, HubLink& outLink, std::string& outError);

}  // namespace hubctl
