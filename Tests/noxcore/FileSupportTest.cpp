#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace {

using namespace noxcore::filesupport;

TEST(FileSupport, ADurableWriteReplacesTheContentAndLeavesNothingBeside)
{
    const testing_support::TempFolder folder;
    ASSERT_TRUE(Files().WriteFileDurably(folder / "sessionid", "one"));
    ASSERT_TRUE(Files().WriteFileDurably(folder / "sessionid", "two"));
    std::string content;
    ASSERT_TRUE(Files().ReadFile(folder / "sessionid", content));
    EXPECT_EQ("two", content);
    std::vector<DirectoryEntry> entries;
    ASSERT_TRUE(Files().ListDirectory(folder.Path(), entries));
    EXPECT_EQ(1U, entries.size());
}

TEST(FileSupport, AWriteIntoAMissingFolderFailsAndMakesNothing)
{
    const testing_support::TempFolder folder;
    EXPECT_FALSE(Files().WriteFileDurably(folder / "absent/file", "x"));
    EXPECT_FALSE(Files().DirectoryExists(folder / "absent"));
}

TEST(FileSupport, ARenameThatReplacesNothingLeavesWhatIsThereAsItIs)
{
    const testing_support::TempFolder folder;
    const std::string from = folder / "from";
    const std::string to = folder / "to";
    ASSERT_TRUE(Files().WriteFileDurably(from, "new"));
    ASSERT_TRUE(Files().WriteFileDurably(to, "old"));
    EXPECT_FALSE(Files().RenameUnlessTaken(from, to));
    EXPECT_EQ(EEXIST, errno);
    std::string content;
    ASSERT_TRUE(Files().ReadFile(to, content));
    EXPECT_EQ("old", content);
    ASSERT_TRUE(Files().DeleteFile(to));
    EXPECT_TRUE(Files().RenameUnlessTaken(from, to));
    ASSERT_TRUE(Files().ReadFile(to, content));
    EXPECT_EQ("new", content);
    EXPECT_FALSE(Files().FileExists(from));
}

TEST(FileSupport, FoldersAreMadeWithAllTheirParentsForTheOwnerAlone)
{
    const testing_support::TempFolder folder;
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder / "a/b/c"));
    struct stat status = {};
    ASSERT_EQ(0, stat((folder / "a/b").c_str(), &status));
    EXPECT_EQ(0700U, status.st_mode & 0777U);
}

TEST(FileSupport, APlainFileInThePlaceOfAFolderIsNoFolder)
{
    const testing_support::TempFolder folder;
    ASSERT_TRUE(Files().WriteFileDurably(folder / "file", "x"));
    EXPECT_FALSE(Files().EnsureDirectoryExists(folder / "file"));
    EXPECT_FALSE(Files().EnsureDirectoryExists(folder / "file/below"));
}

TEST(FileSupport, AFolderWithReadOnlyPartsIsDeletedWhole)
{
    const testing_support::TempFolder folder;
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder / "s/git"));
    ASSERT_TRUE(Files().WriteFileDurably(folder / "s/git/file", "x"));
    ASSERT_EQ(0, chmod((folder / "s/git/file").c_str(), 0400));
    ASSERT_EQ(0, chmod((folder / "s/git").c_str(), 0500));
    EXPECT_TRUE(Dir::Delete(folder / "s"));
    EXPECT_FALSE(Files().DirectoryExists(folder / "s"));
    EXPECT_TRUE(Dir::Delete(folder / "s"));
}

TEST(FileSupport, ALinkInsideADeletedFolderDoesNotReachOutside)
{
    const testing_support::TempFolder folder;
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder / "outside"));
    ASSERT_TRUE(Files().WriteFileDurably(folder / "outside/kept", "x"));
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder / "s"));
    ASSERT_EQ(0, symlink((folder / "outside").c_str(), (folder / "s/link").c_str()));
    ASSERT_TRUE(Dir::Delete(folder / "s"));
    EXPECT_TRUE(Files().FileExists(folder / "outside/kept"));
}

/// Real files whose folders sync as the test says: 0 or an error.
class FolderSync : public testing::Test
{
protected:
    int Sync(int inDescriptor)
    {
        struct stat status = {};
        if (fstat(inDescriptor, &status) != 0 || !S_ISDIR(status.st_mode)) return fsync(inDescriptor);
        errno = mError;
        return mError == 0 ? 0 : -1;
    }

    const testing_support::TempFolder mFolder;
    int mError = 0;
    const std::shared_ptr<FileSystem> mFiles = MakeFileSystem([this](int inDescriptor) { return Sync(inDescriptor); });
    const std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();
    const std::shared_ptr<testing_support::VirtualScheduler> mScheduler =
        std::make_shared<testing_support::VirtualScheduler>(1);
    const noxcore::HubContext::Scope mScope{mScheduler->MakeContext(mLog, mFiles)};
};

TEST_F(FolderSync, AVolumeThatOffersNoneIsUsedAllTheSameAndToldOfOnce)
{
    for (const int error : {EINVAL, EOPNOTSUPP}) {
        mError = error;
        const std::string name = std::to_string(error);
        EXPECT_TRUE(Files().EnsureDirectoryExists(mFolder / name + "/b/c"));
        EXPECT_TRUE(Files().WriteFileDurably(mFolder / name + "/b/c/file", "x"));
        EXPECT_TRUE(Files().SyncDirectory(mFolder.Path()));
    }
    EXPECT_EQ(1U, mLog->Count("A volume cannot sync folders: what a power cut leaves of their names is its own"));
}

TEST_F(FolderSync, AnyOtherFailureIsOne)
{
    ASSERT_TRUE(Files().EnsureDirectoryExists(mFolder / "a"));
    for (const int error : {EIO, ENOSPC, EDQUOT, EROFS, EACCES, EPERM, EBADF}) {
        mError = error;
        EXPECT_FALSE(Files().SyncDirectory(mFolder / "a")) << error;
        EXPECT_FALSE(Files().EnsureDirectoryExists(mFolder / "a/b")) << error;
        EXPECT_FALSE(Files().DirectoryExists(mFolder / "a/b")) << error;
        EXPECT_FALSE(Files().WriteFileDurably(mFolder / "a/file", "x")) << error;
    }
    EXPECT_EQ(0U, mLog->All().size());
    mError = 0;
    EXPECT_FALSE(Files().SyncDirectory(mFolder / "absent"));
}

TEST_F(FolderSync, AFileThatCannotBeSyncedFailsWhateverTheVolumeOffers)
{
    const auto files = MakeFileSystem([](int) {
        errno = EINVAL;
        return -1;
    });
    EXPECT_FALSE(files->WriteNewFile(mFolder / "file", "x"));
}

TEST_F(FolderSync, ARealVolumeWithoutItIsNoFailure)
{
    const auto files = MakeFileSystem();
    EXPECT_TRUE(files->SyncDirectory("/proc/self"));
    EXPECT_TRUE(files->SyncDirectory("/proc"));
    EXPECT_TRUE(files->SyncDirectory(mFolder.Path()));
    const auto records = mLog->All();
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("/proc/self", records.front().Value("path"));
}

TEST_F(FolderSync, AFolderThatMayNotBeReadIsAFailure)
{
    if (geteuid() == 0) GTEST_SKIP() << "This user may read everything";
    ASSERT_TRUE(Files().EnsureDirectoryExists(mFolder / "a"));
    ASSERT_EQ(0, chmod((mFolder / "a").c_str(), 0300));
    EXPECT_FALSE(Files().SyncDirectory(mFolder / "a"));
    ASSERT_EQ(0, chmod((mFolder / "a").c_str(), 0700));
}

TEST(FileSupport, ALockIsHeldByOneAndFreeAgainWhenItIsDropped)
{
    const testing_support::TempFolder folder;
    auto first = Files().TryLock(folder / "lock");
    ASSERT_TRUE(first);
    bool heldElsewhere = false;
    EXPECT_FALSE(Files().TryLock(folder / "lock", heldElsewhere));
    EXPECT_TRUE(heldElsewhere);
    first.reset();
    EXPECT_TRUE(Files().TryLock(folder / "lock"));
}

TEST(FileSupport, ALockWhoseFileCannotBeMadeIsHeldByNobody)
{
    const testing_support::TempFolder folder;
    bool heldElsewhere = true;
    EXPECT_FALSE(Files().TryLock(folder / "absent/lock", heldElsewhere));
    EXPECT_FALSE(heldElsewhere);
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder / "lock"));
    heldElsewhere = true;
    EXPECT_FALSE(Files().TryLock(folder / "lock", heldElsewhere));
    EXPECT_FALSE(heldElsewhere);
}

TEST(FileSupport, SizesCountAllFilesBelowAFolder)
{
    const testing_support::TempFolder folder;
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder / "a/b"));
    ASSERT_TRUE(Files().WriteFileDurably(folder / "a/one", "12345"));
    ASSERT_TRUE(Files().WriteFileDurably(folder / "a/b/two", "123"));
    EXPECT_EQ(8U, Dir::Size(folder.Path()));
    EXPECT_EQ(5U, Dir::Size(folder / "a/one"));
    EXPECT_EQ(0U, Dir::Size(folder / "absent"));
}

TEST(FileSupport, PathsJoinWithOneSlash)
{
    EXPECT_EQ("/a/b", Join("/a", "b"));
    EXPECT_EQ("/a/b", Join("/a/", "b"));
    EXPECT_EQ("b", Join("", "b"));
    EXPECT_EQ("c", BaseName("/a/b/c"));
    EXPECT_EQ("/a/b", ParentFolder("/a/b/c"));
    EXPECT_EQ("/", ParentFolder("/a"));
    EXPECT_EQ("", ParentFolder("a"));
}

TEST(FileSupport, TheVolumeOfAPathAndItsFreeSpaceAreKnown)
{
    std::string volume;
    EXPECT_TRUE(FileUtils::GetVolumePath("/proc/self", volume));
    EXPECT_EQ("/proc", volume);
    std::uint64_t bytes = 0;
    EXPECT_TRUE(FileUtils::GetVolumeFreeSpace("/tmp", bytes));
    EXPECT_GT(bytes, 0U);
    EXPECT_FALSE(FileUtils::GetVolumeFreeSpace("/no/such/place", bytes));
}

}  // namespace
