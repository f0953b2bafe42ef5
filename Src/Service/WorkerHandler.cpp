#include "Inc/Service/WorkerHandler.h"

#include <exception>
#include <memory>
#include <utility>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace {

int CallGuarded(const SyncHandler& inHandler, const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    try {
        return inHandler(inRequest, inResponse);
    } catch (const std::exception& exception) {
        noxcore::logging::LogError("VantryAPIService", "A handler threw an exception",
                                   {{"url", inRequest->URL()}, {"exception", exception.what()}});
    }
    return noxnet::kHTTPStatus_InternalServerError;
}

}  // namespace

AsyncHandler OnWorker(SyncHandler inHandler)
{
    return [handler = std::move(inHandler)](const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                            Completion inCompletion) {
        const auto completion = std::make_shared<Completion>(std::move(inCompletion));
        const bool queued = noxcore::threads::CPUBoundExecutor()->Queue(
            [=] { (*completion)(CallGuarded(handler, inRequest, inResponse)); });
        if (!queued) (*completion)(noxnet::kHTTPStatus_ServiceUnavailable);
    };
}

}  // namespace VantryLocalHub
