#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <stdexcept>

#include "Inc/Model/GitBoxFolders.h"
#include "Platform/noxcore/FileSupport.h"
#include "Tests/Support/FaultFiles.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/StoreTest.h"

namespace {

using namespace testing_support;
using GitBox::Sandboxes;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

constexpr const char* kList = "ExtractedSnapshots";
constexpr const char* kAddFailure = "AddExtractedSnapshot: Caught exception";
constexpr const char* kRemoveFailure = "RemoveExtractedSnapshot: Caught exception";
constexpr const char* kReadFailure = "ReadExtractedSnapshotSandboxes: Caught exception";

/// Real files, of which the test picks a folder that throws when it is looked into.
class ThrowingFiles final : public FaultFiles
{
public:
    bool DirectoryExists(const Path& inPath) override
    {
        ThrowBelow(mThrowsBelow, inPath);
        return FaultFiles::DirectoryExists(inPath);
    }
    bool ListDirectory(const Path& inPath, std::vector<noxcore::filesupport::DirectoryEntry>& outEntries) override
    {
        ThrowBelow(mThrowsWhenListed, inPath);
        return FaultFiles::ListDirectory(inPath, outEntries);
    }

    Path mThrowsBelow;
    Path mThrowsWhenListed;

private:
    static void ThrowBelow(const Path& inFolder, const Path& inPath)
    {
        if (!inFolder.empty() && inPath.starts_with(inFolder)) throw std::runtime_error("a folder that throws");
    }
};

/// A store with one session, and copies of it that lie elsewhere.
class ExtractedSnapshotsTest : public StoreTest
{
protected:
    ExtractedSnapshotsTest() : ExtractedSnapshotsTest(std::make_shared<ThrowingFiles>()) {}
    ~ExtractedSnapshotsTest() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
        mVfs.reset();
    }

    /// The folder of a new copy.
    std::string Extract(const std::string& inName)
    {
        std::string folder = Join(GitBox::Folder::Extracted(), inName + ".lyra2");
        mStore.reset();
        std::filesystem::create_directories(GitBox::Folder::Extracted());
        std::filesystem::copy(SessionFolder(), folder, std::filesystem::copy_options::recursive);
        ReopenStore();
        return folder;
    }
    std::string SessionFolder() const
    {
        return GitBox::Folder::SessionFolder(mSession.mIdentifier, SessionKind::LocalOnly);
    }
    static std::string List()
    {
        std::string text;
        EXPECT_EQ(200, SystemDb::GetSystemEnclosure(kList, text));
        return text;
    }
    static ImmutableString AddSnapshot(const std::string& inFolder)
    {
        const auto sandbox = Sandboxes::Instance()->ReadAndAddExtractedSnapshot(inFolder);
        return sandbox ? sandbox->GetLocalSessionID() : ImmutableString();
    }

private:
    explicit ExtractedSnapshotsTest(std::shared_ptr<ThrowingFiles> inFiles)
        : StoreTest(inFiles), mFiles(std::move(inFiles))
    {
        const auto transaction = OpenTransaction(mSession.mIdentifier);
        Add(transaction, MakeAsset("clip"));
        EXPECT_EQ(200, Commit(transaction));
    }

protected:
    const std::shared_ptr<ThrowingFiles> mFiles;
    std::unique_ptr<FaultVfs> mVfs = std::make_unique<FaultVfs>(mContext);
    const dto::Session mSession = CreateSession();
};

TEST_F(ExtractedSnapshotsTest, TheIDsAreThoseOfTheFullPath)
{
    dto::Session session = mSession;
    GitBox::Sandbox::SetIDsForExtractedSnapshot("/srv/Sch\u00f6n \U0001F3AC/a.lyra2", session);
    EXPECT_EQ("sn-4cd71471-39d7-6206-b1f4-d75038b8079c", session.mIdentifier);
    EXPECT_EQ("p-4cd71471-39d7-6206-b1f4-d75038b8079c", session.mProductionID);
    EXPECT_EQ(mSession.mRevision, session.mRevision);
}

TEST_F(ExtractedSnapshotsTest, ASnapshotIsReadUnderIDsOfItsOwnBesideTheOriginal)
{
    const std::string folder = Extract("first");
    const ImmutableString id = AddSnapshot(folder);
    ASSERT_TRUE(id.View().starts_with("sn-"));
    const ImmutableString productionID("p-" + id.Text().substr(3));
    for (const bool again : {false, true}) {
        if (again) {
            mScheduler->Advance(1000);
            mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks());
        }
        for (const ImmutableString& key : {id, productionID}) {
            const dto::Session found = GetSession(key);
            EXPECT_EQ(id, found.mIdentifier);
            EXPECT_EQ(productionID, found.mProductionID);
            EXPECT_EQ(1u, GetAssets(key).size());
        }
        EXPECT_EQ(mSession.mIdentifier, GetSession(mSession.mIdentifier).mIdentifier);
        EXPECT_EQ(2u, mStore->GetSessions().size());
    }
    EXPECT_EQ(mStore->IsLocalOnly(mSession.mIdentifier), mStore->IsLocalOnly(id));
}

TEST_F(ExtractedSnapshotsTest, ASnapshotWhosePathIsNotUTF8IsRefusedBeforeAnythingIsWritten)
{
    const std::string good = Extract("Sch\u00f6n");
    const std::string bad = Extract("Sch\xf6n");
    const std::string sync = Join(bad, "sync.sqlite3");
    Files().DeleteFile(sync);
    const ImmutableString goodID = AddSnapshot(good);
    const std::string list = List();
    EXPECT_EQ(nullptr, Sandboxes::Instance()->ReadAndAddExtractedSnapshot(bad));
    const auto refused = mLog->Find("The path of an extracted snapshot is not UTF-8");
    ASSERT_EQ(1u, refused.size());
    EXPECT_EQ(Join(GitBox::Folder::Extracted(), "Sch\ufffdn.lyra2"), refused.front().Value("path"));
    EXPECT_EQ(list, List());
    EXPECT_FALSE(Files().FileExists(sync));
    ReopenStore();
    EXPECT_EQ(1u, GetAssets(goodID).size()) << "the list can still be read";
    EXPECT_EQ(2u, mStore->GetSessions().size());
}

TEST_F(ExtractedSnapshotsTest, WhatWasExtractedIsFoundAgainByTheNextStartAndListedOnce)
{
    const std::string first = Extract("first");
    const std::string second = Extract("second \"quoted\"");
    const ImmutableString firstID = AddSnapshot(first);
    EXPECT_EQ(R"([")" + first + R"("])", List());
    const ImmutableString secondID = AddSnapshot(second);
    const auto open = Sandboxes::Instance()->FindSandbox(firstID);
    EXPECT_EQ(open, Sandboxes::Instance()->ReadAndAddExtractedSnapshot(first));
    const std::string list = List();
    EXPECT_NE(firstID, secondID);
    ReopenStore();
    EXPECT_EQ(list, List());
    EXPECT_EQ(1u, GetAssets(firstID).size());
    EXPECT_EQ(1u, GetAssets(secondID).size());
    EXPECT_EQ(3u, mStore->GetSessions().size());
}

TEST_F(ExtractedSnapshotsTest, AClearedSnapshotIsClosedForGoodAndItsFolderStays)
{
    const std::string first = Extract("first");
    const std::string second = Extract("second");
    const ImmutableString id = AddSnapshot(first);
    const ImmutableString other = AddSnapshot(second);
    const ImmutableString transaction = OpenTransaction(id);
    EXPECT_EQ(200, mStore->ClearExtractedSnapshot(ImmutableString("p-" + id.Text().substr(3))));
    EXPECT_FALSE(mStore->SessionExists(id));
    EXPECT_FALSE(mStore->SessionExists(ImmutableString("p-" + id.Text().substr(3))));
    EXPECT_EQ(404, Commit(transaction));
    EXPECT_EQ(R"([")" + second + R"("])", List());
    EXPECT_EQ(404, mStore->ClearExtractedSnapshot(id));
    ReopenStore();
    EXPECT_FALSE(mStore->SessionExists(id));
    EXPECT_TRUE(mStore->SessionExists(other));
    EXPECT_TRUE(Files().DirectoryExists(Join(first, "git")));
}

TEST_F(ExtractedSnapshotsTest, ASessionIsNoSnapshotToBeCleared)
{
    EXPECT_EQ(404, mStore->ClearExtractedSnapshot(mSession.mIdentifier));
    EXPECT_TRUE(mStore->SessionExists(mSession.mIdentifier));
    EXPECT_TRUE(mStore->SessionExists(mSession.mProductionID));
}

TEST_F(ExtractedSnapshotsTest, ADeletedSnapshotIsStruckOffTheList)
{
    const std::string folder = Extract("first");
    const ImmutableString id = AddSnapshot(folder);
    EXPECT_EQ(200, mStore->DeletePersistedSessionData(id));
    EXPECT_FALSE(mStore->SessionExists(id));
    EXPECT_FALSE(Files().DirectoryExists(folder));
    EXPECT_EQ("[]", List());
}

TEST_F(ExtractedSnapshotsTest, AFolderThatCannotBeReadIsSkippedAndStaysListed)
{
    const std::string first = Extract("first");
    const std::string second = Extract("second");
    const ImmutableString gone = AddSnapshot(first);
    const ImmutableString there = AddSnapshot(second);
    const std::string list = List();
    mStore.reset();
    std::filesystem::rename(first, first + ".away");
    mLog->Clear();
    ReopenStore();
    EXPECT_FALSE(mStore->SessionExists(gone));
    EXPECT_TRUE(mStore->SessionExists(there));
    EXPECT_EQ(first, mLog->Find("No extracted snapshot can be read").at(0).Value("path"));
    EXPECT_EQ(list, List());
    EXPECT_EQ(ImmutableString(), AddSnapshot(first));
}

TEST_F(ExtractedSnapshotsTest, AFolderThatIsMarkedDeletedIsNotRead)
{
    const std::string folder = Extract("first");
    for (const std::string& marked : {folder, SessionFolder()})
        ASSERT_TRUE(Files().WriteFileDurably(Join(marked, "deleted"), {}));
    EXPECT_EQ(ImmutableString(), AddSnapshot(folder));
    ReopenStore();
    EXPECT_FALSE(mStore->SessionExists(mSession.mIdentifier));
}

TEST_F(ExtractedSnapshotsTest, WhatIsNoListIsReportedAndBegunAnew)
{
    const std::string folder = Extract("first");
    for (const char* text : {"{}", "no JSON", "\"/a\""}) {
        ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure(kList, text));
        mLog->Clear();
        ReopenStore();
        EXPECT_EQ(1u, mLog->Count(kReadFailure)) << text;
        EXPECT_TRUE(mStore->SessionExists(mSession.mIdentifier));
        EXPECT_NE(ImmutableString(), AddSnapshot(folder));
        EXPECT_EQ(R"([")" + folder + R"("])", List());
    }
}

TEST_F(ExtractedSnapshotsTest, AListThatCannotBeReadIsNotTakenForAnEmptyOne)
{
    const std::string first = Extract("first");
    const std::string second = Extract("second");
    const ImmutableString id = AddSnapshot(first);
    mLog->Clear();
    mVfs->SetFault({FileOperation::Open, 1, SQLITE_CANTOPEN, true, "system.sqlite3", 0});
    EXPECT_NE(ImmutableString(), AddSnapshot(second));
    ASSERT_EQ(1u, mLog->Count(kAddFailure));
    EXPECT_EQ(second, mLog->Find(kAddFailure)[0].Value("path"));
    ReopenStore();
    EXPECT_EQ(1u, mLog->Count(kReadFailure));
    EXPECT_FALSE(mStore->SessionExists(id));
    EXPECT_TRUE(mStore->SessionExists(mSession.mIdentifier));
    mVfs->ClearFaults();
    EXPECT_EQ(R"([")" + first + R"("])", List());
    ReopenStore();
    EXPECT_TRUE(mStore->SessionExists(id));
}

TEST_F(ExtractedSnapshotsTest, AClearedSnapshotWhoseListCannotBeWrittenIsFoundAgain)
{
    const std::string folder = Extract("first");
    const ImmutableString id = AddSnapshot(folder);
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "system.sqlite3", 0});
    EXPECT_EQ(500, mStore->ClearExtractedSnapshot(id));
    mVfs->ClearFaults();
    EXPECT_FALSE(mStore->SessionExists(id));
    ASSERT_EQ(1u, mLog->Count(kRemoveFailure));
    EXPECT_EQ(folder, mLog->Find(kRemoveFailure)[0].Value("path"));
    ReopenStore();
    EXPECT_TRUE(mStore->SessionExists(id));
}

TEST_F(ExtractedSnapshotsTest, AFolderThatThrowsIsReportedAndTheOthersAreRead)
{
    const std::string folder = Extract("first");
    const ImmutableString id = AddSnapshot(folder);
    const dto::Session other = CreateSession();
    mLog->Clear();
    mFiles->mThrowsBelow = SessionFolder();
    ReopenStore();
    EXPECT_EQ(SessionFolder(), mLog->Find("ReadSandboxes: Caught exception").at(0).Value("path"));
    EXPECT_FALSE(mStore->SessionExists(mSession.mIdentifier));
    EXPECT_TRUE(mStore->SessionExists(other.mIdentifier));
    EXPECT_TRUE(mStore->SessionExists(id));

    mFiles->mThrowsBelow = folder;
    ReopenStore();
    EXPECT_EQ(folder, mLog->Find(kAddFailure).at(0).Value("path"));
    EXPECT_TRUE(mStore->SessionExists(mSession.mIdentifier));
    EXPECT_FALSE(mStore->SessionExists(id));

    mFiles->mThrowsBelow.clear();
    mFiles->mThrowsWhenListed = GitBox::Folder::LocalSessions();
    mLog->Clear();
    ReopenStore();
    EXPECT_EQ(GitBox::Folder::LocalSessions(), mLog->Find("ReadSandboxes: Caught exception").at(0).Value("path"));
    EXPECT_FALSE(mStore->SessionExists(mSession.mIdentifier));
    EXPECT_TRUE(mStore->SessionExists(id));
}

}  // namespace
