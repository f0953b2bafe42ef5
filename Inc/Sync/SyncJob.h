#pragma once

#include <cstdint>
#include <memory>

#include "Client/VYClient/Results.h"
#include "Inc/Sync/SyncRecords.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// One request to move a session's history: in one direction between two revisions, or by work of its own.
///
/// Waits from its construction until Start, runs until Finish; the first Finish counts, and nothing follows it.
/// Threading: any thread. mMutex guards the state (rank SyncJob, the job lock table after it); a job lock is given back
/// after mMutex.
class SyncJob
{
public:
    SyncJob(SyncJobRequest inRequest, std::uint64_t inSequence);

    [[nodiscard]] const Guid& JobID() const { return mJobID; }
    [[nodiscard]] const ImmutableString& SessionID() const { return mSessionID; }
    [[nodiscard]] const JobParams& Params() const { return mParams; }
    [[nodiscard]] std::uint64_t Sequence() const { return mSequence; }

    /// True: the job runs now, and holds its session's lock. False: it has ended already, or somebody else holds the
    /// lock, and it still waits.
    bool Start();
    /// Ends the job. Not negative: the status in its results says how it went. Negative: it failed, or was cancelled
    /// (noxcore::eUserCanceled). The session is free for others when this returns.
    void Finish(VYCL::Result inResult);
    [[nodiscard]] bool IsFinished() const;
    /// Written by whoever does the work, until the end of the job.
    [[nodiscard]] JobResults& Results() const { return *mResults; }
    /// Moves nothing between here and the remote side.
    [[nodiscard]] bool IsLocal() const { return mIsLocal; }
    [[nodiscard]] dto::Job GetDTOJob() const;

private:
    enum class State
    {
        Waiting,  ///< for its turn, or for its session's lock
        Running,
        Finished  ///< mResult says how
    };

    const Guid mJobID;
    const ImmutableString mSessionID;
    const ImmutableString mName;
    const JobParams mParams;
    const std::uint64_t mSequence;
    const RFC3339DateTime mCreated;
    const bool mIsLocal;

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::SyncJob};
    std::shared_ptr<JobLock> mLock GUARDED_BY(mMutex);
    const std::shared_ptr<JobResults> mResults;
    State mState GUARDED_BY(mMutex) = State::Waiting;
    VYCL::Result mResult GUARDED_BY(mMutex) = VYCL::kSuccess;
    RFC3339DateTime mChanged GUARDED_BY(mMutex);  ///< when the state became what it is
};

using SyncJobPtr = std::shared_ptr<SyncJob>;

}  // namespace VantryLocalHub
