#include "Platform/mediacore/Initializer.h"

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace MX {

namespace {

struct MediaCore
{
    unsigned mInitializers = 0;
};

MediaCore& Core()
{
    return *noxcore::HubContext::Current()->GetOrCreateInstance<MediaCore>();
}

}  // namespace

Initializer::Initializer()
{
    noxcore::logging::LogDetail("MX", noxcore::debug::kPlatformCall, {{"name", "MX::Initializer"}});
    ++Core().mInitializers;
}

Initializer::~Initializer()
{
    --Core().mInitializers;
}

bool Initializer::IsInitialized()
{
    return Core().mInitializers > 0;
}

}  // namespace MX
