#include "Platform/noxcore/Guid.h"
#include "Tests/Support/StoreTest.h"

namespace {

using namespace testing_support;

class TransactionWindowTest : public StoreTest
{
protected:
    int TryAdd(const ImmutableString& inTransactionID, const std::string& inName, const ImmutableString& inID)
    {
        dto::Asset added;
        return mStore->AddAsset(inTransactionID, inID, MakeAsset(inName), added);
    }

    int Edit(const ImmutableString& inTransactionID, const AssetContent& inAsset, const ImmutableString& inID)
    {
        dto::Asset edited;
        return mStore->EditAsset(inTransactionID, inID, inAsset, edited);
    }

    const ImmutableString mID = "11111111-1111-4111-8111-111111111111";
    const ImmutableString mOther = "22222222-2222-4222-8222-222222222222";
    const dto::Session mSession = CreateSession();
    const ImmutableString mTransaction = OpenTransaction(mSession.mIdentifier);
};

TEST_F(TransactionWindowTest, AddingTheSameAssetWithTheSameContentTwiceSucceeds)
{
    EXPECT_EQ(200, TryAdd(mTransaction, "take", mID));
    EXPECT_EQ(200, TryAdd(mTransaction, "take", mID));
    EXPECT_EQ(200, Commit(mTransaction));
    EXPECT_EQ(1U, GetAssets(mSession.mIdentifier).size());
}

TEST_F(TransactionWindowTest, AddingAnAssetTwiceWithOtherContentIsRefusedAndTheFirstStays)
{
    EXPECT_EQ(200, TryAdd(mTransaction, "first take", mID));
    EXPECT_EQ(409, TryAdd(mTransaction, "second take", mID));
    const auto records = mLog->Find("Conflict: attempting to add an asset twice in a single transaction");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(mID.View(), records[0].Value("asset"));
    EXPECT_NE(records[0].Value("newContentID"), records[0].Value("existingContentID"));
    EXPECT_EQ(200, Commit(mTransaction));
    ReopenStore();
    const auto assets = GetAssets(mSession.mIdentifier);
    ASSERT_EQ(1U, assets.size());
    EXPECT_NE(std::string::npos, assets[0].mProperties.mText.find("first take"));
}

TEST_F(TransactionWindowTest, AddingAnAssetThatTheTransactionDeletedIsRefused)
{
    EXPECT_EQ(200, mStore->DeleteAsset(mTransaction, mID));
    EXPECT_EQ(412, TryAdd(mTransaction, "take", mID));
    EXPECT_EQ(1U, mLog->Count("AddAsset: adding an asset previously deleted within this transaction"));
}

TEST_F(TransactionWindowTest, DeletingAnAssetThatTheTransactionAddedRemovesItAndStillRecordsTheDeletion)
{
    EXPECT_EQ(200, TryAdd(mTransaction, "take", mID));
    EXPECT_EQ(200, mStore->DeleteAsset(mTransaction, mID));
    dto::Asset asset;
    EXPECT_EQ(404, mStore->GetTransactionAsset(mTransaction, mID, asset));
    EXPECT_EQ(412, TryAdd(mTransaction, "take", mID));
    EXPECT_EQ(200, Commit(mTransaction));
    EXPECT_TRUE(GetAssets(mSession.mIdentifier).empty());
}

TEST_F(TransactionWindowTest, EditingADeletedAssetIsRefused)
{
    EXPECT_EQ(200, mStore->DeleteAsset(mTransaction, mID));
    EXPECT_EQ(412, Edit(mTransaction, MakeAsset("x"), mID));
    EXPECT_EQ(1U, mLog->Count("EditAsset: editing an asset previously deleted within this transaction"));
    EXPECT_EQ(412, mStore->DeleteAssetEnclosure(mTransaction, mID, mOther));
    EXPECT_EQ(1U, mLog->Count("DeleteAssetEnclosure: editing an asset previously deleted within this transaction"));
}

TEST_F(TransactionWindowTest, EveryChangeOfAClosedTransactionIsRefusedInItsOwnWords)
{
    const dto::Asset added = Add(mTransaction, MakeAsset("take", "clip", {{"waveform", "1234"}}), mID);
    EXPECT_EQ(200, mStore->CloseTransaction(mTransaction));
    EXPECT_EQ(412, mStore->CloseTransaction(mTransaction));
    dto::Asset asset;
    dto::Enclosure enclosure;
    EnclosureContent content;
    content.mPayload = Bytes("x");
    EXPECT_EQ(412, TryAdd(mTransaction, "another", mOther));
    EXPECT_EQ(412, Edit(mTransaction, MakeAsset("x"), mID));
    EXPECT_EQ(412, mStore->DeleteAsset(mTransaction, mID));
    EXPECT_EQ(412, mStore->DeleteAssetEnclosure(mTransaction, mID, added.mEnclosures[0].mEnclosureID));
    EXPECT_EQ(412, mStore->RestoreAsset(mTransaction, mID, added.mAssetContentID, asset));
    EXPECT_EQ(412, mStore->AddOrUpdateProductionEnclosure(mTransaction, content, enclosure));
    EXPECT_EQ(412, mStore->EditSessionProperties(mTransaction, {}));
    for (const char* message :
         {"AddAsset: closed transaction", "EditAsset: closed transaction", "DeleteAsset: closed transaction",
          "DeleteAssetEnclosure: closed transaction", "RestoreAsset: closed transaction",
          "AddProductionEnclosure: closed transaction", "EditSessionProperties: closed transaction"}) {
        ASSERT_EQ(1U, mLog->Count(message)) << message;
        EXPECT_EQ(mTransaction.View(), mLog->Find(message)[0].Value("transactionID"));
    }
    CommitOutcome outcome;
    EXPECT_EQ(412, mStore->CommitTransaction(mTransaction, {"late"}, false, outcome));
}

TEST_F(TransactionWindowTest, AnyChangeOnAnUnknownTransactionIsNotFound)
{
    const ImmutableString unknown("33333333-3333-4333-8333-333333333333");
    dto::Asset asset;
    dto::Enclosure enclosure;
    dto::TransactionResource resource;
    CommitOutcome outcome;
    ConstRecycledMemoryPtr payload;
    EXPECT_EQ(404, TryAdd(unknown, "x", mID));
    EXPECT_EQ(404, Edit(unknown, MakeAsset("x"), mID));
    EXPECT_EQ(404, mStore->DeleteAsset(unknown, mID));
    EXPECT_EQ(404, mStore->DeleteAssetEnclosure(unknown, mID, mOther));
    EXPECT_EQ(404, mStore->RestoreAsset(unknown, mID, "00", asset));
    EXPECT_EQ(404, mStore->AddOrUpdateProductionEnclosure(unknown, {}, enclosure));
    EXPECT_EQ(404, mStore->EditSessionProperties(unknown, {}));
    EXPECT_EQ(404, mStore->GetTransaction(unknown, resource));
    EXPECT_EQ(404, mStore->GetTransactionAsset(unknown, mID, asset));
    EXPECT_EQ(404, mStore->GetTransactionAssetEnclosure(unknown, mID, mOther, payload));
    EXPECT_EQ(404, mStore->CloseTransaction(unknown));
    EXPECT_EQ(404, mStore->CommitTransaction(unknown, {"x"}, false, outcome));
    EXPECT_EQ(404, mStore->FlushTransactionContent(unknown));
    EXPECT_FALSE(mStore->IsAssetRestoredInTransaction(unknown, mID));
}

TEST_F(TransactionWindowTest, AnIdThatCouldReachIntoOtherFoldersIsRefusedByEveryChange)
{
    const dto::Asset added = Add(mTransaction, MakeAsset("take", "clip", {{"waveform", "1234"}}), mID);
    ASSERT_EQ(200, Commit(mTransaction));
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    dto::Asset asset;
    for (const ImmutableString& id :
         {ImmutableString(mID.Text() + "/enclosures"), ImmutableString(mID.Text() + "/properties"),
          ImmutableString(".."), ImmutableString("..."), ImmutableString("/"), ImmutableString("a//b"),
          ImmutableString(std::string("a\0bc", 4)), ImmutableString("ab"), ImmutableString("-"), ImmutableString()}) {
        EXPECT_EQ(400, mStore->DeleteAsset(transaction, id)) << id.View();
        EXPECT_EQ(400, Edit(transaction, MakeAsset("x"), id)) << id.View();
        EXPECT_EQ(400, mStore->DeleteAssetEnclosure(transaction, id, added.mEnclosures[0].mEnclosureID)) << id.View();
        EXPECT_EQ(400, mStore->RestoreAsset(transaction, id, added.mAssetContentID, asset)) << id.View();
        EXPECT_EQ(404, mStore->GetAsset(mSession.mIdentifier, {}, id, asset)) << id.View();
    }
    EXPECT_EQ(200, mStore->DeleteAsset(transaction, "abc"));
    EXPECT_EQ(200, Commit(transaction));
    const auto assets = GetAssets(mSession.mIdentifier);
    ASSERT_EQ(1U, assets.size());
    EXPECT_EQ(added.mAssetContentID, assets[0].mAssetContentID);
}

TEST_F(TransactionWindowTest, ARestoreBringsBackAFormerContentWithItsEnclosures)
{
    const dto::Asset first = Add(mTransaction, MakeAsset("first", "clip", {{"grade", "payload"}}), mID);
    ASSERT_EQ(200, Commit(mTransaction));
    const auto edit = OpenTransaction(mSession.mIdentifier);
    ASSERT_EQ(200, Edit(edit, MakeAsset("second"), mID));
    ASSERT_EQ(200, Commit(edit));
    const auto restore = OpenTransaction(mSession.mIdentifier);
    dto::Asset restored;
    EXPECT_EQ(200, mStore->RestoreAsset(restore, mID, first.mAssetContentID, restored));
    EXPECT_TRUE(mStore->IsAssetRestoredInTransaction(restore, mID));
    EXPECT_FALSE(mStore->IsAssetRestoredInTransaction(restore, mOther));
    ASSERT_EQ(200, Commit(restore));
    const auto assets = GetAssets(mSession.mIdentifier);
    ASSERT_EQ(1U, assets.size());
    EXPECT_EQ(first.mAssetContentID, assets[0].mAssetContentID);
    ASSERT_EQ(1U, assets[0].mEnclosures.size());
    EXPECT_EQ("grade", assets[0].mEnclosures[0].mName);
}

TEST_F(TransactionWindowTest, ARestoreAfterAnEditIsRefusedAndAnEditAfterARestoreIsAllowed)
{
    const dto::Asset first = Add(mTransaction, MakeAsset("first"), mID);
    const dto::Asset other = Add(mTransaction, MakeAsset("other"), mOther);
    ASSERT_EQ(200, Commit(mTransaction));
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    dto::Asset asset;
    ASSERT_EQ(200, Edit(transaction, MakeAsset("second"), mID));
    EXPECT_EQ(412, mStore->RestoreAsset(transaction, mID, first.mAssetContentID, asset));
    EXPECT_EQ(1U,
              mLog->Count("RestoreAsset: restoring an asset previously edited or restored within this transaction"));
    ASSERT_EQ(200, mStore->RestoreAsset(transaction, mOther, other.mAssetContentID, asset));
    EXPECT_EQ(200, Edit(transaction, MakeAsset("edited after the restore"), mOther));
}

TEST_F(TransactionWindowTest, ARestoreOfAnAssetDeletedInTheSameTransactionUndoesTheDeletion)
{
    const dto::Asset first = Add(mTransaction, MakeAsset("first"), mID);
    ASSERT_EQ(200, Commit(mTransaction));
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    dto::Asset asset;
    ASSERT_EQ(200, mStore->DeleteAsset(transaction, mID));
    EXPECT_EQ(200, mStore->RestoreAsset(transaction, mID, first.mAssetContentID, asset));
    EXPECT_EQ(1U, mLog->Count("RestoreAsset: restoring an asset previously deleted within this transaction"));
    ASSERT_EQ(200, Commit(transaction));
    EXPECT_EQ(1U, GetAssets(mSession.mIdentifier).size());
}

TEST_F(TransactionWindowTest, ARestoreOfContentThatIsNotThereIsNotFoundAndChangesNothing)
{
    dto::Asset asset;
    EXPECT_EQ(404, mStore->RestoreAsset(mTransaction, mID, std::string(40, '7'), asset));
    const auto records = mLog->Find("RestoreAsset: trying to restore an asset but the requested content was not found");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("404", records[0].Value("status"));
    EXPECT_EQ(200, TryAdd(mTransaction, "take", mID));
}

TEST_F(TransactionWindowTest, AnEnclosureWithNeitherPayloadNorKnownContentIsABadRequest)
{
    AssetContent content = MakeAsset("take");
    content.mEnclosures.emplace_back();
    dto::Asset asset;
    EXPECT_EQ(400, mStore->AddAsset(mTransaction, mID, content, asset));
    content.mEnclosures[0].mEnclosure.mEnclosureContentID = std::string(40, 'a');
    EXPECT_EQ(400, mStore->AddAsset(mTransaction, mID, content, asset));
    content.mEnclosures[0].mPayload = Bytes("");
    content.mEnclosures[0].mEnclosure.mEnclosureContentID = {};
    EXPECT_EQ(400, mStore->AddAsset(mTransaction, mID, content, asset));
    EXPECT_EQ(404, mStore->GetTransactionAsset(mTransaction, mID, asset));
}

TEST_F(TransactionWindowTest, AnEnclosureMayNameContentThatTheStoreHas)
{
    const auto contentID = mStore->ComputeContentHash(mSession.mIdentifier, Bytes("known payload"));
    AssetContent content = MakeAsset("take");
    content.mEnclosures.emplace_back();
    content.mEnclosures[0].mEnclosure.mName = "proxy";
    content.mEnclosures[0].mEnclosure.mEnclosureContentID = contentID;
    const dto::Asset added = Add(mTransaction, content, mID);
    ASSERT_EQ(200, Commit(mTransaction));
    ReopenStore();
    ConstRecycledMemoryPtr payload;
    ASSERT_EQ(200,
              mStore->GetAssetEnclosure(mSession.mIdentifier, {}, mID, added.mEnclosures[0].mEnclosureID, payload));
    EXPECT_EQ("known payload", payload->View());
}

TEST_F(TransactionWindowTest, AnIdThatIsNoGuidIsReplacedByANewOne)
{
    const dto::Asset added = Add(mTransaction, MakeAsset("take"), "row1");
    EXPECT_TRUE(noxcore::utility::Guid::FromText(added.mAssetID));
    EXPECT_EQ(mID, Add(mTransaction, MakeAsset("take"), mID).mAssetID);
}

TEST_F(TransactionWindowTest, DeletingAnEnclosureThatTheAssetLacksIsAnErrorThatNamesWhatThereIs)
{
    const dto::Asset added = Add(mTransaction, MakeAsset("take", "clip", {{"a", "1"}, {"b", "2"}}), mID);
    EXPECT_EQ(500, mStore->DeleteAssetEnclosure(mTransaction, mID, mOther));
    const auto records = mLog->Find("DeleteAssetEnclosure: wrong enclosure");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("500", records[0].Value("statusCode"));
    EXPECT_NE(std::string::npos, records[0].Value("all enclosures").find(added.mEnclosures[1].mEnclosureID.View()));
    EXPECT_EQ(200, mStore->DeleteAssetEnclosure(mTransaction, mID, added.mEnclosures[0].mEnclosureID));
    ASSERT_EQ(200, Commit(mTransaction));
    const auto assets = GetAssets(mSession.mIdentifier);
    ASSERT_EQ(1U, assets[0].mEnclosures.size());
    EXPECT_EQ(added.mEnclosures[1].mEnclosureID, assets[0].mEnclosures[0].mEnclosureID);
}

TEST_F(TransactionWindowTest, ATransactionShowsItsOwnViewOverTheSessionsList)
{
    Add(mTransaction, MakeAsset("kept"), mID);
    Add(mTransaction, MakeAsset("to go"), mOther);
    ASSERT_EQ(200, Commit(mTransaction));
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    ASSERT_EQ(200, mStore->DeleteAsset(transaction, mOther));
    ASSERT_EQ(200, Edit(transaction, MakeAsset("changed"), mID));
    const auto seen = GetAssets(mSession.mIdentifier, {}, transaction);
    ASSERT_EQ(1U, seen.size());
    EXPECT_NE(std::string::npos, seen[0].mProperties.mText.find("changed"));
    EXPECT_EQ(2U, GetAssets(mSession.mIdentifier).size());
}

TEST_F(TransactionWindowTest, OfTwoCommitsOfOneTransactionOneWinsAndItIsUnknownAfterwards)
{
    TryAdd(mTransaction, "take", mID);
    EXPECT_EQ(200, Commit(mTransaction));
    EXPECT_EQ(404, Commit(mTransaction));
}

TEST_F(TransactionWindowTest, AnEditMergedFromWhatTheTransactionNoLongerHasIsNotTaken)
{
    Add(mTransaction, MakeAsset("first"), mID);
    ASSERT_EQ(200, Commit(mTransaction));
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    AssetContent edit = MakeAsset("second");
    edit.mMergedFrom = ImmutableString();
    dto::Asset second;
    ASSERT_EQ(200, mStore->EditAsset(transaction, mID, edit, second));
    edit = MakeAsset("third");
    edit.mMergedFrom = ImmutableString();
    EXPECT_EQ(409, Edit(transaction, edit, mID));
    edit.mMergedFrom = second.mAssetContentID;
    EXPECT_EQ(200, Edit(transaction, edit, mID));
    EXPECT_EQ(409, Edit(transaction, edit, mID));
    ASSERT_EQ(200, Commit(transaction));
    EXPECT_NE(std::string::npos, GetAssets(mSession.mIdentifier)[0].mProperties.mText.find("third"));
}

TEST_F(TransactionWindowTest, AProductionEnclosureMergedFromWhatTheTransactionNoLongerHasIsNotTaken)
{
    EnclosureContent content;
    content.mEnclosure.mEnclosureID = mID;
    content.mPayload = Bytes("one");
    content.mMergedFrom = dto::Enclosure();
    dto::Enclosure found;
    EXPECT_EQ(404, mStore->GetTransactionProductionEnclosure(mTransaction, mID, found));
    dto::Enclosure one;
    ASSERT_EQ(200, mStore->AddOrUpdateProductionEnclosure(mTransaction, content, one));
    ASSERT_EQ(200, mStore->GetTransactionProductionEnclosure(mTransaction, mID, found));
    EXPECT_EQ(one, found);
    dto::Enclosure other;
    content.mPayload = Bytes("two");
    EXPECT_EQ(409, mStore->AddOrUpdateProductionEnclosure(mTransaction, content, other));
    content.mMergedFrom = one;
    EXPECT_EQ(200, mStore->AddOrUpdateProductionEnclosure(mTransaction, content, other));
    EXPECT_EQ(409, mStore->AddOrUpdateProductionEnclosure(mTransaction, content, other));
}

TEST_F(TransactionWindowTest, AClosedTransactionIsNoMoreListedAndHoldsNothing)
{
    dto::TransactionCreate client;
    client.mOwner = "ann";
    dto::TransactionResource opened;
    ASSERT_EQ(201, mStore->OpenTransaction(mSession.mIdentifier, {}, VYCL::GetTransactionType_Edit(), client, opened));
    const auto stale = OpenTransaction(mSession.mIdentifier, mSession.mRevision);
    Add(opened.mTransactionID, MakeAsset("take"), mID);
    Add(mTransaction, MakeAsset("take"), mOther);
    const auto list = [this] {
        std::vector<dto::TransactionResource> transactions;
        EXPECT_EQ(200, mStore->GetTransactionList(mSession.mIdentifier, transactions));
        return transactions.size();
    };
    EXPECT_EQ(3U, list());
    EXPECT_EQ(200, mStore->CloseTransaction(opened.mTransactionID));
    EXPECT_EQ(2U, list());
    EXPECT_EQ(200, Commit(mTransaction));
    EXPECT_EQ(409, Commit(stale));
    EXPECT_EQ(0U, list());
    dto::Asset asset;
    EXPECT_EQ(404, mStore->GetTransactionAsset(opened.mTransactionID, mID, asset));
    EXPECT_EQ(412, Commit(opened.mTransactionID));
    EXPECT_EQ(412, TryAdd(stale, "late", mID));
    ASSERT_EQ(200, mStore->GetTransaction(opened.mTransactionID, opened));
    EXPECT_TRUE(opened.mIsClosed);
    EXPECT_TRUE(opened.mOwner.empty());
}

TEST_F(TransactionWindowTest, OfManyClosedTransactionsOnlyTheLatestAreRemembered)
{
    ASSERT_EQ(200, mStore->CloseTransaction(mTransaction));
    ImmutableString last;
    for (int count = 0; count < 1024; ++count) {
        last = OpenTransaction(mSession.mIdentifier);
        ASSERT_EQ(200, mStore->CloseTransaction(last));
    }
    EXPECT_EQ(404, mStore->CloseTransaction(mTransaction));
    EXPECT_EQ(412, mStore->CloseTransaction(last));
}

TEST_F(TransactionWindowTest, OnlyAPayloadOfTheSessionCountsAsItsContent)
{
    const auto contentID = mStore->ComputeContentHash(mSession.mIdentifier, Bytes("payload"));
    EXPECT_EQ(200, mStore->HasContent(mSession.mIdentifier, contentID));
    const dto::Asset added = Add(mTransaction, MakeAsset("take"), mID);
    EXPECT_EQ(404, mStore->HasContent(mSession.mIdentifier, added.mAssetContentID));  // a tree
    EXPECT_EQ(404, mStore->HasContent(mSession.mIdentifier, std::string(40, '7')));
    EXPECT_EQ(404, mStore->HasContent(mSession.mIdentifier, "payload"));
    EXPECT_EQ(404, mStore->HasContent("nobody", contentID));
}

TEST_F(TransactionWindowTest, DeletingASessionForgetsItsTransactions)
{
    EXPECT_EQ(200, mStore->DeletePersistedSessionData(mSession.mIdentifier));
    dto::TransactionResource resource;
    EXPECT_EQ(404, mStore->GetTransaction(mTransaction, resource));
}

TEST_F(TransactionWindowTest, TheBinsOfASessionAreCountedThroughAddsEditsDeletesAndRestores)
{
    EXPECT_FALSE(GetSession(mSession.mIdentifier).mHasBin);
    const dto::Asset bin = Add(mTransaction, MakeAsset("bin", "bin"), mID);
    ASSERT_EQ(200, Commit(mTransaction));
    EXPECT_TRUE(GetSession(mSession.mIdentifier).mHasBin);

    const auto edit = OpenTransaction(mSession.mIdentifier);
    ASSERT_EQ(200, Edit(edit, MakeAsset("a clip now"), mID));
    ASSERT_EQ(200, Commit(edit));
    EXPECT_FALSE(GetSession(mSession.mIdentifier).mHasBin);

    const auto restore = OpenTransaction(mSession.mIdentifier);
    dto::Asset asset;
    ASSERT_EQ(200, mStore->RestoreAsset(restore, mID, bin.mAssetContentID, asset));
    ASSERT_EQ(200, Commit(restore));
    EXPECT_TRUE(GetSession(mSession.mIdentifier).mHasBin);

    const auto replace = OpenTransaction(mSession.mIdentifier);
    Add(replace, MakeAsset("the bin again", "bin"), mID);
    ASSERT_EQ(200, Commit(replace));
    const auto remove = OpenTransaction(mSession.mIdentifier);
    ASSERT_EQ(200, mStore->DeleteAsset(remove, mID));
    ASSERT_EQ(200, Commit(remove));
    EXPECT_FALSE(GetSession(mSession.mIdentifier).mHasBin);
    ReopenStore();
    EXPECT_FALSE(GetSession(mSession.mIdentifier).mHasBin);
}

TEST_F(TransactionWindowTest, TheBinsAreCountedAgainstTheHeadThatTheCommitFinds)
{
    const auto second = OpenTransaction(mSession.mIdentifier);
    const auto edit = OpenTransaction(mSession.mIdentifier);
    Add(mTransaction, MakeAsset("bin", "bin"), mID);
    Add(second, MakeAsset("the same bin", "bin"), mID);
    ASSERT_EQ(200, mStore->DeleteAsset(edit, mID));
    ASSERT_EQ(200, Commit(mTransaction));
    ASSERT_EQ(200, Commit(second));
    EXPECT_TRUE(GetSession(mSession.mIdentifier).mHasBin);
    ASSERT_EQ(200, Commit(edit));
    EXPECT_TRUE(GetAssets(mSession.mIdentifier).empty());
    EXPECT_FALSE(GetSession(mSession.mIdentifier).mHasBin);
    const auto again = OpenTransaction(mSession.mIdentifier);
    ASSERT_EQ(200, mStore->DeleteAsset(again, mID));  // there is none any more
    Add(again, MakeAsset("a clip"), mOther);
    ASSERT_EQ(200, Commit(again));
    EXPECT_FALSE(GetSession(mSession.mIdentifier).mHasBin);
}

}  // namespace
