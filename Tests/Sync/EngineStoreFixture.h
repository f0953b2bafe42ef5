#pragma once

#include <memory>
#include <string>

#include "Inc/Sync/HubSync.h"
#include "Tests/Support/StoreTest.h"

namespace testing_support {

/// The whole engine over the store as it is on disk.
class EngineStoreFixture : public StoreTest
{
protected:
    EngineStoreFixture() { Publish(); }
    ~EngineStoreFixture() override { Withdraw(); }

    void Publish()
    {
        ProjectBox::SetInstance(mStore);
        mEngine = std::make_shared<HubSync>();
    }
    void Withdraw()
    {
        mEngine.reset();
        ProjectBox::SetInstance(nullptr);
    }
    /// What counts is what a restart finds.
    void Restart()
    {
        Withdraw();
        ReopenStore();
        Publish();
    }

    /// Commits one asset under that id and gives the commit.
    ImmutableString Write(const ImmutableString& inSessionID, const char* inAssetID, const AssetContent& inAsset)
    {
        const auto transaction = OpenTransaction(inSessionID);
        dto::Asset written;
        EXPECT_EQ(200, mStore->EditAsset(transaction, inAssetID, inAsset, written));
        dto::Session session;
        EXPECT_EQ(200, Commit(transaction, &session));
        return session.mRevision;
    }
    ImmutableString Delete(const ImmutableString& inSessionID, const char* inAssetID)
    {
        const auto transaction = OpenTransaction(inSessionID);
        EXPECT_EQ(200, mStore->DeleteAsset(transaction, inAssetID));
        dto::Session session;
        EXPECT_EQ(200, Commit(transaction, &session));
        return session.mRevision;
    }

    std::shared_ptr<HubSync> mEngine;
};

}  // namespace testing_support
