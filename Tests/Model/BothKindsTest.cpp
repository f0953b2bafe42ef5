// What a session does whichever way it lies on the disk: as a folder or as a single file.

#include <gmock/gmock.h>

#include "Inc/Model/SystemDb.h"
#include "Tests/Support/StoreTest.h"

namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* kServer = "https://hub.example";

class BothKinds : public StoreTest, public testing::WithParamInterface<SessionKind>
{
protected:
    BothKinds()
    {
        EXPECT_EQ(201, mStore->CreateSession({}, {dto::RawJSON(R"({"name":"Feature"})"), {}}, GetParam(), mSession));
        mID = mSession.mIdentifier;
        mLog->Clear();
    }
    ~BothKinds() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
    }

    dto::Session CommitAsset(const std::string& inName, const ImmutableString& inID)
    {
        const ImmutableString transaction = OpenTransaction(mID);
        Add(transaction, MakeAsset(inName, "bin", {{"payload", inName}}), inID);
        dto::Session session;
        EXPECT_EQ(200, Commit(transaction, &session));
        return session;
    }

    static AssociationForSync Association(const std::string& inSession = "remote")
    {
        return {kServer, "p-" + inSession, inSession, RFC3339DateTime::FromText("2026-05-01T00:00:00Z"),
                "user",  "corvane"};
    }
    static SyncPoint Point(const std::string& inLocal, const std::string& inRemote)
    {
        SyncPoint point;
        point.mLocalRevision = inLocal;
        point.mRemoteRevision = inRemote;
        point.mDate = RFC3339DateTime::FromText("2026-05-02T10:11:12.5Z");
        return point;
    }
    bool Write(const std::string& inLocal, const std::string& inRemote)
    {
        std::int64_t count = 0;
        return mStore->WriteSyncPoint(mID, Point(inLocal, inRemote), count);
    }
    std::string LatestLocalRevision()
    {
        SyncPoint point;
        return mStore->ReadLatestSyncPoint(mID, point) ? point.mLocalRevision.Text() : "none";
    }

    static dto::MediaLocator Locator(const std::string& inID, const std::string& inHref)
    {
        dto::MediaLocator locator;
        locator.mMediaLocatorID = inID;
        locator.mProperties = dto::RawJSON(R"({"href":")" + inHref + "\"}");
        return locator;
    }
    int AddLocator(const std::string& inID, const std::string& inHref, WriteMode inMode = WriteMode::LocalEdit)
    {
        dto::MediaLocator locator = Locator(inID, inHref);
        return mStore->AddMediaLocator(mID, inMode, locator);
    }
    std::string HrefOf(const std::string& inID)
    {
        dto::MediaLocator locator;
        dto::MediaLocatorProperties properties;
        if (mStore->GetMediaLocator(mID, inID, locator) != 200) return "none";
        return dto::FromJSON(locator.mProperties.Text(), properties) ? properties.mHref : "unreadable";
    }
    static std::vector<std::string> IDsOf(const std::vector<dto::MediaLocator>& inLocators)
    {
        std::vector<std::string> ids;
        for (const dto::MediaLocator& locator : inLocators)
            ids.push_back(locator.mMediaLocatorID.Text());
        return ids;
    }
    std::vector<std::string> Unsynchronized(SyncChangeCount& outSyncTo)
    {
        std::vector<dto::MediaLocator> locators;
        EXPECT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(mID, locators, outSyncTo));
        return IDsOf(locators);
    }

    int AddEnclosure(const std::string& inUser, const std::string& inID, const std::string& inName,
                     const std::string& inContent, WriteMode inMode = WriteMode::LocalEdit)
    {
        dto::UserEnclosure enclosure;
        enclosure.mEnclosureID = inID;
        enclosure.mName = inName;
        return mStore->AddUserEnclosure(mID, inUser, inMode, Bytes(inContent), enclosure);
    }
    std::string ContentOf(const std::string& inUser, const std::string& inID)
    {
        dto::UserEnclosure enclosure;
        ConstRecycledMemoryPtr payload;
        if (mStore->GetUserEnclosure(mID, inUser, inID, enclosure, payload) != 200) return "none";
        return enclosure.mName + ": " + std::string(payload->View());
    }

    /// All that is open goes, and is opened again with the next use.
    void Release() { mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks() + 1); }

    const ImmutableString mFirst = "11111111-1111-4111-8111-111111111111";
    const ImmutableString mSecond = "22222222-2222-4222-8222-222222222222";
    dto::Session mSession;
    ImmutableString mID;
};

TEST_P(BothKinds, CommitsAreThereAfterARelease)
{
    const dto::Session first = CommitAsset("one", mFirst);
    const dto::Session second = CommitAsset("two", mSecond);
    Release();
    EXPECT_EQ(second.mRevision, GetSession(mID).mRevision);
    EXPECT_TRUE(GetSession(mID).mHasBin);
    EXPECT_EQ(2U, GetAssets(mID).size());
    EXPECT_EQ(1U, GetAssets(mID, first.mRevision).size());
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    ASSERT_EQ(200, mStore->GetSessionHistory(mID, 0, 10, versions, total));
    EXPECT_EQ(3U, total);
    SessionDifferences differences;
    ASSERT_EQ(200, mStore->GetDifferences(mID, first.mRevision, second.mRevision, differences));
    ASSERT_EQ(1U, differences.mAddedAssets.size());
    EXPECT_EQ(mSecond, differences.mAddedAssets.front().mID);
    ReopenStore();
    EXPECT_EQ(second.mRevision, GetSession(mID).mRevision);
    EXPECT_EQ(2U, GetAssets(mID).size());
}

TEST_P(BothKinds, ARequiredHeadOfOtherContentIsAConflict)
{
    const ImmutableString late = OpenTransaction(mID, mSession.mRevision);
    Add(late, MakeAsset("late"), mSecond);
    CommitAsset("one", mFirst);
    EXPECT_EQ(409, Commit(late));
}

TEST_P(BothKinds, ARevertAndTheMovesOfTheProductionAreCommitsOfTheirBranches)
{
    const dto::Session first = CommitAsset("one", mFirst);
    CommitAsset("two", mSecond);
    ImmutableString reverted;
    ASSERT_EQ(200, mStore->RevertSession(mID, first.mRevision, reverted));
    EXPECT_EQ(1U, GetAssets(mID).size());
    EXPECT_EQ(reverted, GetSession(mID).mRevision);
    ASSERT_EQ(200, mStore->AdvanceProduction(mID, first.mRevision));
    const ImmutableString advanced = GetSession(mID).mProductionRevision;
    EXPECT_NE(mSession.mProductionRevision, advanced);
    ASSERT_EQ(200, mStore->ResetProductionToRevision(mID, reverted));
    EXPECT_NE(advanced, GetSession(mID).mProductionRevision);
    ReopenStore();
    EXPECT_EQ(reverted, GetSession(mID).mRevision);
}

TEST_P(BothKinds, ASessionThatWasNeverLinkedHasNothingAndThatIsNoError)
{
    RemoteAssociation association;
    SyncPoint point;
    std::string date = "kept";
    std::vector<ImmutableString> local{"left over"};
    std::vector<ImmutableString> remote;
    EXPECT_FALSE(mStore->ReadCurrentRemoteAssociation(mID, association));
    EXPECT_FALSE(mStore->ReadLatestSyncPoint(mID, point));
    EXPECT_FALSE(mStore->ReadSyncPointForLocalRevision(mID, "l", point));
    EXPECT_FALSE(mStore->ReadSyncPointForRemoteRevision(mID, "r", point));
    EXPECT_EQ(SyncPoint(), point);
    EXPECT_FALSE(mStore->ReadDeletedDate(mID, date));
    EXPECT_EQ("kept", date);
    EXPECT_TRUE(mStore->ReadSyncPointRevisions(mID, local, remote));
    EXPECT_THAT(local, IsEmpty());
}

TEST_P(BothKinds, AnAssociationMakesTheSessionASynchronizedOneOfItsUser)
{
    ASSERT_TRUE(mStore->WriteUserID(mID, "u", "c"));
    RemoteAssociation association;
    EXPECT_FALSE(mStore->ReadCurrentRemoteAssociation(mID, association));
    EXPECT_EQ("u", association.mUserID);
    EXPECT_EQ("c", association.mCorvaneID);
    ASSERT_TRUE(mStore->WriteLocalOnlyMode(mID));
    EXPECT_TRUE(mStore->IsLocalOnly(mID));
    ASSERT_TRUE(mStore->WriteAssociationForSync(mID, Association()));
    EXPECT_FALSE(mStore->IsLocalOnly(mID));
    Release();
    ASSERT_TRUE(mStore->ReadCurrentRemoteAssociation(mID, association));
    association.mChangeCount = kNoChangeCount;  // a single file has none
    EXPECT_EQ((RemoteAssociation{kServer, "p-remote", "remote", "user", "corvane", kNoChangeCount}), association);
    // One that is not current ends nothing.
    EXPECT_TRUE(mStore->InvalidateAssociationForSync(mID, Association("other")));
    EXPECT_TRUE(mStore->ReadCurrentRemoteAssociation(mID, association));
    EXPECT_TRUE(mStore->InvalidateAssociationForSync(mID, Association()));
    EXPECT_FALSE(mStore->ReadCurrentRemoteAssociation(mID, association));
}

TEST_P(BothKinds, SyncPointsAreFoundByEitherRevisionAndNeedAnAssociation)
{
    EXPECT_FALSE(Write("l1", "r1"));
    EXPECT_EQ(1U, mLog->Count("Cannot read current remote association from db"));
    ASSERT_TRUE(mStore->WriteAssociationForSync(mID, Association()));
    ASSERT_TRUE(mStore->WriteLocalOnlyMode(mID));
    ASSERT_TRUE(Write("l1", "r1"));
    EXPECT_FALSE(mStore->IsLocalOnly(mID));
    ASSERT_TRUE(Write("l2", "r2"));
    SyncPoint expected = Point("l1", "r1");
    expected.mRemoteSessionID = "remote";
    SyncPoint point;
    ASSERT_TRUE(mStore->ReadSyncPointForLocalRevision(mID, "l1", point));
    EXPECT_EQ(expected, point);
    ASSERT_TRUE(mStore->ReadSyncPointForRemoteRevision(mID, "r2", point));
    EXPECT_EQ("l2", point.mLocalRevision);
    EXPECT_EQ("l2", LatestLocalRevision());
    std::vector<ImmutableString> local;
    std::vector<ImmutableString> remote;
    ASSERT_TRUE(mStore->ReadSyncPointRevisions(mID, local, remote));
    EXPECT_THAT(local, ElementsAre("l1", "l2"));
    EXPECT_THAT(remote, ElementsAre("r1", "r2"));
}

TEST_P(BothKinds, SyncPointsOfAnEndedAssociationStayButAreNotLatest)
{
    ASSERT_TRUE(mStore->WriteAssociationForSync(mID, Association()));
    ASSERT_TRUE(Write("l1", "r1"));
    ASSERT_TRUE(mStore->InvalidateAssociationForSync(mID, Association()));
    EXPECT_EQ("none", LatestLocalRevision());
    SyncPoint point;
    EXPECT_TRUE(mStore->ReadSyncPointForLocalRevision(mID, "l1", point));
}

TEST_P(BothKinds, ARestoredRemoteRevisionForgetsWhatCameAfterItAndAnUnknownOneNothing)
{
    ImmutableString latest = "kept";
    EXPECT_FALSE(mStore->ResolveRestoredRemoteRevision(mID, "r9", latest));
    EXPECT_EQ("kept", latest);
    ASSERT_TRUE(mStore->WriteAssociationForSync(mID, Association()));
    for (const auto& [local, remote] :
         {std::pair("l1", "r1"), std::pair("l2", "r2"), std::pair("l3", "r2"), std::pair("l4", "r4")})
        ASSERT_TRUE(Write(local, remote));
    ASSERT_TRUE(mStore->ResolveRestoredRemoteRevision(mID, "r9", latest));
    EXPECT_EQ("r4", latest);
    ASSERT_TRUE(mStore->ResolveRestoredRemoteRevision(mID, "r2", latest));
    EXPECT_EQ("r2", latest);
    EXPECT_EQ("l3", LatestLocalRevision());
    EXPECT_EQ(1U, mLog->Count("Rewinding sync history"));
    ASSERT_TRUE(mStore->ResolveRestoredRemoteRevision(mID, "r2", latest));
    EXPECT_EQ(1U, mLog->Count("Rewinding sync history")) << "nothing is left to rewind";
    ASSERT_TRUE(Write("l5", "r5"));
    EXPECT_EQ("l5", LatestLocalRevision());
}

TEST_P(BothKinds, AHistoryWithAnEmptyRevisionIsNotRead)
{
    ASSERT_TRUE(mStore->WriteAssociationForSync(mID, Association()));
    ASSERT_TRUE(Write("l1", "r1"));
    ASSERT_TRUE(Write("", "r2"));
    std::vector<ImmutableString> local{"kept"};
    std::vector<ImmutableString> remote;
    EXPECT_FALSE(mStore->ReadSyncPointRevisions(mID, local, remote));
    EXPECT_THAT(local, ElementsAre("kept"));
    EXPECT_EQ(1U, mLog->Count("Invalid sync point in history"));
}

TEST_P(BothKinds, ADeletedDateIsThereUntilItIsRemoved)
{
    ASSERT_TRUE(mStore->WriteDeletedDate(mID, "2026-05-02"));
    Release();
    std::string date;
    ASSERT_TRUE(mStore->ReadDeletedDate(mID, date));
    EXPECT_EQ("2026-05-02", date);
    ASSERT_TRUE(mStore->RemoveDeletedDate(mID));
    ASSERT_TRUE(mStore->RemoveDeletedDate(mID));
    EXPECT_FALSE(mStore->ReadDeletedDate(mID, date));
}

TEST_P(BothKinds, WhatTheRemoteSideKnowsIsNotGivenOutAgainUntilItIsEdited)
{
    ASSERT_EQ(200, AddLocator("aaa", "1"));
    ASSERT_EQ(200, AddLocator("bbb", "1"));
    ASSERT_EQ(200, AddLocator("ccc", "1", WriteMode::SyncEngine));
    SyncChangeCount first;
    EXPECT_FALSE(Unsynchronized(first).empty());
    ASSERT_EQ(200, AddLocator("bbb", "2"));  // while the push is under way
    ASSERT_TRUE(mStore->SetMediaLocatorSyncChangeCount(mID, first));
    SyncChangeCount second;
    EXPECT_THAT(Unsynchronized(second), ElementsAre("bbb"));
    ASSERT_TRUE(mStore->SetMediaLocatorSyncChangeCount(mID, second));
    EXPECT_THAT(Unsynchronized(second), IsEmpty());
    Release();
    EXPECT_THAT(Unsynchronized(second), IsEmpty());
    ASSERT_TRUE(mStore->ResetMediaLocatorSyncChangeCount(mID));
    EXPECT_THAT(Unsynchronized(second), UnorderedElementsAre("aaa", "bbb", "ccc"));
    EXPECT_EQ("2", HrefOf("bbb"));
}

TEST_P(BothKinds, ALocalEditSinceTheLastExchangeIsKeptAgainstARemoteOne)
{
    ASSERT_EQ(200, AddLocator("aaa", "1"));
    SyncChangeCount count;
    Unsynchronized(count);
    ASSERT_TRUE(mStore->SetMediaLocatorSyncChangeCount(mID, count));
    bool changed = false;
    ASSERT_EQ(200,
              mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, Locator("aaa", "remote"), "carla", changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ("remote", HrefOf("aaa"));
    dto::MediaLocator edit = Locator("aaa", "mine");
    ASSERT_EQ(200, mStore->EditMediaLocator(mID, {}, WriteMode::LocalEdit, edit));
    ASSERT_EQ(200, mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, Locator("aaa", "again"), "carla", changed));
    EXPECT_FALSE(changed);
    EXPECT_EQ("mine", HrefOf("aaa"));
    EXPECT_EQ(1U, mLog->Count("Unsynchronized local media locator: will not replace with remote media locator"));
    ASSERT_EQ(200,
              mStore->ApplyRemoteMediaLocatorIfNotLocallyModified(mID, Locator("new", "remote"), "carla", changed));
    EXPECT_TRUE(changed);
}

TEST_P(BothKinds, ABatchOfLocatorsStaysCreatedWhenItWasAndTellsTheNewestTime)
{
    std::vector<dto::MediaLocator> locators;
    for (int count = 0; count < 300; ++count)
        locators.push_back(Locator("locator-" + std::to_string(count), "1"));
    ASSERT_EQ(200, mStore->AddMediaLocators(mID, WriteMode::LocalEdit, locators));
    const RFC3339DateTime created = locators.front().mCreated;
    mScheduler->Advance(5000);
    dto::MediaLocator again = Locator("locator-7", "2");
    ASSERT_EQ(200, mStore->AddMediaLocator(mID, WriteMode::LocalEdit, again));
    EXPECT_EQ(created, again.mCreated);
    EXPECT_LT(created, again.mLastModified);
    RFC3339DateTime newest;
    ASSERT_EQ(200, mStore->GetLastModifiedMediaLocatorTime(mID, newest));
    EXPECT_EQ(again.mLastModified, newest);
    ReopenStore();
    std::vector<dto::MediaLocator> found;
    ASSERT_EQ(200, mStore->GetMediaLocators(mID, found));
    EXPECT_EQ(300U, found.size());
    ASSERT_EQ(200, mStore->GetLastModifiedMediaLocatorTime(mID, newest));
    EXPECT_EQ(again.mLastModified, newest);
    dto::SizeInfo info;
    ASSERT_EQ(200, mStore->GetSizeInfo(mID, true, info));
    EXPECT_EQ(300, info.mMediaLocators);
    EXPECT_LT(0, info.mSizeOnDisk);
}

TEST_P(BothKinds, UserEnclosuresAreEachUsersOwnAndAnIdStandsOnce)
{
    ASSERT_EQ(200, AddEnclosure("ann", "enc1", "notes", "first"));
    ASSERT_EQ(200, AddEnclosure("ben", "enc2", "notes", "second"));
    EXPECT_EQ("notes: first", ContentOf("ann", "enc1"));
    EXPECT_EQ("none", ContentOf("ben", "enc1"));
    ASSERT_EQ(200, AddEnclosure("ben", "enc1", "notes", "taken over"));
    EXPECT_EQ("none", ContentOf("ann", "enc1"));
    EXPECT_EQ("notes: taken over", ContentOf("ben", "enc1"));
    dto::UserEnclosure update;
    update.mEnclosureID = "enc1";
    update.mName = "renamed";
    ASSERT_EQ(200, mStore->UpdateUserEnclosure(mID, "ben", WriteMode::LocalEdit, nullptr, update));
    EXPECT_EQ("renamed: taken over", ContentOf("ben", "enc1"));
    std::vector<dto::UserEnclosure> enclosures;
    SyncChangeCount count;
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures(mID, "ben", enclosures, count));
    EXPECT_EQ(2U, enclosures.size());
    ASSERT_TRUE(mStore->SetUserEnclosureSyncChangeCount(mID, count));
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures(mID, "ben", enclosures, count));
    EXPECT_THAT(enclosures, IsEmpty());
    ASSERT_TRUE(mStore->ResetUserEnclosureSyncChangeCount(mID));
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures(mID, "ben", enclosures, count));
    EXPECT_EQ(2U, enclosures.size());
    ASSERT_EQ(200, mStore->DeleteUserEnclosure(mID, "ben", "enc1"));
    EXPECT_EQ(404, mStore->DeleteUserEnclosure(mID, "ben", "enc1"));
    ReopenStore();
    EXPECT_EQ("none", ContentOf("ben", "enc1"));
    EXPECT_EQ("notes: second", ContentOf("ben", "enc2"));
}

TEST_P(BothKinds, AUsersOwnDataIsReadWrittenRenamedAndDeletedLikeAnyOther)
{
    ASSERT_EQ(200, AddEnclosure("ann", "enc1", "_userdata.layout", std::string("a\nb\0c", 5)));
    EXPECT_EQ(std::string("_userdata.layout: a\nb\0c", 23), ContentOf("ann", "enc1"));
    EXPECT_EQ("none", ContentOf("ben", "enc1"));
    std::vector<dto::UserEnclosure> enclosures;
    ASSERT_EQ(200, mStore->GetUserEnclosures(mID, "ann", enclosures));
    ASSERT_EQ(1U, enclosures.size());
    EXPECT_EQ("_userdata.layout", enclosures.front().mName);
    for (const std::string name : {"plain", "_userdata.other", "_userdata.third"}) {
        dto::UserEnclosure update;
        update.mEnclosureID = "enc1";
        update.mName = name;
        ASSERT_EQ(200, mStore->UpdateUserEnclosure(mID, "ann", WriteMode::LocalEdit, Bytes("x"), update));
        EXPECT_EQ(name + ": x", ContentOf("ann", "enc1"));
        ASSERT_EQ(200, mStore->GetUserEnclosures(mID, "ann", enclosures));
        EXPECT_EQ(1U, enclosures.size()) << name;
    }
    ASSERT_EQ(200, mStore->DeleteUserEnclosure(mID, "ann", "enc1"));
    EXPECT_EQ("none", ContentOf("ann", "enc1"));
}

TEST_P(BothKinds, WhoHasNotSignedInHasEnclosuresOfTheirOwnThatACopyTakesAlong)
{
    const std::string nobody;
    ASSERT_EQ(200, AddEnclosure(nobody, "enc1", "notes", "nobody's"));
    ASSERT_EQ(200, AddEnclosure("-", "enc2", "notes", "a dash's"));
    ASSERT_EQ(200, AddEnclosure("--", "enc3", "notes", "two dashes'"));
    ASSERT_EQ(200, AddEnclosure(nobody, "enc4", "_userdata.layout", "outside"));
    const auto expectAll = [&] {
        EXPECT_EQ("notes: nobody's", ContentOf(nobody, "enc1"));
        EXPECT_EQ("notes: a dash's", ContentOf("-", "enc2"));
        EXPECT_EQ("notes: two dashes'", ContentOf("--", "enc3"));
        EXPECT_EQ("_userdata.layout: outside", ContentOf(nobody, "enc4"));
        std::vector<dto::UserEnclosure> enclosures;
        EXPECT_EQ(200, mStore->GetUserEnclosures(mID, nobody, enclosures));
        EXPECT_EQ(2U, enclosures.size());
    };
    expectAll();
    Release();
    expectAll();
    ReopenStore();
    expectAll();
    const ImmutableString source = mID;
    const TempFolder folder;
    const std::string file = folder / "Copy.lyr";
    dto::Session copy;
    ASSERT_EQ(201, mStore->CopyToRopeFile(source, {}, file, false, copy));
    mID = copy.mIdentifier;
    expectAll();
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(mID, file, {}));
    expectAll();

    ASSERT_EQ(200, AddEnclosure("ann", "enc1", "notes", "taken over"));
    EXPECT_EQ("none", ContentOf(nobody, "enc1"));
    ASSERT_EQ(200, AddEnclosure(nobody, "enc1", "notes", "taken back"));
    EXPECT_EQ("none", ContentOf("ann", "enc1"));
    SyncChangeCount count;
    std::vector<dto::UserEnclosure> enclosures;
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures(mID, nobody, enclosures, count));
    EXPECT_EQ(1U, enclosures.size());
    ASSERT_TRUE(mStore->SetUserEnclosureSyncChangeCount(mID, count));
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures(mID, nobody, enclosures, count));
    EXPECT_THAT(enclosures, IsEmpty());
    ASSERT_EQ(200, mStore->DeleteUserEnclosure(mID, nobody, "enc1"));
    EXPECT_EQ("none", ContentOf(nobody, "enc1"));
    EXPECT_EQ("notes: a dash's", ContentOf("-", "enc2"));
}

TEST_P(BothKinds, WhatALinkGoesByIsReadAtOnceAndAnew)
{
    const ImmutableString revision = CommitAsset("one", mFirst).mRevision;
    ASSERT_TRUE(mStore->WriteLocalOnlyMode(mID));
    EXPECT_TRUE(mStore->IsLocalOnly(mID));
    ASSERT_TRUE(mStore->WriteSynchronizedMode(mID));
    EXPECT_FALSE(mStore->IsLocalOnly(mID));
    LinkState state;
    ASSERT_TRUE(mStore->ReadLinkState(mID, state));
    EXPECT_EQ(LinkState(), state);
    ASSERT_TRUE(mStore->WriteAssociationForSync(mID, Association()));
    ASSERT_TRUE(Write(revision.Text(), "remote-1"));
    EXPECT_TRUE(mStore->SetUserEnclosureSyncEtag(mID, "tag-1"));
    for (const bool isAnew : {false, true}) {
        if (isAnew) ReopenStore();
        LinkState read;
        ASSERT_TRUE(mStore->ReadLinkState(mID, read));
        EXPECT_TRUE(read.mAssociated);
        EXPECT_FALSE(read.mLocalOnly);
        EXPECT_EQ("user", read.mAssociation.mUserID);
        EXPECT_EQ(revision, read.mSyncPoint.mLocalRevision);
        EXPECT_EQ("remote-1", read.mSyncPoint.mRemoteRevision);
    }
    ASSERT_TRUE(mStore->WriteLocalOnlyMode(mID));
    ASSERT_TRUE(mStore->ReadLinkState(mID, state));
    EXPECT_TRUE(state.mLocalOnly);
    EXPECT_TRUE(mStore->IsLocalOnly(mID));
}

TEST_P(BothKinds, EachWriteOfSideDataChangesItsTag)
{
    SideDataTags before;
    ASSERT_EQ(200, mStore->GetSideDataTags(mID, before));
    ASSERT_EQ(200, AddLocator("aaa", "1"));
    SideDataTags after;
    ASSERT_EQ(200, mStore->GetSideDataTags(mID, after));
    EXPECT_NE(before.mMediaLocators, after.mMediaLocators);
    EXPECT_EQ(before.mUserEnclosures, after.mUserEnclosures);
    ASSERT_EQ(200, AddEnclosure("ann", "enc1", "notes", "first"));
    ASSERT_EQ(200, mStore->GetSideDataTags(mID, before));
    EXPECT_EQ(before.mMediaLocators, after.mMediaLocators);
    EXPECT_NE(before.mUserEnclosures, after.mUserEnclosures);
}

TEST_P(BothKinds, ADeletedSessionIsGoneForGood)
{
    CommitAsset("one", mFirst);
    ASSERT_EQ(200, mStore->DeletePersistedSessionData(mID));
    dto::Session session;
    EXPECT_EQ(404, mStore->GetSession(mID, session));
    ReopenStore();
    EXPECT_EQ(404, mStore->GetSession(mID, session));
    EXPECT_TRUE(mStore->GetSessions().empty());
}

INSTANTIATE_TEST_SUITE_P(Store, BothKinds, testing::Values(SessionKind::LocalOnly, SessionKind::RopeFile),
                         [](const auto& inInfo) {
                             return inInfo.param == SessionKind::RopeFile ? "SingleFile" : "Folder";
                         });

}  // namespace
