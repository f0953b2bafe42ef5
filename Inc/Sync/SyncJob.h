#pragma once

#include <cstdint>
#include <memory>

#include "Client/VYClient/Results.h"
#include "Inc/Sync/SyncRecords.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// One request to move a session's history in one direction between two revisions.
///
/// Waits from its construction until Finish; the first Finish counts.
/// Threading: any thread. mMutex guards the state (rank SyncJob); a job lock is given back after mMutex.
class SyncJob
{
public:
    SyncJob(SyncJobRequest inRequest, std::uint64_t inSequence);

    [[nodiscard]] const Guid& JobID() const { return mJobID; }
    [[nodiscard]] const ImmutableString& SessionID() const { return mSessionID; }
    [[nodiscard]] const JobParams& Params() const { return mParams; }
    [[nodiscard]] std::uint64_t Sequence() const { return mSequence; }

    /// Ends the job. Not negative: the status in its results says how it went. Negative: it failed, or was cancelled
    /// (noxcore::eUserCanceled). The session is free for others when this returns.
    void Finish(VYCL::Result inResult);
    [[nodiscard]] bool IsFinished() const;
    [[nodiscard]] dto::Job GetDTOJob() const;

private:
    const Guid mJobID;
    const ImmutableString mSessionID;
    const ImmutableString mName;
    const JobParams mParams;
    const std::uint64_t mSequence;
    const RFC3339DateTime mCreated;

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::SyncJob};
    std::shared_ptr<JobLock> mLock GUARDED_BY(mMutex);
    const std::shared_ptr<JobResults> mResults;
    bool mFinished GUARDED_BY(mMutex) = false;
    VYCL::Result mResult GUARDED_BY(mMutex) = VYCL::kSuccess;
    RFC3339DateTime mChanged GUARDED_BY(mMutex);
};

using SyncJobPtr = std::shared_ptr<SyncJob>;

}  // namespace VantryLocalHub
