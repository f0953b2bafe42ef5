#include "Tests/Service/StoreServicesFixture.h"

// The services over the real store and the real engine, on real threads.

namespace service_test {

namespace {

using testing_support::FileOperation;

constexpr int kDiskFull = 13;  // SQLITE_FULL
const std::string kAsset = "11111111-2222-4333-8444-555555555555";
const std::string kOtherAsset = "22222222-2222-4333-8444-555555555555";
const std::string kEnclosure = "aaaaaaaa-2222-4333-8444-555555555555";
const std::string kClip = R"({"name":"Clip","lumo:assetType":"clip"})";
const std::string kBin = R"({"name":"Bin","lumo:assetType":"bin"})";

std::string NumberedGuid(int inNumber)
{
    const std::string digits = std::to_string(inNumber);
    return "bbbbbbbb-2222-4333-8444-" + std::string(12 - digits.size(), '0') + digits;
}

TEST_F(StoreServicesTest, AProductionLivesFromItsCreationToItsDeletion)
{
    const std::string transaction = Open();
    ASSERT_EQ(200, SendForm(transaction, "bulkCreate",
                            {{"assets+" + kAsset + "+properties", kClip},
                             {"enclosures+" + kEnclosure + "+name+" + kAsset, "waveform"},
                             {"enclosures+" + kEnclosure + "+content+" + kAsset, "bytes"},
                             {"assets+" + kOtherAsset + "+properties", kClip}}));
    ASSERT_EQ(200, SendForm(transaction, "bulkEdit", {{"assets+" + kAsset + "+name", "Take 2"}}));
    ASSERT_EQ(200, SendForm(transaction, "bulkDelete", {{"assets+" + kOtherAsset, ""}}));
    EXPECT_TRUE(AssetIDs().empty());
    ASSERT_EQ(200, Commit(transaction));

    EXPECT_EQ(std::vector{kAsset}, AssetIDs());
    const auto asset = GetAtHead("asset", "/" + kAsset);
    EXPECT_NE(std::string::npos, asset.Body().find("Take 2"));
    EXPECT_NE(std::string::npos, asset.Body().find("waveform"));
    EXPECT_EQ("bytes", GetAtHead("asset", "/" + kAsset + "/enclosureById/" + kEnclosure).Body());
    EXPECT_EQ(404, Commit(transaction));

    EXPECT_EQ(501, Send("DELETE", "/api/production/" + mProduction + "/HEAD/enclosures").Status());
    EXPECT_EQ(204, Send("DELETE", "/api/production/" + mProduction + "/HEAD").Status());
    EXPECT_EQ(404, Send("GET", "/api/assets/" + mProduction + "/HEAD").Status());
    EXPECT_EQ(std::string::npos, Send("GET", "/api/productions").Body().find(mProduction));
}

TEST_F(StoreServicesTest, EditsOfAProductionEnclosureInOneTransactionBuildOnEachOther)
{
    const std::string row = "enclosures+" + kEnclosure;
    Apply("bulkCreate", {{row + "+name", "poster"}, {row + "+content", "one"}});
    const std::string transaction = Open();
    ASSERT_EQ(200, SendForm(transaction, "bulkEdit", {{row + "+content", "two"}}));
    ASSERT_EQ(200, SendForm(transaction, "bulkEdit", {{row + "+name", "cover"}}));
    const std::string added = "enclosures+" + NumberedGuid(1);
    ASSERT_EQ(200, SendForm(transaction, "bulkCreate", {{added + "+content", "new"}}));
    ASSERT_EQ(200, SendForm(transaction, "bulkEdit", {{added + "+name", "named afterwards"}}));
    ASSERT_EQ(200, Commit(transaction));
    const std::string list = GetAtHead("production", "/enclosures").Body();
    EXPECT_NE(std::string::npos, list.find("cover"));
    EXPECT_NE(std::string::npos, list.find("named afterwards"));
    EXPECT_EQ("two", GetAtHead("production", "/enclosure/" + kEnclosure).Body());
    EXPECT_EQ("new", GetAtHead("production", "/enclosure/" + NumberedGuid(1)).Body());
}

TEST_F(StoreServicesTest, ParallelEditsOfOneAssetAreAllKept)
{
    constexpr int kRequests = 48;
    Apply("bulkCreate", {{"assets+" + kAsset + "+properties", kClip}});
    const auto sendAll = [this](const std::string& inTransaction, const std::string& inOperation, auto inFieldsOf) {
        std::vector<std::future<ResponsePtr>> answers;
        for (int i = 0; i < kRequests; ++i)
            answers.push_back(StartForm(inTransaction, inOperation, inFieldsOf(i)));
        for (auto& answer : answers)
            EXPECT_EQ(200, Wait(std::move(answer)).Status());
    };
    const std::string adding = Open();
    sendAll(adding, "bulkEdit", [](int inNumber) {
        return FormFields{{"enclosures+" + NumberedGuid(inNumber) + "+content+" + kAsset, std::to_string(inNumber)}};
    });
    ASSERT_EQ(200, Commit(adding));
    EXPECT_EQ(std::size_t(kRequests), EnclosureCount(kAsset));
    const std::string removing = Open();
    sendAll(removing, "bulkDelete", [](int inNumber) {
        return FormFields{{"enclosures+" + NumberedGuid(inNumber) + "++" + kAsset, ""}};
    });
    ASSERT_EQ(200, Commit(removing));
    EXPECT_EQ(0U, EnclosureCount(kAsset));
}

TEST_F(StoreServicesTest, AHostileIdTouchesNothingAndLeavesTheTransactionAsItWas)
{
    Apply("bulkCreate",
          {{"assets+" + kAsset + "+properties", kClip}, {"enclosures+" + kEnclosure + "+content+" + kAsset, "bytes"}});
    const std::string transaction = Open();
    ASSERT_EQ(200, SendForm(transaction, "bulkCreate", {{"assets+" + kOtherAsset + "+properties", kClip}}));
    for (const std::string& id : {kAsset + "/enclosures", kAsset + "/properties", std::string(".."), std::string("."),
                                  std::string("/"), std::string("a//b"), std::string("a\0b", 3), std::string("ab")}) {
        EXPECT_EQ(400, SendForm(transaction, "bulkDelete", {{"assets+" + id, ""}})) << id;
        EXPECT_EQ(404, SendForm(transaction, "bulkEdit", {{"assets+" + id + "+name", "x"}})) << id;
    }
    EXPECT_EQ(400, SendForm(transaction, "bulkDelete", {{"enclosures+" + kEnclosure, ""}}));
    EXPECT_EQ(400, SendForm(transaction, "bulkDelete", {{"enclosures+" + kEnclosure + "++-", ""}}));
    EXPECT_EQ(200, Commit(transaction));
    EXPECT_EQ((std::vector{kAsset, kOtherAsset}), AssetIDs());
    EXPECT_EQ(1U, EnclosureCount(kAsset));
}

TEST_F(StoreServicesTest, ARestoreUnderAnIdThatIsTooShortIsRefusedAndTheListStaysWhole)
{
    Apply("bulkCreate", {{"assets+" + kAsset + "+properties", kClip}});
    const std::string contentID = GetAtHead("asset", "/" + kAsset).Header("ETag");
    for (const char* id : {"ab", "-", "a"}) {
        const std::string target = "/api/asset/" + mProduction + "/HEAD/" + id + "/restore/" + contentID;
        EXPECT_EQ(400, Send("POST", target).Status()) << id;
    }
    EXPECT_EQ(std::vector{kAsset}, AssetIDs());
    EXPECT_EQ(200, Send("POST", "/api/asset/" + mProduction + "/HEAD/abc/restore/" + contentID).Status());
    EXPECT_EQ(2U, AssetIDs().size());
    EXPECT_EQ(0U, OpenTransactions());
}

TEST_F(StoreServicesTest, ARolledBackOrRefusedTransactionIsNoMoreListed)
{
    const std::string rolledBack = Open();
    const std::string stale = Open(R"({":requireHead":true})");
    EXPECT_EQ(2U, OpenTransactions());
    EXPECT_EQ(200, Send("POST", "/api/transaction/" + rolledBack + "/rollback").Status());
    EXPECT_EQ(1U, OpenTransactions());
    Apply("bulkCreate", {{"assets+" + kAsset + "+properties", kClip}});
    EXPECT_EQ(409, Commit(stale));
    EXPECT_EQ(0U, OpenTransactions());
    EXPECT_EQ(412, SendForm(rolledBack, "bulkCreate", {{"assets+0+name", "late"}}));
    EXPECT_EQ(412, SendForm(rolledBack, "bulkPreflight", {{"enclosures+e+content+a", "late"}}));
    EXPECT_EQ(412, Commit(stale));
}

TEST_F(StoreServicesTest, ABinThatTwoTransactionsAddIsOneBin)
{
    const std::string first = Open();
    const std::string second = Open();
    ASSERT_EQ(200, SendForm(first, "bulkCreate", {{"assets+" + kAsset + "+properties", kBin}}));
    ASSERT_EQ(200, SendForm(second, "bulkCreate", {{"assets+" + kAsset + "+properties", kBin}}));
    ASSERT_EQ(200, Commit(first));
    ASSERT_EQ(200, Commit(second));
    EXPECT_TRUE(HasBin());
    Apply("bulkDelete", {{"assets+" + kAsset, ""}});
    EXPECT_TRUE(AssetIDs().empty());
    EXPECT_FALSE(HasBin());
}

TEST_F(StoreServicesTest, ATransactionChangesOnlyTheSessionThatItBelongsTo)
{
    const std::string transaction = Open();
    const std::string other = CreateProduction();
    const std::string body = R"({"vy:transactionId":")" + transaction + R"(","properties":{"name":"Taken"}})";
    EXPECT_EQ(400, Send("PUT", "/api/production/" + other + "/HEAD/properties", body).Status());
    EXPECT_EQ(404, Send("PUT", "/api/production/p-nobody/HEAD/properties", body).Status());
    EXPECT_EQ(200, Send("PUT", "/api/production/" + mProduction + "/HEAD/properties", body).Status());
    ASSERT_EQ(200, Commit(transaction));
    EXPECT_NE(std::string::npos, GetAtHead("production", "/properties").Body().find("Taken"));
}

TEST_F(StoreServicesTest, AFullDiskDuringACommitLeavesTheSessionAsItWasAndLaterCommitsWork)
{
    Apply("bulkCreate", {{"assets+" + kAsset + "+properties", kClip}});
    const std::string head = Head();
    const std::string transaction = Open();
    ASSERT_EQ(200, SendForm(transaction, "bulkDelete", {{"assets+" + kAsset, ""}}));
    mVfs.SetFault({FileOperation::Write, 1, kDiskFull, true, "-wal", 0});
    EXPECT_EQ(500, Commit(transaction));
    EXPECT_LT(0U, mVfs.FaultsReported());
    EXPECT_EQ(1U, mLog->Count("TransactionService: Unable to commit"));
    EXPECT_EQ(head, Head());
    EXPECT_EQ(std::vector{kAsset}, AssetIDs());
    mVfs.ClearFaults();
    EXPECT_EQ(head, Head());
    Apply("bulkDelete", {{"assets+" + kAsset, ""}});
    EXPECT_TRUE(AssetIDs().empty());
}

}  // namespace

}  // namespace service_test
