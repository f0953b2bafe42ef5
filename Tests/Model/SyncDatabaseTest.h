#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "Inc/Model/GitBoxSyncDb.h"
#include "Tests/Support/DatabaseTest.h"

namespace VantryLocalHub::GitBox {

inline constexpr const char* kServer = "https://hub.example";

/// A session as the sync database sees it. Its counter has a mutex of its own, as a session's has.
class FakeSandbox final : public SyncDbSandbox
{
public:
    explicit FakeSandbox(std::string inFolder) : mFolder(std::move(inFolder)) {}

    bool IncrementChangeCount(std::int64_t& outCount) override
    {
        const noxcore::threads::ScopedLock lock(mMutex);
        if (mFails) return false;
        outCount = ++mCount;
        return true;
    }
    [[nodiscard]] std::string GetFolder() const override
    {
        const noxcore::threads::ScopedLock lock(mMutex);
        return mFolder;
    }
    [[nodiscard]] bool IsRope() const override { return mIsRope; }
    [[nodiscard]] ImmutableString GetLocalSessionID() const override { return "local"; }

    [[nodiscard]] std::int64_t Count() const
    {
        const noxcore::threads::ScopedLock lock(mMutex);
        return mCount;
    }

    bool mIsRope = false;
    bool mFails = false;

private:
    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::SandboxChange};
    const std::string mFolder;
    std::int64_t mCount GUARDED_BY(mMutex) = 0;
};

inline AssociationForSync Association(const std::string& inServer, const std::string& inSession)
{
    return {inServer, "p-" + inSession, inSession, RFC3339DateTime::FromText("2026-05-01T00:00:00Z"),
            "user",   "corvane"};
}

inline SyncPoint Point(const std::string& inLocal, const std::string& inRemote)
{
    SyncPoint point;
    point.mLocalRevision = inLocal;
    point.mRemoteRevision = inRemote;
    point.mDate = RFC3339DateTime::FromText("2026-05-02T10:11:12.5Z");
    return point;
}

/// The sync database of a session of which only the counter exists.
class SyncDatabaseTest : public testing_support::DatabaseTest
{
protected:
    void SetUp() override
    {
        mDb->SetSandbox(mSandbox);
        mViolations = noxcore::threads::LockOrderViolations();
    }
    void TearDown() override { EXPECT_EQ(mViolations, noxcore::threads::LockOrderViolations()); }

    void Associate(const std::string& inServer = kServer, const std::string& inSession = "remote")
    {
        ASSERT_TRUE(mDb->WriteAssociationForSync(Association(inServer, inSession)));
    }
    void Write(const std::string& inLocal, const std::string& inRemote)
    {
        std::int64_t count = 0;
        ASSERT_TRUE(mDb->WriteSyncPoint(Point(inLocal, inRemote), count));
        ASSERT_EQ(mSandbox->Count(), count);
    }
    Lyra2SyncDb::DbPtr Connection()
    {
        Lyra2SyncDb::DbPtr db;
        EXPECT_TRUE(mDb->RetainDb(db));
        return db;
    }
    std::string LatestLocalRevision()
    {
        SyncPoint point;
        return mDb->ReadLatestSyncPoint(point) ? point.mLocalRevision.Text() : "none";
    }

    const std::shared_ptr<FakeSandbox> mSandbox = std::make_shared<FakeSandbox>(mFolder.Path());
    const std::shared_ptr<SyncDb> mDb = std::make_shared<SyncDb>();
    unsigned mViolations = 0;
};

}  // namespace VantryLocalHub::GitBox
