#include "Inc/Sync/Differentiator.h"

#include "Client/VYClient/LocalHub.h"
#include "Tests/Sync/StoreFixture.h"

namespace VantryLocalHub {
namespace {

using namespace testing;
using namespace VYCL::LocalHub;

const ImmutableString kSession("s1");
const ImmutableString kLeft("aaaa");
const ImmutableString kRight("bbbb");

/// The component alone, with the link's sync point played by the test.
class DifferentiatorWithSeams : public Differentiator
{
public:
    MOCK_METHOD(bool, GetLatestSyncPoint, (const ImmutableString&, SyncPoint&), (override));
    MOCK_METHOD(bool, IsAssociated, (const ImmutableString&), (override));
};

struct Answer
{
    int mStatus = -1;
    dto::DifferencesResource mDifferences;
    const void* mPlace = nullptr;
};

class DifferentiatorTest : public StoreFixture
{
protected:
    Answer Get(const ImmutableString& inFrom, const ImmutableString& inTo, const ImmutableString& inSession = kSession)
    {
        Answer answer;
        int calls = 0;
        mEngine->GetDifferences(inSession, inFrom, inTo,
                                [&](int inStatus, const dto::DifferencesResource& inDifferences) {
                                    mProbe.Check();
                                    ++calls;
                                    answer = {inStatus, inDifferences, &inDifferences};
                                });
        EXPECT_EQ(1, calls);
        return answer;
    }

    void HaveRevisions(const std::vector<ImmutableString>& inRevisions)
    {
        EXPECT_CALL(*mBox, RevisionExists(kSession, _)).Times(AnyNumber()).WillRepeatedly(Return(false));
        for (const auto& revision : inRevisions)
            EXPECT_CALL(*mBox, RevisionExists(kSession, revision)).Times(AnyNumber()).WillRepeatedly(Return(true));
    }

    static SessionDifferences Between(const ImmutableString& inFrom, const ImmutableString& inTo)
    {
        SessionDifferences differences;
        differences.mFromRevision = inFrom;
        differences.mToRevision = inTo;
        differences.mEditedAssets = {{"clip", "1", "2"}};
        return differences;
    }

    /// The store is asked for this range so many times.
    void ExpectRead(const SessionDifferences& inDifferences, int inTimes = 1)
    {
        EXPECT_CALL(*mBox, GetDifferences(kSession, inDifferences.mFromRevision, inDifferences.mToRevision, _))
            .Times(inTimes)
            .WillRepeatedly(DoAll(SetArgReferee<3>(inDifferences), Return(200)));
        StoredVersion version;
        version.mMessage = "the right side";
        EXPECT_CALL(*mBox, GetHistoryRevision(kSession, inDifferences.mToRevision, _))
            .Times(inTimes)
            .WillRepeatedly(DoAll(SetArgReferee<2>(version), Return(200)));
    }

    std::shared_ptr<StrictMock<DifferentiatorWithSeams>> mEngine =
        std::make_shared<StrictMock<DifferentiatorWithSeams>>();
};

TEST_F(DifferentiatorTest, ARangeIsReadOnceAndSharedForTwoHours)
{
    Have("s1", "head");
    HaveRevisions({kLeft, kRight});
    ExpectRead(Between(kLeft, kRight), 2);
    const auto first = Get(kLeft, kRight);
    EXPECT_EQ(200, first.mStatus);
    EXPECT_EQ("the right side", first.mDifferences.mInfo.mMessage);
    ASSERT_EQ(1U, first.mDifferences.mDifferences.mAssets.size());
    mScheduler->Advance(7'199'999);
    EXPECT_EQ(first.mPlace, Get(kLeft, kRight).mPlace) << "the same list, not a copy";
    mScheduler->Advance(1);
    EXPECT_EQ(first.mDifferences, Get(kLeft, kRight).mDifferences) << "read anew";
}

TEST_F(DifferentiatorTest, ARangeThatWasReadIsNotShownOfASessionThatIsGone)
{
    Have("s1", "head");
    HaveRevisions({kLeft, kRight});
    ExpectRead(Between(kLeft, kRight));
    EXPECT_EQ(200, Get(kLeft, kRight).mStatus);
    Lack("s1");
    EXPECT_EQ(404, Get(kLeft, kRight).mStatus);
    ProjectBox::SetInstance(nullptr);
    EXPECT_EQ(500, Get(kLeft, kRight).mStatus);
}

TEST_F(DifferentiatorTest, TheHeadMovesAndItsRangeWithIt)
{
    HaveRevisions({kLeft, kRight, "cccc"});
    Have("s1", "bbbb");
    ExpectRead(Between(kLeft, kRight));
    for (const char* name : {"HEAD", "session", ""})
        EXPECT_EQ(kRight, Get(kLeft, name).mDifferences.mRightSideCommitID) << name;
    Have("s1", "cccc");
    ExpectRead(Between(kLeft, "cccc"));
    EXPECT_EQ("cccc", Get(kLeft, Revision_HEAD()).mDifferences.mRightSideCommitID.Text());
    EXPECT_EQ(kRight, Get(kLeft, kRight).mDifferences.mRightSideCommitID);
}

TEST_F(DifferentiatorTest, TheLeftSideMayBeTheProductionOrTheLatestSyncPoint)
{
    HaveRevisions({kLeft, kRight});
    dto::Session& session = mSessions["s1"];
    session.mProductionRevision = kLeft;
    Have("s1", "bbbb");
    ExpectRead(Between(kLeft, kRight));
    EXPECT_EQ(kLeft, Get("production", "HEAD").mDifferences.mLeftSideCommitID);
    SyncPoint point;
    point.mLocalRevision = kLeft;
    EXPECT_CALL(*mEngine, GetLatestSyncPoint(kSession, _))
        .WillOnce(DoAll(SetArgReferee<1>(point), Return(true)))
        .WillOnce(Return(false));
    EXPECT_EQ(kLeft, Get(Revision_LatestSyncPoint(), "HEAD").mDifferences.mLeftSideCommitID);
    EXPECT_CALL(*mEngine, IsAssociated(kSession)).WillOnce(Return(false));
    EXPECT_EQ(404, Get(Revision_LatestSyncPoint(), "HEAD").mStatus);
}

TEST_F(DifferentiatorTest, ANameThatOnlyTheStoreKnowsIsReadEachTimeAndKeptByItsCommit)
{
    Have("s1", "head");
    HaveRevisions({"session_backup", kLeft, kRight});
    EXPECT_CALL(*mBox, GetDifferences(kSession, ImmutableString("session_backup"), kRight, _))
        .Times(2)
        .WillRepeatedly(DoAll(SetArgReferee<3>(Between(kLeft, kRight)), Return(200)));
    EXPECT_CALL(*mBox, GetHistoryRevision(kSession, kRight, _)).Times(2).WillRepeatedly(Return(404));
    EXPECT_EQ(kLeft, Get("session_backup", kRight).mDifferences.mLeftSideCommitID);
    EXPECT_EQ("", Get("session_backup", kRight).mDifferences.mInfo.mMessage);
    EXPECT_EQ(1U, Get(kLeft, kRight).mDifferences.mDifferences.mAssets.size());
}

TEST_F(DifferentiatorTest, BothIdsOfASessionShareOneList)
{
    Have("s1", "head");
    HaveRevisions({kLeft, kRight});
    ExpectRead(Between(kLeft, kRight));
    const auto first = Get(kLeft, kRight, "p-s1");
    EXPECT_EQ(200, first.mStatus);
    EXPECT_EQ(first.mPlace, Get(kLeft, kRight).mPlace);
}

TEST_F(DifferentiatorTest, ARevisionThatIsNotHereNeedsTheRemoteSideWhereThereIsOne)
{
    Have("s1", "head");
    HaveRevisions({kLeft});
    EXPECT_CALL(*mEngine, IsAssociated(kSession)).WillOnce(Return(true)).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_EQ(501, Get(kLeft, kRight).mStatus);
    EXPECT_EQ(501, Get(kRight, kLeft).mStatus);
    EXPECT_EQ(404, Get(kRight, kLeft).mStatus);
}

TEST_F(DifferentiatorTest, AnUnknownSessionIsNotFound)
{
    Lack("s1");
    EXPECT_EQ(404, Get(kLeft, kRight).mStatus);
}

TEST_F(DifferentiatorTest, AFailedReadIsTriedAgain)
{
    Have("s1", "head");
    HaveRevisions({kLeft, kRight});
    EXPECT_CALL(*mBox, GetDifferences(kSession, kLeft, kRight, _)).WillOnce(Return(500));
    const auto failed = Get(kLeft, kRight);
    EXPECT_EQ(500, failed.mStatus);
    EXPECT_EQ(dto::DifferencesResource(), failed.mDifferences);
    ExpectRead(Between(kLeft, kRight));
    EXPECT_EQ(200, Get(kLeft, kRight).mStatus);
}

TEST_F(DifferentiatorTest, AListWhoseNamesCannotBeReadIsNotKept)
{
    Have("s1", "head");
    HaveRevisions({kLeft, kRight});
    auto differences = Between(kLeft, kRight);
    differences.mAddedEnclosures = {{"e-1", "", "1"}};
    EXPECT_CALL(*mBox, GetDifferences(kSession, kLeft, kRight, _))
        .Times(2)
        .WillRepeatedly(DoAll(SetArgReferee<3>(differences), Return(200)));
    EXPECT_CALL(*mBox, GetHistoryRevision(kSession, kRight, _)).WillOnce(Return(200));
    EXPECT_CALL(*mBox, GetProductionEnclosures(kSession, kRight, _)).WillOnce(Return(500)).WillOnce(Return(200));
    EXPECT_EQ(500, Get(kLeft, kRight).mStatus);
    EXPECT_EQ(200, Get(kLeft, kRight).mStatus);
}

TEST_F(DifferentiatorTest, WhatIsPutIntoTheCacheIsFoundUnlessItIsThereAlreadyOrMoves)
{
    Have("s1", "head");
    dto::DifferencesResource given;
    given.mLeftSideCommitID = kLeft;
    given.mInfo.mMessage = "from afar";
    mEngine->CacheDifferences(kSession, kLeft, kRight, given);
    EXPECT_EQ(given, Get(kLeft, kRight).mDifferences);
    dto::DifferencesResource other;
    mEngine->CacheDifferences(kSession, kLeft, kRight, other);
    EXPECT_EQ(given, Get(kLeft, kRight).mDifferences);
    ASSERT_EQ(1U, mLog->Count("CacheDifferences: already cached"));
    EXPECT_EQ("!result", mLog->Find("CacheDifferences: already cached")[0].Value("expression"));

    Lack("s1");
    mEngine->CacheDifferences(kSession, kLeft, Revision_HEAD(), given);
    mEngine->CacheDifferences(kSession, Revision_LatestSyncPoint(), kRight, given);
    EXPECT_EQ(404, Get(kLeft, Revision_HEAD()).mStatus);
    EXPECT_EQ(404, Get(Revision_LatestSyncPoint(), kRight).mStatus);
}

TEST_F(DifferentiatorTest, EntriesAreSortedTypedAndCarryTheirOwnConflicts)
{
    Have("s1", "head");
    HaveRevisions({kLeft, kRight});
    SessionDifferences stored;
    stored.mFromRevision = kLeft;
    stored.mToRevision = kRight;
    stored.mAddedAssets = {{"m", "", "1"}};
    stored.mEditedAssets = {{"a", "1", "2"}, {"z", "1", "2"}};
    stored.mDeletedAssets = {{"k", "1", ""}};
    stored.mAddedEnclosures = {{"e-1", "", "1"}};
    stored.mEditedEnclosures = {{"e-2", "1", "2"}};
    stored.mDeletedEnclosures = {{"e-3", "1", ""}};
    stored.mConflicts = {{ConflictChange::Kind::Asset, "a", {"base-a", "theirs-a"}},
                         {ConflictChange::Kind::Asset, "e-2", {"base-no", "theirs-no"}},
                         {ConflictChange::Kind::ProductionEnclosure, "e-2", {"base-e", "theirs-e"}},
                         {ConflictChange::Kind::SessionProperties, "", {"base-p", "theirs-p"}}};
    stored.mFromProperties = "p1";
    stored.mToProperties = "p2";
    ExpectRead(stored);
    std::vector<dto::Enclosure> left(1);
    left[0].mEnclosureID = "e-3";
    left[0].mName = "attic";
    std::vector<dto::Enclosure> right(2);
    right[0].mEnclosureID = "e-1";
    right[1].mEnclosureID = "e-2";
    right[1].mName = "cellar";
    EXPECT_CALL(*mBox, GetProductionEnclosures(kSession, kLeft, _))
        .WillOnce(DoAll(SetArgReferee<2>(left), Return(200)));
    EXPECT_CALL(*mBox, GetProductionEnclosures(kSession, kRight, _))
        .WillOnce(DoAll(SetArgReferee<2>(right), Return(200)));

    const auto answer = Get(kLeft, kRight).mDifferences;
    EXPECT_EQ(R"({"assets":[)"
              R"({"vy:assetId":"a","vy:differenceType":"Updated","vy:conflictsWithContentId":"theirs-a",)"
              R"("vy:baseCommitId":"base-a","links":[]},)"
              R"({"vy:assetId":"k","vy:differenceType":"Removed","links":[]},)"
              R"({"vy:assetId":"m","vy:differenceType":"Added","links":[]},)"
              R"({"vy:assetId":"z","vy:differenceType":"Updated","links":[]}],"enclosures":[)"
              R"({"vy:name":"attic","vy:differenceType":"Removed","links":[]},)"
              R"({"vy:name":"cellar","vy:differenceType":"Updated","vy:conflictsWithContentId":"theirs-e",)"
              R"("vy:baseCommitId":"base-e","links":[]},)"
              R"({"vy:name":"e-1","vy:differenceType":"Added","links":[]}],)"
              R"("properties":{"vy:differenceType":"Updated","vy:conflictsWithContentId":"theirs-p",)"
              R"("vy:baseCommitId":"base-p","links":[]}})",
              dto::ToJSON(answer.mDifferences));
    EXPECT_EQ(kLeft, answer.mLeftSideCommitID);
    EXPECT_EQ(kRight, answer.mRightSideCommitID);
}

TEST_F(DifferentiatorTest, AConflictOfAnotherSideIsWithWhatIsHereAtTheHead)
{
    dto::Asset here;
    here.mAssetContentID = "ours";
    EXPECT_CALL(*mBox, GetAsset(kSession, Revision_HEAD(), ImmutableString("b"), _))
        .WillOnce(DoAll(SetArgReferee<3>(here), Return(200)));
    EXPECT_CALL(*mBox, GetAsset(kSession, Revision_HEAD(), ImmutableString("c"), _)).WillOnce(Return(404));
    std::vector<dto::Enclosure> enclosures(1);
    enclosures[0].mName = "poster";
    enclosures[0].mEnclosureContentID = "our poster";
    EXPECT_CALL(*mBox, GetProductionEnclosures(kSession, Revision_HEAD(), _))
        .WillOnce(DoAll(SetArgReferee<2>(enclosures), Return(200)));

    dto::DifferenceLists lists;
    const auto& updated = VYCL::GetDifferenceType_Updated();
    const auto& removed = VYCL::GetDifferenceType_Removed();
    lists.mAssets = {{"c", updated, "theirs", "base", {}},
                     {"b", updated, "", "base", {}},
                     {"a", removed, "theirs", "base", {}},
                     {"d", updated, "", "", {}}};
    lists.mEnclosures = {{"poster", updated, "", "base", {}}, {"gone", updated, "theirs", "base", {}}};
    Differentiator::PostProcessDifferences(*mBox, kSession, lists);

    std::string conflicts;
    for (const auto& asset : lists.mAssets)
        conflicts += asset.mAssetID.Text() + "=" + asset.mConflictsWithContentID.Text() + ";";
    for (const auto& enclosure : lists.mEnclosures)
        conflicts += enclosure.mName + "=" + enclosure.mConflictsWithContentID.Text() + ";";
    EXPECT_EQ("a=theirs;b=ours;c=;d=;gone=;poster=our poster;", conflicts);
    EXPECT_EQ(1U, mLog->Count("PostProcessDifferences: conflicting asset missing"));
    EXPECT_EQ(1U, mLog->Count("PostProcessDifferences: conflicting production enclosure missing"));
}

}  // namespace
}  // namespace VantryLocalHub
