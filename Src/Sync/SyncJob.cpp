#include "Inc/Sync/SyncJob.h"

#include <utility>

namespace VantryLocalHub {

using noxcore::threads::ScopedLock;

namespace {

bool IsSuccess(int inStatus)
{
    return (inStatus >= 200 && inStatus <= 299) || inStatus == 304;
}

}  // namespace

SyncJob::SyncJob(SyncJobRequest inRequest, std::uint64_t inSequence)
    : mJobID(inRequest.mJobID),
      mSessionID(std::move(inRequest.mSessionID)),
      mName(std::move(inRequest.mName)),
      mParams(std::move(inRequest.mParams)),
      mSequence(inSequence),
      mCreated(RFC3339DateTime::Now()),
      mLock(std::move(inRequest.mLock)),
      mResults(inRequest.mResults ? std::move(inRequest.mResults) : std::make_shared<JobResults>()),
      mChanged(mCreated)
{
}

void SyncJob::Finish(VYCL::Result inResult)
{
    std::shared_ptr<JobLock> jobLock;
    const ScopedLock lock(mMutex);
    if (mFinished) return;
    mFinished = true;
    mResult = inResult;
    mChanged = RFC3339DateTime::Now();
    jobLock.swap(mLock);
}

bool SyncJob::IsFinished() const
{
    const ScopedLock lock(mMutex);
    return mFinished;
}

dto::Job SyncJob::GetDTOJob() const
{
    dto::Job job;
    job.mID = mJobID.Text();
    job.mName = mName.Text();
    job.mJobType = VYCL::GetJobType_LocalHubSync();
    job.mParameters = mParams;
    job.mCreated = mCreated;
    const ScopedLock lock(mMutex);
    job.mLastModified = mChanged;
    if (!mFinished) {
        job.mJobState = VYCL::GetJobState_Waiting();
    } else if (mResult == noxcore::eUserCanceled) {
        job.mJobState = VYCL::GetJobState_Cancelled();
    } else if (mResult >= 0 && IsSuccess(mResults->mStatus)) {
        job.mJobState = VYCL::GetJobState_Successful();
        job.mProgress = 1;
    } else {
        job.mJobState = VYCL::GetJobState_Failed();
        job.mHttpStatusCode = mResults->mStatus;
    }
    return job;
}

}  // namespace VantryLocalHub
