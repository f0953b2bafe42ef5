#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Client/VYClient/Environment.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBox.h"
#include "Inc/Model/SystemDb.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace testing_support {

using noxcore::utility::ConstRecycledMemoryPtr;
using noxcore::utility::ImmutableString;
using namespace VantryLocalHub;

inline ConstRecycledMemoryPtr Bytes(std::string_view inText)
{
    return noxcore::utility::CopyToRecycledMemory(inText);
}

/// A store in a home of its own, under a scheduler that the test turns.
class StoreTest : public testing::Test
{
protected:
    /// On the real files unless others are given.
    explicit StoreTest(const std::shared_ptr<noxcore::filesupport::FileSystem>& inFiles = nullptr)
        : mContext(mScheduler->MakeContext(mLog, inFiles))
    {
        OpenStore();
    }
    ~StoreTest() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
    }

    /// What counts is what a restart finds.
    void ReopenStore()
    {
        mStore.reset();
        OpenStore();
    }

    dto::Session CreateSession(const std::string& inProperties = R"({"name":"Feature"})")
    {
        dto::Session session;
        EXPECT_EQ(201, mStore->CreateSession({}, {dto::RawJSON(inProperties), {}}, SessionKind::LocalOnly, session));
        return session;
    }

    ImmutableString OpenTransaction(const ImmutableString& inSessionID, const ImmutableString& inRequiredHead = {})
    {
        dto::TransactionResource transaction;
        EXPECT_EQ(201, mStore->OpenTransaction(inSessionID, inRequiredHead, VYCL::GetTransactionType_Edit(), {},
                                               transaction));
        return transaction.mTransactionID;
    }

    static AssetContent MakeAsset(const std::string& inName, const std::string& inType = "clip",
                                  const std::map<std::string, std::string>& inEnclosures = {})
    {
        AssetContent content;
        content.mAsset.mProperties = dto::RawJSON(R"({"name":")" + inName + R"(","lumo:assetType":")" + inType + "\"}");
        for (const auto& [name, payload] : inEnclosures) {
            EnclosureContent enclosure;
            enclosure.mEnclosure.mName = name;
            enclosure.mPayload = Bytes(payload);
            content.mEnclosures.push_back(std::move(enclosure));
        }
        return content;
    }

    /// Adds an asset and gives its record; the status must be 200.
    dto::Asset Add(const ImmutableString& inTransactionID, const AssetContent& inAsset,
                   const ImmutableString& inID = {})
    {
        dto::Asset added;
        EXPECT_EQ(200, mStore->AddAsset(inTransactionID, inID, inAsset, added));
        return added;
    }

    int Commit(const ImmutableString& inTransactionID, dto::Session* outSession = nullptr)
    {
        CommitOutcome outcome;
        const int status = mStore->CommitTransaction(inTransactionID, {"a commit"}, false, outcome);
        if (outSession != nullptr) *outSession = outcome.mSession;
        return status;
    }

    dto::Session GetSession(const ImmutableString& inID)
    {
        dto::Session session;
        EXPECT_EQ(200, mStore->GetSession(inID, session));
        return session;
    }

    std::vector<dto::Asset> GetAssets(const ImmutableString& inID, const ImmutableString& inRevision = {},
                                      const ImmutableString& inTransaction = {})
    {
        AssetListPtr assets;
        EXPECT_EQ(200, mStore->GetAssets(inID, inRevision, inTransaction, true, assets));
        return assets ? *assets : AssetList();
    }

    const TempFolder mHome;
    const std::shared_ptr<VirtualScheduler> mScheduler = std::make_shared<VirtualScheduler>(TestSeed());
    const std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    const std::shared_ptr<noxcore::HubContext> mContext;
    const noxcore::HubContext::Scope mScope{mContext};
    std::shared_ptr<GitBox::GitBox> mStore;

private:
    void OpenStore()
    {
        mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(mHome.Path()));
        mStore = std::make_shared<GitBox::GitBox>(true);
    }
};

}  // namespace testing_support
