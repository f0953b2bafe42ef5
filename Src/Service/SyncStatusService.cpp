#include "Inc/Service/SyncStatusService.h"

#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Status.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/ServiceUtils.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxnet/Forms.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using noxnet::http::server::Request;
using VYCL::LocalHub::Revision_HEAD;

namespace {

constexpr int kElementGroup = 2;

dto::SyncStatusResource MakeResource(LinkMaker& ioMaker, const SyncStatus& inStatus)
{
    dto::SyncStatusResource resource;
    resource.mServerURL = inStatus.mServerURL.Text();
    resource.mState = inStatus.mState;
    const ImmutableString& session = inStatus.mLocalSessionID;
    ioMaker.Add(resource.mLinks, Relation::Self(), Template::kSyncStatusSession, session);
    ioMaker.Add(resource.mLinks, Relation::LatestVersion(), Template::kProduction, session, Revision_HEAD());
    ioMaker.Add(resource.mLinks, Relation::Jobs(), Template::kJobsListOfRevision, session, Revision_HEAD());
    return resource;
}

int MakeList(const Request& inRequest, const std::vector<SyncStatus>& inStatuses, bool inOfAll, std::string& outPayload)
{
    LinkMaker maker(inRequest);
    dto::SyncStatusList list;
    list.mSyncStatus.reserve(inStatuses.size());
    for (const SyncStatus& status : inStatuses)
        list.mSyncStatus.push_back(MakeResource(maker, status));
    if (inOfAll) maker.Add(list.mLinks, Relation::Self(), Template::kSyncStatusAll);
    maker.Add(list.mLinks, Relation::LocalHubSyncStatus_BySessionId(), Template::kSyncStatusSession_SessionId);
    maker.Add(list.mLinks, Relation::LocalHubSyncStatus_ByServer(), Template::kSyncStatusServer_ServerAndPort);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    outPayload = dto::ToJSON(list);
    return noxnet::kHTTPStatus_OK;
}

int CreatePayload(const Request& inRequest, std::string& outPayload)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    return MakeList(inRequest, syncBox->GetSyncStatus(), true, outPayload);
}

int GetOfServer(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    std::string server;
    if (!ExtractSubExpression(*inRequest, kElementGroup, server) || server.empty())
        return noxnet::kHTTPStatus_BadRequest;
    std::string payload;
    const int status = MakeList(
        *inRequest, syncBox->GetSyncStatusForServer(noxnet::http::server::PercentDecoded(server)), false, payload);
    return noxnet::IsSuccessfulHTTPStatus(status) ? SetPayloadWithEntityTag(*inRequest, std::move(payload), *inResponse)
                                                  : status;
}

/// A session that nobody knows is in no known state; that is an answer too.
int GetOfSession(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString session;
    if (!ExtractSubExpression(*inRequest, kElementGroup, session) || !IsLinkable(session.View()))
        return noxnet::kHTTPStatus_BadRequest;
    SyncStatus status;
    if (!noxnet::IsSuccessfulHTTPStatus(syncBox->GetSyncStatusForSession(session, status))) {
        status = {};
        status.mLocalSessionID = session;
    }
    LinkMaker maker(*inRequest);
    const auto resource = MakeResource(maker, status);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
}

}  // namespace

SyncStatusService::SyncStatusService()
{
    Sync("GET", "server", GetOfServer);
    Sync("GET", "session", GetOfSession);
    Async("GET", "all", [this](const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion) {
        Answer(kOnlyKey, CreatePayload, inRequest, inResponse, std::move(inCompletion));
    });
    WakeAllOn<SyncBox::SyncStatusChangedMessage>(SyncBox::Station());
}

}  // namespace VantryLocalHub
