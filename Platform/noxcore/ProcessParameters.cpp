#include "Platform/noxcore/ProcessParameters.h"

#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace {

using noxcore::debug::kPlatformCall;
using noxcore::debug::kPlatformCategory;
using noxcore::logging::LogDetail;

struct ProcessParameters
{
    std::uint32_t mShutdownLevel = 0;
    std::uint32_t mShutdownFlags = 0;
    std::uint32_t mErrorMode = 0;
};

ProcessParameters& Parameters()
{
    return *noxcore::HubContext::Current()->GetOrCreateInstance<ProcessParameters>();
}

/// A handler that does nothing, unlike "ignore", is not inherited by programs that this process starts.
void IgnoreSignal(int) {}

void TurnClosedPipesIntoFailedWrites()
{
    struct sigaction action = {};
    action.sa_handler = IgnoreSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
}

void LeaveNoCoreFiles()
{
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_CORE, &limit) != 0) return;
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_CORE, &limit);
}

}  // namespace

bool SetProcessShutdownParameters(std::uint32_t inLevel, std::uint32_t inFlags)
{
    LogDetail(kPlatformCategory, kPlatformCall,
              {{"name", "SetProcessShutdownParameters"}, {"level", inLevel}, {"flags", inFlags}});
    Parameters().mShutdownLevel = inLevel;
    Parameters().mShutdownFlags = inFlags;
    return true;
}

std::uint32_t SetErrorMode(std::uint32_t inMode)
{
    LogDetail(kPlatformCategory, kPlatformCall, {{"name", "SetErrorMode"}, {"mode", inMode}});
    const std::uint32_t previous = Parameters().mErrorMode;
    Parameters().mErrorMode = inMode;
    if ((inMode & kErrorMode_FailCriticalErrors) != 0) TurnClosedPipesIntoFailedWrites();
    if ((inMode & kErrorMode_NoFaultDialog) != 0) LeaveNoCoreFiles();
    return previous;
}

namespace noxcore::config {

void LimitedDLLHijackFix()
{
    LogDetail(kPlatformCategory, kPlatformCall, {{"name", "LimitedDLLHijackFix"}});
    for (const char* variable : {"LD_LIBRARY_PATH", "LD_PRELOAD", "LD_AUDIT"}) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads the environment yet
        unsetenv(variable);
    }
}

bool RaiseDescriptorLimit()
{
    struct rlimit limit = {};
    bool raised = getrlimit(RLIMIT_NOFILE, &limit) == 0;
    if (raised && limit.rlim_cur != limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        raised = setrlimit(RLIMIT_NOFILE, &limit) == 0;
    }
    if (raised) {
        LogDetail(kPlatformCategory, kPlatformCall,
                  {{"name", "RaiseDescriptorLimit"}, {"descriptors", std::uint64_t{limit.rlim_cur}}});
    } else {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): a text for a record
        logging::LogWarning(kPlatformCategory, "Cannot raise the descriptor limit", {{"error", std::strerror(errno)}});
    }
    return raised;
}

}  // namespace noxcore::config
