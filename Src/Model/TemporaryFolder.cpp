#include "Inc/Model/TemporaryFolder.h"

#include <unistd.h>

#include <exception>

#include "Client/VYClient/LocalHub.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox {

using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

TemporaryFolder::TemporaryFolder(std::string_view inUser) : mUser(inUser)
{
    const std::string ofProcess = Join(VYCL::LocalHub::GetTempFolder(), std::to_string(getpid()));
    if (!VYCL::LocalHub::EnsureTempFolder() || !VYCL::LocalHub::EnsurePrivateFolder(ofProcess)) return;
    mPath = Join(ofProcess, noxcore::utility::Guid::CreateUnique().Text());
}

TemporaryFolder::~TemporaryFolder()
{
    if (mPath.empty()) return;
    try {
        if (noxcore::filesupport::Dir::Delete(mPath)) return;
        noxcore::logging::LogWarning("GitBox", "Cannot delete a temporary folder", {{"path", mPath}});
    } catch (const std::exception& exception) {
        noxcore::logging::LogError("GitBox", mUser + ": caught exception while deleting",
                                   {{"path", mPath}, {"exception", exception.what()}});
    }
}

}  // namespace VantryLocalHub::GitBox
