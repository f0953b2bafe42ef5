#pragma once

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/ComplaintBox.h"
#include "Inc/Model/RopeFile.h"
#include "Inc/Model/RopeFileBranches.h"
#include "Inc/Model/UtilsIO.h"
#include "Tests/Support/Noise.h"
#include "Tests/Support/StoreTest.h"

namespace testing_support {

namespace fs = std::filesystem;
namespace git = noxstorage::git;
namespace RopeFile = VantryLocalHub::GitBox::RopeFile;

/// A store and a folder of single-file projects.
class RopeFileFixture : public StoreTest
{
protected:
    RopeFileFixture() { fs::create_directories(mHome / "films"); }
    ~RopeFileFixture() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
    }

    [[nodiscard]] std::string File(const std::string& inName = "Feature.lyr") const
    {
        return mHome / ("films/" + inName);
    }
    static dto::ProductionProperties Properties() { return {dto::RawJSON(R"({"name":"Feature"})"), {}}; }

    dto::Session Create(const std::string& inFile, bool inOverwrite = false, int inStatus = 201)
    {
        dto::Session session;
        EXPECT_EQ(inStatus, mStore->CreateRopeFile(inFile, Properties(), inOverwrite, session));
        return session;
    }
    dto::Session Open(const std::string& inFile, int inStatus = 200)
    {
        dto::Session session;
        EXPECT_EQ(inStatus, mStore->OpenRopeFile(inFile, session));
        return session;
    }
    void Close(const ImmutableString& inID)
    {
        EXPECT_EQ(200, mStore->ClearSandbox(inID));
        mScheduler->RunUntilIdle();
    }
    dto::Session CommitAsset(const ImmutableString& inSession, const ImmutableString& inID, const std::string& inName,
                             const std::string& inMessage = "a commit")
    {
        const ImmutableString transaction = OpenTransaction(inSession);
        Add(transaction, MakeAsset(inName, "bin", {{"payload", inName + " payload"}}), inID);
        CommitOutcome outcome;
        EXPECT_EQ(200, mStore->CommitTransaction(transaction, {inMessage}, false, outcome));
        return outcome.mSession;
    }

    static git::RepoPtr RepoOf(const ImmutableString& inID)
    {
        git::RepoPtr repo;
        EXPECT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(inID)->RetainRepo(repo));
        return repo;
    }
    /// The messages of a branch, newest first.
    static std::vector<std::string> Messages(const ImmutableString& inID, std::string_view inBranch)
    {
        std::vector<std::string> messages;
        const git::RepoPtr repo = RepoOf(inID);
        git::Oid head;
        if (git::FindBranchHead(repo, inBranch, head) != git::Answer::Found) return messages;
        git::WalkFirstParents(repo, git::GetCommit(repo, head), [&](const git::CommitPtr& inCommit) {
            messages.push_back(inCommit->Message());
            return true;
        });
        return messages;
    }
    static std::string Hex(const std::string& inBytes)
    {
        std::string text;
        for (const char byte : inBytes)
            text += "0123456789abcdef"[static_cast<unsigned char>(byte) % 16];
        return text;
    }
    static void Execute(const std::string& inFile, const std::string& inCommand)
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open(inFile.c_str(), &db));
        ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, inCommand.c_str(), nullptr, nullptr, nullptr)) << sqlite3_errmsg(db);
        sqlite3_close(db);
    }
    std::vector<std::string> Beside() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(mHome / "films"))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    static std::size_t Complaints()
    {
        std::size_t count = 0;
        for (const auto& [session, complaints] : ComplaintBox::Instance()->SessionComplaints())
            count += complaints.size();
        return count;
    }

    /// Of this process: where side folders are made.
    const std::string mOwnFolder = VYCL::LocalHub::GetTempFolder() + "/" + std::to_string(::getpid());
    const ImmutableString mFirst = "11111111-1111-4111-8111-111111111111";
    const ImmutableString mSecond = "22222222-2222-4222-8222-222222222222";
};

}  // namespace testing_support
