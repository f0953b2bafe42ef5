#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

struct Rendition
{
    ImmutableString mRenditionID;
    ImmutableString mRenditionContentID;
    ImmutableString mMimeType;
    RawJSON mProperties;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{
        Always("vy:renditionId", &Rendition::mRenditionID),
        Always("vy:renditionContentId", &Rendition::mRenditionContentID), Always("vy:mimeType", &Rendition::mMimeType),
        Always("properties", &Rendition::mProperties), Always("links", &Rendition::mLinks)};
    friend bool operator==(const Rendition&, const Rendition&) = default;
};

/// A named payload of an asset or of a production, without the payload.
struct Enclosure
{
    ImmutableString mEnclosureID;
    ImmutableString mEnclosureContentID;  ///< id of the payload
    ImmutableString mDataContentID;       ///< the same
    std::string mName;
    RawJSON mProperties;
    std::vector<Rendition> mRenditions;
    ImmutableString mBaseCommitID;            ///< of an enclosure in conflict: the common base
    ImmutableString mConflictsWithContentID;  ///< of an enclosure in conflict: content of the other side
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("vy:enclosureId", &Enclosure::mEnclosureID),
                   Always("vy:enclosureContentId", &Enclosure::mEnclosureContentID),
                   Always("vy:dataContentId", &Enclosure::mDataContentID),
                   Always("name", &Enclosure::mName),
                   Always("properties", &Enclosure::mProperties),
                   Always("renditions", &Enclosure::mRenditions),
                   WhenSet("vy:baseCommitId", &Enclosure::mBaseCommitID),
                   WhenSet("vy:conflictsWithContentId", &Enclosure::mConflictsWithContentID),
                   Always("links", &Enclosure::mLinks)};
    friend bool operator==(const Enclosure&, const Enclosure&) = default;
};

/// A payload that a user keeps with a session, without the payload. It has no history.
struct UserEnclosure
{
    ImmutableString mEtag;
    ImmutableString mEnclosureContentID;
    ImmutableString mEnclosureID;
    ImmutableString mDataContentID;
    std::string mName;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("vy:etag", &UserEnclosure::mEtag),
                                               Always("vy:enclosureContentId", &UserEnclosure::mEnclosureContentID),
                                               Always("vy:enclosureId", &UserEnclosure::mEnclosureID),
                                               Always("vy:dataContentId", &UserEnclosure::mDataContentID),
                                               Always("name", &UserEnclosure::mName),
                                               Always("links", &UserEnclosure::mLinks)};
    friend bool operator==(const UserEnclosure&, const UserEnclosure&) = default;
};

/// One asset at one revision. The properties are opaque here; AssetProperties.h reads what the hub needs of them.
struct Asset
{
    ImmutableString mAssetID;         ///< stable identity
    ImmutableString mAssetContentID;  ///< identity of this content; changes with each edit
    ImmutableString mEtag;
    RawJSON mProperties;
    std::vector<Enclosure> mEnclosures;
    std::vector<Rendition> mRenditions;
    ImmutableString mBaseCommitID;            ///< of an asset in conflict: the common base
    ImmutableString mConflictsWithContentID;  ///< of an asset in conflict: content of the other side
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("vy:assetId", &Asset::mAssetID),
                                               Always("vy:assetContentId", &Asset::mAssetContentID),
                                               Always("vy:etag", &Asset::mEtag),
                                               Always("properties", &Asset::mProperties),
                                               Always("enclosures", &Asset::mEnclosures),
                                               Always("renditions", &Asset::mRenditions),
                                               WhenSet("vy:baseCommitId", &Asset::mBaseCommitID),
                                               WhenSet("vy:conflictsWithContentId", &Asset::mConflictsWithContentID),
                                               Always("links", &Asset::mLinks)};
    friend bool operator==(const Asset&, const Asset&) = default;
};

}  // namespace VantryLocalHub::dto
