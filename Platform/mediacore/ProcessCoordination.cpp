#include "Platform/mediacore/ProcessCoordination.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace processcoordination {

namespace {

struct Client
{
    std::uint32_t mProcessIdentifier = 0;
};

}  // namespace

void InitializeClient()
{
    const auto identifier = static_cast<std::uint32_t>(getpid());
    noxcore::logging::LogDetail("processcoordination", noxcore::debug::kPlatformCall,
                                {{"name", "InitializeClient"}, {"processIdentifier", identifier}});
    noxcore::HubContext::Current()->GetOrCreateInstance<Client>()->mProcessIdentifier = identifier;
}

std::uint32_t GetClientProcessIdentifier()
{
    return noxcore::HubContext::Current()->GetOrCreateInstance<Client>()->mProcessIdentifier;
}

bool IsIdentifierOfLivingProcess(std::string_view inName)
{
    pid_t identifier = 0;
    const auto [end, error] = std::from_chars(inName.data(), inName.data() + inName.size(), identifier);
    if (error != std::errc() || end != inName.data() + inName.size() || identifier <= 0) return false;
    return kill(identifier, 0) == 0 || errno == EPERM;
}

}  // namespace processcoordination
