#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/noxcore/FileSupport.h"
#include "Tests/Support/TempFolder.h"

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
