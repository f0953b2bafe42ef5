#include <atomic>
#include <future>

#include "Inc/Model/GitBoxIOZip.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/ThreadedStoreTest.h"

namespace {

using namespace VantryLocalHub;

class SnapshotsConcurrency : public testing_support::ThreadedStoreTest
{
};

TEST_F(SnapshotsConcurrency, TemplatesThatAreMadeWhileOthersAreListedAreAllThere)
{
    constexpr int kTemplates = 6;
    std::atomic<int> making{2};
    std::atomic<unsigned> wrong{0};
    const auto make = [&] {
        for (int count = 0; count < kTemplates; ++count) {
            dto::Session made;
            dto::Session found;
            if (mStore->CreateTemplate(mSession.mIdentifier, {}, dto::RawArray("[]"), made) != 201 ||
                mStore->GetTemplate(made.mIdentifier, found) != 200)
                ++wrong;
        }
        --making;
    };
    const auto list = [&] {
        std::size_t seen = 0;
        while (making > 0) {
            const std::size_t now = mStore->GetTemplates().size();
            if (now < seen) ++wrong;
            seen = now;
        }
    };
    RunTogether({make, make, list, list});
    EXPECT_EQ(0U, wrong);
    EXPECT_EQ(2U * kTemplates, mStore->GetTemplates().size());
}

TEST_F(SnapshotsConcurrency, TwoWhoOpenOneSnapshotAtOnceGetTheSameSession)
{
    for (int round = 0; round < 5; ++round) {
        const std::string file = mHome / ("snapshot" + std::to_string(round) + ".zip");
        ASSERT_EQ(200, mStore->TakeSnapshot(mSession.mIdentifier, {}, {}, {}, file));
        std::atomic<unsigned> wrong{0};
        std::array<dto::Session, 3> opened;
        std::vector<noxcore::threads::Task> tasks;
        for (dto::Session& session : opened)
            tasks.emplace_back([&] { wrong += mStore->ExtractSnapshot(file, {}, session) == 200 ? 0 : 1; });
        RunTogether(tasks);
        EXPECT_EQ(0U, wrong);
        EXPECT_EQ(opened[0].mIdentifier, opened[1].mIdentifier);
        EXPECT_EQ(opened[0].mIdentifier, opened[2].mIdentifier);
        EXPECT_EQ(200, mStore->ClearExtractedSnapshot(opened[0].mIdentifier));
    }
}

class CompactionConcurrency : public testing_support::ThreadedStoreTest
{
protected:
    CompactionConcurrency() : ThreadedStoreTest(SessionKind::RopeFile) {}
};

TEST_F(CompactionConcurrency, NoTransactionIsOpenedWhileAProjectIsCompacted)
{
    std::string file;
    ASSERT_EQ(200, mStore->GetRopeFilePath(mSession.mIdentifier, file));
    const auto open = [&](dto::TransactionResource& outTransaction) {
        return mStore->OpenTransaction(mSession.mIdentifier, {}, "edit", {}, outTransaction);
    };
    std::promise<void> isWriting;
    std::promise<void> mayGoOn;
    std::atomic<bool> isHeld{false};
    testing_support::FaultVfs vfs(mContext);
    ReleaseAll();
    vfs.SetHook(testing_support::FileOperation::Sync, [&] {
        if (isHeld.exchange(true)) return;
        isWriting.set_value();
        mayGoOn.get_future().wait();
    });
    const auto executor = noxcore::threads::CreateIOBoundExecutor("test", 1);
    std::promise<int> compacted;
    executor->Queue([&] { compacted.set_value(mStore->ThinHistoryToRopeFile(mSession.mIdentifier, file, {})); });
    isWriting.get_future().wait();
    dto::TransactionResource transaction;
    EXPECT_EQ(423, open(transaction));
    mayGoOn.set_value();
    EXPECT_EQ(200, compacted.get_future().get());
    executor->ShutDownAndWait();
    EXPECT_EQ(201, open(transaction));
    EXPECT_EQ(423, mStore->ThinHistoryToRopeFile(mSession.mIdentifier, file, {}));
    CommitOutcome outcome;
    EXPECT_EQ(200, mStore->CommitTransaction(transaction.mTransactionID, {"a commit"}, false, outcome));
    EXPECT_EQ(200, mStore->ThinHistoryToRopeFile(mSession.mIdentifier, file, {}));
    ReleaseAll();
}

}  // namespace
