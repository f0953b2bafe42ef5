#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/History.h"
#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// What a session keeps about one thing that is in conflict.
struct ConflictMarker
{
    ImmutableString mBaseCommitID;            ///< common base when the conflict arose
    ImmutableString mConflictsWithContentID;  ///< content of the other side

    static constexpr auto kFields =
        std::tuple{Always("vy:baseCommitId", &ConflictMarker::mBaseCommitID),
                   Always("vy:conflictsWithContentId", &ConflictMarker::mConflictsWithContentID)};
    friend bool operator==(const ConflictMarker&, const ConflictMarker&) = default;
};

struct AssetDifference
{
    ImmutableString mAssetID;
    ImmutableString mDifferenceType;
    ImmutableString mConflictsWithContentID;
    ImmutableString mBaseCommitID;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{
        Always("vy:assetId", &AssetDifference::mAssetID),
        Always("vy:differenceType", &AssetDifference::mDifferenceType),
        WhenSet("vy:conflictsWithContentId", &AssetDifference::mConflictsWithContentID),
        WhenSet("vy:baseCommitId", &AssetDifference::mBaseCommitID), Always("links", &AssetDifference::mLinks)};
    friend bool operator==(const AssetDifference&, const AssetDifference&) = default;
};

struct EnclosureDifference
{
    std::string mName;
    ImmutableString mDifferenceType;
    ImmutableString mConflictsWithContentID;
    ImmutableString mBaseCommitID;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{
        Always("vy:name", &EnclosureDifference::mName),
        Always("vy:differenceType", &EnclosureDifference::mDifferenceType),
        WhenSet("vy:conflictsWithContentId", &EnclosureDifference::mConflictsWithContentID),
        WhenSet("vy:baseCommitId", &EnclosureDifference::mBaseCommitID), Always("links", &EnclosureDifference::mLinks)};
    friend bool operator==(const EnclosureDifference&, const EnclosureDifference&) = default;
};

/// A change of the session's own properties.
struct PropertiesDifference
{
    ImmutableString mDifferenceType;
    ImmutableString mConflictsWithContentID;
    ImmutableString mBaseCommitID;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("vy:differenceType", &PropertiesDifference::mDifferenceType),
                   WhenSet("vy:conflictsWithContentId", &PropertiesDifference::mConflictsWithContentID),
                   WhenSet("vy:baseCommitId", &PropertiesDifference::mBaseCommitID),
                   Always("links", &PropertiesDifference::mLinks)};
    friend bool operator==(const PropertiesDifference&, const PropertiesDifference&) = default;
};

struct DifferenceLists
{
    std::vector<AssetDifference> mAssets;
    std::vector<EnclosureDifference> mEnclosures;
    std::optional<PropertiesDifference> mProperties;

    static constexpr auto kFields =
        std::tuple{Always("assets", &DifferenceLists::mAssets), Always("enclosures", &DifferenceLists::mEnclosures),
                   WhenSet("properties", &DifferenceLists::mProperties)};
    friend bool operator==(const DifferenceLists&, const DifferenceLists&) = default;
};

/// What differs between two revisions.
struct DifferencesResource
{
    ImmutableString mLeftSideCommitID;
    ImmutableString mRightSideCommitID;
    HistoryInfo mInfo;
    DifferenceLists mDifferences;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("leftSideCommitId", &DifferencesResource::mLeftSideCommitID),
                                               Always("rightSideCommitId", &DifferencesResource::mRightSideCommitID),
                                               Always("info", &DifferencesResource::mInfo),
                                               Always("differences", &DifferencesResource::mDifferences),
                                               Always("links", &DifferencesResource::mLinks)};
    friend bool operator==(const DifferencesResource&, const DifferencesResource&) = default;
};

/// Answer to a pull or push of shared changes.
struct ShareResult
{
    ImmutableString mCommitID;
    std::string mPushResult;
    ImmutableString mSessionID;
    ImmutableString mBaseCommitID;

    static constexpr auto kFields = std::tuple{
        Always("vy:commitId", &ShareResult::mCommitID), Always("vy:pushResult", &ShareResult::mPushResult),
        Always("vy:sessionId", &ShareResult::mSessionID), Always("vy:baseCommitId", &ShareResult::mBaseCommitID)};
    static constexpr bool kMayBeWrapped = true;
    friend bool operator==(const ShareResult&, const ShareResult&) = default;
};

}  // namespace VantryLocalHub::dto
