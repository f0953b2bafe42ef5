#include "Platform/noxcore/ErrorManager.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::config {

namespace {

constexpr std::size_t kReserveBytes = 1024 * 1024;
constexpr std::uint32_t kOutOfMemory = 0xA00F0001;

// The language knows one handler a process, so these cannot be a context's.
std::mutex sInstallMutex;
unsigned sInstalled = 0;
std::new_handler sPrevious = nullptr;
std::atomic<void*> sReserve{nullptr};

void HandleOutOfMemory()
{
    void* const reserve = sReserve.exchange(nullptr);
    if (reserve == nullptr) throw std::bad_alloc();
    std::free(reserve);
    if (const auto manager = GetErrorManager()) manager->ReportError(kOutOfMemory, "Out of memory");
}

struct CurrentErrorManager
{
    std::shared_ptr<ErrorManager> mManager;
};

}  // namespace

void SetErrorManager(std::shared_ptr<ErrorManager> inManager)
{
    logging::LogDetail(debug::kPlatformCategory, debug::kPlatformCall, {{"name", "SetErrorManager"}});
    HubContext::Current()->GetOrCreateInstance<CurrentErrorManager>()->mManager = std::move(inManager);
}

std::shared_ptr<ErrorManager> GetErrorManager()
{
    return HubContext::Current()->GetOrCreateInstance<CurrentErrorManager>()->mManager;
}

ErrorManager::NewHandlerInitializer::NewHandlerInitializer()
{
    logging::LogDetail(debug::kPlatformCategory, debug::kPlatformCall, {{"name", "NewHandlerInitializer"}});
    const std::lock_guard lock(sInstallMutex);
    if (++sInstalled > 1) return;
    sReserve = std::malloc(kReserveBytes);
    sPrevious = std::set_new_handler(HandleOutOfMemory);
}

ErrorManager::NewHandlerInitializer::~NewHandlerInitializer()
{
    const std::lock_guard lock(sInstallMutex);
    if (--sInstalled > 0) return;
    std::set_new_handler(std::exchange(sPrevious, nullptr));
    std::free(sReserve.exchange(nullptr));
}

}  // namespace noxcore::config
