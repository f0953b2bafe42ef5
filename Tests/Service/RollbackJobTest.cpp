#include <atomic>

#include "Tests/Service/StoreServicesFixture.h"

// A rollback as clients see it while it runs, held up where it writes.

namespace service_test {

namespace {

using testing_support::FileOperation;

const std::string kAsset = "11111111-2222-4333-8444-555555555555";

class RollbackJobTest : public StoreServicesTest
{
protected:
    /// The first thread that writes from now on waits until it is let go.
    void HoldUpNextWrite()
    {
        mVfs.SetHook(FileOperation::Write, [this] {
            if (mIsHeldUp.exchange(true)) return;
            mReached.set_value();
            mLetGo.get_future().wait();
        });
    }
    /// The one job that is listed.
    void ExpectJob(const std::string& inPath, const std::string& inState, const std::string& inTarget)
    {
        JSONDocument list;
        ASSERT_TRUE(list.Parse(Send("GET", inPath).Body()));
        const auto jobs = list.Root()["jobs"].Children();
        ASSERT_EQ(1U, jobs.size()) << inPath;
        EXPECT_EQ(inState, Text(jobs[0]["vy:jobState"]));
        EXPECT_EQ("RollbackSessionToRevision", Text(jobs[0]["jcr:name"]));
        EXPECT_EQ(inTarget, Text(jobs[0]["vy:parameters"]["fromRevision"]));
        mJob = "/api/jobs/detail/" + Text(jobs[0]["id"]);
    }
    std::string Revision() { return Head().substr(Head().rfind('/') + 1); }

    std::atomic<bool> mIsHeldUp = false;
    std::promise<void> mReached;
    std::promise<void> mLetGo;
    std::string mJob;
};

TEST_F(RollbackJobTest, ARollbackIsAJobThatRunsAndKeepsItsSessionFromBeingDeleted)
{
    const std::string target = Revision();
    Apply("bulkCreate", {{"assets+" + kAsset + "+name", "Clip"}});
    const std::string list = "/api/jobs/list/" + mProduction;
    const std::string rollback = "/api/production/" + mProduction + "/-/rollback/" + target;
    const std::string production = "/api/production/" + mProduction + "/HEAD";
    HoldUpNextWrite();
    auto answer = Start("POST", rollback);
    mReached.get_future().wait();

    ExpectJob(list, "Running", target);
    EXPECT_EQ(423, Send("DELETE", production).Status());
    EXPECT_EQ(423, Send("DELETE", production + "?localOnly=true").Status());
    const auto records = mLog->Find("Cannot delete a synchronized session while it is synchronizing");
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ(mJob.substr(mJob.rfind('/') + 1), records[0].Value("job"));
    EXPECT_EQ(200, Send("PUT", mJob, R"({"vy:jobState":"Cancel"})").Status());
    EXPECT_NE(std::string::npos, Send("GET", mJob).Body().find(R"("vy:jobState":"Running")"))
        << "what has begun is not cancelled";
    EXPECT_EQ(1U, SyncBox::Instance()->GetUnfinishedSyncJobCount()) << "the hub does not end before it";

    mLetGo.set_value();
    EXPECT_EQ(200, Wait(std::move(answer)).Status());
    ExpectJob(list, "Successful", target);
    ExpectJob("/api/jobs/list/*/HEAD", "Successful", target);
    EXPECT_EQ(0U, SyncBox::Instance()->GetUnfinishedSyncJobCount());
    EXPECT_TRUE(AssetIDs().empty());
    EXPECT_EQ(204, Send("DELETE", production).Status());
}

TEST_F(RollbackJobTest, ARollbackThatFailsIsAFailedJobAndTheSessionIsFreeAgain)
{
    const std::string target(40, 'f');
    EXPECT_EQ(404, Send("POST", "/api/production/" + mProduction + "/-/rollback/" + target).Status());
    ExpectJob("/api/jobs/list/" + mProduction, "Failed", target);
    EXPECT_NE(std::string::npos, Send("GET", mJob).Body().find(R"("httpStatusCode":404)"));
    EXPECT_EQ(204, Send("DELETE", "/api/production/" + mProduction + "/HEAD").Status());
}

}  // namespace

}  // namespace service_test
