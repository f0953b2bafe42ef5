#include "Inc/Model/RopeFile.h"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/ComplaintBox.h"
#include "Inc/Model/RopeFileBranches.h"
#include "Inc/Model/UtilsIO.h"
#include "Tests/Support/Noise.h"
#include "Tests/Support/StoreTest.h"

namespace {

namespace fs = std::filesystem;
namespace git = noxstorage::git;
namespace RopeFile = VantryLocalHub::GitBox::RopeFile;
using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;

class RopeFileTest : public StoreTest
{
protected:
    RopeFileTest() { fs::create_directories(mHome / "films"); }
    ~RopeFileTest() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
    }

    [[nodiscard]] std::string File(const std::string& inName = "Feature.lyr") const
    {
        return mHome / ("films/" + inName);
    }
    static dto::ProductionProperties Properties() { return {dto::RawJSON(R"({"name":"Feature"})"), {}}; }

    dto::Session Create(const std::string& inFile, bool inOverwrite = false, int inStatus = 201)
    {
        dto::Session session;
        EXPECT_EQ(inStatus, mStore->CreateRopeFile(inFile, Properties(), inOverwrite, session));
        return session;
    }
    dto::Session Open(const std::string& inFile, int inStatus = 200)
    {
        dto::Session session;
        EXPECT_EQ(inStatus, mStore->OpenRopeFile(inFile, session));
        return session;
    }
    void Close(const ImmutableString& inID)
    {
        EXPECT_EQ(200, mStore->ClearSandbox(inID));
        mScheduler->RunUntilIdle();
    }
    dto::Session CommitAsset(const ImmutableString& inSession, const ImmutableString& inID, const std::string& inName,
                             const std::string& inMessage = "a commit")
    {
        const ImmutableString transaction = OpenTransaction(inSession);
        Add(transaction, MakeAsset(inName, "bin", {{"payload", inName + " payload"}}), inID);
        CommitOutcome outcome;
        EXPECT_EQ(200, mStore->CommitTransaction(transaction, {inMessage}, false, outcome));
        return outcome.mSession;
    }

    static git::RepoPtr RepoOf(const ImmutableString& inID)
    {
        git::RepoPtr repo;
        EXPECT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(inID)->RetainRepo(repo));
        return repo;
    }
    /// The messages of a branch, newest first.
    static std::vector<std::string> Messages(const ImmutableString& inID, std::string_view inBranch)
    {
        std::vector<std::string> messages;
        const git::RepoPtr repo = RepoOf(inID);
        git::Oid head;
        if (git::FindBranchHead(repo, inBranch, head) != git::Answer::Found) return messages;
        git::WalkFirstParents(repo, git::GetCommit(repo, head), [&](const git::CommitPtr& inCommit) {
            messages.push_back(inCommit->Message());
            return true;
        });
        return messages;
    }
    static std::string Hex(const std::string& inBytes)
    {
        std::string text;
        for (const char byte : inBytes)
            text += "0123456789abcdef"[static_cast<unsigned char>(byte) % 16];
        return text;
    }
    static void Execute(const std::string& inFile, const std::string& inCommand)
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open(inFile.c_str(), &db));
        ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, inCommand.c_str(), nullptr, nullptr, nullptr)) << sqlite3_errmsg(db);
        sqlite3_close(db);
    }
    std::vector<std::string> Beside() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(mHome / "films"))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    static std::size_t Complaints()
    {
        std::size_t count = 0;
        for (const auto& [session, complaints] : ComplaintBox::Instance()->SessionComplaints())
            count += complaints.size();
        return count;
    }

    /// Of this process: where side folders are made.
    const std::string mOwnFolder = VYCL::LocalHub::GetTempFolder() + "/" + std::to_string(::getpid());
    const ImmutableString mFirst = "11111111-1111-4111-8111-111111111111";
    const ImmutableString mSecond = "22222222-2222-4222-8222-222222222222";
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
    for (const std::string& name : {std::string("a:b.lyr"), std::string("a?.lyr"), std::string("a\\b.lyr"),
                                    std::string("a\nb.lyr"), std::string(".."), std::string(300, 'x') + ".lyr"}) {
        Create(File(name), true, 400);
        Open(File(name), 400);
    }
    Create("relative.lyr", false, 400);
    EXPECT_EQ(7U,
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

TEST_F(RopeFileTest, ACopyHoldsTheStateAtARevisionUnderIdsOfItsOwn)
{
    dto::Session fromFile = Create(File());
    for (const dto::Session& source : {CreateSession(), fromFile}) {
        const ImmutableString id = source.mIdentifier;
        const dto::Session first = CommitAsset(id, mFirst, "one");
        CommitAsset(id, mSecond, "two");
        dto::MediaLocator locator;
        locator.mMediaLocatorID = "abc";
        locator.mProperties = dto::RawJSON(R"({"href":"x"})");
        ASSERT_EQ(200, mStore->AddMediaLocator(id, WriteMode::LocalEdit, locator));
        dto::UserEnclosure enclosure;
        enclosure.mEnclosureID = "enc1";
        enclosure.mName = "notes";
        ASSERT_EQ(200, mStore->AddUserEnclosure(id, "ann", WriteMode::LocalEdit, Bytes("mine"), enclosure));

        const std::string file = File("Copy of " + id.Text() + ".lyr");
        dto::Session copy;
        ASSERT_EQ(201, mStore->CopyToRopeFile(id, first.mRevision, file, false, copy));
        EXPECT_NE(id, copy.mIdentifier);
        EXPECT_NE(source.mRopeFileID, copy.mRopeFileID);
        EXPECT_EQ(GetAssets(id, first.mRevision), GetAssets(copy.mIdentifier)) << "content ids and all";
        std::vector<StoredVersion> versions;
        std::size_t total = 0;
        ASSERT_EQ(200, mStore->GetSessionHistory(copy.mIdentifier, 0, 10, versions, total));
        EXPECT_EQ(2U, total);
        EXPECT_NE(std::string::npos,
                  versions.front().mMessage.find("New Tessel Project created from an existing local Tessel Project"));
        dto::MediaLocator copied;
        ASSERT_EQ(200, mStore->GetMediaLocator(copy.mIdentifier, "abc", copied));
        EXPECT_EQ(locator, copied);
        ConstRecycledMemoryPtr payload;
        ASSERT_EQ(200, mStore->GetUserEnclosure(copy.mIdentifier, "ann", "enc1", enclosure, payload));
        EXPECT_EQ("mine", payload->View());
        EXPECT_TRUE(GetSession(copy.mIdentifier).mHasBin);

        EXPECT_EQ(409, mStore->CopyToRopeFile(id, {}, file, false, copy));
        EXPECT_EQ(201, mStore->CopyToRopeFile(id, {}, file, true, copy));
        EXPECT_EQ(2U, GetAssets(copy.mIdentifier).size());
        EXPECT_EQ(2U, GetAssets(id).size());
        EXPECT_EQ(404, mStore->CopyToRopeFile(id, std::string(40, 'a'), File("None.lyr"), false, copy));
        EXPECT_EQ(400, mStore->CopyToRopeFile(id, {}, File("No:ne.lyr"), false, copy));
        EXPECT_FALSE(fs::exists(File("None.lyr")));
        Close(copy.mIdentifier);
        EXPECT_EQ(2U, GetAssets(Open(file).mIdentifier).size());
    }
    dto::Session copy;
    EXPECT_EQ(400, mStore->CopyToRopeFile(fromFile.mIdentifier, {}, File(), true, copy));
    EXPECT_EQ(2U, GetAssets(fromFile.mIdentifier).size());
}

TEST_F(RopeFileTest, ContentThatWasChangedBehindTheStoresBackStopsACopyAndLeavesNothing)
{
    const dto::Session session = Create(File());
    CommitAsset(session.mIdentifier, mFirst, "one");
    Close(session.mIdentifier);
    Execute(File(), "UPDATE objects SET data='eno payload' WHERE data=CAST('one payload' AS BLOB)");
    const dto::Session opened = Open(File());
    dto::Session copy;
    EXPECT_EQ(500, mStore->CopyToRopeFile(opened.mIdentifier, {}, File("Copy.lyr"), false, copy));
    EXPECT_EQ(1U, mLog->Count("Failure in WalkAndCopy"));
    EXPECT_EQ(1U, mLog->Count("CopySessionData: Unable to copy local session"));
    EXPECT_FALSE(fs::exists(File("Copy.lyr")));
}

TEST_F(RopeFileTest, ThinningKeepsTheTreesAuthorsAndMessagesOfWhatIsKeptAndNothingElse)
{
    const ImmutableString id = Create(File()).mIdentifier;
    std::vector<ImmutableString> revisions;
    for (int count = 0; count < 30; ++count)
        revisions.push_back(CommitAsset(id, mFirst,
                                        std::to_string(count) + Hex(Noise(20000, static_cast<std::uint64_t>(count))),
                                        "commit " + std::to_string(count))
                                .mRevision);
    const AssociationForSync association{"https://hub.example", "p-remote", "remote", {}, "user", "corvane"};
    ASSERT_TRUE(mStore->WriteAssociationForSync(id, association));
    std::int64_t count = 0;
    for (const std::size_t which : {std::size_t{5}, std::size_t{20}}) {
        SyncPoint point;
        point.mLocalRevision = revisions[which];
        point.mRemoteRevision = "r" + std::to_string(which);
        ASSERT_TRUE(mStore->WriteSyncPoint(id, point, count));
    }
    const AssetList assets = GetAssets(id);
    const AssetList ofTen = GetAssets(id, revisions[10]);
    const std::string author = [&] {
        StoredVersion version;
        EXPECT_EQ(200, mStore->GetHistoryRevision(id, revisions[10], version));
        return version.mAuthorName;
    }();

    // Beside, into another file.
    const std::vector<ImmutableString> kept{revisions[10], revisions[20], revisions[29]};
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File("Thin.lyr"), kept));
    const dto::Session thin = Open(File("Thin.lyr"));
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    ASSERT_EQ(200, mStore->GetSessionHistory(thin.mIdentifier, 0, 10, versions, total));
    ASSERT_EQ(3U, total);
    EXPECT_EQ("commit 29", versions[0].mMessage);
    EXPECT_EQ("commit 20", versions[1].mMessage);
    EXPECT_EQ("commit 10", versions[2].mMessage);
    EXPECT_EQ(author, versions[2].mAuthorName);
    EXPECT_EQ(ofTen, GetAssets(thin.mIdentifier, versions[2].mCommitID));
    EXPECT_EQ(assets, GetAssets(thin.mIdentifier));
    SyncPoint point;
    ASSERT_TRUE(mStore->ReadLatestSyncPoint(thin.mIdentifier, point));
    EXPECT_EQ(versions[1].mCommitID, point.mLocalRevision);
    EXPECT_EQ("r20", point.mRemoteRevision);
    EXPECT_FALSE(mStore->ReadSyncPointForRemoteRevision(thin.mIdentifier, "r5", point)) << "its revision is gone";
    Close(thin.mIdentifier);

    // In its own place.
    const auto before = fs::file_size(File());
    {
        const git::RepoPtr used = RepoOf(id);
        EXPECT_EQ(423, mStore->ThinHistoryToRopeFile(id, File(), {}));
        EXPECT_EQ(31U, [&] {
            mStore->GetSessionHistory(id, 0, 1, versions, total);
            return total;
        }());
    }
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    ASSERT_EQ(200, mStore->GetSessionHistory(id, 0, 10, versions, total));
    EXPECT_EQ(1U, total);
    EXPECT_EQ(assets, GetAssets(id));
    EXPECT_TRUE(GetSession(id).mHasBin);
    CommitAsset(id, mSecond, "afterwards");
    Close(id);
    EXPECT_LT(fs::file_size(File()), before / 3);
    EXPECT_THAT(Beside(), ElementsAre("Feature.lyr", "Thin.lyr"));
    EXPECT_EQ(2U, GetAssets(Open(File()).mIdentifier).size());
    EXPECT_EQ(400, mStore->ThinHistoryToRopeFile(CreateSession().mIdentifier, File("Folder.lyr"), {}));
}

TEST_F(RopeFileTest, AListOfOneRevisionGivesAFileOfOneCommitWithItselfAsBackup)
{
    const ImmutableString id = Create(File()).mIdentifier;
    const dto::Session first = CommitAsset(id, mFirst, "one");
    CommitAsset(id, mSecond, "two");
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File("Thin.lyr"), {first.mRevision}));
    const dto::Session thin = Open(File("Thin.lyr"));
    EXPECT_EQ(1U, Messages(thin.mIdentifier, "session").size());
    EXPECT_EQ(1U, GetAssets(thin.mIdentifier).size());
    const git::RepoPtr repo = RepoOf(thin.mIdentifier);
    EXPECT_EQ(thin.mRevision.Text(), git::GetBranchHead(repo, "session_backup").Text());
    const auto tree = git::GetTreeAtCommit(repo, git::GetCommitForBranch(repo, "production_backup"));
    EXPECT_EQ(thin.mRopeFileID.View(), git::GetBlob(repo, tree, "uniqueid")->Content()) << "of this project";
}

TEST_F(RopeFileTest, WhatAnOpenTransactionBroughtStandsInTheWayOfCompaction)
{
    const ImmutableString id = Create(File()).mIdentifier;
    CommitAsset(id, mFirst, "one");
    const ImmutableString transaction = OpenTransaction(id);
    Add(transaction, MakeAsset("two", "clip", {{"payload", "bytes"}}), mSecond);
    EXPECT_EQ(423, mStore->ThinHistoryToRopeFile(id, File(), {}));
    ASSERT_EQ(200, Commit(transaction));
    EXPECT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    EXPECT_EQ(2U, GetAssets(id).size());
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

TEST_F(RopeFileTest, ACopyThatFailsLeavesTheFileThatItWasToReplace)
{
    const dto::Session source = Create(File());
    CommitAsset(source.mIdentifier, mFirst, "one");
    Close(source.mIdentifier);
    Execute(File(), "UPDATE objects SET data='eno payload' WHERE data=CAST('one payload' AS BLOB)");
    const dto::Session target = Create(File("Target.lyr"));
    const dto::Session kept = CommitAsset(target.mIdentifier, mSecond, "kept");
    const ImmutableString id = Open(File()).mIdentifier;
    dto::Session copy;
    EXPECT_EQ(404, mStore->CopyToRopeFile(id, std::string(40, 'a'), File("Target.lyr"), true, copy));
    EXPECT_EQ(kept.mRevision, GetSession(target.mIdentifier).mRevision) << "nothing was closed for it";
    EXPECT_EQ(500, mStore->CopyToRopeFile(id, {}, File("Target.lyr"), true, copy));
    EXPECT_EQ(kept.mRevision, Open(File("Target.lyr")).mRevision);
    mScheduler->RunUntilIdle();
    EXPECT_THAT(Beside(), testing::Not(testing::Contains("Target.lyr-copying")));
}

TEST_F(RopeFileTest, ACopyStaysHereUntilSomebodySaysOtherwise)
{
    dto::Session copy;
    ASSERT_EQ(201, mStore->CopyToRopeFile(CreateSession().mIdentifier, {}, File(), false, copy));
    EXPECT_TRUE(copy.mLocalOnly);
    Close(copy.mIdentifier);
    EXPECT_TRUE(Open(File()).mLocalOnly);
}

TEST_F(RopeFileTest, AFileIsWatchedForRoomAndUpgradedByNobody)
{
    const ImmutableString id = Create(File()).mIdentifier;
    EXPECT_EQ(404, mStore->UpgradeRepository(id));
    EXPECT_EQ(404, mStore->DowngradeRepository(id));
    EXPECT_EQ(1U, GetSession(id).mRevision.empty() ? 0U : 1U);
}

}  // namespace
