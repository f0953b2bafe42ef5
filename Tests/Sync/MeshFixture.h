#pragma once

#include "Inc/Sync/JobLockTable.h"
#include "Inc/Sync/ProductionMesh.h"
#include "Tests/Sync/StoreFixture.h"

namespace VantryLocalHub {

/// The mesh alone, with the other components played by the test.
class MeshWithSeams : public ProductionMesh
{
public:
    MOCK_METHOD(int, GetSyncStatusForSession, (const ImmutableString&, SyncStatus&), (override));
    MOCK_METHOD(int, RequestHistoryJob, (const SyncJobRequest&, dto::Job&));
    MOCK_METHOD(bool, IsAssociated, (const ImmutableString&), (override));
    MOCK_METHOD(ImmutableString, GetUserID, (const ImmutableString&), (override));
    MOCK_METHOD(ImmutableString, GetCorvaneID, (const ImmutableString&), (override));
    MOCK_METHOD(int, AssociateWithUserOnly, (const ImmutableString&, const ImmutableString&, bool), (override));
    MOCK_METHOD(int, DisconnectOrDeleteSession, (const ImmutableString&, bool), (override));
    MOCK_METHOD(int, DisconnectAndCloseSession, (const ImmutableString&), (override));
    MOCK_METHOD(void, CreateRemoteAssociatedSession, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(void, UpdateCollaboratorActivity, (const ImmutableString&, ActivityCompletion), (override));
    MOCK_METHOD(void, ResolveRestoredAssetConflicts,
                (const ImmutableString&, const std::set<ImmutableString>&, StatusCompletion), (override));

    bool AcquireJobLock(const ImmutableString& inSessionID, const Guid& inJobID, std::string_view inRequester,
                        JobCategory inCategory, std::shared_ptr<JobLock>& outLock) override
    {
        ++mLockAttempts;
        return JobLockTable::Instance()->Acquire(inSessionID, inCategory, inJobID, inRequester, outLock);
    }
    int RequestSyncJob(const SyncJobRequest& inRequest, dto::Job& outJob) override
    {
        if (!inRequest.mLocalWork) return RequestHistoryJob(inRequest, outJob);
        if (mHasEnded) return 424;
        mLocalJobs.push_back(inRequest);
        mLocalJobs.back().mLock = nullptr;
        inRequest.mLocalWork();
        return 201;
    }
    DataServerRef GetLoggedInDataServer() override { return mServer; }
    int mLockAttempts = 0;
    std::vector<SyncJobRequest> mLocalJobs;
    bool mHasEnded = false;
    DataServerRef mServer;
};

class MeshFixture : public StoreFixture
{
protected:
    std::shared_ptr<testing::StrictMock<MeshWithSeams>> mMesh = std::make_shared<testing::StrictMock<MeshWithSeams>>();
};

}  // namespace VantryLocalHub
