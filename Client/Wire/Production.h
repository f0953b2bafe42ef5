#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// A production in a list of productions.
struct ProductionDescriptor
{
    ImmutableString mProductionID;
    ImmutableString mPlexaID;
    ImmutableString mPlexaURN;
    bool mLocalOnly = false;
    ImmutableString mRopeFileID;  ///< only of a single-file project
    ImmutableString mRemoteSharedProductionID;
    std::string mOwner;
    RFC3339DateTime mLastModified;
    RawJSON mProperties;
    bool mHasBin = false;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("vy:productionId", &ProductionDescriptor::mProductionID),
                   WhenSet("plexaId", &ProductionDescriptor::mPlexaID),
                   WhenSet("plexaUrn", &ProductionDescriptor::mPlexaURN),
                   WhenTrue("localhub:localOnly", &ProductionDescriptor::mLocalOnly),
                   WhenSet("localhub:ropeFileId", &ProductionDescriptor::mRopeFileID),
                   WhenSet("localhub:remoteSharedProductionId", &ProductionDescriptor::mRemoteSharedProductionID),
                   WhenSet("owner", &ProductionDescriptor::mOwner),
                   Always("vy:lastModified", &ProductionDescriptor::mLastModified),
                   Always("properties", &ProductionDescriptor::mProperties),
                   Always("hasBin", &ProductionDescriptor::mHasBin),
                   Always("links", &ProductionDescriptor::mLinks)};
    friend bool operator==(const ProductionDescriptor&, const ProductionDescriptor&) = default;
};

/// One production at one revision.
struct ProductionResource
{
    ImmutableString mProductionID;
    ImmutableString mPlexaID;
    ImmutableString mPlexaURN;
    bool mLocalOnly = false;
    ImmutableString mRopeFileID;  ///< only of a single-file project
    ImmutableString mRemoteSharedProductionID;
    ImmutableString mSnapshotRootAssetID;
    ImmutableString mCommitID;
    RawJSON mProperties;
    std::string mOwner;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("vy:productionId", &ProductionResource::mProductionID),
                   WhenSet("plexaId", &ProductionResource::mPlexaID),
                   WhenSet("plexaUrn", &ProductionResource::mPlexaURN),
                   WhenTrue("localhub:localOnly", &ProductionResource::mLocalOnly),
                   WhenSet("localhub:ropeFileId", &ProductionResource::mRopeFileID),
                   WhenSet("localhub:remoteSharedProductionId", &ProductionResource::mRemoteSharedProductionID),
                   WhenSet("localhub:snapshotRootAssetId", &ProductionResource::mSnapshotRootAssetID),
                   Always("vy:commitId", &ProductionResource::mCommitID),
                   Always("properties", &ProductionResource::mProperties),
                   WhenSet("owner", &ProductionResource::mOwner),
                   Always("links", &ProductionResource::mLinks)};
    friend bool operator==(const ProductionResource&, const ProductionResource&) = default;
};

/// A list of productions, of archived productions or of templates.
struct ProductionsResource
{
    std::vector<ProductionDescriptor> mProductions;
    Stats mStats;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("productions", &ProductionsResource::mProductions),
                   Always("stats", &ProductionsResource::mStats), Always("links", &ProductionsResource::mLinks)};
    friend bool operator==(const ProductionsResource&, const ProductionsResource&) = default;
};

/// The properties of a production at one revision.
struct ProductionPropertiesResource
{
    RawJSON mProperties;
    ImmutableString mEtag;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("properties", &ProductionPropertiesResource::mProperties),
                                               Always("vy:etag", &ProductionPropertiesResource::mEtag),
                                               Always("links", &ProductionPropertiesResource::mLinks)};
    friend bool operator==(const ProductionPropertiesResource&, const ProductionPropertiesResource&) = default;
};

}  // namespace VantryLocalHub::dto
