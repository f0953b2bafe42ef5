#include "Src/Model/WalkAndCopy.h"

#include <sqlite3.h>

#include <atomic>
#include <filesystem>
#include <map>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxstorage/GitTrees.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/noxstorage/GitFixture.h"

namespace {

namespace ng = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;
namespace rope = noxstorage::git::RopeBackends;
using ng::ObjectType;
using ng::Oid;
using testing_support::FaultVfs;
using testing_support::FileOperation;
using testing_support::Noise;
using VantryLocalHub::GitBox::WalkAndCopyContext;

constexpr std::uint32_t kBlob = 0100644;
constexpr std::uint32_t kTree = 040000;

/// A repository with trees of assets, and single files that they are copied into.
class WalkAndCopy : public testing_support::GitFixture
{
protected:
    using Entries = std::map<std::string, std::pair<std::uint32_t, Oid>>;

    WalkAndCopy()
    {
        mVfs = std::make_unique<FaultVfs>(mContext);
        Init();
        mCopy = MakeFile("Copy.lyr");
    }
    ~WalkAndCopy() override
    {
        mCopy.reset();
        mRepo.reset();
    }

    ng::RepoPtr MakeFile(const std::string& inName) const
    {
        std::filesystem::create_directories(mFolder / "files");
        const auto payload = noxcore::utility::CopyToRecycledMemory("the copy");
        ng::RepoPtr repo;
        ng::CommitPtr first;
        EXPECT_TRUE(rope::InitRepository(mFolder.Path(), mFolder / ("files/" + inName), {{"sessionid", payload}},
                                         mAuthor, mCommitter, "first", repo, first));
        return repo;
    }
    Oid WriteTree(const Entries& inEntries) const
    {
        std::string bytes;
        for (const auto& [name, entry] : inEntries)
            ng::AppendTreeEntry(bytes, name, entry.first, entry.second);
        return ng::WriteObject(mRepo, ObjectType::Tree, bytes);
    }
    void Settle() const
    {
        ASSERT_TRUE(ng::FlushObjects(mRepo));
        ASSERT_TRUE(backend::Checkpoint(mRepo));
    }

    enum class Layout
    {
        AsEdited,    ///< what a tree names was written just before it
        KindByKind,  ///< content, then trees, the lower ones first
        TopDown      ///< the trees before what they name, as no edit writes them
    };
    /// A tree of that many assets: each with content of its own, a folder, and content that all have.
    Oid WriteAssets(unsigned inCount, Layout inLayout) const
    {
        const Oid common = WriteText("what all have");
        std::map<std::string, std::string> contents;
        Entries assets;
        std::vector<std::pair<ObjectType, std::string>> trees;
        const auto note = [&](const Entries& inEntries) {
            std::string bytes;
            for (const auto& [name, entry] : inEntries)
                ng::AppendTreeEntry(bytes, name, entry.first, entry.second);
            trees.emplace_back(ObjectType::Tree, bytes);
            return ng::ComputeObjectID(ObjectType::Tree, bytes);
        };
        const auto write = [&] {
            for (auto tree = trees.begin(); inLayout != Layout::TopDown && tree != trees.end(); ++tree)
                ng::WriteObject(mRepo, tree->first, tree->second);
            for (auto tree = trees.rbegin(); inLayout == Layout::TopDown && tree != trees.rend(); ++tree)
                ng::WriteObject(mRepo, tree->first, tree->second);
            trees.clear();
        };
        for (unsigned index = 0; index < inCount; ++index) {
            const std::string text = "asset " + std::to_string(index);
            const Oid content =
                inLayout == Layout::TopDown ? ng::ComputeObjectID(ObjectType::Blob, text) : WriteText(text);
            const Oid folder = note({{"common", {kBlob, common}}, {"content", {kBlob, content}}});
            const Oid asset = note({{"a", {kBlob, content}}, {"folder", {kTree, folder}}});
            assets["a" + std::to_string(index)] = {kTree, asset};
            contents[text] = text;
            if (inLayout == Layout::AsEdited) write();
        }
        const Oid root = note(assets);
        write();
        for (auto text = contents.begin(); inLayout == Layout::TopDown && text != contents.end(); ++text)
            WriteText(text->second);
        Settle();
        return root;
    }
    /// All that the tree names is there once, whole, and nothing else but the first commit of the file.
    static void ExpectWholeCopy(const ng::RepoPtr& inCopy, const Oid& inRoot, unsigned inAssets)
    {
        std::vector<std::string> faults;
        EXPECT_TRUE(backend::Scrub(inCopy, faults)) << faults.front();
        EXPECT_TRUE(ng::HasObject(inCopy, inRoot));
        std::size_t objects = 0;
        EXPECT_TRUE(ng::ForEachObject(inCopy, [&](const Oid&, ObjectType, std::uint64_t, std::string_view inPiece) {
            if (inPiece.empty()) ++objects;
            return true;
        }));
        constexpr std::size_t kOfFirstCommit = 3;
        EXPECT_EQ(3 * inAssets + 2 + kOfFirstCommit, objects);
    }

    std::unique_ptr<FaultVfs> mVfs;
    ng::RepoPtr mCopy;
};

TEST_F(WalkAndCopy, TwoThreadsBringEachObjectOnceHoweverTheSourceIsLaidOut)
{
    constexpr unsigned kAssets = 5000;  // more than two parts of a thread
    for (const Layout layout : {Layout::AsEdited, Layout::KindByKind, Layout::TopDown}) {
        SCOPED_TRACE(static_cast<int>(layout));
        mCopy.reset();
        mRepo.reset();
        std::filesystem::remove_all(Folder());
        std::filesystem::remove_all(mFolder / "files");
        Init();
        mCopy = MakeFile("Copy.lyr");
        const Oid root = WriteAssets(kAssets, layout);
        EXPECT_TRUE(WalkAndCopyContext(mRepo, mCopy).Copy(root));
        ExpectWholeCopy(mCopy, root, kAssets);
        // From a single file, which has one connection for all.
        const ng::RepoPtr second = MakeFile("Second.lyr");
        EXPECT_TRUE(WalkAndCopyContext(mCopy, second).Copy(root));
        ExpectWholeCopy(second, root, kAssets);
    }
}

TEST_F(WalkAndCopy, ASingleFileIsEditedWhileItIsCopied)
{
    constexpr unsigned kAssets = 2000;
    const Oid root = WriteAssets(kAssets, Layout::AsEdited);
    ASSERT_TRUE(WalkAndCopyContext(mRepo, mCopy).Copy(root));
    const ng::RepoPtr second = MakeFile("Second.lyr");
    std::atomic<bool> isDone{false};
    unsigned commits = 0;
    const auto executor = noxcore::threads::CreateIOBoundExecutor("test", 1);
    executor->Queue([&] {
        while (!isDone || commits < 5) {
            const std::string text = std::to_string(commits);
            const Oid blob = ng::WriteBlob(mCopy, text.data(), text.size());
            std::string tree;
            ng::AppendTreeEntry(tree, "text", kBlob, blob);
            const Oid made = ng::WriteObject(mCopy, ObjectType::Tree, tree);
            EXPECT_NE(nullptr, ng::WriteCommit(mCopy, made, mAuthor, mCommitter, text, "edits"));
            ++commits;
        }
    });
    EXPECT_TRUE(WalkAndCopyContext(mCopy, second).Copy(root));
    isDone = true;
    executor->ShutDownAndWait();
    ExpectWholeCopy(second, root, kAssets);
}

TEST_F(WalkAndCopy, ObjectsThatWaitInMemoryAreCopiedLikeOthers)
{
    const Oid blob = WriteText("waiting");
    const Oid folder = WriteTree({{"text", {kBlob, blob}}});
    const Oid root = WriteTree({{"folder", {kTree, folder}}});
    EXPECT_TRUE(WalkAndCopyContext(mRepo, mCopy).Copy(root));
    EXPECT_TRUE(ng::HasObject(mCopy, blob));
    std::vector<std::string> faults;
    EXPECT_TRUE(backend::Scrub(mCopy, faults)) << faults.front();
}

TEST_F(WalkAndCopy, WhatTwoTreesNameAsDifferentThingsStopsTheCopyWhereverItLies)
{
    for (const bool isFar : {false, true}) {
        for (const bool isTreeFirst : {false, true}) {
            const std::string number = std::to_string(2 * static_cast<int>(isFar) + static_cast<int>(isTreeFirst));
            const Oid inner = WriteTree({{"text" + number, {kBlob, WriteText("inner" + number)}}});
            for (unsigned index = 0; isFar && index < 100; ++index)
                WriteText(number + " between " + std::to_string(index));
            const Oid asTree = WriteTree({{"x", {kTree, inner}}});
            const Oid asBlob = WriteTree({{"x", {kBlob, inner}}});
            const Oid root = WriteTree(
                {{"1", {kTree, isTreeFirst ? asTree : asBlob}}, {"2", {kTree, isTreeFirst ? asBlob : asTree}}});
            const Oid onlyBlob = WriteTree({{"3", {kTree, asBlob}}});
            Settle();
            for (const bool looksFirst : {false, true}) {
                SCOPED_TRACE(number + (looksFirst ? " looks first" : ""));
                EXPECT_FALSE(WalkAndCopyContext(mRepo, mCopy, looksFirst).Copy(root));
                EXPECT_FALSE(WalkAndCopyContext(mRepo, mCopy, looksFirst).Copy(onlyBlob)) << "a tree as content";
            }
        }
    }
}

TEST_F(WalkAndCopy, ATreeThatWasCopiedCostsNothingASecondTimeAndAFailedCopyStaysOne)
{
    const Oid root = WriteTree({{"text", {kBlob, WriteText("text")}}});
    const Oid broken = WriteTree({{"text", {kBlob, ng::ComputeObjectID(ObjectType::Blob, "never written")}}});
    Settle();
    WalkAndCopyContext context(mRepo, mCopy);
    EXPECT_TRUE(context.Copy(root));
    mVfs->ResetCounts();
    EXPECT_TRUE(context.Copy(root));
    EXPECT_EQ(0U, mVfs->Count(FileOperation::Read) + mVfs->Count(FileOperation::Write));
    EXPECT_FALSE(context.Copy(broken));
    EXPECT_FALSE(context.Copy(broken)) << "met is not copied";
    EXPECT_FALSE(context.Copy(root));
}

TEST_F(WalkAndCopy, WhereContentIsAlreadyNoTreeIsThereThatNamesWhatIsMissingWhateverFails)
{
    const Oid shared = WriteTree({{"text", {kBlob, WriteText("there already")}}});
    Settle();
    ASSERT_TRUE(WalkAndCopyContext(mRepo, mCopy).Copy(shared));
    const Oid root = WriteAssets(60, Layout::TopDown);
    unsigned failures = 0;
    bool isCopied = false;
    for (unsigned nth = 1; nth < 300 && !isCopied; ++nth) {
        mVfs->SetFault({FileOperation::Write, nth, SQLITE_IOERR_WRITE, true, ".lyr"});
        isCopied = WalkAndCopyContext(mRepo, mCopy, true).Copy(root);
        mVfs->ClearFaults();
        mCopy.reset();
        ASSERT_TRUE(rope::OpenRepository(mFolder.Path(), mFolder / "files/Copy.lyr", mCopy));
        failures += isCopied ? 0U : 1U;
        std::vector<std::string> faults;
        ASSERT_TRUE(backend::Scrub(mCopy, faults)) << nth << ": " << faults.front();
    }
    EXPECT_TRUE(isCopied);
    EXPECT_LT(0U, failures);
    EXPECT_TRUE(ng::HasObject(mCopy, root));
}

}  // namespace
