// What lies in the place of a single-file project and beside it: it is overwritten by something whole or not at all,
// and what killed processes left is removed, but never what somebody has open.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "Platform/noxstorage/RopeFileHold.h"
#include "Tests/Model/RopeFilePlaces.h"

namespace {

using namespace testing_support;
using testing::UnorderedElementsAre;

/// Another process that has a file open as SQLite's exclusive writer, until it is told to end.
class OtherProcess
{
public:
    explicit OtherProcess(const std::string& inFile)
    {
        EXPECT_EQ(0, pipe2(mToChild.data(), O_CLOEXEC));
        EXPECT_EQ(0, pipe2(mFromChild.data(), O_CLOEXEC));
        mProcess = fork();
        if (mProcess == 0) Hold(inFile);
        char byte = 0;
        EXPECT_EQ(1, read(mFromChild[0], &byte, 1));
        EXPECT_EQ('y', byte);
    }
    ~OtherProcess()
    {
        EXPECT_EQ(1, write(mToChild[1], "e", 1));
        int status = 0;
        waitpid(mProcess, &status, 0);
        for (const int end : {mToChild[0], mToChild[1], mFromChild[0], mFromChild[1]})
            close(end);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

private:
    /// SQLite's locks are those of fcntl on bytes of the file; a child of a test keeps away from SQLite itself.
    [[noreturn]] void Hold(const std::string& inFile)
    {
        constexpr off_t kPendingByte = 0x40000000;
        constexpr off_t kBytes = 512;
        const int file = open(inFile.c_str(), O_RDWR);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = kPendingByte;
        lock.l_len = kBytes;
        const char isHeld = file >= 0 && fcntl(file, F_SETLK, &lock) == 0 ? 'y' : 'n';
        char byte = 0;
        const bool isDone = write(mFromChild[1], &isHeld, 1) == 1 && read(mToChild[0], &byte, 1) == 1;
        _exit(isDone ? 0 : 1);
    }

    std::array<int, 2> mToChild{};
    std::array<int, 2> mFromChild{};
    pid_t mProcess = -1;
};

// ---- Overwriting

TEST_F(RopeFilePlaces, WhateverFailsWhileAFileIsOverwrittenTheOldProjectOrTheNewOneIsThereWhole)
{
    constexpr std::pair<FileOperation, int> kKinds[] = {
        {FileOperation::Open, SQLITE_CANTOPEN},       {FileOperation::Write, SQLITE_IOERR_WRITE},
        {FileOperation::Sync, SQLITE_IOERR_FSYNC},    {FileOperation::Truncate, SQLITE_IOERR_TRUNCATE},
        {FileOperation::Delete, SQLITE_IOERR_DELETE}, {FileOperation::Read, SQLITE_IOERR_READ},
        {FileOperation::Look, SQLITE_IOERR},          {FileOperation::MakeFolder, SQLITE_IOERR},
        {FileOperation::Rename, SQLITE_IOERR},        {FileOperation::DeletePlain, SQLITE_IOERR},
        {FileOperation::DeleteFolder, SQLITE_IOERR},  {FileOperation::SyncFolder, SQLITE_IOERR}};
    ImmutableString known = MakeFile().mRevision;
    std::size_t points = 0;
    std::size_t kept = 0;
    for (const auto& [operation, code] : kKinds) {
        for (unsigned nth = 1; nth < 200; ++nth) {
            SCOPED_TRACE("operation " + std::to_string(static_cast<int>(operation)) + ", number " +
                         std::to_string(nth));
            mVfs->ClearFaults();
            mVfs->SetFault({.mOperation = operation, .mNth = nth, .mCode = code});
            const unsigned reported = mVfs->FaultsReported();
            dto::Session session;
            const int status = Create(session, true);
            const bool wasReached = mVfs->FaultsReported() != reported;
            mVfs->ClearFaults();
            CloseAll();
            ForgetAll();
            const ImmutableString head = HeadOf(File());
            ASSERT_FALSE(head.empty());
            ASSERT_TRUE(status != 201 || head != known) << "what was answered is there";
            kept += head == known ? 1U : 0U;
            dto::Session opened;
            ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
            EXPECT_EQ(head == known ? 1U : 0U, GetAssets(opened.mIdentifier).size());
            if (head != known) known = CommitAsset(opened.mIdentifier, "one").mRevision;
            CloseAll();
            EXPECT_THAT(Listed(), ElementsAre("Film.lyr"));
            if (!wasReached) break;
            ++points;
        }
    }
    std::printf("%zu points, after %zu of which the old file was there\n", points, kept);
    EXPECT_LT(100U, points);
    EXPECT_LT(50U, kept);
}

TEST_F(RopeFilePlaces, TheJournalOfAnOldFileIsNeverPlayedIntoTheNewOne)
{
    dto::Session session;
    ASSERT_EQ(201, Create(session));
    CommitAsset(session.mIdentifier, "one");
    LeaveInACommit(session.mIdentifier);
    mVfs->StartRecording(mFolder);
    dto::Session created;
    ASSERT_EQ(201, Create(created, true));
    const std::size_t answered = mVfs->RecordedEvents();
    CloseAll();
    CheckPowerCuts(mVfs->StopRecording(), answered, created.mRevision, 1);
}

TEST_F(RopeFilePlaces, AJournalIsGoneForGoodBeforeAnotherFileTakesThePlace)
{
    const ImmutableString head = MakeFile(File("Film.lyr-making")).mRevision;
    fs::rename(File("Film.lyr-making"), mHome / "made");
    dto::Session session;
    ASSERT_EQ(201, Create(session));
    LeaveInACommit(session.mIdentifier);
    fs::rename(mHome / "made", File("Film.lyr-making"));
    mVfs->StartRecording(mFolder);
    RopeFile::IO::OpenFile none;
    ASSERT_EQ(200, RopeFile::IO::MoveIntoPlace(File("Film.lyr-making"), File(), true, none));
    const std::size_t answered = mVfs->RecordedEvents();
    CheckPowerCuts(mVfs->StopRecording(), answered, head, 20);
}

TEST_F(RopeFilePlaces, AJournalWithoutItsFileIsNotPlayedIntoANewOne)
{
    const dto::Session session = MakeFile();
    LeaveInACommit(session.mIdentifier);
    ForgetAll();
    fs::remove(File());
    dto::Session created;
    ASSERT_EQ(201, Create(created));
    CloseAll();
    EXPECT_EQ(created.mRevision, HeadOf(File()));
}

TEST_F(RopeFilePlaces, AFileThatAnotherProcessHasOpenIsNotOverwritten)
{
    const dto::Session session = MakeFile();
    const dto::Session source = MakeFile(File("Source.lyr"));
    const std::string before = ReadWhole(File());
    const OtherProcess other(File());
    dto::Session created;
    EXPECT_EQ(423, Create(created, true));
    EXPECT_EQ(423, mStore->CopyToRopeFile(source.mIdentifier, {}, File(), true, created));
    EXPECT_EQ(423, mStore->ThinHistoryToRopeFile(source.mIdentifier, File(), {}));
    EXPECT_EQ(before, ReadWhole(File()));
    EXPECT_TRUE(mStore->SessionExists(session.mIdentifier)) << "it is the session that it was";
    ForgetAll();
    EXPECT_EQ(423, Create(created, true)) << "known here or not";
    CloseAll();
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr", "Source.lyr"));
}

TEST_F(RopeFilePlaces, AFileThatCouldNotBeOverwrittenIsTheSessionThatItWas)
{
    const dto::Session session = MakeFile();
    mVfs->SetFault({.mOperation = FileOperation::Rename, .mCode = SQLITE_IOERR});
    dto::Session created;
    EXPECT_EQ(500, Create(created, true));
    EXPECT_EQ(session.mRevision, GetSession(session.mIdentifier).mRevision);
    EXPECT_EQ(1U, GetAssets(session.mIdentifier).size());
    CommitAsset(session.mIdentifier, "two");
    EXPECT_EQ(2U, GetAssets(session.mIdentifier).size());
}

TEST_F(RopeFilePlaces, WhatWasBegunInAProjectIsNotForTheOneThatTookItsPlaceByAnUnansweredStep)
{
    const dto::Session session = MakeFile();
    const dto::Session source = MakeFile(File("Source.lyr"));
    const auto create = [&](dto::Session& outSession) { return Create(outSession, true); };
    const auto copy = [&](dto::Session& outSession) {
        return mStore->CopyToRopeFile(source.mIdentifier, {}, File(), true, outSession);
    };
    const auto thin = [&](dto::Session&) { return mStore->ThinHistoryToRopeFile(source.mIdentifier, File(), {}); };
    for (const std::function<int(dto::Session&)>& put : {std::function<int(dto::Session&)>(create), {copy}, {thin}}) {
        dto::Session opened;
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
        const ImmutableString transaction = OpenTransaction(opened.mIdentifier);
        const std::size_t assets = GetAssets(opened.mIdentifier).size();
        Add(transaction, MakeAsset("of the old project"));
        CloseAll();
        const std::string before = ReadWhole(File());
        unsigned nth = 1;
        // The folder is synced last, and asked once more where that fails.
        for (; ReadWhole(File()) == before && nth < 20; ++nth) {
            mVfs->SetFault(
                {.mOperation = FileOperation::SyncFolder, .mNth = nth, .mCode = SQLITE_IOERR, .mFromThenOn = true});
            dto::Session replaced;
            ASSERT_EQ(500, put(replaced)) << nth;
            mVfs->ClearFaults();
        }
        ASSERT_NE(before, ReadWhole(File()));
        dto::Session committed;
        EXPECT_EQ(404, Commit(transaction, &committed)) << nth << ", " << assets;
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
        EXPECT_EQ(404, Commit(transaction, &committed));
        for (const dto::Asset& asset : GetAssets(opened.mIdentifier))
            EXPECT_EQ(std::string::npos, asset.mProperties.Text().find("of the old project"));
        CloseAll();
    }
}

TEST_F(RopeFilePlaces, WhatIsNoProjectIsOverwrittenAsWell)
{
    WriteWhole(File(), std::string(3000, 'x'));
    WriteWhole(File("Film.lyr-journal"), "a journal of something");
    dto::Session created;
    EXPECT_EQ(409, Create(created));
    EXPECT_EQ(201, Create(created, true));
    CloseAll();
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr"));
    EXPECT_EQ(created.mRevision, HeadOf(File()));
}

TEST_F(RopeFilePlaces, TheLogOfAnotherKindOfDatabaseIsNotTakenForThatOfTheNewFile)
{
    // As a program leaves it that is killed: with its log.
    Execute(File("other"), "PRAGMA journal_mode=WAL; CREATE TABLE t(a); INSERT INTO t VALUES(1);");
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(File("other").c_str(), &db));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, "INSERT INTO t VALUES(2)", nullptr, nullptr, nullptr));
    fs::copy_file(File("other"), File());
    fs::copy_file(File("other-wal"), File("Film.lyr-wal"));
    sqlite3_close(db);
    fs::remove(File("other"));
    dto::Session created;
    EXPECT_EQ(201, Create(created, true));
    CloseAll();
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr"));
    EXPECT_EQ(created.mRevision, HeadOf(File()));
}

TEST_F(RopeFilePlaces, ThinningIntoAnotherFileThatFailsLeavesWhatLiesThere)
{
    const dto::Session session = MakeFile();
    const dto::Session other = MakeFile(File("Other.lyr"));
    mVfs->SetFault({.mOperation = FileOperation::Write, .mNth = 20, .mCode = SQLITE_FULL, .mFillsDisk = true});
    EXPECT_EQ(500, mStore->ThinHistoryToRopeFile(session.mIdentifier, File("Other.lyr"), {}));
    mVfs->ClearFaults();
    EXPECT_EQ(other.mRevision, GetSession(other.mIdentifier).mRevision);
    CloseAll();
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr", "Other.lyr"));
    EXPECT_EQ(other.mRevision, HeadOf(File("Other.lyr")));
}

// ---- Leftovers

TEST_F(RopeFilePlaces, WhatKilledProcessesLeftBesideAFileIsRemovedWhenItIsOpened)
{
    MakeFile();
    ForgetAll();
    for (const std::string_view name : RopeFile::IO::kNamesBeside) {
        fs::copy_file(File(), File() + std::string(name));
        WriteWhole(File() + std::string(name) + "-journal", "half");
    }
    WriteWhole(File("Film.lyr-localhub-copying"), "");
    WriteWhole(File("Film.lyr-localhub-compacting"), "torn");
    WriteWhole(File("Film.lyr-mine"), "of somebody else");
    EXPECT_FALSE(HeadOf(File()).empty());
    CloseAll();
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr", "Film.lyr-mine"));
}

TEST_F(RopeFilePlaces, AScanRemovesWhatWasLeftOverEvenWhereItsFileIsNotThere)
{
    const std::string place = VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation();
    MakeFile();
    fs::create_directories(place);
    for (const std::string name :
         {"Gone.lyr-localhub-making", "Gone.lyr-localhub-making-journal", "Film.lyr-localhub-copying-journal"})
        fs::copy_file(File(), place + "/" + name);
    ForgetAll();
    for (const auto& entry : fs::directory_iterator(place))
        EXPECT_TRUE(entry.is_directory()) << entry.path();
}

TEST_F(RopeFilePlaces, AScanRemovesTheEmptyJournalOfAFileThatIsGoneAndNoOther)
{
    const std::string place = VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation();
    MakeFile();
    fs::create_directories(place);
    fs::copy_file(File(), place + "/Here.lyr");
    WriteWhole(place + "/Gone.lyr-journal", "");
    WriteWhole(place + "/Moved.lyr-journal", "pages that a file had before");
    WriteWhole(place + "/notes-journal", "");
    ForgetAll();
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(place))
        if (!entry.is_directory()) files.push_back(entry.path().filename());
    EXPECT_THAT(files, UnorderedElementsAre("Here.lyr", "Moved.lyr-journal", "notes-journal"));
}

TEST_F(RopeFilePlaces, WhatAnotherProcessIsWritingIsNoLeftover)
{
    MakeFile();
    ForgetAll();
    for (const std::string_view name : RopeFile::IO::kNamesBeside) {
        const std::string beside = File() + std::string(name);
        fs::copy_file(File(), beside);
        const std::string before = ReadWhole(beside);
        {
            const OtherProcess other(beside);
            EXPECT_FALSE(HeadOf(File()).empty());
            dto::Session session;
            const bool isMaking = name == RopeFile::IO::kMaking;
            EXPECT_EQ(isMaking ? 423 : 201, Create(session, true)) << name;
            EXPECT_EQ(before, ReadWhole(beside)) << name;
        }
        ForgetAll();
        EXPECT_FALSE(HeadOf(File()).empty());
        EXPECT_FALSE(fs::exists(beside)) << name;
    }
}

TEST_F(RopeFilePlaces, WhatThisProcessHasOpenIsNoLeftover)
{
    MakeFile();
    ForgetAll();
    const std::string beside = File("Film.lyr-localhub-copying");
    fs::copy_file(File(), beside);
    RopeFile::IO::OpenFile open;
    ASSERT_EQ(200, RopeFile::IO::OpenRopeFile(beside, open));
    RopeFile::IO::RemoveLeftovers(File());
    EXPECT_TRUE(fs::exists(beside));
    RopeFile::IO::CloseFile(open);
    RopeFile::IO::RemoveLeftovers(File());
    EXPECT_FALSE(fs::exists(beside));
}

}  // namespace
