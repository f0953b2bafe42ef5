#include "Inc/Sync/ResolutionCentre.h"

#include "Tests/Sync/EngineStoreFixture.h"
#include "Tests/Sync/StoreFixture.h"

namespace {

using namespace testing;
using namespace testing_support;

/// Restores between sessions as they are on disk.
class RestoreOverStoreTest : public EngineStoreFixture
{
protected:
    int Restore(const dto::Session& inTo, const dto::Session& inFrom, const char* inAssetID)
    {
        int status = -1;
        mEngine->RestoreAssetFromProduction(inTo.mIdentifier, inFrom.mProductionID, inAssetID,
                                            [&](int inStatus) { status = status == -1 ? inStatus : -2; });
        return status;
    }
    dto::Asset AssetOf(const dto::Session& inSession, const char* inAssetID)
    {
        dto::Asset asset;
        EXPECT_EQ(200, mStore->GetAsset(inSession.mIdentifier, "HEAD", inAssetID, asset));
        return asset;
    }
    std::string PayloadsOf(const dto::Session& inSession, const dto::Asset& inAsset)
    {
        std::string text;
        for (const auto& enclosure : inAsset.mEnclosures) {
            ConstRecycledMemoryPtr payload;
            EXPECT_EQ(200, mStore->GetAssetEnclosure(inSession.mIdentifier, "HEAD", inAsset.mAssetID,
                                                     enclosure.mEnclosureID, payload));
            if (payload) text += enclosure.mName + "=" + std::string(payload->View()) + ";";
        }
        return text;
    }
    /// What the asset is in conflict with at the head; empty where it is in none.
    std::string ConflictOf(const dto::Session& inSession, const char* inAssetID)
    {
        dto::ConflictMarker marker;
        const int status = mStore->GetConflictInfo(inSession.mIdentifier, "HEAD", inAssetID, marker);
        EXPECT_EQ(marker.mConflictsWithContentID.empty() ? 404 : 200, status);
        return marker.mConflictsWithContentID.Text();
    }
    std::size_t OpenTransactionsOf(const dto::Session& inSession)
    {
        std::vector<dto::TransactionResource> transactions;
        EXPECT_EQ(200, mStore->GetTransactionList(inSession.mIdentifier, transactions));
        return transactions.size();
    }

    const dto::Session mSource = CreateSession();
    const dto::Session mTarget = CreateSession();
};

TEST_F(RestoreOverStoreTest, AnAssetOfAnotherSessionComesWithItsContent)
{
    Write(mSource.mIdentifier, "clip-a", MakeAsset("a", "clip", {{"notes", "first"}, {"edits", "second"}}));
    EXPECT_EQ(200, Restore(mTarget, mSource, "clip-a"));
    Restart();
    const auto asset = AssetOf(mTarget, "clip-a");
    EXPECT_EQ(AssetOf(mSource, "clip-a").mAssetContentID, asset.mAssetContentID);
    EXPECT_EQ(R"({"name":"a","lumo:assetType":"clip"})", asset.mProperties.Text());
    EXPECT_EQ(PayloadsOf(mSource, AssetOf(mSource, "clip-a")), PayloadsOf(mTarget, asset));
    EXPECT_NE("", PayloadsOf(mTarget, asset));
    EXPECT_EQ(0U, OpenTransactionsOf(mTarget));
}

TEST_F(RestoreOverStoreTest, WhatTheTargetHasUnderThatIdIsReplacedAndItsHistoryTellsOfIt)
{
    Write(mSource.mIdentifier, "clip-a", MakeAsset("theirs"));
    const auto before = Write(mTarget.mIdentifier, "clip-a", MakeAsset("ours"));
    Write(mTarget.mIdentifier, "clip-b", MakeAsset("beside"));
    EXPECT_EQ(200, Restore(mTarget, mSource, "clip-a"));
    EXPECT_EQ(R"({"name":"theirs","lumo:assetType":"clip"})", AssetOf(mTarget, "clip-a").mProperties.Text());
    EXPECT_EQ(2U, GetAssets(mTarget.mIdentifier).size());
    StoredVersion version;
    ASSERT_EQ(200, mStore->GetHistoryRevision(mTarget.mIdentifier, "HEAD", version));
    EXPECT_NE(std::string::npos, version.mMessage.find("Asset restored from shared Tessel Project"));
    EXPECT_NE(std::string::npos, version.mMessage.find(R"("commitMessageCode":11)"));
    dto::Asset old;
    EXPECT_EQ(200, mStore->GetAsset(mTarget.mIdentifier, before, "clip-a", old));
    EXPECT_EQ(R"({"name":"ours","lumo:assetType":"clip"})", old.mProperties.Text());
}

TEST_F(RestoreOverStoreTest, RestoringInPlaceTakesTheMarkOfItsConflictAwayAndNoOther)
{
    for (const char* id : {"clip-a", "clip-b"}) {
        auto content = MakeAsset(id);
        content.mAsset.mBaseCommitID = "0123";
        content.mAsset.mConflictsWithContentID = "4567";
        const auto revision = Write(mTarget.mIdentifier, id, content);
        ASSERT_EQ("4567", ConflictOf(mTarget, id));
        ASSERT_EQ(200, mStore->AdvanceProduction(mTarget.mIdentifier, revision));
    }
    const auto contentID = AssetOf(mTarget, "clip-a").mAssetContentID;
    EXPECT_EQ(200, Restore(mTarget, mTarget, "clip-a"));
    EXPECT_EQ("", ConflictOf(mTarget, "clip-a"));
    EXPECT_EQ(contentID, AssetOf(mTarget, "clip-a").mAssetContentID);
    EXPECT_EQ("4567", ConflictOf(mTarget, "clip-b"));
}

TEST_F(RestoreOverStoreTest, RestoringInPlaceBringsBackWhatWasSharedLastAndCommitsNothingWhereThatIsThere)
{
    const ImmutableString id = mTarget.mIdentifier;
    Write(id, "clip-a", MakeAsset("shared", "clip", {{"notes", "first"}}));
    ASSERT_EQ(200, mStore->AdvanceProduction(id, Write(id, "clip-b", MakeAsset("shared too"))));
    Write(id, "clip-a", MakeAsset("ours"));
    Delete(id, "clip-b");
    Write(id, "clip-c", MakeAsset("never shared"));
    EXPECT_EQ(200, Restore(mTarget, mTarget, "clip-a"));
    EXPECT_EQ(R"({"name":"shared","lumo:assetType":"clip"})", AssetOf(mTarget, "clip-a").mProperties.Text());
    EXPECT_EQ("notes=first;", PayloadsOf(mTarget, AssetOf(mTarget, "clip-a")));
    EXPECT_EQ(200, Restore(mTarget, mTarget, "clip-b"));
    EXPECT_EQ(R"({"name":"shared too","lumo:assetType":"clip"})", AssetOf(mTarget, "clip-b").mProperties.Text());

    const auto head = GetSession(id).mRevision;
    EXPECT_EQ(200, Restore(mTarget, mTarget, "clip-a"));
    EXPECT_EQ(200, Restore(mTarget, mTarget, "clip-b"));
    EXPECT_EQ(501, Restore(mTarget, mTarget, "clip-c")) << "the remote side alone may know it";
    EXPECT_EQ(head, GetSession(id).mRevision);
    EXPECT_EQ(0U, OpenTransactionsOf(mTarget));
}

TEST_F(RestoreOverStoreTest, WhatTheTargetHasAlreadyIsNotCommittedAgain)
{
    Write(mSource.mIdentifier, "clip-a", MakeAsset("a", "clip", {{"notes", "first"}}));
    EXPECT_EQ(200, Restore(mTarget, mSource, "clip-a"));
    const auto head = GetSession(mTarget.mIdentifier).mRevision;
    EXPECT_EQ(200, Restore(mTarget, mSource, "clip-a"));
    EXPECT_EQ(head, GetSession(mTarget.mIdentifier).mRevision);
}

TEST_F(RestoreOverStoreTest, TheMarkOfAConflictInTheSourceStaysThere)
{
    auto content = MakeAsset("a");
    content.mAsset.mBaseCommitID = "0123";
    content.mAsset.mConflictsWithContentID = "4567";
    Write(mSource.mIdentifier, "clip-a", content);
    EXPECT_EQ(200, Restore(mTarget, mSource, "clip-a"));
    EXPECT_EQ("", ConflictOf(mTarget, "clip-a"));
    EXPECT_EQ("4567", ConflictOf(mSource, "clip-a"));
}

TEST_F(RestoreOverStoreTest, ARestoredBinCounts)
{
    Write(mSource.mIdentifier, "bin-a", MakeAsset("a", "bin"));
    EXPECT_FALSE(GetSession(mTarget.mIdentifier).mHasBin);
    EXPECT_EQ(200, Restore(mTarget, mSource, "bin-a"));
    EXPECT_TRUE(GetSession(mTarget.mIdentifier).mHasBin);
}

TEST_F(RestoreOverStoreTest, WhatIsNotHereIsTheRemoteSidesUnlessThereIsNowhereToRestoreTo)
{
    const auto head = GetSession(mTarget.mIdentifier).mRevision;
    EXPECT_EQ(501, Restore(mTarget, mSource, "clip-a"));
    dto::Session unknown;
    unknown.mIdentifier = "nowhere";
    unknown.mProductionID = "p-nowhere";
    EXPECT_EQ(501, Restore(mTarget, unknown, "clip-a"));
    Write(mSource.mIdentifier, "clip-a", MakeAsset("a"));
    EXPECT_EQ(404, Restore(unknown, mSource, "clip-a"));
    EXPECT_EQ(head, GetSession(mTarget.mIdentifier).mRevision);
    EXPECT_EQ(0U, OpenTransactionsOf(mTarget));
}

}  // namespace

namespace VantryLocalHub {
namespace {

using namespace testing;
using namespace VYCL::LocalHub;

/// The component alone, with the commit played by the test.
class ResolutionCentreWithSeams : public ResolutionCentre
{
public:
    MOCK_METHOD(int, CommitTransaction,
                (const ImmutableString&, const CommitMessage&, const ImmutableString&, CommitOutcome&), (override));
};

/// Restores over a store that fails where a test says so.
class RestoreFailureTest : public StoreFixture
{
protected:
    RestoreFailureTest()
    {
        Have("target", "c1");
        Have("source", "c2");
        EXPECT_CALL(*mBox, GetAsset(ImmutableString("target"), Revision_HEAD(), ImmutableString("clip-a"), _))
            .WillRepeatedly(Return(404));
        mAsset.mAssetID = "clip-a";
        mAsset.mAssetContentID = "asset-content";
        mAsset.mEnclosures.resize(1);
        mAsset.mEnclosures[0].mEnclosureContentID = "blob";
    }

    int Restore()
    {
        int status = -1;
        mEngine->RestoreAssetFromProduction("target", "p-source", "clip-a", [&](int inStatus) {
            mProbe.Check();
            status = status == -1 ? inStatus : -2;
        });
        return status;
    }
    void HaveAsset(int inStatus = 200)
    {
        EXPECT_CALL(*mBox, GetAsset(ImmutableString("source"), Revision_HEAD(), ImmutableString("clip-a"), _))
            .WillOnce(DoAll(SetArgReferee<3>(mAsset), Return(inStatus)));
    }
    void HaveContent(int inStatus = 200)
    {
        EXPECT_CALL(*mBox, HasContent(ImmutableString("target"), ImmutableString("blob"))).WillOnce(Return(inStatus));
    }
    void Embed(int inStatus = 200)
    {
        EXPECT_CALL(*mBox, ComputeContentHashAndEmbedInAsset(ImmutableString("target"), _)).WillOnce(Return(inStatus));
    }
    void Open(int inStatus = 201)
    {
        dto::TransactionResource transaction;
        transaction.mTransactionID = "t-1";
        EXPECT_CALL(
            *mBox, OpenTransaction(ImmutableString("target"), ImmutableString(), VYCL::GetTransactionType_Edit(), _, _))
            .WillOnce(DoAll(SetArgReferee<4>(transaction), Return(inStatus)));
    }
    void Take(int inStatus = 200)
    {
        EXPECT_CALL(
            *mBox, RestoreAsset(ImmutableString("t-1"), ImmutableString("clip-a"), ImmutableString("asset-content"), _))
            .WillOnce(Return(inStatus));
    }
    void ExpectClosed() { EXPECT_CALL(*mBox, CloseTransaction(ImmutableString("t-1"))).WillOnce(Return(200)); }

    dto::Asset mAsset;
    std::shared_ptr<StrictMock<ResolutionCentreWithSeams>> mEngine =
        std::make_shared<StrictMock<ResolutionCentreWithSeams>>();
};

TEST_F(RestoreFailureTest, ContentThatIsThereIsNotReadAgainAndTheCommitGoesThroughTheEngine)
{
    HaveAsset();
    HaveContent();
    Embed();
    Open();
    Take();
    EXPECT_CALL(*mEngine, CommitTransaction(ImmutableString("t-1"), _, ImmutableString(), _)).WillOnce(Return(200));
    EXPECT_EQ(200, Restore());
}

TEST_F(RestoreFailureTest, AnAssetThatCannotBeReadOpensNoTransaction)
{
    HaveAsset(500);
    EXPECT_EQ(500, Restore());
}

TEST_F(RestoreFailureTest, ContentThatCannotBeBroughtOverOpensNoTransaction)
{
    HaveAsset();
    HaveContent(500);
    EXPECT_EQ(500, Restore());

    HaveAsset();
    HaveContent(404);
    EXPECT_CALL(*mBox, GetAssetEnclosureByContentHash(ImmutableString("source"), ImmutableString("blob"), _))
        .WillOnce(Return(404))
        .WillRepeatedly(DoAll(SetArgReferee<2>(noxcore::utility::CopyToRecycledMemory("content")), Return(200)));
    EXPECT_EQ(404, Restore()) << "lost in the source, which is not the same as living elsewhere";

    HaveAsset();
    HaveContent(404);
    EXPECT_CALL(*mBox, ComputeContentHash(ImmutableString("target"),
                                          Matcher<const noxcore::utility::ConstRecycledMemoryPtr&>(_)))
        .WillOnce(Return(ImmutableString()))
        .WillRepeatedly(Return(ImmutableString("blob")));
    EXPECT_EQ(500, Restore());

    HaveAsset();
    HaveContent(404);
    Embed(500);
    EXPECT_EQ(500, Restore());
}

TEST_F(RestoreFailureTest, AFailureLeavesNoTransactionOpen)
{
    HaveAsset();
    HaveContent();
    Embed();
    Open(409);
    EXPECT_EQ(409, Restore());

    HaveAsset();
    HaveContent();
    Embed();
    Open();
    Take(500);
    ExpectClosed();
    EXPECT_EQ(500, Restore());

    HaveAsset();
    HaveContent();
    Embed();
    Open();
    Take();
    EXPECT_CALL(*mEngine, CommitTransaction(_, _, _, _)).WillOnce(Return(409));
    ExpectClosed();
    EXPECT_EQ(409, Restore());
}

TEST_F(RestoreFailureTest, WithoutAStoreNothingIsRestored)
{
    ProjectBox::SetInstance(nullptr);
    EXPECT_EQ(500, Restore());
    mEngine->RestoreAssetFromProduction("target", "p-source", "clip-a", {});
}

}  // namespace
}  // namespace VantryLocalHub
