#include "Inc/Service/InvitesService.h"

#include "Client/Wire/Collaborators.h"
#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using noxcore::logging::LogInformation;

namespace {

int AnswerInvites(const RequestPtr& inRequest, const ResponsePtr& inResponse, dto::InvitesResource inInvites)
{
    LinkMaker maker(*inRequest);
    for (dto::Invite& invite : inInvites.mInvites) {
        maker.Add(invite.mLinks, Relation::InvitesInvite_Accept(), Template::kInvites);
        maker.Add(invite.mLinks, Relation::InvitesInvite_Reject(), Template::kInvites);
    }
    maker.Add(inInvites.mLinks, Relation::Self(), Template::kInvites);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(inInvites), *inResponse);
}

void GetInvites(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    syncBox->GetInvites(
        inRequest->QueryValue(VYCL::QueryKeys::kType), [inRequest, inResponse, completion = std::move(inCompletion)](
                                                           int inStatus, const dto::InvitesResource& inInvites) {
            completion(noxnet::IsSuccessfulHTTPStatus(inStatus) ? AnswerInvites(inRequest, inResponse, inInvites)
                                                                : inStatus);
        });
}

/// Engine and invite of a request. 200 to go on.
int ReadInvite(const RequestPtr& inRequest, std::shared_ptr<SyncBox>& outSyncBox, dto::Invite& outInvite)
{
    outSyncBox = SyncBox::Instance();
    if (outSyncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    return dto::FromJSON(PayloadText(*inRequest), outInvite) ? noxnet::kHTTPStatus_OK
                                                             : Refuse(*inRequest, "Invites: Bad payload");
}

void AnswerInvite(const ResponsePtr& inResponse, const dto::Invite& inInvite)
{
    dto::InvitesResource answer;
    answer.mResourceType = inInvite.mResourceType;
    answer.mResourceURN = inInvite.mResourceURN;
    SetPayload(dto::ToJSON(answer), *inResponse);
}

void AcceptInvite(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    std::shared_ptr<SyncBox> syncBox;
    dto::Invite invite;
    const int status = ReadInvite(inRequest, syncBox, invite);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    syncBox->AcceptInvite(invite, [inResponse, invite, completion = std::move(inCompletion)](
                                      int inStatus, const ImmutableString& inProductionID) {
        LogInformation(kServiceLogCategory, "Invites: Accept Invite Completed", {{"status", inStatus}});
        if (noxnet::IsSuccessfulHTTPStatus(inStatus)) {
            LogInformation(kServiceLogCategory, "Invites: Create Response for Accept Invite",
                           {{"productionID", inProductionID.View()}});
            inResponse->SetHeader(VYCL::LocalHub::HeaderKey_InviteAcceptedProductionID().View(), inProductionID.View());
            AnswerInvite(inResponse, invite);
        }
        completion(inStatus);
    });
}

void RejectInvite(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    std::shared_ptr<SyncBox> syncBox;
    dto::Invite invite;
    const int status = ReadInvite(inRequest, syncBox, invite);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    syncBox->RejectInvite(invite, [inResponse, invite, completion = std::move(inCompletion)](int inStatus) {
        LogInformation(kServiceLogCategory, "Invites: Reject Invite Completed", {{"status", inStatus}});
        if (noxnet::IsSuccessfulHTTPStatus(inStatus)) AnswerInvite(inResponse, invite);
        completion(inStatus);
    });
}

/// The engine has no operation for it yet.
int RevokeCollaboratorOrInvite(const RequestPtr& inRequest, const ResponsePtr&)
{
    if (SyncBox::Instance() == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    dto::ModifyCollaborator body;
    if (!dto::FromJSON(PayloadText(*inRequest), body) || body.mAction.empty())
        return Refuse(*inRequest, "RevokeCollaboratorOrInvite: Bad request body");
    return noxnet::kHTTPStatus_NotImplemented;
}

}  // namespace

InvitesService::InvitesService()
{
    Async("GET", {}, GetInvites);
    Async("POST", {}, AcceptInvite);
    Async("DELETE", {}, RejectInvite);
    Sync("PATCH", {}, RevokeCollaboratorOrInvite);
}

}  // namespace VantryLocalHub
