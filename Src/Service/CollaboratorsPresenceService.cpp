#include "Inc/Service/CollaboratorsPresenceService.h"

#include "Client/Wire/Collaborators.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/ServiceUtils.h"
#include "Inc/Sync/SyncBox.h"
#include "Src/Service/ProductionWatch.h"

namespace VantryLocalHub {

namespace {

int CreatePayload(const noxnet::http::server::Request& inRequest, std::string& outPayload)
{
    return CreateProductionPayload(inRequest, &SyncBox::GetCollaboratorsPresence, VYCL::URLTemplate::kPresence,
                                   outPayload);
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
