#include "Inc/Service/ProductionService.h"

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/Resources.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"
#include "Src/Service/ProductionHandlers.h"

namespace VantryLocalHub {

using noxcore::logging::LogWarning;

namespace ProductionHandlers {

bool ReadPlace(const RequestPtr& inRequest, Place& outPlace)
{
    return ExtractSubExpression(*inRequest, 1, outPlace.mProductionID) &&
           ExtractSubExpression(*inRequest, 2, outPlace.mRevision);
}

int RefuseBadPayload(const RequestPtr& inRequest)
{
    LogWarning(kServiceLogCategory, "ProductionService: Bad payload", {{"url", inRequest->URL()}});
    return noxnet::kHTTPStatus_BadRequest;
}

int GetAtHead(ProjectBox& inProjectBox, const ImmutableString& inProductionID, dto::Session& outProduction)
{
    return inProjectBox.GetProduction(inProductionID, VYCL::LocalHub::Revision_HEAD(), outProduction);
}

namespace {

/// Hands the production of an operation on, with the operation's status.
SyncBox::SessionCompletion AnswerWithProduction(const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                                bool inWithLocation, Completion inCompletion)
{
    return [inRequest, inResponse, inWithLocation, completion = std::move(inCompletion)](
               int inStatus, const dto::Session& inProduction) {
        completion(noxnet::IsSuccessfulHTTPStatus(inStatus)
                       ? AnswerProduction(inRequest, inResponse, inStatus, inWithLocation, inProduction)
                       : inStatus);
    };
}

int GetProduction(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    if (!ReadPlace(inRequest, place)) return noxnet::kHTTPStatus_BadRequest;
    dto::Session production;
    int status = projectBox->GetProduction(place.mProductionID, place.mRevision, production);
    // The list of productions shows those that are on the server alone, too.
    if (status == noxnet::kHTTPStatus_NotFound && IsHead(place.mRevision) && syncBox != nullptr &&
        noxnet::IsSuccessfulHTTPStatus(syncBox->GetProduction(place.mProductionID, production)))
        status = noxnet::kHTTPStatus_OK;
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (SetEntityTag(*inRequest, ProductionTag(production), *inResponse)) return noxnet::kHTTPStatus_NotModified;
    LinkMaker maker(*inRequest);
    auto resource = MakeProductionResource(std::move(production));
    AddProductionLinks(maker, place.mProductionID, place.mRevision, resource.mLinks);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    SetPayload(dto::ToJSON(resource), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

void GetProductionAsync(const RequestPtr& inRequest, const ResponsePtr& inResponse, const Completion& inCompletion)
{
    inCompletion(GetProduction(inRequest, inResponse));
}

/// 200 where the body asks for a copy of the revision that the URL names.
int ReadCopyRequest(const RequestPtr& inRequest, Place& outPlace, dto::ProductionProperties& outProperties)
{
    if (!ReadPlace(inRequest, outPlace)) return noxnet::kHTTPStatus_BadRequest;
    dto::ProductionResource body;
    if (!dto::FromJSON(PayloadText(*inRequest), body)) return RefuseBadPayload(inRequest);
    if (!(outPlace.mRevision == body.mCommitID)) {
        LogWarning(kServiceLogCategory,
                   "ProductionService: URL revision (revisionID) does not match revision to copy (commitID)",
                   {{"revisionID", outPlace.mRevision.View()},
                    {"commitID", body.mCommitID.View()},
                    {"expression", "inRevision != properties.commitId"}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    outProperties.mProperties = std::move(body.mProperties);
    return noxnet::kHTTPStatus_OK;
}

void CopyRevision(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) {
        inCompletion(noxnet::kHTTPStatus_InternalServerError);
        return;
    }
    Place place;
    dto::ProductionProperties properties;
    const int status = ReadCopyRequest(inRequest, place, properties);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        inCompletion(status);
        return;
    }
    const auto complete = [place, completion = std::move(inCompletion)](int inStatus) {
        if (!noxnet::IsSuccessfulHTTPStatus(inStatus))
            LogWarning(kServiceLogCategory, "Production::CopySession: Failed to copy session.",
                       {{"productionID", place.mProductionID.View()},
                        {"revisionID", place.mRevision.View()},
                        {"status", inStatus}});
        completion(inStatus);
    };
    syncBox->CopyProduction(place.mProductionID, place.mRevision, properties, {},
                            QueryIsTrue(*inRequest, VYCL::QueryKeys::kLocalOnly),
                            AnswerWithProduction(inRequest, inResponse, true, complete));
}

void Archive(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    Place place;
    if (syncBox == nullptr)
        inCompletion(noxnet::kHTTPStatus_InternalServerError);
    else if (!ReadPlace(inRequest, place))
        inCompletion(noxnet::kHTTPStatus_BadRequest);
    else
        syncBox->ArchiveProduction(place.mProductionID, std::move(inCompletion));
}

/// The engine has no operation for it yet.
void Migrate(const RequestPtr& inRequest, const ResponsePtr&, const Completion& inCompletion)
{
    noxcore::serialization::JSONDocument body;
    Place place;
    int status = noxnet::kHTTPStatus_NotImplemented;
    if (SyncBox::Instance() == nullptr) {
        status = noxnet::kHTTPStatus_InternalServerError;
    } else if (!ReadPlace(inRequest, place)) {
        status = noxnet::kHTTPStatus_BadRequest;
    } else if (!body.Parse(PayloadText(*inRequest))) {
        LogWarning(kServiceLogCategory, "JSON not well-formed", {{"url", inRequest->URL()}});
        status = noxnet::kHTTPStatus_BadRequest;
    }
    inCompletion(status);
}

/// Both instances and the local session of the URL, for work that the engine does on a session. A success to go on.
int FindSession(const RequestPtr& inRequest, std::shared_ptr<SyncBox>& outSyncBox, dto::Session& outProduction)
{
    const auto projectBox = ProjectBox::Instance();
    outSyncBox = SyncBox::Instance();
    if (projectBox == nullptr || outSyncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    if (!ReadPlace(inRequest, place)) return noxnet::kHTTPStatus_BadRequest;
    return GetAtHead(*projectBox, place.mProductionID, outProduction);
}

void Rollback(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    std::shared_ptr<SyncBox> syncBox;
    dto::Session production;
    int status = FindSession(inRequest, syncBox, production);
    ImmutableString target;
    if (noxnet::IsSuccessfulHTTPStatus(status) && (!ExtractSubExpression(*inRequest, 4, target) || target.empty()))
        status = noxnet::kHTTPStatus_BadRequest;
    if (noxnet::IsSuccessfulHTTPStatus(status) && !CanMakeURLs(*inRequest))
        status = noxnet::kHTTPStatus_InternalServerError;
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    // The session was too busy: the tag is of what others have left there.
    const auto complete = [inResponse, id = production.mProductionID,
                           completion = std::move(inCompletion)](int inStatus) {
        dto::Session head;
        const auto projectBox = ProjectBox::Instance();
        if (inStatus == noxnet::kHTTPStatus_NotModified && projectBox != nullptr &&
            noxnet::IsSuccessfulHTTPStatus(GetAtHead(*projectBox, id, head)))
            inResponse->SetHeader(noxnet::kHEADER_ETag, ProductionTag(head));
        completion(inStatus);
    };
    syncBox->RollbackSessionToRevision(production.mIdentifier, target,
                                       AnswerWithProduction(inRequest, inResponse, false, complete));
}

void Compact(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    std::shared_ptr<SyncBox> syncBox;
    dto::Session production;
    const int status = FindSession(inRequest, syncBox, production);
    if (noxnet::IsSuccessfulHTTPStatus(status))
        syncBox->CompactSession(production.mIdentifier, std::move(inCompletion));
    else
        inCompletion(status);
}

}  // namespace

}  // namespace ProductionHandlers

ProductionService::ProductionService()
{
    using namespace ProductionHandlers;
    Async("GET", {}, GetProductionAsync);
    Async("HEAD", {}, GetProductionAsync);  // served by GET; stands here because the routing table has it
    Async("DELETE", {}, Delete);
    Async("POST", "copy", CopyRevision);
    Async("POST", "archive", Archive);
    Async("POST", "migrate", Migrate);
    Async("POST", "rollback", Rollback);
    Async("POST", "compact", Compact);
    Sync("GET", "enclosures", GetEnclosures);
    Sync("GET", "enclosure", GetEnclosure);
    Sync("GET", "enclosureByContentId", GetEnclosureByContentID);
    Async("GET", "properties", GetProperties);
    Sync("GET", "sizeof", GetSizeInfo);
    Sync("PUT", "properties", EditProperties);
    Sync("POST", "properties", EditProperties);
    Sync("DELETE", "properties", EditProperties);
}

}  // namespace VantryLocalHub
