#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// The keys of an asset's properties that the hub knows. The properties themselves are stored and handed on as they
/// came; this record is read from them where the engine needs more than AssetTraits.
struct AssetProperties
{
    std::string mName;
    ImmutableString mMediaLocator;
    ImmutableString mParent;  ///< asset id of the bin that holds it
    std::optional<bool> mBoundaryIsHard;
    RawJSON mSubClip;
    ImmutableString mAssetType;
    RawJSON mProjectItemProperties;
    std::vector<ImmutableString> mMergedClipAndProxyMediaLocators;
    std::vector<ImmutableString> mDependentAssetIDs;
    std::optional<bool> mIsMulticamEnabled;
    std::optional<bool> mIsMergedClip;
    std::optional<bool> mIsLinkedProduction;
    std::optional<bool> mIsSharedProject;
    std::optional<bool> mIsXRefClip;
    std::string mSmartBinQuery;
    std::optional<int> mRepositoryVersion;
    RawJSON mClientSerializationVersions;

    static constexpr auto kFields =
        std::tuple{WhenSet("name", &AssetProperties::mName),
                   WhenSet("mediaLocator", &AssetProperties::mMediaLocator),
                   WhenSet("vy:parent", &AssetProperties::mParent),
                   WhenSet("mBoundaryIsHard", &AssetProperties::mBoundaryIsHard),
                   WhenSet("subClip", &AssetProperties::mSubClip),
                   WhenSet("lumo:assetType", &AssetProperties::mAssetType),
                   WhenSet("projectItemProperties", &AssetProperties::mProjectItemProperties),
                   WhenSet("mergedClipAndProxyMediaLocators", &AssetProperties::mMergedClipAndProxyMediaLocators),
                   WhenSet("dependentAssetIDs", &AssetProperties::mDependentAssetIDs),
                   WhenSet("isMulticamEnabled", &AssetProperties::mIsMulticamEnabled),
                   WhenSet("isMergedClip", &AssetProperties::mIsMergedClip),
                   WhenSet("isLinkedProduction", &AssetProperties::mIsLinkedProduction),
                   WhenSet("isSharedProject", &AssetProperties::mIsSharedProject),
                   WhenSet("isXRefClip", &AssetProperties::mIsXRefClip),
                   WhenSet("smartBinQuery", &AssetProperties::mSmartBinQuery),
                   WhenSet("repositoryVersion", &AssetProperties::mRepositoryVersion),
                   WhenSet("clientSerializationVersions", &AssetProperties::mClientSerializationVersions)};
    friend bool operator==(const AssetProperties&, const AssetProperties&) = default;
};

/// What the store asks of every asset: cheap to read, for whole lists are counted and filtered by it.
struct AssetTraits
{
    std::string mName;
    ImmutableString mParent;
    ImmutableString mAssetType;
    ImmutableString mMediaLocator;
};

/// Reads the traits from properties as they are stored. A key that is absent or no string leaves its trait empty.
[[nodiscard]] AssetTraits ReadAssetTraits(const RawJSON& inProperties);

}  // namespace VantryLocalHub::dto
