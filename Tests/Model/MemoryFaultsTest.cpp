// What happens when the memory for large content is refused, wherever in a copy that may be.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "Tests/Support/SnapshotFixture.h"

namespace {

constexpr std::size_t kLarge = 1'000'000;
std::atomic<long> gLargeUntilRefusal{0};  ///< the one that takes it from 1 to 0 is refused

bool IsRefused(std::size_t inSize)
{
    return inSize >= kLarge && gLargeUntilRefusal > 0 && gLargeUntilRefusal.fetch_sub(1) == 1;
}

void* Allocate(std::size_t inSize)
{
    void* const room = IsRefused(inSize) ? nullptr : std::malloc(inSize == 0 ? 1 : inSize);
    if (room == nullptr) throw std::bad_alloc();
    return room;
}

}  // namespace

// All forms that go together, since a sanitizer brings its own of those that a program lacks.
void* operator new(std::size_t inSize)
{
    return Allocate(inSize);
}
void* operator new[](std::size_t inSize)
{
    return Allocate(inSize);
}
void* operator new(std::size_t inSize, const std::nothrow_t&) noexcept
{
    return std::malloc(inSize == 0 ? 1 : inSize);
}
void* operator new[](std::size_t inSize, const std::nothrow_t&) noexcept
{
    return std::malloc(inSize == 0 ? 1 : inSize);
}
void operator delete(void* inRoom) noexcept
{
    std::free(inRoom);
}
void operator delete[](void* inRoom) noexcept
{
    std::free(inRoom);
}
void operator delete(void* inRoom, std::size_t) noexcept
{
    std::free(inRoom);
}
void operator delete[](void* inRoom, std::size_t) noexcept
{
    std::free(inRoom);
}
void operator delete(void* inRoom, const std::nothrow_t&) noexcept
{
    std::free(inRoom);
}
void operator delete[](void* inRoom, const std::nothrow_t&) noexcept
{
    std::free(inRoom);
}

namespace {

using namespace testing_support;
using noxcore::filesupport::Files;

class MemoryFaultsTest : public SnapshotFixture
{
protected:
    /// Does the work again and again, each time with another of its large allocations refused, until none is.
    void RefuseEachInTurn(const std::function<int()>& inWork, int inSuccess,
                          const std::function<void()>& inAfterFailure)
    {
        constexpr long kMost = 200;
        for (long refused = 1; refused < kMost; ++refused) {
            SCOPED_TRACE("large allocation " + std::to_string(refused));
            gLargeUntilRefusal = refused;
            int status = 500;
            try {
                status = inWork();
            } catch (const std::bad_alloc&) {
                // What answers the request makes a 500 of it.
            }
            const bool wasRefused = gLargeUntilRefusal.exchange(0) == 0;
            if (!wasRefused) {
                EXPECT_EQ(inSuccess, status);
                EXPECT_GT(refused, 1) << "nothing was ever refused";
                return;
            }
            // Some are given up without harm, such as a cache; but nothing that is answered as done may lack a part.
            if (status != inSuccess) inAfterFailure();
            if (status == inSuccess) mAfterSuccess();
        }
        ADD_FAILURE() << "there is no end to the allocations";
    }

    std::function<void()> mAfterSuccess = [] {};
    const std::map<std::string, std::string> mBefore = Content(mSession.mIdentifier);
};

TEST_F(MemoryFaultsTest, ACopyIsWholeOrNotThere)
{
    dto::Session copy;
    mAfterSuccess = [&] {
        EXPECT_EQ(mBefore, Content(copy.mIdentifier));
        EXPECT_EQ(200, mStore->DeletePersistedSessionData(copy.mIdentifier));
        mScheduler->RunUntilIdle();
    };
    RefuseEachInTurn([&] { return Copy(mSession.mIdentifier, {}, copy); }, 201,
                     [&] {
                         mScheduler->RunUntilIdle();
                         EXPECT_EQ(1U, SessionFolders());
                         EXPECT_EQ(1U, mStore->GetSessions().size());
                     });
    EXPECT_EQ(mBefore, Content(copy.mIdentifier));
}

TEST_F(MemoryFaultsTest, ASnapshotIsWholeOrNotThere)
{
    mAfterSuccess = [&] { EXPECT_TRUE(Files().DeleteFile(In("a.zip"))); };
    RefuseEachInTurn([&] { return Take(In("a.zip")); }, 200, [&] { EXPECT_FALSE(Files().FileExists(In("a.zip"))); });
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    EXPECT_EQ(mBefore, Content(opened.mIdentifier));
}

TEST_F(MemoryFaultsTest, ASnapshotIsAppliedAsAWholeOrNotAtAll)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    ASSERT_EQ(200, mStore->DeleteAsset(transaction, kSequence));
    ASSERT_EQ(200, Commit(transaction));
    const auto changed = Content(mSession.mIdentifier);
    dto::Session applied;
    mAfterSuccess = [&] { EXPECT_EQ(mBefore, Content(mSession.mIdentifier)); };
    RefuseEachInTurn([&] { return mStore->ApplySnapshot(mSession.mIdentifier, In("a.zip"), false, true, applied); },
                     200, [&] { EXPECT_EQ(changed, Content(mSession.mIdentifier)); });
    EXPECT_EQ(mBefore, Content(mSession.mIdentifier));
}

TEST_F(MemoryFaultsTest, AProjectIsCopiedIntoAFileAndCompactedAsAWholeOrNotAtAll)
{
    dto::Session copy;
    mAfterSuccess = [&] {
        EXPECT_EQ(mBefore, Content(copy.mIdentifier));
        EXPECT_EQ(200, mStore->DeletePersistedSessionData(copy.mIdentifier));
        mScheduler->RunUntilIdle();
    };
    RefuseEachInTurn([&] { return mStore->CopyToRopeFile(mSession.mIdentifier, {}, In("a.lyr"), false, copy); }, 201,
                     [&] { EXPECT_FALSE(Files().FileExists(In("a.lyr"))); });
    EXPECT_EQ(mBefore, Content(copy.mIdentifier));
    mAfterSuccess = [&] { EXPECT_EQ(mBefore, Content(copy.mIdentifier)); };
    RefuseEachInTurn([&] { return mStore->ThinHistoryToRopeFile(copy.mIdentifier, In("a.lyr"), {}); }, 200,
                     [&] { EXPECT_EQ(mBefore, Content(copy.mIdentifier)); });
    ReopenStore();
    ASSERT_EQ(200, mStore->OpenRopeFile(In("a.lyr"), copy));
    EXPECT_EQ(mBefore, Content(copy.mIdentifier));
}

}  // namespace
