#include <sqlite3.h>

#include "Platform/noxstorage/Git.h"
#include "Tests/noxstorage/GitFixture.h"

namespace {

namespace ng = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;
using ng::Oid;
using testing_support::Noise;

/// Objects whose rows were damaged while the repository was closed, or behind its back.
class GitDamage : public testing_support::GitFixture
{
protected:
    GitDamage() { Init(); }
    ~GitDamage() override { mRepo.reset(); }

    void Execute(const std::string& inCommand)
    {
        sqlite3* database = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open((Folder() + "/odb.sqlite3").c_str(), &database));
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, inCommand.c_str(), nullptr, nullptr, nullptr))
            << sqlite3_errmsg(database);
        EXPECT_NE(0, sqlite3_changes(database));
        sqlite3_close(database);
    }
    static std::string Of(const Oid& inOid) { return " WHERE oid=x'" + inOid.Text() + "'"; }
    /// All that the repository has is whole.
    void ExpectWhole()
    {
        std::vector<std::string> faults;
        EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
    }

    const std::string mText = std::string(500, 'a') + std::string(3000, 'b');
    const std::string mLarge = Noise(3 * kMaxBlobSize, 1);
};

TEST_F(GitDamage, ContentThatIsGivenAgainAfterItWasFoundDamagedIsWrittenAnew)
{
    struct Case
    {
        std::string mText;
        std::string mDamage;
    };
    for (const Case& damaged :
         {Case{mText, "UPDATE objects SET data=substr(data,1,20)"}, Case{"short", "UPDATE objects SET data=x'00'"},
          Case{Noise(5000, 2), "UPDATE objects SET size=size+1"}}) {
        const Oid oid = WriteText(damaged.mText);
        ASSERT_NE(nullptr, Commit({{"a", damaged.mText}}, "second"));
        mRepo.reset();
        Execute(damaged.mDamage + Of(oid));
        Reopen();
        EXPECT_TRUE(ng::HasObject(mRepo, oid)) << "nobody has looked yet";
        EXPECT_EQ(nullptr, ng::GetBlob(mRepo, oid));
        EXPECT_FALSE(ng::HasObject(mRepo, oid));
        EXPECT_EQ(oid, WriteText(damaged.mText));
        EXPECT_TRUE(ng::HasObject(mRepo, oid));
        ASSERT_NE(nullptr, ng::GetBlob(mRepo, oid));
        EXPECT_EQ(damaged.mText, ng::GetBlob(mRepo, oid)->Content());
        Reopen();
        EXPECT_EQ(damaged.mText, TextAtHead("a"));
        ExpectWhole();
    }
}

TEST_F(GitDamage, APieceThatIsDamagedIsReplacedWithAllOfItsObject)
{
    const Oid oid = WriteText(mLarge);
    ASSERT_NE(nullptr, Commit({{"a", mLarge}}, "second"));
    mRepo.reset();
    Execute("UPDATE objects SET data=x'00' WHERE row=1+(SELECT row FROM objects" + Of(oid) + ")");
    Reopen();
    EXPECT_EQ(nullptr, ng::GetBlob(mRepo, oid));
    EXPECT_EQ(oid, WriteText(mLarge));
    Reopen();
    EXPECT_EQ(mLarge, TextAtHead("a"));
    ExpectWhole();
}

TEST_F(GitDamage, ContentOfTheRightLengthThatIsSaidToBeAnothersIsWrittenAnewToo)
{
    const Oid oid = WriteText("short");
    ASSERT_NE(nullptr, Commit({{"a", "short"}}, "second"));
    mRepo.reset();
    Execute("UPDATE objects SET data='Short'" + Of(oid));
    Reopen();
    EXPECT_EQ("Short", TextAtHead("a")) << "what is read costs no check of its id";
    ng::NoteDamaged(mRepo, oid);
    EXPECT_EQ(oid, WriteText("short"));
    Reopen();
    EXPECT_EQ("short", TextAtHead("a"));
    ExpectWhole();
}

TEST_F(GitDamage, ARowThatTheIndexDoesNotKnowYetIsReplacedInItsPlace)
{
    const Oid oid = WriteText(mText);
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    Execute("UPDATE objects SET data=substr(data,1,20)" + Of(oid));
    EXPECT_EQ(nullptr, ng::GetBlob(mRepo, oid));
    EXPECT_EQ(oid, WriteText(mText));
    EXPECT_EQ(mText, ng::GetBlob(mRepo, oid)->Content());
    ASSERT_NE(nullptr, Commit({{"a", mText}}, "second"));
    Reopen();
    EXPECT_EQ(mText, TextAtHead("a"));
    ExpectWhole();
}

TEST_F(GitDamage, ATransactionThatIsRolledBackLeavesTheDamageKnown)
{
    ASSERT_NE(nullptr, Commit({{"a", "short"}}, "second"));
    const Oid tree = ng::GetCommitForBranch(mRepo, "session")->TreeID();
    ng::Bytes content;
    ng::ObjectType type = ng::ObjectType::Invalid;
    ASSERT_TRUE(ng::ReadObject(mRepo, tree, type, content));
    const std::string bytes = *content;
    mRepo.reset();
    Execute("UPDATE objects SET size=size+1" + Of(tree));
    Reopen();
    EXPECT_FALSE(ng::ReadObject(mRepo, tree, type, content));
    {
        const auto scope = backend::CommitScope::Begin(mRepo);
        ASSERT_NE(nullptr, scope);
        EXPECT_EQ(tree, scope->AddObject(ng::ObjectType::Tree, bytes));
    }
    EXPECT_FALSE(ng::HasObject(mRepo, tree));
    EXPECT_FALSE(ng::ReadObject(mRepo, tree, type, content));
    {
        const auto scope = backend::CommitScope::Begin(mRepo);
        ASSERT_NE(nullptr, scope);
        EXPECT_EQ(tree, scope->AddObject(ng::ObjectType::Tree, bytes));
        EXPECT_TRUE(scope->Commit());
    }
    Reopen();
    EXPECT_EQ("short", TextAtHead("a"));
    ExpectWhole();
}

}  // namespace
