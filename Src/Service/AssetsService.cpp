#include "Inc/Service/AssetsService.h"

#include <algorithm>
#include <iterator>

#include "Client/Wire/AssetLists.h"
#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/Resources.h"
#include "Platform/noxcore/Murmur3.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

struct Place
{
    ImmutableString mProductionID;
    ImmutableString mRevision;
};

std::vector<dto::Asset> ChildrenOf(const ImmutableString& inParentID, const std::vector<dto::Asset>& inAssets)
{
    std::vector<dto::Asset> children;
    std::ranges::copy_if(inAssets, std::back_inserter(children), [&](const dto::Asset& inAsset) {
        return dto::ReadAssetTraits(inAsset.mProperties).mParent == inParentID;
    });
    return children;
}

/// The tag of a list: of what it holds, in its order, and in which view.
std::string TagOf(const std::vector<dto::Asset>& inAssets, bool inCondensed)
{
    constexpr std::string_view kEnd("\0", 1);
    noxcore::utility::Murmur3 hash;
    hash.Add(inCondensed ? "condensed" : "full");
    for (const dto::Asset& asset : inAssets) {
        for (const ImmutableString& text :
             {asset.mAssetID, asset.mAssetContentID, asset.mBaseCommitID, asset.mConflictsWithContentID}) {
            hash.Add(kEnd);
            hash.Add(text);
        }
    }
    return noxcore::utility::Guid(hash.Finish()).Text();
}

void AddLinks(LinkMaker& ioMaker, const Place& inPlace, bool inCondensed, std::vector<dto::Link>& outLinks)
{
    const auto& [production, revision] = inPlace;
    if (inCondensed)
        ioMaker.Add(outLinks, Relation::Self(), Template::kAssets_ViewCondensed, production, revision);
    else
        ioMaker.Add(outLinks, Relation::Self(), Template::kAssets, production, revision);
    ioMaker.Add(outLinks, Relation::Assets_FullCondensed(), Template::kAssets_ViewCondensed, production, revision);
    ioMaker.Add(outLinks, Relation::LatestVersion(), Template::kAssets, production, VYCL::LocalHub::Revision_HEAD());
    ioMaker.Add(outLinks, Relation::AssetsAsset_Create(), Template::kAssetsHEADCreate, production);
    ioMaker.Add(outLinks, Relation::ProductionsProduction_CreateTemplate(), Template::kAssets_CommitIdTemplate_AssetId,
                production);
    ioMaker.Add(outLinks, Relation::AssetsAsset_ById(), Template::kAsset_AssetId, production, revision);
    ioMaker.Add(outLinks, Relation::AssetsAssetEnclosure_ById(), Template::kAsset_AssetIdEnclosureById_EnclosureId,
                production, revision);
}

template <class Resource>
int AnswerList(const RequestPtr& inRequest, const ResponsePtr& inResponse, const Place& inPlace,
               const std::vector<dto::Asset>& inAssets)
{
    constexpr bool kCondensed = std::is_same_v<Resource, dto::CondensedAssetsResource>;
    Resource resource;
    resource.mEtag = TagOf(inAssets, kCondensed);
    if (SetEntityTag(*inRequest, resource.mEtag, *inResponse)) return noxnet::kHTTPStatus_NotModified;
    resource.mStats = StatsOfAll(inAssets.size());
    if constexpr (kCondensed)
        resource.mAssets = std::vector<dto::CondensedAsset>(inAssets.begin(), inAssets.end());
    else
        resource.mAssets = inAssets;
    LinkMaker maker(*inRequest);
    AddLinks(maker, inPlace, kCondensed, resource.mLinks);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    SetPayload(dto::ToJSON(resource), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

int GetAssets(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    if (!ExtractSubExpression(*inRequest, 1, place.mProductionID) ||
        !ExtractSubExpression(*inRequest, 2, place.mRevision))
        return noxnet::kHTTPStatus_BadRequest;
    const bool condensed = inRequest->QueryValue(VYCL::QueryKeys::kView) == VYCL::QueryKeys::kViewCondensed;
    AssetListPtr assets;
    const int status = projectBox->GetAssets(place.mProductionID, place.mRevision, {}, !condensed, assets);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    const ImmutableString parent = inRequest->QueryValue(VYCL::QueryKeys::kParentID);
    if (!parent.empty()) assets = std::make_shared<const AssetList>(ChildrenOf(parent, *assets));
    return condensed ? AnswerList<dto::CondensedAssetsResource>(inRequest, inResponse, place, *assets)
                     : AnswerList<dto::AssetsResourceOver>(inRequest, inResponse, place, *assets);
}

}  // namespace

AssetsService::AssetsService()
{
    Sync("GET", {}, GetAssets);
}

}  // namespace VantryLocalHub
