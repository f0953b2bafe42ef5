#include "Inc/Sync/MediaLocatorInterchange.h"

#include <chrono>
#include <future>

#include "Tests/Support/ThreadedStoreTest.h"
#include "Tests/Sync/EngineStoreFixture.h"
#include "Tests/Sync/StoreFixture.h"

namespace {

using namespace testing_support;

constexpr const char* kFailure = "MediaLocatorInterchange::EditMediaLocators: Failed to update media locator";

dto::MediaLocator Locator(const std::string& inID, const std::string& inProperties)
{
    dto::MediaLocator locator;
    locator.mMediaLocatorID = inID;
    locator.mProperties = dto::RawJSON(inProperties);
    return locator;
}

/// Media locators as they are on disk.
class LocatorEditsOverStoreTest : public EngineStoreFixture
{
protected:
    void Add(std::vector<dto::MediaLocator> inLocators) { EXPECT_EQ(200, mEngine->AddMediaLocators(mID, inLocators)); }
    int Edit(std::vector<dto::MediaLocator> inLocators) { return mEngine->EditMediaLocators(mID, inLocators); }
    dto::MediaLocator Stored(const std::string& inID)
    {
        dto::MediaLocator locator;
        EXPECT_EQ(200, mStore->GetMediaLocator(mID, inID, locator));
        return locator;
    }
    std::string PropertiesOf(const std::string& inID) { return std::string(Stored(inID).mProperties.Text()); }
    /// The session's change count at the last write.
    ImmutableString Tag()
    {
        SideDataTags tags;
        EXPECT_EQ(200, mStore->GetSideDataTags(mID, tags));
        return tags.mMediaLocators;
    }

    const ImmutableString mID = CreateSession().mIdentifier;
};

TEST_F(LocatorEditsOverStoreTest, AnEditReplacesWhatItNamesAndLeavesTheRestDigitForDigit)
{
    Add({Locator("m-1", R"({"href":"file:///a","size":1.000,"deep":{"x":[1e2]},"displayName":"a"})")});
    mScheduler->Advance(5000);
    const auto before = Stored("m-1");
    auto edit = Locator("m-1", R"({"displayName":"b","isProxy":null,"deep":{"y":2.50}})");
    EXPECT_EQ(200, mEngine->EditMediaLocators(mID, edit));
    EXPECT_EQ(R"({"href":"file:///a","size":1.000,"deep":{"y":2.50},"displayName":"b","isProxy":null})",
              PropertiesOf("m-1"));
    EXPECT_EQ(Stored("m-1"), edit) << "the record is given back as it is stored";
    EXPECT_EQ(before.mCreated, edit.mCreated);
    EXPECT_EQ(before.mCreatedBy, edit.mCreatedBy);
    EXPECT_LT(before.mLastModified, edit.mLastModified);
}

TEST_F(LocatorEditsOverStoreTest, AnEditOfNothingChangesNoProperty)
{
    Add({Locator("m-1", R"({"href":"a"})"), Locator("m-2", "{}")});
    EXPECT_EQ(200, Edit({Locator("m-1", ""), Locator("m-2", R"({"href":"b"})")}));
    EXPECT_EQ(R"({"href":"a"})", PropertiesOf("m-1"));
    EXPECT_EQ(R"({"href":"b"})", PropertiesOf("m-2"));
}

TEST_F(LocatorEditsOverStoreTest, EditsOfOneLocatorFollowOneAnotherAndGiveItBackOnce)
{
    Add({Locator("m-1", R"({"href":"a"})")});
    std::vector<dto::MediaLocator> edits = {Locator("m-1", R"({"deviceId":"d"})"), Locator("m-1", R"({"href":"b"})")};
    EXPECT_EQ(200, mEngine->EditMediaLocators(mID, edits));
    EXPECT_EQ(R"({"href":"b","deviceId":"d"})", PropertiesOf("m-1"));
    ASSERT_EQ(1U, edits.size());
    EXPECT_EQ(R"({"href":"b","deviceId":"d"})", edits.front().mProperties.mText);
}

TEST_F(LocatorEditsOverStoreTest, AnUnknownLocatorStopsTheWholeBatch)
{
    Add({Locator("m-1", R"({"href":"a"})")});
    const auto tag = Tag();
    auto edits = std::vector{Locator("m-1", R"({"href":"b"})"), Locator("m-2", R"({"href":"b"})")};
    const auto given = edits;
    EXPECT_EQ(404, mEngine->EditMediaLocators(mID, edits));
    EXPECT_EQ(given, edits);
    EXPECT_EQ(R"({"href":"a"})", PropertiesOf("m-1"));
    EXPECT_EQ(tag, Tag());
    dto::MediaLocator none;
    EXPECT_EQ(404, mStore->GetMediaLocator(mID, "m-2", none));
    ASSERT_EQ(1U, mLog->Count(kFailure));
    EXPECT_EQ("m-2", mLog->Find(kFailure)[0].Value("mediaLocatorId"));
    EXPECT_EQ("404", mLog->Find(kFailure)[0].Value("statusCode"));
    EXPECT_EQ(404, mEngine->EditMediaLocators("no such session", edits));
}

TEST_F(LocatorEditsOverStoreTest, ALargeBatchIsOneWriteAndKnowsItsUnknown)
{
    std::vector<dto::MediaLocator> locators;
    for (int i = 0; i < 1000; ++i)
        locators.push_back(Locator("m-" + std::to_string(i), R"({"href":"a","displayName":"n"})"));
    Add(locators);
    SyncChangeCount before;
    std::vector<dto::MediaLocator> unsent;
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(mID, unsent, before));
    for (auto& locator : locators)
        locator.mProperties = dto::RawJSON(R"({"href":"b"})");
    EXPECT_EQ(200, Edit(locators));
    SyncChangeCount after;
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(mID, unsent, after));
    EXPECT_EQ(before.mCount + 1, after.mCount) << "one change, however many locators";
    EXPECT_EQ(R"({"href":"b","displayName":"n"})", PropertiesOf("m-999"));

    locators.push_back(Locator("unknown", "{}"));
    locators[0].mProperties = dto::RawJSON(R"({"href":"c"})");
    EXPECT_EQ(404, Edit(locators));
    EXPECT_EQ(R"({"href":"b","displayName":"n"})", PropertiesOf("m-0"));
    EXPECT_EQ("unknown", mLog->Find(kFailure).at(0).Value("mediaLocatorId"));
}

TEST_F(LocatorEditsOverStoreTest, AddingIsAllOrNone)
{
    std::vector<dto::MediaLocator> locators = {Locator("m-1", R"({"href":"a"})"), Locator("", "{}")};
    EXPECT_EQ(400, mEngine->AddMediaLocators(mID, locators));
    dto::MediaLocator none;
    EXPECT_EQ(404, mStore->GetMediaLocator(mID, "m-1", none));
    locators.clear();
    EXPECT_EQ(200, mEngine->AddMediaLocators(mID, locators));
    EXPECT_EQ(200, mEngine->EditMediaLocators(mID, locators));
    EXPECT_EQ(404, mEngine->AddMediaLocators("no such session", locators));
}

/// Over threads as they are.
class LocatorEditThreads : public ThreadedStoreTest
{
protected:
    LocatorEditThreads() { ProjectBox::SetInstance(mStore); }
    ~LocatorEditThreads() override { ProjectBox::SetInstance(nullptr); }
};

TEST_F(LocatorEditThreads, EditsOfOneLocatorAtTheSameTimeAllStay)
{
    const auto engine = std::make_shared<MediaLocatorInterchange>();
    const ImmutableString id = mSession.mIdentifier;
    const ImmutableString ids[] = {id, mSession.mProductionID};
    std::vector<dto::MediaLocator> added = {Locator("m-1", R"({"href":"a"})")};
    ASSERT_EQ(200, engine->AddMediaLocators(id, added));

    constexpr int kThreads = 4;
    constexpr int kEdits = 25;
    const auto key = [](int inNumber) { return "\"k" + std::to_string(inNumber) + "\":1"; };
    std::vector<noxcore::threads::Task> tasks;
    for (int thread = 0; thread < kThreads; ++thread) {
        tasks.emplace_back([&, thread] {
            for (int i = 0; i < kEdits; ++i) {
                auto edit = Locator("m-1", "{" + key(thread * kEdits + i) + "}");
                EXPECT_EQ(200, engine->EditMediaLocators(ids[thread % 2], edit));
            }
        });
    }
    RunTogether(tasks);
    dto::MediaLocator stored;
    ASSERT_EQ(200, mStore->GetMediaLocator(id, "m-1", stored));
    for (int i = 0; i < kThreads * kEdits; ++i)
        EXPECT_NE(std::string_view::npos, stored.mProperties.Text().find(key(i))) << i;
}

}  // namespace

namespace VantryLocalHub {
namespace {

using namespace testing;

/// Edits over a store that fails where a test says so.
class LocatorEditFailureTest : public StoreFixture
{
protected:
    LocatorEditFailureTest() { Have("s1", "c1"); }

    void HaveLocator(const char* inID, int inStatus = 200)
    {
        dto::MediaLocator stored = Locator(inID, R"({"href":"a"})");
        EXPECT_CALL(*mBox, GetMediaLocator(ImmutableString("s1"), ImmutableString(inID), _))
            .WillOnce(DoAll(SetArgReferee<2>(stored), Return(inStatus)));
    }
    const std::shared_ptr<MediaLocatorInterchange> mEngine = std::make_shared<MediaLocatorInterchange>();
    std::future<int> mOther;
};

TEST_F(LocatorEditFailureTest, AFailedReadWritesNothing)
{
    HaveLocator("m-1");
    HaveLocator("m-2", 500);
    std::vector<dto::MediaLocator> edits = {Locator("m-1", "{}"), Locator("m-2", "{}"), Locator("m-3", "{}")};
    EXPECT_EQ(500, mEngine->EditMediaLocators("s1", edits));
    ASSERT_EQ(1U, mLog->Count(kFailure));
    EXPECT_EQ("m-2", mLog->Find(kFailure)[0].Value("mediaLocatorId"));
}

TEST_F(LocatorEditFailureTest, AFailedReadOfAllLocatorsWritesNothing)
{
    EXPECT_CALL(*mBox, GetMediaLocators(ImmutableString("s1"), _)).WillOnce(Return(500));
    std::vector<dto::MediaLocator> edits;
    for (int i = 0; i < 256; ++i)
        edits.push_back(Locator("m-" + std::to_string(i), "{}"));
    EXPECT_EQ(500, mEngine->EditMediaLocators("s1", edits));
    EXPECT_EQ("500", mLog->Find(kFailure).at(0).Value("statusCode"));
}

TEST_F(LocatorEditFailureTest, AFailedWriteLeavesTheArgumentAsItWas)
{
    HaveLocator("m-1");
    EXPECT_CALL(*mBox, AddMediaLocators(ImmutableString("s1"), WriteMode::LocalEdit, SizeIs(1))).WillOnce(Return(500));
    auto edit = Locator("m-1", R"({"href":"b"})");
    EXPECT_EQ(500, mEngine->EditMediaLocators("s1", edit));
    EXPECT_EQ(Locator("m-1", R"({"href":"b"})"), edit);
    EXPECT_EQ("m-1", mLog->Find(kFailure).at(0).Value("mediaLocatorId"));
}

TEST_F(LocatorEditFailureTest, AWriteOfOneSessionDoesNotKeepAnotherWaiting)
{
    Have("s2", "c2");
    EXPECT_CALL(*mBox, AddMediaLocators(ImmutableString("s2"), _, _)).WillOnce(Return(200));
    EXPECT_CALL(*mBox, AddMediaLocators(ImmutableString("s1"), _, _))
        .WillOnce([&](const ImmutableString&, WriteMode, std::vector<dto::MediaLocator>&) {
            mOther = std::async(std::launch::async, [&, context = noxcore::HubContext::Current()] {
                const noxcore::HubContext::Scope scope(context);
                std::vector<dto::MediaLocator> added = {Locator("m-2", "{}")};
                return mEngine->AddMediaLocators("s2", added);
            });
            // The wait has an end: under a common lock both would wait for ever.
            EXPECT_EQ(std::future_status::ready, mOther.wait_for(std::chrono::seconds(30)));
            return 200;
        });
    std::vector<dto::MediaLocator> added = {Locator("m-1", "{}")};
    EXPECT_EQ(200, mEngine->AddMediaLocators("s1", added));
    EXPECT_EQ(200, mOther.get());
}

TEST_F(LocatorEditFailureTest, OneLocatorIsReadAndWrittenOnceHoweverOftenItIsEdited)
{
    HaveLocator("m-1");
    EXPECT_CALL(*mBox, AddMediaLocators(ImmutableString("s1"), WriteMode::LocalEdit, SizeIs(1))).WillOnce(Return(200));
    std::vector<dto::MediaLocator> edits(3, Locator("m-1", "{}"));
    EXPECT_EQ(200, mEngine->EditMediaLocators("s1", edits));
}

}  // namespace
}  // namespace VantryLocalHub
