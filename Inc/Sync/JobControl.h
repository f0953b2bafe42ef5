#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Inc/Sync/SyncBox.h"
#include "Inc/Sync/SyncJob.h"
#include "Inc/Sync/SyncJobQueue.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/ExpiringEntryMap.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// Decides when a session's history moves: takes requests for jobs, knows which are pending and running, and remembers
/// for ten minutes how each of them ended.
///
/// A job that does its work here runs at once, on the thread that asks for it. Any other request is refused unless the
/// session has a remote side that it could be exchanged with; without a duplicator to give it to, one that passes all
/// tests is answered with 501.
/// Threading: any thread. mMutex guards the jobs (rank JobControl, before a SyncJob's); a job is ended after it was
/// given back. A job goes from the unfinished to the finished ones under mMutex, so that a list has it exactly once.
class JobControl : public virtual SyncBox
{
public:
    JobControl();

    std::vector<dto::Job> GetSyncJobs() override;
    std::vector<dto::Job> GetSyncJobs(const ImmutableString& inSessionID) override;
    std::size_t GetUnfinishedSyncJobCount() override;
    int RequestSyncJob(const SyncJobRequest& inRequest, dto::Job& outJob) override;
    int FindMatchingRunningSyncJob(const ImmutableString& inSessionID, const JobParams& inParams,
                                   dto::Job& outJob) override;
    bool AcquireJobLock(const ImmutableString& inSessionID, const Guid& inJobID, std::string_view inRequester,
                        JobCategory inCategory, std::shared_ptr<JobLock>& outLock) override;
    int ChangeSyncJobState(const Guid& inJobID, const ImmutableString& inNewState, dto::Job& outJob) override;
    void TerminateSyncJobsForSession(const ImmutableString& inSessionID) override;

    /// Ends all jobs as cancelled; none is accepted afterwards (424). Returns when job work has stopped.
    void TerminateSyncJobs();

protected:
    /// Takes a job into the queue of those that wait. False once all jobs have been ended: none is taken any more.
    bool AddJob(SyncJobPtr inJob);

private:
    using FinishedJobs = noxcore::utility::ExpiringEntryMap<Guid, SyncJob>;

    std::vector<SyncJobPtr> AllJobs();
    SyncJobPtr FindJob(const Guid& inJobID);
    /// 201 with the ended job; 412: somebody else holds the session's lock.
    int RunLocalJob(const SyncJobRequest& inRequest, dto::Job& outJob);
    /// Takes jobs that are pending or running out of these, for their end, and puts them with the finished ones.
    std::vector<SyncJobPtr> TakeJobs(const std::function<bool(const SyncJob&)>& inTest);

    const std::shared_ptr<noxcore::threads::Executor> mExecutor;  ///< width 1: all job work
    const std::shared_ptr<FinishedJobs> mFinishedJobs;            ///< how jobs ended, for ten minutes
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::JobControl};
    SyncJobQueue mPendingJobs GUARDED_BY(mMutex);
    std::vector<SyncJobPtr> mRunningJobs GUARDED_BY(mMutex);  // in the order of their start
    std::uint64_t mLastSequence GUARDED_BY(mMutex) = 0;
};

}  // namespace VantryLocalHub
