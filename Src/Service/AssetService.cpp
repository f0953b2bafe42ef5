#include "Inc/Service/AssetService.h"

#include "Client/Wire/AssetLists.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/OwnTransaction.h"
#include "Inc/Service/Resources.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using noxcore::logging::LogWarning;
using VYCL::LocalHub::Revision_HEAD;

namespace {

constexpr int kKeyGroup = 5;
constexpr std::size_t kMostKeptBytes = 64 * 1024 * 1024;

struct Place
{
    ImmutableString mProductionID;
    ImmutableString mRevision;
    ImmutableString mAssetID;
};

bool ReadPlace(const RequestPtr& inRequest, Place& outPlace)
{
    return ExtractSubExpression(*inRequest, 1, outPlace.mProductionID) &&
           ExtractSubExpression(*inRequest, 2, outPlace.mRevision) &&
           ExtractSubExpression(*inRequest, 3, outPlace.mAssetID);
}

int LogUnlessFound(const RequestPtr& inRequest, int inStatus)
{
    if (!noxnet::IsSuccessfulHTTPStatus(inStatus) && inStatus != noxnet::kHTTPStatus_NotModified)
        LogWarning(
            kServiceLogCategory, "AssetService: Asset not found",
            {{"url", inRequest->URL()},
             {"status", inStatus},
             {"expression", "!noxnet::IsSuccessfulHTTPStatus(status) && status != noxnet::kHTTPStatus_NotModified"}});
    return inStatus;
}

int LogUnlessEnclosureFound(const RequestPtr& inRequest, int inStatus)
{
    if (!noxnet::IsSuccessfulHTTPStatus(inStatus) && inStatus != noxnet::kHTTPStatus_NotModified)
        LogWarning(kServiceLogCategory, "AssetService: Enclosure not found",
                   {{"url", inRequest->URL()},
                    {"status", inStatus},
                    {"expression", "!noxnet::IsSuccessfulHTTPStatus(status)"}});
    return inStatus;
}

int FindAsset(const RequestPtr& inRequest, Place& outPlace, dto::Asset& outAsset)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    if (!ReadPlace(inRequest, outPlace)) return noxnet::kHTTPStatus_BadRequest;
    return projectBox->GetAsset(outPlace.mProductionID, outPlace.mRevision, outPlace.mAssetID, outAsset);
}

int Get(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Place place;
    dto::Asset asset;
    int status = FindAsset(inRequest, place, asset);
    if (noxnet::IsSuccessfulHTTPStatus(status))
        status = AnswerAsset(inRequest, inResponse, place.mProductionID, place.mRevision, std::move(asset));
    return LogUnlessFound(inRequest, status);
}

int GetEnclosures(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Place place;
    dto::Asset asset;
    const int status = FindAsset(inRequest, place, asset);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return LogUnlessFound(inRequest, status);
    if (SetEntityTag(*inRequest, asset.mEtag, *inResponse)) return noxnet::kHTTPStatus_NotModified;
    LinkMaker maker(*inRequest);
    dto::EnclosuresResource resource;
    resource.mEnclosures = std::move(asset.mEnclosures);
    for (dto::Enclosure& enclosure : resource.mEnclosures)
        maker.Add(enclosure.mLinks, Relation::Self(), Template::kAssetEnclosureById, place.mProductionID,
                  place.mRevision, place.mAssetID, enclosure.mEnclosureID);
    resource.mStats = StatsOfAll(resource.mEnclosures.size());
    maker.Add(resource.mLinks, Relation::Self(), Template::kAssetEnclosures, place.mProductionID, place.mRevision,
              place.mAssetID);
    maker.Add(resource.mLinks, Relation::AssetsAssetEnclosure_ByContentId(),
              Template::kAssetEnclosureByContentId_ContentId, place.mProductionID, place.mRevision, place.mAssetID);
    maker.Add(resource.mLinks, Relation::LatestVersion(), Template::kAssetEnclosures, place.mProductionID,
              Revision_HEAD(), place.mAssetID);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    SetPayload(dto::ToJSON(resource), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

int AnswerEnclosure(const ResponsePtr& inResponse, const ConstRecycledMemoryPtr& inPayload)
{
    inResponse->SetHeader(noxnet::kHEADER_ContentType, noxnet::kContentType_Binary);
    inResponse->mPayload = inPayload;
    return noxnet::kHTTPStatus_OK;
}

int FindEnclosureByID(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    ImmutableString enclosureID;
    if (!ReadPlace(inRequest, place) || !ExtractSubExpression(*inRequest, kKeyGroup, enclosureID))
        return noxnet::kHTTPStatus_BadRequest;
    ConstRecycledMemoryPtr payload;
    const int status =
        projectBox->GetAssetEnclosure(place.mProductionID, place.mRevision, place.mAssetID, enclosureID, payload);
    return noxnet::IsSuccessfulHTTPStatus(status) ? AnswerEnclosure(inResponse, payload) : status;
}

int GetEnclosureByID(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    return LogUnlessEnclosureFound(inRequest, FindEnclosureByID(inRequest, inResponse));
}

int FindEnclosureByContentID(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    ImmutableString contentID;
    if (!ReadPlace(inRequest, place) || !ExtractSubExpression(*inRequest, kKeyGroup, contentID))
        return noxnet::kHTTPStatus_BadRequest;
    ConstRecycledMemoryPtr payload;
    const int status = projectBox->GetAssetEnclosureByContentHash(place.mProductionID, contentID, payload);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (SetEntityTag(*inRequest, contentID, *inResponse)) return noxnet::kHTTPStatus_NotModified;
    return AnswerEnclosure(inResponse, payload);
}

int GetEnclosureByContentID(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    return LogUnlessEnclosureFound(inRequest, FindEnclosureByContentID(inRequest, inResponse));
}

/// A body is not needed; where there is one it may name the transaction.
bool ReadTransaction(const RequestPtr& inRequest, ImmutableString& outTransactionID)
{
    const std::string_view text = PayloadText(*inRequest);
    noxcore::serialization::JSONDocument body;
    return text.empty() ||
           (body.Parse(text) && ReadNamedTransaction(body.Root(), outTransactionID) != NamedTransaction::Unreadable);
}

int ApplyRestore(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    ImmutableString contentID;
    ImmutableString transactionID;
    if (!ReadPlace(inRequest, place) || !ExtractSubExpression(*inRequest, kKeyGroup, contentID) ||
        !ReadTransaction(inRequest, transactionID))
        return noxnet::kHTTPStatus_BadRequest;
    dto::Asset asset;
    const auto restore = [&](const ImmutableString& inTransactionID) {
        return projectBox->RestoreAsset(inTransactionID, place.mAssetID, contentID, asset);
    };
    int status = noxnet::kHTTPStatus_OK;
    if (transactionID.empty()) {
        CommitOutcome outcome;
        status = ApplyInOwnTransaction(place.mProductionID, restore, outcome);
    } else {
        status = CheckNamedTransaction(*projectBox, place.mProductionID, transactionID);
        if (noxnet::IsSuccessfulHTTPStatus(status)) status = restore(transactionID);
    }
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (transactionID.empty())
        status = projectBox->GetAsset(place.mProductionID, Revision_HEAD(), place.mAssetID, asset);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerAsset(inRequest, inResponse, place.mProductionID, Revision_HEAD(), std::move(asset));
}

int Restore(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const int status = ApplyRestore(inRequest, inResponse);
    if (!noxnet::IsSuccessfulHTTPStatus(status))
        LogWarning(
            kServiceLogCategory, "AssetService: Cannot restore asset",
            {{"url", inRequest->URL()}, {"status", status}, {"expression", "!noxnet::IsSuccessfulHTTPStatus(status)"}});
    return status;
}

void RestoreFromProduction(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (projectBox == nullptr || syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    Place place;
    if (!ReadPlace(inRequest, place)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    dto::Session session;
    const int status = projectBox->GetProduction(place.mProductionID, Revision_HEAD(), session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    syncBox->RestoreAssetFromProduction(session.mIdentifier, session.mProductionID, place.mAssetID,
                                        std::move(inCompletion));
}

/// Assets change in transactions only.
int RefuseEdit(const RequestPtr&, const ResponsePtr&)
{
    return noxnet::kHTTPStatus_PreconditionFailed;
}

}  // namespace

AssetService::AssetService()
{
    KeepAnswersOfRevisions(kMostKeptBytes);
    Sync("GET", {}, Get);
    Sync("GET", "enclosureByContentId", GetEnclosureByContentID);
    Sync("GET", "enclosures", GetEnclosures);
    Sync("GET", "enclosureById", GetEnclosureByID);
    Sync("POST", "restore", Restore);
    Async("POST", "restoreFromProduction", RestoreFromProduction);
    Sync("PUT", "properties", RefuseEdit);
}

}  // namespace VantryLocalHub
