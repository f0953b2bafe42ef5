// Single-file projects that somebody moves, links or replaces while they are open, and what must not be taken for one.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>

#include "Platform/noxstorage/RopeBackends.h"
#include "Tests/Model/RopeFilePlaces.h"

namespace {

using namespace testing_support;

/// Whether another process finds the file locked, as SQLite locks one for its only writer.
bool IsLockedForOthers(const std::string& inFile)
{
    const pid_t child = fork();
    if (child == 0) {
        constexpr off_t kPendingByte = 0x40000000;
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = kPendingByte;
        lock.l_len = 512;
        const int file = open(inFile.c_str(), O_RDWR);
        _exit(file >= 0 && fcntl(file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

class RopeFileMoves : public RopeFilePlaces
{
protected:
    dto::Session OpenAgain(const std::string& inFile)
    {
        dto::Session session;
        EXPECT_EQ(200, mStore->OpenRopeFile(inFile, session)) << inFile;
        return session;
    }
    int TryCommit(const ImmutableString& inSession)
    {
        dto::TransactionResource transaction;
        dto::Asset added;
        CommitOutcome outcome;
        int status = mStore->OpenTransaction(inSession, {}, VYCL::GetTransactionType_Edit(), {}, transaction);
        if (status < 300) status = mStore->AddAsset(transaction.mTransactionID, {}, MakeAsset("more"), added);
        if (status < 300) status = mStore->CommitTransaction(transaction.mTransactionID, {"more"}, false, outcome);
        mStore->CloseTransaction(transaction.mTransactionID);
        return status;
    }
};

TEST_F(RopeFileMoves, FilesOfOthersThatLieBesideAreNeverRemoved)
{
    MakeFile();
    ForgetAll();
    const std::vector<std::string> names = {"Film.lyr-making", "Film.lyr-copying", "Film.lyr-compacting",
                                            "Wedding-making", "Wedding-making-journal"};
    for (const std::string& name : names)
        WriteWhole(File(name), "of somebody else");
    dto::Session session;
    EXPECT_EQ(200, mStore->OpenRopeFile(File(), session));
    EXPECT_EQ(404, mStore->OpenRopeFile(File("Wedding"), session));
    EXPECT_EQ(409, Create(session, false));
    EXPECT_EQ(201, Create(session, false, File("Wedding")));
    for (const std::string& name : names)
        EXPECT_EQ("of somebody else", ReadWhole(File(name))) << name;
}

TEST_F(RopeFileMoves, NoProjectGetsTheNameOfWhatIsBuiltBesideOneOrOfAPartOfADatabase)
{
    for (const char* const end :
         {"-localhub-making", "-localhub-copying", "-localhub-compacting", "-journal", "-wal", "-shm"}) {
        dto::Session session;
        EXPECT_EQ(400, Create(session, true, File() + end)) << end;
    }
    EXPECT_TRUE(Listed().empty());
}

TEST_F(RopeFileMoves, NoRequestThatNamesAnOpenFileLetsGoOfItsLock)
{
    const dto::Session session = MakeFile();
    CommitAsset(session.mIdentifier, "two");
    fs::create_symlink(File(), File("linked.zip"));
    fs::create_hard_link(File(), File("hard.zip"));
    ASSERT_TRUE(IsLockedForOthers(File()));
    for (const std::string& file : {File(), File("linked.zip"), File("hard.zip")}) {
        dto::Session opened;
        EXPECT_NE(200, mStore->ExtractSnapshot(file, {}, opened)) << file;
        EXPECT_NE(201, mStore->CreateSessionFromSnapshot(file, {}, opened)) << file;
        EXPECT_NE(200, mStore->ApplySnapshot(session.mIdentifier, file, false, false, opened)) << file;
        EXPECT_EQ(400, mStore->TakeSnapshot(session.mIdentifier, {}, {}, {}, file)) << file;
        EXPECT_TRUE(IsLockedForOthers(File())) << file;
    }
}

TEST_F(RopeFileMoves, WhileAFileIsReadAsSomethingElseNoProjectIsOpenedInIt)
{
    namespace backend = noxstorage::git::RopeBackends;
    const dto::Session made = MakeFile();
    fs::create_hard_link(File(), File("again.lyr"));
    dto::Session session;
    {
        const backend::OtherUse use(File());
        const backend::OtherUse another(File("again.lyr"));
        EXPECT_TRUE(use);
        EXPECT_TRUE(another);
        EXPECT_EQ(423, mStore->OpenRopeFile(File(), session));
        EXPECT_EQ(423, mStore->OpenRopeFile(File("again.lyr"), session));
        EXPECT_NE(200, TryCommit(made.mIdentifier));
    }
    fs::remove(File("again.lyr"));
    OpenAgain(File());
    EXPECT_FALSE(backend::OtherUse(File()));
    EXPECT_EQ(200, TryCommit(made.mIdentifier));
}

TEST_F(RopeFileMoves, AFileThatWasMovedWhileItWasOpenIsOpenedWhereItIsAndNotWhereItWas)
{
    const dto::Session made = MakeFile();
    OpenAgain(File());
    fs::rename(File(), File("aside.lyr"));
    dto::Session session;
    EXPECT_EQ(404, mStore->OpenRopeFile(File(), session));
    const ImmutableString transaction = OpenTransaction(made.mIdentifier);
    EXPECT_EQ(made.mRevision, OpenAgain(File("aside.lyr")).mRevision);
    EXPECT_EQ(404, mStore->GetSession(made.mIdentifier, session));
    EXPECT_EQ(404, Commit(transaction));
    EXPECT_THAT(Listed(), testing::Not(testing::Contains("Film.lyr-journal")));
    // Asked for in its new place first.
    fs::rename(File("aside.lyr"), File("again.lyr"));
    const dto::Session again = OpenAgain(File("again.lyr"));
    EXPECT_NE(made.mIdentifier, again.mIdentifier);
    EXPECT_EQ(made.mRevision, again.mRevision);
    EXPECT_EQ(200, TryCommit(again.mIdentifier));
    // With another project in the place.
    const ImmutableString other = MakeFile(File("other.lyr")).mRevision;
    fs::rename(File("again.lyr"), File("away.lyr"));
    fs::rename(File("other.lyr"), File("again.lyr"));
    const dto::Session replaced = OpenAgain(File("again.lyr"));
    EXPECT_EQ(other, replaced.mRevision);
    EXPECT_EQ(again.mIdentifier, replaced.mIdentifier);
    // Not while somebody uses it.
    GitBox::Sandbox::Handles used;
    ASSERT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(replaced.mIdentifier)->RetainDB(used));
    fs::rename(File("again.lyr"), File("used.lyr"));
    EXPECT_EQ(423, mStore->OpenRopeFile(File("used.lyr"), session));
    used = {};
    EXPECT_EQ(other, OpenAgain(File("used.lyr")).mRevision);
}

TEST_F(RopeFileMoves, WhatTookThePlaceOfAnOpenFileIsNotOverwrittenByItsCompaction)
{
    const ImmutableString id = MakeFile().mIdentifier;
    CommitAsset(id, "two");
    const dto::Session other = MakeFile(File("Other.lyr"));
    CommitAsset(other.mIdentifier, "another");
    const ImmutableString head = GetSession(other.mIdentifier).mRevision;
    CloseAll();
    GetAssets(id);  // open again
    fs::rename(File("Other.lyr"), File());
    EXPECT_EQ(500, mStore->ThinHistoryToRopeFile(id, File(), {}));
    ForgetAll();
    EXPECT_EQ(head, HeadOf(File()));
}

TEST_F(RopeFileMoves, NoCommitIsAnsweredAsDoneIntoAFileThatIsGoneOrReplaced)
{
    for (const bool isReplaced : {false, true}) {
        SCOPED_TRACE(isReplaced ? "replaced" : "deleted");
        const ImmutableString id = MakeFile().mIdentifier;
        const ImmutableString other = isReplaced ? MakeFile(File("Other.lyr")).mRevision : ImmutableString();
        GetAssets(id);
        if (isReplaced)
            fs::rename(File("Other.lyr"), File());
        else
            fs::remove(File());
        EXPECT_EQ(500, TryCommit(id));
        ForgetAll();
        if (isReplaced) EXPECT_EQ(other, HeadOf(File()));
        ForgetAll();
        fs::remove(File());
    }
}

TEST_F(RopeFileMoves, AFileThatWasMovedAwayWhileOpenKeepsAllWhenItsNameIsTakenMeanwhile)
{
    const ImmutableString id = MakeFile().mIdentifier;
    const ImmutableString head = CommitAsset(id, "two").mRevision;
    fs::rename(File(), File("aside.lyr"));
    dto::Session made;
    EXPECT_EQ(201, Create(made));
    EXPECT_NE(head, made.mRevision);
    ForgetAll();
    EXPECT_EQ(head, HeadOf(File("aside.lyr")));
}

TEST_F(RopeFileMoves, WhatTookThePlaceOfAMovedFileKeepsItsJournalAndIsNotDeletedForIt)
{
    for (const bool isDeleted : {false, true}) {
        SCOPED_TRACE(isDeleted ? "deleted" : "closed");
        const ImmutableString id = MakeFile().mIdentifier;
        GetAssets(id);
        fs::rename(File(), File("aside.lyr"));
        WriteWhole(File(), "what somebody else works at");
        WriteWhole(File() + "-journal", "what it needs after a crash");
        if (isDeleted)
            EXPECT_EQ(200, mStore->DeletePersistedSessionData(id));
        else
            CloseAll();
        EXPECT_EQ("what somebody else works at", ReadWhole(File()));
        EXPECT_EQ("what it needs after a crash", ReadWhole(File() + "-journal"));
        fs::remove(File());
        fs::remove(File() + "-journal");
        ForgetAll();
        EXPECT_FALSE(HeadOf(File("aside.lyr")).empty());
        ForgetAll();
        fs::remove(File("aside.lyr"));
    }
}

TEST_F(RopeFileMoves, AProjectThatIsReachedThroughALinkIsTheSameAndStaysWhereItIs)
{
    fs::create_directories(File("real"));
    const std::string real = File("real/Film.lyr");
    const ImmutableString id = MakeFile(real).mIdentifier;
    fs::create_symlink(real, File("linked.lyr"));
    EXPECT_EQ(id, OpenAgain(File("linked.lyr")).mIdentifier);
    CommitAsset(id, "two");
    EXPECT_EQ(200, mStore->ThinHistoryToRopeFile(id, File("linked.lyr"), {}));
    EXPECT_TRUE(fs::is_symlink(File("linked.lyr")));
    const ImmutableString head = GetSession(id).mRevision;
    ForgetAll();
    EXPECT_EQ(head, HeadOf(real));
}

TEST_F(RopeFileMoves, WhatIsNoFileIsNeitherReplacedNorRemoved)
{
    const ImmutableString id = MakeFile().mIdentifier;
    fs::create_symlink(File("on a volume that is away"), File("dangling.lyr"));
    ASSERT_EQ(0, mkfifo(File("pipe.lyr").c_str(), 0600));
    fs::create_directories(File("folder.lyr"));
    for (const char* const name : {"dangling.lyr", "pipe.lyr", "folder.lyr"}) {
        for (const bool overwrites : {false, true}) {
            dto::Session session;
            EXPECT_EQ(409, Create(session, overwrites, File(name))) << name;
            EXPECT_EQ(409, mStore->CopyToRopeFile(id, {}, File(name), overwrites, session)) << name;
        }
        EXPECT_NE(fs::file_type::not_found, fs::symlink_status(File(name)).type()) << name;
    }
    dto::Session session;
    EXPECT_EQ(404, Create(session, false, File("no folder/Film.lyr")));
    EXPECT_EQ(404, mStore->CopyToRopeFile(id, {}, File("no folder/Film.lyr"), false, session));
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr", "dangling.lyr", "folder.lyr", "pipe.lyr"));
}

TEST_F(RopeFileMoves, AReplacedFileKeepsItsRightsAndAWriteProtectedOneIsNotReplaced)
{
    const ImmutableString id = MakeFile().mIdentifier;
    fs::permissions(File(), fs::perms(0600));
    EXPECT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    EXPECT_EQ(fs::perms(0600), fs::status(File()).permissions());
    CloseAll();
    fs::permissions(File(), fs::perms(0444));
    const std::string before = ReadWhole(File());
    dto::Session session;
    EXPECT_EQ(500, Create(session, true));
    EXPECT_EQ(before, ReadWhole(File()));
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr"));
}

TEST_F(RopeFileMoves, AReplacedFileKeepsTheLabelsThatPeoplePutOnIt)
{
    constexpr std::string_view kLabel = "rough cut";
    const ImmutableString id = MakeFile().mIdentifier;
    if (setxattr(File().c_str(), "user.xdg.tags", kLabel.data(), kLabel.size(), 0) != 0)
        GTEST_SKIP() << "no labels on this volume";
    EXPECT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    std::array<char, kLabel.size()> read{};
    EXPECT_EQ(static_cast<ssize_t>(kLabel.size()), getxattr(File().c_str(), "user.xdg.tags", read.data(), read.size()));
    EXPECT_EQ(kLabel, std::string_view(read.data(), read.size()));
}

TEST_F(RopeFileMoves, WhoeverIsQuickerByAMomentKeepsThePlace)
{
    const ImmutableString source = MakeFile().mIdentifier;
    dto::Session session;
    for (const bool isCopy : {false, true}) {
        SCOPED_TRACE(isCopy);
        const std::string taken = File(isCopy ? "copy.lyr" : "new.lyr");
        // When all that can be looked at beforehand has been.
        mVfs->SetHook(FileOperation::Rename, [&] { WriteWhole(taken, "another's"); });
        EXPECT_EQ(409,
                  isCopy ? mStore->CopyToRopeFile(source, {}, taken, false, session) : Create(session, false, taken));
        mVfs->SetHook(FileOperation::Rename, {});
        EXPECT_EQ("another's", ReadWhole(taken));
        fs::remove(taken);
        EXPECT_THAT(Listed(), ElementsAre("Film.lyr"));
        // Nothing of the attempt stands in the way of the next one.
        EXPECT_EQ(201,
                  isCopy ? mStore->CopyToRopeFile(source, {}, taken, false, session) : Create(session, false, taken));
        ASSERT_EQ(200, mStore->DeletePersistedSessionData(session.mIdentifier));
    }
}

TEST_F(RopeFileMoves, AProjectWhoseFileIsGoneIsNotFound)
{
    MakeFile();
    CloseAll();
    fs::remove(File());
    dto::Session session;
    EXPECT_EQ(404, mStore->OpenRopeFile(File(), session));
}

}  // namespace
