#include "Inc/Service/CollaboratorsService.h"

#include "Client/Wire/Collaborators.h"
#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/JSON.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

int AnswerCollaborators(const RequestPtr& inRequest, const ResponsePtr& inResponse,
                        const ImmutableString& inProductionID, dto::CollaboratorsResource inCollaborators)
{
    LinkMaker maker(*inRequest);
    auto& links = inCollaborators.mLinks;
    maker.Add(links, Relation::Collaborators(), Template::kCollaborators, inProductionID);
    maker.Add(links, Relation::Invites(), Template::kInvites);
    maker.Add(links, Relation::Create(), Template::kCollaborators, inProductionID);
    maker.Add(links, Relation::Patch(), Template::kInvites);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(inCollaborators), *inResponse);
}

SyncBox::CollaboratorsCompletion AnswerWithCollaborators(const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                                         const ImmutableString& inProductionID, Completion inCompletion)
{
    return [inRequest, inResponse, inProductionID, completion = std::move(inCompletion)](
               int inStatus, const dto::CollaboratorsResource& inCollaborators) {
        completion(noxnet::IsSuccessfulHTTPStatus(inStatus)
                       ? AnswerCollaborators(inRequest, inResponse, inProductionID, inCollaborators)
                       : inStatus);
    };
}

/// The production of the URL; or, by the query, the one that a place in the cloud storage belongs to.
void GetCollaborators(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    ImmutableString production;
    if (!ExtractSubExpression(*inRequest, 1, production)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    const ImmutableString storage = inRequest->QueryValue(VYCL::QueryKeys::kURL);
    const ImmutableString remote = storage.empty() ? syncBox->GetRemoteProductionID(production) : storage;
    syncBox->GetCollaborators(production, remote,
                              AnswerWithCollaborators(inRequest, inResponse, production, std::move(inCompletion)));
}

/// One invitation, or an array of them.
int ReadInvitations(const noxnet::http::server::Request& inRequest, std::vector<dto::Invitation>& outInvitations)
{
    noxcore::serialization::JSONDocument body;
    if (!body.Parse(PayloadText(inRequest))) return RefuseJSON(inRequest);
    const auto root = body.Root();
    const auto rows = root.IsArray() ? root.Children() : std::vector{root};
    for (const auto& row : rows)
        if (!row.IsObject() || !dto::ReadRecord(row, outInvitations.emplace_back()))
            return Refuse(inRequest, "CollaboratorsService: Bad payload");
    return rows.empty() ? Refuse(inRequest, "CollaboratorsService: Bad payload") : noxnet::kHTTPStatus_OK;
}

void Invite(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    ImmutableString production;
    if (!ExtractSubExpression(*inRequest, 1, production)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    std::vector<dto::Invitation> invitations;
    const int status = ReadInvitations(*inRequest, invitations);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    syncBox->InviteCollaborators(production, invitations,
                                 AnswerWithCollaborators(inRequest, inResponse, production, std::move(inCompletion)));
}

}  // namespace

CollaboratorsService::CollaboratorsService()
{
    Async("GET", {}, GetCollaborators);
    Async("POST", {}, Invite);
}

}  // namespace VantryLocalHub
