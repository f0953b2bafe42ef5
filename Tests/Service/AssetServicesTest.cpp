#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Vocabulary.h"
#include "Tests/Service/ServiceFixture.h"

namespace service_test {

namespace {

namespace Relation = VYCL::LinkRelation;
using testing::InvokeArgument;

constexpr const char* kBase = "http://127.0.0.1:7777";

dto::Asset MakeAsset(const std::string& inID, const std::string& inParent = {})
{
    dto::Asset asset;
    asset.mAssetID = inID;
    asset.mAssetContentID = "content-" + inID;
    asset.mEtag = "tag-" + inID;
    asset.mProperties.mText = R"({"name":")" + inID + R"(","vy:parent":")" + inParent + R"("})";
    dto::Enclosure enclosure;
    enclosure.mEnclosureID = "e-1";
    enclosure.mEnclosureContentID = "cafe";
    asset.mEnclosures = {enclosure};
    return asset;
}

class AssetServicesTest : public ServiceFixture
{
protected:
    void SetUp() override { RegisterAll(); }

    /// Session "session-1" is there, and transaction "t-1" of the given session.
    void StoreHasTransaction(const char* inSessionID)
    {
        dto::TransactionResource transaction;
        transaction.mSessionID = inSessionID;
        EXPECT_CALL(*mStore, GetSession(ImmutableString("p-1"), _))
            .WillRepeatedly(DoAll(SetArgReferee<1>(MakeSession()), Return(200)));
        EXPECT_CALL(*mStore, GetTransaction(ImmutableString("t-1"), _))
            .WillRepeatedly(DoAll(SetArgReferee<1>(transaction), Return(200)));
    }
    void StoreHasAsset(const char* inRevision)
    {
        EXPECT_CALL(*mStore, GetAsset(ImmutableString("p-1"), ImmutableString(inRevision), ImmutableString("a-1"), _))
            .WillRepeatedly(DoAll(SetArgReferee<3>(MakeAsset("a-1")), Return(200)));
    }
    void StoreHasAssets()
    {
        EXPECT_CALL(*mStore, GetAssets(_, ImmutableString("c0ffee"), ImmutableString(), _, _))
            .WillRepeatedly(DoAll(SetArgReferee<4>(std::make_shared<const AssetList>(
                                      AssetList{MakeAsset("a-1", "bin-1"), MakeAsset("a-2", "bin-2")})),
                                  Return(200)));
    }
};

TEST_F(AssetServicesTest, AnAssetAtHeadRedirectsAndItsTagThenGivesNotModified)
{
    EXPECT_CALL(*mStore, GetProduction(ImmutableString("p-1"), ImmutableString("HEAD"), _))
        .WillRepeatedly(DoAll(SetArgReferee<2>(MakeSession()), Return(200)));
    EXPECT_EQ("/api/asset/p-1/c0ffee/a-1", Send("GET", "/api/asset/p-1/HEAD/a-1").Header("Location"));
    StoreHasAsset("c0ffee");
    const auto answer = Send("GET", "/api/asset/p-1/c0ffee/a-1");
    ASSERT_EQ(200, answer.Status());
    EXPECT_EQ("tag-a-1", answer.Header("ETag"));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(std::string(kBase) + "/api/asset/p-1/HEAD/a-1", FindLink(body.Root()["links"], "latest-version"));
    EXPECT_EQ(std::string(kBase) + "/api/asset/p-1/HEAD/{assetId}/restore/{assetContentId}",
              FindLink(body.Root()["links"], Relation::Assets_Restore()));
    EXPECT_EQ(std::string(kBase) + "/api/asset/p-1/c0ffee/a-1/enclosureById/e-1",
              FindLink(body.Root()["enclosures"].Children().at(0)["links"], "self"));
    const auto again = Send("GET", "/api/asset/p-1/c0ffee/a-1", {}, WithHost("If-None-Match", "tag-a-1"));
    EXPECT_EQ(304, again.Status());
    EXPECT_EQ("", again.Body());
    EXPECT_EQ(0U, LogCount("AssetService: Asset not found"));
}

TEST_F(AssetServicesTest, AnUnknownAssetIsLogged)
{
    EXPECT_CALL(*mStore, GetAsset(_, _, _, _)).WillRepeatedly(Return(404));
    EXPECT_EQ(404, Send("GET", "/api/asset/p-1/c0ffee/a-1").Status());
    EXPECT_EQ("!noxnet::IsSuccessfulHTTPStatus(status) && status != noxnet::kHTTPStatus_NotModified",
              LogValue("AssetService: Asset not found", "expression"));
    EXPECT_EQ(404, Send("GET", "/api/asset/p-1/c0ffee/a-1/enclosures").Status());
}

TEST_F(AssetServicesTest, EnclosuresOfAnAssetAreListedWithStatistics)
{
    StoreHasAsset("c0ffee");
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/asset/p-1/c0ffee/a-1/enclosures").Body()));
    EXPECT_EQ(1U, body.Root()["enclosures"].Children().size());
    EXPECT_EQ("1", body.Root()["stats"]["count"].Raw());
}

TEST_F(AssetServicesTest, AnEnclosureIsHandedOnAsTheStoreGivesIt)
{
    const auto payload = noxcore::utility::CopyToRecycledMemory("bytes");
    EXPECT_CALL(*mStore,
                GetAssetEnclosure(_, ImmutableString("c0ffee"), ImmutableString("a-1"), ImmutableString("e-1"), _))
        .WillOnce(DoAll(SetArgReferee<4>(payload), Return(200)))
        .WillOnce(Return(404));
    const auto answer = Send("GET", "/api/asset/p-1/c0ffee/a-1/enclosureById/e-1");
    EXPECT_EQ(200, answer.Status());
    EXPECT_EQ(payload, answer.mResponses.front()->mPayload);
    EXPECT_EQ("application/octet-stream", answer.Header("Content-Type"));
    EXPECT_EQ(404, Send("GET", "/api/asset/p-1/c0ffee/a-1/enclosureById/e-1").Status());
    EXPECT_EQ("!noxnet::IsSuccessfulHTTPStatus(status)", LogValue("AssetService: Enclosure not found", "expression"));
}

TEST_F(AssetServicesTest, AnEnclosureIsFoundByItsContent)
{
    const auto payload = noxcore::utility::CopyToRecycledMemory("bytes");
    EXPECT_CALL(*mStore, GetAssetEnclosureByContentHash(ImmutableString("p-1"), ImmutableString("cafe"), _))
        .WillOnce(Return(404))
        .WillRepeatedly(DoAll(SetArgReferee<2>(payload), Return(200)));
    EXPECT_EQ(404, Send("GET", "/api/asset/p-1/c0ffee/a-1/enclosureByContentId/cafe").Status());
    EXPECT_EQ(1U, LogCount("AssetService: Enclosure not found"));
    const auto answer = Send("GET", "/api/asset/p-1/c0ffee/a-1/enclosureByContentId/cafe");
    EXPECT_EQ("bytes", answer.Body());
    EXPECT_EQ("cafe", answer.Header("ETag"));
}

TEST_F(AssetServicesTest, ARestoreInANamedTransactionAnswersWhatWasRestored)
{
    StoreHasTransaction("session-1");
    EXPECT_CALL(*mStore, RestoreAsset(ImmutableString("t-1"), ImmutableString("a-1"), ImmutableString("0ld"), _))
        .WillOnce(DoAll(SetArgReferee<3>(MakeAsset("a-1")), Return(200)));
    const auto answer = Send("POST", "/api/asset/p-1/HEAD/a-1/restore/0ld", R"({"vy:transactionId":"t-1"})");
    EXPECT_EQ(200, answer.Status());
    EXPECT_EQ("tag-a-1", answer.Header("ETag"));
}

TEST_F(AssetServicesTest, ARestoreInTheTransactionOfAnotherSessionIsRefused)
{
    StoreHasTransaction("session-2");
    const std::string body = R"({"vy:transactionId":"t-1"})";
    EXPECT_EQ(400, Send("POST", "/api/asset/p-1/HEAD/a-1/restore/0ld", body).Status());
    EXPECT_EQ("400", LogValue("AssetService: Cannot restore asset", "status"));
    EXPECT_CALL(*mStore, GetSession(ImmutableString("p-2"), _)).WillOnce(Return(404));
    EXPECT_EQ(404, Send("POST", "/api/asset/p-2/HEAD/a-1/restore/0ld", body).Status());
}

TEST_F(AssetServicesTest, ARestoreWithoutTransactionCommitsItsOwnAndAnswersTheHead)
{
    dto::TransactionResource transaction;
    transaction.mTransactionID = "t-2";
    EXPECT_CALL(*mStore, OpenTransaction(ImmutableString("p-1"), _, _, _, _))
        .WillRepeatedly(DoAll(SetArgReferee<4>(transaction), Return(201)));
    EXPECT_CALL(*mStore, RestoreAsset(ImmutableString("t-2"), _, _, _)).WillOnce(Return(200)).WillOnce(Return(404));
    EXPECT_CALL(*mSync, CommitTransaction(ImmutableString("t-2"), _, _, _)).WillOnce(Return(200));
    StoreHasAsset("HEAD");
    const auto answer = Send("POST", "/api/asset/p-1/HEAD/a-1/restore/0ld");
    EXPECT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(std::string(kBase) + "/api/asset/p-1/HEAD/a-1", FindLink(body.Root()["links"], "self"));
    EXPECT_CALL(*mStore, CloseTransaction(ImmutableString("t-2"))).WillOnce(Return(200));
    EXPECT_EQ(404, Send("POST", "/api/asset/p-1/HEAD/a-1/restore/0ld").Status());
    EXPECT_EQ("404", LogValue("AssetService: Cannot restore asset", "status"));
}

TEST_F(AssetServicesTest, RestoringFromTheProductionGoesToTheEngine)
{
    EXPECT_CALL(*mStore, GetProduction(_, ImmutableString("HEAD"), _))
        .WillOnce(Return(404))
        .WillRepeatedly(DoAll(SetArgReferee<2>(MakeSession()), Return(200)));
    EXPECT_CALL(*mSync, RestoreAssetFromProduction(ImmutableString("session-1"), ImmutableString("p-1"),
                                                   ImmutableString("a-1"), _))
        .WillOnce(InvokeArgument<3>(501));
    EXPECT_EQ(404, Send("POST", "/api/asset/p-1/HEAD/a-1/restoreFromProduction").Status());
    EXPECT_EQ(501, Send("POST", "/api/asset/p-1/HEAD/a-1/restoreFromProduction").Status());
}

TEST_F(AssetServicesTest, PropertiesOfAnAssetCannotBePut)
{
    EXPECT_EQ(412, Send("PUT", "/api/asset/p-1/c0ffee/a-1/properties", "{}").Status());
}

TEST_F(AssetServicesTest, TheListOfAssetsIsTaggedByWhatItHolds)
{
    StoreHasAssets();
    const auto full = Send("GET", "/api/assets/p-1/c0ffee");
    ASSERT_EQ(200, full.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(full.Body()));
    EXPECT_EQ(2U, body.Root()["assets"].Children().size());
    EXPECT_EQ("\"cafe\"",
              body.Root()["assets"].Children()[0]["enclosures"].Children().at(0)["vy:enclosureContentId"].Raw());
    EXPECT_EQ('"' + full.Header("ETag") + '"', body.Root()["vy:etag"].Raw());
    EXPECT_EQ(304, Send("GET", "/api/assets/p-1/c0ffee", {}, WithHost("If-None-Match", full.Header("ETag"))).Status());
    EXPECT_EQ(std::string(kBase) + "/api/assets/p-1/{commitId}/template/{assetId}",
              FindLink(body.Root()["links"], Relation::ProductionsProduction_CreateTemplate()));
}

TEST_F(AssetServicesTest, TheCondensedViewLeavesOutPropertiesAndEnclosures)
{
    StoreHasAssets();
    const auto condensed = Send("GET", "/api/assets/p-1/c0ffee?view=CONDENSED");
    JSONDocument body;
    ASSERT_TRUE(body.Parse(condensed.Body()));
    const auto asset = body.Root()["assets"].Children().at(0);
    EXPECT_EQ("\"a-1\"", asset["vy:assetId"].Raw());
    EXPECT_FALSE(asset["properties"].Exists());
    EXPECT_FALSE(asset["enclosures"].Exists());
    EXPECT_EQ(std::string(kBase) + "/api/assets/p-1/c0ffee?view=CONDENSED", FindLink(body.Root()["links"], "self"));
    EXPECT_NE(condensed.Header("ETag"), Send("GET", "/api/assets/p-1/c0ffee").Header("ETag"));
}

TEST_F(AssetServicesTest, AParentLimitsTheListToItsChildren)
{
    StoreHasAssets();
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/assets/p-1/c0ffee?parentId=bin-2").Body()));
    ASSERT_EQ(1U, body.Root()["assets"].Children().size());
    EXPECT_EQ("\"a-2\"", body.Root()["assets"].Children()[0]["vy:assetId"].Raw());
    EXPECT_EQ("1", body.Root()["stats"]["totalResults"].Raw());
}

}  // namespace

}  // namespace service_test
