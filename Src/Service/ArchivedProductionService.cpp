#include "Inc/Service/ArchivedProductionService.h"

#include "Inc/Service/ServiceUtils.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

namespace {

using Operation = void (SyncBox::*)(const ImmutableString&, SyncBox::StatusCompletion);

template <Operation kOperation>
void Apply(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    ImmutableString production;
    if (!ExtractSubExpression(*inRequest, 1, production)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    ((*syncBox).*kOperation)(production, std::move(inCompletion));
}

}  // namespace

ArchivedProductionService::ArchivedProductionService()
{
    Async("POST", "restore", Apply<&SyncBox::UnarchiveProduction>);
    Async("DELETE", "delete", Apply<&SyncBox::DeleteRemoteProduction>);
}

}  // namespace VantryLocalHub
