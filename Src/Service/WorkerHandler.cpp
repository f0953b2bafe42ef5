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

AsyncHandler OnPool(std::shared_ptr<noxcore::threads::Executor> (*inPool)(), SyncHandler inHandler)
{
    return [inPool, handler = std::move(inHandler)](const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                                    Completion inCompletion) {
        const auto completion = std::make_shared<Completion>(std::move(inCompletion));
        const bool queued = inPool()->Queue([=] { (*completion)(CallGuarded(handler, inRequest, inResponse)); });
        if (!queued) (*completion)(noxnet::kHTTPStatus_ServiceUnavailable);
    };
}

}  // namespace

AsyncHandler OnWorker(SyncHandler inHandler)
{
    return OnPool(noxcore::threads::CPUBoundExecutor, std::move(inHandler));
}

AsyncHandler OnReader(SyncHandler inHandler)
{
    return OnPool(noxcore::threads::IOBoundExecutor, std::move(inHandler));
}

}  // namespace VantryLocalHub
