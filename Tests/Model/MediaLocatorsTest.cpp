#include <gmock/gmock.h>

#include "Tests/Support/SideDataFixture.h"

namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class MediaLocatorsTest : public SideDataFixture
{
protected:
    bool ApplyRemote(const dto::MediaLocator& inRemote)
    {
        bool changed = false;
        EXPECT_EQ(200, mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, inRemote, "carla", changed));
        return changed;
    }
    std::string NewestTime()
    {
        RFC3339DateTime time;
        EXPECT_EQ(200, mStore->GetLastModifiedMediaLocatorTime(mID, time));
        return time.Text();
    }
    std::string StoredNewestTime()
    {
        RFC3339DateTime time;
        EXPECT_TRUE(GitBox::Lyra2Db::ReadLastModifiedMediaLocatorTime(*Db(), time));
        return time.Text();
    }
};

TEST_F(MediaLocatorsTest, ALocalEditIsStampedAndMovesTheCounter)
{
    const RFC3339DateTime created = RFC3339DateTime::Now();
    dto::MediaLocator locator = RemoteLocator("a", "file:///a.mov");
    ASSERT_EQ(200, mStore->AddMediaLocator(mID, WriteMode::LocalEdit, locator));
    EXPECT_EQ(created, locator.mCreated);
    EXPECT_EQ(created, locator.mLastModified);
    EXPECT_NE("", locator.mCreatedBy);
    EXPECT_EQ(locator.mCreatedBy, locator.mLastModifiedBy);
    EXPECT_EQ(locator, GetLocator("a"));
    EXPECT_EQ(1, ChangeCountOf("a"));

    mScheduler->Advance(5000);
    locator.mLastModifiedBy = "somebody";
    ASSERT_EQ(200, mStore->EditMediaLocator(mID, {}, WriteMode::LocalEdit, locator));
    EXPECT_EQ(created, locator.mCreated);
    EXPECT_EQ(RFC3339DateTime::Now(), locator.mLastModified);
    EXPECT_EQ(locator.mCreatedBy, locator.mLastModifiedBy);
    ReopenStore();
    EXPECT_EQ(locator, GetLocator("a"));
    EXPECT_EQ(2, ChangeCountOf("a"));
    EXPECT_EQ(2, ChangeCount());
}

TEST_F(MediaLocatorsTest, TheSyncEngineKeepsTimesAndUsersAndLeavesTheCounter)
{
    const dto::MediaLocator remote = RemoteLocator("a", "https://a");
    ASSERT_EQ(200, AddLocator(remote, WriteMode::SyncEngine));
    EXPECT_EQ(remote, GetLocator("a"));
    const dto::MediaLocator edited = RemoteLocator("a", "https://b", "2023-02-02T00:00:00Z");
    ASSERT_EQ(200, EditLocator(edited, WriteMode::SyncEngine));
    EXPECT_EQ(edited, GetLocator("a"));
    std::vector<dto::MediaLocator> batch{RemoteLocator("b", "https://b"), RemoteLocator("c", "https://c")};
    ASSERT_EQ(200, mStore->AddMediaLocators(mID, WriteMode::SyncEngine, batch));
    EXPECT_EQ(batch[1], GetLocator("c"));
    EXPECT_EQ(0, ChangeCount());
}

TEST_F(MediaLocatorsTest, ALocatorAddedAgainIsReplacedAndStaysCreatedWhenItWas)
{
    const dto::MediaLocator remote = RemoteLocator("a", "https://a");
    ASSERT_EQ(200, AddLocator(remote, WriteMode::SyncEngine));
    ASSERT_EQ(200, AddLocator(Locator("a", "file:///again")));
    EXPECT_EQ(remote.mCreated, GetLocator("a").mCreated);
    EXPECT_EQ("anna", GetLocator("a").mCreatedBy);
    EXPECT_EQ(RFC3339DateTime::Now(), GetLocator("a").mLastModified);
    EXPECT_NE("berta", GetLocator("a").mLastModifiedBy);

    std::vector<dto::MediaLocator> batch{Locator("0"), Locator("a", "file:///batch"), Locator("z")};
    ASSERT_EQ(200, mStore->AddMediaLocators(mID, WriteMode::LocalEdit, batch));
    EXPECT_EQ("anna", GetLocator("a").mCreatedBy);
    EXPECT_EQ("file:///batch", HrefOf("a"));
    EXPECT_EQ(batch[1], GetLocator("a"));
    EXPECT_EQ(RFC3339DateTime::Now(), GetLocator("0").mCreated);
    EXPECT_THAT(LocatorIDs(), ElementsAre("0", "a", "z"));
}

TEST_F(MediaLocatorsTest, ABatchIsOneChange)
{
    ASSERT_EQ(200, AddLocator(Locator("first")));
    std::vector<dto::MediaLocator> batch;
    for (int index = 0; index < 1000; ++index)
        batch.push_back(Locator(std::to_string(index)));
    ASSERT_EQ(200, mStore->AddMediaLocators(mID, WriteMode::LocalEdit, batch));
    EXPECT_EQ(2, ChangeCount());
    EXPECT_EQ(2, ChangeCountOf("0"));
    EXPECT_EQ(2, ChangeCountOf("999"));
    EXPECT_EQ(1001U, LocatorIDs().size());

    std::vector<dto::MediaLocator> none;
    EXPECT_EQ(200, mStore->AddMediaLocators(mID, WriteMode::LocalEdit, none));
    EXPECT_EQ(2, ChangeCount());
}

TEST_F(MediaLocatorsTest, AnEditReplacesThePropertiesAndOneWithoutKeepsThem)
{
    dto::MediaLocator locator = Locator("a");
    locator.mProperties = dto::RawJSON(R"({"href":"x","unknown":{"kept":1.50}})");
    locator.mLinks.push_back({"self", "", "/api/of/this/answer"});
    ASSERT_EQ(200, AddLocator(locator));
    EXPECT_EQ(locator.mProperties, GetLocator("a").mProperties);
    EXPECT_THAT(GetLocator("a").mLinks, IsEmpty()) << "links are of an answer";
    dto::MediaLocator edit;
    edit.mMediaLocatorID = "a";
    ASSERT_EQ(200, mStore->EditMediaLocator(mID, {}, WriteMode::LocalEdit, edit));
    EXPECT_EQ(locator.mProperties, edit.mProperties);
    edit.mProperties = dto::RawJSON(R"({"displayName":"y"})");
    ASSERT_EQ(200, EditLocator(edit));
    EXPECT_EQ(R"({"displayName":"y"})", GetLocator("a").mProperties.Text());
}

TEST_F(MediaLocatorsTest, EditingWhatIsNotThereIsLoggedAndChangesNothing)
{
    EXPECT_EQ(404, EditLocator(Locator("absent")));
    EXPECT_EQ(1U, mLog->Count("Media locator not found to edit"));
    EXPECT_EQ(0, ChangeCount());
    dto::MediaLocator locator = Locator("untouched");
    EXPECT_EQ(404, mStore->GetMediaLocator(mID, "absent", locator));
    EXPECT_EQ(Locator("untouched"), locator);
    EXPECT_THAT(LocatorIDs(), IsEmpty());
}

TEST_F(MediaLocatorsTest, ALocatorWithoutAnIdIsRefusedAndItsBatchWithIt)
{
    EXPECT_EQ(400, AddLocator(Locator("")));
    std::vector<dto::MediaLocator> batch{Locator("a"), Locator("")};
    EXPECT_EQ(400, mStore->AddMediaLocators(mID, WriteMode::LocalEdit, batch));
    bool changed = false;
    EXPECT_EQ(400, mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, Locator(""), "carla", changed));
    EXPECT_THAT(LocatorIDs(), IsEmpty());
    EXPECT_EQ(0, ChangeCount());
}

TEST_F(MediaLocatorsTest, AnEditInATransactionIsRefusedInItsOwnWords)
{
    ASSERT_EQ(200, AddLocator(Locator("a", "file:///before")));
    dto::MediaLocator edit = Locator("a", "file:///after");
    EXPECT_EQ(400, mStore->EditMediaLocator(mID, "t", WriteMode::LocalEdit, edit));
    const auto refused = mLog->Find("You cannot edit a media locator on a transaction");
    ASSERT_EQ(1U, refused.size());
    EXPECT_EQ("t", refused.front().Value("trasactionId"));
    EXPECT_EQ("a", refused.front().Value("mediaLocatorId"));
    EXPECT_EQ("file:///before", HrefOf("a"));
}

TEST_F(MediaLocatorsTest, EachOperationSaysInItsOwnWordsThatThereIsNoSuchProduction)
{
    dto::MediaLocator locator = Locator("a");
    std::vector<dto::MediaLocator> locators{locator};
    SyncChangeCount count;
    bool changed = false;
    RFC3339DateTime time;
    SideDataTags tags;
    const ImmutableString none = "p-none";
    struct Case
    {
        int mStatus;
        std::string mMessage;
        bool mNamesLocator;
    };
    const Case cases[] = {
        {mStore->AddMediaLocator(none, WriteMode::LocalEdit, locator),
         "Failed to add media locator to production. Production not found", true},
        {mStore->AddMediaLocators(none, WriteMode::LocalEdit, locators),
         "Failed to add media locators to production. Production not found", false},
        {mStore->EditMediaLocator(none, {}, WriteMode::LocalEdit, locator),
         "Failed to get media locator. Production not found", false},
        {mStore->GetMediaLocator(none, "a", locator), "Failed to get media locator. Production not found", true},
        {mStore->GetMediaLocators(none, locators), "Failed to get media locators. Production not found", false},
        {mStore->GetUnsynchronizedLocallyModifiedMediaLocators(none, locators, count),
         "Failed to get media locators. Production not found", false}};
    const auto records = mLog->All();
    ASSERT_EQ(std::size(cases), records.size());
    for (std::size_t place = 0; place < std::size(cases); ++place) {
        EXPECT_EQ(404, cases[place].mStatus);
        EXPECT_EQ(cases[place].mMessage, records[place].mMessage);
        EXPECT_EQ("p-none", records[place].Value("productionId"));
        EXPECT_EQ(cases[place].mNamesLocator ? "a" : "", records[place].Value("mediaLocatorId"));
    }
    EXPECT_EQ(404, mStore->GetLastModifiedMediaLocatorTime(none, time));
    EXPECT_EQ(404, mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(none, locator, "carla", changed));
    EXPECT_EQ(404, mStore->GetSideDataTags(none, tags));
    EXPECT_EQ(std::size(cases), mLog->All().size());
}

TEST_F(MediaLocatorsTest, ASessionIsFoundByItsProductionToo)
{
    dto::MediaLocator locator = Locator("a");
    ASSERT_EQ(200, mStore->AddMediaLocator(mSession.mProductionID, WriteMode::LocalEdit, locator));
    EXPECT_THAT(LocatorIDs(), ElementsAre("a"));
}

TEST_F(MediaLocatorsTest, WhatTheRemoteSideKnowsIsNotGivenOutAgain)
{
    SyncChangeCount count;
    EXPECT_THAT(UnsynchronizedLocators(count), IsEmpty());
    EXPECT_EQ(SyncChangeCount{0}, count);
    ASSERT_EQ(200, AddLocator(Locator("a")));
    ASSERT_EQ(200, AddLocator(Locator("b")));
    ASSERT_EQ(200, AddLocator(RemoteLocator("remote", "https://a"), WriteMode::SyncEngine));
    EXPECT_THAT(UnsynchronizedLocators(count), ElementsAre("a", "b", "remote")) << "nothing was exchanged: all";
    EXPECT_EQ(SyncChangeCount{2}, count);
    ASSERT_TRUE(mStore->SetMediaLocatorSyncChangeCount(mID, count));
    EXPECT_THAT(UnsynchronizedLocators(count), IsEmpty());

    ASSERT_EQ(200, EditLocator(Locator("b", "file:///b.mov")));
    ASSERT_EQ(200, AddLocator(RemoteLocator("later", "https://b"), WriteMode::SyncEngine));
    ASSERT_EQ(200, EditLocator(RemoteLocator("a", "https://c"), WriteMode::SyncEngine));
    ReopenStore();
    EXPECT_THAT(UnsynchronizedLocators(count), ElementsAre("b"));
    EXPECT_EQ(SyncChangeCount{3}, count);
    ASSERT_TRUE(mStore->ResetMediaLocatorSyncChangeCount(mID));
    EXPECT_EQ(4U, UnsynchronizedLocators(count).size());
}

TEST_F(MediaLocatorsTest, ARemoteLocatorThatIsNotThereIsAdded)
{
    dto::MediaLocator remote = RemoteLocator("a", "https://a");
    EXPECT_TRUE(ApplyRemote(remote));
    EXPECT_EQ(remote, GetLocator("a"));
    remote = RemoteLocator("b", "https://b");
    remote.mCreatedBy.clear();
    remote.mLastModifiedBy.clear();
    EXPECT_TRUE(ApplyRemote(remote));
    EXPECT_EQ("carla", GetLocator("b").mCreatedBy);
    EXPECT_EQ("carla", GetLocator("b").mLastModifiedBy);
    EXPECT_EQ(0, ChangeCount());
}

TEST_F(MediaLocatorsTest, ARemoteLocatorOfEqualPropertiesChangesNothing)
{
    dto::MediaLocator local = Locator("a");
    local.mProperties = dto::RawJSON(R"({"displayName":"n","onlyHere":true,"href":"x"})");
    ASSERT_EQ(200, mStore->AddMediaLocator(mID, WriteMode::LocalEdit, local));
    ExchangeLocators();
    const std::string tag = Tags().mMediaLocators.Text();
    dto::MediaLocator remote = RemoteLocator("a", "x");
    remote.mProperties = dto::RawJSON(R"({"href":"x","displayName":"n"})");
    EXPECT_FALSE(ApplyRemote(remote));
    EXPECT_EQ(local, GetLocator("a"));
    EXPECT_EQ(tag, Tags().mMediaLocators.Text());
    EXPECT_THAT(mLog->All(), IsEmpty());
}

TEST_F(MediaLocatorsTest, ALocatorNeverExchangedIsReplacedByTheRemoteOne)
{
    ASSERT_EQ(200, AddLocator(Locator("a", "file:///local")));
    EXPECT_TRUE(ApplyRemote(RemoteLocator("a", "https://remote")));
    EXPECT_EQ("https://remote", HrefOf("a"));
    ExchangeLocators();
    EXPECT_TRUE(ApplyRemote(RemoteLocator("a", "https://newer")));
    EXPECT_EQ("https://newer", HrefOf("a"));
}

TEST_F(MediaLocatorsTest, ALocalEditSinceTheLastExchangeIsKept)
{
    ASSERT_EQ(200, AddLocator(Locator("a", "file:///first")));
    ExchangeLocators();
    mScheduler->Advance(1000);
    ASSERT_EQ(200, EditLocator(Locator("a", "file:///second")));
    EXPECT_FALSE(ApplyRemote(RemoteLocator("a", "https://remote")));
    EXPECT_EQ("file:///second", HrefOf("a"));
    const auto kept = mLog->Find("Unsynchronized local media locator: will not replace with remote media locator");
    ASSERT_EQ(1U, kept.size());
    EXPECT_EQ("HubSync", kept.front().mCategory);
    EXPECT_EQ("2", kept.front().Value("changeCount"));
    EXPECT_EQ("1", kept.front().Value("lastSyncChangeCount"));
    EXPECT_EQ(RFC3339DateTime::Now().Text(), kept.front().Value("localModifiedTime"));
    EXPECT_EQ("2023-01-02T00:00:00Z", kept.front().Value("remoteModifiedTime"));
    EXPECT_EQ(dto::ToJSON(RemoteLocator("a", "https://remote")), kept.front().Value("remoteMediaLocator"));
    EXPECT_EQ(dto::ToJSON(GetLocator("a")), kept.front().Value("localMediaLocator"));
}

TEST_F(MediaLocatorsTest, AnEditBehindTheCountOfAPushUnderWayGoesOutWithTheNext)
{
    ASSERT_EQ(200, AddLocator(Locator("a", "file:///first")));
    SyncChangeCount pushed;
    EXPECT_THAT(UnsynchronizedLocators(pushed), ElementsAre("a"));
    ASSERT_EQ(200, EditLocator(Locator("a", "file:///second")));
    ASSERT_TRUE(mStore->SetMediaLocatorSyncChangeCount(mID, pushed));
    EXPECT_FALSE(ApplyRemote(RemoteLocator("a", "file:///first")));
    EXPECT_EQ("file:///second", HrefOf("a"));
    SyncChangeCount next;
    EXPECT_THAT(UnsynchronizedLocators(next), ElementsAre("a"));
    EXPECT_FALSE(next.IsWithin(pushed));
}

TEST_F(MediaLocatorsTest, TheNewestTimeOnlyRisesAndOutlivesARestart)
{
    EXPECT_EQ("", NewestTime());
    ASSERT_EQ(200, AddLocator(RemoteLocator("a", "https://a", "2023-03-01T00:00:00Z"), WriteMode::SyncEngine));
    EXPECT_EQ("2023-03-01T00:00:00Z", NewestTime());
    ASSERT_EQ(200, AddLocator(RemoteLocator("b", "https://b", "2023-02-01T00:00:00Z"), WriteMode::SyncEngine));
    EXPECT_EQ("2023-03-01T00:00:00Z", NewestTime());
    std::vector<dto::MediaLocator> batch{RemoteLocator("c", "https://c", "2023-04-01T00:00:00Z"),
                                         RemoteLocator("d", "https://d", "2023-03-15T00:00:00Z")};
    ASSERT_EQ(200, mStore->AddMediaLocators(mID, WriteMode::SyncEngine, batch));
    EXPECT_EQ("2023-04-01T00:00:00Z", NewestTime());
    ReopenStore();
    ASSERT_EQ(200, EditLocator(RemoteLocator("a", "https://d", "2023-05-01T00:00:00Z"), WriteMode::SyncEngine));
    EXPECT_EQ("2023-05-01T00:00:00Z", StoredNewestTime()) << "written with the locator, not when asked for";
    ASSERT_EQ(200, EditLocator(RemoteLocator("b", "https://d", ""), WriteMode::SyncEngine));
    EXPECT_EQ("2023-05-01T00:00:00Z", NewestTime());
    ReopenStore();
    EXPECT_EQ("2023-05-01T00:00:00Z", NewestTime());
}

TEST_F(MediaLocatorsTest, ANewestTimeThatIsMissingOrTooOldIsMadeUpFor)
{
    ASSERT_EQ(200, AddLocator(RemoteLocator("a", "https://a", "2023-03-01T00:00:00Z"), WriteMode::SyncEngine));
    ASSERT_EQ(200, AddLocator(RemoteLocator("b", "https://b", "2023-02-01T00:00:00Z"), WriteMode::SyncEngine));
    for (const std::string change : {"DELETE FROM KeyValue WHERE Key='LastModifiedMediaLocator'",
                                     "UPDATE KeyValue SET Value='2023-02-01T00:00:00Z' WHERE "
                                     "Key='LastModifiedMediaLocator'"}) {
        ASSERT_EQ(0, Db()->ExecuteCmd(change));
        ReopenStore();
        EXPECT_EQ("2023-03-01T00:00:00Z", NewestTime());
        EXPECT_EQ("2023-03-01T00:00:00Z", StoredNewestTime());
    }
}

TEST_F(MediaLocatorsTest, ALocatorThatCannotBeReadIsLeftOutOfAListAndIsAFailureAlone)
{
    ASSERT_EQ(200, AddLocator(Locator("a")));
    ASSERT_TRUE(GitBox::Lyra2Db::WriteMediaLocator(*Db(), "b", "[]", 2));
    ASSERT_EQ(200, AddLocator(Locator("c")));
    EXPECT_THAT(LocatorIDs(), ElementsAre("a", "c"));
    dto::MediaLocator locator;
    EXPECT_EQ(500, mStore->GetMediaLocator(mID, "b", locator));
    EXPECT_EQ(500, EditLocator(Locator("b")));
    bool changed = false;
    EXPECT_EQ(500, mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, Locator("b"), "carla", changed));
    EXPECT_EQ(4U, mLog->Count("Stored media locator is not readable"));
    EXPECT_EQ(200, AddLocator(Locator("b"))) << "writing it anew mends it";
    EXPECT_THAT(LocatorIDs(), ElementsAre("a", "b", "c"));
}

TEST_F(MediaLocatorsTest, OfVeryManyEachIsReadAsItWasWrittenAndInTheOrderOfIds)
{
    std::vector<dto::MediaLocator> batch;
    for (int index = 1000; index < 3000; ++index)
        batch.push_back(Locator(std::to_string(index), "file:///" + std::to_string(index)));
    ASSERT_EQ(200, mStore->AddMediaLocators(mID, WriteMode::LocalEdit, batch));
    ASSERT_TRUE(GitBox::Lyra2Db::WriteMediaLocator(*Db(), "1999", "[]", 1));
    ASSERT_TRUE(GitBox::Lyra2Db::WriteMediaLocator(*Db(), "2999", "{", 1));
    batch.erase(batch.begin() + 999);
    batch.pop_back();
    std::vector<dto::MediaLocator> read;
    ASSERT_EQ(200, mStore->GetMediaLocators(mID, read));
    EXPECT_EQ(batch, read);
    SyncChangeCount count;
    EXPECT_EQ(IDsOf(batch), UnsynchronizedLocators(count));
}

TEST_F(MediaLocatorsTest, LocatorsAreThereAfterTheirFilesWereClosed)
{
    ASSERT_EQ(200, AddLocator(Locator("a")));
    mScheduler->Advance(1000);
    mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks());
    mVfs->ResetCounts();
    EXPECT_THAT(LocatorIDs(), ElementsAre("a"));
    EXPECT_NE(0U, mVfs->Count(FileOperation::Open));
}

}  // namespace
