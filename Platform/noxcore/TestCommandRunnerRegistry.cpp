#include "Platform/noxcore/TestCommandRunnerRegistry.h"

#include <utility>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::commands {

void TestCommandRunnerRegistry::RegisterTestCommandRunner(std::string_view inName, Runner inRunner)
{
    const auto registry = HubContext::Current()->GetOrCreateInstance<TestCommandRunnerRegistry>();
    const threads::ScopedLock lock(registry->mMutex);
    registry->mRunners.insert_or_assign(std::string(inName), std::move(inRunner));
}

std::string TestCommandRunnerRegistry::ExecuteTestCommandRunner(const std::vector<std::string>& inArguments,
                                                                std::string_view inName)
{
    logging::LogDetail(debug::kPlatformCategory, debug::kPlatformCall,
                       {{"name", "ExecuteTestCommandRunner"}, {"runner", inName}, {"arguments", inArguments.size()}});
    const auto registry = HubContext::Current()->GetOrCreateInstance<TestCommandRunnerRegistry>();
    Runner runner;
    {
        const threads::ScopedLock lock(registry->mMutex);
        if (const auto found = registry->mRunners.find(inName); found != registry->mRunners.end()) {
            runner = found->second;
        }
    }
    if (!runner) return "There is no test command runner of the name \"" + std::string(inName) + "\"";
    return runner(inArguments);
}

}  // namespace noxcore::commands
