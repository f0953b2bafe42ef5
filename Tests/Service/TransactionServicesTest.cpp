#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/ServiceUtils.h"
#include "Tests/Service/ServiceFixture.h"

namespace service_test {

namespace {

namespace Relation = VYCL::LinkRelation;
using testing::InSequence;
using testing::SaveArg;

constexpr const char* kBase = "http://127.0.0.1:7777";
const std::string kGuid = "11111111-2222-3333-4444-555555555555";
const std::string kEnclosureGuid = "aaaaaaaa-2222-3333-4444-555555555555";
const std::string kContentID(40, 'c');
const std::string kOtherContentID(40, 'd');

dto::Asset StoredAsset(const std::string& inID)
{
    dto::Asset asset;
    asset.mAssetID = inID;
    asset.mAssetContentID = "content-of-" + inID;
    asset.mEtag = "tag";
    return asset;
}

class TransactionServicesTest : public ServiceFixture
{
protected:
    void SetUp() override { RegisterAll(); }

    Answer SendForm(const std::string& inOperation, const FormFields& inFields, const std::string& inMethod = "POST")
    {
        return Send(inMethod, "/api/transaction/t-1/" + inOperation, FormOf(inFields),
                    WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }

    static dto::TransactionResource MakeTransaction()
    {
        dto::TransactionResource transaction;
        transaction.mTransactionID = "t-1";
        transaction.mCommitID = "c0ffee";
        transaction.mSessionID = "session-1";
        transaction.mMetadata.mCommitMessage = "given at opening";
        return transaction;
    }
    void StoreHasTransaction()
    {
        EXPECT_CALL(*mStore, GetTransaction(ImmutableString("t-1"), _))
            .WillRepeatedly(DoAll(SetArgReferee<1>(MakeTransaction()), Return(200)));
    }
};

TEST_F(TransactionServicesTest, ATransactionIsOpenedWithItsLocation)
{
    EXPECT_CALL(*mStore, RevisionExists(ImmutableString("p-1"), ImmutableString("c0ffee"))).WillOnce(Return(true));
    EXPECT_CALL(*mStore,
                OpenTransaction(ImmutableString("p-1"), ImmutableString(), VYCL::GetTransactionType_Edit(), _, _))
        .WillOnce(DoAll(SetArgReferee<4>(MakeTransaction()), Return(201)));
    const auto answer = Send("POST", "/api/transactions/p-1/c0ffee", "{}");
    EXPECT_EQ(201, answer.Status());
    EXPECT_EQ(std::string(kBase) + "/api/transaction/t-1", answer.Header("Location"));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(std::string(kBase) + "/api/transaction/t-1/commit",
              FindLink(body.Root()["links"], Relation::TransactionsTransaction_Commit()));
    EXPECT_FALSE(body.Root()["mSessionID"].Exists());
}

TEST_F(TransactionServicesTest, ARequiredHeadIsTheRevisionOfTheURLAndHeadIsResolvedAtOpening)
{
    EXPECT_CALL(*mStore, RevisionExists(_, _)).WillRepeatedly(Return(true));
    EXPECT_CALL(*mStore, GetProduction(_, ImmutableString("HEAD"), _))
        .WillOnce(DoAll(SetArgReferee<2>(MakeSession("feed")), Return(200)));
    EXPECT_CALL(*mStore, OpenTransaction(_, ImmutableString("feed"), _, _, _)).WillOnce(Return(409));
    EXPECT_EQ(409, Send("POST", "/api/transactions/p-1/HEAD", R"({":requireHead":true})").Status());
    EXPECT_CALL(*mStore, OpenTransaction(_, ImmutableString("c0ffee"), _, _, _)).WillOnce(Return(409));
    EXPECT_EQ(409, Send("POST", "/api/transactions/p-1/c0ffee", R"({":requireHead":true})").Status());
}

TEST_F(TransactionServicesTest, ABodyThatIsNoTransactionIsUnsupported)
{
    for (const std::string body : {"", "[]", "{", R"({":requireHead":"yes"})"})
        EXPECT_EQ(415, Send("POST", "/api/transactions/p-1/c0ffee", body).Status()) << body;
    EXPECT_EQ(4U, LogCount("TransactionsService: Bad payload"));
}

TEST_F(TransactionServicesTest, ATransactionAtAnUnknownRevisionIsNotOpened)
{
    EXPECT_CALL(*mStore, RevisionExists(_, _)).WillRepeatedly(Return(false));
    for (const int status : {404, 500}) {
        EXPECT_CALL(*mStore, GetProduction(ImmutableString("p-1"), ImmutableString("c0ffee"), _))
            .WillOnce(Return(status));
        EXPECT_EQ(status, Send("POST", "/api/transactions/p-1/c0ffee", "{}").Status());
    }
}

TEST_F(TransactionServicesTest, OpenTransactionsAreListedWithTheirLinks)
{
    EXPECT_CALL(*mStore, GetTransactionList(ImmutableString("p-1"), _))
        .WillOnce(DoAll(SetArgReferee<1>(std::vector{MakeTransaction()}), Return(200)))
        .WillOnce(Return(404));
    const auto answer = Send("GET", "/api/transactions/p-1/c0ffee");
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(std::string(kBase) + "/api/transactions/p-1/HEAD", FindLink(body.Root()["links"], "latest-version"));
    EXPECT_EQ(std::string(kBase) + "/api/transaction/t-1",
              FindLink(body.Root()["transactions"].Children().at(0)["links"], "self"));
    EXPECT_EQ(404, Send("GET", "/api/transactions/p-1/c0ffee").Status());
}

TEST_F(TransactionServicesTest, ATransactionIsReadWithWhatCanBeDoneWithIt)
{
    StoreHasTransaction();
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/transaction/t-1").Body()));
    const auto links = body.Root()["links"];
    EXPECT_EQ(std::string(kBase) + "/api/transaction/t-1/bulkPreflight", FindLink(links, Relation::Bulk_Preflight()));
    EXPECT_EQ(std::string(kBase) + "/api/assets/session-1/c0ffee?view=CONDENSED",
              FindLink(links, Relation::Assets_FullCondensed()));
    EXPECT_EQ(std::string(kBase) + "/api/asset/session-1/{commitId}/{assetId}",
              FindLink(links, Relation::AssetsAsset_ByAssetId()));
}

TEST_F(TransactionServicesTest, AnUnknownTransactionGivesTheStoresStatus)
{
    EXPECT_CALL(*mStore, GetTransaction(_, _)).WillRepeatedly(Return(404));
    EXPECT_EQ(404, Send("GET", "/api/transaction/t-1").Status());
    EXPECT_EQ(404, SendForm("bulkEdit", {{"assets+" + kGuid + "+name", "x"}}).Status());
    EXPECT_EQ(404, SendForm("bulkPreflight", {{"enclosures+e+content+a+" + kContentID, ""}}).Status());
    EXPECT_EQ("t-1", LogValue("TransactionService: Unable to parse form", "transactionID"));
    EXPECT_EQ("!noxnet::IsSuccessfulHTTPStatus(status)",
              LogValue("TransactionService: Unable to parse form", "expression"));
}

TEST_F(TransactionServicesTest, ACreatedAssetKeepsItsGuidAndAnswersItsRow)
{
    const InSequence inOrder;
    AssetContent first;
    AssetContent second;
    EXPECT_CALL(*mStore, AddAsset(ImmutableString("t-1"), ImmutableString(), _, _))
        .WillOnce(DoAll(SaveArg<2>(&first), SetArgReferee<3>(StoredAsset("made")), Return(200)));
    EXPECT_CALL(*mStore, AddAsset(ImmutableString("t-1"), ImmutableString(kGuid), _, _))
        .WillOnce(DoAll(SaveArg<2>(&second), SetArgReferee<3>(StoredAsset(kGuid)), Return(200)));
    const auto answer = SendForm("bulkCreate", {{"assets+0+properties", R"({"name":"old", "k":1})"},
                                                {"assets+" + kGuid + "+name", "Clip"},
                                                {"assets+0+name", "new"},
                                                {"enclosures+" + kEnclosureGuid + "+content+0", "bytes"},
                                                {"enclosures+x+content+0+" + kContentID, ""}});
    ASSERT_EQ(200, answer.Status());
    EXPECT_EQ(R"({"name":"new","k":1})", first.mAsset.mProperties.mText);
    EXPECT_EQ(R"({"name":"Clip"})", second.mAsset.mProperties.mText);
    ASSERT_EQ(2U, first.mEnclosures.size());
    EXPECT_EQ(kEnclosureGuid, first.mEnclosures[0].mEnclosure.mEnclosureID.Text());
    EXPECT_EQ("bytes", first.mEnclosures[0].mPayload->View());
    EXPECT_TRUE(first.mEnclosures[0].mEnclosure.mEnclosureContentID.empty());
    EXPECT_TRUE(noxcore::utility::Guid::FromText(first.mEnclosures[1].mEnclosure.mEnclosureID));
    EXPECT_EQ(kContentID, first.mEnclosures[1].mEnclosure.mEnclosureContentID.Text());
    EXPECT_EQ(nullptr, first.mEnclosures[1].mPayload);
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ("\"0\"", body.Root()["assets"].Children().at(0)["indexId"].Raw());
    EXPECT_EQ("\"made\"", body.Root()["assets"].Children().at(0)["assetId"].Raw());
    EXPECT_EQ("\"content-of-made\"", body.Root()["assets"].Children().at(0)["assetContentId"].Raw());
    EXPECT_EQ("\"x\"", body.Root()["enclosures"].Children().at(1)["indexId"].Raw());
}

TEST_F(TransactionServicesTest, ARefusedRowEndsTheRequestAndTheRowsBeforeItStay)
{
    const InSequence inOrder;
    EXPECT_CALL(*mStore, AddAsset(_, _, _, _)).WillOnce(Return(200));
    EXPECT_CALL(*mStore, AddAsset(_, _, _, _)).WillOnce(Return(409));
    EXPECT_CALL(*mStore, FlushTransactionContent(ImmutableString("t-1"))).WillOnce(Return(200));
    const auto answer =
        SendForm("bulkCreate", {{"assets+0+name", "a"}, {"assets+1+name", "b"}, {"assets+2+name", "c"}});
    EXPECT_EQ(409, answer.Status());
    EXPECT_EQ("", answer.Body());
    EXPECT_EQ("409", LogValue("TransactionService: Unable to parse form", "status"));
}

TEST_F(TransactionServicesTest, RowsBeforeARefusedOneThatCannotBeWrittenAreTheRequestsFailure)
{
    EXPECT_CALL(*mStore, AddAsset(_, _, _, _)).WillOnce(Return(200)).WillOnce(Return(409));
    EXPECT_CALL(*mStore, FlushTransactionContent(ImmutableString("t-1"))).WillOnce(Return(500));
    EXPECT_EQ(500, SendForm("bulkCreate", {{"assets+0+name", "a"}, {"assets+1+name", "b"}}).Status());
    EXPECT_EQ("500", LogValue("TransactionService: Unable to parse form", "status"));
}

TEST_F(TransactionServicesTest, ABadFormReachesNoStore)
{
    EXPECT_EQ(400, SendForm("bulkCreate", {{"assets+0+name", "a"}, {"assets", "b"}}).Status());
    EXPECT_EQ(400, SendForm("bulkCreate", {}).Status());
    EXPECT_EQ(400, SendForm("bulkEdit", {{"bins+0+name", "a"}}).Status());
    EXPECT_EQ(400, SendForm("bulkDelete", {{"assets+0+name", "a"}}).Status());
    EXPECT_EQ(0U, LogCount("TransactionService: Unable to parse form"));
}

TEST_F(TransactionServicesTest, AProductionEnclosureIsAdded)
{
    EnclosureContent content;
    dto::Enclosure stored;
    stored.mEnclosureContentID = kContentID;
    EXPECT_CALL(*mStore, AddOrUpdateProductionEnclosure(ImmutableString("t-1"), _, _))
        .WillOnce(DoAll(SaveArg<1>(&content), SetArgReferee<2>(stored), Return(200)));
    const auto answer = SendForm("bulkCreate", {{"enclosures+" + kEnclosureGuid + "+name", "poster "},
                                                {"enclosures+" + kEnclosureGuid + "+content+-", "bytes"}});
    EXPECT_EQ(200, answer.Status());
    EXPECT_EQ("poster", content.mEnclosure.mName);
    EXPECT_EQ("bytes", content.mPayload->View());
    EXPECT_EQ(1U, LogCount("TransactionService: trimmed enclosure name"));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ('"' + kContentID + '"', body.Root()["enclosures"].Children().at(0)["enclosureContentId"].Raw());
}

TEST_F(TransactionServicesTest, AnEditLeavesWhatItDoesNotName)
{
    StoreHasTransaction();
    dto::Asset current = StoredAsset(kGuid);
    current.mProperties.mText = R"({"name":"Clip","k":1})";
    dto::Enclosure kept;
    kept.mEnclosureID = "kept";
    kept.mEnclosureContentID = "cafe";
    dto::Enclosure renamed = kept;
    renamed.mEnclosureID = kEnclosureGuid;
    current.mEnclosures = {kept, renamed};
    EXPECT_CALL(*mStore, GetTransactionAsset(_, ImmutableString(kGuid), _)).WillRepeatedly(Return(404));
    EXPECT_CALL(*mStore, GetAsset(ImmutableString("session-1"), ImmutableString("HEAD"), ImmutableString(kGuid), _))
        .WillRepeatedly(DoAll(SetArgReferee<3>(current), Return(200)));
    AssetContent edited;
    EXPECT_CALL(*mStore, EditAsset(ImmutableString("t-1"), ImmutableString(kGuid), _, _))
        .WillRepeatedly(DoAll(SaveArg<2>(&edited), SetArgReferee<3>(current), Return(200)));
    for (const std::string method : {"POST", "PUT"}) {
        edited = {};
        ASSERT_EQ(
            200,
            SendForm("bulkEdit", {{"enclosures+" + kEnclosureGuid + "+name+" + kGuid, "Take 2"}}, method).Status());
        EXPECT_EQ(R"({"name":"Clip","k":1})", edited.mAsset.mProperties.mText);
        ASSERT_EQ(2U, edited.mEnclosures.size());
        EXPECT_EQ(kept, edited.mEnclosures[0].mEnclosure);
        EXPECT_EQ("Take 2", edited.mEnclosures[1].mEnclosure.mName);
        EXPECT_EQ("cafe", edited.mEnclosures[1].mEnclosure.mEnclosureContentID.Text());
    }
    ASSERT_EQ(200, SendForm("bulkEdit", {{"assets+" + kGuid + "+properties", R"({"n":2})"},
                                         {"enclosures+" + kEnclosureGuid + "+content+" + kGuid, "new"}})
                       .Status());
    EXPECT_EQ(R"({"n":2})", edited.mAsset.mProperties.mText);
    EXPECT_TRUE(edited.mEnclosures[1].mEnclosure.mEnclosureContentID.empty());
    EXPECT_EQ("new", edited.mEnclosures[1].mPayload->View());
}

TEST_F(TransactionServicesTest, AnEditOfAnAssetThatIsNotThereOrCannotBeReadIsRefused)
{
    StoreHasTransaction();
    EXPECT_CALL(*mStore, GetTransactionAsset(_, _, _)).WillOnce(Return(404)).WillOnce(Return(500));
    EXPECT_CALL(*mStore, GetAsset(_, _, _, _)).WillOnce(Return(404));
    EXPECT_EQ(404, SendForm("bulkEdit", {{"assets+0+name", "x"}}).Status());
    EXPECT_EQ(500, SendForm("bulkEdit", {{"assets+0+name", "x"}}).Status());
}

TEST_F(TransactionServicesTest, RowsAreDeletedByKeyAlone)
{
    const InSequence inOrder;
    EXPECT_CALL(*mStore, DeleteAsset(ImmutableString("t-1"), ImmutableString("a-1"))).WillOnce(Return(200));
    EXPECT_CALL(*mStore, DeleteAssetEnclosure(ImmutableString("t-1"), ImmutableString("a-2"), ImmutableString("e-1")))
        .WillOnce(Return(200));
    EXPECT_CALL(*mStore, DeleteAsset(ImmutableString("t-1"), ImmutableString("a-3"))).WillOnce(Return(412));
    EXPECT_EQ(412,
              SendForm("bulkDelete", {{"assets+a-1", ""}, {"enclosures+e-1++a-2", ""}, {"assets+a-3", ""}}).Status());
    EXPECT_EQ("412", LogValue("TransactionService: Unable to parse form", "status"));
}

TEST_F(TransactionServicesTest, ARowToDeleteThatCannotBeAnAssetReachesNoStore)
{
    const std::vector<std::string> keys = {"assets+" + kGuid + "/enclosures",
                                           "assets+" + kGuid + "/properties",
                                           "assets+..",
                                           "assets+/",
                                           "assets+a//b",
                                           "assets+ab",
                                           "assets+-",
                                           "assets+a b c",
                                           std::string("assets+a\0b", 10),
                                           "enclosures+e",
                                           "enclosures+e++-",
                                           "enclosures+e++ab"};
    for (const std::string& key : keys)
        EXPECT_EQ(400, SendForm("bulkDelete", {{"assets+" + kGuid, ""}, {key, ""}}).Status()) << key;
    EXPECT_EQ(keys.size(), LogCount("TransactionService: Bad form element"));
}

TEST_F(TransactionServicesTest, APreflightNamesWhatIsStillToSend)
{
    StoreHasTransaction();
    EXPECT_CALL(*mStore, HasContent(ImmutableString("session-1"), ImmutableString(kContentID))).WillOnce(Return(200));
    EXPECT_CALL(*mStore, HasContent(ImmutableString("session-1"), ImmutableString(kOtherContentID)))
        .WillOnce(Return(404));
    const auto answer = SendForm("bulkPreflight", {{"assets+a+name", "not content"},
                                                   {"enclosures+e-1+content+a+" + kContentID, ""},
                                                   {"enclosures+e-2+content+a+" + kOtherContentID, ""},
                                                   {"enclosures+e-3+content+a", kOtherContentID}});
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    const auto uploads = body.Root()["uploads"].Children();
    ASSERT_EQ(2U, uploads.size());
    EXPECT_EQ("\"e-2\"", uploads[0]["indexId"].Raw());
    EXPECT_EQ("\"e-3\"", uploads[1]["indexId"].Raw());
    EXPECT_EQ('"' + kOtherContentID + '"', uploads[0]["uploadId"].Raw());
}

TEST_F(TransactionServicesTest, ContentThatComesWithThePreflightIsStoredAtOnce)
{
    StoreHasTransaction();
    EXPECT_CALL(*mStore,
                ComputeContentHash(ImmutableString("session-1"), testing::Matcher<const ConstRecycledMemoryPtr&>(_)))
        .WillOnce(Return(ImmutableString(kContentID)));
    const auto answer = SendForm("bulkPreflight", {{"enclosures+e-1+content+a", "bytes"}});
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_TRUE(body.Root()["uploads"].Children().empty());
}

TEST_F(TransactionServicesTest, APreflightWritesWhatItStoredBeforeItAnswers)
{
    StoreHasTransaction();
    EXPECT_CALL(*mStore, ComputeContentHash(_, testing::Matcher<const ConstRecycledMemoryPtr&>(_)))
        .WillRepeatedly(Return(ImmutableString(kContentID)));
    EXPECT_CALL(*mStore, FlushTransactionContent(ImmutableString("t-1"))).WillOnce(Return(500));
    EXPECT_EQ(500, SendForm("bulkPreflight", {{"enclosures+e-1+content+a", "bytes"}}).Status());
    EXPECT_EQ("500", LogValue("TransactionService: Unable to parse form", "status"));
}

TEST_F(TransactionServicesTest, APreflightOfAClosedTransactionStoresNothing)
{
    dto::TransactionResource closed = MakeTransaction();
    closed.mIsClosed = true;
    EXPECT_CALL(*mStore, GetTransaction(ImmutableString("t-1"), _))
        .WillOnce(DoAll(SetArgReferee<1>(closed), Return(200)));
    EXPECT_EQ(412, SendForm("bulkPreflight", {{"enclosures+e-1+content+a", "bytes"}}).Status());
}

TEST_F(TransactionServicesTest, RowsWhoseTransactionIsCommittedBeforeTheAnswerAreTaken)
{
    EXPECT_CALL(*mStore, AddAsset(_, _, _, _)).WillOnce(DoAll(SetArgReferee<3>(StoredAsset("made")), Return(200)));
    EXPECT_CALL(*mStore, FlushTransactionContent(ImmutableString("t-1"))).WillOnce(Return(404));
    const auto answer = SendForm("bulkCreate", {{"assets+0+name", "a"}});
    EXPECT_EQ(200, answer.Status());
    EXPECT_NE(std::string::npos, answer.Body().find("made"));
}

TEST_F(TransactionServicesTest, AnEditOfWhatAnotherRequestHasChangedMeanwhileIsMergedAgain)
{
    StoreHasTransaction();
    dto::Asset first = StoredAsset(kGuid);
    first.mProperties.mText = R"({"name":"old","k":1})";
    dto::Asset second = first;
    second.mAssetContentID = "changed";
    second.mProperties.mText = R"({"name":"old","k":2})";
    std::vector<AssetContent> edits;
    const auto keep = [&edits](const auto&, const auto&, const AssetContent& inAsset, auto&) {
        edits.push_back(inAsset);
        return edits.size() < 3 ? 409 : 200;
    };
    EXPECT_CALL(*mStore, GetAsset(_, _, _, _)).WillOnce(DoAll(SetArgReferee<3>(first), Return(200)));
    EXPECT_CALL(*mStore, GetTransactionAsset(_, _, _))
        .WillOnce(Return(404))
        .WillOnce(DoAll(SetArgReferee<2>(first), Return(200)))
        .WillOnce(DoAll(SetArgReferee<2>(second), Return(200)));
    EXPECT_CALL(*mStore, EditAsset(_, _, _, _)).Times(3).WillRepeatedly(keep);
    EXPECT_EQ(200, SendForm("bulkEdit", {{"assets+" + kGuid + "+name", "new"}}).Status());
    ASSERT_EQ(3U, edits.size());
    EXPECT_EQ(ImmutableString(), edits[0].mMergedFrom);
    EXPECT_EQ(first.mAssetContentID, edits[1].mMergedFrom);
    EXPECT_EQ(second.mAssetContentID, edits[2].mMergedFrom);
    EXPECT_EQ(R"({"name":"new","k":2})", edits[2].mAsset.mProperties.mText);
}

TEST_F(TransactionServicesTest, AnEditOfAProductionEnclosureStartsFromTheTransactionsOwn)
{
    StoreHasTransaction();
    dto::Enclosure own;
    own.mEnclosureID = kEnclosureGuid;
    own.mEnclosureContentID = kContentID;
    dto::Enclosure ofHead = own;
    ofHead.mEnclosureContentID = kOtherContentID;
    EXPECT_CALL(*mStore, GetTransactionProductionEnclosure(ImmutableString("t-1"), ImmutableString(kEnclosureGuid), _))
        .WillOnce(Return(404))
        .WillOnce(DoAll(SetArgReferee<2>(own), Return(200)));
    EXPECT_CALL(*mStore, GetProductionEnclosures(ImmutableString("session-1"), _, _))
        .WillOnce(DoAll(SetArgReferee<2>(std::vector{ofHead}), Return(200)));
    std::vector<EnclosureContent> edits;
    EXPECT_CALL(*mStore, AddOrUpdateProductionEnclosure(_, _, _))
        .WillRepeatedly([&edits](const auto&, const EnclosureContent& inEnclosure, auto&) {
            edits.push_back(inEnclosure);
            return edits.size() < 2 ? 409 : 200;
        });
    EXPECT_EQ(200, SendForm("bulkEdit", {{"enclosures+" + kEnclosureGuid + "+name", "Poster"}}).Status());
    ASSERT_EQ(2U, edits.size());
    EXPECT_EQ(kOtherContentID, edits[0].mEnclosure.mEnclosureContentID.Text());
    EXPECT_EQ(dto::Enclosure(), edits[0].mMergedFrom);
    EXPECT_EQ(kContentID, edits[1].mEnclosure.mEnclosureContentID.Text());
    EXPECT_EQ("Poster", edits[1].mEnclosure.mName);
    EXPECT_EQ(own, edits[1].mMergedFrom);
}

TEST_F(TransactionServicesTest, ACommitAnswersTheTransactionAsItWasOpened)
{
    dto::TransactionResource opened = MakeTransaction();
    opened.mOwner = "ann";
    opened.mProperties.mText = R"({"k":1})";
    opened.mMetadata.mApplicationInstanceID = "app";
    EXPECT_CALL(*mStore, GetTransaction(ImmutableString("t-1"), _))
        .WillRepeatedly(DoAll(SetArgReferee<1>(opened), Return(200)));
    EXPECT_CALL(*mSync, CommitTransaction(_, _, _, _)).WillRepeatedly(Return(200));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("POST", "/api/transaction/t-1/commit", R"({":commitMessage":"Cut"})").Body()));
    EXPECT_EQ("\"ann\"", body.Root()["owner"].Raw());
    EXPECT_EQ(R"({"k":1})", body.Root()["properties"].Raw());
    EXPECT_EQ("\"app\"", body.Root()["metadata"]["applicationInstanceID"].Raw());
    EXPECT_EQ("\"Cut\"", body.Root()["metadata"]["commitMessage"].Raw());
    ASSERT_TRUE(body.Parse(
        Send("POST", "/api/transaction/t-1/commit", R"({"metadata":{"applicationInstanceID":"other"}})").Body()));
    EXPECT_EQ("\"ann\"", body.Root()["owner"].Raw());
    EXPECT_EQ("\"other\"", body.Root()["metadata"]["applicationInstanceID"].Raw());
    EXPECT_EQ("\"given at opening\"", body.Root()["metadata"]["commitMessage"].Raw());
}

TEST_F(TransactionServicesTest, ACommitAnswersTheNewCommitWithItsTag)
{
    StoreHasTransaction();
    CommitMessage message;
    CommitOutcome outcome;
    outcome.mSession = MakeSession("new");
    EXPECT_CALL(*mSync, CommitTransaction(ImmutableString("t-1"), _, ImmutableString("accept-yours"), _))
        .WillOnce(DoAll(SaveArg<1>(&message), SetArgReferee<3>(outcome), Return(200)));
    const auto answer =
        Send("POST", "/api/transaction/t-1/commit",
             R"({":commitMessage":"Cut","metadata":{"commitMessage":"x"},":resolveStrategy":"accept-yours"})");
    ASSERT_EQ(200, answer.Status());
    EXPECT_EQ("Cut", message.mText);
    EXPECT_EQ(HashPayload(answer.Body()), answer.Header("ETag"));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ("\"new\"", body.Root()["commitId"].Raw());
    EXPECT_EQ("\"Cut\"", body.Root()["metadata"]["commitMessage"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/assets/session-1/new",
              FindLink(body.Root()["links"], Relation::Assets_Full()));
}

TEST_F(TransactionServicesTest, TheMessageFallsBackToTheMetadataOfBodyAndTransaction)
{
    StoreHasTransaction();
    CommitMessage message;
    EXPECT_CALL(*mSync, CommitTransaction(_, _, ImmutableString(), _))
        .WillRepeatedly(DoAll(SaveArg<1>(&message), Return(200)));
    Send("POST", "/api/transaction/t-1/commit", R"({"metadata":{"commitMessage":"of the body"}})");
    EXPECT_EQ("of the body", message.mText);
    Send("POST", "/api/transaction/t-1/commit", "{}");
    EXPECT_EQ("given at opening", message.mText);
    Send("POST", "/api/transaction/t-1/commit", R"({":commitMessage":""})");
    EXPECT_EQ("", message.mText);
}

TEST_F(TransactionServicesTest, ACommitIsReadByItsContentType)
{
    StoreHasTransaction();
    CommitMessage message;
    EXPECT_CALL(*mSync, CommitTransaction(_, _, ImmutableString("accept-yours"), _))
        .Times(5)
        .WillRepeatedly(DoAll(SaveArg<1>(&message), Return(200)));
    const auto commit = [this](const std::string& inType, const std::string& inBody) {
        return Send("POST", "/api/transaction/t-1/commit", inBody, WithHost("Content-Type", inType)).Status();
    };
    const std::string encoded = "application/x-www-form-urlencoded";
    const std::string json = R"({":commitMessage":"of JSON",":resolveStrategy":"accept-yours"})";
    EXPECT_EQ(200, commit(encoded, "%3AcommitMessage=of+a+form&:resolveStrategy=accept-yours&unknown=1"));
    EXPECT_EQ("of a form", message.mText);
    EXPECT_EQ(200, commit("multipart/form-data; boundary=b",
                          "--b\r\nContent-Disposition: form-data; name=\":commitMessage\"\r\n\r\nof parts\r\n"
                          "--b\r\nContent-Disposition: form-data; name=\":resolveStrategy\"\r\n\r\naccept-yours\r\n"
                          "--b--\r\n"));
    EXPECT_EQ("of parts", message.mText);
    EXPECT_EQ(200, commit(encoded, ":resolveStrategy=accept-yours&metadata=%7B%22commitMessage%22%3A%22of+it%22%7D"));
    EXPECT_EQ("of it", message.mText);
    EXPECT_EQ(200, commit("application/json; charset=utf-8", json));
    EXPECT_EQ("of JSON", message.mText);
    EXPECT_EQ(200, commit(encoded, json)) << "what tools call a form unless they are told otherwise";
    for (const std::string body :
         {"", ":resolveStrategy=mine", "metadata=1", ":commitMessage=%ff", ":commitMessage=x&y=%fe"})
        EXPECT_EQ(400, commit(encoded, body)) << body;
    EXPECT_EQ(400, commit("text/plain", ":commitMessage=x"));
}

TEST_F(TransactionServicesTest, ACommitThatIsNotUnderstoodReachesNoEngine)
{
    for (const std::string body : {"", "nonsense", "[]", R"({":commitMessage":1})", R"({":resolveStrategy":"mine"})"})
        EXPECT_EQ(400, Send("POST", "/api/transaction/t-1/commit", body).Status()) << body;
    EXPECT_EQ(5U, LogCount("JSON not well-formed"));
    EXPECT_EQ(500, Send("POST", "/api/transaction/t-1/commit", "{}", {}).Status());
}

TEST_F(TransactionServicesTest, AFailedCommitAndAFailedRollbackAreLogged)
{
    EXPECT_CALL(*mStore, GetTransaction(_, _)).WillOnce(Return(404));
    EXPECT_CALL(*mSync, CommitTransaction(_, _, _, _)).WillOnce(Return(412));
    EXPECT_EQ(412, Send("POST", "/api/transaction/t-1/commit", R"({":commitMessage":"Cut"})").Status());
    EXPECT_EQ("412", LogValue("TransactionService: Unable to commit", "status"));
    EXPECT_CALL(*mStore, CloseTransaction(ImmutableString("t-1"))).WillOnce(Return(404)).WillOnce(Return(200));
    EXPECT_EQ(404, Send("POST", "/api/transaction/t-1/rollback").Status());
    EXPECT_EQ("t-1", LogValue("TransactionService: Unable to rollback", "transactionID"));
    EXPECT_EQ(200, Send("POST", "/api/transaction/t-1/rollback").Status());
}

TEST_F(TransactionServicesTest, AFormOfManyRowsIsReadInOnePass)
{
    constexpr int kRows = 20000;
    FormFields fields;
    for (int row = 0; row < kRows; ++row) {
        fields.emplace_back("assets+" + std::to_string(row) + "+name", "n");
        fields.emplace_back("enclosures+e+content+" + std::to_string(row), "bytes");
    }
    int added = 0;
    EXPECT_CALL(*mStore, AddAsset(_, _, _, _))
        .WillRepeatedly([&](const auto&, const auto&, const auto& inAsset, auto&) {
            added += inAsset.mEnclosures.size() == 1 ? 1 : 0;
            return 200;
        });
    EXPECT_EQ(200, SendForm("bulkCreate", fields).Status());
    EXPECT_EQ(kRows, added);
}

}  // namespace

}  // namespace service_test
