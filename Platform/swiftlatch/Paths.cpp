#include "Platform/swiftlatch/Paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace swiftlatch {

using noxcore::filesupport::Join;

std::string ManagerSocketPath(const std::string& inSocketFolder)
{
    return Join(inSocketFolder, "linkbroker.sock");
}
std::string ManagerLockPath(const std::string& inSocketFolder)
{
    return Join(inSocketFolder, "linkbroker.lock");
}
std::string ManagerStartPath(const std::string& inSocketFolder)
{
    return Join(inSocketFolder, "linkbroker.start");
}

bool EnsureSocketFolder(const std::string& inSocketFolder)
{
    noxcore::filesupport::Files().EnsureDirectoryExists(
        std::string(noxcore::filesupport::ParentFolder(inSocketFolder)));
    mkdir(inSocketFolder.c_str(), S_IRWXU);  // there already in most runs: what counts is what is found now
    struct stat state = {};
    const bool isThere = lstat(inSocketFolder.c_str(), &state) == 0;
    if (isThere && S_ISDIR(state.st_mode) && state.st_uid == geteuid() && (state.st_mode & (S_IRWXG | S_IRWXO)) == 0) {
        return true;
    }
    noxcore::logging::LogError("swiftlatch", "The socket folder is not this user's alone",
                               {{"folder", inSocketFolder}});
    return false;
}

}  // namespace swiftlatch
