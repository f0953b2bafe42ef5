#include "Platform/noxcore/ProcessConfiguration.h"

#include <sys/utsname.h>

#include <utility>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::config {

namespace {

using debug::kPlatformCall;
using debug::kPlatformCategory;
using logging::LogDetail;

struct ProcessConfiguration
{
    std::string mCompanyName;
    std::string mApplicationName;
    std::string mClientName;
    std::string mClientVersion;
    std::string mClientInternalVersion;
    std::string mClientPatchNumber;
    std::string mClientBuildNumber;
    std::string mSAPCode;
    std::string mSAPVariant;
    std::vector<std::function<void()>> mModules;
    std::vector<std::function<void()>> mWaiting;
    bool mInitialized = false;
};

ProcessConfiguration& Configuration()
{
    return *HubContext::Current()->GetOrCreateInstance<ProcessConfiguration>();
}

void Set(std::string_view inName, std::string ProcessConfiguration::*outField, std::string_view inValue)
{
    LogDetail(kPlatformCategory, kPlatformCall, {{"name", inName}, {"value", inValue}});
    Configuration().*outField = inValue;
}

}  // namespace

void SetCompanyName(std::string_view inName)
{
    Set("SetCompanyName", &ProcessConfiguration::mCompanyName, inName);
}
void SetApplicationName(std::string_view inName)
{
    Set("SetApplicationName", &ProcessConfiguration::mApplicationName, inName);
}
void SetClientName(std::string_view inName)
{
    Set("SetClientName", &ProcessConfiguration::mClientName, inName);
}
void SetClientVersion(std::string_view inVersion)
{
    Set("SetClientVersion", &ProcessConfiguration::mClientVersion, inVersion);
}
void SetClientInternalVersion(std::string_view inVersion)
{
    Set("SetClientInternalVersion", &ProcessConfiguration::mClientInternalVersion, inVersion);
}
void SetClientPatchNumber(std::string_view inNumber)
{
    Set("SetClientPatchNumber", &ProcessConfiguration::mClientPatchNumber, inNumber);
}
void SetClientBuildNumber(std::string_view inNumber)
{
    Set("SetClientBuildNumber", &ProcessConfiguration::mClientBuildNumber, inNumber);
}

void SetSAPCode(std::string_view inCode, std::string_view inVariant)
{
    LogDetail(kPlatformCategory, kPlatformCall, {{"name", "SetSAPCode"}, {"code", inCode}, {"variant", inVariant}});
    Configuration().mSAPCode = inCode;
    Configuration().mSAPVariant = inVariant;
}

std::string GetCompanyName()
{
    return Configuration().mCompanyName;
}
std::string GetApplicationName()
{
    return Configuration().mApplicationName;
}
std::string GetClientName()
{
    return Configuration().mClientName;
}
std::string GetClientVersion()
{
    return Configuration().mClientVersion;
}
std::string GetClientInternalVersion()
{
    return Configuration().mClientInternalVersion;
}
std::string GetClientPatchNumber()
{
    return Configuration().mClientPatchNumber;
}
std::string GetClientBuildNumber()
{
    return Configuration().mClientBuildNumber;
}
std::string GetSAPCode()
{
    return Configuration().mSAPCode;
}

std::string GetClientPlatform()
{
    struct utsname system = {};
    if (uname(&system) != 0) return "Linux";
    return std::string(system.sysname) + " " + system.machine;
}

void SetConfigurationForModule(std::string_view inModule, std::function<void()> inConfigure)
{
    LogDetail(kPlatformCategory, kPlatformCall, {{"name", "SetConfigurationForModule"}, {"module", inModule}});
    Configuration().mModules.push_back(std::move(inConfigure));
}

void ExecuteOnInitializationCompleted(std::string_view inName, std::function<void()> inFunction)
{
    LogDetail(kPlatformCategory, kPlatformCall, {{"name", "ExecuteOnInitializationCompleted"}, {"key", inName}});
    if (Configuration().mInitialized) {
        inFunction();
    } else {
        Configuration().mWaiting.push_back(std::move(inFunction));
    }
}

void Initialize()
{
    LogDetail(kPlatformCategory, kPlatformCall, {{"name", "Initialize"}});
    if (Configuration().mInitialized) return;
    for (const auto& configure : std::exchange(Configuration().mModules, {}))
        configure();
    Configuration().mInitialized = true;
    for (const auto& function : std::exchange(Configuration().mWaiting, {}))
        function();
}

}  // namespace noxcore::config
