#include "Platform/mediacore/QRM.h"

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

void QRM_Initialize(int inInterfaceVersion, std::string_view inApplication, std::string_view inApplicationVersion,
                    std::string_view inPreferencesVersion, int inFlags)
{
    noxcore::logging::LogDetail("QRM", noxcore::debug::kPlatformCall,
                                {{"name", "QRM_Initialize"},
                                 {"interfaceVersion", inInterfaceVersion},
                                 {"application", inApplication},
                                 {"applicationVersion", inApplicationVersion},
                                 {"preferencesVersion", inPreferencesVersion},
                                 {"flags", inFlags}});
    *noxcore::HubContext::Current()->GetOrCreateInstance<QRMConfiguration>() = {
        inInterfaceVersion, std::string(inApplication), std::string(inApplicationVersion),
        std::string(inPreferencesVersion), inFlags};
}

QRMConfiguration QRM_GetConfiguration()
{
    return *noxcore::HubContext::Current()->GetOrCreateInstance<QRMConfiguration>();
}
