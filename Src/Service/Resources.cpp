#include "Inc/Service/Resources.h"

#include <utility>

#include "Client/VYClient/Interfaces.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using VYCL::LocalHub::Revision_HEAD;

namespace {

struct LinkRow
{
    const ImmutableString& (*mRelation)();
    URLFormat mFormat;
};

// Each format takes the production, then the revision; one that needs less leaves the rest.
constexpr LinkRow kProductionLinks[] = {
    {Relation::Self, Template::kProduction},
    {Relation::Edit, Template::kProductionProperties},
    {Relation::Delete, Template::kProduction},
    {Relation::ProductionsProduction_Copy, Template::kProductionCopy},
    {Relation::ProductionsProduction_Archive, Template::kProductionArchive},
    {Relation::ProductionsProduction_Migrate, Template::kProductionMigrate},
    {Relation::ProductionsProduction_History, Template::kHistory},
    {Relation::ProductionsProduction_Batons, Template::kBatons},
    {Relation::ProductionsProduction_CreateTemplate, Template::kTemplateCreateTemplate},
    {Relation::LocalHubLocalProject_CopyTo, Template::kProductionCopy_LocalOnly},
    {Relation::LocalHubLocalProject_Delete, Template::kProduction_LocalOnly},
    {Relation::LocalHubLocalProject_Compact, Template::kProductionCompact},
    {Relation::LocalHubLocalProject_Sizeof, Template::kProductionSizeof},
    {Relation::LocalHubPosterFrame, Template::kPoster},
    {Relation::LocalHubSyncJobs, Template::kJobsListOfSession},
    {Relation::LocalHubSyncStatus_BySessionId, Template::kSyncStatusSession},
    {Relation::LocalHubSessionTemplateRecipients, Template::kTemplateRecipients},
    {Relation::Bulk_Resolve, Template::kResolveBulk},
    {Relation::Enclosures, Template::kProductionEnclosures},
    {Relation::EnclosuresEnclosure_ByContentId, Template::kProductionEnclosureByContentId_ContentId},
    {Relation::Assets_Full, Template::kAssets},
    {Relation::Assets_FullCondensed, Template::kAssets_ViewCondensed},
    {Relation::Assets_Restore, Template::kAssetHEAD_AssetIdRestore_AssetContentId},
    {Relation::LocalHubAssets_RestoreFromProduction, Template::kAssetHEAD_AssetIdRestoreFromProduction},
    {Relation::AssetsAsset_ById, Template::kAsset_AssetId},
    {Relation::AssetsAsset_ByAssetId, Template::kAsset_CommitId_AssetId},
    {Relation::AssetsAsset_Create, Template::kAssetsHEADCreate},
    {Relation::Enclosures_ByAssetId, Template::kAsset_AssetIdEnclosures},
    {Relation::AssetsAssetEnclosure_ById, Template::kAsset_AssetIdEnclosureById_EnclosureId},
    {Relation::AssetsAssetEnclosure_ByContentId, Template::kAsset_AssetIdEnclosureByContentId_ContentId},
    {Relation::Transactions, Template::kTransactions},
    {Relation::MediaLocators, Template::kMediaLocatorsAll},
    {Relation::MediaLocator_ByMediaLocatorId, Template::kMediaLocatorsByMediaLocatorId_MediaLocatorId},
    {Relation::MediaLocators_BulkCreate, Template::kMediaLocatorsBulkCreate},
    {Relation::MediaLocators_BulkCreateByLastModified, Template::kMediaLocatorsBulkCreateByLastModified_LastModified},
    {Relation::MediaLocators_BulkUpdate, Template::kMediaLocatorsBulkUpdate},
    {Relation::MediaLocators_BulkDelete, Template::kMediaLocatorsBulkDelete},
    {Relation::Collaborators, Template::kCollaborators},
    {Relation::CollaboratorsActivity, Template::kActivity},
    {Relation::CollaboratorsPresence, Template::kPresence},
    {Relation::Sessions, Template::kSessions},
    {Relation::SessionsSession_Status, Template::kSessionStatus},
    {Relation::SessionsSession_Rollback, Template::kProductionRollback_CommitId},
    {Relation::SessionsSession_IncomingChanges, Template::kShareIncoming},
    {Relation::SessionsSession_OutgoingChanges, Template::kShareOutgoing},
    {Relation::SessionsSession_Pull, Template::kSharePull},
    {Relation::SessionsSession_Push, Template::kSharePush},
};

constexpr LinkRow kTransactionOperations[] = {
    {Relation::Self, Template::kTransaction},
    {Relation::TransactionsTransaction_Commit, Template::kTransactionCommit},
    {Relation::TransactionsTransaction_Rollback, Template::kTransactionRollback},
    {Relation::Bulk_Create, Template::kTransactionBulkCreate},
    {Relation::Bulk_Edit, Template::kTransactionBulkEdit},
    {Relation::Bulk_Delete, Template::kTransactionBulkDelete},
    {Relation::Bulk_Preflight, Template::kTransactionBulkPreflight},
    {Relation::EnclosuresEnclosure_Temporary, Template::kTransactionEnclosures},
};

constexpr LinkRow kTransactionReads[] = {
    {Relation::Assets_Full, Template::kAssets},
    {Relation::Assets_FullCondensed, Template::kAssets_ViewCondensed},
    {Relation::AssetsAsset_ByAssetId, Template::kAsset_CommitId_AssetId},
    {Relation::Edit, Template::kProductionProperties},
};

constexpr LinkRow kAssetLinks[] = {
    {Relation::Self, Template::kAsset},
    {Relation::Enclosures, Template::kAssetEnclosures},
    {Relation::AssetsAssetEnclosure_ByContentId, Template::kAssetEnclosureByContentId_ContentId},
    {Relation::Edit, Template::kAssetProperties},
};

/// What the names of an enclosure's URL are made of.
constexpr std::string_view kWordCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";

template <std::size_t kCount>
void AddRows(LinkMaker& ioMaker, const LinkRow (&inRows)[kCount], std::vector<dto::Link>& outLinks,
             std::string_view inFirst, std::string_view inSecond = {}, std::string_view inThird = {})
{
    for (const LinkRow& row : inRows)
        ioMaker.Add(outLinks, row.mRelation(), row.mFormat, inFirst, inSecond, inThird);
}

}  // namespace

bool IsHead(const ImmutableString& inRevision)
{
    return inRevision == Revision_HEAD();
}

dto::ProductionResource MakeProductionResource(dto::Session inProduction)
{
    dto::ProductionResource resource;
    resource.mProductionID = inProduction.mProductionID;
    resource.mPlexaID = inProduction.mPlexaID;
    resource.mPlexaURN = inProduction.mPlexaURN;
    resource.mLocalOnly = inProduction.mLocalOnly;
    resource.mRopeFileID = inProduction.mRopeFileID;
    resource.mRemoteSharedProductionID = inProduction.mRemoteSharedProductionID;
    resource.mSnapshotRootAssetID = inProduction.mSnapshotRootAssetID;
    resource.mCommitID = inProduction.mRevision;
    resource.mProperties = std::move(inProduction.mProperties);
    resource.mOwner = std::move(inProduction.mOwner);
    return resource;
}

dto::ProductionDescriptor MakeProductionDescriptor(dto::Session inProduction)
{
    dto::ProductionDescriptor descriptor;
    descriptor.mProductionID = inProduction.mProductionID;
    descriptor.mPlexaID = inProduction.mPlexaID;
    descriptor.mPlexaURN = inProduction.mPlexaURN;
    descriptor.mLocalOnly = inProduction.mLocalOnly;
    descriptor.mRopeFileID = inProduction.mRopeFileID;
    descriptor.mRemoteSharedProductionID = inProduction.mRemoteSharedProductionID;
    descriptor.mOwner = std::move(inProduction.mOwner);
    descriptor.mLastModified = inProduction.mModified;
    descriptor.mProperties = std::move(inProduction.mProperties);
    descriptor.mHasBin = inProduction.mHasBin;
    return descriptor;
}

dto::SessionResource MakeSessionResource(dto::Session inSession)
{
    dto::SessionResource resource;
    resource.mSessionID = inSession.mIdentifier;
    resource.mParentProductionID = inSession.mProductionID;
    resource.mLocalOnly = inSession.mLocalOnly;
    resource.mRopeFileID = inSession.mRopeFileID;
    resource.mRemoteSharedProductionID = inSession.mRemoteSharedProductionID;
    resource.mSnapshotRootAssetID = inSession.mSnapshotRootAssetID;
    resource.mCommitID = inSession.mRevision;
    resource.mOwner = std::move(inSession.mOwner);
    resource.mProperties = std::move(inSession.mProperties);
    return resource;
}

dto::SessionDescriptor MakeSessionDescriptor(dto::Session inSession)
{
    dto::SessionDescriptor descriptor;
    descriptor.mSessionID = inSession.mIdentifier;
    descriptor.mOwner = std::move(inSession.mOwner);
    descriptor.mCommitID = inSession.mRevision;
    descriptor.mBaseCommitID = inSession.mProductionRevision;
    descriptor.mRemoteSharedProductionID = inSession.mRemoteSharedProductionID;
    descriptor.mLocalOnly = inSession.mLocalOnly;
    descriptor.mRopeFileID = inSession.mRopeFileID;
    descriptor.mProperties = std::move(inSession.mProperties);
    descriptor.mHasBin = inSession.mHasBin;
    return descriptor;
}

std::string ProductionTag(const dto::Session& inProduction)
{
    return HashPayload(dto::ToJSON(MakeProductionResource(inProduction)));
}

void AddProductionLinks(LinkMaker& ioMaker, const ImmutableString& inProductionID, const ImmutableString& inRevision,
                        std::vector<dto::Link>& outLinks)
{
    AddRows(ioMaker, kProductionLinks, outLinks, inProductionID, inRevision);
    ioMaker.Add(outLinks, Relation::LocalHubSyncJobs_Create(), Template::kJobsControl, VYCL::GetJobType_LocalHubSync(),
                inProductionID);
    ioMaker.Add(outLinks, Relation::LatestVersion(), Template::kProduction, inProductionID, Revision_HEAD());
}

void AddSessionLinks(LinkMaker& ioMaker, const ImmutableString& inProductionID, std::vector<dto::Link>& outLinks)
{
    ioMaker.Add(outLinks, Relation::Self(), Template::kSessions, inProductionID);
    ioMaker.Add(outLinks, Relation::Create(), Template::kProduction, inProductionID, Revision_HEAD());
    ioMaker.Add(outLinks, Relation::LatestVersion(), Template::kProduction, inProductionID, Revision_HEAD());
}

void AddTransactionLinks(LinkMaker& ioMaker, const ImmutableString& inTransactionID, const ImmutableString& inSessionID,
                         const ImmutableString& inRevision, std::vector<dto::Link>& outLinks)
{
    AddRows(ioMaker, kTransactionOperations, outLinks, inTransactionID);
    AddTransactionReadLinks(ioMaker, inSessionID, inRevision, outLinks);
}

void AddTransactionReadLinks(LinkMaker& ioMaker, const ImmutableString& inSessionID, const ImmutableString& inRevision,
                             std::vector<dto::Link>& outLinks)
{
    if (!inSessionID.empty()) AddRows(ioMaker, kTransactionReads, outLinks, inSessionID, inRevision);
}

void AddDifferenceLinks(LinkMaker& ioMaker, const ImmutableString& inProductionID,
                        dto::DifferencesResource& ioDifferences)
{
    const auto sideOf = [&](const ImmutableString& inType) {
        return inType == VYCL::GetDifferenceType_Removed() ? ioDifferences.mLeftSideCommitID
                                                           : ioDifferences.mRightSideCommitID;
    };
    for (auto& asset : ioDifferences.mDifferences.mAssets) {
        asset.mLinks.clear();
        ioMaker.Add(asset.mLinks, Relation::AssetsAsset_ById(), Template::kAsset, inProductionID,
                    sideOf(asset.mDifferenceType), asset.mAssetID);
        if (!asset.mBaseCommitID.empty())
            ioMaker.Add(asset.mLinks, Relation::Edit(), Template::kResolveAsset, inProductionID, asset.mAssetID,
                        ioDifferences.mRightSideCommitID);
    }
    for (auto& enclosure : ioDifferences.mDifferences.mEnclosures) {
        enclosure.mLinks.clear();
        // By its name, where the name can stand in a path of that resource; any other is found in the list.
        if (enclosure.mName.find_first_not_of(kWordCharacters) != std::string::npos || !IsLinkable(enclosure.mName))
            continue;
        ioMaker.Add(enclosure.mLinks, Relation::EnclosuresEnclosure(), Template::kProductionEnclosure, inProductionID,
                    sideOf(enclosure.mDifferenceType), enclosure.mName);
        if (!enclosure.mBaseCommitID.empty())
            ioMaker.Add(enclosure.mLinks, Relation::Edit(), Template::kResolveEnclosure, inProductionID,
                        enclosure.mName, ioDifferences.mRightSideCommitID);
    }
    if (auto& properties = ioDifferences.mDifferences.mProperties) {
        properties->mLinks.clear();
        ioMaker.Add(properties->mLinks, Relation::Related(), Template::kProductionProperties, inProductionID,
                    ioDifferences.mRightSideCommitID);
        if (!properties->mBaseCommitID.empty())
            ioMaker.Add(properties->mLinks, Relation::Edit(), Template::kResolveProperties, inProductionID,
                        ioDifferences.mRightSideCommitID);
    }
}

bool IsConflictStrategy(std::string_view inText)
{
    return VYCL::ResolveStrategyFromString(inText) != VYCL::IVYCServerResource::ResolveStrategy::Unknown;
}

int AnswerSession(const RequestPtr& inRequest, const ResponsePtr& inResponse, int inStatus, URLFormat inLocation,
                  const dto::Session& inSession)
{
    LinkMaker maker(*inRequest);
    auto resource = MakeSessionResource(inSession);
    AddSessionLinks(maker, inSession.mProductionID, resource.mLinks);
    const std::string location = maker.URL(inLocation, inSession.mProductionID, Revision_HEAD());
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    std::string json = dto::ToJSON(resource);
    inResponse->SetHeader(noxnet::kHEADER_Location, location);
    inResponse->SetHeader(noxnet::kHEADER_ETag, HashPayload(json));
    SetPayload(std::move(json), *inResponse);
    return inStatus;
}

int AnswerProduction(const RequestPtr& inRequest, const ResponsePtr& inResponse, int inStatus, bool inWithLocation,
                     const dto::Session& inProduction)
{
    LinkMaker maker(*inRequest);
    auto resource = MakeProductionResource(inProduction);
    AddProductionLinks(maker, inProduction.mProductionID, inProduction.mRevision, resource.mLinks);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    if (inWithLocation) inResponse->SetHeader(noxnet::kHEADER_Location, resource.mLinks.front().mHref);
    inResponse->SetHeader(noxnet::kHEADER_ETag, ProductionTag(inProduction));
    SetPayload(dto::ToJSON(resource), *inResponse);
    return inStatus;
}

int AnswerAsset(const RequestPtr& inRequest, const ResponsePtr& inResponse, const ImmutableString& inProductionID,
                const ImmutableString& inRevision, dto::Asset inAsset)
{
    const bool isKnown = SetEntityTag(*inRequest, inAsset.mEtag, *inResponse);
    if (isKnown && IsRead(*inRequest)) return noxnet::kHTTPStatus_NotModified;
    LinkMaker maker(*inRequest);
    for (dto::Enclosure& enclosure : inAsset.mEnclosures)
        maker.Add(enclosure.mLinks, Relation::Self(), Template::kAssetEnclosureById, inProductionID, inRevision,
                  inAsset.mAssetID, enclosure.mEnclosureID);
    AddRows(maker, kAssetLinks, inAsset.mLinks, inProductionID, inRevision, inAsset.mAssetID);
    maker.Add(inAsset.mLinks, Relation::EnclosuresEnclosure_Create(), Template::kAssetHEADCreateEnclosure,
              inProductionID, inAsset.mAssetID);
    maker.Add(inAsset.mLinks, Relation::LatestVersion(), Template::kAsset, inProductionID, Revision_HEAD(),
              inAsset.mAssetID);
    maker.Add(inAsset.mLinks, Relation::Assets_Restore(), Template::kAssetHEAD_AssetIdRestore_AssetContentId,
              inProductionID);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    SetPayload(dto::ToJSON(inAsset), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub
