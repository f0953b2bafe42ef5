#include "Tests/Sync/MeshFixture.h"

namespace VantryLocalHub {
namespace {

using namespace testing;

class ProductionMeshRollbackTest : public MeshFixture
{
protected:
    void Rollback()
    {
        mMesh->RollbackSessionToRevision("p-s1", "c1", [this](int inStatus, const dto::Session& inSession) {
            mProbe.Check();
            mStatuses.push_back(inStatus);
            mRolledBack = inSession;
        });
    }

    std::shared_ptr<JobLock> HoldLock()
    {
        std::shared_ptr<JobLock> lock;
        EXPECT_TRUE(JobLockTable::Instance()->Acquire("s1", JobCategory::History, {}, "test", lock));
        return lock;
    }

    void ExpectRevert()
    {
        EXPECT_CALL(*mBox, RevertSession(ImmutableString("s1"), ImmutableString("c1"), _))
            .WillOnce(DoAll(SetArgReferee<2>(ImmutableString("c4")), Return(200)));
        dto::Session session = mSessions["s1"];
        session.mRevision = "c4";
        EXPECT_CALL(*mBox, GetProduction(ImmutableString("s1"), ImmutableString("c4"), _))
            .WillOnce(DoAll(SetArgReferee<2>(session), Return(200)));
    }

    std::vector<int> mStatuses;
    dto::Session mRolledBack;
};

TEST_F(ProductionMeshRollbackTest, ARollbackAnswersWithTheSessionAtItsNewRevision)
{
    Have("s1", "c3");
    ExpectRevert();
    EXPECT_CALL(*mMesh, IsAssociated(ImmutableString("s1"))).WillOnce(Return(false));
    Rollback();
    EXPECT_EQ(std::vector<int>{200}, mStatuses);
    EXPECT_EQ("c4", mRolledBack.mRevision.Text());
    ASSERT_EQ(1U, mMesh->mLocalJobs.size());
    EXPECT_EQ("RollbackSessionToRevision", mMesh->mLocalJobs[0].mName.Text());
    EXPECT_EQ("c1", mMesh->mLocalJobs[0].mParams.mFromRevision.Text());
    EXPECT_EQ("HEAD", mMesh->mLocalJobs[0].mParams.mToRevision.Text());
    EXPECT_EQ(1U, mLog->Count("Rolled back session"));
    EXPECT_NE(nullptr, HoldLock());
}

TEST_F(ProductionMeshRollbackTest, ARollbackOfAnAssociatedSessionIsSentOnUnderItsOwnLock)
{
    Have("s1", "c3");
    ExpectRevert();
    EXPECT_CALL(*mMesh, IsAssociated(_)).WillOnce(Return(true));
    EXPECT_CALL(*mMesh, RequestHistoryJob(_, _)).WillOnce([](const SyncJobRequest& inRequest, dto::Job&) {
        EXPECT_EQ("RollbackSessionToRevision", inRequest.mName.Text());
        EXPECT_EQ(1U, JobLockTable::Instance()->Holders().size());
        EXPECT_NE(nullptr, inRequest.mLock);
        EXPECT_NE(inRequest.mLock->JobID(), inRequest.mJobID) << "the rollback itself was that job";
        return 412;
    });
    Rollback();
    EXPECT_EQ(std::vector<int>{200}, mStatuses);
    EXPECT_TRUE(JobLockTable::Instance()->Holders().empty());
}

TEST_F(ProductionMeshRollbackTest, ARollbackWaitsForAJobAndRunsWhenItIsDone)
{
    Have("s1", "c3");
    auto lock = HoldLock();
    Rollback();
    mScheduler->Advance(2500);
    EXPECT_EQ(3, mMesh->mLockAttempts);
    EXPECT_TRUE(mStatuses.empty());
    lock.reset();
    ExpectRevert();
    EXPECT_CALL(*mMesh, IsAssociated(_)).WillOnce(Return(false));
    mScheduler->Advance(500);
    EXPECT_EQ(std::vector<int>{200}, mStatuses);
    EXPECT_EQ(4, mMesh->mLockAttempts);
}

TEST_F(ProductionMeshRollbackTest, ARollbackGivesUpAfterFiveAttemptsASecondApart)
{
    Have("s1", "c3");
    const auto lock = HoldLock();
    Rollback();
    mScheduler->Advance(4999);
    EXPECT_TRUE(mStatuses.empty());
    mScheduler->Advance(1);
    EXPECT_EQ(std::vector<int>{304}, mStatuses);
    EXPECT_EQ(5, mMesh->mLockAttempts);
    EXPECT_EQ(5U, mLog->Count("Failed to acquire job lock during session rollback"));
    EXPECT_EQ(1U, mLog->Count("Giving up on job lock during session rollback"));
    mScheduler->Advance(60000);
    EXPECT_EQ(1U, mStatuses.size());
}

TEST_F(ProductionMeshRollbackTest, ARollbackThatWaitsWhenTheEngineEndsIsAnsweredOnce)
{
    Have("s1", "c3");
    const auto lock = HoldLock();
    Rollback();
    mMesh.reset();
    mScheduler->Advance(10000);
    EXPECT_EQ(std::vector<int>{424}, mStatuses);
}

TEST_F(ProductionMeshRollbackTest, ASessionThatGoesWhileItsRollbackWaitsIsNotFound)
{
    Have("s1", "c3");
    auto lock = HoldLock();
    Rollback();
    lock.reset();
    Lack("p-s1");
    mScheduler->Advance(1000);
    EXPECT_EQ(std::vector<int>{404}, mStatuses);
    EXPECT_TRUE(JobLockTable::Instance()->Holders().empty());
}

TEST_F(ProductionMeshRollbackTest, AFailedRollbackGivesTheStoresStatusAndTheLockBack)
{
    Have("s1", "c3");
    EXPECT_CALL(*mBox, RevertSession(_, _, _)).WillOnce(Return(404));
    Rollback();
    EXPECT_EQ(std::vector<int>{404}, mStatuses);
    EXPECT_EQ(1U, mLog->Count("Roll back session failed"));
    EXPECT_TRUE(JobLockTable::Instance()->Holders().empty());
}

TEST_F(ProductionMeshRollbackTest, ARollbackThatComesAfterTheEndOfTheEngineLeavesTheSessionAsItIs)
{
    Have("s1", "c3");
    mMesh->mHasEnded = true;
    Rollback();
    EXPECT_EQ(std::vector<int>{424}, mStatuses);
    EXPECT_TRUE(JobLockTable::Instance()->Holders().empty());
}

TEST_F(ProductionMeshRollbackTest, ARollbackOfAnUnknownSessionIsNotFound)
{
    Lack("p-s1");
    Rollback();
    EXPECT_EQ(std::vector<int>{404}, mStatuses);
}

}  // namespace
}  // namespace VantryLocalHub
