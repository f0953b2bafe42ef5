#include "Platform/noxcore/ClassWatcher.h"

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::classref {

std::shared_ptr<ClassWatcher> ClassWatcher::Instance()
{
    return HubContext::Current()->GetOrCreateInstance<ClassWatcher>();
}

std::shared_ptr<std::atomic<std::int64_t>> ClassWatcher::CountOf(std::string_view inClass)
{
    const threads::ScopedLock lock(mMutex);
    auto& count = mCounts[std::string(inClass)];
    if (!count) count = std::make_shared<std::atomic<std::int64_t>>(0);
    return count;
}

std::int64_t ClassWatcher::DetectLeaks()
{
    logging::LogDetail(debug::kPlatformCategory, debug::kPlatformCall, {{"name", "DetectLeaks"}});
    const auto watcher = Instance();
    std::map<std::string, std::int64_t> leaked;
    {
        const threads::ScopedLock lock(watcher->mMutex);
        for (const auto& [name, count] : watcher->mCounts) {
            if (*count != 0) leaked.emplace(name, *count);
        }
    }
    std::int64_t total = 0;
    for (const auto& [name, count] : leaked) {
        logging::LogWarning(debug::kPlatformCategory, "Leaked objects", {{"class", name}, {"count", count}});
        total += count;
    }
    return total;
}

}  // namespace noxcore::classref
