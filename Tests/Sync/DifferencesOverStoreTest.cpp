#include "Client/VYClient/History.h"
#include "Tests/Sync/EngineStoreFixture.h"

// What differs between revisions, from the repository to the record that clients read.

namespace {

using namespace testing_support;

class DifferencesOverStoreTest : public EngineStoreFixture
{
protected:
    dto::DifferencesResource Get(const ImmutableString& inFrom, const ImmutableString& inTo)
    {
        dto::DifferencesResource differences;
        mEngine->GetDifferences(mID, inFrom, inTo, [&](int inStatus, const dto::DifferencesResource& inDifferences) {
            EXPECT_EQ(200, inStatus);
            differences = inDifferences;
        });
        return differences;
    }
    std::string AssetsBetween(const ImmutableString& inFrom, const ImmutableString& inTo)
    {
        std::string text;
        for (const auto& asset : Get(inFrom, inTo).mDifferences.mAssets)
            text += asset.mAssetID.Text() + " " + asset.mDifferenceType.Text() + ";";
        return text;
    }

    const ImmutableString mID = CreateSession().mIdentifier;
};

TEST_F(DifferencesOverStoreTest, EachRangeTellsItsOwnChanges)
{
    const auto first = Write(mID, "clip-b", MakeAsset("b"));
    const auto second = Write(mID, "clip-a", MakeAsset("a"));
    const auto third = Write(mID, "clip-b", MakeAsset("b, second take"));
    const auto fourth = Delete(mID, "clip-a");
    EXPECT_EQ("clip-a Added;", AssetsBetween(first, second));
    EXPECT_EQ("clip-a Added;clip-b Updated;", AssetsBetween(first, third));
    EXPECT_EQ("clip-b Updated;", AssetsBetween(first, fourth)) << "what came and went is not told";
    EXPECT_EQ("clip-a Removed;", AssetsBetween(third, fourth));
    EXPECT_EQ("clip-a Added;", AssetsBetween(fourth, third));
    EXPECT_EQ("", AssetsBetween(third, third));
    EXPECT_EQ(first, Get(first, second).mLeftSideCommitID);
    EXPECT_EQ(second, Get(first, second).mRightSideCommitID);
    EXPECT_EQ("a commit", Get(first, second).mInfo.mMessage);
    EXPECT_FALSE(Get(first, second).mDifferences.mProperties.has_value());
}

TEST_F(DifferencesOverStoreTest, TheMessageIsWhatPeopleAreShownAndNamesNoMachine)
{
    const auto first = Write(mID, "clip-a", MakeAsset("a"));
    Write(mID, "clip-b", MakeAsset("b"));
    ImmutableString rolledBack;
    ASSERT_EQ(200, mStore->RevertSession(mID, first, rolledBack));
    StoredVersion version;
    ASSERT_EQ(200, mStore->GetHistoryRevision(mID, rolledBack, version));
    ASSERT_TRUE(version.mMessage.starts_with("{")) << "the record of the hub";
    const std::string message = Get(first, rolledBack).mInfo.mMessage;
    EXPECT_EQ(VYCL::GetCommitMessageFromTitle(version.mMessage), message);
    EXPECT_NE("", message);
    EXPECT_EQ(std::string::npos, message.find('{'));
}

TEST_F(DifferencesOverStoreTest, TheHeadIsWhereItStandsWhenItIsAskedFor)
{
    const auto first = Write(mID, "clip-a", MakeAsset("a"));
    EXPECT_EQ("", AssetsBetween(first, "HEAD"));
    const auto second = Write(mID, "clip-b", MakeAsset("b"));
    EXPECT_EQ("clip-b Added;", AssetsBetween(first, "HEAD"));
    EXPECT_EQ(second, Get(first, "HEAD").mRightSideCommitID);
    EXPECT_EQ("clip-a Added;clip-b Added;", AssetsBetween("production", "HEAD"));
}

TEST_F(DifferencesOverStoreTest, ProductionEnclosuresAreToldByNameAndPropertiesOnce)
{
    const auto before = GetSession(mID).mRevision;
    const auto transaction = OpenTransaction(mID);
    EnclosureContent content;
    content.mEnclosure.mName = "poster";
    content.mPayload = Bytes("an image");
    dto::Enclosure written;
    ASSERT_EQ(200, mStore->AddOrUpdateProductionEnclosure(transaction, content, written));
    ASSERT_EQ(200, mStore->EditSessionProperties(transaction, {dto::RawJSON(R"({"name":"Renamed"})"), {}}));
    ASSERT_EQ(200, Commit(transaction));
    const auto lists = Get(before, "HEAD").mDifferences;
    ASSERT_EQ(1U, lists.mEnclosures.size());
    EXPECT_EQ("poster", lists.mEnclosures[0].mName);
    EXPECT_EQ(VYCL::GetDifferenceType_Added(), lists.mEnclosures[0].mDifferenceType);
    ASSERT_TRUE(lists.mProperties.has_value());
    EXPECT_EQ(VYCL::GetDifferenceType_Updated(), lists.mProperties->mDifferenceType);
    const auto back = Get("HEAD", before).mDifferences;
    EXPECT_EQ("poster", back.mEnclosures.at(0).mName);
    EXPECT_EQ(VYCL::GetDifferenceType_Removed(), back.mEnclosures.at(0).mDifferenceType);
}

TEST_F(DifferencesOverStoreTest, ARevisionThatIsNowhereIsNotFoundWithoutARemoteSide)
{
    int status = 0;
    mEngine->GetDifferences(mID, std::string(40, '7'), "HEAD",
                            [&](int inStatus, const dto::DifferencesResource&) { status = inStatus; });
    EXPECT_EQ(404, status);
}

}  // namespace
