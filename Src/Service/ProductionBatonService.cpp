#include "Inc/Service/ProductionBatonService.h"

#include "Client/Wire/Collaborators.h"
#include "Client/Wire/FormKeys.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/Logging.h"
#include "Src/Service/ProductionWatch.h"

namespace VantryLocalHub {

namespace {

int CreatePayload(const noxnet::http::server::Request& inRequest, std::string& outPayload)
{
    return CreateProductionPayload(inRequest, &SyncBox::GetProductionBatons, VYCL::URLTemplate::kBatons, outPayload);
}

using BatonOperation = void (SyncBox::*)(const ImmutableString&, const ImmutableString&, SyncBox::StatusCompletion);

BatonOperation OperationOf(std::string_view inAction)
{
    if (inAction == VYCL::FormKeys::kBatonActionAcquire) return &SyncBox::AcquireProductionBaton;
    if (inAction == VYCL::FormKeys::kBatonActionRelease) return &SyncBox::ReleaseProductionBaton;
    return nullptr;
}

void AcquireOrRelease(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    ImmutableString production;
    FormReader form;
    if (!ExtractSubExpression(*inRequest, 1, production) || !form.Read(*inRequest))
        return inCompletion(noxnet::kHTTPStatus_BadRequest);
    const BatonOperation operation = OperationOf(form.TextOrEmpty(VYCL::FormKeys::kBatonAction));
    const ImmutableString baton = form.TextOrEmpty(VYCL::FormKeys::kBatonName);
    if (operation == nullptr || baton.empty()) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    const auto finished = [inRequest, completion = std::move(inCompletion)](int inStatus) {
        if (!noxnet::IsSuccessfulHTTPStatus(inStatus))
            noxcore::logging::LogWarning(
                kServiceLogCategory, "ProductionBatonService: Cannot start async request to acquire or release baton",
                {{"url", inRequest->URL()}, {"status", inStatus}});
        completion(inStatus);
    };
    ((*syncBox).*operation)(production, baton, finished);
}

}  // namespace

ProductionBatonService::ProductionBatonService()
{
    Async("GET", {}, [this](const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion) {
        Answer(FindProductionKey(*inRequest), CreatePayload, inRequest, inResponse, std::move(inCompletion));
    });
    Async("POST", {}, AcquireOrRelease);
    WakeOn<SyncBox::ProductionBatonsChangedMessage>(
        SyncBox::Station(),
        [](const SyncBox::ProductionBatonsChangedMessage& inMessage) { return inMessage.mProductionID; });
}

}  // namespace VantryLocalHub
