#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/Vocabulary.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/ThreadedStoreTest.h"

namespace {

using namespace VantryLocalHub;
using noxcore::utility::ConstRecycledMemoryPtr;
using noxcore::utility::ImmutableString;

constexpr int kCommits = 25;

class TwoAssets : public testing_support::ThreadedStoreTest
{
protected:
    explicit TwoAssets(SessionKind inKind = SessionKind::LocalOnly) : ThreadedStoreTest(inKind) {}

    /// One commit that gives both assets the same name; the status of the first step that was refused, else 200.
    int CommitBoth(const std::string& inName)
    {
        dto::TransactionResource transaction;
        int status =
            mStore->OpenTransaction(mSession.mIdentifier, {}, VYCL::GetTransactionType_Edit(), {}, transaction);
        for (const ImmutableString& id : {mFirstID, mSecondID}) {
            if (status >= 300) return status;
            AssetContent content;
            content.mAsset.mProperties = dto::RawJSON(R"({"name":")" + inName + R"(","lumo:assetType":"bin"})");
            EnclosureContent enclosure;
            enclosure.mEnclosure.mEnclosureID = mFirstID;
            enclosure.mEnclosure.mName = "text";
            enclosure.mPayload = noxcore::utility::CopyToRecycledMemory(inName);
            content.mEnclosures.push_back(enclosure);
            dto::Asset added;
            status = mStore->AddAsset(transaction.mTransactionID, id, content, added);
        }
        if (status < 300) status = mStore->FlushTransactionContent(transaction.mTransactionID);
        if (status >= 300) return status;
        CommitOutcome outcome;
        return mStore->CommitTransaction(transaction.mTransactionID, {inName}, false, outcome);
    }

    /// What one read of the head must show: both assets, of one commit. 200 when it does, 0 when not, else its status.
    int ReadBoth()
    {
        AssetListPtr list;
        const int status = mStore->GetAssets(mSession.mIdentifier, {}, {}, true, list);
        if (status != 200) return status;
        const AssetList& assets = *list;
        if (assets.size() != 2 || assets[0].mProperties != assets[1].mProperties) return 0;
        if (assets[0].mEnclosures.size() != 1 || assets[1].mEnclosures.size() != 1) return 0;
        const ImmutableString content = assets[0].mEnclosures[0].mEnclosureContentID;
        if (content != assets[1].mEnclosures[0].mEnclosureContentID) return 0;
        ConstRecycledMemoryPtr payload;
        const int read = mStore->GetAssetEnclosureByContentHash(mSession.mIdentifier, content, payload);
        if (read != 200) return read;
        const std::string name = R"("name":")" + std::string(payload->View()) + "\"";
        return assets[0].mProperties.Text().find(name) != std::string_view::npos ? 200 : 0;
    }

    const ImmutableString mFirstID = "11111111-1111-4111-8111-111111111111";
    const ImmutableString mSecondID = "22222222-2222-4222-8222-222222222222";
};

class StoreConcurrency : public TwoAssets, public testing::WithParamInterface<SessionKind>
{
protected:
    StoreConcurrency() : TwoAssets(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Store, StoreConcurrency, testing::Values(SessionKind::LocalOnly, SessionKind::RopeFile),
                         [](const auto& inInfo) {
                             return inInfo.param == SessionKind::RopeFile ? "SingleFile" : "Folder";
                         });

TEST_P(StoreConcurrency, ReadersSeeWholeCommitsWhileOthersCommitAndRelease)
{
    ASSERT_EQ(200, CommitBoth("first"));
    std::atomic<int> committing{2};
    std::atomic<unsigned> torn{0};
    std::atomic<unsigned> refused{0};
    std::atomic<unsigned> reads{0};
    const auto commit = [&](const std::string& inWho) {
        for (int count = 0; count < kCommits; ++count)
            if (CommitBoth(inWho + std::to_string(count)) != 200) ++refused;
        --committing;
    };
    const auto read = [&] {
        while (committing > 0) {
            if (ReadBoth() != 200) ++torn;
            dto::Session session;
            if (mStore->GetSession(mSession.mIdentifier, session) != 200 || !session.mHasBin) ++torn;
            ++reads;
        }
    };
    const auto release = [&] {
        while (committing > 0)
            ReleaseAll();
    };
    RunTogether({[&] { commit("a"); }, [&] { commit("b"); }, read, read, release});
    EXPECT_EQ(0U, refused);
    EXPECT_EQ(0U, torn);
    EXPECT_GT(reads, 0U);
    EXPECT_EQ(200, ReadBoth());
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    EXPECT_EQ(200, mStore->GetSessionHistory(mSession.mIdentifier, 0, 1, versions, total));
    EXPECT_EQ(2U + 2 * kCommits, total);
}

TEST_F(TwoAssets, TheRecordOfASessionIsReadWhileACommitOfItIsBeingWritten)
{
    ASSERT_EQ(200, CommitBoth("first"));
    dto::Session before;
    SideDataTags tags;
    ASSERT_EQ(200, mStore->GetSession(mSession.mIdentifier, before));
    ASSERT_EQ(200, mStore->GetSideDataTags(mSession.mIdentifier, tags));

    std::promise<void> isWriting;
    std::promise<void> mayGoOn;
    std::atomic<bool> isHeld{false};
    testing_support::FaultVfs vfs(mContext);
    ReleaseAll();  // what is opened from here on goes through it
    vfs.SetHook(testing_support::FileOperation::Sync, [&] {
        if (isHeld.exchange(true)) return;
        isWriting.set_value();
        mayGoOn.get_future().wait();
    });
    const auto executor = noxcore::threads::CreateIOBoundExecutor("test", 2);
    std::promise<int> committed;
    executor->Queue([&] { committed.set_value(CommitBoth("second")); });
    isWriting.get_future().wait();

    // On a thread of its own: if it had to wait for the commit, the test would tell, not hang.
    std::promise<void> hasRead;
    dto::Session during;
    std::atomic<int> status{0};
    executor->Queue([&] {
        const int ofRecord = mStore->GetSession(mSession.mIdentifier, during);
        const int ofTags = mStore->GetSideDataTags(mSession.mIdentifier, tags);
        status = ofRecord == 200 ? ofTags : ofRecord;
        hasRead.set_value();
    });
    const bool inTime = hasRead.get_future().wait_for(std::chrono::seconds(60)) == std::future_status::ready;
    mayGoOn.set_value();
    EXPECT_EQ(200, committed.get_future().get());
    executor->ShutDownAndWait();
    EXPECT_TRUE(inTime);
    EXPECT_EQ(200, status);
    EXPECT_EQ(before.mRevision, during.mRevision);
    dto::Session after;
    EXPECT_EQ(200, mStore->GetSession(mSession.mIdentifier, after));
    EXPECT_NE(before.mRevision, after.mRevision);
    ReleaseAll();
}

TEST_P(StoreConcurrency, ASessionDeletedInTheMiddleOfWorkIsGoneAndNothingElseHappens)
{
    ASSERT_EQ(200, CommitBoth("first"));
    std::atomic<unsigned> wrong{0};
    std::atomic<unsigned> commits{0};
    std::atomic<bool> deleted{false};
    const auto commit = [&] {
        for (int count = 0; count < 1000; ++count) {
            const int status = CommitBoth(std::to_string(count));
            if (status == 404) break;  // of the session or of its transaction
            if (status == 200) ++commits;
            if (status != 200 && !deleted) ++wrong;
        }
    };
    const auto read = [&] {
        for (;;) {
            const bool before = !deleted;
            const int status = ReadBoth();
            if (status == 404) break;
            if (status == 0 || (status != 200 && before && !deleted)) ++wrong;
        }
    };
    const auto release = [&] {
        while (mStore->SessionExists(mSession.mIdentifier))
            ReleaseAll();
    };
    const auto remove = [&] {
        while (commits < 5)
            continue;
        deleted = true;
        if (mStore->DeletePersistedSessionData(mSession.mIdentifier) != 200) ++wrong;
    };
    RunTogether({commit, read, release, remove});
    EXPECT_EQ(0U, wrong);
    EXPECT_GE(commits, 5U);
    EXPECT_TRUE(mStore->GetSessions().empty());
}

}  // namespace
