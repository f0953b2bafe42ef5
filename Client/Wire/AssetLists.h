#pragma once

#include <tuple>
#include <vector>

#include "Client/Wire/Asset.h"
#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// An asset as the condensed view shows it: the same without properties and enclosures.
struct CondensedAsset : Asset
{
    CondensedAsset() = default;
    explicit CondensedAsset(Asset inAsset) : Asset(std::move(inAsset)) {}

    static constexpr auto kFields = std::tuple{Always("vy:assetId", &Asset::mAssetID),
                                               Always("vy:assetContentId", &Asset::mAssetContentID),
                                               Always("vy:etag", &Asset::mEtag),
                                               Always("renditions", &Asset::mRenditions),
                                               WhenSet("vy:baseCommitId", &Asset::mBaseCommitID),
                                               WhenSet("vy:conflictsWithContentId", &Asset::mConflictsWithContentID),
                                               Always("links", &Asset::mLinks)};
    friend bool operator==(const CondensedAsset&, const CondensedAsset&) = default;
};

/// The assets of a revision.
struct AssetsResource
{
    std::vector<Asset> mAssets;
    Stats mStats;
    ImmutableString mEtag;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("assets", &AssetsResource::mAssets), Always("stats", &AssetsResource::mStats),
                   Always("vy:etag", &AssetsResource::mEtag), Always("links", &AssetsResource::mLinks)};
    friend bool operator==(const AssetsResource&, const AssetsResource&) = default;
};

/// The assets of a revision in the condensed view.
struct CondensedAssetsResource
{
    std::vector<CondensedAsset> mAssets;
    Stats mStats;
    ImmutableString mEtag;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{
        Always("assets", &CondensedAssetsResource::mAssets), Always("stats", &CondensedAssetsResource::mStats),
        Always("vy:etag", &CondensedAssetsResource::mEtag), Always("links", &CondensedAssetsResource::mLinks)};
    friend bool operator==(const CondensedAssetsResource&, const CondensedAssetsResource&) = default;
};

/// The enclosures of an asset or of a production.
struct EnclosuresResource
{
    std::vector<Enclosure> mEnclosures;
    Stats mStats;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("enclosures", &EnclosuresResource::mEnclosures), Always("stats", &EnclosuresResource::mStats),
                   Always("links", &EnclosuresResource::mLinks)};
    friend bool operator==(const EnclosuresResource&, const EnclosuresResource&) = default;
};

/// The enclosures that a user keeps with a session.
struct UserEnclosuresResource
{
    std::vector<UserEnclosure> mEnclosures;
    Stats mStats;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("enclosures", &UserEnclosuresResource::mEnclosures),
                   Always("stats", &UserEnclosuresResource::mStats), Always("links", &UserEnclosuresResource::mLinks)};
    friend bool operator==(const UserEnclosuresResource&, const UserEnclosuresResource&) = default;
};

}  // namespace VantryLocalHub::dto
