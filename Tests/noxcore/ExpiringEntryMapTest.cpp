#include "Platform/noxcore/ExpiringEntryMap.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Tests/Support/VirtualHub.h"

namespace {

using noxcore::threads::RecursiveMutex;
using noxcore::threads::ScopedLock;

constexpr unsigned kLifetime = 600;
constexpr unsigned kSweep = 120;
constexpr unsigned kSecond = 1000;

/// Tells of its end.
struct Item
{
    explicit Item(std::function<void()> inAtEnd) : mAtEnd(std::move(inAtEnd)) {}
    ~Item() { mAtEnd(); }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;

    const std::function<void()> mAtEnd;
};

class ExpiringEntryMapTest : public testing::Test
{
protected:
    using Map = noxcore::utility::ExpiringEntryMap<std::string, Item>;

    std::shared_ptr<Map> MakeMap()
    {
        return Map::Create(noxcore::threads::CreateIOBoundExecutor("test", 1), kLifetime, kSweep);
    }
    std::shared_ptr<Item> MakeItem()
    {
        return std::make_shared<Item>([this] { ++mGone; });
    }

    int mGone = 0;
    const std::shared_ptr<testing_support::VirtualScheduler> mScheduler =
        std::make_shared<testing_support::VirtualScheduler>(testing_support::TestSeed());
    const noxcore::HubContext::Scope mScope{mScheduler->MakeContext(std::make_shared<testing_support::LogCapture>())};
};

TEST_F(ExpiringEntryMapTest, AnEntryIsSharedWithWhoeverFindsIt)
{
    const auto map = MakeMap();
    const auto item = MakeItem();
    EXPECT_EQ(nullptr, map->Find("a"));
    EXPECT_TRUE(map->Insert("a", item));
    EXPECT_EQ(item, map->Find("a"));
    EXPECT_EQ(nullptr, map->Find("b"));
    EXPECT_EQ(std::vector{item}, map->Entries());
}

TEST_F(ExpiringEntryMapTest, AnEntryIsFoundUntilItsAgeIsReachedHoweverOftenItIsAskedFor)
{
    const auto map = MakeMap();
    map->Insert("a", MakeItem());
    for (unsigned second = 1; second < kLifetime; ++second) {
        mScheduler->Advance(kSecond);
        ASSERT_NE(nullptr, map->Find("a")) << second;
    }
    mScheduler->Advance(kSecond);
    EXPECT_EQ(nullptr, map->Find("a"));
    EXPECT_TRUE(map->Entries().empty());
}

TEST_F(ExpiringEntryMapTest, AKeyKeepsItsFirstEntryAndItsAgeUntilThatIsOver)
{
    const auto map = MakeMap();
    const auto first = MakeItem();
    const auto second = MakeItem();
    map->Insert("a", first);
    mScheduler->Advance((kLifetime - 1) * kSecond);
    EXPECT_FALSE(map->Insert("a", second));
    EXPECT_EQ(first, map->Find("a"));
    mScheduler->Advance(kSecond);
    EXPECT_TRUE(map->Insert("a", second));
    EXPECT_EQ(second, map->Find("a"));
    mScheduler->Advance((kLifetime - 1) * kSecond);
    EXPECT_EQ(second, map->Find("a"));
}

TEST_F(ExpiringEntryMapTest, TheSweepLetsGoWhatIsPastItsAgeAndNothingElse)
{
    const auto map = MakeMap();
    map->Insert("old", MakeItem());
    mScheduler->Advance(kSweep * kSecond);
    map->Insert("young", MakeItem());
    mScheduler->Advance((kLifetime - kSweep) * kSecond);
    EXPECT_EQ(1, mGone);
    EXPECT_NE(nullptr, map->Find("young"));
    mScheduler->Advance(kSweep * kSecond);
    EXPECT_EQ(2, mGone);
}

TEST_F(ExpiringEntryMapTest, WhenTheEntriesWeighTooMuchTheOldestGoAndTheNewestStaysWhateverItWeighs)
{
    const auto map = Map::Create(noxcore::threads::CreateIOBoundExecutor("test", 1), kLifetime, kSweep, 10);
    map->Insert("c", MakeItem(), 4);
    map->Insert("b", MakeItem(), 6);
    EXPECT_EQ(0, mGone);
    map->Insert("a", MakeItem(), 1);
    EXPECT_EQ(1, mGone);
    EXPECT_EQ(nullptr, map->Find("c"));
    map->Insert("d", MakeItem(), 3);
    EXPECT_EQ(1, mGone);
    map->Insert("e", MakeItem(), 50);
    EXPECT_EQ(4, mGone);
    EXPECT_NE(nullptr, map->Find("e"));
    mScheduler->Advance(kLifetime * kSecond);
    map->Insert("e", MakeItem(), 4);  // in the place of the one past its age, with its weight
    map->Insert("f", MakeItem(), 6);
    EXPECT_EQ(5, mGone);
}

TEST_F(ExpiringEntryMapTest, AMapThatIsEmptyOrGoneWaitsForNothing)
{
    auto map = MakeMap();
    const auto isNever = [] { return false; };
    map->Insert("a", MakeItem());
    const std::int64_t before = mScheduler->GetClock()->MonotonicTicks();
    EXPECT_FALSE(mScheduler->RunUntil(isNever));  // to the last timer
    EXPECT_EQ(1, mGone);
    EXPECT_EQ(kLifetime * noxcore::kTicksPerSecond, mScheduler->GetClock()->MonotonicTicks() - before);

    map->Insert("b", MakeItem());
    map.reset();
    EXPECT_EQ(2, mGone);
    EXPECT_FALSE(mScheduler->RunUntil(isNever));
}

TEST_F(ExpiringEntryMapTest, AnEntryMayLockWhatItLikesWhenItGoes)
{
    const unsigned violations = noxcore::threads::LockOrderViolations();
    RecursiveMutex mutex{noxcore::threads::LockRank::OutOfProcessServer};
    int locked = 0;
    const auto map = MakeMap();
    const auto makeLocking = [&] {
        return std::make_shared<Item>([&] {
            const ScopedLock lock(mutex);
            ++locked;
        });
    };
    map->Insert("swept", makeLocking());
    mScheduler->Advance(kLifetime * kSecond);
    EXPECT_EQ(1, locked);
    map->Insert("replaced", makeLocking());
    mScheduler->GetClock()->SetMonotonic(mScheduler->GetClock()->MonotonicTicks() +
                                         kLifetime * noxcore::kTicksPerSecond);
    map->Insert("replaced", MakeItem());
    EXPECT_EQ(2, locked);
    EXPECT_EQ(violations, noxcore::threads::LockOrderViolations());
}

}  // namespace
