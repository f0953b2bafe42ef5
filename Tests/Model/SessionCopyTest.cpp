#include <gmock/gmock.h>
#include <sqlite3.h>

#include "Client/VYClient/LocalHub.h"
#include "Tests/Support/SnapshotFixture.h"

namespace {

using namespace testing_support;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
namespace git = noxstorage::git;
namespace IO = VantryLocalHub::GitBox::IO;

class SessionCopyTest : public SnapshotFixture
{
protected:
    IO::RepoPtr RepoOf(const ImmutableString& inSession)
    {
        GitBox::Sandbox::Handles handles;
        EXPECT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(inSession)->RetainDB(handles));
        return handles.mRepo;
    }
    /// Changes what lies in the repository's file under a content id, behind the store's back.
    void ChangePayload(const ImmutableString& inSession, const ImmutableString& inContentID)
    {
        ChangeObject(inSession, inContentID,
                     "UPDATE objects SET data=CAST(replace(CAST(data AS TEXT),'notes','NOTES') AS BLOB) WHERE oid=?");
    }
    void RemovePayload(const ImmutableString& inSession, const ImmutableString& inContentID)
    {
        ChangeObject(inSession, inContentID, "DELETE FROM objects WHERE oid=?");
    }
    void ChangeObject(const ImmutableString& inSession, const ImmutableString& inContentID, const char* inCommand)
    {
        const std::string file = Join(FolderOf(inSession), "git/odb.sqlite3");
        mStore.reset();
        sqlite3* db = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open(file.c_str(), &db));
        git::Oid oid;
        ASSERT_TRUE(git::Oid::FromText(inContentID, oid));
        sqlite3_stmt* statement = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, inCommand, -1, &statement, nullptr)) << sqlite3_errmsg(db);
        sqlite3_bind_blob(statement, 1, oid.Bytes(), git::Oid::kSize, SQLITE_STATIC);
        EXPECT_EQ(SQLITE_DONE, sqlite3_step(statement));
        EXPECT_EQ(1, sqlite3_changes(db));
        sqlite3_finalize(statement);
        sqlite3_close(db);
        ReopenStore();
    }
};

TEST_F(SessionCopyTest, ACopyHoldsTheStateAtTheRevisionAsOneCommitUnderNewIDs)
{
    dto::Session copy;
    ASSERT_EQ(201, Copy(mSession.mIdentifier, "HEAD", copy));
    EXPECT_EQ(Content(mSession.mIdentifier), Content(copy.mIdentifier));
    EXPECT_EQ(Locators(mSession.mIdentifier), Locators(copy.mIdentifier));
    EXPECT_EQ("p-" + copy.mIdentifier.Text(), copy.mProductionID.Text());
    EXPECT_NE(mSession.mIdentifier, copy.mIdentifier);
    EXPECT_TRUE(copy.mHasBin);
    const auto history = History(copy.mIdentifier);
    ASSERT_EQ(2U, history.size());
    EXPECT_THAT(history[0].mMessage,
                testing::HasSubstr("New Tessel Project created from an existing local Tessel Project"));
    EXPECT_THAT(history[0].mMessage, testing::HasSubstr("\"commitMessageCode\":2"));
    EXPECT_EQ(copy.mRevision, history[0].mCommitID);
    const auto logged = mLog->Find("Copied session to a new session");
    ASSERT_EQ(1U, logged.size());
    EXPECT_EQ(mSession.mIdentifier, logged[0].Value("copiedFrom"));
    EXPECT_EQ(history[1].mCommitID, logged[0].Value("initialRevision"));
    EXPECT_EQ(history[1].mCommitID, logged[0].Value("productionRevision"));
    EXPECT_EQ(copy.mRevision, logged[0].Value("sessionRevision"));
    EXPECT_EQ(copy.mIdentifier, logged[0].Value("sessionID"));
    EXPECT_EQ(copy.mProductionID, logged[0].Value("productionID"));
}

TEST_F(SessionCopyTest, ACopyIsFoundAgainAfterARestartAndIsIndependentOfItsSource)
{
    dto::Session copy;
    ASSERT_EQ(201, Copy(mSession.mIdentifier, {}, copy, R"({"name":"Copy"})"));
    auto expected = Content(mSession.mIdentifier);
    expected["properties"] = R"({"name":"Copy"})";
    EXPECT_EQ(200, mStore->DeletePersistedSessionData(mSession.mIdentifier));
    ReopenStore();
    EXPECT_EQ(expected, Content(copy.mIdentifier));
    EXPECT_EQ(copy, GetSession(copy.mIdentifier));
}

TEST_F(SessionCopyTest, AnOlderRevisionIsCopiedAsItWas)
{
    const auto before = Content(mSession.mIdentifier);
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    EXPECT_EQ(200, mStore->DeleteAsset(transaction, kClip));
    EXPECT_EQ(200, mStore->EditSessionProperties(transaction, {dto::RawJSON(R"({"name":"Later"})"), {}}));
    ASSERT_EQ(200, Commit(transaction));
    dto::Session copy;
    ASSERT_EQ(201, Copy(mSession.mIdentifier, mHead.mRevision, copy));
    EXPECT_EQ(before, Content(copy.mIdentifier));
}

TEST_F(SessionCopyTest, ASessionWithoutAssetsGivesTwoCommitsAndNoTreeOfAssets)
{
    const dto::Session empty = CreateSession();
    dto::Session copy;
    ASSERT_EQ(201, Copy(empty.mIdentifier, {}, copy));
    EXPECT_EQ(2U, History(copy.mIdentifier).size());
    const auto repo = RepoOf(copy.mIdentifier);
    IO::TreePtr tree;
    ASSERT_EQ(IO::ReadResult::Found, IO::GetTreeAtRevision(repo, {}, tree));
    git::TreeEntry entry;
    EXPECT_FALSE(tree->Find("assets", entry));
    EXPECT_TRUE(tree->Find("properties", entry));
}

TEST_F(SessionCopyTest, WhatIsNotThereIsNotCopied)
{
    dto::Session copy;
    EXPECT_EQ(404, Copy("nobody", {}, copy));
    EXPECT_EQ(404, Copy(mSession.mIdentifier, std::string(40, '1'), copy));
    EXPECT_EQ(404, Copy(mSession.mIdentifier, "no such branch", copy));
    EXPECT_EQ(1U, SessionFolders());
}

TEST_F(SessionCopyTest, APayloadThatWasChangedBehindTheStoreStopsTheCopy)
{
    std::vector<dto::Enclosure> enclosures;
    ASSERT_EQ(200, mStore->GetProductionEnclosures(mSession.mIdentifier, {}, enclosures));
    ASSERT_EQ(1U, enclosures.size());
    ChangePayload(mSession.mIdentifier, enclosures[0].mEnclosureContentID);
    dto::Session copy;
    EXPECT_EQ(500, Copy(mSession.mIdentifier, {}, copy));
    const auto mismatch = mLog->Find("PrepareProductionEnclosure: Production enclosure content hash mismatch");
    ASSERT_EQ(1U, mismatch.size());
    EXPECT_EQ(enclosures[0].mEnclosureContentID, mismatch[0].Value("expectedHash"));
    EXPECT_EQ("computedHash != inEnclosure.contentId", mismatch[0].Value("expression"));
    EXPECT_EQ(1U, mLog->Count("CopySessionData: Unable to copy local session"));
    EXPECT_EQ(1U, SessionFolders());
    EXPECT_EQ(1U, mStore->GetSessions().size());
}

TEST_F(SessionCopyTest, AnAssetsPayloadThatWasChangedBehindTheStoreStopsTheCopy)
{
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    const auto asset = Add(transaction, MakeAsset("memo", "clip", {{"memo", "notes of a clip"}}),
                           "ee000000-0000-4000-8000-000000000001");
    ASSERT_EQ(200, Commit(transaction));
    ChangePayload(mSession.mIdentifier, asset.mEnclosures.at(0).mEnclosureContentID);
    dto::Session copy;
    EXPECT_EQ(500, Copy(mSession.mIdentifier, {}, copy));
    const auto mismatch = mLog->Find("PrepareAsset: Asset enclosure content hash mismatch");
    ASSERT_EQ(1U, mismatch.size());
    EXPECT_EQ("ee000000-0000-4000-8000-000000000001", mismatch[0].Value("assetId"));
    EXPECT_EQ("computedHash != enclosure.contentId", mismatch[0].Value("expression"));
    EXPECT_EQ(1U, SessionFolders());
}

TEST_F(SessionCopyTest, APayloadThatIsGoneStopsTheCopy)
{
    std::vector<dto::Enclosure> enclosures;
    ASSERT_EQ(200, mStore->GetProductionEnclosures(mSession.mIdentifier, {}, enclosures));
    RemovePayload(mSession.mIdentifier, enclosures.at(0).mEnclosureContentID);
    dto::Session copy;
    EXPECT_EQ(500, Copy(mSession.mIdentifier, {}, copy));
    const auto ofProduction = mLog->Find("PrepareProductionEnclosure: Cannot read enclosure");
    ASSERT_EQ(1U, ofProduction.size());
    EXPECT_EQ(enclosures[0].mEnclosureContentID, ofProduction[0].Value("contentID"));
    EXPECT_EQ(enclosures[0].mEnclosureID, ofProduction[0].Value("enclosure"));
    dto::Asset clip;
    ASSERT_EQ(200, mStore->GetAsset(mSession.mIdentifier, {}, kClip, clip));
    RemovePayload(mSession.mIdentifier, clip.mEnclosures.at(0).mEnclosureContentID);
    EXPECT_EQ(500, Copy(mSession.mIdentifier, {}, copy));
    const auto ofAsset = mLog->Find("PrepareAsset: Cannot read asset enclosure");
    ASSERT_EQ(1U, ofAsset.size());
    EXPECT_EQ(kClip, ofAsset[0].Value("asset"));
    EXPECT_EQ(clip.mEnclosures[0].mEnclosureID, ofAsset[0].Value("enclosure"));
    EXPECT_EQ(clip.mEnclosures[0].mEnclosureContentID, ofAsset[0].Value("contentID"));
    EXPECT_EQ(1U, SessionFolders());
}

TEST_F(SessionCopyTest, ACopyFromARootHoldsWhatItDependsOnAndNothingElse)
{
    const TempFolder place;
    GitBox::Sandbox::Handles source;
    const auto sandbox = GitBox::Sandboxes::Instance()->FindSandbox(mSession.mIdentifier);
    ASSERT_TRUE(sandbox->RetainDB(source));
    IO::LocatorRows locators;
    ASSERT_EQ(200, sandbox->GetLocatorRows(locators));
    IO::RepoPtr repo;
    IO::DbPtr db;
    dto::Session copy;
    ASSERT_TRUE(IO::CopySession({source.mRepo, {}, kSequence}, locators, place / "copy.lyra2", IO::SessionIDs::Create(),
                                {}, repo, db, copy));
    std::vector<ImmutableString> assets;
    ASSERT_EQ(IO::ReadResult::Found, IO::ReadAssetIDs(repo, {}, assets));
    EXPECT_THAT(assets, testing::UnorderedElementsAre("5e000000-0000-4000-8000-000000000001",
                                                      "de000000-0000-4000-8000-000000000001",
                                                      "de000000-0000-4000-8000-000000000002"));
    std::vector<dto::Enclosure> enclosures;
    ASSERT_EQ(IO::ReadResult::Found, IO::ReadProductionEnclosures(repo, {}, enclosures));
    EXPECT_TRUE(enclosures.empty());
    IO::LocatorRows copied;
    ASSERT_TRUE(IO::ReadLocatorRows(*db, copied));
    ASSERT_EQ(1U, copied.size());
    EXPECT_EQ("m-used", copied[0].mID);
    std::string root;
    ASSERT_TRUE(Files().ReadFile(place / "copy.lyra2/rootassetid", root));
    EXPECT_EQ("5e000000-0000-4000-8000-000000000001", root);
    EXPECT_EQ("5e000000-0000-4000-8000-000000000001", copy.mSnapshotRootAssetID);
    repo.reset();
    EXPECT_FALSE(IO::CopySession({source.mRepo, {}, "de000000-0000-4000-8000-000000000004"}, locators,
                                 place / "other.lyra2", IO::SessionIDs::Create(), {}, repo, db, copy));
    EXPECT_FALSE(IO::CopySession({source.mRepo, {}, "../x"}, locators, place / "third.lyra2", IO::SessionIDs::Create(),
                                 {}, repo, db, copy));
}

TEST_F(SessionCopyTest, ACopyOverASessionIsRefused)
{
    GitBox::Sandbox::Handles source;
    ASSERT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(mSession.mIdentifier)->RetainDB(source));
    IO::RepoPtr repo;
    IO::DbPtr db;
    dto::Session copy;
    EXPECT_FALSE(IO::CopySession({source.mRepo, {}}, {}, FolderOf(mSession.mIdentifier), IO::SessionIDs::Create(), {},
                                 repo, db, copy));
    EXPECT_EQ(1U, mLog->Count("InitSession: Won't create a session folder on top of an existing session folder"));
    EXPECT_EQ(1U, mLog->Count("Unable to initialize new local session for copy"));
}

/// Every operation on a file fails in turn.
TEST_F(SessionCopyTest, ACopyThatFailsLeavesNoSession)
{
    const auto expected = Content(mSession.mIdentifier);
    unsigned failures = 0;
    for (const FileOperation kind :
         {FileOperation::WritePlain, FileOperation::Sync, FileOperation::MakeFolder, FileOperation::Rename,
          FileOperation::DeletePlain, FileOperation::Write, FileOperation::Open}) {
        for (unsigned nth = 1, failed = 1; failed != 0 && nth < 60; nth += 3) {
            mVfs->SetFault({kind, nth, SQLITE_IOERR});
            dto::Session copy;
            const int status = Copy(mSession.mIdentifier, {}, copy);
            failed = mVfs->FaultsReported();
            mVfs->ClearFaults();
            if (status == 201) {
                EXPECT_EQ(expected, Content(copy.mIdentifier));
                EXPECT_EQ(200, mStore->DeletePersistedSessionData(copy.mIdentifier));
            } else {
                ++failures;
                EXPECT_EQ(500, status);
            }
            ReopenStore();
            ASSERT_EQ(1U, mStore->GetSessions().size()) << static_cast<int>(kind) << " " << nth;
        }
    }
    EXPECT_LT(10U, failures);
    EXPECT_EQ(expected, Content(mSession.mIdentifier));
}

}  // namespace
