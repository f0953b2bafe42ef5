#include <zlib.h>

#include "Platform/noxcore/FileSupport.h"
#include "Tests/Support/RunCommand.h"
#include "Tests/noxstorage/GitFixture.h"

namespace {

namespace ng = noxstorage::git;
using ng::ObjectType;
using ng::Oid;
using testing_support::GitFixture;
using testing_support::RunCommand;

class GitExport : public GitFixture
{
protected:
    void SetUp() override
    {
        int status = 0;
        RunCommand("git --version", status);
        if (status != 0) GTEST_SKIP() << "no git on this machine";
        Init();
    }

    /// Every object as a loose file of a plain repository, with the branch.
    void Export(const std::string& inFolder)
    {
        auto& files = noxcore::filesupport::Files();
        ASSERT_TRUE(files.EnsureDirectoryExists(inFolder + "/refs/heads"));
        ASSERT_TRUE(files.WriteFileDurably(inFolder + "/HEAD", "ref: refs/heads/session\n"));
        ASSERT_TRUE(files.WriteFileDurably(inFolder + "/refs/heads/session",
                                           ng::GetBranchHead(mRepo, "session").Text() + "\n"));
        std::string whole;
        ASSERT_TRUE(ng::ForEachObject(mRepo, [&](const Oid& inOid, ObjectType inType, std::uint64_t inSize,
                                                 std::string_view inPiece) {
            const char* type = inType == ObjectType::Commit ? "commit "
                               : inType == ObjectType::Tree ? "tree "
                                                            : "blob ";
            if (whole.empty()) whole = type + std::to_string(inSize) + '\0';
            whole.append(inPiece);
            if (!inPiece.empty()) return true;
            const std::string text = inOid.Text();
            const std::string folder = inFolder + "/objects/" + text.substr(0, 2);
            std::string packed(compressBound(whole.size()), '\0');
            uLongf size = packed.size();
            compress2(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(whole.data()),
                      whole.size(), 1);
            packed.resize(size);
            whole.clear();
            return files.EnsureDirectoryExists(folder) && files.WriteFileDurably(folder + "/" + text.substr(2), packed);
        }));
    }
};

TEST_F(GitExport, GitItselfFindsNoFaultInTheObjects)
{
    ASSERT_NE(nullptr, Commit({{"assets/ab/abc/properties", "{\"a\":1}"},
                               {"assets/ab/abc/enclosures/e/content", std::string(25000, 'c')},
                               {"assets/ab/abc/enclosures/e/name", "audio"},
                               {"assets/cd/cde/properties", "{}"}},
                              "{\"commitMessage\":\"m\"}"));
    mAuthor.mName = "";
    ASSERT_NE(nullptr, Commit({{"conflict/assets/ab/abc/conflict", "{}"}, {"properties", "{}"}}, ""));
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    const std::string folder = mFolder / "plain.git";
    Export(folder);
    const std::string git = "git --git-dir=" + folder + " -c safe.directory='*' ";
    int status = 0;
    EXPECT_EQ("", RunCommand(git + "fsck --strict --no-dangling --no-progress", status));
    EXPECT_EQ(0, status);
    EXPECT_EQ(std::string(25000, 'c'),
              RunCommand(git + "cat-file blob session:assets/ab/abc/enclosures/e/content", status));
    EXPECT_EQ("3\n", RunCommand(git + "rev-list --count session", status));
    EXPECT_EQ("assets\nconflict\nproperties\nsessionid\n", RunCommand(git + "ls-tree --name-only session", status));
    EXPECT_EQ("Ada Editor||1700000000\n", RunCommand(git + "log -1 --format='%an|%ae|%at' session~1", status));
}

}  // namespace
