#include "Inc/Sync/SyncJob.h"

#include "Inc/Sync/JobLockTable.h"
#include "Inc/Sync/SyncJobQueue.h"
#include "Tests/Sync/SyncFixture.h"

namespace VantryLocalHub {
namespace {

using namespace VYCL::LocalHub;

SyncJobRequest MakeRequest(const char* inSession, int inPriority = 0)
{
    SyncJobRequest request;
    request.mSessionID = inSession;
    request.mName = "a session";
    request.mJobID = Guid::CreateUnique();
    request.mResults = std::make_shared<JobResults>();
    request.mParams.mPriority = inPriority;
    request.mParams.mDirection = SyncDirection_Push();
    request.mParams.mFromRevision = Revision_LatestSyncPoint();
    request.mParams.mToRevision = Revision_HEAD();
    return request;
}

std::vector<std::string> KeysOf(const testing_support::LogCapture::Record& inRecord)
{
    std::vector<std::string> keys;
    for (const auto& pair : inRecord.mPairs)
        keys.emplace_back(pair.mKey);
    return keys;
}

/// An engine that has jobs.
class EngineWithJobs : public HubSync
{
public:
    SyncJobPtr Add(SyncJobRequest inRequest)
    {
        auto job = std::make_shared<SyncJob>(std::move(inRequest), ++mSequence);
        return AddJob(job) ? job : nullptr;
    }

private:
    std::uint64_t mSequence = 0;
};

class SyncJobTest : public SyncFixture
{
protected:
    std::shared_ptr<JobLock> Acquire(const char* inSession, JobCategory inCategory = JobCategory::History)
    {
        std::shared_ptr<JobLock> lock;
        JobLockTable::Instance()->Acquire(inSession, inCategory, Guid::CreateUnique(), "test", lock);
        return lock;
    }
};

TEST_F(SyncJobTest, ASessionIsLockedForOneHolderUntilItsLastReferenceIsGone)
{
    auto first = Acquire("s1");
    ASSERT_NE(nullptr, first);
    auto copy = first;
    EXPECT_EQ(nullptr, Acquire("s1"));
    first.reset();
    EXPECT_EQ(nullptr, Acquire("s1"));
    copy.reset();
    EXPECT_NE(nullptr, Acquire("s1"));
}

TEST_F(SyncJobTest, OtherSessionsAndUserEnclosuresAreNotKeptAway)
{
    const auto history = Acquire("s1");
    EXPECT_NE(nullptr, Acquire("s2"));
    EXPECT_NE(nullptr, Acquire("s1", JobCategory::UserEnclosures));
}

TEST_F(SyncJobTest, ARefusedLockLeavesTheArgumentAlone)
{
    const auto held = Acquire("s1");
    std::shared_ptr<JobLock> other = Acquire("s2");
    const auto* before = other.get();
    EXPECT_FALSE(JobLockTable::Instance()->Acquire("s1", JobCategory::History, {}, "test", other));
    EXPECT_EQ(before, other.get());
}

TEST_F(SyncJobTest, HigherPriorityComesFirstAndThenWhoAskedFirst)
{
    SyncJobQueue queue;
    const int priorities[] = {-200, 0, 100, 0, -100};
    for (std::uint64_t i = 0; i < 5; ++i)
        queue.Add(std::make_shared<SyncJob>(MakeRequest("s1", priorities[i]), i));
    std::vector<std::uint64_t> order;
    for (const auto& job : queue.TakeAll())
        order.push_back(job->Sequence());
    EXPECT_EQ((std::vector<std::uint64_t>{2, 1, 3, 4, 0}), order);
    EXPECT_EQ(nullptr, queue.TakeNext());
}

TEST_F(SyncJobTest, TakingOutSomeJobsKeepsTheOrderOfTheRest)
{
    SyncJobQueue queue;
    for (std::uint64_t i = 0; i < 6; ++i) {
        queue.Add(std::make_shared<SyncJob>(MakeRequest(i % 2 == 0 ? "even" : "odd", static_cast<int>(i)), i));
    }
    EXPECT_EQ(3U, queue.TakeIf([](const SyncJob& inJob) { return inJob.SessionID() == "odd"; }).size());
    ASSERT_EQ(3U, queue.Count());
    EXPECT_EQ(4U, queue.TakeNext()->Sequence());
    EXPECT_EQ(2U, queue.TakeNext()->Sequence());
    EXPECT_EQ(0U, queue.TakeNext()->Sequence());
}

TEST_F(SyncJobTest, AJobTellsItsStateAsClientsKnowIt)
{
    SyncJob waiting(MakeRequest("s1"), 1);
    EXPECT_EQ(VYCL::GetJobState_Waiting(), waiting.GetDTOJob().mJobState);
    EXPECT_EQ(VYCL::GetJobType_LocalHubSync(), waiting.GetDTOJob().mJobType);
    EXPECT_EQ(waiting.JobID().Text(), waiting.GetDTOJob().mID.Text());
    EXPECT_EQ(SyncDirection_Push(), waiting.GetDTOJob().mParameters.mDirection);

    const auto stateAfter = [](int inStatus, VYCL::Result inResult) {
        auto request = MakeRequest("s1");
        request.mResults->mStatus = inStatus;
        SyncJob job(request, 1);
        job.Finish(inResult);
        EXPECT_TRUE(job.IsFinished());
        return job.GetDTOJob().mJobState;
    };
    EXPECT_EQ(VYCL::GetJobState_Successful(), stateAfter(200, VYCL::kSuccess));
    EXPECT_EQ(VYCL::GetJobState_Successful(), stateAfter(299, VYCL::kSuccess));
    EXPECT_EQ(VYCL::GetJobState_Successful(), stateAfter(304, VYCL::kSuccess));
    for (const int status : {199, 300, 303, 305, 409, 500})
        EXPECT_EQ(VYCL::GetJobState_Failed(), stateAfter(status, VYCL::kSuccess)) << status;
    EXPECT_EQ(VYCL::GetJobState_Failed(), stateAfter(200, VYCL::GetResultFromStatusCode(503)));
    EXPECT_EQ(VYCL::GetJobState_Cancelled(), stateAfter(200, noxcore::eUserCanceled));
}

TEST_F(SyncJobTest, AJobRunsUnderItsSessionsLockFromItsStartToItsEnd)
{
    SyncJob job(MakeRequest("s1"), 1);
    auto held = Acquire("s1");
    EXPECT_FALSE(job.Start());
    EXPECT_EQ(VYCL::GetJobState_Waiting(), job.GetDTOJob().mJobState);
    held.reset();
    EXPECT_TRUE(job.Start());
    EXPECT_EQ(VYCL::GetJobState_Running(), job.GetDTOJob().mJobState);
    EXPECT_EQ(nullptr, Acquire("s1"));
    EXPECT_EQ("SyncJob::Start", JobLockTable::Instance()->Holders().at(0).mRequester);
    job.Finish(VYCL::kSuccess);
    EXPECT_NE(nullptr, Acquire("s1"));
    EXPECT_FALSE(job.Start());
    EXPECT_EQ(1U, mLog->Count("SyncJob Starting"));
    EXPECT_EQ(1U, mLog->Count("SyncJob cannot start: cannot acquire job lock"));
    EXPECT_EQ(1U, mLog->Count("SyncJob cannot start: already finished or canceled"));
}

TEST_F(SyncJobTest, AJobWithWorkOfItsOwnRunsWhileItWorksAndIsListedAfterwards)
{
    const auto engine = std::make_shared<HubSync>();
    for (const auto& [status, state] :
         {std::pair(200, VYCL::GetJobState_Successful()), std::pair(404, VYCL::GetJobState_Failed())}) {
        auto request = MakeRequest("s1");
        request.mLock = Acquire("s1");
        dto::Job whileItRuns;
        request.mLocalWork = [&, result = status] {
            mProbe.Check();
            whileItRuns = engine->GetSyncJobs("s1").front();
            EXPECT_EQ(1U, engine->GetUnfinishedSyncJobCount());
            EXPECT_EQ(412, engine->FindMatchingRunningSyncJob("s1", request.mParams, whileItRuns))
                << "a client's push is another job, whatever its parameters";
            EXPECT_EQ(200, engine->ChangeSyncJobState(request.mJobID, VYCL::GetJobState_Cancel(), whileItRuns));
            engine->TerminateSyncJobsForSession("s1");
            whileItRuns = engine->GetSyncJobs("s1").front();
            return result;
        };
        dto::Job ended;
        EXPECT_EQ(201, engine->RequestSyncJob(request, ended));
        EXPECT_EQ(VYCL::GetJobState_Running(), whileItRuns.mJobState) << "what has begun is not cancelled";
        EXPECT_EQ(request.mJobID.Text(), whileItRuns.mID.Text());
        EXPECT_EQ(state, ended.mJobState);
        EXPECT_EQ(0U, engine->GetUnfinishedSyncJobCount());
        ASSERT_EQ(1U, engine->GetSyncJobs("s1").size());
        EXPECT_EQ(state, engine->GetSyncJobs("s1").front().mJobState);
        mScheduler->Advance(600'000);
        EXPECT_TRUE(engine->GetSyncJobs("s1").empty());
    }
}

TEST_F(SyncJobTest, AJobWithWorkOfItsOwnIsRefusedWithoutTheLockAndAfterTheEnd)
{
    const auto engine = std::make_shared<HubSync>();
    auto request = MakeRequest("s1");
    request.mLocalWork = [] {
        ADD_FAILURE() << "must not run";
        return 200;
    };
    dto::Job job;
    auto held = Acquire("s1");
    EXPECT_EQ(412, engine->RequestSyncJob(request, job));
    EXPECT_TRUE(engine->GetSyncJobs().empty());
    held.reset();
    engine->TerminateSyncJobs();
    EXPECT_EQ(424, engine->RequestSyncJob(request, job));
    EXPECT_EQ(1U, mLog->Count("JobControl has been terminated: sync job request failed"));
}

TEST_F(SyncJobTest, TheFirstEndOfAJobCountsAndFreesItsSession)
{
    auto request = MakeRequest("s1");
    request.mLock = Acquire("s1");
    request.mResults->mStatus = 200;
    SyncJob job(std::move(request), 1);
    EXPECT_EQ(nullptr, Acquire("s1"));
    job.Finish(VYCL::kSuccess);
    EXPECT_NE(nullptr, Acquire("s1"));
    job.Finish(noxcore::eUserCanceled);
    EXPECT_EQ(VYCL::GetJobState_Successful(), job.GetDTOJob().mJobState);
}

TEST_F(SyncJobTest, OnlyACancellationChangesAJobAndAnUnknownJobIsNotFound)
{
    const auto engine = std::make_shared<HubSync>();
    dto::Job job;
    EXPECT_EQ(400, engine->ChangeSyncJobState({}, VYCL::GetJobState_Running(), job));
    EXPECT_EQ(404, engine->ChangeSyncJobState({}, VYCL::GetJobState_Cancel(), job));
    EXPECT_EQ(404, engine->ChangeSyncJobState({}, VYCL::GetJobState_Cancelled(), job));
}

TEST_F(SyncJobTest, ARequestThatMakesNoSenseIsRefusedBeforeTheSessionIsRead)
{
    const auto engine = std::make_shared<HubSync>();
    dto::Job job;
    auto sideways = MakeRequest("s1");
    sideways.mParams.mDirection = "Sideways";
    EXPECT_EQ(412, engine->RequestSyncJob(sideways, job));
    const auto refused = mLog->Find("JobControl: invalid direction");
    ASSERT_EQ(1U, refused.size());
    EXPECT_EQ((std::vector<std::string>{"localSessionID", "name", "params"}), KeysOf(refused[0]));

    auto nowhere = MakeRequest("s1");
    nowhere.mParams.mToRevision = {};
    EXPECT_EQ(412, engine->RequestSyncJob(nowhere, job));
    ASSERT_EQ(1U, mLog->Count("JobControl: invalid revision"));
    EXPECT_EQ((std::vector<std::string>{"localSessionID", "name", "params"}),
              KeysOf(mLog->Find("JobControl: invalid revision")[0]));
}

TEST_F(SyncJobTest, TheJobsOfASessionAreListedAndEndedWithoutThoseOfOthers)
{
    const auto engine = std::make_shared<EngineWithJobs>();
    auto request = MakeRequest("s1");
    request.mLock = Acquire("s1");
    const auto first = engine->Add(std::move(request));
    const auto second = engine->Add(MakeRequest("s1"));
    const auto other = engine->Add(MakeRequest("s2"));
    EXPECT_EQ(3U, engine->GetUnfinishedSyncJobCount());
    EXPECT_EQ(3U, engine->GetSyncJobs().size());
    EXPECT_EQ(2U, engine->GetSyncJobs("s1").size());
    ASSERT_EQ(1U, engine->GetSyncJobs("s2").size());
    EXPECT_EQ(other->JobID().Text(), engine->GetSyncJobs("s2")[0].mID.Text());

    engine->TerminateSyncJobsForSession("s1");
    EXPECT_TRUE(first->IsFinished());
    EXPECT_TRUE(second->IsFinished());
    EXPECT_FALSE(other->IsFinished());
    EXPECT_EQ(VYCL::GetJobState_Cancelled(), first->GetDTOJob().mJobState);
    EXPECT_EQ(1U, engine->GetUnfinishedSyncJobCount());
    EXPECT_NE(nullptr, Acquire("s1")) << "the lock was given back";
}

TEST_F(SyncJobTest, AJobThatWaitsIsCancelledByItsId)
{
    const auto engine = std::make_shared<EngineWithJobs>();
    const auto job = engine->Add(MakeRequest("s1"));
    dto::Job record;
    EXPECT_EQ(200, engine->ChangeSyncJobState(job->JobID(), VYCL::GetJobState_Cancel(), record));
    EXPECT_EQ(VYCL::GetJobState_Cancel(), record.mJobState);
    EXPECT_TRUE(job->IsFinished());
    EXPECT_EQ(0U, engine->GetUnfinishedSyncJobCount());
}

TEST_F(SyncJobTest, AJobThatEndedIsListedForTenMinutes)
{
    const auto engine = std::make_shared<EngineWithJobs>();
    const auto job = engine->Add(MakeRequest("s1"));
    engine->Add(MakeRequest("s2"));
    engine->TerminateSyncJobsForSession("s1");
    mScheduler->Advance(599'999);
    ASSERT_EQ(1U, engine->GetSyncJobs("s1").size());
    EXPECT_EQ(job->JobID().Text(), engine->GetSyncJobs("s1")[0].mID.Text());
    EXPECT_EQ(VYCL::GetJobState_Cancelled(), engine->GetSyncJobs("s1")[0].mJobState);
    EXPECT_EQ(2U, engine->GetSyncJobs().size());
    EXPECT_EQ(1U, engine->GetUnfinishedSyncJobCount());
    mScheduler->Advance(1);
    EXPECT_TRUE(engine->GetSyncJobs("s1").empty());
    EXPECT_EQ(1U, engine->GetSyncJobs().size()) << "one that waits is not forgotten";
}

TEST_F(SyncJobTest, CancellingAJobThatEndedAnswersAsAskedAndChangesNothing)
{
    const auto engine = std::make_shared<EngineWithJobs>();
    const auto job = engine->Add(MakeRequest("s1"));
    engine->TerminateSyncJobsForSession("s1");
    dto::Job record;
    EXPECT_EQ(200, engine->ChangeSyncJobState(job->JobID(), VYCL::GetJobState_Cancel(), record));
    EXPECT_EQ(job->JobID().Text(), record.mID.Text());
    EXPECT_EQ(VYCL::GetJobState_Cancel(), record.mJobState);
    EXPECT_EQ(VYCL::GetJobState_Cancelled(), engine->GetSyncJobs("s1")[0].mJobState);
    mScheduler->Advance(600'000);
    EXPECT_EQ(404, engine->ChangeSyncJobState(job->JobID(), VYCL::GetJobState_Cancel(), record));
}

TEST_F(SyncJobTest, TheEndCancelsWhatWaitsGivesItsLockBackAndTakesNoMore)
{
    const auto engine = std::make_shared<EngineWithJobs>();
    auto request = MakeRequest("s1");
    request.mLock = Acquire("s1");
    const auto job = engine->Add(std::move(request));
    engine->Add(MakeRequest("s2"));
    engine->TerminateSyncJobs();
    const auto records = mLog->Find("Canceling pending jobs");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("2", records[0].Value("count"));
    EXPECT_EQ("!pendingJobs.empty()", records[0].Value("expression"));
    EXPECT_EQ(VYCL::GetJobState_Cancelled(), job->GetDTOJob().mJobState);
    EXPECT_EQ(0U, mLog->Count("Job lock held unexpectedly for job"));
    EXPECT_EQ(0U, engine->GetUnfinishedSyncJobCount());
    EXPECT_EQ(nullptr, engine->Add(MakeRequest("s1")));
    EXPECT_TRUE(engine->GetSyncJobs().empty());
}

TEST_F(SyncJobTest, TheEndOfAllJobsNamesTheLocksThatAreStillHeld)
{
    const auto engine = std::make_shared<HubSync>();
    std::shared_ptr<JobLock> lock;
    const Guid id = Guid::CreateUnique();
    ASSERT_TRUE(engine->AcquireJobLock("s1", id, "somebody", JobCategory::History, lock));
    engine->TerminateSyncJobs();
    const auto records = mLog->Find("Job lock held unexpectedly for job");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(id.Text(), records[0].Value("jobID"));
    EXPECT_EQ("somebody", records[0].Value("requestedBy"));
    EXPECT_EQ(0U, mLog->Count("Canceling pending jobs"));
    EXPECT_EQ(0U, mLog->Count("Canceling running jobs"));
}

}  // namespace
}  // namespace VantryLocalHub
