#include "Tests/Support/StoreTest.h"

#include <sqlite3.h>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/GitBoxIO.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace {

using namespace testing_support;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

class SessionTest : public StoreTest
{
protected:
    static std::string FolderOf(const dto::Session& inSession)
    {
        return GitBox::Folder::SessionFolder(inSession.mIdentifier, SessionKind::LocalOnly);
    }

    static std::string FileText(const std::string& inPath)
    {
        std::string text;
        EXPECT_TRUE(Files().ReadFile(inPath, text)) << inPath;
        return text;
    }

    const ImmutableString mID = "11111111-1111-4111-8111-111111111111";
};

TEST_F(SessionTest, ANewSessionLiesOnDiskAsItIsFoundAgain)
{
    const dto::Session session = CreateSession();
    EXPECT_EQ("p-" + session.mIdentifier.Text(), session.mProductionID.Text());
    EXPECT_EQ(session.mRevision, session.mProductionRevision);
    const std::string folder = FolderOf(session);
    EXPECT_EQ(session.mIdentifier.View(), FileText(Join(folder, "sessionid")));
    EXPECT_EQ(session.mProductionID.View(), FileText(Join(folder, "productionid")));
    EXPECT_EQ(R"({"dataModel":"2.0.1","suiteClient":"2025"})", FileText(Join(folder, "version")));
    EXPECT_TRUE(Files().FileExists(Join(folder, "session.sqlite3")));
    ReopenStore();
    const dto::Session found = GetSession(session.mIdentifier);
    EXPECT_EQ(session.mRevision, found.mRevision);
    EXPECT_EQ(session.mProperties, found.mProperties);
    EXPECT_EQ(session.mModified, found.mModified);
    EXPECT_EQ(found.mIdentifier, GetSession(session.mProductionID).mIdentifier);
    EXPECT_EQ(1U, mStore->GetSessions().size());
    EXPECT_EQ(1U, mStore->GetSessionsOfProduction(session.mProductionID).size());
}

TEST_F(SessionTest, TheFirstCommitTellsThatTheProjectWasInitialized)
{
    const dto::Session session = CreateSession();
    StoredVersion version;
    ASSERT_EQ(200, mStore->GetHistoryRevision(session.mIdentifier, session.mRevision, version));
    noxcore::serialization::JSONDocument message;
    ASSERT_TRUE(message.Parse(version.mMessage));
    std::string text;
    ASSERT_TRUE(message.Root()["commitMessage"].GetString(text));
    EXPECT_EQ("Local Tessel Project data initialized", text);
    std::int64_t code = 0;
    ASSERT_TRUE(message.Root()["commitMessageCode"].GetInt64(code));
    EXPECT_EQ(1, code);
    std::string keys;
    for (const auto& child : message.Root()["metadata"].Children())
        keys += child.Key() + ";";
    EXPECT_EQ(
        "applicationName;applicationBuildNumber;applicationInstanceID;machineID;machineName;machineIP;transactionType;",
        keys);
    EXPECT_FALSE(message.Root()["localCommitID"].Exists());
    EXPECT_EQ("localhub 25.3.0.71", version.mCommitter);
    EXPECT_EQ("", version.mAuthorEmail);
    EXPECT_TRUE(version.mParents.empty());
}

TEST_F(SessionTest, ACommitMessageOfTheHubsOwnWritesItsPartsOnlyWhereTheySaySomething)
{
    EXPECT_EQ(std::string::npos,
              GitBox::MakeCommitMessage(GitBox::CommitMessageCode::None, "text").find("commitMessageCode"));
    const std::string shared =
        GitBox::MakeCommitMessage(GitBox::CommitMessageCode::SharedWithComment, "for you", "abc");
    EXPECT_NE(std::string::npos, shared.find(R"("commitMessage":"for you")"));
    EXPECT_NE(std::string::npos, shared.find(R"("commitMessageCode":12,"localCommitID":"abc"})"));
}

TEST_F(SessionTest, ASessionIsNotMadeOnTopOfAnother)
{
    const dto::Session session = CreateSession();
    GitBox::IO::RepoPtr repo;
    GitBox::IO::DbPtr db;
    dto::Session made;
    EXPECT_FALSE(GitBox::IO::InitSession(FolderOf(session), "x", "p-x", {}, repo, db, made));
    EXPECT_EQ(1U, mLog->Count("InitSession: Won't create a session folder on top of an existing session folder"));
}

TEST_F(SessionTest, ACreationOverAHalfMadeFolderGoesOn)
{
    const std::string folder = Join(GitBox::Folder::LocalSessions(), "half.lyra2");
    ASSERT_TRUE(Files().EnsureDirectoryExists(Join(folder, "git")));
    GitBox::IO::RepoPtr repo;
    GitBox::IO::DbPtr db;
    dto::Session made;
    EXPECT_TRUE(GitBox::IO::InitSession(folder, "half", "p-half", {}, repo, db, made));
    EXPECT_TRUE(GitBox::IO::IsLiveSessionFolder(folder));
}

TEST_F(SessionTest, AFolderThatCannotBeMadeFailsTheCreation)
{
    ASSERT_TRUE(Files().EnsureDirectoryExists(mHome.Path()));
    ASSERT_TRUE(Files().WriteFileDurably(mHome / "file", "x"));
    GitBox::IO::RepoPtr repo;
    GitBox::IO::DbPtr db;
    dto::Session made;
    EXPECT_FALSE(GitBox::IO::InitSession(mHome / "file/s.lyra2", "s", "p-s", {}, repo, db, made));
    EXPECT_EQ(1U, mLog->Count("InitSession: Can't create session folder"));
}

TEST_F(SessionTest, AFolderMarkedDeletedIsNoSession)
{
    const dto::Session session = CreateSession();
    ASSERT_TRUE(Files().WriteFileDurably(Join(FolderOf(session), "deleted"), ""));
    EXPECT_FALSE(GitBox::IO::IsLiveSessionFolder(FolderOf(session)));
    ReopenStore();
    EXPECT_FALSE(mStore->SessionExists(session.mIdentifier));
}

TEST_F(SessionTest, AFolderWhoseIdDiffersFromItsRepositoryIsRefused)
{
    const dto::Session session = CreateSession();
    ASSERT_TRUE(Files().WriteFileDurably(Join(FolderOf(session), "sessionid"), "somebody else"));
    ReopenStore();
    EXPECT_TRUE(mStore->GetSessions().empty());
    const auto records = mLog->Find("Session or production ID mismatch in git repository");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("somebody else", records[0].Value("fileSessionID"));
    EXPECT_EQ(session.mIdentifier.View(), records[0].Value("gitSessionID"));
    EXPECT_EQ("(outSession.identifier != sessionID) || !result", records[0].Value("expression"));
}

TEST_F(SessionTest, VersionsOfThisAndOlderProgramsAreReadAndNewerOnesAreNot)
{
    const struct
    {
        const char* mDataModel;
        const char* mSuiteClient;
        bool mSupported;
    } rows[] = {{"2.0.1", "2025", true},  {"2.0.1", "2017", true},        {"1.0.1", "2017", true},
                {"2.0.1", "2026", false}, {"3.0.0", "2017", false},       {"2.0.1", "nonsense", true},
                {"2.0.1", "-5", true},    {"2.0.1", "99999999999", true}, {"2.0.1", "2024 beta", true},
                {"", "", false}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.mSupported, GitBox::IO::IsSupportedVersion({row.mDataModel, row.mSuiteClient}))
            << row.mDataModel << " " << row.mSuiteClient;
    }
    EXPECT_EQ(257, static_cast<int>(GitBox::IO::RepositoryFormatFromText("1.0.1")));
    EXPECT_EQ(513, static_cast<int>(GitBox::IO::RepositoryFormatFromText("2.0.1")));
    EXPECT_EQ(0, static_cast<int>(GitBox::IO::RepositoryFormatFromText("2.0")));
}

TEST_F(SessionTest, AVersionFileWithNonsenseMakesTheSessionUnreadableAndLosesNothing)
{
    const dto::Session session = CreateSession();
    ASSERT_TRUE(Files().WriteFileDurably(Join(FolderOf(session), "version"), "}{"));
    ReopenStore();
    EXPECT_FALSE(mStore->SessionExists(session.mIdentifier));
    EXPECT_EQ(1U, mLog->Count("Unsupported persisted session version"));
    ASSERT_TRUE(Files().WriteFileDurably(Join(FolderOf(session), "version"),
                                         R"({"SerializerWrappedObject":{"dataModel":"2.0.1","suiteClient":"2017"}})"));
    ReopenStore();
    EXPECT_TRUE(mStore->SessionExists(session.mIdentifier));
}

TEST_F(SessionTest, AProductionWithoutAssetsHasAnEmptyListAndSaysSo)
{
    const dto::Session session = CreateSession();
    EXPECT_TRUE(GetAssets(session.mIdentifier).empty());
    EXPECT_GE(mLog->Count("Unable to get asset tree (this may be a new production with no assets)"), 1U);
}

TEST_F(SessionTest, AssetsKeepTheirPropertiesDigitForDigitThroughCommitAndRestart)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    AssetContent content;
    content.mAsset.mProperties = dto::RawJSON(R"({"n":9007199254740993,"h":1e400,"a":1,"a":2,"e":"\u00e9\/"})");
    const dto::Asset added = Add(transaction, content, mID);
    dto::Session committed;
    ASSERT_EQ(200, Commit(transaction, &committed));
    EXPECT_NE(session.mRevision, committed.mRevision);
    ReopenStore();
    dto::Asset asset;
    ASSERT_EQ(200, mStore->GetAsset(session.mIdentifier, {}, mID, asset));
    EXPECT_EQ(content.mAsset.mProperties, asset.mProperties);
    EXPECT_EQ(added.mAssetContentID, asset.mAssetContentID);
    EXPECT_EQ(asset.mAssetContentID, asset.mEtag);
    EXPECT_EQ(404, mStore->GetAsset(session.mIdentifier, session.mRevision, mID, asset));
    EXPECT_EQ(404, mStore->GetAsset(session.mIdentifier, std::string(40, '0'), mID, asset));
    EXPECT_EQ(404, mStore->GetAsset(session.mIdentifier, {}, "22222222-2222-4222-8222-222222222222", asset));
}

TEST_F(SessionTest, EveryReadOfARevisionThatIsNotThereTellsWhichOneItWas)
{
    const dto::Session session = CreateSession();
    const ImmutableString id = session.mIdentifier;
    const ImmutableString unknown(std::string(40, '7'));
    dto::Asset asset;
    AssetListPtr assets;
    dto::Enclosure enclosure;
    std::vector<dto::Enclosure> enclosures;
    ConstRecycledMemoryPtr payload;
    dto::Session record;
    dto::ConflictMarker marker;
    const std::function<int()> reads[] = {
        [&] { return mStore->GetAsset(id, unknown, mID, asset); },
        [&] { return mStore->GetAssets(id, unknown, {}, true, assets); },
        [&] { return mStore->GetAssetEnclosure(id, unknown, mID, mID, payload); },
        [&] { return mStore->GetProductionEnclosures(id, unknown, enclosures); },
        [&] { return mStore->GetProductionEnclosure(id, unknown, mID, enclosure, payload); },
        [&] { return mStore->GetProduction(id, unknown, record); },
        [&] { return mStore->GetConflictInfo(id, unknown, mID, marker); },
    };
    std::size_t number = 0;
    for (const auto& read : reads) {
        SCOPED_TRACE(number++);
        mLog->Clear();
        EXPECT_EQ(404, read());
        const auto heads = mLog->Find("Unable to get head tree for repository");
        ASSERT_EQ(1U, heads.size());
        EXPECT_EQ(unknown.View(), heads[0].Value("revision"));
        const auto failures = mLog->Find("Git operation error");
        ASSERT_EQ(1U, failures.size());
        EXPECT_EQ(unknown.View(), failures[0].Value("arg1"));
    }
    mLog->Clear();
    EXPECT_EQ(404, mStore->GetAssets(id, "nowhere", {}, true, assets));
    EXPECT_EQ(1U, mLog->Count("Git operation error"));
    EXPECT_FALSE(mStore->RevisionExists(id, unknown));
    EXPECT_EQ(2U, mLog->Count("Git operation error"));
}

TEST_F(SessionTest, ATreeThatIsNoAssetIsNotFoundAsOne)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("clip", "clip", {{"proxy", "payload"}}), mID);
    ASSERT_EQ(200, Commit(transaction));
    GitBox::Sandbox::Handles handles;
    ASSERT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(session.mIdentifier)->RetainDB(handles));
    GitBox::IO::TreePtr root;
    ASSERT_EQ(GitBox::IO::ReadResult::Found, GitBox::IO::GetTreeAtRevision(handles.mRepo, {}, root));
    const auto bucket = noxstorage::git::GetTree(handles.mRepo, root, "assets/11");
    ASSERT_TRUE(bucket);
    dto::Asset asset;
    EXPECT_EQ(404, mStore->GetAssetByContentHash(session.mIdentifier, bucket->ID().Text(), mID, asset));
    EXPECT_EQ(404, mStore->RestoreAsset(OpenTransaction(session.mIdentifier), mID, bucket->ID().Text(), asset));
    EXPECT_EQ(2U, mLog->Count("Unable to get asset tree from repository"));
}

TEST_F(SessionTest, AProductionEnclosureWithoutANameHasNoNameInItsTree)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    EnclosureContent content;
    content.mEnclosure.mEnclosureID = mID;
    content.mPayload = Bytes("poster");
    dto::Enclosure added;
    ASSERT_EQ(200, mStore->AddOrUpdateProductionEnclosure(transaction, content, added));
    dto::Session committed;
    ASSERT_EQ(200, Commit(transaction, &committed));
    dto::Enclosure found;
    ConstRecycledMemoryPtr payload;
    ASSERT_EQ(200, mStore->GetProductionEnclosure(session.mIdentifier, {}, mID, found, payload));
    EXPECT_EQ("", found.mName);
    EXPECT_EQ("poster", payload->View());
    GitBox::Sandbox::Handles handles;
    ASSERT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(session.mIdentifier)->RetainDB(handles));
    const auto commit = GitBox::IO::ResolveCommit(handles.mRepo, {});
    const auto root = noxstorage::git::GetTreeAtCommit(handles.mRepo, commit);
    EXPECT_TRUE(noxstorage::git::GetBlob(handles.mRepo, root, "enclosures/11/" + mID.Text() + "/content"));
    EXPECT_FALSE(noxstorage::git::GetBlob(handles.mRepo, root, "enclosures/11/" + mID.Text() + "/name"));
}

TEST_F(SessionTest, TheHashOfAnEmptyPayloadIsAnEmptyText)
{
    const dto::Session session = CreateSession();
    EXPECT_TRUE(mStore->ComputeContentHash(session.mIdentifier, Bytes("")).empty());
    // The id that git gives the same bytes.
    EXPECT_EQ("ce013625030ba8dba906f756967f9e9ca394464a",
              mStore->ComputeContentHash(session.mIdentifier, Bytes("hello\n")));
}

TEST_F(SessionTest, TheHashOverSeveralAssetsDependsOnTheLast)
{
    const dto::Session session = CreateSession();
    dto::Asset first;
    first.mProperties = dto::RawJSON(R"({"name":"first"})");
    dto::Asset second;
    second.mProperties = dto::RawJSON(R"({"name":"second"})");
    const auto both = mStore->ComputeContentHash(session.mIdentifier, std::vector{first, second});
    EXPECT_EQ(both, mStore->ComputeContentHash(session.mIdentifier, std::vector{second}));
    EXPECT_NE(both, mStore->ComputeContentHash(session.mIdentifier, std::vector{second, first}));
}

TEST_F(SessionTest, AnUnchangedTreeIsCommittedAllTheSame)
{
    const dto::Session session = CreateSession();
    dto::Session committed;
    ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier), &committed));
    EXPECT_NE(session.mRevision, committed.mRevision);
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    ASSERT_EQ(200, mStore->GetSessionHistory(session.mIdentifier, 0, 10, versions, total));
    ASSERT_EQ(2U, total);
    EXPECT_EQ("a commit", versions[0].mMessage);
    EXPECT_EQ(2, versions[0].mVersionNumber);
    EXPECT_EQ(1, versions[1].mVersionNumber);
}

TEST_F(SessionTest, ARevisionThatIsNamedIsReadWithoutTheHistoryBelowIt)
{
    const dto::Session session = CreateSession();
    dto::Session committed;
    ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier)));
    ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier), &committed));
    const std::string file = Join(Join(FolderOf(session), "git"), "odb.sqlite3");
    mStore.reset();
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(file.c_str(), &db));
    const std::string lose = "DELETE FROM objects WHERE oid=x'" + session.mRevision.Text() + "'";
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, lose.c_str(), nullptr, nullptr, nullptr)) << sqlite3_errmsg(db);
    EXPECT_EQ(1, sqlite3_changes(db));
    sqlite3_close(db);
    ReopenStore();

    StoredVersion version;
    ASSERT_EQ(200, mStore->GetHistoryRevision(session.mIdentifier, committed.mRevision, version));
    EXPECT_EQ(committed.mRevision, version.mCommitID);
    EXPECT_EQ("a commit", version.mMessage);
    EXPECT_EQ(1U, version.mParents.size());
    ASSERT_EQ(200, mStore->GetHistoryRevision(session.mIdentifier, "HEAD", version));
    EXPECT_EQ(committed.mRevision, version.mCommitID);
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    EXPECT_EQ(500, mStore->GetSessionHistory(session.mIdentifier, 0, 10, versions, total)) << "the first is lost";
    EXPECT_EQ(404, mStore->GetHistoryRevision(session.mIdentifier, session.mRevision, version));
}

TEST_F(SessionTest, ARequiredHeadOfOtherContentIsAConflictAndOneOfTheSameTreeIsNot)
{
    const dto::Session session = CreateSession();
    const auto stale = OpenTransaction(session.mIdentifier, session.mRevision);
    const auto sameTree = OpenTransaction(session.mIdentifier, session.mRevision);
    ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier)));  // moves the head, keeps the tree
    EXPECT_EQ(200, Commit(sameTree));
    const auto change = OpenTransaction(session.mIdentifier);
    Add(change, MakeAsset("clip"), mID);
    ASSERT_EQ(200, Commit(change));
    EXPECT_EQ(409, Commit(stale));
    EXPECT_EQ(1U, mLog->Count("CommitTransaction: session HEAD does not match transaction required HEAD"));
    dto::TransactionResource refused;
    EXPECT_EQ(409, mStore->OpenTransaction(session.mIdentifier, session.mRevision, "Edit", {}, refused));
    const auto records = mLog->Find("OpenTransaction: session HEAD does not match transaction required HEAD");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(session.mRevision.View(), records[0].Value("transactionHeadRevision"));
    EXPECT_EQ(404, mStore->OpenTransaction("nobody", {}, "Edit", {}, refused));
}

TEST_F(SessionTest, ARevertIsANewCommitWithTheOlderTree)
{
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("bin", "bin"), mID);
    ASSERT_EQ(200, Commit(transaction));
    ImmutableString revision;
    ASSERT_EQ(200, mStore->RevertSession(session.mIdentifier, session.mRevision, revision));
    EXPECT_TRUE(GetAssets(session.mIdentifier).empty());
    EXPECT_FALSE(GetSession(session.mIdentifier).mHasBin);
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    ASSERT_EQ(200, mStore->GetSessionHistory(session.mIdentifier, 0, 1, versions, total));
    EXPECT_EQ(3U, total);
    EXPECT_NE(std::string::npos, versions[0].mMessage.find("Reverted Local Tessel Project to a prior version"));
    EXPECT_EQ(404, mStore->RevertSession(session.mIdentifier, std::string(40, 'f'), revision));
}

TEST_F(SessionTest, TheProductionBranchMovesOnlyWhenItIsAdvanced)
{
    const dto::Session session = CreateSession();
    ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier)));
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("clip"), mID);
    dto::Session committed;
    ASSERT_EQ(200, Commit(transaction, &committed));
    EXPECT_EQ(session.mProductionRevision, GetSession(session.mIdentifier).mProductionRevision);
    ASSERT_EQ(200, mStore->AdvanceProduction(session.mIdentifier, committed.mRevision));
    const auto advanced = GetSession(session.mIdentifier).mProductionRevision;
    EXPECT_NE(session.mProductionRevision, advanced);
    EXPECT_NE(committed.mRevision, advanced);
    EXPECT_EQ(1U, GetAssets(session.mIdentifier, "production").size());
    ASSERT_EQ(200, mStore->ResetProductionToRevision(session.mIdentifier, session.mRevision));
    EXPECT_TRUE(GetAssets(session.mIdentifier, "production").empty());
    ReopenStore();
    EXPECT_TRUE(GetAssets(session.mIdentifier, "production").empty());
}

TEST_F(SessionTest, ADeletedSessionIsGoneFromDiskAndFromTheLists)
{
    const dto::Session session = CreateSession();
    const std::string folder = FolderOf(session);
    EXPECT_EQ(200, mStore->DeletePersistedSessionData(session.mIdentifier));
    EXPECT_FALSE(Files().DirectoryExists(folder));
    EXPECT_FALSE(mStore->SessionExists(session.mIdentifier));
    EXPECT_FALSE(mStore->SessionExists(session.mProductionID));
    const auto records = mLog->Find("Deleted local session");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("true", records[0].Value("deletedFolder"));
    EXPECT_EQ(404, mStore->DeletePersistedSessionData(session.mIdentifier));
}

TEST_F(SessionTest, ASessionThatSomebodyElseHasTakenApartIsDeletedWithWhatIsLeft)
{
    for (const bool whole : {false, true}) {
        const dto::Session session = CreateSession();
        const std::string folder = FolderOf(session);
        auto& files = noxcore::filesupport::Files();
        ASSERT_TRUE(whole ? noxcore::filesupport::Dir::Delete(folder) : files.DeleteFile(folder + "/sessionid"));
        mLog->Clear();
        EXPECT_EQ(200, mStore->DeletePersistedSessionData(session.mIdentifier));
        EXPECT_FALSE(files.DirectoryExists(folder)) << whole;
        const auto records = mLog->Find("Deleted local session");
        ASSERT_EQ(1U, records.size());
        EXPECT_EQ("true", records[0].Value("deletedFolder")) << whole;
        EXPECT_EQ(404, mStore->DeletePersistedSessionData(session.mIdentifier));
    }
}

TEST_F(SessionTest, WhoFoundASessionBeforeItsDeletionMakesNothingInItsFolder)
{
    const dto::Session session = CreateSession();
    const std::string folder = FolderOf(session);
    const auto sandbox = GitBox::Sandboxes::Instance()->FindSandbox(session.mIdentifier);
    const auto withoutSyncDb = GitBox::Sandbox::Create(folder, session, {});
    const auto syncDb = sandbox->GetSyncDb();
    ASSERT_EQ(200, mStore->DeletePersistedSessionData(session.mIdentifier));
    withoutSyncDb->NoteDeleted();
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder));  // as while its files are being deleted
    dto::Asset asset;
    bool localOnly = false;
    EXPECT_EQ(500, sandbox->GetAsset({}, mID, asset));
    EXPECT_EQ(500, sandbox->FlushContent());
    EXPECT_FALSE(syncDb->ReadLocalOnly(localOnly));
    EXPECT_TRUE(withoutSyncDb->IsLocalOnly());
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    ASSERT_TRUE(Files().ListDirectory(folder, entries));
    EXPECT_TRUE(entries.empty()) << entries.front().mName;
}

TEST_F(SessionTest, LocalOnlyOutlivesARestart)
{
    const dto::Session session = CreateSession();
    EXPECT_FALSE(GetSession(session.mIdentifier).mLocalOnly);
    ASSERT_TRUE(mStore->WriteLocalOnlyMode(session.mIdentifier));
    EXPECT_TRUE(GetSession(session.mIdentifier).mLocalOnly);
    ReopenStore();
    EXPECT_TRUE(GetSession(session.mIdentifier).mLocalOnly);
    ASSERT_TRUE(mStore->WriteSynchronizedMode(session.mIdentifier));
    EXPECT_FALSE(GetSession(session.mIdentifier).mLocalOnly);
}

TEST_F(SessionTest, EveryChangeOfASessionIsPosted)
{
    const dto::Session session = CreateSession();
    std::vector<ImmutableString> changed;
    const auto listener = ProjectBox::Station()->Listen<ProjectBox::SessionChangedMessage>(
        [&](const ProjectBox::SessionChangedMessage& inMessage) { changed.push_back(inMessage.mSessionID); });
    ASSERT_EQ(200, Commit(OpenTransaction(session.mIdentifier)));
    ImmutableString revision;
    ASSERT_EQ(200, mStore->RevertSession(session.mIdentifier, session.mRevision, revision));
    mScheduler->RunUntilIdle();
    EXPECT_EQ((std::vector<ImmutableString>{session.mIdentifier, session.mIdentifier}), changed);
}

TEST_F(SessionTest, TheSizeOfASessionCountsItsHead)
{
    const dto::Session session = CreateSession(R"({"name":"Feature"})");
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("clip", "clip", {{"proxy", std::string(1000, 'x')}}), mID);
    ASSERT_EQ(200, Commit(transaction));
    dto::SizeInfo info;
    ASSERT_EQ(200, mStore->GetSizeInfo(session.mIdentifier, true, info));
    EXPECT_EQ(1, info.mAssets);
    EXPECT_EQ(1, info.mAssetEnclosures);
    EXPECT_EQ(0, info.mProductionEnclosures);
    EXPECT_EQ(2, info.mAutosaves);
    EXPECT_EQ(0, info.mMediaLocators);
    EXPECT_GT(info.mSizeOfHead, 1000);
    EXPECT_GT(info.mSizeOnDisk, info.mSizeOfHead / 2);
    EXPECT_EQ(GetSession(session.mIdentifier).mRevision, info.mCommitID);
    ASSERT_EQ(200, mStore->GetSizeInfo(session.mIdentifier, false, info));
    EXPECT_EQ(0, info.mAutosaves);
}

TEST_F(SessionTest, TheStoreTakesItsLocksInOrder)
{
    const unsigned before = noxcore::threads::LockOrderViolations();
    const dto::Session session = CreateSession();
    const auto transaction = OpenTransaction(session.mIdentifier);
    Add(transaction, MakeAsset("clip", "bin", {{"a", "b"}}), mID);
    ASSERT_EQ(200, Commit(transaction));
    mStore->WriteLocalOnlyMode(session.mIdentifier);
    mStore->GetSessions();
    dto::SizeInfo info;
    mStore->GetSizeInfo(session.mIdentifier, true, info);
    mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks() + 1);
    GetAssets(session.mIdentifier);
    mStore->DeletePersistedSessionData(session.mIdentifier);
    EXPECT_EQ(before, noxcore::threads::LockOrderViolations());
}

}  // namespace
