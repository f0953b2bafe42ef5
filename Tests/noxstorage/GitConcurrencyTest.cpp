#include <atomic>
#include <filesystem>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxstorage/OdbStore.h"
#include "Tests/noxstorage/GitFixture.h"

namespace {

namespace ng = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;
using ng::Oid;
using testing_support::GitFixture;

class GitConcurrency : public GitFixture
{
protected:
    void SetUp() override { Init(); }

    void ReadWhileOthersWrite(bool inScopesKeepTheHead);
    /// Runs the tasks at the same time and waits for them.
    void RunTogether(const std::vector<noxcore::threads::Task>& inTasks)
    {
        const auto executor = noxcore::threads::CreateIOBoundExecutor("test", inTasks.size());
        for (const auto& task : inTasks)
            executor->Queue(task);
        executor->ShutDownAndWait();
    }
};

void GitConcurrency::ReadWhileOthersWrite(bool inScopesKeepTheHead)
{
    ASSERT_NE(nullptr, Commit({{"assets/ab/one", "0"}, {"assets/cd/two", "0"}}, "0"));
    constexpr int kCommits = 60;
    std::atomic<bool> done{false};
    std::atomic<unsigned> torn{0};
    std::atomic<unsigned> reads{0};
    const auto read = [&] {
        for (int round = 0; !done || round < 10; ++round) {
            const ng::ReadScope scope(mRepo);
            const auto head = ng::GetCommitForBranch(mRepo, "session");
            const auto tree = ng::GetTreeAtCommit(mRepo, head);
            const auto one = ng::GetBlob(mRepo, tree, "assets/ab/one");
            const auto two = ng::GetBlob(mRepo, tree, "assets/cd/two");
            const bool whole = one != nullptr && two != nullptr && one->Content() == two->Content() &&
                               one->Content() == head->Message();
            if (!whole) ++torn;
            if (inScopesKeepTheHead && ng::GetBranchHead(mRepo, "session") != head->ID()) ++torn;
            ++reads;
        }
    };
    const auto write = [&] {
        for (int round = 1; round <= kCommits; ++round) {
            const std::string text = std::to_string(round);
            if (Commit({{"assets/ab/one", text}, {"assets/cd/two", text}}, text) == nullptr) ++torn;
            if (round % 20 == 0) backend::Checkpoint(mRepo);
        }
        done = true;
    };
    const auto add = [&] {
        for (int count = 0; count < 300; ++count) {
            const std::string text = "blob " + std::to_string(count) + std::string(3000, 'x');
            const Oid oid = WriteText(text);
            if (count % 50 == 0 && !ng::FlushObjects(mRepo)) ++torn;
            const auto blob = ng::GetBlob(mRepo, oid);
            if (blob == nullptr || blob->Content() != text) ++torn;
        }
    };
    RunTogether({write, read, read, add, add});
    EXPECT_EQ(0U, torn);
    EXPECT_GE(reads, 20U);
    EXPECT_EQ(std::to_string(kCommits), Message());
    std::vector<std::string> faults;
    EXPECT_TRUE(ng::FlushObjects(mRepo));
    EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
}

TEST_F(GitConcurrency, ReadersSeeWholeCommitsWhileAWriterCommitsFlushesAndCheckpoints)
{
    ReadWhileOthersWrite(true);
}

TEST_F(GitConcurrency, ReadersOfASingleFileSeeWholeCommitsToo)
{
    mRepo.reset();
    std::filesystem::create_directories(mFolder / "files");
    InitOneFile();
    ReadWhileOthersWrite(false);
}

TEST_F(GitConcurrency, TwoWritersOnOneBranchMakeOneLineOfHistory)
{
    std::atomic<unsigned> failed{0};
    const auto write = [&] {
        for (int round = 0; round < 30; ++round)
            if (ng::WriteCommit(mRepo, mFirst->TreeID(), mAuthor, mCommitter, "m", "session") == nullptr) ++failed;
    };
    RunTogether({write, write});
    EXPECT_EQ(0U, failed);
    unsigned length = 0;
    EXPECT_TRUE(ng::WalkFirstParents(mRepo, ng::GetCommitForBranch(mRepo, "session"), [&](const ng::CommitPtr&) {
        ++length;
        return true;
    }));
    EXPECT_EQ(61U, length);
}

TEST_F(GitConcurrency, NodesOfOneTreeAreFilledByManyThreads)
{
    const auto root = ng::ConstructRootTreeBuilderNode(mRepo, ng::GetTreeAtCommit(mRepo, mFirst));
    std::atomic<unsigned> failed{0};
    std::vector<noxcore::threads::Task> tasks;
    for (int thread = 0; thread < 4; ++thread)
        tasks.push_back([&, thread] {
            for (int count = 0; count < 200; ++count) {
                const std::string bucket = std::to_string(10 + (count * 4 + thread) % 40);
                const std::string path =
                    "assets/" + bucket + "/" + std::to_string(thread) + "-" + std::to_string(count) + "/text";
                std::string leaf;
                const auto node = ng::ConstructSubTreeBuilderNodeForPath(mRepo, root, path, leaf);
                if (!ng::TreeBuilderInsertBuffer(mRepo, node, leaf, path.data(), path.size())) ++failed;
            }
        });
    RunTogether(tasks);
    EXPECT_EQ(0U, failed);
    const Oid tree = ng::FinalizeTreeBuilderNode(mRepo, root);
    unsigned assets = 0;
    for (const ng::TreeEntry& bucket : ng::Entries(ng::GetTree(mRepo, ng::GetTree(mRepo, tree), "assets")))
        for (const ng::TreeEntry& asset : ng::Entries(ng::GetTree(mRepo, bucket.mOid))) {
            const auto blob = ng::GetBlob(mRepo, ng::GetTree(mRepo, asset.mOid), "text");
            if (blob != nullptr && blob->Content().find(asset.mName) != std::string_view::npos) ++assets;
        }
    EXPECT_EQ(800U, assets);
}

TEST_F(GitConcurrency, ARepositoryDroppedInTheMiddleOfWorkIsClosedWholeBeforeItOpensAgain)
{
    std::atomic<unsigned> failed{0};
    std::atomic<unsigned> reads{0};
    for (int round = 0; round < 12; ++round) {
        const std::string text = std::to_string(round);
        ASSERT_NE(nullptr, Commit({{"a", text}}, text));
        std::atomic<unsigned> begun{0};
        // Tasks are copied about: what holds the repository is one place a task.
        const auto toRead = std::make_shared<ng::RepoPtr>(mRepo);
        const auto toDrop = std::make_shared<ng::RepoPtr>(std::move(mRepo));
        const auto store = (*toRead)->GetStore().shared_from_this();
        const auto read = [&] {
            const ng::RepoPtr repo = std::move(*toRead);
            const ng::ReadScope scope(repo);
            ++begun;
            for (int count = 0; count < 30; ++count) {
                const auto blob =
                    ng::GetBlob(repo, ng::GetTreeAtCommit(repo, ng::GetCommitForBranch(repo, "session")), "a");
                if (blob == nullptr || blob->Content() != text) ++failed;
                ++reads;
            }
        };
        const auto maintain = [&] {
            bool complete = false;
            ++begun;
            while (store->Checkpoint(complete))
                continue;
        };
        const auto drop = [&] {
            while (begun < 2)
                continue;
            const std::string waits = "waits " + text;
            if (ng::WriteBlob(*toDrop, waits.data(), waits.size()).IsZero()) ++failed;
            toDrop->reset();
        };
        const auto open = [&] {
            while (backend::TryOpenRepository(Folder(), backend::kReadWrite, mRepo) != backend::OpenResult::Opened)
                continue;
            bool complete = false;
            if (store->Checkpoint(complete)) ++failed;  // the one before writes no more
        };
        RunTogether({read, maintain, drop, open});
        ASSERT_NE(nullptr, mRepo);
        EXPECT_EQ(text, TextAtHead("a"));
        EXPECT_TRUE(ng::HasObject(mRepo, ng::ComputeObjectID(ng::ObjectType::Blob, "waits " + text)));
    }
    EXPECT_EQ(0U, failed);
    EXPECT_EQ(360U, reads);
    std::vector<std::string> faults;
    EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
}

}  // namespace
