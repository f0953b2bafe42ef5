#include "Tests/Support/FaultFiles.h"

#include <gtest/gtest.h>

#include <set>

#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace testing_support {
namespace {

constexpr int kIOError = 10;
constexpr int kFull = 13;

class FaultFilesTest : public testing::Test
{
protected:
    FaultFilesTest() { mFiles->ReportTo(&mVfs); }

    void Fail(FileOperation inOperation, bool inHappensInPart = false, int inCode = kIOError)
    {
        mVfs.ClearFaults();
        mVfs.SetFault({.mOperation = inOperation, .mCode = inCode, .mHappensInPart = inHappensInPart});
    }

    std::string ContentOf(const std::string& inPath)
    {
        std::string content = "absent";
        noxcore::filesupport::MakeFileSystem()->ReadFile(inPath, content);
        return content;
    }

    /// What a file may hold after a power cut now: everything that some seed gives.
    std::set<std::string> AfterPowerCuts(const std::string& inName)
    {
        const std::size_t events = mVfs.RecordedEvents();
        const FileRecording recording = mVfs.StopRecording();
        std::set<std::string> contents;
        for (std::uint64_t seed = 0; seed < 50; ++seed) {
            const FolderImage image = recording.AfterPowerCut(events, seed);
            contents.insert(image.contains(inName) ? image.at(inName) : "absent");
        }
        return contents;
    }

    const std::shared_ptr<VirtualScheduler> mScheduler = std::make_shared<VirtualScheduler>(1);
    const std::shared_ptr<FaultFiles> mFiles = std::make_shared<FaultFiles>();
    const std::shared_ptr<noxcore::HubContext> mContext =
        mScheduler->MakeContext(std::make_shared<LogCapture>(), mFiles);
    const noxcore::HubContext::Scope mScope{mContext};
    const TempFolder mFolder;
    FaultVfs mVfs{mContext};
};

TEST_F(FaultFilesTest, EachStepOfADurableWriteCanFail)
{
    const std::string file = mFolder / "sessionid";
    for (const auto operation : {FileOperation::WritePlain, FileOperation::Rename, FileOperation::SyncFolder}) {
        ASSERT_TRUE(mFiles->WriteFileDurably(file, "old"));
        Fail(operation);
        EXPECT_FALSE(mFiles->WriteFileDurably(file, "new"));
        EXPECT_EQ(operation == FileOperation::SyncFolder ? "new" : "old", ContentOf(file));
        mVfs.ClearFaults();
    }
    Fail(FileOperation::Rename, true);
    EXPECT_FALSE(mFiles->WriteFileDurably(file, "renamed"));
    EXPECT_EQ("renamed", ContentOf(file));
}

TEST_F(FaultFilesTest, AWriteLeavesNothingHalfOrAnEmptyFile)
{
    Fail(FileOperation::WritePlain);
    EXPECT_FALSE(mFiles->WriteNewFile(mFolder / "none", "content"));
    EXPECT_EQ("absent", ContentOf(mFolder / "none"));
    Fail(FileOperation::WritePlain, true);
    EXPECT_FALSE(mFiles->WriteNewFile(mFolder / "half", "content"));
    EXPECT_EQ("con", ContentOf(mFolder / "half"));
    Fail(FileOperation::WritePlain, false, kFull);
    EXPECT_FALSE(mFiles->WriteNewFile(mFolder / "full", "content"));
    EXPECT_EQ("", ContentOf(mFolder / "full"));
}

TEST_F(FaultFilesTest, ADurableWriteIsThereAfterAPowerCutAndOneWithoutItsFolderMayBeEither)
{
    ASSERT_TRUE(mFiles->WriteFileDurably(mFolder / "file", "old"));
    mVfs.StartRecording(mFolder.Path());
    ASSERT_TRUE(mFiles->WriteFileDurably(mFolder / "file", "new"));
    EXPECT_EQ(std::set<std::string>{"new"}, AfterPowerCuts("file"));

    mVfs.StartRecording(mFolder.Path());
    Fail(FileOperation::SyncFolder);
    EXPECT_FALSE(mFiles->WriteFileDurably(mFolder / "file", "newer"));
    EXPECT_EQ((std::set<std::string>{"new", "newer"}), AfterPowerCuts("file"));
}

TEST_F(FaultFilesTest, AFolderThatWasNotSyncedMayBeLostWithAllThatIsInIt)
{
    mVfs.StartRecording(mFolder.Path());
    ASSERT_TRUE(mFiles->MakeDirectory(mFolder / "session"));
    ASSERT_TRUE(mFiles->WriteFileDurably(mFolder / "session/file", "x"));
    EXPECT_EQ((std::set<std::string>{"absent", "x"}), AfterPowerCuts("session/file"));

    mVfs.StartRecording(mFolder.Path());
    ASSERT_TRUE(mFiles->EnsureDirectoryExists(mFolder / "other/below"));
    ASSERT_TRUE(mFiles->WriteFileDurably(mFolder / "other/below/file", "x"));
    EXPECT_EQ(std::set<std::string>{"x"}, AfterPowerCuts("other/below/file"));
}

TEST_F(FaultFilesTest, AFolderWhoseSyncFailedIsNotTakenForDurableByTheNextWhoNeedsIt)
{
    mVfs.StartRecording(mFolder.Path());
    Fail(FileOperation::SyncFolder);
    EXPECT_FALSE(mFiles->EnsureDirectoryExists(mFolder / "sessions/first"));
    EXPECT_FALSE(mFiles->DirectoryExists(mFolder / "sessions"));
    mVfs.ClearFaults();
    ASSERT_TRUE(mFiles->EnsureDirectoryExists(mFolder / "sessions/second"));
    ASSERT_TRUE(mFiles->WriteFileDurably(mFolder / "sessions/second/file", "x"));
    EXPECT_EQ(std::set<std::string>{"x"}, AfterPowerCuts("sessions/second/file"));
}

TEST_F(FaultFilesTest, DeletedFilesMayComeBackUntilTheirFolderIsSynced)
{
    ASSERT_TRUE(mFiles->WriteFileDurably(mFolder / "file", "x"));
    mVfs.StartRecording(mFolder.Path());
    ASSERT_TRUE(mFiles->DeleteFile(mFolder / "file"));
    EXPECT_EQ((std::set<std::string>{"absent", "x"}), AfterPowerCuts("file"));

    ASSERT_TRUE(mFiles->WriteFileDurably(mFolder / "file", "x"));
    mVfs.StartRecording(mFolder.Path());
    ASSERT_TRUE(mFiles->DeleteFile(mFolder / "file"));
    ASSERT_TRUE(mFiles->SyncDirectory(mFolder.Path()));
    EXPECT_EQ(std::set<std::string>{"absent"}, AfterPowerCuts("file"));
}

TEST_F(FaultFilesTest, AFolderCanBeDeletedInPart)
{
    ASSERT_TRUE(mFiles->EnsureDirectoryExists(mFolder / "s/git"));
    for (const char* name : {"s/a", "s/b", "s/git/c", "s/git/d"})
        ASSERT_TRUE(mFiles->WriteFileDurably(mFolder / name, "x"));
    Fail(FileOperation::DeleteFolder, true);
    EXPECT_FALSE(mFiles->DeleteDirectory(mFolder / "s"));
    EXPECT_EQ("absent", ContentOf(mFolder / "s/b"));
    EXPECT_EQ("x", ContentOf(mFolder / "s/git/c"));
    EXPECT_TRUE(mFiles->DeleteDirectory(mFolder / "s"));
    EXPECT_FALSE(mFiles->DirectoryExists(mFolder / "s"));
}

}  // namespace
}  // namespace testing_support
