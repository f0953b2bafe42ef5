#include <algorithm>
#include <atomic>
#include <map>
#include <set>

#include "Inc/Model/Lyra2Db.h"
#include "Tests/Support/ThreadedStoreTest.h"

namespace {

using namespace VantryLocalHub;
using noxcore::utility::ConstRecycledMemoryPtr;
using noxcore::utility::ImmutableString;

constexpr int kRounds = 40;
constexpr std::size_t kBatch = 20;

class SideDataConcurrency : public testing_support::ThreadedStoreTest
{
protected:
    static dto::MediaLocator Locator(const std::string& inID, const std::string& inHref)
    {
        dto::MediaLocator locator;
        locator.mMediaLocatorID = inID;
        locator.mProperties = dto::RawJSON(R"({"href":")" + inHref + "\"}");
        return locator;
    }
    static std::vector<dto::MediaLocator> Batch(const std::string& inPrefix)
    {
        std::vector<dto::MediaLocator> batch;
        for (std::size_t index = 0; index < kBatch; ++index)
            batch.push_back(Locator(inPrefix + std::to_string(index), "x"));
        return batch;
    }
    void Check(bool inHolds)
    {
        if (!inHolds) ++mWrong;
    }
    void Add(const std::string& inID)
    {
        dto::MediaLocator locator = Locator(inID, "x");
        Check(mStore->AddMediaLocator(ID(), WriteMode::LocalEdit, locator) == 200);
    }
    [[nodiscard]] const ImmutableString& ID() const { return mSession.mIdentifier; }
    GitBox::Lyra2Db::DbPtr Db()
    {
        GitBox::Sandbox::Handles handles;
        EXPECT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(ID())->RetainDB(handles));
        return handles.mDb;
    }
    std::vector<dto::MediaLocator> Locators()
    {
        std::vector<dto::MediaLocator> locators;
        Check(mStore->GetMediaLocators(ID(), locators) == 200);
        return locators;
    }

    std::atomic<unsigned> mWrong{0};
    std::atomic<int> mWorking{0};
};

TEST_F(SideDataConcurrency, EveryWriteGetsACountOfItsOwn)
{
    const auto add = [&](const std::string& inWho) {
        for (int round = 0; round < kRounds; ++round)
            Add(inWho + std::to_string(round));
    };
    const auto enclose = [&] {
        for (int round = 0; round < kRounds; ++round) {
            dto::UserEnclosure enclosure;
            Check(mStore->AddUserEnclosure(ID(), "anna", WriteMode::LocalEdit, nullptr, enclosure) == 200);
        }
    };
    const auto associate = [&] {
        for (int round = 0; round < kRounds; ++round)
            Check(mStore->WriteAssociationForSync(ID(), {"https://hub", "p", std::to_string(round), {}, "u", "c"}));
    };
    const auto release = [&] {
        for (int round = 0; round < kRounds; ++round)
            ReleaseAll();
    };
    RunTogether({[&] { add("a"); }, [&] { add("b"); }, [&] { add("c"); }, enclose, associate, release});
    EXPECT_EQ(0U, mWrong);
    std::set<std::int64_t> counts;
    std::vector<GitBox::Lyra2Db::StoredRecord> records;
    ASSERT_TRUE(GitBox::Lyra2Db::ReadMediaLocators(*Db(), records));
    EXPECT_EQ(3U * kRounds, records.size());
    for (const auto& record : records)
        counts.insert(record.mChangeCount);
    ASSERT_TRUE(GitBox::Lyra2Db::ReadUserEnclosures(*Db(), "anna", records));
    EXPECT_EQ(1U * kRounds, records.size());
    for (const auto& record : records)
        counts.insert(record.mChangeCount);
    EXPECT_EQ(4U * kRounds, counts.size());
    std::int64_t count = 0;
    ASSERT_TRUE(GitBox::Lyra2Db::ReadChangeCount(*Db(), count));
    EXPECT_EQ(5 * kRounds, count);
}

TEST_F(SideDataConcurrency, NoEditFallsBetweenWhatAPushSendsAndTheCountItWrites)
{
    std::map<std::string, std::string> remote;  // what the pushes brought over
    mWorking = 2;
    const auto edit = [&](const std::string& inID) {
        Add(inID);
        for (int round = 0; round < 3 * kRounds; ++round) {
            dto::MediaLocator locator = Locator(inID, std::to_string(round));
            Check(mStore->EditMediaLocator(ID(), {}, WriteMode::LocalEdit, locator) == 200);
        }
        --mWorking;
    };
    const auto pushOnce = [&] {
        std::vector<dto::MediaLocator> locators;
        SyncChangeCount count;
        Check(mStore->GetUnsynchronizedLocallyModifiedMediaLocators(ID(), locators, count) == 200);
        for (const dto::MediaLocator& locator : locators)
            remote[locator.mMediaLocatorID.Text()] = locator.mProperties.mText;
        Check(mStore->SetMediaLocatorSyncChangeCount(ID(), count));
    };
    const auto push = [&] {
        while (mWorking > 0)
            pushOnce();
    };
    RunTogether({[&] { edit("a"); }, [&] { edit("b"); }, push});
    pushOnce();
    EXPECT_EQ(0U, mWrong);
    const std::string last = Locator("", std::to_string(3 * kRounds - 1)).mProperties.mText;
    EXPECT_EQ((std::map<std::string, std::string>{{"a", last}, {"b", last}}), remote);
}

TEST_F(SideDataConcurrency, ABatchThatIsRolledBackIsSeenByNobodyAndTakesNothingAlong)
{
    ASSERT_EQ(0, Db()->ExecuteCmd("CREATE TRIGGER no BEFORE INSERT ON MediaLocators WHEN NEW.ID='z' BEGIN SELECT "
                                  "RAISE(ABORT, 'no'); END"));
    mWorking = 2;
    const auto fail = [&] {
        for (int round = 0; round < kRounds; ++round) {
            std::vector<dto::MediaLocator> batch = Batch("lost");
            batch.push_back(Locator("z", "x"));
            Check(mStore->AddMediaLocators(ID(), WriteMode::LocalEdit, batch) == 500);
        }
        --mWorking;
    };
    const auto succeed = [&] {
        for (int round = 0; round < kRounds; ++round) {
            std::vector<dto::MediaLocator> batch = Batch(std::to_string(round) + "-");
            Check(mStore->AddMediaLocators(ID(), WriteMode::LocalEdit, batch) == 200);
        }
        --mWorking;
    };
    const auto read = [&] {
        while (mWorking > 0) {
            const auto locators = Locators();
            Check(locators.size() % kBatch == 0);
            for (const dto::MediaLocator& locator : locators)
                Check(!locator.mMediaLocatorID.Text().starts_with("lost"));
        }
    };
    const auto enclose = [&] {
        for (int round = 0; mWorking > 0; ++round) {
            dto::UserEnclosure enclosure;
            enclosure.mEnclosureID = std::to_string(round);
            const auto bytes = noxcore::utility::CopyToRecycledMemory("bytes");
            Check(mStore->AddUserEnclosure(ID(), "anna", WriteMode::LocalEdit, bytes, enclosure) == 200);
            Check(mStore->DeleteUserEnclosure(ID(), "anna", enclosure.mEnclosureID) == 200);
            ConstRecycledMemoryPtr payload;
            Check(mStore->GetUserEnclosure(ID(), "anna", enclosure.mEnclosureID, enclosure, payload) == 404);
        }
    };
    RunTogether({fail, succeed, read, enclose});
    EXPECT_EQ(0U, mWrong);
    EXPECT_EQ(kBatch * kRounds, Locators().size());
    std::vector<dto::UserEnclosure> enclosures;
    EXPECT_EQ(200, mStore->GetUserEnclosures(ID(), "anna", enclosures));
    EXPECT_TRUE(enclosures.empty());
}

TEST_F(SideDataConcurrency, ALocalEditIsNeverOverwrittenByARemoteOne)
{
    Add("a");
    SyncChangeCount count;
    std::vector<dto::MediaLocator> locators;
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(ID(), locators, count));
    ASSERT_TRUE(mStore->SetMediaLocatorSyncChangeCount(ID(), count));
    mWorking = 1;
    const auto edit = [&] {
        for (int round = 0; round < kRounds; ++round) {
            dto::MediaLocator locator = Locator("a", "local" + std::to_string(round));
            Check(mStore->EditMediaLocator(ID(), {}, WriteMode::LocalEdit, locator) == 200);
            dto::MediaLocator found;
            Check(mStore->GetMediaLocator(ID(), "a", found) == 200 && found.mProperties == locator.mProperties);
        }
        --mWorking;
    };
    const auto apply = [&] {
        for (int round = 0; mWorking > 0; ++round) {
            bool changed = false;
            const dto::MediaLocator locator = Locator("a", "remote" + std::to_string(round));
            Check(mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(ID(), locator, "anna", changed) == 200);
        }
    };
    RunTogether({edit, apply});
    EXPECT_EQ(0U, mWrong);
}

}  // namespace
