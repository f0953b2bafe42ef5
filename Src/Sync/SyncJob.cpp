#include "Inc/Sync/SyncJob.h"

#include <utility>

#include "Inc/Sync/JobLockTable.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

using noxcore::logging::LogDetail;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::string_view kCategory = "HubSync";

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
      mIsLocal(static_cast<bool>(inRequest.mLocalWork)),
      mLock(std::move(inRequest.mLock)),
      mResults(inRequest.mResults ? std::move(inRequest.mResults) : std::make_shared<JobResults>()),
      mChanged(mCreated)
{
}

bool SyncJob::Start()
{
    const ScopedLock lock(mMutex);
    if (mState == State::Finished) {
        LogDetail(kCategory, "SyncJob cannot start: already finished or canceled", {{"jobID", mJobID.Text()}});
        return false;
    }
    const JobCategory category = mParams.mUserEnclosures ? JobCategory::UserEnclosures : JobCategory::History;
    if (!mLock && !JobLockTable::Instance()->Acquire(mSessionID, category, mJobID, "SyncJob::Start", mLock)) {
        LogDetail(kCategory, "SyncJob cannot start: cannot acquire job lock", {{"jobID", mJobID.Text()}});
        return false;
    }
    LogDetail(kCategory, "SyncJob Starting",
              {{"jobID", mJobID.Text()},
               {"localSessionID", mSessionID.View()},
               {"name", mName.View()},
               {"params", dto::ToJSON(static_cast<const dto::SyncJobParameters&>(mParams))}});
    mState = State::Running;
    mChanged = RFC3339DateTime::Now();
    return true;
}

void SyncJob::Finish(VYCL::Result inResult)
{
    std::shared_ptr<JobLock> jobLock;
    const ScopedLock lock(mMutex);
    if (mState == State::Finished) return;
    mState = State::Finished;
    mResult = inResult;
    mChanged = RFC3339DateTime::Now();
    jobLock.swap(mLock);
}

bool SyncJob::IsFinished() const
{
    const ScopedLock lock(mMutex);
    return mState == State::Finished;
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
    if (mState != State::Finished) {
        job.mJobState = mState == State::Running ? VYCL::GetJobState_Running() : VYCL::GetJobState_Waiting();
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
