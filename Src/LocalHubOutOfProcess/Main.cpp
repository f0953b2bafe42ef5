#include <string>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/ProcessParameters.h"
#include "Platform/noxcore/SignalWatcher.h"
#include "Platform/noxcore/TraceHandler.h"
#include "Src/LocalHubOutOfProcess/Entry.h"
#include "Src/LocalHubOutOfProcess/RPCSettings.h"

namespace {

void EndInOrder(int inSignal)
{
    noxcore::logging::LogInformation("VantryLocalHub", "Asked to end by a signal", {{"signal", inSignal}});
    noxcore::threads::GetRegisteredMainThread()->Quit();
}

}  // namespace

int main(int inCount, char** inArguments)
{
    const auto context = noxcore::HubContext::Current();
    context->SetLog(noxcore::debug::MakeEarlySink());
    int result = 0;
    {
        const noxcore::SignalWatcher signals(EndInOrder);
        noxcore::config::RaiseDescriptorLimit();
        VantryLocalHub::PublishRPCSettings();
        result = VantryLocalHub::RunLocalHub(std::vector<std::string>(inArguments, inArguments + inCount),
                                             VantryLocalHub::HubParts::Real());
    }
    // Writes what still waits for the log file.
    context->SetLog(nullptr);
    return result;
}
