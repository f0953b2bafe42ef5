#include <gmock/gmock.h>
#include <sqlite3.h>

#include "Client/VYClient/LocalHub.h"
#include "Tests/Support/PackedSession.h"
#include "Tests/Support/SnapshotFixture.h"

namespace {

using namespace testing_support;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
namespace IO = VantryLocalHub::GitBox::IO;

class SnapshotsTest : public SnapshotFixture
{
protected:
    int Apply(const std::string& inFile, bool inKeepProperties = false, bool inDeleteOthers = true)
    {
        return mStore->ApplySnapshot(mSession.mIdentifier, inFile, inKeepProperties, inDeleteOthers, mApplied);
    }
    /// A snapshot from which some files are taken out.
    void TakeOut(const std::string& inFile, const std::string& inName)
    {
        ASSERT_TRUE(IO::ExtractZipFile(inFile, In("box")));
        std::filesystem::remove_all(In("box/" + inName));
        ASSERT_TRUE(IO::CreateZipFile(In("box"), inFile));
        std::filesystem::remove_all(In("box"));
    }

    dto::Session mApplied;
};

TEST_F(SnapshotsTest, ASnapshotOfASessionInUseOpensAsASessionOfTheSameContent)
{
    ASSERT_EQ(200, Take(In("deep/er/a.zip")));
    EXPECT_EQ(0U, TemporaryFolders());
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("deep/er/a.zip"), {}, opened));
    EXPECT_EQ("sn-", opened.mIdentifier.Text().substr(0, 3));
    EXPECT_EQ(Content(mSession.mIdentifier), Content(opened.mIdentifier));
    EXPECT_EQ(Locators(mSession.mIdentifier), Locators(opened.mIdentifier));
    EXPECT_TRUE(Files().DirectoryExists(In("deep/er/a.lyra2/git")));
    ReopenStore();
    EXPECT_EQ(Content(mSession.mIdentifier), Content(opened.mIdentifier));
    EXPECT_EQ(200, mStore->ClearExtractedSnapshot(opened.mIdentifier));
    EXPECT_EQ(404, mStore->GetSession(opened.mIdentifier, opened));
}

TEST_F(SnapshotsTest, ASnapshotIsOfTheRevisionThatWasAskedFor)
{
    const auto before = Content(mSession.mIdentifier);
    MoveOn();
    ASSERT_EQ(200, Take(In("a.zip"), {}, mHead.mRevision));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    EXPECT_EQ(before, Content(opened.mIdentifier));
    EXPECT_EQ(404, Take(In("b.zip"), {}, std::string(40, '7')));
    EXPECT_FALSE(Files().FileExists(In("b.zip")));
}

TEST_F(SnapshotsTest, ASnapshotOfARootAssetHoldsWhatThatDependsOnAndSaysSo)
{
    ASSERT_EQ(200, Take(In("a.zip"), kSequence));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    EXPECT_EQ(kSequence, opened.mSnapshotRootAssetID);
    EXPECT_EQ(3U, GetAssets(opened.mIdentifier).size());
    EXPECT_EQ(404, Take(In("b.zip"), "00000000-0000-4000-8000-000000000000"));
    // A copy of it knows the root as well.
    dto::Session copy;
    ASSERT_EQ(201, Copy(opened.mIdentifier, {}, copy));
    EXPECT_EQ(kSequence, copy.mSnapshotRootAssetID);
    EXPECT_EQ(3U, GetAssets(copy.mIdentifier).size());
}

TEST_F(SnapshotsTest, ARootAssetThatIsGivenAtOpeningIsNoted)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), kClip, opened));
    EXPECT_EQ(kClip, opened.mSnapshotRootAssetID);
}

TEST_F(SnapshotsTest, ACopyOfASessionThatWasMadeFromARootHoldsWhatTheSessionHolds)
{
    ASSERT_EQ(200, Take(In("a.zip"), kSequence));
    dto::Session limited;
    ASSERT_EQ(201, mStore->CreateSessionFromSnapshot(In("a.zip"), {}, limited));
    const auto transaction = OpenTransaction(limited.mIdentifier);
    Add(transaction, MakeAsset("later"), kLater);
    AddEnclosure(transaction, "later notes", "written later");
    ASSERT_EQ(200, mStore->DeleteAsset(transaction, kSequence));
    ASSERT_EQ(200, Commit(transaction));
    dto::Session copy;
    ASSERT_EQ(201, Copy(limited.mIdentifier, {}, copy));
    EXPECT_EQ(Content(limited.mIdentifier), Content(copy.mIdentifier));
    ASSERT_EQ(200, mStore->TakeSnapshot(limited.mIdentifier, {}, {}, {}, In("b.zip")));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("b.zip"), {}, opened));
    EXPECT_EQ(Content(limited.mIdentifier), Content(opened.mIdentifier));
}

TEST_F(SnapshotsTest, ARootAssetThatTheSnapshotDoesNotHaveIsNotFound)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    dto::Session opened;
    EXPECT_EQ(404, mStore->ExtractSnapshot(In("a.zip"), kLater, opened));
    EXPECT_FALSE(Files().DirectoryExists(In("a.lyra2")));
    EXPECT_EQ(1U, mStore->GetSessions().size());
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    // Of one that is open already the answer tells of the root at once.
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), kClip, opened));
    EXPECT_EQ(kClip, opened.mSnapshotRootAssetID);
    EXPECT_EQ(404, mStore->ExtractSnapshot(In("a.zip"), kLater, opened));
    EXPECT_TRUE(Files().DirectoryExists(In("a.lyra2")));
}

TEST_F(SnapshotsTest, ASnapshotWhoseFolderIsGoneIsUnpackedAnew)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    dto::Session first;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, first));
    const auto old = OpenTransaction(first.mIdentifier);
    MoveOn();
    ASSERT_EQ(200, Take(In("a.zip")));
    std::filesystem::remove_all(In("a.lyra2"));
    dto::Session second;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, second));
    EXPECT_EQ(first.mIdentifier, second.mIdentifier);
    EXPECT_EQ(Content(mSession.mIdentifier), Content(second.mIdentifier));
    EXPECT_EQ(404, Commit(old));
    const auto transaction = OpenTransaction(second.mIdentifier);
    Add(transaction, MakeAsset("in the new one"), "1b000000-0000-4000-8000-000000000001");
    ASSERT_EQ(200, Commit(transaction));
    const auto content = Content(second.mIdentifier);
    ReopenStore();
    EXPECT_EQ(content, Content(second.mIdentifier));
}

TEST_F(SnapshotsTest, WhatASessionFolderDoesNotHaveIsNotUnpacked)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    ASSERT_TRUE(IO::ExtractZipFile(In("a.zip"), In("box")));
    // A rollback journal names files that SQLite deletes.
    for (const char* const name : {"session.sqlite3-journal", "git/odb.sqlite3-journal", "git/odb.sqlite3-mj01234567",
                                   "session.sqlite3-shm", "readme.txt"})
        std::ofstream(In("box/") + name) << "anything";
    std::filesystem::create_directories(In("box/other"));
    std::ofstream(In("box/other/file")) << "anything";
    ASSERT_TRUE(IO::CreateZipFile(In("box"), In("b.zip")));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("b.zip"), {}, opened));
    EXPECT_EQ(Content(mSession.mIdentifier), Content(opened.mIdentifier));
    EXPECT_EQ(200, mStore->ClearExtractedSnapshot(opened.mIdentifier));
    for (const char* const name :
         {"session.sqlite3-journal", "git/odb.sqlite3-journal", "git/odb.sqlite3-mj01234567", "readme.txt", "other"})
        EXPECT_FALSE(std::filesystem::exists(In("b.lyra2/") + name)) << name;
    EXPECT_EQ(200, Apply(In("b.zip")));
}

TEST_F(SnapshotsTest, ASnapshotDoesNotTakeThePlaceOfAProject)
{
    dto::Session project;
    ASSERT_EQ(201, mStore->CreateRopeFile(In("a.lyr"), {dto::RawJSON(R"({"name":"A"})"), {}}, false, project));
    EXPECT_EQ(400, Take(In("a.lyr")));
    EXPECT_EQ(200, mStore->ClearSandbox(project.mIdentifier));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(400, Take(In("a.lyr")));
    EXPECT_EQ(200, mStore->OpenRopeFile(In("a.lyr"), project));
}

TEST_F(SnapshotsTest, ExtractingTwiceExtractsOnce)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    dto::Session first;
    dto::Session second;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, first));
    std::ofstream(In("a.zip"), std::ios::trunc) << "no archive any more";
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, second));
    EXPECT_EQ(first.mIdentifier, second.mIdentifier);
    EXPECT_EQ(0U, mLog->Count("ExtractZipFile: Failed to extract"));
}

TEST_F(SnapshotsTest, ASessionIsMadeOfASnapshotWithItsHistoryUnderNewIDs)
{
    const auto expected = Content(mSession.mIdentifier);
    ASSERT_EQ(200, Take(In("a.zip")));
    dto::Session made;
    ASSERT_EQ(201, mStore->CreateSessionFromSnapshot(In("a.zip"), {}, made));
    dto::Session other;
    ASSERT_EQ(201, mStore->CreateSessionFromSnapshot(In("a.zip"), {dto::RawJSON(R"({"name":"Other"})"), {}}, other));
    EXPECT_NE(made.mIdentifier, other.mIdentifier);
    EXPECT_EQ("p-" + made.mIdentifier.Text(), made.mProductionID.Text());
    EXPECT_EQ(3U, History(made.mIdentifier).size());
    EXPECT_TRUE(made.mHasBin);
    ReopenStore();
    EXPECT_EQ(expected, Content(made.mIdentifier));
    EXPECT_EQ(Locators(mSession.mIdentifier), Locators(made.mIdentifier));
    EXPECT_EQ(made, GetSession(made.mIdentifier));
    EXPECT_EQ(R"({"name":"Other"})", Content(other.mIdentifier).at("properties"));
    const auto transaction = OpenTransaction(made.mIdentifier);
    EXPECT_EQ(200, mStore->DeleteAsset(transaction, kClip));
    EXPECT_EQ(200, Commit(transaction));
}

TEST_F(SnapshotsTest, WhatIsNoSnapshotMakesNoSession)
{
    dto::Session made;
    EXPECT_EQ(404, mStore->CreateSessionFromSnapshot(In("absent.zip"), {}, made));
    EXPECT_EQ(404, mStore->ExtractSnapshot(In("absent.zip"), {}, made));
    std::ofstream(In("text.zip")) << "text";
    EXPECT_EQ(500, mStore->CreateSessionFromSnapshot(In("text.zip"), {}, made));
    EXPECT_EQ(500, mStore->ExtractSnapshot(In("text.zip"), {}, made));
    for (const std::string name : {"git", "version", "git/odb.sqlite3"}) {
        ASSERT_EQ(200, Take(In("a.zip")));
        TakeOut(In("a.zip"), name);
        EXPECT_EQ(500, mStore->CreateSessionFromSnapshot(In("a.zip"), {}, made)) << name;
    }
    EXPECT_EQ(1U, SessionFolders());
    ReopenStore();
    EXPECT_EQ(1U, mStore->GetSessions().size());
}

TEST_F(SnapshotsTest, ASnapshotOfALaterProgramIsRefused)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    ASSERT_TRUE(IO::ExtractZipFile(In("a.zip"), In("box")));
    std::ofstream(In("box/version"), std::ios::trunc) << R"({"dataModel":"9.0.0","suiteClient":"2099"})";
    ASSERT_TRUE(IO::CreateZipFile(In("box"), In("a.zip")));
    dto::Session made;
    EXPECT_EQ(500, mStore->CreateSessionFromSnapshot(In("a.zip"), {}, made));
    EXPECT_EQ(500, mStore->ExtractSnapshot(In("a.zip"), {}, made));
    EXPECT_FALSE(Files().DirectoryExists(In("a.lyra2")));
    EXPECT_EQ(500, Apply(In("a.zip")));
    EXPECT_EQ(1U, SessionFolders());
}

TEST_F(SnapshotsTest, AnAppliedSnapshotReplacesAllAsOneCommit)
{
    const auto expected = Content(mSession.mIdentifier);
    const auto locators = Locators(mSession.mIdentifier);
    ASSERT_EQ(200, Take(In("a.zip")));
    MoveOn();
    const std::size_t versions = History(mSession.mIdentifier).size();
    ASSERT_EQ(200, Apply(In("a.zip")));
    EXPECT_TRUE(expected == Content(mSession.mIdentifier));
    EXPECT_EQ(mApplied, GetSession(mSession.mIdentifier));
    EXPECT_EQ(mSession.mIdentifier, mApplied.mIdentifier);
    EXPECT_TRUE(mApplied.mHasBin);
    const auto history = History(mSession.mIdentifier);
    ASSERT_EQ(versions + 1, history.size());
    EXPECT_THAT(history[0].mMessage, testing::HasSubstr("Snapshot applied to existing Tessel Project"));
    EXPECT_THAT(history[0].mMessage, testing::HasSubstr("\"commitMessageCode\":10"));
    auto after = Locators(mSession.mIdentifier);
    EXPECT_EQ(1U, after.erase("m-late"));
    EXPECT_EQ(locators, after);
    EXPECT_EQ(0U, TemporaryFolders());
    ReopenStore();
    EXPECT_TRUE(expected == Content(mSession.mIdentifier));
    EXPECT_EQ(mApplied, GetSession(mSession.mIdentifier));
}

TEST_F(SnapshotsTest, WhatTheSnapshotDoesNotHaveStaysWhereThatIsWanted)
{
    auto expected = Content(mSession.mIdentifier);
    ASSERT_EQ(200, Take(In("a.zip")));
    MoveOn();
    const auto later = Content(mSession.mIdentifier);
    ASSERT_EQ(200, Apply(In("a.zip"), true, false));
    for (const auto& [key, value] : later)
        expected.emplace(key, value);
    expected["properties"] = R"({"name":"Later"})";
    EXPECT_TRUE(expected == Content(mSession.mIdentifier));
    EXPECT_EQ(1U, Content(mSession.mIdentifier).count(kLater.Text()));
}

TEST_F(SnapshotsTest, TheRemoteSideLearnsOfTheLocatorsOfAnAppliedSnapshot)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    std::vector<dto::MediaLocator> changed;
    SyncChangeCount count;
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(mSession.mIdentifier, changed, count));
    ASSERT_TRUE(mStore->SetMediaLocatorSyncChangeCount(mSession.mIdentifier, count));
    SideDataTags before;
    ASSERT_EQ(200, mStore->GetSideDataTags(mSession.mIdentifier, before));
    ASSERT_EQ(200, Apply(In("a.zip")));
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(mSession.mIdentifier, changed, count));
    EXPECT_EQ(2U, changed.size());
    SideDataTags after;
    ASSERT_EQ(200, mStore->GetSideDataTags(mSession.mIdentifier, after));
    EXPECT_NE(before.mMediaLocators, after.mMediaLocators);
}

TEST_F(SnapshotsTest, AnApplicationThatCannotBeLeavesTheSessionAsItWas)
{
    const auto expected = Content(mSession.mIdentifier);
    const auto revision = GetSession(mSession.mIdentifier).mRevision;
    dto::Session ignored;
    EXPECT_EQ(404, Apply(In("absent.zip")));
    EXPECT_EQ(1U, mLog->Count("Unable to apply snapshot"));
    EXPECT_EQ(404, mStore->ApplySnapshot("nobody", In("absent.zip"), false, true, ignored));
    std::ofstream(In("text.zip")) << "text";
    EXPECT_EQ(500, Apply(In("text.zip")));
    EXPECT_EQ(2U, mLog->Count("Unable to apply snapshot"));
    EXPECT_EQ("!result", mLog->Find("Unable to apply snapshot")[1].Value("expression"));
    ASSERT_EQ(200, Take(In("a.zip")));
    TakeOut(In("a.zip"), "git");
    EXPECT_EQ(500, Apply(In("a.zip")));
    EXPECT_EQ(1U, mLog->Count("ApplySnapshot: Extracted snapshot"));
    EXPECT_EQ(0U, TemporaryFolders());
    EXPECT_TRUE(expected == Content(mSession.mIdentifier));
    EXPECT_EQ(revision, GetSession(mSession.mIdentifier).mRevision);
}

/// Every operation on a file fails in turn.
TEST_F(SnapshotsTest, ASnapshotThatLacksSomethingIsNotApplied)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    // One that has the payload itself would not miss it.
    const dto::Session other = CreateSession();
    const auto expected = Content(other.mIdentifier);
    ASSERT_TRUE(IO::ExtractZipFile(In("a.zip"), In("box")));
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(In("box/git/odb.sqlite3").c_str(), &db));
    EXPECT_EQ(SQLITE_OK,
              sqlite3_exec(db, "DELETE FROM objects WHERE data=CAST('some notes' AS BLOB)", nullptr, nullptr, nullptr));
    EXPECT_EQ(1, sqlite3_changes(db));
    sqlite3_close(db);
    ASSERT_TRUE(IO::CreateZipFile(In("box"), In("b.zip")));
    EXPECT_EQ(500, mStore->ApplySnapshot(other.mIdentifier, In("b.zip"), false, true, mApplied));
    EXPECT_EQ(1U, mLog->Count("ApplySnapshotSessionData: Unable to copy local session"));
    EXPECT_TRUE(expected == Content(other.mIdentifier));
    EXPECT_EQ(0U, TemporaryFolders());
}

TEST_F(SnapshotsTest, ASnapshotThatCannotTakeItsPlaceIsToldOf)
{
    std::filesystem::create_directories(In("a.zip/folder"));
    EXPECT_EQ(500, Take(In("a.zip")));
    const auto failures = mLog->Find("CreateZipFile: Failed to compress to file");
    ASSERT_EQ(1U, failures.size());
    EXPECT_EQ(In("a.zip"), failures[0].Value("dest"));
    EXPECT_EQ("!result", failures[0].Value("expression"));
    EXPECT_EQ(0U, TemporaryFolders());
}

TEST_F(SnapshotsTest, ASessionThatCannotBeMadeOfASnapshotIsNotThere)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    const auto expected = Content(mSession.mIdentifier);
    unsigned failures = 0;
    for (const FileOperation kind :
         {FileOperation::ReadPlain, FileOperation::WritePlain, FileOperation::Sync, FileOperation::MakeFolder,
          FileOperation::Rename, FileOperation::DeletePlain, FileOperation::Write, FileOperation::Open}) {
        for (unsigned nth = 1, failed = 1; failed != 0 && nth < 60; nth += 3) {
            mVfs->SetFault({kind, nth, SQLITE_IOERR});
            dto::Session made;
            const int status = mStore->CreateSessionFromSnapshot(In("a.zip"), {}, made);
            failed = mVfs->FaultsReported();
            mVfs->ClearFaults();
            if (status == 201) {
                EXPECT_EQ(expected, Content(made.mIdentifier));
                EXPECT_EQ(200, mStore->DeletePersistedSessionData(made.mIdentifier));
            } else {
                ++failures;
            }
            ReopenStore();
            ASSERT_EQ(1U, mStore->GetSessions().size()) << static_cast<int>(kind) << " " << nth;
        }
    }
    EXPECT_LT(10U, failures);
}

TEST_F(SnapshotsTest, ASnapshotWhoseDeletionWasCutOffIsUnpackedAnew)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    // At its begin, then at its end.
    for (const bool isAtItsEnd : {false, true}) {
        ASSERT_EQ(200, mStore->ClearExtractedSnapshot(opened.mIdentifier));
        if (isAtItsEnd) {
            std::filesystem::remove_all(In("a.lyra2"));
            std::filesystem::create_directory(In("a.lyra2"));
        } else {
            std::ofstream(In("a.lyra2/deleted")).flush();
        }
        ReopenStore();
        ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
        EXPECT_EQ(Content(mSession.mIdentifier), Content(opened.mIdentifier));
    }
}

TEST_F(SnapshotsTest, ADeletedSnapshotWhoseFolderCannotBeRemovedIsOpenedOnceItCan)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    mVfs->SetFault({FileOperation::DeleteFolder, 1, SQLITE_IOERR});
    EXPECT_EQ(200, mStore->DeletePersistedSessionData(opened.mIdentifier));
    EXPECT_TRUE(Files().DirectoryExists(In("a.lyra2")));
    mVfs->SetFault({.mOperation = FileOperation::DeleteFolder, .mNth = 1, .mCode = SQLITE_IOERR, .mFromThenOn = true});
    EXPECT_EQ(500, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    EXPECT_EQ(1U, mLog->Count("Cannot remove what a deletion had left"));
    mVfs->ClearFaults();
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    EXPECT_EQ(Content(mSession.mIdentifier), Content(opened.mIdentifier));
    ReopenStore();
    EXPECT_EQ(Content(mSession.mIdentifier), Content(opened.mIdentifier));
}

TEST_F(SnapshotsTest, ARefusedOpeningOfAFolderThatWasClosedLeavesItClosed)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    ASSERT_EQ(200, mStore->ClearExtractedSnapshot(opened.mIdentifier));
    EXPECT_EQ(404, mStore->ExtractSnapshot(In("a.zip"), kLater, opened));
    EXPECT_TRUE(Files().DirectoryExists(In("a.lyra2")));
    EXPECT_EQ(1U, mStore->GetSessions().size());
    ReopenStore();
    EXPECT_EQ(1U, mStore->GetSessions().size());
    // One that is open stays open.
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    EXPECT_EQ(404, mStore->ExtractSnapshot(In("a.zip"), kLater, opened));
    EXPECT_EQ(2U, mStore->GetSessions().size());
}

TEST_F(SnapshotsTest, ASnapshotIsNotGivenTheNameOfTheFolderThatItIsOpenedIn)
{
    EXPECT_EQ(400, Take(In("a.lyra2")));
    EXPECT_FALSE(Files().FileExists(In("a.lyra2")));
    ASSERT_EQ(200, Take(In("a.zip")));
    std::filesystem::rename(In("a.zip"), In("a.lyra2"));
    dto::Session opened;
    EXPECT_EQ(400, mStore->ExtractSnapshot(In("a.lyra2"), {}, opened));
    EXPECT_EQ(1U, mLog->Count("Won't open a snapshot in the place of itself"));
    EXPECT_EQ(200, Apply(In("a.lyra2")));
}

TEST_F(SnapshotsTest, ACopyOfASessionWhoseAssetsWereAllDeletedHasNone)
{
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    for (const auto& asset : GetAssets(mSession.mIdentifier))
        EXPECT_EQ(200, mStore->DeleteAsset(transaction, asset.mAssetID));
    ASSERT_EQ(200, Take(In("full.zip")));
    EXPECT_EQ(200, Commit(transaction));
    dto::Session copy;
    ASSERT_EQ(201, Copy(mSession.mIdentifier, {}, copy));
    EXPECT_TRUE(GetAssets(copy.mIdentifier).empty());
    ASSERT_EQ(200, Take(In("empty.zip")));
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("empty.zip"), {}, copy));
    EXPECT_TRUE(GetAssets(copy.mIdentifier).empty());
    ASSERT_EQ(200, Apply(In("full.zip")));
    EXPECT_FALSE(GetAssets(mSession.mIdentifier).empty());
    ASSERT_EQ(200, Apply(In("empty.zip")));
    EXPECT_TRUE(GetAssets(mSession.mIdentifier).empty());
}

TEST_F(SnapshotsTest, TheTreesOfAnAppliedSnapshotAreThoseOfTheSnapshot)
{
    namespace GitBox = VantryLocalHub::GitBox;
    ASSERT_EQ(200, Take(In("a.zip")));
    MoveOn();
    ASSERT_EQ(200, Apply(In("a.zip")));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    const auto treeOf = [](const ImmutableString& inID, const ImmutableString& inRevision) {
        GitBox::Sandbox::Handles handles;
        IO::TreePtr tree;
        EXPECT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(inID)->RetainDB(handles));
        EXPECT_EQ(IO::ReadResult::Found, IO::GetTreeAtRevision(handles.mRepo, inRevision.View(), tree));
        return tree;
    };
    const auto applied = treeOf(mSession.mIdentifier, mApplied.mRevision);
    const auto expected = treeOf(opened.mIdentifier, opened.mRevision);
    for (const char* const name : {"assets", "enclosures", "properties"}) {
        noxstorage::git::TreeEntry found;
        noxstorage::git::TreeEntry wanted;
        ASSERT_TRUE(applied->Find(name, found) && expected->Find(name, wanted)) << name;
        EXPECT_EQ(wanted.mOid.Text(), found.mOid.Text()) << name;
    }
}

TEST_F(SnapshotsTest, TheSnapshotOfARootHoldsItsDependentsThoughItsLocatorsAreNotReadable)
{
    const ImmutableString root("ab000000-0000-4000-8000-000000000001");
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    AssetContent asset = MakeAsset("root", "sequence");
    asset.mAsset.mProperties =
        dto::RawJSON(R"({"mergedClipAndProxyMediaLocators":7,"mediaLocator":"m-used","dependentAssetIDs":[")" +
                     kClip.Text() + "\"]}");
    Add(transaction, asset, root);
    asset.mAsset.mProperties = dto::RawJSON(R"({"mediaLocator":null,"dependentAssetIDs":null})");
    Add(transaction, asset, kLater);
    asset.mAsset.mProperties = dto::RawJSON(R"({"mediaLocator":"m-used","dependentAssetIDs":"one"})");
    Add(transaction, asset, kSequence);
    ASSERT_EQ(200, Commit(transaction));
    ASSERT_EQ(200, Take(In("root.zip"), root));
    EXPECT_EQ(1U, mLog->Count("The media locators of an asset are not readable"));
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("root.zip"), {}, opened));
    EXPECT_EQ(2U, GetAssets(opened.mIdentifier).size());
    EXPECT_EQ(1U, Locators(opened.mIdentifier).count("m-used"));
    EXPECT_EQ(200, Take(In("nothing.zip"), kLater));
    EXPECT_EQ(500, Take(In("unknown.zip"), kSequence));
    EXPECT_EQ(1U, mLog->Count("What an asset depends on is not readable"));
}

TEST_F(SnapshotsTest, AnExtractedSnapshotIsNotLinkedToWhatItsSessionWasLinkedTo)
{
    const std::string folder = FolderOf(mSession.mIdentifier);
    ASSERT_TRUE(mStore->WriteAssociationForSync(mSession.mIdentifier,
                                                {"https://hub.example", "p-remote", "remote", {}, "user", "corvane"}));
    ASSERT_TRUE(mStore->WriteSynchronizedMode(mSession.mIdentifier));
    mStore.reset();
    mScheduler->RunUntilIdle();
    ASSERT_TRUE(Files().FileExists(Join(folder, "sync.sqlite3")));
    ASSERT_TRUE(IO::CreateZipFile(folder, In("a.zip")));
    ReopenStore();
    dto::Session opened;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    LinkState link;
    ASSERT_TRUE(mStore->ReadLinkState(opened.mIdentifier, link));
    EXPECT_FALSE(link.mAssociated);
    ASSERT_TRUE(mStore->ReadLinkState(mSession.mIdentifier, link));
    EXPECT_TRUE(link.mAssociated);
}

TEST_F(SnapshotsTest, ASnapshotOfTheOldFormatWithALargePayloadIsOpenedCopiedMadeAndApplied)
{
    const auto transaction = OpenTransaction(mSession.mIdentifier);
    Add(transaction, MakeAsset("large", "clip", {{"essence", Noise(23'000'000, 5)}}), kLater);
    ASSERT_EQ(200, Commit(transaction));
    const auto expected = Content(mSession.mIdentifier);
    const std::string folder = FolderOf(mSession.mIdentifier);
    ASSERT_EQ(200, mStore->DowngradeRepository(mSession.mIdentifier));
    mStore.reset();
    mScheduler->RunUntilIdle();
    ASSERT_TRUE(IO::CreateZipFile(folder, In("old.zip")));
    ReopenStore();
    dto::Session opened;
    dto::Session other;
    ASSERT_EQ(200, mStore->ExtractSnapshot(In("old.zip"), {}, opened));
    EXPECT_TRUE(expected == Content(opened.mIdentifier));
    ASSERT_EQ(201, Copy(opened.mIdentifier, {}, other));
    EXPECT_TRUE(expected == Content(other.mIdentifier));
    ASSERT_EQ(201, mStore->CreateSessionFromSnapshot(In("old.zip"), {}, other));
    EXPECT_TRUE(expected == Content(other.mIdentifier));
    ASSERT_EQ(201, mStore->CopyToRopeFile(opened.mIdentifier, {}, In("old.lyr"), false, other));
    EXPECT_TRUE(expected == Content(other.mIdentifier));
    const dto::Session empty = CreateSession();
    ASSERT_EQ(200, mStore->ApplySnapshot(empty.mIdentifier, In("old.zip"), false, true, other));
    EXPECT_TRUE(expected == Content(empty.mIdentifier));
}

TEST_F(SnapshotsTest, ASnapshotWhosePropertiesAreNoJSONObjectIsRefusedAndLeavesNothing)
{
    const auto expected = Content(mSession.mIdentifier);
    for (const std::string asset : {"", "c1000000-0000-4000-8000-000000000001"}) {
        for (const char* const properties : {R"({"name":)", "[1]", "{}{}"}) {
            ASSERT_EQ(200, Take(In("a.zip")));
            WritePropertiesIntoPacked(In("a.zip"), properties, asset);
            dto::Session opened;
            EXPECT_EQ(500, mStore->ExtractSnapshot(In("a.zip"), {}, opened)) << properties;
            EXPECT_EQ(500, mStore->CreateSessionFromSnapshot(In("a.zip"), {}, opened)) << properties;
            EXPECT_EQ(500, Apply(In("a.zip"))) << properties;
            EXPECT_FALSE(Files().DirectoryExists(In("a.lyra2")));
        }
    }
    EXPECT_GT(mLog->Count("Stored session properties are no JSON object"), 0U);
    EXPECT_GT(mLog->Count("Stored properties of an asset are no JSON object"), 0U);
    EXPECT_TRUE(expected == Content(mSession.mIdentifier));
    EXPECT_EQ(1U, SessionFolders());
    ReopenStore();
    EXPECT_EQ(1U, mStore->GetSessions().size());
    WritePropertiesIntoPacked(In("a.zip"), R"({ "name" : "well-formed" })");
    WritePropertiesIntoPacked(In("a.zip"), R"({ "name" : "well-formed" })", kClip.Text());
    dto::Session opened;
    EXPECT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
    EXPECT_EQ(R"({"name":"well-formed"})", opened.mProperties.mText);
}

TEST_F(SnapshotsTest, ASessionDoesNotGoBackToARevisionWhosePropertiesAreNoJSONObject)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    WritePropertiesIntoPacked(In("a.zip"), R"({"name":)");
    WritePropertiesIntoPacked(In("a.zip"), R"({"name":"sound again"})");
    dto::Session made;
    ASSERT_EQ(201, mStore->CreateSessionFromSnapshot(In("a.zip"), {}, made));
    ImmutableString reverted;
    EXPECT_EQ(500, mStore->RevertSession(made.mIdentifier, History(made.mIdentifier).at(2).mCommitID, reverted));
    EXPECT_EQ(made, GetSession(made.mIdentifier));
    ReopenStore();
    EXPECT_EQ(made, GetSession(made.mIdentifier));
}

TEST_F(SnapshotsTest, ASessionMadeOfAPackedOneGoesBackToARevisionFromBeforeItHadItsOwnIdentifiers)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    WritePropertiesIntoPacked(In("a.zip"), R"({"name":"packed"})");
    dto::Session made;
    ASSERT_EQ(201, mStore->CreateSessionFromSnapshot(In("a.zip"), {}, made));
    const auto expected = Content(made.mIdentifier);
    ImmutableString reverted;
    ASSERT_EQ(200, mStore->RevertSession(made.mIdentifier, History(made.mIdentifier).at(1).mCommitID, reverted));
    const dto::Session before = GetSession(made.mIdentifier);
    EXPECT_EQ(reverted, before.mRevision);
    ReopenStore();
    EXPECT_EQ(before, GetSession(made.mIdentifier));
    EXPECT_TRUE(expected == Content(made.mIdentifier));
}

}  // namespace
