#pragma once

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/RopeFile.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"
#include "Tests/Support/FaultFiles.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/StoreTest.h"

namespace testing_support {

namespace fs = std::filesystem;
namespace git = noxstorage::git;
namespace RopeFile = VantryLocalHub::GitBox::RopeFile;
using testing::ElementsAre;

inline std::string ReadWhole(const std::string& inPath)
{
    std::ifstream file(inPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteWhole(const std::string& inPath, const std::string& inContent)
{
    std::ofstream(inPath, std::ios::binary) << inContent;
}

/// A store and a folder of single-file projects, on files that can fail.
class RopeFilePlaces : public StoreTest
{
protected:
    RopeFilePlaces() : RopeFilePlaces(std::make_shared<FaultFiles>()) {}
    ~RopeFilePlaces() override
    {
        mFiles->ReportTo(nullptr);
        mStore.reset();
        mScheduler->RunUntilIdle();
        mVfs.reset();
    }

    [[nodiscard]] std::string File(const std::string& inName = "Film.lyr") const { return mFolder + "/" + inName; }
    [[nodiscard]] std::vector<std::string> Listed() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(mFolder))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    int Create(dto::Session& outSession, bool inOverwrite = false, const std::string& inFile = {})
    {
        return mStore->CreateRopeFile(inFile.empty() ? File() : inFile, {dto::RawJSON(R"({"name":"Film"})"), {}},
                                      inOverwrite, outSession);
    }
    dto::Session CommitAsset(const ImmutableString& inSession, const std::string& inName)
    {
        const ImmutableString transaction = OpenTransaction(inSession);
        Add(transaction, MakeAsset(inName, "bin", {{"payload", inName + " payload"}}));
        dto::Session committed;
        EXPECT_EQ(200, Commit(transaction, &committed));
        return committed;
    }
    int AddLocator(const ImmutableString& inID, const std::string& inLocatorID)
    {
        dto::MediaLocator locator;
        locator.mMediaLocatorID = inLocatorID;
        locator.mProperties = dto::RawJSON("{}");
        return mStore->AddMediaLocator(inID, WriteMode::LocalEdit, locator);
    }
    /// A project with a commit, closed.
    dto::Session MakeFile(const std::string& inFile = {})
    {
        dto::Session session;
        EXPECT_EQ(201, Create(session, false, inFile));
        session = CommitAsset(session.mIdentifier, "one");
        CloseAll();
        return session;
    }
    void CloseAll()
    {
        mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks() + 1);
        mScheduler->RunUntilIdle();
    }
    void ForgetAll()
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
        mStore = std::make_shared<VantryLocalHub::GitBox::GitBox>(true);
    }
    ImmutableString HeadOf(const std::string& inFile)
    {
        dto::Session session;
        return mStore->OpenRopeFile(inFile, session) == 200 ? session.mRevision : ImmutableString();
    }
    static void Execute(const std::string& inFile, const std::string& inCommand)
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open(inFile.c_str(), &db));
        ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, inCommand.c_str(), nullptr, nullptr, nullptr)) << sqlite3_errmsg(db);
        sqlite3_close(db);
    }
    /// Closes the file, cuts an object in it short, and opens it as another process would.
    dto::Session OpenWithDamaged(const std::string& inOid)
    {
        CloseAll();
        ForgetAll();
        Execute(File(), "UPDATE objects SET data=substr(data,1,10) WHERE oid=x'" + inOid + "'");
        dto::Session opened;
        EXPECT_EQ(200, mStore->OpenRopeFile(File(), opened));
        return opened;
    }
    /// The file as a process leaves it that is killed in a commit, with what it needs to be whole again.
    void LeaveInACommit(const ImmutableString& inSession)
    {
        mVfs->StartRecording(mFolder);
        const ImmutableString transaction = OpenTransaction(inSession);
        Add(transaction, MakeAsset("two"));
        const std::size_t begin = mVfs->RecordedEvents();
        EXPECT_EQ(200, Commit(transaction));
        const FileRecording recording = mVfs->StopRecording();
        std::size_t moment = begin;
        const auto isWritten = [](const FileEvent& inEvent) {
            return inEvent.mOperation == FileOperation::Write && inEvent.mPath.ends_with(".lyr");
        };
        while (!isWritten(recording.Events().at(moment++)))
            continue;
        mStore.reset();
        mScheduler->RunUntilIdle();
        WriteFolderImage(recording.AfterKill(moment), mFolder);
        mStore = std::make_shared<VantryLocalHub::GitBox::GitBox>(true);
        ASSERT_THAT(Listed(), ElementsAre("Film.lyr", "Film.lyr-journal"));
        ASSERT_LT(1000U, fs::file_size(File("Film.lyr-journal")));
    }

    /// The power goes at each moment: the file is the old one or the new one, and nothing in it is of the other.
    void CheckPowerCuts(const FileRecording& inRecording, std::size_t inAnswered, const ImmutableString& inNewHead,
                        std::uint64_t inCuts)
    {
        for (std::size_t moment = 0; moment <= inAnswered; ++moment) {
            for (std::uint64_t cut = 0; cut < inCuts; ++cut) {
                SCOPED_TRACE("after event " + std::to_string(moment) + ", cut " + std::to_string(cut));
                mStore.reset();
                mScheduler->RunUntilIdle();
                WriteFolderImage(inRecording.AfterPowerCut(moment, 1000 * moment + cut), mFolder);
                mStore = std::make_shared<VantryLocalHub::GitBox::GitBox>(true);
                dto::Session opened;
                ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
                EXPECT_TRUE(opened.mRevision == inNewHead || moment < inAnswered);
                GetAssets(opened.mIdentifier);
                std::vector<std::string> faults;
                git::RepoPtr repo;
                ASSERT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(opened.mIdentifier)->RetainRepo(repo));
                EXPECT_TRUE(git::SQLite3OdbBackend::Scrub(repo, faults)) << (faults.empty() ? "" : faults.front());
            }
        }
        std::printf("%zu moments, %llu cuts at each\n", inAnswered + 1, static_cast<unsigned long long>(inCuts));
    }

    const std::string mFolder = mHome / "films";
    const std::shared_ptr<FaultFiles> mFiles;
    std::unique_ptr<FaultVfs> mVfs;

private:
    explicit RopeFilePlaces(std::shared_ptr<FaultFiles> inFiles) : StoreTest(inFiles), mFiles(std::move(inFiles))
    {
        fs::create_directories(mFolder);
        mStore.reset();
        mVfs = std::make_unique<FaultVfs>(mContext);
        mStore = std::make_shared<VantryLocalHub::GitBox::GitBox>(true);
        mFiles->ReportTo(mVfs.get());
    }
};

}  // namespace testing_support
