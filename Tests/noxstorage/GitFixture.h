#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/Noise.h"
#include "Tests/Support/TempFolder.h"

namespace testing_support {

/// A repository in a folder of its own, with a first commit on branch "session", under a hub whose log is kept.
class GitFixture : public testing::Test
{
protected:
    using Oid = noxstorage::git::Oid;
    using RepoPtr = noxstorage::git::RepoPtr;
    using CommitPtr = noxstorage::git::CommitPtr;

    static constexpr std::size_t kMaxBlobSize = 10000;

    GitFixture() : mContext(noxcore::HubContext::Create({})), mScope(mContext)
    {
        mContext->SetLog(mLog);
        noxstorage::git::Startup();
    }
    ~GitFixture() override
    {
        mRepo.reset();
        noxstorage::git::Shutdown();
    }

    void Init(std::size_t inMaxBlobSize = kMaxBlobSize)
    {
        namespace backend = noxstorage::git::SQLite3OdbBackend;
        const auto payload = noxcore::utility::CopyToRecycledMemory("the session");
        ASSERT_TRUE(backend::InitRepository(Folder(), {{"sessionid", payload}}, mAuthor, mCommitter, "first", 4096,
                                            inMaxBlobSize, backend::kReadWrite, mRepo, mFirst));
        ASSERT_TRUE(noxstorage::git::SetBranchToCommit(mRepo, mFirst, "session"));
        ASSERT_TRUE(noxstorage::git::SwitchToBranch(mRepo, "session"));
    }

    /// The same in a single file.
    void InitOneFile()
    {
        namespace backend = noxstorage::git::RopeBackends;
        const auto payload = noxcore::utility::CopyToRecycledMemory("the session");
        ASSERT_TRUE(backend::InitRepository(mFolder.Path(), OneFile(), {{"sessionid", payload}}, mAuthor, mCommitter,
                                            "first", mRepo, mFirst));
        ASSERT_TRUE(noxstorage::git::SetBranchToCommit(mRepo, mFirst, "session"));
        ASSERT_TRUE(noxstorage::git::SwitchToBranch(mRepo, "session"));
    }

    void Reopen()
    {
        mRepo.reset();
        mRepo = noxstorage::git::SQLite3OdbBackend::OpenRepository(Folder(), 1);
        ASSERT_NE(nullptr, mRepo);
    }

    bool OpenOneFile()
    {
        mRepo.reset();
        return noxstorage::git::RopeBackends::OpenRepository(mFolder.Path(), OneFile(), mRepo);
    }

    [[nodiscard]] std::string Folder() const { return mFolder / "git"; }
    [[nodiscard]] std::string OneFile() const { return mFolder / "files/Film.lyr"; }

    Oid WriteText(std::string_view inText) const
    {
        return noxstorage::git::WriteBlob(mRepo, inText.data(), inText.size());
    }

    /// Puts texts at paths over the head's tree; the new root tree.
    Oid TreeWith(const std::vector<std::pair<std::string, std::string>>& inTexts) const
    {
        namespace ng = noxstorage::git;
        const auto root = ng::ConstructRootTreeBuilderNode(
            mRepo, ng::GetTreeAtCommit(mRepo, ng::GetCommitForBranch(mRepo, "session")));
        for (const auto& [path, text] : inTexts) {
            std::string leaf;
            const auto node = ng::ConstructSubTreeBuilderNodeForPath(mRepo, root, path, leaf);
            if (!ng::TreeBuilderInsertBuffer(mRepo, node, leaf, text.data(), text.size())) return Oid();
        }
        return ng::FinalizeTreeBuilderNode(mRepo, root);
    }

    CommitPtr Commit(const std::vector<std::pair<std::string, std::string>>& inTexts, std::string_view inMessage,
                     std::string_view inBackup = {})
    {
        return noxstorage::git::WriteCommit(mRepo, TreeWith(inTexts), mAuthor, mCommitter, inMessage, "session",
                                            inBackup);
    }

    /// The text at a path at the head; "absent" when there is none.
    std::string TextAtHead(std::string_view inPath)
    {
        namespace ng = noxstorage::git;
        const auto blob =
            ng::GetBlob(mRepo, ng::GetTreeAtCommit(mRepo, ng::GetCommitForBranch(mRepo, "session")), inPath);
        return blob != nullptr ? std::string(blob->Content()) : "absent";
    }

    std::string Message() { return noxstorage::git::GetCommitForBranch(mRepo, "session")->Message(); }

    TempFolder mFolder;
    std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    std::shared_ptr<noxcore::HubContext> mContext;
    noxcore::HubContext::Scope mScope;
    noxstorage::git::Signature mAuthor{"Ada <Editor>", "", 1700000000, 0};
    noxstorage::git::Signature mCommitter{"localhub 1", "", 1700000001, -90};
    RepoPtr mRepo;
    CommitPtr mFirst;
};

}  // namespace testing_support
