#include "Inc/Service/SessionsService.h"

#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/Resources.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using noxcore::logging::LogWarning;

namespace {

int AnswerSessions(const RequestPtr& inRequest, const ResponsePtr& inResponse, const ImmutableString& inProductionID,
                   const std::vector<dto::Session>& inSessions)
{
    LinkMaker maker(*inRequest);
    dto::SessionsResource resource;
    resource.mSessions.reserve(inSessions.size());
    for (const dto::Session& session : inSessions) {
        resource.mSessions.push_back(MakeSessionDescriptor(session));
        AddSessionLinks(maker, session.mProductionID, resource.mSessions.back().mLinks);
    }
    resource.mStats = StatsOfAll(inSessions.size());
    AddSessionLinks(maker, inProductionID, resource.mLinks);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
}

int GetSessions(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (projectBox == nullptr || syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString production;
    if (!ExtractSubExpression(*inRequest, 1, production)) return noxnet::kHTTPStatus_NotFound;
    const auto sessions = projectBox->GetSessionsOfProduction(production);
    dto::Session remote;
    // A production that is on the server alone has no session yet; one that nobody knows is an error.
    if (sessions.empty() && !noxnet::IsSuccessfulHTTPStatus(syncBox->GetProduction(production, remote)))
        return noxnet::kHTTPStatus_NotFound;
    return AnswerSessions(inRequest, inResponse, production, sessions);
}

int CreateSessionFinished(const RequestPtr& inRequest, const ResponsePtr& inResponse, int inStatus,
                          const dto::Session& inSession)
{
    if (!noxnet::IsSuccessfulHTTPStatus(inStatus)) {
        LogWarning(kServiceLogCategory, "SessionsService: Cannot create a local session!",
                   {{"url", inRequest->URL()},
                    {"status", inStatus},
                    {"expression", "!noxnet::IsSuccessfulHTTPStatus(inStatus)"}});
        return inStatus;
    }
    return AnswerSession(inRequest, inResponse, noxnet::kHTTPStatus_OK, Template::kSessions, inSession);
}

/// 200 where a further session of the production may be made.
int CheckCreation(const RequestPtr& inRequest, const std::shared_ptr<ProjectBox>& inProjectBox,
                  ImmutableString& outProductionID)
{
    if (!ExtractSubExpression(*inRequest, 1, outProductionID)) return noxnet::kHTTPStatus_BadRequest;
    dto::Session session;
    int status = inProjectBox->GetSession(outProductionID, session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    status = inProjectBox->GetProduction(outProductionID, VYCL::LocalHub::Revision_HEAD(), session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::SessionResource body;
    if (!dto::FromJSON(PayloadText(*inRequest), body)) {
        LogWarning(kServiceLogCategory, "SessionsService: Bad payload", {{"url", inRequest->URL()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    return noxnet::kHTTPStatus_OK;
}

void CreateSession(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (projectBox == nullptr || syncBox == nullptr || !CanMakeURLs(*inRequest)) {
        inCompletion(noxnet::kHTTPStatus_InternalServerError);
        return;
    }
    ImmutableString production;
    const int status = CheckCreation(inRequest, projectBox, production);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        inCompletion(status);
        return;
    }
    syncBox->CreateLocalAssociatedSession(production, [inRequest, inResponse, completion = std::move(inCompletion)](
                                                          int inStatus, const dto::Session& inSession) {
        completion(CreateSessionFinished(inRequest, inResponse, inStatus, inSession));
    });
}

}  // namespace

SessionsService::SessionsService()
{
    Sync("GET", {}, GetSessions);
    Async("POST", {}, CreateSession);
}

}  // namespace VantryLocalHub
