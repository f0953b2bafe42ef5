#include <gmock/gmock.h>

#include <functional>

#include "Tests/Support/SideDataFixture.h"

namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;

class UserEnclosuresTest : public SideDataFixture
{
protected:
    std::vector<std::string> NamesOf(const std::string& inUser)
    {
        std::vector<dto::UserEnclosure> enclosures;
        EXPECT_EQ(200, mStore->GetUserEnclosures(mID, inUser, enclosures));
        return Names(enclosures);
    }
    std::vector<std::string> Unsynchronized(const std::string& inUser, SyncChangeCount& outSyncTo)
    {
        std::vector<dto::UserEnclosure> enclosures;
        EXPECT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures(mID, inUser, enclosures, outSyncTo));
        return Names(enclosures);
    }
    dto::UserEnclosure Get(const std::string& inUser, const std::string& inID)
    {
        dto::UserEnclosure enclosure;
        ConstRecycledMemoryPtr payload;
        EXPECT_EQ(200, mStore->GetUserEnclosure(mID, inUser, inID, enclosure, payload));
        return enclosure;
    }
    static std::vector<std::string> Names(const std::vector<dto::UserEnclosure>& inEnclosures)
    {
        std::vector<std::string> names;
        for (const dto::UserEnclosure& enclosure : inEnclosures)
            names.push_back(enclosure.mName);
        return names;
    }
};

TEST_F(UserEnclosuresTest, AnEnclosureGetsItsIdsFromItsContent)
{
    dto::UserEnclosure enclosure;
    enclosure.mName = "layout";
    enclosure.mEtag = "of the client";
    enclosure.mLinks.push_back({"self", "", "/api/of/this/answer"});
    ASSERT_EQ(200, mStore->AddUserEnclosure(mID, "anna", WriteMode::LocalEdit, Bytes("payload"), enclosure));
    EXPECT_EQ(36U, enclosure.mEnclosureID.Text().size());
    EXPECT_EQ(mStore->ComputeContentHash(mID, Bytes("payload")), enclosure.mEnclosureContentID);
    EXPECT_EQ(enclosure.mEnclosureContentID, enclosure.mDataContentID);
    ReopenStore();
    EXPECT_EQ(enclosure, Get("anna", enclosure.mEnclosureID.Text()));
    EXPECT_EQ("payload", ContentOf("anna", enclosure.mEnclosureID.Text()));
    EXPECT_EQ(1, ChangeCount());

    dto::UserEnclosure other;
    other.mName = "layout";
    ASSERT_EQ(200, mStore->AddUserEnclosure(mID, "anna", WriteMode::LocalEdit, nullptr, other));
    EXPECT_NE(enclosure.mEnclosureID, other.mEnclosureID);
    EXPECT_NE(enclosure.mEtag, other.mEtag);
    EXPECT_EQ("", ContentOf("anna", other.mEnclosureID.Text()));
}

TEST_F(UserEnclosuresTest, BytesOfAnyKindComeBackAsTheyWere)
{
    const std::string bytes("\0\xff\x80 tail\n", 9);
    ASSERT_EQ(200, AddEnclosure("anna", "e", bytes));
    EXPECT_EQ(bytes, ContentOf("anna", "e"));
}

TEST_F(UserEnclosuresTest, EachUserSeesTheirOwn)
{
    ASSERT_EQ(200, AddEnclosure("anna", "1", "a"));
    ASSERT_EQ(200, AddEnclosure("berta", "2", "b"));
    ASSERT_EQ(200, AddEnclosure("anna", "3", "c"));
    EXPECT_THAT(NamesOf("anna"), ElementsAre("_userdata.1", "_userdata.3"));
    EXPECT_THAT(NamesOf("berta"), ElementsAre("_userdata.2"));
    EXPECT_THAT(NamesOf("carla"), IsEmpty());
    EXPECT_EQ("", ContentOf("berta", "1"));
    dto::UserEnclosure update;
    update.mEnclosureID = "1";
    EXPECT_EQ(404, mStore->UpdateUserEnclosure(mID, "berta", WriteMode::LocalEdit, Bytes("stolen"), update));
    EXPECT_EQ(404, mStore->DeleteUserEnclosure(mID, "berta", "1"));
    EXPECT_EQ("a", ContentOf("anna", "1"));
}

TEST_F(UserEnclosuresTest, AnIdThatAnotherUserHoldsChangesHands)
{
    ASSERT_EQ(200, AddEnclosure("anna", "e", "of anna"));
    ASSERT_EQ(200, AddEnclosure("berta", "e", "of berta"));
    EXPECT_EQ("", ContentOf("anna", "e"));
    EXPECT_EQ("of berta", ContentOf("berta", "e"));
}

TEST_F(UserEnclosuresTest, AnUpdateChangesWhatItBringsAndKeepsTheRest)
{
    ASSERT_EQ(200, AddEnclosure("anna", "e", "first"));
    const dto::UserEnclosure before = Get("anna", "e");
    dto::UserEnclosure update;
    update.mEnclosureID = "e";
    ASSERT_EQ(200, mStore->UpdateUserEnclosure(mID, "anna", WriteMode::LocalEdit, Bytes("second"), update));
    EXPECT_EQ(before.mName, update.mName);
    EXPECT_NE(before.mEtag, update.mEtag);
    EXPECT_NE(before.mEnclosureContentID, update.mEnclosureContentID);
    EXPECT_EQ("second", ContentOf("anna", "e"));

    dto::UserEnclosure rename;
    rename.mEnclosureID = "e";
    rename.mName = "renamed";
    ASSERT_EQ(200, mStore->UpdateUserEnclosure(mID, "anna", WriteMode::LocalEdit, nullptr, rename));
    EXPECT_EQ("second", ContentOf("anna", "e"));
    EXPECT_EQ(update.mEnclosureContentID, rename.mEnclosureContentID);
    EXPECT_NE(update.mEtag, rename.mEtag);
    EXPECT_EQ(rename, Get("anna", "e"));
    EXPECT_EQ(3, ChangeCount());
}

TEST_F(UserEnclosuresTest, TheSyncEngineKeepsTheTagsOfTheRemoteSideAndLeavesTheCounter)
{
    dto::UserEnclosure remote;
    remote.mEnclosureID = "e";
    remote.mName = "_userdata.e";
    remote.mEtag = "remote tag";
    remote.mEnclosureContentID = "remote content";
    remote.mDataContentID = "remote data";
    dto::UserEnclosure added = remote;
    ASSERT_EQ(200, mStore->AddUserEnclosure(mID, "anna", WriteMode::SyncEngine, Bytes("a"), added));
    EXPECT_EQ(remote, Get("anna", "e"));
    remote.mEtag = "next tag";
    dto::UserEnclosure updated = remote;
    ASSERT_EQ(200, mStore->UpdateUserEnclosure(mID, "anna", WriteMode::SyncEngine, Bytes("b"), updated));
    EXPECT_EQ(remote, Get("anna", "e"));
    EXPECT_EQ("b", ContentOf("anna", "e"));
    EXPECT_EQ(0, ChangeCount());
}

TEST_F(UserEnclosuresTest, WhatTheRemoteSideKnowsIsNotGivenOutAgain)
{
    SyncChangeCount count;
    ASSERT_EQ(200, AddLocator(Locator("locator")));
    ASSERT_EQ(200, AddEnclosure("anna", "1", "a"));
    ASSERT_EQ(200, AddEnclosure("berta", "2", "b"));
    EXPECT_THAT(Unsynchronized("anna", count), ElementsAre("_userdata.1"));
    EXPECT_EQ(SyncChangeCount{3}, count);
    ASSERT_TRUE(mStore->SetUserEnclosureSyncChangeCount(mID, count));
    EXPECT_THAT(Unsynchronized("anna", count), IsEmpty());
    EXPECT_THAT(UnsynchronizedLocators(count), ElementsAre("locator")) << "the two kinds are exchanged apart";

    ASSERT_EQ(200, AddEnclosure("anna", "3", "c", WriteMode::SyncEngine));
    ASSERT_EQ(200, AddEnclosure("anna", "4", "d"));
    EXPECT_THAT(Unsynchronized("anna", count), ElementsAre("_userdata.4"));
    ASSERT_TRUE(mStore->ResetUserEnclosureSyncChangeCount(mID));
    EXPECT_EQ(3U, Unsynchronized("anna", count).size());
}

TEST_F(UserEnclosuresTest, ADeletedEnclosureIsGoneAndTheCounterStays)
{
    ASSERT_EQ(200, AddEnclosure("anna", "e", "a"));
    ASSERT_EQ(200, mStore->DeleteUserEnclosure(mID, "anna", "e"));
    EXPECT_EQ(404, mStore->DeleteUserEnclosure(mID, "anna", "e"));
    EXPECT_EQ("", ContentOf("anna", "e"));
    EXPECT_EQ(1, ChangeCount());
    ReopenStore();
    EXPECT_THAT(NamesOf("anna"), IsEmpty());
}

TEST_F(UserEnclosuresTest, AnUnknownSessionIsNotFoundByAnyOperation)
{
    dto::UserEnclosure enclosure;
    std::vector<dto::UserEnclosure> enclosures;
    ConstRecycledMemoryPtr payload;
    SyncChangeCount count;
    EXPECT_EQ(404, mStore->GetUserEnclosures("none", "anna", enclosures));
    EXPECT_EQ(404, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures("none", "anna", enclosures, count));
    EXPECT_EQ(404, mStore->GetUserEnclosure("none", "anna", "e", enclosure, payload));
    EXPECT_EQ(404, mStore->AddUserEnclosure("none", "anna", WriteMode::LocalEdit, Bytes("a"), enclosure));
    EXPECT_EQ(404, mStore->UpdateUserEnclosure("none", "anna", WriteMode::LocalEdit, Bytes("a"), enclosure));
    EXPECT_EQ(404, mStore->DeleteUserEnclosure("none", "anna", "e"));
    EXPECT_EQ(dto::UserEnclosure(), enclosure);
}

TEST_F(UserEnclosuresTest, AnEnclosureThatCannotBeReadIsLeftOutOfAListAndIsAFailureAlone)
{
    ASSERT_EQ(200, AddEnclosure("anna", "1", "a"));
    ASSERT_TRUE(GitBox::Lyra2Db::WriteUserEnclosure(*Db(), "anna", "2", "[]", "b", 2));
    EXPECT_THAT(NamesOf("anna"), ElementsAre("_userdata.1"));
    dto::UserEnclosure enclosure;
    ConstRecycledMemoryPtr payload;
    EXPECT_EQ(500, mStore->GetUserEnclosure(mID, "anna", "2", enclosure, payload));
    enclosure.mEnclosureID = "2";
    EXPECT_EQ(500, mStore->UpdateUserEnclosure(mID, "anna", WriteMode::LocalEdit, Bytes("a"), enclosure));
    EXPECT_EQ(3U, mLog->Count("Stored user enclosure is not readable"));
}

/// What clients watch of both kinds of side data.
class SideDataTagsTest : public SideDataFixture
{
protected:
    /// How often the session was said to have changed by what the function does.
    std::size_t Messages(const std::function<void()>& inFunction)
    {
        mScheduler->RunUntilIdle();
        std::size_t messages = 0;
        const auto listener = ProjectBox::Station()->Listen<ProjectBox::SessionChangedMessage>(
            [&](const ProjectBox::SessionChangedMessage& inMessage) { messages += inMessage.mSessionID == mID; });
        inFunction();
        mScheduler->RunUntilIdle();
        return messages;
    }
};

TEST_F(SideDataTagsTest, TagsAreTheChangeCountsOfTheLastWrites)
{
    EXPECT_EQ("0", Tags().mMediaLocators);
    EXPECT_EQ("0", Tags().mUserEnclosures);
    ASSERT_EQ(200, AddLocator(Locator("a")));
    ASSERT_EQ(200, AddEnclosure("anna", "1", "a"));
    ASSERT_EQ(200, AddEnclosure("anna", "2", "b"));
    ASSERT_EQ(200, EditLocator(Locator("a")));
    EXPECT_EQ("4", Tags().mMediaLocators);
    EXPECT_EQ("3", Tags().mUserEnclosures);
    ReopenStore();
    EXPECT_EQ("4", Tags().mMediaLocators);
    EXPECT_EQ("3", Tags().mUserEnclosures);
}

TEST_F(SideDataTagsTest, WritesThatLeaveTheCounterStillMoveTheTag)
{
    ASSERT_EQ(200, AddLocator(Locator("a")));
    ASSERT_EQ(200, AddEnclosure("anna", "1", "a"));
    ASSERT_EQ(200, mStore->DeleteUserEnclosure(mID, "anna", "1"));
    EXPECT_EQ("2.1", Tags().mUserEnclosures);
    ReopenStore();
    ASSERT_EQ(200, AddEnclosure("anna", "1", "a", WriteMode::SyncEngine));
    EXPECT_EQ("2.2", Tags().mUserEnclosures);
    ASSERT_EQ(200, AddLocator(RemoteLocator("b", "https://b"), WriteMode::SyncEngine));
    EXPECT_EQ("2", Tags().mMediaLocators) << "the counter has moved since the last write of a locator";
    ASSERT_EQ(200, EditLocator(RemoteLocator("b", "https://c"), WriteMode::SyncEngine));
    EXPECT_EQ("2.1", Tags().mMediaLocators);
    ASSERT_EQ(200, AddLocator(Locator("c")));
    EXPECT_EQ("3", Tags().mMediaLocators);
    EXPECT_EQ("2.2", Tags().mUserEnclosures);
}

TEST_F(SideDataTagsTest, EveryWriteIsPostedAndNothingElse)
{
    const auto apply = [&](const std::string& inHref) {
        bool changed = false;
        EXPECT_EQ(200,
                  mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, RemoteLocator("r", inHref), {}, changed));
    };
    std::vector<dto::MediaLocator> batch{Locator("x"), Locator("y")};
    std::vector<dto::MediaLocator> none;
    dto::UserEnclosure update;
    update.mEnclosureID = "e";
    EXPECT_EQ(1U, Messages([&] { AddLocator(Locator("a")); }));
    EXPECT_EQ(1U, Messages([&] { mStore->AddMediaLocators(mID, WriteMode::LocalEdit, batch); }));
    EXPECT_EQ(1U, Messages([&] { EditLocator(Locator("a")); }));
    EXPECT_EQ(1U, Messages([&] { apply("https://r"); }));
    EXPECT_EQ(1U, Messages([&] { AddEnclosure("anna", "e", "a"); }));
    EXPECT_EQ(1U, Messages([&] { mStore->UpdateUserEnclosure(mID, "anna", WriteMode::LocalEdit, {}, update); }));
    EXPECT_EQ(1U, Messages([&] { mStore->DeleteUserEnclosure(mID, "anna", "e"); }));
    EXPECT_EQ(0U, Messages([&] {
                  apply("https://r");
                  AddLocator(Locator(""));
                  EditLocator(Locator("absent"));
                  mStore->AddMediaLocators(mID, WriteMode::LocalEdit, none);
                  mStore->UpdateUserEnclosure(mID, "anna", WriteMode::LocalEdit, {}, update);
                  mStore->DeleteUserEnclosure(mID, "anna", "e");
                  ContentOf("anna", "e");
                  ExchangeLocators();
                  Tags();
              }));
}

TEST_F(SideDataTagsTest, TagsThatAreKnownNeedNoFile)
{
    ASSERT_EQ(200, AddLocator(Locator("a")));
    const SideDataTags before = Tags();
    mScheduler->Advance(1000);
    mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks());
    mVfs->ResetCounts();
    EXPECT_EQ(before.mMediaLocators, Tags().mMediaLocators);
    EXPECT_EQ(0U, mVfs->Count(FileOperation::Open));
}

}  // namespace
