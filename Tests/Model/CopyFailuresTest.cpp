// What is told when a copy, a snapshot or a single file cannot be made, and that nothing of it is left.

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <set>
#include <stdexcept>

#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/RopeFileCopy.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Tests/Support/SnapshotFixture.h"

namespace {

using namespace testing_support;
namespace IO = GitBox::IO;
using testing::Contains;
using testing::IsSupersetOf;

/// Files of which the test picks one that throws when it is opened or made, or a folder that somebody else has made or
/// that throws when it is deleted.
class OddFiles final : public FaultFiles
{
public:
    bool FileExists(const Path& inPath) override
    {
        ThrowOn(inPath);
        return FaultFiles::FileExists(inPath);
    }
    std::unique_ptr<noxcore::filesupport::FileWriter> CreateFile(const Path& inPath) override
    {
        ThrowOn(inPath);
        return FaultFiles::CreateFile(inPath);
    }
    bool DirectoryExists(const Path& inPath) override
    {
        return (!mIsThere.empty() && inPath.find(mIsThere) != Path::npos) || FaultFiles::DirectoryExists(inPath);
    }

    bool DeleteDirectory(const Path& inPath) override
    {
        if (!mIsKept.empty() && inPath.find(mIsKept) != Path::npos) throw std::runtime_error("a folder that throws");
        return FaultFiles::DeleteDirectory(inPath);
    }

    Path mThrows;                ///< part of a path
    unsigned mPassesBefore = 0;  ///< so many looks at it
    Path mIsThere;               ///< part of a folder's path
    Path mIsKept;                ///< part of the path of a folder that is not deleted

private:
    void ThrowOn(const Path& inPath)
    {
        if (mThrows.empty() || inPath.find(mThrows) == Path::npos) return;
        if (mPassesBefore == 0) throw std::runtime_error("a file that throws");
        --mPassesBefore;
    }
};

class CopyFailures : public SnapshotFixture
{
protected:
    CopyFailures() : CopyFailures(std::make_shared<OddFiles>()) {}

    /// What is told in all while each operation of these kinds fails in turn; the work says whether it was done.
    template <class Work>
    std::set<std::string> TellWhileEachFails(std::initializer_list<FileOperation> inKinds, const Work& inWork,
                                             const std::string& inOnlyEndingIn = {})
    {
        std::set<std::string> told;
        for (const FileOperation kind : inKinds) {
            bool isReached = true;
            for (unsigned nth = 1; isReached; ++nth) {
                const unsigned reported = mVfs->FaultsReported();
                mLog->Clear();
                mVfs->SetFault(
                    {.mOperation = kind, .mNth = nth, .mCode = SQLITE_IOERR, .mOnlyEndingIn = inOnlyEndingIn});
                const bool isDone = inWork();
                isReached = mVfs->FaultsReported() != reported;
                mVfs->ClearFaults();
                EXPECT_TRUE(isDone || isReached);
                for (const auto& record : mLog->All())
                    told.insert(record.mMessage);
            }
        }
        return told;
    }
    std::string MessageOf(std::string_view inMessage, const char* inField) const
    {
        const auto found = mLog->Find(inMessage);
        EXPECT_EQ(1U, found.size()) << inMessage;
        return std::string(found.empty() ? "" : found[0].Value(inField));
    }
    int CreateFile(const std::string& inFile)
    {
        dto::Session session;
        return mStore->CreateRopeFile(inFile, {dto::RawJSON(R"({"name":"Film"})"), {}}, true, session);
    }
    int OpenFile(const std::string& inFile)
    {
        dto::Session session;
        return mStore->OpenRopeFile(inFile, session);
    }

private:
    explicit CopyFailures(std::shared_ptr<OddFiles> inFiles) : SnapshotFixture(inFiles), mOddFiles(std::move(inFiles))
    {
    }

protected:
    const std::shared_ptr<OddFiles> mOddFiles;
};

TEST_F(CopyFailures, ASnapshotIsNotMadeASessionOverASession)
{
    IO::RepoPtr repo;
    IO::DbPtr db;
    dto::Session session;
    const std::string folder = FolderOf(mSession.mIdentifier);
    EXPECT_FALSE(IO::InitSessionFromSnapshot(folder, "an id", "p-an id", repo, db, session));
    EXPECT_EQ(folder,
              MessageOf("InitSessionFromSnapshot: Won't create a session folder on top of an existing session folder",
                        "path"));
    EXPECT_FALSE(Content(mSession.mIdentifier).empty());
}

TEST_F(CopyFailures, TheFilesOfASessionThatIsMadeOfASnapshotAreToldOfWhereTheyCannotBeWritten)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    const auto make = [&] {
        dto::Session made;
        return mStore->CreateSessionFromSnapshot(In("a.zip"), {}, made) == 201;
    };
    EXPECT_THAT(TellWhileEachFails({FileOperation::WritePlain}, make),
                Contains("InitSessionFromSnapshot: Can't create persisted session files"));
}

TEST_F(CopyFailures, AnArchiveThatThrowsIsToldOfAndNothingOfItIsLeft)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    mOddFiles->mThrows = "b.zip";
    EXPECT_EQ(500, Take(In("b.zip")));
    EXPECT_EQ("a file that throws", MessageOf("CreateZipFile: Caught exception", "exception"));
    mOddFiles->mThrows = "a.zip";
    dto::Session opened;
    EXPECT_FALSE(IO::ExtractZipFile(In("a.zip"), In("a.lyra2")));
    EXPECT_EQ("a file that throws", MessageOf("ExtractZipFile: Caught exception", "exception"));
    mOddFiles->mThrows.clear();
    EXPECT_FALSE(std::filesystem::exists(In("a.lyra2")));
    EXPECT_FALSE(std::filesystem::exists(In("b.zip")));
    EXPECT_EQ(0U, TemporaryFolders());
    EXPECT_EQ(200, mStore->ExtractSnapshot(In("a.zip"), {}, opened));
}

TEST_F(CopyFailures, ASnapshotIsNotUnpackedOverWhatLiesInItsTemporaryPlace)
{
    ASSERT_EQ(200, Take(In("a.zip")));
    const ImmutableString before = GetSession(mSession.mIdentifier).mRevision;
    dto::Session applied;
    mOddFiles->mIsThere = VYCL::LocalHub::GetTempFolder() + "/" + std::to_string(getpid()) + "/";
    EXPECT_EQ(500, mStore->ApplySnapshot(mSession.mIdentifier, In("a.zip"), false, false, applied));
    mOddFiles->mIsThere.clear();
    EXPECT_EQ(1U, mLog->Count("ApplySnapshot: Will not replace existing extracted data"));
    EXPECT_EQ(1U, mLog->Count("Unable to apply snapshot"));
    EXPECT_EQ(before, GetSession(mSession.mIdentifier).mRevision);
}

TEST_F(CopyFailures, WhatASnapshotWasUnpackedIntoMayStayAndTheSnapshotIsAppliedAllTheSame)
{
    const auto expected = Content(mSession.mIdentifier);
    ASSERT_EQ(200, Take(In("a.zip")));
    MoveOn();
    dto::Session applied;
    mOddFiles->mIsKept = VYCL::LocalHub::GetTempFolder();
    EXPECT_EQ(200, mStore->ApplySnapshot(mSession.mIdentifier, In("a.zip"), false, true, applied));
    mOddFiles->mIsKept.clear();
    EXPECT_EQ("a folder that throws", MessageOf("ApplySnapshot: caught exception while deleting", "exception"));
    EXPECT_EQ(applied, GetSession(mSession.mIdentifier));
    EXPECT_TRUE(expected == Content(mSession.mIdentifier));
    EXPECT_EQ(1U, TemporaryFolders());
    // The next test may make one of the same name.
    std::filesystem::remove_all(VYCL::LocalHub::GetTempFolder());
}

TEST_F(CopyFailures, ACopyTellsWhichOfItsWritesFailed)
{
    const ImmutableString small = CreateSession().mIdentifier;
    const auto transaction = OpenTransaction(small);
    Add(transaction, MakeAsset("clip"));
    ASSERT_EQ(200, Commit(transaction));
    AddLocator(small, "m-1");
    const auto copy = [&] {
        dto::Session made;
        return Copy(small, {}, made) == 201;
    };
    EXPECT_THAT(
        TellWhileEachFails({FileOperation::Write}, copy),
        IsSupersetOf({"WriteCopiedSessionData: Write failed", "WriteCopiedSessionData: Write media locators failed",
                      "CopySessionData: Unable to copy local session"}));
}

TEST_F(CopyFailures, AFileThatCannotBeMadeTellsWhyAndLeavesWhatWasThere)
{
    ASSERT_EQ(201, CreateFile(In("Film.lyr")));
    const auto make = [&] { return CreateFile(In("Film.lyr")) == 201; };
    EXPECT_THAT(TellWhileEachFails({FileOperation::MakeFolder, FileOperation::Write}, make),
                IsSupersetOf({"CreateRopeFile: Can't create session folder",
                              "CreateRopeFile: Can't create rope file because git repo initiazation failed"}));
    EXPECT_EQ(200, OpenFile(In("Film.lyr")));
}

TEST_F(CopyFailures, WhatHasNoSessionIsNotThinned)
{
    namespace ropes = noxstorage::git::RopeBackends;
    noxstorage::git::RepoPtr repo;
    noxstorage::git::CommitPtr commit;
    std::filesystem::create_directories(In("side"));
    ASSERT_TRUE(ropes::InitRepository(In("side"), In("Bare.lyr"), {{"properties", Bytes("{}")}}, GitBox::MakeAuthor(),
                                      GitBox::MakeCommitter(), "without a branch", repo, commit));
    EXPECT_EQ(500, GitBox::RopeFile::IO::ThinHistoryToRopeFile(repo, {}, In("Thin.lyr")));
    EXPECT_EQ(repo->Path(), MessageOf("Unable to read session for copy", "srcRepo"));
    EXPECT_FALSE(std::filesystem::exists(In("Thin.lyr")));
}

TEST_F(CopyFailures, AFileThatThrowsIsNeitherMadeNorOpened)
{
    unsigned refused = 0;
    for (unsigned passes = 0; passes < 12; ++passes) {
        mOddFiles->mThrows = "Film.lyr";
        mOddFiles->mPassesBefore = passes;
        int status = 500;
        EXPECT_NO_THROW(status = CreateFile(In("Film.lyr"))) << passes;
        mOddFiles->mThrows.clear();
        ++refused;
        EXPECT_EQ(500, status);
    }
    EXPECT_GT(refused, 0U);
    EXPECT_GT(mLog->Count("CreateRopeFile: Caught exception"), 0U);

    dto::Session film;
    ASSERT_EQ(201, CreateFile(In("Film.lyr")));
    ASSERT_EQ(200, mStore->OpenRopeFile(In("Film.lyr"), film));
    ASSERT_EQ(200, mStore->ClearSandbox(film.mIdentifier));
    // Told of only where the file itself is opened; before that there is nothing to tidy up.
    for (unsigned passes = 0; mLog->Count("OpenRopeFile: Caught exception") == 0 && passes < 12; ++passes) {
        mOddFiles->mThrows = "Film.lyr";
        mOddFiles->mPassesBefore = passes;
        int status = 500;
        try {
            status = OpenFile(In("Film.lyr"));
        } catch (const std::runtime_error&) {
            continue;
        }
        EXPECT_EQ(500, status);
    }
    mOddFiles->mThrows.clear();
    EXPECT_EQ(1U, mLog->Count("OpenRopeFile: Caught exception"));
    EXPECT_EQ(200, OpenFile(In("Film.lyr")));
}

TEST_F(CopyFailures, ACompactionThatThrowsIsToldOfAndTheFileStaysWhole)
{
    dto::Session film;
    ASSERT_EQ(201, CreateFile(In("Film.lyr")));
    ASSERT_EQ(200, mStore->OpenRopeFile(In("Film.lyr"), film));
    for (unsigned passes = 0; passes < 12; ++passes) {
        mOddFiles->mThrows = "Film.lyr";
        mOddFiles->mPassesBefore = passes;
        EXPECT_NO_THROW(mStore->ThinHistoryToRopeFile(film.mIdentifier, In("Film.lyr"), {})) << passes;
        mOddFiles->mThrows.clear();
    }
    EXPECT_GT(mLog->Count("ThinHistoryToRopeFile: Caught exception"), 0U);
    EXPECT_EQ(200, mStore->ThinHistoryToRopeFile(film.mIdentifier, In("Film.lyr"), {}));
    EXPECT_EQ(R"({"name":"Film"})", Content(film.mIdentifier).at("properties"));
}

TEST_F(CopyFailures, AFileWhosePropertiesAreNoJSONObjectIsNotOpened)
{
    dto::Session film;
    ASSERT_EQ(201, CreateFile(In("Film.lyr")));
    ASSERT_EQ(200, mStore->OpenRopeFile(In("Film.lyr"), film));
    const auto transaction = OpenTransaction(film.mIdentifier);
    ASSERT_EQ(200, mStore->EditSessionProperties(transaction, {dto::RawJSON(R"({"name":)"), {}}));
    ASSERT_EQ(200, Commit(transaction));
    ASSERT_EQ(200, mStore->ClearSandbox(film.mIdentifier));
    EXPECT_EQ(500, OpenFile(In("Film.lyr")));
    EXPECT_EQ(1U, mLog->Count("Stored session properties are no JSON object"));
    EXPECT_EQ(1U, mStore->GetSessions().size());
}

}  // namespace
