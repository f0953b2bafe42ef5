#include <gmock/gmock.h>

#include "Tests/Support/RopeFileFixture.h"

namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;

class RopeFileTest : public RopeFileFixture
{
};

TEST_F(RopeFileTest, ANewFileGoesByTheIdsOfItsPathAndSaysWhoItIs)
{
    const dto::Session session = Create(File());
    EXPECT_TRUE(session.mIdentifier.View().starts_with("r-"));
    EXPECT_EQ("p-" + session.mIdentifier.Text().substr(2), session.mProductionID.Text());
    EXPECT_FALSE(session.mRopeFileID.empty());
    EXPECT_TRUE(session.mLocalOnly);
    const git::RepoPtr repo = RepoOf(session.mIdentifier);
    const auto tree = git::GetTreeAtCommit(repo, git::GetCommitForBranch(repo, "session"));
    const std::map<std::string, std::string> expected{{"filepath", File()},
                                                      {"productionid", session.mProductionID.Text()},
                                                      {"properties", R"({"name":"Feature"})"},
                                                      {"sessionid", session.mIdentifier.Text()},
                                                      {"uniqueid", session.mRopeFileID.Text()}};
    EXPECT_EQ(expected.size(), tree->EntryCount());
    for (const auto& [name, content] : expected)
        EXPECT_EQ(content, git::GetBlob(repo, tree, name)->Content());
    std::vector<std::string> branches;
    ASSERT_TRUE(git::ListBranches(repo, branches));
    EXPECT_THAT(branches, testing::IsSupersetOf({"production", "production_backup", "session", "session_backup"}));
    EXPECT_EQ(1U, mLog->Find("Created rope file. sessionID:" + session.mIdentifier.Text() + " file:" + File() +
                             " repo:" + repo->Path())
                      .size());
    std::string path;
    EXPECT_EQ(200, mStore->GetRopeFilePath(session.mProductionID, path));
    EXPECT_EQ(File(), path);
    EXPECT_EQ(404, mStore->GetRopeFilePath(CreateSession().mIdentifier, path));
}

TEST_F(RopeFileTest, ANameThatSomeSystemForbidsIsRefusedBeforeAnythingIsMade)
{
    const dto::Session source = CreateSession();
    for (const std::string& name : {std::string("a:b.lyr"), std::string("a?.lyr"), std::string("a\\b.lyr"),
                                    std::string("a\nb.lyr"), std::string(".."), std::string(300, 'x') + ".lyr"}) {
        Create(File(name), true, 400);
        Open(File(name), 400);
        dto::Session copy;
        EXPECT_EQ(400, mStore->CopyToRopeFile(source.mIdentifier, {}, File(name), true, copy));
    }
    Create("relative.lyr", false, 400);
    Create(File(std::string(240, 'y') + ".lyr"), false, 400);  // no name would be left for what is built beside it
    EXPECT_EQ(6U, mLog->Count("CopyToRopeFile: Can not create rope file because specified file name contains one or "
                              "more illegal characters"));
    EXPECT_EQ(8U,
              mLog->Count("CreateRopeFile: Can not create rope file because specified file name contains one or more "
                          "illegal characters"));
    EXPECT_EQ(6U, mLog->Count("OpenRopeFile: Can not open rope file because specified file name contains one or more "
                              "illegal characters"));
    EXPECT_THAT(Beside(), IsEmpty());
    EXPECT_FALSE(fs::exists(mOwnFolder) && !fs::is_empty(mOwnFolder));
}

TEST_F(RopeFileTest, AFileIsOverwrittenOnlyWhereThatIsAllowedAndNobodyWorksInIt)
{
    const dto::Session first = Create(File());
    CommitAsset(first.mIdentifier, mFirst, "one");
    Create(File(), false, 409);
    EXPECT_EQ(1U, mLog->Count("CreateRopeFile: Won't create a rope file on top of an existing rope file"));
    EXPECT_EQ(1U, GetAssets(first.mIdentifier).size());
    {
        const git::RepoPtr used = RepoOf(first.mIdentifier);
        Create(File(), true, 423);
        EXPECT_EQ(1U, GetAssets(first.mIdentifier).size());
    }
    const dto::Session second = Create(File(), true);
    EXPECT_EQ(first.mIdentifier, second.mIdentifier);
    EXPECT_NE(first.mRopeFileID, second.mRopeFileID);
    EXPECT_THAT(GetAssets(second.mIdentifier), IsEmpty());
    EXPECT_EQ(1U, mLog->Count("CreateRopeFile: Overwriting existing rope file"));
    // A folder is nothing that could be overwritten.
    fs::create_directories(File("folder.lyr"));
    Create(File("folder.lyr"), true, 409);
}

TEST_F(RopeFileTest, AFileThatWasMovedGoesByTheIdsOfItsNewPathAndKeepsItsContent)
{
    const dto::Session before = Create(File());
    const dto::Session committed = CommitAsset(before.mIdentifier, mFirst, "one");
    Close(before.mIdentifier);
    EXPECT_THAT(Beside(), ElementsAre("Feature.lyr"));
    fs::rename(File(), File("Moved.lyr"));
    Open(File(), 404);
    const dto::Session after = Open(File("Moved.lyr"));
    EXPECT_NE(before.mIdentifier, after.mIdentifier);
    EXPECT_EQ(before.mRopeFileID, after.mRopeFileID);
    EXPECT_EQ(committed.mRevision, after.mRevision);
    ASSERT_EQ(1U, GetAssets(after.mIdentifier).size());
    EXPECT_EQ(after.mIdentifier, Open(File("Moved.lyr")).mIdentifier) << "a second time is the same session";
}

TEST_F(RopeFileTest, WhileNobodyUsesItAFileIsClosedAndItsSideFolderGone)
{
    const dto::Session session = Create(File());
    const std::string side = RepoOf(session.mIdentifier)->Path();
    EXPECT_TRUE(fs::is_directory(side));
    mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks() + 1);
    mScheduler->RunUntilIdle();
    EXPECT_FALSE(fs::exists(side));
    EXPECT_THAT(Beside(), ElementsAre("Feature.lyr"));
    CommitAsset(session.mIdentifier, mFirst, "one");
    EXPECT_EQ(1U, GetAssets(session.mIdentifier).size());
}

TEST_F(RopeFileTest, AScanFindsTheFilesOfTheAutosaveLocationAndClosesThemAgain)
{
    dto::Session session;
    ASSERT_EQ(201, mStore->CreateSession({}, Properties(), SessionKind::RopeFile, session));
    std::string path;
    ASSERT_EQ(200, mStore->GetRopeFilePath(session.mIdentifier, path));
    EXPECT_EQ(VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation() + "/Feature.lyr", path);
    CommitAsset(session.mIdentifier, mFirst, "one");
    ReopenStore();
    EXPECT_EQ(1U, GetAssets(session.mIdentifier).size());
    // Another one of the name stands beside it.
    ASSERT_EQ(201, mStore->CreateSession({}, Properties(), SessionKind::RopeFile, session));
    ASSERT_EQ(200, mStore->GetRopeFilePath(session.mIdentifier, path));
    EXPECT_TRUE(path.ends_with("/Feature 2.lyr")) << path;
}

TEST_F(RopeFileTest, OfTwoFilesOfOneProjectAScanSkipsTheSecondAndSaysSoOnce)
{
    dto::Session session;
    ASSERT_EQ(201, mStore->CreateSession({}, Properties(), SessionKind::RopeFile, session));
    std::string path;
    ASSERT_EQ(200, mStore->GetRopeFilePath(session.mIdentifier, path));
    Close(session.mIdentifier);
    const std::string copy = path.substr(0, path.size() - 4) + " copy.lyr";
    fs::copy_file(path, copy);
    ReopenStore();
    EXPECT_EQ(1U, mStore->GetSessions().size());
    EXPECT_EQ(1U, mLog->Count("Autosave exists in multiple folders. Skipping"));
    ASSERT_EQ(1U, Complaints());
    const auto complaints = ComplaintBox::Instance()->SessionComplaints();
    const auto& [complainant, list] = *complaints.begin();
    std::string used;
    ASSERT_EQ(200, mStore->GetRopeFilePath(complainant, used));
    const std::string skipped = used == path ? copy : path;
    EXPECT_EQ("Autosave exists in multiple folders. Using: " + used + " (" + complainant + ") Skipping: " + skipped,
              list.begin()->second.mErrorString);
    // Whoever asks for the other one has it, as a session of its own.
    EXPECT_NE(complainant, Open(skipped).mIdentifier.Text());
    EXPECT_EQ(2U, mStore->GetSessions().size());
}

TEST_F(RopeFileTest, AFileThatIsNoneOrHasNoSessionIsNotOpened)
{
    std::ofstream(File("text.lyr")) << std::string(3000, 'x');
    Open(File("text.lyr"), 500);
    Open(File("none.lyr"), 404);
    const dto::Session session = Create(File());
    Close(session.mIdentifier);
    Execute(File(), "DELETE FROM refs");
    Open(File(), 500);
    EXPECT_EQ(1U, mLog->Count("OpenRopeFile: The requested session does not exist"));
    EXPECT_TRUE(fs::exists(File()));
}

TEST_F(RopeFileTest, WhereABranchCannotBeReadItsBackupIs)
{
    const dto::Session session = Create(File());
    const dto::Session first = CommitAsset(session.mIdentifier, mFirst, "one");
    CommitAsset(session.mIdentifier, mSecond, "two");
    Close(session.mIdentifier);
    Execute(File(), "UPDATE refs SET oid=x'0123456789012345678901234567890123456789' WHERE name='refs/heads/session'");
    const dto::Session opened = Open(File());
    EXPECT_EQ(first.mRevision, opened.mRevision);
    EXPECT_EQ(1U, GetAssets(opened.mIdentifier, opened.mRevision).size());
    CommitAsset(opened.mIdentifier, mSecond, "two again");
    Close(opened.mIdentifier);
    EXPECT_EQ(2U, GetAssets(Open(File()).mIdentifier).size());
}

TEST_F(RopeFileTest, AFileThatCannotBeOpenedAgainIsComplainedOfUntilItCan)
{
    const dto::Session session = Create(File());
    mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks() + 1);
    fs::rename(File(), File("away"));
    AssetListPtr assets;
    EXPECT_EQ(500, mStore->GetAssets(session.mIdentifier, {}, {}, true, assets));
    EXPECT_EQ(500, mStore->GetAssets(session.mIdentifier, {}, {}, true, assets));
    ASSERT_EQ(1U, Complaints());
    const auto complaints = ComplaintBox::Instance()->SessionComplaints();
    EXPECT_EQ(0xa045002b, complaints.begin()->second.begin()->second.mErrorCode);
    EXPECT_EQ("RetainDb unable to re-open rope file", complaints.begin()->second.begin()->second.mErrorString);
    fs::rename(File("away"), File());
    EXPECT_EQ(200, mStore->GetAssets(session.mIdentifier, {}, {}, true, assets));
    EXPECT_EQ(0U, Complaints());
}

TEST_F(RopeFileTest, ValuesAreKeptByKeyAndAFolderHasNone)
{
    const ImmutableString id = Create(File()).mIdentifier;
    std::string value = "kept";
    EXPECT_EQ(404, mStore->ReadRopeFileValue(id, "color", value));
    EXPECT_EQ("kept", value);
    EXPECT_EQ(200, mStore->WriteRopeFileValue(id, "color", "blue"));
    EXPECT_EQ(200, mStore->ReadRopeFileValue(id, "color", value));
    EXPECT_EQ("blue", value);
    EXPECT_EQ(500, mStore->WriteRopeFileValue(id, "..", "x"));
    const ImmutableString folder = CreateSession().mIdentifier;
    EXPECT_EQ(200, mStore->WriteRopeFileValue(folder, "color", "blue"));
    EXPECT_EQ(404, mStore->ReadRopeFileValue(folder, "color", value));
}

TEST_F(RopeFileTest, EachWriteBesideTheHistoryIsACommitWithItsWord)
{
    const ImmutableString id = Create(File()).mIdentifier;
    const AssociationForSync association{"https://hub.example", "p-remote", "remote", {}, "user", "corvane"};
    SyncPoint point;
    point.mLocalRevision = "l1";
    point.mRemoteRevision = "r1";
    std::int64_t count = 0;
    ASSERT_TRUE(mStore->WriteUserID(id, "u", "c"));
    ASSERT_TRUE(mStore->WriteAssociationForSync(id, association));
    ASSERT_TRUE(mStore->WriteSyncPoint(id, point, count));
    ASSERT_TRUE(mStore->WriteSyncPoint(id, point, count)) << "the same pair";
    ASSERT_TRUE(mStore->SetUserEnclosureSyncEtag(id, "etag"));
    ASSERT_TRUE(mStore->WriteDeletedDate(id, "today"));
    ASSERT_TRUE(mStore->RemoveDeletedDate(id));
    ASSERT_TRUE(mStore->InvalidateAssociationForSync(id, association));
    ASSERT_EQ(200, mStore->WriteRopeFileValue(id, "color", "blue"));
    ASSERT_EQ(200, mStore->SetSyncModeOfRopeFile(id, VYCL::LocalHub::SyncMode_LocalOnly()));
    ASSERT_EQ(200, mStore->SetSyncModeOfRopeFile(id, VYCL::LocalHub::SyncMode_Synchronized()));
    EXPECT_EQ(400, mStore->SetSyncModeOfRopeFile(id, "else"));
    EXPECT_EQ(400, mStore->SetSyncModeOfRopeFile(CreateSession().mIdentifier, VYCL::LocalHub::SyncMode_LocalOnly()));
    std::vector<std::string> words = Messages(id, RopeFile::kBranch_KeyValue);
    std::erase(words, "bincount");
    EXPECT_THAT(words, ElementsAre("synchronized", "removeuserids", "localonly", "write", "disassociate", "undelete",
                                   "date", "sync", "associate", "userid", "localonly"));
    EXPECT_THAT(Messages(id, RopeFile::kBranch_SyncPoint),
                ElementsAre(testing::HasSubstr(R"("remote":"r1","local":"l1","date":)")));

    dto::MediaLocator locator;
    locator.mMediaLocatorID = "abc";
    locator.mProperties = dto::RawJSON("{}");
    ASSERT_EQ(200, mStore->AddMediaLocator(id, WriteMode::LocalEdit, locator));
    std::vector<dto::MediaLocator> locators;
    SyncChangeCount syncTo;
    ASSERT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(id, locators, syncTo));
    const git::RepoPtr repo = RepoOf(id);
    const auto at = [&](const std::string& inPath) {
        RopeFile::TreePtr tree;
        EXPECT_TRUE(RopeFile::ReadBranch(repo, RopeFile::kBranch_MediaLocators, tree));
        return git::GetBlob(repo, tree, inPath) != nullptr;
    };
    EXPECT_TRUE(at("medialocators/local/ab/abc"));
    ASSERT_TRUE(mStore->SetMediaLocatorSyncChangeCount(id, syncTo));
    EXPECT_TRUE(at("medialocators/remote/ab/abc"));
    EXPECT_FALSE(at("medialocators/local/ab/abc"));
    ASSERT_EQ(200, mStore->AddMediaLocator(id, WriteMode::LocalEdit, locator));
    EXPECT_TRUE(at("medialocators/local/ab/abc"));
    EXPECT_FALSE(at("medialocators/remote/ab/abc")) << "an id lies under one of the two";
    ASSERT_EQ(200, mStore->AddMediaLocator(id, WriteMode::SyncEngine, locator));
    ASSERT_TRUE(mStore->ResetMediaLocatorSyncChangeCount(id));
    EXPECT_THAT(Messages(id, RopeFile::kBranch_MediaLocators),
                ElementsAre("desync", "write", "write", "sync @" + syncTo.mCommitID.Text().substr(0, 6), "write"));

    dto::UserEnclosure enclosure;
    enclosure.mEnclosureID = "enc1";
    enclosure.mName = "notes";
    ASSERT_EQ(200, mStore->AddUserEnclosure(id, "ann", WriteMode::LocalEdit, Bytes("x"), enclosure));
    ASSERT_EQ(200, mStore->DeleteUserEnclosure(id, "ann", "enc1"));
    EXPECT_THAT(Messages(id, RopeFile::kBranch_UserEnclosures), ElementsAre("delete", "write"));
    // A user's own data leaves no trace in a file that is passed on.
    enclosure.mName = "_userdata.layout";
    ASSERT_EQ(200, mStore->AddUserEnclosure(id, "ann", WriteMode::LocalEdit, Bytes("x"), enclosure));
    EXPECT_EQ(2U, Messages(id, RopeFile::kBranch_UserEnclosures).size());
}

TEST_F(RopeFileTest, ClosingAFileIsPosted)
{
    const dto::Session session = Create(File());
    mScheduler->RunUntilIdle();
    std::vector<ImmutableString> changed;
    const auto listener = ProjectBox::Station()->Listen<ProjectBox::SessionChangedMessage>(
        [&](const ProjectBox::SessionChangedMessage& inMessage) { changed.push_back(inMessage.mSessionID); });
    Close(session.mIdentifier);
    EXPECT_THAT(changed, ElementsAre(session.mIdentifier));
}

TEST_F(RopeFileTest, TheGenerationOfTheHistoryIsAnotherWheneverAnotherFileMayLieThere)
{
    const dto::Session session = Create(File());
    const ImmutableString id = session.mIdentifier;
    std::uint64_t last = mStore->GetHistoryGeneration(id);
    EXPECT_EQ(last, mStore->GetHistoryGeneration(session.mProductionID));
    const auto isAnother = [&] {
        const std::uint64_t before = std::exchange(last, mStore->GetHistoryGeneration(id));
        return last != before && last != 0;
    };
    CommitAsset(id, mFirst, "one");
    CommitAsset(id, mSecond, "two");
    EXPECT_FALSE(isAnother()) << "what was there is there still";
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    EXPECT_TRUE(isAnother());
    mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks() + 1);
    EXPECT_TRUE(isAnother());
    Create(File(), true);
    EXPECT_TRUE(isAnother());
    Close(id);
    EXPECT_EQ(0U, mStore->GetHistoryGeneration(id));
    Open(File());
    EXPECT_TRUE(isAnother());
}

TEST_F(RopeFileTest, ATransactionOfAProjectThatWasOverwrittenIsGone)
{
    const dto::Session before = Create(File());
    const ImmutableString transaction = OpenTransaction(before.mIdentifier);
    Add(transaction, MakeAsset("late"), mFirst);
    Create(File(), true);
    EXPECT_EQ(404, Commit(transaction));
    EXPECT_THAT(GetAssets(before.mIdentifier), IsEmpty());
}

TEST_F(RopeFileTest, ATransactionOfAProjectThatAThinnedOneTookThePlaceOfIsGone)
{
    const dto::Session source = Create(File("Source.lyr"));
    const dto::Session before = Create(File());
    const ImmutableString transaction = OpenTransaction(before.mIdentifier);
    Add(transaction, MakeAsset("late"), mFirst);
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(source.mIdentifier, File(), {}));
    Open(File());
    EXPECT_EQ(404, Commit(transaction));
    EXPECT_THAT(GetAssets(before.mIdentifier), IsEmpty());
}

TEST_F(RopeFileTest, AFileIsTheSameByWhateverSpellingOfItsPath)
{
    const dto::Session session = Create(File());
    CommitAsset(session.mIdentifier, mFirst, "one");
    fs::create_directory_symlink(mHome / "films", mHome / "link");
    for (const std::string& path :
         {mHome / "films//Feature.lyr", mHome / "films/../films/./Feature.lyr", mHome / "link/Feature.lyr"}) {
        EXPECT_EQ(session.mIdentifier, Open(path).mIdentifier) << path;
        dto::Session copy;
        EXPECT_EQ(400, mStore->CopyToRopeFile(session.mIdentifier, {}, path, true, copy)) << path;
    }
    EXPECT_EQ(1U, GetAssets(session.mIdentifier).size());
}

TEST_F(RopeFileTest, AFileIsWatchedForRoomAndUpgradedByNobody)
{
    const ImmutableString id = Create(File()).mIdentifier;
    EXPECT_EQ(404, mStore->UpgradeRepository(id));
    EXPECT_EQ(404, mStore->DowngradeRepository(id));
    EXPECT_EQ(1U, GetSession(id).mRevision.empty() ? 0U : 1U);
}

}  // namespace
