#include <algorithm>

#include "Client/Wire/AssetLists.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/SizeInfo.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/Resources.h"
#include "Platform/noxcore/Logging.h"
#include "Src/Service/ProductionHandlers.h"

namespace VantryLocalHub::ProductionHandlers {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

int RefuseUnknownEnclosure(const RequestPtr& inRequest, int inStatus)
{
    noxcore::logging::LogWarning(kServiceLogCategory, "ProductionService: Enclosure not found",
                                 {{"url", inRequest->URL()}, {"status", inStatus}});
    return inStatus;
}

int AnswerPayload(const RequestPtr& inRequest, const ResponsePtr& inResponse, const ImmutableString& inContentID,
                  const ConstRecycledMemoryPtr& inPayload)
{
    inResponse->SetHeader(noxnet::kHEADER_ContentType, noxnet::kContentType_Binary);
    if (SetEntityTag(*inRequest, inContentID, *inResponse)) return noxnet::kHTTPStatus_NotModified;
    inResponse->mPayload = inPayload;
    return noxnet::kHTTPStatus_OK;
}

/// Finds an enclosure of a revision by its id, else by its name.
int FindEnclosure(ProjectBox& inProjectBox, const Place& inPlace, const ImmutableString& inName,
                  dto::Enclosure& outEnclosure, ConstRecycledMemoryPtr& outPayload)
{
    const int status =
        inProjectBox.GetProductionEnclosure(inPlace.mProductionID, inPlace.mRevision, inName, outEnclosure, outPayload);
    if (status != noxnet::kHTTPStatus_NotFound) return status;
    std::vector<dto::Enclosure> enclosures;
    const int listStatus = inProjectBox.GetProductionEnclosures(inPlace.mProductionID, inPlace.mRevision, enclosures);
    if (!noxnet::IsSuccessfulHTTPStatus(listStatus)) return listStatus;
    const auto found = std::ranges::find_if(
        enclosures, [&](const dto::Enclosure& inEnclosure) { return inEnclosure.mName == inName.View(); });
    if (found == enclosures.end()) return status;
    return inProjectBox.GetProductionEnclosure(inPlace.mProductionID, inPlace.mRevision, found->mEnclosureID,
                                               outEnclosure, outPayload);
}

}  // namespace

int GetEnclosures(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    if (!ReadPlace(inRequest, place)) return noxnet::kHTTPStatus_BadRequest;
    dto::EnclosuresResource resource;
    const int status = projectBox->GetProductionEnclosures(place.mProductionID, place.mRevision, resource.mEnclosures);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LinkMaker maker(*inRequest);
    for (dto::Enclosure& enclosure : resource.mEnclosures) {
        maker.Add(enclosure.mLinks, Relation::EnclosuresEnclosure(), Template::kProductionEnclosure,
                  place.mProductionID, place.mRevision, enclosure.mEnclosureID);
        maker.Add(enclosure.mLinks, Relation::EnclosuresEnclosure_ByContentId(),
                  Template::kProductionEnclosureByContentId, place.mProductionID, enclosure.mEnclosureContentID);
    }
    resource.mStats = StatsOfAll(resource.mEnclosures.size());
    maker.Add(resource.mLinks, Relation::Self(), Template::kProductionEnclosures, place.mProductionID, place.mRevision);
    maker.Add(resource.mLinks, Relation::EnclosuresEnclosure_ByContentId(),
              Template::kProductionEnclosureByContentId_ContentId, place.mProductionID);
    maker.Add(resource.mLinks, Relation::LatestVersion(), Template::kProductionEnclosures, place.mProductionID,
              VYCL::LocalHub::Revision_HEAD());
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
}

int GetEnclosure(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    ImmutableString name;
    if (!ReadPlace(inRequest, place) || !ExtractSubExpression(*inRequest, 4, name))
        return noxnet::kHTTPStatus_BadRequest;
    dto::Enclosure enclosure;
    ConstRecycledMemoryPtr payload;
    const int status = FindEnclosure(*projectBox, place, name, enclosure, payload);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return RefuseUnknownEnclosure(inRequest, status);
    return AnswerPayload(inRequest, inResponse, enclosure.mEnclosureContentID, payload);
}

int GetEnclosureByContentID(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    ImmutableString contentID;
    if (!ReadPlace(inRequest, place) || !ExtractSubExpression(*inRequest, 4, contentID))
        return noxnet::kHTTPStatus_BadRequest;
    ConstRecycledMemoryPtr payload;
    const int status = projectBox->GetProductionEnclosureByContentHash(place.mProductionID, contentID, payload);
    // However the store refuses an id, there is no such enclosure; only its own trouble is passed on.
    if (status >= noxnet::kHTTPStatus_InternalServerError) return status;
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return RefuseUnknownEnclosure(inRequest, noxnet::kHTTPStatus_NotFound);
    return AnswerPayload(inRequest, inResponse, contentID, payload);
}

int GetSizeInfo(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    if (!ReadPlace(inRequest, place)) return noxnet::kHTTPStatus_BadRequest;
    dto::Session production;
    int status = GetAtHead(*projectBox, place.mProductionID, production);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    // Counting a large session takes long: whoever has this head's counts gets away without it.
    if (SetEntityTag(*inRequest, production.mRevision, *inResponse)) return noxnet::kHTTPStatus_NotModified;
    dto::SizeInfo info;
    status = projectBox->GetSizeInfo(production.mIdentifier, true, info);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    SetPayload(dto::ToJSON(info), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::ProductionHandlers
