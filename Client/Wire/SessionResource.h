#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// One session.
struct SessionResource
{
    ImmutableString mSessionID;
    ImmutableString mParentProductionID;
    bool mLocalOnly = false;
    ImmutableString mRopeFileID;  ///< only of a single-file project
    ImmutableString mRemoteSharedProductionID;
    ImmutableString mSnapshotRootAssetID;
    ImmutableString mCommitID;
    std::string mOwner;
    RawJSON mProperties;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("vy:sessionId", &SessionResource::mSessionID),
                   Always("vy:parentProductionId", &SessionResource::mParentProductionID),
                   WhenTrue("localhub:localOnly", &SessionResource::mLocalOnly),
                   WhenSet("localhub:ropeFileId", &SessionResource::mRopeFileID),
                   WhenSet("localhub:remoteSharedProductionId", &SessionResource::mRemoteSharedProductionID),
                   WhenSet("localhub:snapshotRootAssetId", &SessionResource::mSnapshotRootAssetID),
                   Always("vy:commitId", &SessionResource::mCommitID),
                   WhenSet("owner", &SessionResource::mOwner),
                   Always("properties", &SessionResource::mProperties),
                   Always("links", &SessionResource::mLinks)};
    friend bool operator==(const SessionResource&, const SessionResource&) = default;
};

/// A session in a list of sessions.
struct SessionDescriptor
{
    ImmutableString mSessionID;
    std::string mOwner;
    ImmutableString mCommitID;      ///< head of the session
    ImmutableString mBaseCommitID;  ///< head of what is shared
    ImmutableString mRemoteSharedProductionID;
    bool mLocalOnly = false;
    ImmutableString mRopeFileID;  ///< only of a single-file project
    RawJSON mProperties;
    bool mHasBin = false;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("vy:sessionId", &SessionDescriptor::mSessionID),
                   WhenSet("owner", &SessionDescriptor::mOwner),
                   Always("vy:commitId", &SessionDescriptor::mCommitID),
                   Always("vy:baseCommitId", &SessionDescriptor::mBaseCommitID),
                   WhenSet("localhub:remoteSharedProductionId", &SessionDescriptor::mRemoteSharedProductionID),
                   WhenTrue("localhub:localOnly", &SessionDescriptor::mLocalOnly),
                   WhenSet("localhub:ropeFileId", &SessionDescriptor::mRopeFileID),
                   Always("properties", &SessionDescriptor::mProperties),
                   Always("hasBin", &SessionDescriptor::mHasBin),
                   Always("links", &SessionDescriptor::mLinks)};
    friend bool operator==(const SessionDescriptor&, const SessionDescriptor&) = default;
};

/// The sessions of a production.
struct SessionsResource
{
    std::vector<SessionDescriptor> mSessions;
    Stats mStats;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("sessions", &SessionsResource::mSessions), Always("stats", &SessionsResource::mStats),
                   Always("links", &SessionsResource::mLinks)};
    friend bool operator==(const SessionsResource&, const SessionsResource&) = default;
};

}  // namespace VantryLocalHub::dto
