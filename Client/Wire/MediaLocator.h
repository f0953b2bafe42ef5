#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/MediaSource.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// The files of a sequence of numbered stills.
struct MediaLocatorStillSequenceParams
{
    ImmutableString mType;
    std::string mPrefix;
    std::string mSuffix;
    int mStartFrame = 0;
    int mEndFrame = 0;
    int mNumDigits = 0;
    bool mLeadingZeroes = false;

    static constexpr auto kFields =
        std::tuple{Always("type", &MediaLocatorStillSequenceParams::mType),
                   Always("prefix", &MediaLocatorStillSequenceParams::mPrefix),
                   Always("suffix", &MediaLocatorStillSequenceParams::mSuffix),
                   Always("startFrame", &MediaLocatorStillSequenceParams::mStartFrame),
                   Always("endFrame", &MediaLocatorStillSequenceParams::mEndFrame),
                   Always("numDigits", &MediaLocatorStillSequenceParams::mNumDigits),
                   Always("leadingZeroes", &MediaLocatorStillSequenceParams::mLeadingZeroes)};
    friend bool operator==(const MediaLocatorStillSequenceParams&, const MediaLocatorStillSequenceParams&) = default;
};

struct VYMediaFileProperties
{
    std::string mFilePath;
    std::int64_t mSize = 0;
    RawValue mCreationTime;
    RawValue mModificationTime;

    static constexpr auto kFields = std::tuple{Always("mFilePath", &VYMediaFileProperties::mFilePath),
                                               Always("mSize", &VYMediaFileProperties::mSize),
                                               Always("mCreationTime", &VYMediaFileProperties::mCreationTime),
                                               Always("mModificationTime", &VYMediaFileProperties::mModificationTime)};
    friend bool operator==(const VYMediaFileProperties&, const VYMediaFileProperties&) = default;
};

struct VYMediaVolumeProperties
{
    std::string mPath;
    std::string mFriendlyName;
    std::string mHostName;
    std::string mNetworkMountURL;
    int mVolumeType = 0;

    static constexpr auto kFields = std::tuple{Always("mPath", &VYMediaVolumeProperties::mPath),
                                               Always("mFriendlyName", &VYMediaVolumeProperties::mFriendlyName),
                                               Always("mHostName", &VYMediaVolumeProperties::mHostName),
                                               Always("mNetworkMountURL", &VYMediaVolumeProperties::mNetworkMountURL),
                                               Always("mVolumeType", &VYMediaVolumeProperties::mVolumeType)};
    friend bool operator==(const VYMediaVolumeProperties&, const VYMediaVolumeProperties&) = default;
};

struct VYLinkedProductionProperties
{
    ImmutableString mLinkedProduction;
    ImmutableString mAssetID;

    static constexpr auto kFields =
        std::tuple{Always("linkedProduction", &VYLinkedProductionProperties::mLinkedProduction),
                   Always("assetId", &VYLinkedProductionProperties::mAssetID)};
    friend bool operator==(const VYLinkedProductionProperties&, const VYLinkedProductionProperties&) = default;
};

struct VYProxyInfo
{
    bool mIsProxy = false;
    ImmutableString mProxyMediaLocatorID;

    static constexpr auto kFields = std::tuple{Always("isProxy", &VYProxyInfo::mIsProxy),
                                               Always("proxyMediaLocatorID", &VYProxyInfo::mProxyMediaLocatorID)};
    friend bool operator==(const VYProxyInfo&, const VYProxyInfo&) = default;
};

struct CMSLink
{
    ImmutableString mCmsID;
    ImmutableString mCmsAssociatedProductionID;

    static constexpr auto kFields = std::tuple{
        Always("cmsId", &CMSLink::mCmsID), Always("cmsAssociatedProductionId", &CMSLink::mCmsAssociatedProductionID)};
    friend bool operator==(const CMSLink&, const CMSLink&) = default;
};

struct CloudStorageEntity
{
    std::string mStorageType;
    std::string mBaseDirectoryPath;
    RawArray mPaths;

    static constexpr auto kFields = std::tuple{Always("storageType", &CloudStorageEntity::mStorageType),
                                               Always("baseDirectoryPath", &CloudStorageEntity::mBaseDirectoryPath),
                                               Always("paths", &CloudStorageEntity::mPaths)};
    friend bool operator==(const CloudStorageEntity&, const CloudStorageEntity&) = default;
};

struct CloudProjectSettings
{
    CloudStorageEntity mCloudProjectStorage;
    RawValue mCopyPolicy;
    bool mShallTranscode = false;
    bool mIsEnabled = false;

    static constexpr auto kFields =
        std::tuple{Always("cloudProjectStorage", &CloudProjectSettings::mCloudProjectStorage),
                   Always("copyPolicy", &CloudProjectSettings::mCopyPolicy),
                   Always("shallTranscode", &CloudProjectSettings::mShallTranscode),
                   Always("isEnabled", &CloudProjectSettings::mIsEnabled)};
    friend bool operator==(const CloudProjectSettings&, const CloudProjectSettings&) = default;
};

struct FileTypeList
{
    std::vector<std::string> mFileExtensions;
    std::string mDescription;

    static constexpr auto kFields = std::tuple{Always("fileExtensions", &FileTypeList::mFileExtensions),
                                               Always("description", &FileTypeList::mDescription)};
    friend bool operator==(const FileTypeList&, const FileTypeList&) = default;
};

/// What a media locator says of its media. Every key is optional.
struct MediaLocatorProperties
{
    std::string mHref;
    std::string mDisplayName;
    std::optional<MediaLocatorStillSequenceParams> mStillSequenceParams;
    std::optional<VYMediaFileProperties> mFileProperties;
    std::optional<VYMediaVolumeProperties> mVolumeProperties;
    std::optional<VYMediaSourceDescription> mMediaSourceDescription;
    RawValue mElementRef;
    RawValue mNimboLibrariesItemInfo;
    RawValue mCollaboratorActivity;
    std::string mMappedFilePath;
    std::optional<VYLinkedProductionProperties> mLinkedProductionProperties;
    ImmutableString mDeviceID;
    std::optional<bool> mIsProxy;
    ImmutableString mProxyMediaLocatorID;
    std::optional<VYProxyInfo> mProxyInfo;
    RawArray mHistoricalLinks;   ///< as the client wrote them
    RawArray mAlternativeLinks;  ///< as the client wrote them
    std::optional<CloudProjectSettings> mCloudProjectSettings;
    std::optional<bool> mNumberedStills;

    static constexpr auto kFields =
        std::tuple{WhenSet("href", &MediaLocatorProperties::mHref),
                   WhenSet("displayName", &MediaLocatorProperties::mDisplayName),
                   WhenSet("stillSequenceParams", &MediaLocatorProperties::mStillSequenceParams),
                   WhenSet("fileProperties", &MediaLocatorProperties::mFileProperties),
                   WhenSet("volumeProperties", &MediaLocatorProperties::mVolumeProperties),
                   WhenSet("mediaSourceDescription", &MediaLocatorProperties::mMediaSourceDescription),
                   WhenSet("mElementRef", &MediaLocatorProperties::mElementRef),
                   WhenSet("nimboLibrariesItemInfo", &MediaLocatorProperties::mNimboLibrariesItemInfo),
                   WhenSet("collaboratorActivity", &MediaLocatorProperties::mCollaboratorActivity),
                   WhenSet("mappedFilePath", &MediaLocatorProperties::mMappedFilePath),
                   WhenSet("linkedProductionProperties", &MediaLocatorProperties::mLinkedProductionProperties),
                   WhenSet("deviceId", &MediaLocatorProperties::mDeviceID),
                   WhenSet("isProxy", &MediaLocatorProperties::mIsProxy),
                   WhenSet("proxyMediaLocatorID", &MediaLocatorProperties::mProxyMediaLocatorID),
                   WhenSet("proxyInfo", &MediaLocatorProperties::mProxyInfo),
                   WhenSet("historicalLinks", &MediaLocatorProperties::mHistoricalLinks),
                   WhenSet("alternativeLinks", &MediaLocatorProperties::mAlternativeLinks),
                   WhenSet("cloudProjectSettings", &MediaLocatorProperties::mCloudProjectSettings),
                   WhenSet("numberedStills", &MediaLocatorProperties::mNumberedStills)};
    friend bool operator==(const MediaLocatorProperties&, const MediaLocatorProperties&) = default;
};

/// Where the media of an asset lies. The properties pass through as they came; MediaLocatorProperties reads them.
struct MediaLocator
{
    ImmutableString mMediaLocatorID;
    RFC3339DateTime mCreated;
    RFC3339DateTime mLastModified;
    std::string mCreatedBy;
    std::string mLastModifiedBy;
    RawJSON mProperties;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("vy:mediaLocatorId", &MediaLocator::mMediaLocatorID),
                                               Always("vy:created", &MediaLocator::mCreated),
                                               Always("vy:lastModified", &MediaLocator::mLastModified),
                                               Always("vy:createdBy", &MediaLocator::mCreatedBy),
                                               Always("vy:lastModifiedBy", &MediaLocator::mLastModifiedBy),
                                               Always("properties", &MediaLocator::mProperties),
                                               Always("links", &MediaLocator::mLinks)};
    friend bool operator==(const MediaLocator&, const MediaLocator&) = default;
};

struct MediaLocatorsResource
{
    std::vector<MediaLocator> mMedialocators;
    RFC3339DateTime mLastModified;

    static constexpr auto kFields = std::tuple{Always("medialocators", &MediaLocatorsResource::mMedialocators),
                                               Always("vy:lastModified", &MediaLocatorsResource::mLastModified)};
    friend bool operator==(const MediaLocatorsResource&, const MediaLocatorsResource&) = default;
};

}  // namespace VantryLocalHub::dto
