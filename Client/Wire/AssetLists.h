#pragma once

#include <span>
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
    /// Takes what the view shows.
    explicit CondensedAsset(const Asset& inAsset)
    {
        mAssetID = inAsset.mAssetID;
        mAssetContentID = inAsset.mAssetContentID;
        mEtag = inAsset.mEtag;
        mRenditions = inAsset.mRenditions;
        mBaseCommitID = inAsset.mBaseCommitID;
        mConflictsWithContentID = inAsset.mConflictsWithContentID;
        mLinks = inAsset.mLinks;
    }

    static constexpr auto kFields = std::tuple{Always("vy:assetId", &Asset::mAssetID),
                                               Always("vy:assetContentId", &Asset::mAssetContentID),
                                               Always("vy:etag", &Asset::mEtag),
                                               Always("renditions", &Asset::mRenditions),
                                               WhenSet("vy:baseCommitId", &Asset::mBaseCommitID),
                                               WhenSet("vy:conflictsWithContentId", &Asset::mConflictsWithContentID),
                                               Always("links", &Asset::mLinks)};
    friend bool operator==(const CondensedAsset&, const CondensedAsset&) = default;
};

/// The assets of a revision, in one view or the other.
template <class List>
struct AssetsResourceOf
{
    List mAssets;
    Stats mStats;
    ImmutableString mEtag;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("assets", &AssetsResourceOf::mAssets), Always("stats", &AssetsResourceOf::mStats),
                   Always("vy:etag", &AssetsResourceOf::mEtag), Always("links", &AssetsResourceOf::mLinks)};
    friend bool operator==(const AssetsResourceOf&, const AssetsResourceOf&) = default;
};
using AssetsResource = AssetsResourceOf<std::vector<Asset>>;
using CondensedAssetsResource = AssetsResourceOf<std::vector<CondensedAsset>>;
/// To write a list that stays where it is.
using AssetsResourceOver = AssetsResourceOf<std::span<const Asset>>;

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
