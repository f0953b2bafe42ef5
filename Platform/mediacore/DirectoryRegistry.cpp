#include "Platform/mediacore/DirectoryRegistry.h"

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace TFL {

void DirectoryRegistry::RegisterDirectory(std::string_view inKey, std::string_view inPath)
{
    noxcore::logging::LogDetail("TFL", noxcore::debug::kPlatformCall,
                                {{"name", "RegisterDirectory"}, {"key", inKey}, {"path", inPath}});
    const auto registry = noxcore::HubContext::Current()->GetOrCreateInstance<DirectoryRegistry>();
    const noxcore::threads::ScopedLock lock(registry->mMutex);
    registry->mPaths.insert_or_assign(std::string(inKey), std::string(inPath));
}

std::string DirectoryRegistry::FindDirectory(std::string_view inKey)
{
    const auto registry = noxcore::HubContext::Current()->GetOrCreateInstance<DirectoryRegistry>();
    const noxcore::threads::ScopedLock lock(registry->mMutex);
    const auto found = registry->mPaths.find(inKey);
    return found == registry->mPaths.end() ? std::string() : found->second;
}

}  // namespace TFL
