// What is told of a single file that cannot be read or written, and that it goes on once it can.

#include "Inc/Model/ComplaintBox.h"
#include "Inc/Model/RopeFileBranches.h"
#include "Tests/Model/RopeFilePlaces.h"
#include "Tests/Support/SmallVolume.h"

namespace {

using namespace testing_support;
using testing::IsEmpty;

class RopeFileFailures : public RopeFilePlaces
{
protected:
    int AddEnclosure(const ImmutableString& inID, const std::string& inUser)
    {
        dto::UserEnclosure enclosure;
        enclosure.mEnclosureID = "enc1";
        enclosure.mName = "notes";
        return mStore->AddUserEnclosure(inID, inUser, WriteMode::LocalEdit, Bytes("x"), enclosure);
    }
    /// Codes and texts of the complaints of a session.
    static std::map<std::int64_t, std::string> ComplaintsOf(const ImmutableString& inID)
    {
        std::map<std::int64_t, std::string> complaints;
        ComplaintBox::Table table = ComplaintBox::Instance()->SessionComplaints();
        for (const auto& [id, complaint] : table[inID.Text()])
            complaints[complaint.mErrorCode] = complaint.mErrorString;
        return complaints;
    }
    /// The tree at a path of a branch; an empty path: the whole one.
    static std::string TreeAt(const ImmutableString& inID, std::string_view inBranch, std::string_view inPath)
    {
        git::RepoPtr repo;
        RopeFile::TreePtr tree;
        EXPECT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(inID)->RetainRepo(repo));
        EXPECT_TRUE(RopeFile::ReadBranch(repo, inBranch, tree));
        if (!inPath.empty()) tree = git::GetTree(repo, tree, inPath);
        EXPECT_TRUE(tree) << inPath;
        return tree ? tree->ID().Text() : std::string();
    }
    static std::size_t SideFolders()
    {
        const std::string folder = VYCL::LocalHub::GetTempFolder() + "/" + std::to_string(getpid());
        std::error_code error;
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder, error), fs::directory_iterator()));
    }
};

TEST_F(RopeFileFailures, AnAssetThatCannotBeWrittenIsComplainedOfAndTheFileLetGo)
{
    const dto::Session session = MakeFile();
    const ImmutableString transaction = OpenTransaction(session.mIdentifier);
    CloseAll();
    const std::string whole = ReadWhole(File());
    WriteWhole(File(), std::string(whole.size(), 'x'));
    dto::Asset added;
    const ImmutableString asset = "11111111-1111-4111-8111-111111111111";
    EXPECT_EQ(500, mStore->AddAsset(transaction, asset, MakeAsset("two"), added));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(0U, SideFolders());
    const auto complaints = ComplaintsOf(session.mIdentifier);
    ASSERT_TRUE(complaints.contains(0xa045002c));
    EXPECT_THAT(complaints.at(0xa045002c), testing::HasSubstr(asset.Text()));
    WriteWhole(File(), whole);
    EXPECT_EQ(200, mStore->AddAsset(transaction, asset, MakeAsset("two"), added));
    EXPECT_EQ(200, Commit(transaction));
    EXPECT_EQ(2U, GetAssets(session.mIdentifier).size());
}

TEST_F(RopeFileFailures, AMediaLocatorForWhichThereIsNoRoomIsToldOfAndNotThere)
{
    const ImmutableString id = MakeFile().mIdentifier;
    ASSERT_EQ(200, AddLocator(id, "aaa"));
    mLog->Clear();
    mVfs->SetFault({.mOperation = FileOperation::Write,
                    .mNth = 1,
                    .mCode = SQLITE_FULL,
                    .mFromThenOn = true,
                    .mOnlyEndingIn = ".lyr"});
    EXPECT_EQ(500, AddLocator(id, "bbb"));
    EXPECT_EQ(1U, mLog->Count("AddMediaLocator: Failed to write media locator to Db."));
    mVfs->ClearFaults();
    CloseAll();
    std::vector<dto::MediaLocator> locators;
    ASSERT_EQ(200, mStore->GetMediaLocators(id, locators));
    ASSERT_EQ(1U, locators.size());
    EXPECT_EQ("aaa", locators.front().mMediaLocatorID);
    EXPECT_EQ(200, AddLocator(id, "bbb"));
    EXPECT_EQ(1U, mLog->Count("AddMediaLocator: Failed to write media locator to Db."));
}

TEST_F(RopeFileFailures, ASideBranchThatCannotBeReadIsToldOfAndStopsACopy)
{
    struct Damage
    {
        const char* mMessage;
        std::string_view mBranch;
        const char* mPath;
    };
    const Damage damages[] = {
        {"ReadAllSessionData: failed to read media locators", RopeFile::kBranch_MediaLocators, ""},
        {"ReadAllSessionData: failed to read media locators", RopeFile::kBranch_MediaLocators, "medialocators/local"},
        {"ReadAllSessionData: failed to read user enclosures", RopeFile::kBranch_UserEnclosures, ""},
        {"ReadAllSessionData: failed to read user enclosures", RopeFile::kBranch_UserEnclosures, "userenclosures/ann"},
        {"ReadAllSessionData: failed to read key value table", RopeFile::kBranch_KeyValue, ""}};
    for (const auto& [message, branch, path] : damages) {
        SCOPED_TRACE(std::string(branch) + "/" + path);
        const ImmutableString id = MakeFile().mIdentifier;
        ASSERT_EQ(200, AddLocator(id, "aaa"));
        ASSERT_EQ(200, AddEnclosure(id, "ann"));
        ASSERT_EQ(200, mStore->WriteRopeFileValue(id, "color", "blue"));
        const std::string tree = TreeAt(id, branch, path);
        CloseAll();
        ForgetAll();
        Execute(File(), "UPDATE objects SET data=substr(data,1,10) WHERE oid=x'" + tree + "'");
        mLog->Clear();
        dto::Session session;
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), session));
        EXPECT_EQ(500, mStore->CopyToRopeFile(id, {}, File("Copy.lyr"), false, session));
        EXPECT_EQ(1U, mLog->Count(message));
        EXPECT_EQ(1U, GetAssets(id).size()) << "the history is another branch";
        CloseAll();
        EXPECT_THAT(Listed(), ElementsAre("Film.lyr"));
        ASSERT_EQ(200, mStore->DeletePersistedSessionData(id));
    }
}

TEST_F(RopeFileFailures, AThinnedFileForWhichThereIsNoSideFolderIsToldOfAndNotThere)
{
    const dto::Session session = MakeFile();
    const ImmutableString id = session.mIdentifier;
    ASSERT_EQ(1U, GetAssets(id).size()) << "it is open";
    for (const char* const name : {"Film.lyr", "Thin.lyr"}) {
        SCOPED_TRACE(name);
        mLog->Clear();
        mVfs->SetFault(
            {.mOperation = FileOperation::MakeFolder, .mNth = 1, .mCode = SQLITE_IOERR, .mFromThenOn = true});
        EXPECT_EQ(500, mStore->ThinHistoryToRopeFile(id, File(name), {}));
        mVfs->ClearFaults();
        const auto told = mLog->Find("CreateRopeFile: Can't create session folder");
        ASSERT_EQ(1U, told.size());
        EXPECT_EQ(std::to_string(0xa0630018), told.front().Value("status"));
        EXPECT_EQ(1U, mLog->Count("Unable to initialize new local session for copy"));
        EXPECT_THAT(Listed(), ElementsAre("Film.lyr"));
    }
    EXPECT_EQ(session.mRevision, GetSession(id).mRevision);
    EXPECT_EQ(200, mStore->ThinHistoryToRopeFile(id, File("Thin.lyr"), {}));
}

TEST_F(RopeFileFailures, AFileOnAVolumeThatMayOnlyBeReadIsRefusedAndStaysAsItIs)
{
    SmallVolume volume(mFolder, "size=4m");
    if (!volume.IsMounted()) GTEST_SKIP() << "This user may not mount a file system";
    const dto::Session session = MakeFile();
    ForgetAll();
    const std::string before = ReadWhole(File());
    ASSERT_TRUE(volume.SetReadOnly(true));
    dto::Session opened;
    EXPECT_EQ(500, mStore->OpenRopeFile(File(), opened));
    EXPECT_EQ(500, Create(opened, true));
    EXPECT_NE(201, Create(opened, false, File("Other.lyr")));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(before, ReadWhole(File()));
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr"));
    EXPECT_EQ(0U, SideFolders());
    EXPECT_THAT(mStore->GetSessions(), IsEmpty());
    ASSERT_TRUE(volume.SetReadOnly(false));
    ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
    EXPECT_EQ(session.mRevision, opened.mRevision);
    mStore.reset();  // before its volume is gone
}

TEST_F(RopeFileFailures, KeyValuesThatCannotBeReadStopACopy)
{
    const ImmutableString id = MakeFile().mIdentifier;
    ASSERT_EQ(200, mStore->WriteRopeFileValue(id, "color", "blue"));
    const std::string tree = TreeAt(id, RopeFile::kBranch_KeyValue, "keyvalue/session");
    dto::Session session = OpenWithDamaged(tree);
    EXPECT_EQ(500, mStore->CopyToRopeFile(id, {}, File("Copy.lyr"), false, session));
    EXPECT_EQ(1U, mLog->Count("ReadAllSessionData: failed to read key value table"));
}

TEST_F(RopeFileFailures, AUserEnclosureThatCannotBeReadStopsACopy)
{
    const ImmutableString id = MakeFile().mIdentifier;
    ASSERT_EQ(200, AddEnclosure(id, "ann"));
    const std::string tree = TreeAt(id, RopeFile::kBranch_UserEnclosures, "userenclosures/ann/local/en/enc1");
    dto::Session session = OpenWithDamaged(tree);
    EXPECT_EQ(500, mStore->CopyToRopeFile(id, {}, File("Copy.lyr"), false, session));
    EXPECT_EQ(1U, mLog->Count("ReadAllSessionData: failed to read user enclosures"));
}

}  // namespace
