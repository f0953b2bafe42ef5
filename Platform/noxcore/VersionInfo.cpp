#include "Platform/noxcore/VersionInfo.h"

#include "Platform/noxcore/ProcessNotification.h"

namespace noxcore::versioninfo {

using Registry = config::ProcessBeginEndNotificationRegistry;

std::string GetAppVersionString()
{
    return Registry::GetText("kAppMajorVersion") + "." + Registry::GetText("kAppMinorVersion") + "." +
           Registry::GetText("kAppPatchVersion");
}

std::string GetAppPrefsVersionString()
{
    return Registry::GetText("kAppMajorVersion") + ".0";
}

}  // namespace noxcore::versioninfo
