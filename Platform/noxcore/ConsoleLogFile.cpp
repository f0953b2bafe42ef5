#include "Platform/noxcore/ConsoleLogFile.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::console {

namespace {

constexpr std::int64_t kTicksPerDay = 24 * 3600 * kTicksPerSecond;
constexpr std::int64_t kMostDays = 36500;

}  // namespace

ConsoleLogFile::ConsoleLogFile(filesupport::Path inFolder, std::string inFamily, std::string inBaseName)
    : mFolder(std::move(inFolder)), mFamily(std::move(inFamily)), mBaseName(std::move(inBaseName))
{
}

std::shared_ptr<ConsoleLogFile> ConsoleLogFile::GetInstanceP0()
{
    return HubContext::Current()->GetInstance<ConsoleLogFile>();
}

bool ConsoleLogFile::IsOfAnEarlierRun(const std::string& inName) const
{
    // What was rotated away and is that old is of an earlier run even where all runs share a name.
    return inName.starts_with(mFamily) && inName.ends_with(".log") && inName != mBaseName + ".log";
}

std::size_t ConsoleLogFile::DeleteOldLogFiles(std::int64_t inMaxAgeInDays) const
{
    logging::LogDetail(debug::kPlatformCategory, debug::kPlatformCall,
                       {{"name", "DeleteOldLogFiles"}, {"days", inMaxAgeInDays}});
    auto& files = filesupport::Files();
    std::vector<filesupport::DirectoryEntry> entries;
    if (!files.ListDirectory(mFolder, entries)) return 0;
    const std::int64_t days = std::clamp<std::int64_t>(inMaxAgeInDays, 0, kMostDays);
    const std::int64_t oldest = HubContext::Current()->GetClock().NowTicks() - days * kTicksPerDay;
    std::size_t deleted = 0;
    for (const auto& entry : entries) {
        const auto path = filesupport::Join(mFolder, entry.mName);
        std::int64_t modified = 0;
        if (entry.mIsDirectory || !IsOfAnEarlierRun(entry.mName)) continue;
        if (!files.ModifiedTime(path, modified) || modified >= oldest) continue;
        if (files.DeleteFile(path)) {
            ++deleted;
        } else {
            logging::LogWarning(debug::kPlatformCategory, "Cannot delete old log file", {{"path", path}});
        }
    }
    return deleted;
}

}  // namespace noxcore::console
