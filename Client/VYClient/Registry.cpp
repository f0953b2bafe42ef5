#include "Client/VYClient/Registry.h"

#include "Client/VYClient/LocalHub.h"
#include "Platform/noxcore/Logging.h"

namespace VYCL::Registry {

const std::string& GetVYRegistryKeyVersionString()
{
    static const std::string kVersion = "25.3";
    return kVersion;
}

bool GetLastLoginData(VYLoginData& outData)
{
    auto& files = noxcore::filesupport::Files();
    const auto path = noxcore::filesupport::Join(LocalHub::GetSettingsFolder(), "lastlogin.json");
    std::string text;
    if (!files.FileExists(path)) {
        return false;
    }
    VYLoginData data;
    if (!files.ReadFile(path, text) || !VantryLocalHub::dto::FromJSON(text, data)) {
        noxcore::logging::LogWarning("VantryLocalHub", "Cannot read the last login", {{"path", path}});
        return false;
    }
    outData = std::move(data);
    return true;
}

}  // namespace VYCL::Registry
