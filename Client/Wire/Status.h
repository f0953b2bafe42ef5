#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// The sync state of a session.
struct SyncStatusResource
{
    std::string mServerURL;
    ImmutableString mState;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("serverURL", &SyncStatusResource::mServerURL), Always("state", &SyncStatusResource::mState),
                   Always("links", &SyncStatusResource::mLinks)};
    friend bool operator==(const SyncStatusResource&, const SyncStatusResource&) = default;
};

/// The sync states of all linked sessions.
struct SyncStatusList
{
    std::vector<SyncStatusResource> mSyncStatus;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("syncStatus", &SyncStatusList::mSyncStatus), Always("links", &SyncStatusList::mLinks)};
    friend bool operator==(const SyncStatusList&, const SyncStatusList&) = default;
};

/// How far a session has been exchanged with its server.
struct SessionSyncStatus
{
    ImmutableString mLatestSyncPoint;
    ImmutableString mTargetSyncPoint;
    ImmutableString mState;
    double mProgress = 0;
    ImmutableString mLock;

    static constexpr auto kFields = std::tuple{
        Always("latestSyncPoint", &SessionSyncStatus::mLatestSyncPoint),
        Always("targetSyncPoint", &SessionSyncStatus::mTargetSyncPoint), Always("state", &SessionSyncStatus::mState),
        Always("progress", &SessionSyncStatus::mProgress), Always("lock", &SessionSyncStatus::mLock)};
    friend bool operator==(const SessionSyncStatus&, const SessionSyncStatus&) = default;
};

struct EtagStatus
{
    ImmutableString mEtag;

    static constexpr auto kFields = std::tuple{Always("vy:etag", &EtagStatus::mEtag)};
    friend bool operator==(const EtagStatus&, const EtagStatus&) = default;
};

struct SessionEtagStatus
{
    ImmutableString mEtag;
    RFC3339DateTime mLastModified;

    static constexpr auto kFields = std::tuple{Always("vy:etag", &SessionEtagStatus::mEtag),
                                               Always("vy:lastModified", &SessionEtagStatus::mLastModified)};
    friend bool operator==(const SessionEtagStatus&, const SessionEtagStatus&) = default;
};

struct MediaLocatorsStatus
{
    ImmutableString mEtag;
    RFC3339DateTime mLastModified;  ///< as a remote hub sends it

    static constexpr auto kFields = std::tuple{Always("vy:etag", &MediaLocatorsStatus::mEtag),
                                               ReadOnly("vy:lastModified", &MediaLocatorsStatus::mLastModified)};
    friend bool operator==(const MediaLocatorsStatus&, const MediaLocatorsStatus&) = default;
};

/// The tags of all that a client watches of a session.
struct SessionStatus
{
    EtagStatus mProduction;
    SessionEtagStatus mSession;
    MediaLocatorsStatus mMediaLocators;
    EtagStatus mUserEnclosures;
    ImmutableString mStatus;  ///< sync state

    static constexpr auto kFields = std::tuple{
        Always("production", &SessionStatus::mProduction), Always("session", &SessionStatus::mSession),
        Always("mediaLocators", &SessionStatus::mMediaLocators),
        Always("userEnclosures", &SessionStatus::mUserEnclosures), Always("status", &SessionStatus::mStatus)};
    friend bool operator==(const SessionStatus&, const SessionStatus&) = default;
};

}  // namespace VantryLocalHub::dto
