#include "Src/LocalHubOutOfProcess/StaleFolders.h"

#include <vector>

#include "Client/VYClient/LocalHub.h"
#include "Platform/mediacore/ProcessCoordination.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

using namespace noxcore;

namespace {

constexpr std::string_view kCategory = "VantryLocalHub";

void DeleteStaleFolder(const std::string& inPath)
{
    logging::LogInformation(kCategory, "Deleting old temp repositories for PID", {{"path", inPath}});
    if (!filesupport::Dir::Delete(inPath)) {
        logging::LogWarning(kCategory, "Cannot delete old temp repositories", {{"path", inPath}});
    }
}

}  // namespace

void DeleteOldTempRepositories(const std::string& inTempFolder, std::string_view inProcessIdentifier)
{
    std::vector<filesupport::DirectoryEntry> entries;
    if (!filesupport::Files().ListDirectory(inTempFolder, entries)) return;
    for (const auto& entry : entries) {
        if (!entry.mIsDirectory || entry.mName == inProcessIdentifier) continue;
        if (processcoordination::IsIdentifierOfLivingProcess(entry.mName)) continue;
        threads::PreTerminationExecutor()->Queue(
            [path = filesupport::Join(inTempFolder, entry.mName)] { DeleteStaleFolder(path); });
    }
}

bool EnsurePrivateTempFolder(const std::string& inTempFolder)
{
    const std::string program(filesupport::ParentFolder(inTempFolder));
    const std::string company(filesupport::ParentFolder(program));
    return VYCL::LocalHub::EnsurePrivateFolder(company) && VYCL::LocalHub::EnsurePrivateFolder(program) &&
           VYCL::LocalHub::EnsurePrivateFolder(inTempFolder);
}

}  // namespace VantryLocalHub
