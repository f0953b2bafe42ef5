#include "Inc/Service/TemplateService.h"

#include <utility>

#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/Templates.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/CurrentUserService.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Service/Resources.h"
#include "Inc/Service/WorkerHandler.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using noxcore::logging::LogError;
using noxcore::logging::LogWarning;
using noxnet::http::server::Request;

namespace {

void AddTemplateLinks(LinkMaker& ioMaker, const ImmutableString& inTemplateID, std::vector<dto::Link>& outLinks)
{
    ioMaker.Add(outLinks, Relation::Self(), Template::kTemplateTemplate, inTemplateID);
    ioMaker.Add(outLinks, Relation::Collaborators(), Template::kTemplateCollaborators, inTemplateID);
    ioMaker.Add(outLinks, Relation::LocalHubSessionTemplateRecipients(), Template::kTemplateRecipients, inTemplateID);
    ioMaker.Add(outLinks, Relation::SessionsSession_CreateTemplateProduction(), Template::kTemplateCreateSession,
                inTemplateID);
}

int ListTemplates(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    LinkMaker maker(*inRequest);
    dto::ProductionsResource resource;
    for (dto::Session& session : projectBox->GetTemplates()) {
        resource.mProductions.push_back(MakeProductionDescriptor(std::move(session)));
        AddTemplateLinks(maker, resource.mProductions.back().mProductionID, resource.mProductions.back().mLinks);
    }
    resource.mStats = StatsOfAll(resource.mProductions.size());
    maker.Add(resource.mLinks, Relation::Self(), Template::kTemplateList);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
}

int AnswerTemplate(const RequestPtr& inRequest, const ResponsePtr& inResponse, int inStatus, dto::Session inTemplate)
{
    LinkMaker maker(*inRequest);
    auto resource = MakeProductionResource(std::move(inTemplate));
    AddTemplateLinks(maker, resource.mProductionID, resource.mLinks);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    if (inStatus == noxnet::kHTTPStatus_OK)
        return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
    inResponse->SetHeader(noxnet::kHEADER_Location, resource.mLinks.front().mHref);
    SetPayload(dto::ToJSON(resource), *inResponse);
    return inStatus;
}

/// The template of the URL. A success to go on.
int FindTemplate(const Request& inRequest, const std::shared_ptr<ProjectBox>& inProjectBox, dto::Session& outTemplate)
{
    ImmutableString id;
    if (inProjectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    if (!ExtractSubExpression(inRequest, 2, id)) return noxnet::kHTTPStatus_BadRequest;
    return inProjectBox->GetTemplate(id, outTemplate);
}

int GetTemplate(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    dto::Session found;
    const int status = FindTemplate(*inRequest, ProjectBox::Instance(), found);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerTemplate(inRequest, inResponse, noxnet::kHTTPStatus_OK, std::move(found));
}

/// Who they are is known to the engine, as for any production.
void GetCollaborators(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    dto::Session found;
    const int status = syncBox == nullptr ? noxnet::kHTTPStatus_InternalServerError
                                          : FindTemplate(*inRequest, ProjectBox::Instance(), found);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    const ImmutableString id = found.mProductionID;
    const auto answer = [inRequest, inResponse, id, completion = std::move(inCompletion)](
                            int inStatus, const dto::CollaboratorsResource& inCollaborators) {
        if (!noxnet::IsSuccessfulHTTPStatus(inStatus)) return completion(inStatus);
        LinkMaker maker(*inRequest);
        dto::TemplateCollaborators resource{inCollaborators.mCollaborators, {}};
        maker.Add(resource.mLinks, Relation::Self(), Template::kTemplateCollaborators, id);
        completion(maker.Failed() ? noxnet::kHTTPStatus_InternalServerError
                                  : SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse));
    };
    syncBox->GetCollaborators(id, syncBox->GetRemoteProductionID(id), answer);
}

int GetRecipients(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    ImmutableString id;
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    if (!ExtractSubExpression(*inRequest, 2, id)) return noxnet::kHTTPStatus_BadRequest;
    dto::TemplateRecipients resource;
    const int status = projectBox->GetTemplateRecipients(id, resource.mRecipients);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LinkMaker maker(*inRequest);
    maker.Add(resource.mLinks, Relation::Self(), Template::kTemplateRecipients, id);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
}

/// The recipients of a new template stand beside its properties; without them it is for nobody in particular.
bool ReadRecipients(std::string_view inBody, dto::RawArray& outRecipients)
{
    noxcore::serialization::JSONDocument document;
    if (!document.Parse(inBody)) return false;
    const auto recipients = document.Root()["recipients"];
    return !recipients.Exists() || dto::RawArray::Read(recipients, outRecipients);
}

int CreateTemplate(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    ImmutableString id;
    if (projectBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    if (!ExtractSubExpression(*inRequest, 2, id)) return noxnet::kHTTPStatus_BadRequest;
    dto::ProductionResource body;
    dto::RawArray recipients;
    if (!dto::FromJSON(PayloadText(*inRequest), body) || !ReadRecipients(PayloadText(*inRequest), recipients))
        return Refuse(*inRequest, "TemplateService: Bad payload");
    dto::Session made;
    const int status = projectBox->CreateTemplate(id, {body.mProperties, {}}, recipients, made);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerTemplate(inRequest, inResponse, noxnet::kHTTPStatus_Created, std::move(made));
}

/// 200 where the body asks for the revision that the template has.
int ReadSessionRequest(const Request& inRequest, const dto::Session& inTemplate,
                       dto::ProductionProperties& outProperties)
{
    dto::ProductionResource body;
    if (!dto::FromJSON(PayloadText(inRequest), body)) return Refuse(inRequest, "TemplateService: Bad payload");
    if (!(inTemplate.mRevision == body.mCommitID)) {
        LogWarning(kServiceLogCategory,
                   "TemplateService: URL revision (revisionID) does not match revision to copy (commitID)",
                   {{"sessionID", inTemplate.mIdentifier},
                    {"revisionID", inTemplate.mRevision},
                    {"properties", PayloadText(inRequest)},
                    {"expression", "inRevision != properties.commitId"}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    outProperties.mProperties = std::move(body.mProperties);
    return noxnet::kHTTPStatus_OK;
}

int CreateSession(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    dto::Session source;
    int status = FindTemplate(*inRequest, projectBox, source);
    dto::ProductionProperties properties;
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = ReadSessionRequest(*inRequest, source, properties);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::Session made;
    status = projectBox->CopySessionToLyra2(source.mIdentifier, source.mRevision, properties, made);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    const int associated =
        syncBox->AssociateWithUserOnly(made.mIdentifier, CurrentUserService::GetUserEmailFromRequest(*inRequest), true);
    if (noxnet::IsSuccessfulHTTPStatus(associated)) {
        made.mLocalOnly = true;
    } else {
        LogError(kServiceLogCategory, "TemplateService: cannot associate session with user",
                 {{"localSessionID", made.mIdentifier}, {"status", associated}});
    }
    return AnswerSession(inRequest, inResponse, noxnet::kHTTPStatus_Created, Template::kProduction, made);
}

}  // namespace

TemplateService::TemplateService()
{
    Async("GET", "list", OnReader(ListTemplates));
    Async("GET", "template", OnReader(GetTemplate));
    Async("GET", "collaborators", GetCollaborators);
    Async("GET", "recipients", OnReader(GetRecipients));
    Async("POST", "createTemplate", OnWorker(CreateTemplate));
    Async("POST", "createSession", OnWorker(CreateSession));
}

}  // namespace VantryLocalHub
