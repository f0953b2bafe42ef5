#include "Inc/Service/CollaboratorsActivityService.h"

#include "Client/Wire/Collaborators.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/ServiceUtils.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

namespace {

int AnswerActivity(const RequestPtr& inRequest, const ResponsePtr& inResponse, const ImmutableString& inProductionID,
                   dto::ActivityResource inActivity)
{
    LinkMaker maker(*inRequest);
    maker.Add(inActivity.mLinks, VYCL::LinkRelation::Self(), VYCL::URLTemplate::kActivity, inProductionID);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(inActivity), *inResponse);
}

void GetActivity(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    ImmutableString production;
    if (!ExtractSubExpression(*inRequest, 1, production)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    syncBox->UpdateCollaboratorActivity(
        production, [inRequest, inResponse, production, completion = std::move(inCompletion)](
                        int inStatus, const dto::ActivityResource& inActivity) {
            completion(noxnet::IsSuccessfulHTTPStatus(inStatus)
                           ? AnswerActivity(inRequest, inResponse, production, inActivity)
                           : inStatus);
        });
}

}  // namespace

CollaboratorsActivityService::CollaboratorsActivityService()
{
    Async("GET", {}, GetActivity);
}

}  // namespace VantryLocalHub
