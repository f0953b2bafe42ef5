#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Client/Wire/Discovery.h"
#include "Client/Wire/Job.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBoxSyncDb.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/ImmutableString.h"

namespace VYCL {
class CompoundAsyncOperation;
class IVYCDataServer;
class IVYCEditingSession;
class IVYCProduction;
}  // namespace VYCL

namespace VantryLocalHub {

using noxcore::utility::Guid;
using noxcore::utility::ImmutableString;

using DataServerRef = std::shared_ptr<VYCL::IVYCDataServer>;
using ProductionRef = std::shared_ptr<VYCL::IVYCProduction>;
using EditingSessionRef = std::shared_ptr<VYCL::IVYCEditingSession>;
using CompoundAsyncOperationRef = std::shared_ptr<VYCL::CompoundAsyncOperation>;

/// How a session stands with its remote side.
struct SyncStatus
{
    ImmutableString mServerURL;                                    ///< empty where the session has no remote side
    ImmutableString mState = VYCL::LocalHub::SyncState_Unknown();  ///< one of the sync states
    SyncPoint mSyncPoint;                                          ///< the latest; empty where there is none
    ImmutableString mRemoteSessionID;                              ///< of mSyncPoint
    ImmutableString mTargetRemoteRevision;                         ///< where the remote side stands
    ImmutableString mLocalSessionID;
    ImmutableString mTargetLocalRevision;  ///< where the local side stands
    std::vector<dto::Limit> mLimits;       ///< what the server takes in one request

    friend bool operator==(const SyncStatus&, const SyncStatus&) = default;
};

/// What a sync job is to do.
struct JobParams : dto::SyncJobParameters
{
    bool mForce = false;  ///< run even where nothing is known to have changed

    [[nodiscard]] bool HasMediaLocatorIDs() const { return mMediaLocatorIDs.has_value(); }
    friend bool operator==(const JobParams&, const JobParams&) = default;
};

/// What a job hands to whoever asked for it. Written by the job until it has ended, read after.
struct JobResults
{
    int mStatus = 500;  ///< 304 for nothing to do
    bool mDidAutoShare = false;
    ImmutableString mLocalRevision;  ///< the session's at the end
};

/// Keeps everybody else's jobs away from one session, for as long as it is held.
class JobLock
{
public:
    virtual ~JobLock() = default;
    [[nodiscard]] virtual const Guid& JobID() const = 0;
};

/// What a job lock is for: history and user enclosures of one session may move at the same time.
enum class JobCategory
{
    History = 0,
    UserEnclosures = 1
};

/// A job as it is asked for.
struct SyncJobRequest
{
    ImmutableString mSessionID;
    ImmutableString mName;  ///< the session's, for the log
    JobParams mParams;
    std::shared_ptr<JobResults> mResults;
    std::shared_ptr<JobLock> mLock;        ///< null: the job takes its own when it starts
    CompoundAsyncOperationRef mOperation;  ///< null: the job runs for itself
    Guid mJobID;
    /// What the job does here, under mLock, with the status as its result; empty: it moves history between here and the
    /// remote side. Work that has begun is not cancelled.
    std::function<int()> mLocalWork;
};

/// One decision on a thing in conflict.
struct ConflictDecision
{
    ImmutableString mID;  ///< asset or enclosure; empty for the session's properties
    ImmutableString mLocalRevision;
    ImmutableString mConflictBaseRevision;
    ImmutableString mConflictContentHash;
    ImmutableString mContentHash;
    ImmutableString mDecision;  ///< "accept-theirs" or "accept-yours"
};

/// The decisions of one resolve request.
struct BulkConflicts
{
    std::vector<ConflictDecision> mAssets;
    std::vector<ConflictDecision> mProductionEnclosures;
    std::optional<ConflictDecision> mProductionPropertiesConflict;

    [[nodiscard]] bool empty() const
    {
        return mAssets.empty() && mProductionEnclosures.empty() && !mProductionPropertiesConflict;
    }
};

}  // namespace VantryLocalHub
