#include "Tests/noxstorage/GitFixture.h"

#include <git2.h>

#include "Platform/noxstorage/GitHandles.h"

namespace {

namespace ng = noxstorage::git;
using ng::Oid;
using testing_support::GitFixture;

class GitTreeBuilder : public GitFixture
{
protected:
    void SetUp() override { Init(); }

    ng::TreeBuilderNodePtr Root() const
    {
        return ng::ConstructRootTreeBuilderNode(mRepo,
                                                ng::GetTreeAtCommit(mRepo, ng::GetCommitForBranch(mRepo, "session")));
    }
    ng::TreeBuilderNodePtr Node(const ng::TreeBuilderNodePtr& inRoot, std::string_view inPath) const
    {
        std::string leaf;
        return ng::ConstructSubTreeBuilderNodeForPath(mRepo, inRoot, inPath, leaf);
    }
    std::string NamesOf(const Oid& inTree) const
    {
        std::string names;
        for (const ng::TreeEntry& entry : ng::Entries(ng::GetTree(mRepo, inTree)))
            names.append(entry.mName).append(" ");
        return names;
    }
};

TEST_F(GitTreeBuilder, TheSamePathGivesTheSameNode)
{
    const auto root = Root();
    std::string leaf;
    const auto node = ng::ConstructSubTreeBuilderNodeForPath(mRepo, root, "assets/4c/4c0f", leaf);
    EXPECT_EQ("4c0f", leaf);
    EXPECT_EQ("assets/4c", node->Path());
    EXPECT_EQ(node, ng::ConstructSubTreeBuilderNodeForPath(mRepo, root, "assets/4c/", leaf));
    EXPECT_EQ("", leaf);
    EXPECT_EQ(nullptr, ng::ConstructSubTreeBuilderNodeForPath(mRepo, root, "a//b", leaf));
}

TEST_F(GitTreeBuilder, FoldersLeftEmptyAreDropped)
{
    ASSERT_NE(nullptr, Commit({{"conflict/assets/ab/abc/conflict", "{}"}, {"assets/ab/x", "1"}}, "fill"));
    const auto root = Root();
    EXPECT_TRUE(Node(root, "conflict/assets/ab/abc/")->Remove("conflict"));
    EXPECT_FALSE(Node(root, "conflict/assets/ab/abc/")->Remove("conflict"));
    Node(root, "conflict/enclosures/zz/");  // asked for, and left empty
    EXPECT_EQ("assets sessionid ", NamesOf(ng::FinalizeTreeBuilderNode(mRepo, root)));
}

TEST_F(GitTreeBuilder, ClearingAFolderTakesAllBelowItButNotWhatComesAfter)
{
    ASSERT_NE(nullptr,
              Commit({{"conflict/assets/ab/abc/conflict", "1"}, {"conflict/assets/cd/cde/conflict", "2"}}, "m"));
    const auto root = Root();
    const auto before = Node(root, "conflict/assets/ab/abc/");
    Node(root, "conflict/")->Clear();
    EXPECT_EQ(0U, before->EntryCount());
    EXPECT_TRUE(before->Insert("conflict", WriteText("3"), ng::kModeBlob));
    const Oid tree = ng::FinalizeTreeBuilderNode(mRepo, root);
    const auto conflicts = ng::GetTree(mRepo, ng::GetTree(mRepo, tree), "conflict/assets");
    ASSERT_NE(nullptr, conflicts);
    EXPECT_EQ("ab ", NamesOf(conflicts->ID()));
    Node(root, "conflict/")->Clear();
    EXPECT_EQ("sessionid ", NamesOf(ng::FinalizeTreeBuilderNode(mRepo, root)));
}

TEST_F(GitTreeBuilder, AnUnchangedTreeKeepsItsIdAndIsNotReadBelow)
{
    const auto head = Commit({{"assets/ab/x", "1"}, {"assets/cd/y", "2"}}, "fill");
    const auto root = Root();
    Node(root, "assets/ab/");
    EXPECT_EQ(head->TreeID(), ng::FinalizeTreeBuilderNode(mRepo, root));
    Oid lost;
    ASSERT_TRUE(Oid::FromText(std::string(40, '9'), lost));
    // A folder that cannot be read is carried over where nothing below it changes, and fails where something does.
    ASSERT_TRUE(Node(root, "assets/")->Insert("ef", lost, ng::kModeTree));
    EXPECT_FALSE(ng::FinalizeTreeBuilderNode(mRepo, root).IsZero());
    ASSERT_TRUE(Node(root, "assets/ef/")->Insert("z", WriteText("3"), ng::kModeBlob));
    EXPECT_TRUE(ng::FinalizeTreeBuilderNode(mRepo, root).IsZero());
}

TEST_F(GitTreeBuilder, ARootLeftEmptyIsTheEmptyTree)
{
    const auto root = Root();
    root->Clear();
    const Oid tree = ng::FinalizeTreeBuilderNode(mRepo, root);
    EXPECT_EQ("4b825dc642cb6eb9a060e54bf8d69288fbee4904", tree.Text());
    EXPECT_NE(nullptr, ng::GetTree(mRepo, tree));
    EXPECT_EQ(tree, ng::FinalizeTreeBuilderNode(mRepo, ng::ConstructRootTreeBuilderNode(mRepo, nullptr)));
}

TEST_F(GitTreeBuilder, NamesThatGitForbidsAreRefused)
{
    const auto root = Root();
    const Oid blob = WriteText("1");
    for (const std::string_view name : {"", ".", "..", ".git", ".GIT", "a/b"})
        EXPECT_FALSE(root->Insert(name, blob, ng::kModeBlob)) << name;
    EXPECT_FALSE(root->Insert("good", Oid(), ng::kModeBlob));
    EXPECT_TRUE(ng::WriteTree(mRepo, {{"a/b", ng::kModeBlob, blob}}).IsZero());
}

TEST_F(GitTreeBuilder, AnEntryPutOverAnOpenFolderTakesItsPlace)
{
    const auto root = Root();
    const auto node = Node(root, "a/b/");
    ASSERT_TRUE(node->Insert("old", WriteText("1"), ng::kModeBlob));
    const Oid other = ng::WriteTree(mRepo, {{"new", ng::kModeBlob, WriteText("2")}});
    ASSERT_TRUE(Node(root, "a/")->Insert("b", other, ng::kModeTree));
    const Oid tree = ng::FinalizeTreeBuilderNode(mRepo, root);
    EXPECT_EQ("new ", NamesOf(ng::GetTree(mRepo, ng::GetTree(mRepo, tree), "a/b")->ID()));
}

/// The tree that libgit2 makes of the same entries.
Oid TreeOfLibgit2(const ng::RepoPtr& inRepo, const std::map<std::string, ng::TreeBuilderNode::Entry>& inEntries)
{
    ng::Wrapped<git_treebuilder> builder;
    if (git_treebuilder_new(builder.Out(), inRepo->Handle(), nullptr) != 0) return Oid();
    for (const auto& [name, entry] : inEntries) {
        git_oid oid;
        git_oid_fromraw(&oid, entry.mOid.Bytes());
        if (git_treebuilder_insert(nullptr, builder.Get(), name.c_str(), &oid,
                                   static_cast<git_filemode_t>(entry.mMode)) != 0)
            return Oid();
    }
    git_oid tree;
    return git_treebuilder_write(&tree, builder.Get()) == 0 ? Oid(tree.id) : Oid();
}

TEST_F(GitTreeBuilder, TreesAreThoseOfLibgit2WhateverTheOrderOfChanges)
{
    const Oid blob = WriteText("blob");
    const Oid folder = ng::WriteTree(mRepo, {{"x", ng::kModeBlob, blob}});
    const char* kNames[] = {"a", "a.b", "a-b", "a0", "ab", "abc", "b", "B", "z\xc3\xa9", "zz"};
    std::map<std::string, ng::TreeBuilderNode::Entry> entries;
    const auto root = ng::ConstructRootTreeBuilderNode(mRepo, nullptr);
    std::uint32_t state = 12345;
    for (int round = 0; round < 200; ++round) {
        state = state * 1664525 + 1013904223;
        std::string name = kNames[(state >> 8) % std::size(kNames)];
        if ((state >> 20) % 3 == 0) name += std::to_string((state >> 24) % 40);
        if (state % 4 == 0) {
            EXPECT_EQ(entries.erase(name) != 0, root->Remove(name));
        } else {
            const bool isFolder = (state >> 16) % 2 == 0;
            entries[name] = {isFolder ? ng::kModeTree : ng::kModeBlob, isFolder ? folder : blob};
            ASSERT_TRUE(root->Insert(name, entries[name].mOid, entries[name].mMode));
        }
        EXPECT_EQ(entries.size(), root->EntryCount());
        if (round % 5 == 0) {
            const Oid tree = ng::FinalizeTreeBuilderNode(mRepo, root);
            ASSERT_EQ(TreeOfLibgit2(mRepo, entries), tree) << "round " << round;
            const auto read = ng::GetTree(mRepo, tree);
            EXPECT_EQ(entries.size(), read->EntryCount());
            ng::TreeEntry found;
            for (const auto& [known, entry] : entries) {
                ASSERT_TRUE(read->Find(known, found)) << known;
                EXPECT_EQ(entry.mOid, found.mOid);
            }
            EXPECT_FALSE(read->Find("absent", found));
        }
    }
}

TEST(GitTree, WhatIsNoTreeIsRefused)
{
    const auto parse = [](std::string inBytes) {
        return ng::Tree::Parse(Oid(), std::make_shared<const std::string>(std::move(inBytes)));
    };
    const std::string good = std::string("100644 a") + '\0' + std::string(20, 'i');
    ASSERT_NE(nullptr, parse(good));
    EXPECT_EQ(1U, parse(good)->EntryCount());
    EXPECT_NE(nullptr, parse(""));
    for (std::size_t size = 1; size < good.size(); ++size)
        EXPECT_EQ(nullptr, parse(good.substr(0, size)));
    EXPECT_EQ(nullptr, parse(std::string("9 a") + '\0' + std::string(20, 'i')));
    EXPECT_EQ(nullptr, parse(std::string("100644 ") + '\0' + std::string(20, 'i')));
}

}  // namespace
