// What a hub has answered is there after it was killed, at whatever moment.

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>

#include "Client/Wire/OpaqueMembers.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Guid.h"
#include "Tests/LocalHubOutOfProcess/HubPrograms.h"
#include "Tests/Support/VirtualHub.h"
#include "Tests/Support/WaitUntil.h"

namespace {

using hubctl::Failure;
using noxcore::utility::Guid;
using testing_support::RunningHub;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kAssetsOfACommit = 3;

int Rounds()
{
    const char* text = std::getenv("HUB_TEST_KILL_ROUNDS");  // NOLINT(concurrency-mt-unsafe): only read
    return text == nullptr ? 20 : std::atoi(text);
}

struct MadeAsset
{
    std::string mID = Guid::CreateUnique().Text();
    std::string mEnclosureID = Guid::CreateUnique().Text();
    std::string mName;
    std::string mPayload;    ///< empty: it has no enclosure
    std::string mContentID;  ///< as the hub told it when the asset was read; empty before
};

/// A commit that was tried: it adds its assets and writes its number into the counter.
struct Attempt
{
    explicit Attempt(int inNumber) : mNumber(inNumber)
    {
        constexpr std::size_t kSizes[kAssetsOfACommit] = {0, 100, 50000};
        for (int i = 0; i < kAssetsOfACommit; ++i) {
            MadeAsset asset;
            asset.mName = std::to_string(inNumber) + "-" + std::to_string(i);
            while (asset.mPayload.size() < kSizes[i])
                asset.mPayload += asset.mName + " ";
            mAssets.push_back(std::move(asset));
        }
    }

    int mNumber;
    std::vector<MadeAsset> mAssets;
    std::string mCommitID;  ///< empty: not answered
};

class KillTest : public testing_support::HubPrograms
{
protected:
    using Form = noxnet::http::client::MultipartForm;

    static void AddAsset(const MadeAsset& inAsset, Form& ioForm)
    {
        EXPECT_TRUE(ioForm.AddText("assets+" + inAsset.mID + "+properties", R"({"name":")" + inAsset.mName + R"("})"));
        if (inAsset.mPayload.empty()) return;
        EXPECT_TRUE(ioForm.AddText("enclosures+" + inAsset.mEnclosureID + "+name+" + inAsset.mID, "content"));
        EXPECT_TRUE(
            ioForm.AddContent("enclosures+" + inAsset.mEnclosureID + "+content+" + inAsset.mID, inAsset.mPayload));
    }

    void MakeSession(RunningHub& inHub)
    {
        Failure failure;
        hubctl::dto::SessionResource session;
        ASSERT_TRUE(inHub.mAPI->CreateLocalProduction(R"({"name":"killed"})", session, failure)) << failure.mText;
        mSession = session.mSessionID.Text();
        MakeCounter(inHub);
    }

    /// A project in a single file in the autosave location, where each start looks.
    void MakeFile(RunningHub& inHub)
    {
        Failure failure;
        Form form;
        std::string body;
        std::filesystem::create_directories(std::filesystem::path(File()).parent_path());
        ASSERT_TRUE(form.AddText(VYCL::LocalHub::FormKey_RopeFile_Path().Text(), File()) &&
                    form.AddText(VYCL::LocalHub::FormKey_RopeFile_CreateMode().Text(),
                                 VYCL::LocalHub::FormValue_RopeFile_CreateNewOnly().Text()));
        ASSERT_TRUE(inHub.mAPI->PostForm(std::string(VYCL::URLTemplate::kRopeFileOpen), form, body, failure))
            << failure.mText;
        mSession = hubctl::dto::TextOf(hubctl::dto::FindMember(body, "vy:sessionId"));
        ASSERT_TRUE(mSession.starts_with("r-")) << body;
        MakeCounter(inHub);
    }
    [[nodiscard]] std::string File() const
    {
        return mFolder / ".local/share/corvane/TesselProjectsLocalHub/2025/local/Killed.lyr";
    }
    void MakeCounter(RunningHub& inHub)
    {
        Failure failure;
        hubctl::dto::TransactionResource transaction;
        hubctl::dto::TransactionResult result;
        ASSERT_TRUE(inHub.mAPI->OpenTransaction(mSession, transaction, failure)) << failure.mText;
        Form form;
        AddAsset(mCounter, form);
        const auto id = transaction.mTransactionID.Text();
        ASSERT_TRUE(inHub.mAPI->BulkCreate(id, form, result, failure)) << failure.mText;
        ASSERT_TRUE(inHub.mAPI->Commit(id, "made", transaction, failure)) << failure.mText;
    }

    /// False when the hub does not answer.
    bool CommitOnce(hubctl::HubAPI& inAPI)
    {
        Failure failure;
        mAttempts.emplace_back(++mLastNumber);
        Attempt& attempt = mAttempts.back();
        Form create;
        for (const MadeAsset& asset : attempt.mAssets)
            AddAsset(asset, create);
        Form edit;
        EXPECT_TRUE(edit.AddText("assets+" + mCounter.mID + "+properties",
                                 R"({"name":"counter","number":")" + std::to_string(attempt.mNumber) + R"("})"));
        hubctl::dto::TransactionResource transaction;
        hubctl::dto::TransactionResource committed;
        hubctl::dto::TransactionResult result;
        const auto id = [&] { return transaction.mTransactionID.View(); };
        const bool done = inAPI.OpenTransaction(mSession, transaction, failure) &&
                          inAPI.BulkCreate(id(), create, result, failure) &&
                          inAPI.BulkEdit(id(), edit, result, failure) &&
                          inAPI.Commit(id(), "commit " + std::to_string(attempt.mNumber), committed, failure);
        if (done) attempt.mCommitID = committed.mCommitID.Text();
        EXPECT_TRUE(done || !failure.GotAnswer()) << failure.mText;
        return done;
    }

    /// Compares the head with what was answered, and forgets the attempt that was not, if the hub has not made it.
    void Check(hubctl::HubAPI& inAPI)
    {
        Failure failure;
        hubctl::dto::CondensedAssetsResource head;
        ASSERT_TRUE(inAPI.GetCondensedAssets(mSession, "HEAD", head, failure)) << failure.mText;
        std::map<std::string, std::string> contents;  // asset -> its content
        for (const auto& asset : head.mAssets)
            contents[asset.mAssetID.Text()] = asset.mAssetContentID.Text();
        std::erase_if(mAttempts, [&](const Attempt& inAttempt) {
            return inAttempt.mCommitID.empty() && !contents.contains(inAttempt.mAssets[0].mID);
        });
        EXPECT_EQ(1 + mAttempts.size() * kAssetsOfACommit, contents.size());
        for (Attempt& attempt : mAttempts) {
            for (MadeAsset& asset : attempt.mAssets) {
                ASSERT_TRUE(contents.contains(asset.mID)) << asset.mName << " of commit " << attempt.mCommitID;
                if (asset.mContentID.empty()) ReadAsset(inAPI, asset);
                EXPECT_EQ(asset.mContentID, contents[asset.mID]) << asset.mName;
            }
        }
        CheckCounter(inAPI);
    }

    void CheckCounter(hubctl::HubAPI& inAPI)
    {
        Failure failure;
        hubctl::dto::Asset counter;
        ASSERT_TRUE(inAPI.GetAsset(mSession, "HEAD", mCounter.mID, counter, failure)) << failure.mText;
        const auto number = hubctl::dto::TextOf(hubctl::dto::FindMember(counter.mProperties.Text(), "number"));
        EXPECT_EQ(mAttempts.empty() ? std::string() : std::to_string(mAttempts.back().mNumber), number);
    }

    void ReadAsset(hubctl::HubAPI& inAPI, MadeAsset& ioAsset)
    {
        Failure failure;
        hubctl::dto::Asset asset;
        ASSERT_TRUE(inAPI.GetAsset(mSession, "HEAD", ioAsset.mID, asset, failure)) << failure.mText;
        EXPECT_EQ(ioAsset.mName, hubctl::dto::TextOf(hubctl::dto::FindMember(asset.mProperties.Text(), "name")));
        ioAsset.mContentID = asset.mAssetContentID.Text();
        if (ioAsset.mPayload.empty()) return;
        std::string payload;
        const std::string url = hubctl::FillURL(VYCL::URLTemplate::kAssetEnclosureById,
                                                {mSession, "HEAD", ioAsset.mID, ioAsset.mEnclosureID});
        ASSERT_TRUE(inAPI.Get(url, payload, failure)) << failure.mText;
        EXPECT_EQ(ioAsset.mPayload, payload) << ioAsset.mName;
    }

    /// Every commit that was answered can be read as it was, and every asset once more.
    void CheckHistory(hubctl::HubAPI& inAPI)
    {
        std::size_t commits = 0;
        for (Attempt& attempt : mAttempts) {
            ++commits;
            for (MadeAsset& asset : attempt.mAssets)
                ReadAsset(inAPI, asset);
            if (attempt.mCommitID.empty()) continue;
            Failure failure;
            hubctl::dto::CondensedAssetsResource then;
            ASSERT_TRUE(inAPI.GetCondensedAssets(mSession, attempt.mCommitID, then, failure)) << failure.mText;
            EXPECT_EQ(1 + commits * kAssetsOfACommit, then.mAssets.size()) << attempt.mCommitID;
        }
    }

    Milliseconds Random(Milliseconds inLongest)
    {
        return inLongest * std::uniform_real_distribution<double>(0, 1)(mRandom);
    }
    static void Nap(Milliseconds inTime) { poll(nullptr, 0, static_cast<int>(inTime.count())); }

    void KillWhileItStarts()
    {
        const pid_t hub = Start("localhub", {});
        Nap(Random(mLongestStart));
        kill(hub, SIGKILL);
        EXPECT_TRUE(WaitForEnd(hub));
    }

    /// Commits until the hub has been killed. The moment depends on how long a commit takes on this machine.
    void KillWhileItCommits(RunningHub& inHub)
    {
        const auto begin = std::chrono::steady_clock::now();
        ASSERT_TRUE(CommitOnce(*inHub.mAPI));
        const Milliseconds wait = Random(5 * (std::chrono::steady_clock::now() - begin));
        const auto killer = noxcore::threads::CreateIOBoundExecutor("killer", 1);
        killer->Queue([process = inHub.mProcess, wait] {
            Nap(wait);
            kill(process, SIGKILL);
        });
        while (CommitOnce(*inHub.mAPI) && !HasFailure()) {
        }
        killer->ShutDownAndWait();
        EXPECT_EQ(-SIGKILL, WaitForEnd(inHub.mProcess));
    }

    RunningHub StartHubOnce()
    {
        const auto begin = std::chrono::steady_clock::now();
        RunningHub hub = StartHub();
        mLongestStart = std::max<Milliseconds>(mLongestStart, std::chrono::steady_clock::now() - begin);
        return hub;
    }

    std::mt19937_64 mRandom{testing_support::TestSeed()};
    Milliseconds mLongestStart{0};
    std::string mSession;
    const MadeAsset mCounter = [] {
        MadeAsset counter;
        counter.mName = "counter";
        return counter;
    }();
    std::vector<Attempt> mAttempts;
    int mLastNumber = 0;
};

TEST_F(KillTest, WhatWasAnsweredIsThereAfterTheHubWasKilled)
{
    const int rounds = Rounds();
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        if (round > 0 && mRandom() % 4 == 0) KillWhileItStarts();
        RunningHub hub = StartHubOnce();
        ASSERT_TRUE(hub.mSession);
        if (round == 0) MakeSession(hub);
        Check(*hub.mAPI);
        if (HasFatalFailure()) return;
        KillWhileItCommits(hub);
        EXPECT_NE(std::string::npos, LogOf(hub.mProcess).find("Started local HTTP server"));
    }
    RunningHub hub = StartHubOnce();
    ASSERT_TRUE(hub.mSession);
    Check(*hub.mAPI);
    CheckHistory(*hub.mAPI);
    std::printf("%zu commits in %d rounds\n", mAttempts.size(), rounds);
    ASSERT_EQ(0, kill(hub.mProcess, SIGTERM));
    EXPECT_EQ(0, WaitForEnd(hub.mProcess));
}

TEST_F(KillTest, AFileThatWasOpenIsFoundByTheNextHubWhichClearsUpBehindTheKilledOne)
{
    namespace fs = std::filesystem;
    const auto foldersOf = [&](pid_t inProcess) {
        // By the name of the process below the temporary folder, wherever that is.
        std::vector<std::string> folders;
        for (fs::recursive_directory_iterator entry(mFolder / "tmp"), end; entry != end; ++entry)
            if (entry->path().filename() == std::to_string(inProcess)) folders.push_back(entry->path());
        return folders;
    };
    for (int round = 0; round < 3 && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        RunningHub hub = StartHubOnce();
        ASSERT_TRUE(hub.mSession);
        if (round == 0) MakeFile(hub);
        if (HasFatalFailure()) return;
        Check(*hub.mAPI);
        ASSERT_TRUE(CommitOnce(*hub.mAPI));
        const auto folders = foldersOf(hub.mProcess);
        ASSERT_EQ(1U, folders.size());
        EXPECT_FALSE(fs::is_empty(folders.front())) << "the file is open";
        KillWhileItCommits(hub);
        EXPECT_TRUE(fs::exists(folders.front()));
        RunningHub next = StartHubOnce();
        ASSERT_TRUE(next.mSession);
        Check(*next.mAPI);
        CheckHistory(*next.mAPI);
        EXPECT_TRUE(testing_support::WaitUntil([&] { return !fs::exists(folders.front()); }));
        EXPECT_EQ(0, kill(next.mProcess, SIGTERM));
        EXPECT_EQ(0, WaitForEnd(next.mProcess));
        EXPECT_FALSE(fs::exists(File() + "-journal")) << "closed, it stands alone";
    }
}

}  // namespace
