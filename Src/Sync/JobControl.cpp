#include "Inc/Sync/JobControl.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Inc/Model/ProjectBox.h"
#include "Inc/Sync/JobLockTable.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Src/Sync/JobValidation.h"

namespace VantryLocalHub {

using namespace noxcore::logging;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::string_view kCategory = "HubSync";
constexpr unsigned kFinishedJobLifetimeSeconds = 600;
constexpr unsigned kFinishedJobSweepSeconds = 120;

std::vector<dto::Job> ToDTO(const std::vector<SyncJobPtr>& inJobs)
{
    std::vector<dto::Job> jobs;
    jobs.reserve(inJobs.size());
    for (const auto& job : inJobs)
        jobs.push_back(job->GetDTOJob());
    return jobs;
}

void Cancel(const std::vector<SyncJobPtr>& inJobs)
{
    for (const auto& job : inJobs)
        job->Finish(noxcore::eUserCanceled);
}

int RefuseAfterTheEnd(const ImmutableString& inSessionID)
{
    LogWarning(kCategory, "JobControl has been terminated: sync job request failed",
               {{"localSessionID", inSessionID.View()}});
    return noxnet::kHTTPStatus_FailedDependency;
}

/// The revision at which the remote session is asked for.
ImmutableString RemoteRevisionFor(const JobParams& inParams, const SyncStatus& inStatus)
{
    if (inParams.HasMediaLocatorIDs() || inParams.mUserEnclosures) {
        const ImmutableString& remote = inStatus.mSyncPoint.mRemoteRevision;
        return remote.empty() ? VYCL::LocalHub::Revision_HEAD() : remote;
    }
    return inParams.mDirection == VYCL::LocalHub::SyncDirection_Pull() ? inParams.mToRevision
                                                                       : VYCL::LocalHub::Revision_HEAD();
}

/// Two jobs of one session that move the same history.
bool IsSameWork(const JobParams& inLeft, const JobParams& inRight)
{
    return inLeft.mDirection == inRight.mDirection && inLeft.mFromRevision == inRight.mFromRevision &&
           inLeft.mToRevision == inRight.mToRevision && inLeft.mMediaLocatorIDs == inRight.mMediaLocatorIDs &&
           !inLeft.mUserEnclosures && !inRight.mUserEnclosures;
}

}  // namespace

JobControl::JobControl()
    : mExecutor(noxcore::threads::CreateSubExecutor(noxcore::threads::IOBoundExecutor(), 1)),
      mFinishedJobs(FinishedJobs::Create(mExecutor, kFinishedJobLifetimeSeconds, kFinishedJobSweepSeconds))
{
}

bool JobControl::AddJob(SyncJobPtr inJob)
{
    const ScopedLock lock(mMutex);
    if (mExecutor->IsShuttingDown()) return false;
    mPendingJobs.Add(std::move(inJob));
    return true;
}

std::vector<SyncJobPtr> JobControl::AllJobs()
{
    const ScopedLock lock(mMutex);
    std::vector<SyncJobPtr> jobs = mRunningJobs;
    jobs.insert(jobs.end(), mPendingJobs.Jobs().begin(), mPendingJobs.Jobs().end());
    const auto finished = mFinishedJobs->Entries();
    jobs.insert(jobs.end(), finished.begin(), finished.end());
    return jobs;
}

SyncJobPtr JobControl::FindJob(const Guid& inJobID)
{
    const auto jobs = AllJobs();
    const auto found = std::ranges::find(jobs, inJobID, [](const SyncJobPtr& inJob) { return inJob->JobID(); });
    return found == jobs.end() ? nullptr : *found;
}

std::vector<SyncJobPtr> JobControl::TakeJobs(const std::function<bool(const SyncJob&)>& inTest)
{
    const ScopedLock lock(mMutex);
    auto jobs = mPendingJobs.TakeIf(inTest);
    std::ranges::copy_if(mRunningJobs, std::back_inserter(jobs),
                         [&](const SyncJobPtr& inJob) { return inTest(*inJob); });
    std::erase_if(mRunningJobs, [&](const SyncJobPtr& inJob) { return inTest(*inJob); });
    for (const auto& job : jobs)
        mFinishedJobs->Insert(job->JobID(), job);
    return jobs;
}

std::vector<dto::Job> JobControl::GetSyncJobs()
{
    return ToDTO(AllJobs());
}

std::vector<dto::Job> JobControl::GetSyncJobs(const ImmutableString& inSessionID)
{
    auto jobs = AllJobs();
    std::erase_if(jobs, [&](const SyncJobPtr& inJob) { return !(inJob->SessionID() == inSessionID); });
    return ToDTO(jobs);
}

std::size_t JobControl::GetUnfinishedSyncJobCount()
{
    const ScopedLock lock(mMutex);
    return mPendingJobs.Count() + mRunningJobs.size();
}

int JobControl::RunLocalJob(const SyncJobRequest& inRequest, dto::Job& outJob)
{
    SyncJobPtr job;
    {
        const ScopedLock lock(mMutex);
        if (mExecutor->IsShuttingDown()) return RefuseAfterTheEnd(inRequest.mSessionID);
        job = std::make_shared<SyncJob>(inRequest, ++mLastSequence);
        if (!job->Start()) return noxnet::kHTTPStatus_PreconditionFailed;
        mRunningJobs.push_back(job);
    }
    const int status = inRequest.mLocalWork();
    // Not in the list any more where the engine has ended meanwhile, and all jobs with it.
    if (!TakeJobs([&](const SyncJob& inJob) { return &inJob == job.get(); }).empty()) {
        job->Results().mStatus = status;
        job->Finish(VYCL::kSuccess);
    }
    outJob = job->GetDTOJob();
    return noxnet::kHTTPStatus_Created;
}

int JobControl::RequestSyncJob(const SyncJobRequest& inRequest, dto::Job& outJob)
{
    if (inRequest.mLocalWork) return RunLocalJob(inRequest, outJob);
    if (!ValidateJobParameters(inRequest)) return noxnet::kHTTPStatus_PreconditionFailed;

    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    dto::Session session;
    const int loaded = box->GetProduction(inRequest.mSessionID, VYCL::LocalHub::Revision_HEAD(), session);
    if (!noxnet::IsSuccessfulHTTPStatus(loaded)) return loaded;

    SyncStatus status;
    const int requestable = GetSyncRequestStatus(inRequest.mSessionID, inRequest.mParams, status);
    if (!noxnet::IsSuccessfulHTTPStatus(requestable)) return noxnet::kHTTPStatus_PreconditionFailed;
    if (!ValidateJobSyncPoint(inRequest, status)) return noxnet::kHTTPStatus_PreconditionFailed;

    DataServerRef server;
    ProductionRef production;
    const int remote =
        GetRemoteSession(inRequest.mSessionID, RemoteRevisionFor(inRequest.mParams, status), server, production);
    if (!noxnet::IsSuccessfulHTTPStatus(remote)) {
        LogWarning(kCategory, "JobsService: cannot get data server and production",
                   {{"localSessionID", inRequest.mSessionID.View()}, {"status", remote}});
        return noxnet::kHTTPStatus_PreconditionFailed;
    }

    return mExecutor->IsShuttingDown() ? RefuseAfterTheEnd(inRequest.mSessionID) : noxnet::kHTTPStatus_NotImplemented;
}

int JobControl::FindMatchingRunningSyncJob(const ImmutableString& inSessionID, const JobParams& inParams,
                                           dto::Job& outJob)
{
    SyncJobPtr found;
    {
        const ScopedLock lock(mMutex);
        const auto job = std::ranges::find_if(mRunningJobs, [&](const SyncJobPtr& inJob) {
            return inJob->SessionID() == inSessionID && !inJob->IsLocal() && IsSameWork(inJob->Params(), inParams);
        });
        if (job == mRunningJobs.end()) return noxnet::kHTTPStatus_PreconditionFailed;
        found = *job;
    }
    outJob = found->GetDTOJob();
    return noxnet::kHTTPStatus_OK;
}

bool JobControl::AcquireJobLock(const ImmutableString& inSessionID, const Guid& inJobID, std::string_view inRequester,
                                JobCategory inCategory, std::shared_ptr<JobLock>& outLock)
{
    return JobLockTable::Instance()->Acquire(inSessionID, inCategory, inJobID, inRequester, outLock);
}

int JobControl::ChangeSyncJobState(const Guid& inJobID, const ImmutableString& inNewState, dto::Job& outJob)
{
    if (!(inNewState == VYCL::GetJobState_Cancel()) && !(inNewState == VYCL::GetJobState_Cancelled())) {
        return noxnet::kHTTPStatus_BadRequest;
    }
    Cancel(TakeJobs([&](const SyncJob& inJob) { return inJob.JobID() == inJobID && !inJob.IsLocal(); }));
    // One that has ended, or cannot be cancelled, stays as it is: what follows tells the client what it asked for, and
    // no more.
    const SyncJobPtr job = FindJob(inJobID);
    if (!job) return noxnet::kHTTPStatus_NotFound;
    outJob = job->GetDTOJob();
    outJob.mJobState = inNewState;
    return noxnet::kHTTPStatus_OK;
}

void JobControl::TerminateSyncJobsForSession(const ImmutableString& inSessionID)
{
    Cancel(TakeJobs([&](const SyncJob& inJob) { return inJob.SessionID() == inSessionID && !inJob.IsLocal(); }));
}

void JobControl::TerminateSyncJobs()
{
    mExecutor->ShutDownAndWait();
    std::vector<SyncJobPtr> pending;
    std::vector<SyncJobPtr> running;
    {
        const ScopedLock lock(mMutex);
        pending = mPendingJobs.TakeAll();
        running.swap(mRunningJobs);
    }
    if (!pending.empty()) {
        LogInformation(kCategory, "Canceling pending jobs",
                       {{"count", pending.size()}, {"expression", "!pendingJobs.empty()"}});
        Cancel(pending);
    }
    if (!running.empty()) {
        LogInformation(kCategory, "Canceling running jobs",
                       {{"count", running.size()}, {"expression", "!runningJobs.empty()"}});
        Cancel(running);
    }
    for (const auto& holder : JobLockTable::Instance()->Holders()) {
        LogWarning(kCategory, "Job lock held unexpectedly for job",
                   {{"jobID", holder.mJobID.Text()}, {"requestedBy", holder.mRequester}});
    }
}

}  // namespace VantryLocalHub
