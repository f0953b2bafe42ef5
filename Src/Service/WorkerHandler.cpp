#include "Inc/Service/WorkerHandler.h"

#include <memory>
#include <utility>

#include "Platform/noxcore/Executor.h"

namespace VantryLocalHub {

AsyncHandler OnWorker(SyncHandler inHandler)
{
    return [handler = std::move(inHandler)](const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                            Completion inCompletion) {
        const auto completion = std::make_shared<Completion>(std::move(inCompletion));
        const bool queued =
            noxcore::threads::CPUBoundExecutor()->Queue([=] { (*completion)(handler(inRequest, inResponse)); });
        if (!queued) (*completion)(noxnet::kHTTPStatus_ServiceUnavailable);
    };
}

}  // namespace VantryLocalHub
