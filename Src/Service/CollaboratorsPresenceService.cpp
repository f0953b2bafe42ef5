#include "Inc/Service/CollaboratorsPresenceService.h"

#include "Client/Wire/Collaborators.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/ServiceUtils.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

namespace {

int CreatePayload(const noxnet::http::server::Request& inRequest, std::string& outPayload)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString production;
    if (!ExtractSubExpression(inRequest, 1, production)) return noxnet::kHTTPStatus_BadRequest;
    dto::PresenceResource resource;
    const int status = syncBox->GetCollaboratorsPresence(production, resource);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LinkMaker maker(inRequest);
    maker.Add(resource.mLinks, VYCL::LinkRelation::Self(), VYCL::URLTemplate::kPresence, production);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    outPayload = dto::ToJSON(resource);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace

CollaboratorsPresenceService::CollaboratorsPresenceService()
{
    Async("GET", {}, [this](const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion) {
        Answer(FindProductionKey(*inRequest), CreatePayload, inRequest, inResponse, std::move(inCompletion));
    });
    WakeOn<SyncBox::CollaboratorsPresenceChangedMessage>(
        SyncBox::Station(),
        [](const SyncBox::CollaboratorsPresenceChangedMessage& inMessage) { return inMessage.mProductionID; });
}

}  // namespace VantryLocalHub
