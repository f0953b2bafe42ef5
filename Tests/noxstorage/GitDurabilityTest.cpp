#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "Tests/Support/FaultVfs.h"
#include "Tests/noxstorage/GitFixture.h"

namespace {

namespace ng = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;
using ng::Oid;
using testing_support::FaultVfs;
using testing_support::FileOperation;
using testing_support::GitFixture;

class GitDurability : public GitFixture
{
protected:
    void SetUp() override
    {
        mVfs = std::make_unique<FaultVfs>(mContext);
        Init();
    }
    void TearDown() override { mRepo.reset(); }

    static std::string Filled(const std::string& inMessage) { return inMessage + std::string(20000, 'b'); }
    static std::string Large(const std::string& inMessage) { return inMessage + testing_support::Noise(1100000); }

    /// Whatever the recorded events were cut at, the head is the one told of last or the next.
    void ExpectOneOf(const testing_support::FileRecording& inRecording,
                     const std::vector<std::pair<std::size_t, std::string>>& inPromised, std::size_t inStep)
    {
        std::size_t known = 0;
        for (std::size_t moment = 0; moment <= inRecording.Events().size(); moment += inStep) {
            while (known + 1 < inPromised.size() && inPromised[known + 1].first <= moment)
                ++known;
            const std::string& last = inPromised[known].second;
            const std::string& next = inPromised[std::min(known + 1, inPromised.size() - 1)].second;
            for (std::uint64_t seed = 0; seed < 3; ++seed) {
                const std::string found = MessageOf(inRecording.AfterPowerCut(moment, seed));
                ASSERT_TRUE(found == last || found == next)
                    << "moment " << moment << " seed " << seed << ": " << found << " instead of " << last;
            }
            const std::string killed = MessageOf(inRecording.AfterKill(moment));
            ASSERT_TRUE(killed == last || killed == next) << "moment " << moment << ": " << killed;
        }
    }

    /// The head of a copy of the folder, as a new process would find it.
    std::string MessageOf(const testing_support::FolderImage& inImage)
    {
        const std::string folder = mFolder / "image";
        testing_support::WriteFolderImage(inImage, folder);
        const auto repo = backend::OpenRepository(folder, 1);
        if (repo == nullptr) return "cannot be opened";
        const auto head = ng::GetCommitForBranch(repo, "session");
        if (head == nullptr) return "no head";
        const auto tree = ng::GetTreeAtCommit(repo, head);
        const auto blob = ng::GetBlob(repo, tree, "assets/ab/text");
        if (head->Message() != "first" && (blob == nullptr || blob->Content() != head->Message())) return "torn";
        const auto filled = ng::GetBlob(repo, tree, "b");
        if (filled != nullptr && filled->Content() != Filled(head->Message())) return "torn b";
        const auto large = ng::GetBlob(repo, tree, "large");
        if (large != nullptr && large->Content() != Large(head->Message())) return "torn large";
        std::vector<std::string> faults;
        return backend::Scrub(repo, faults) ? head->Message() : faults.front();
    }

    std::unique_ptr<FaultVfs> mVfs;
};

TEST_F(GitDurability, ACommitIsOneSyncAndTwoAfterTheLogWasReset)
{
    ASSERT_NE(nullptr, Commit({{"a", "1"}}, "second"));
    for (int round = 0; round < 3; ++round) {
        mVfs->ResetCounts();
        ASSERT_NE(nullptr, Commit({{"assets/ab/a", std::to_string(round)}}, "again"));
        EXPECT_EQ(1U, mVfs->Count(FileOperation::Sync));
    }
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    mVfs->ResetCounts();
    ASSERT_NE(nullptr, Commit({{"a", "after"}}, "again"));
    EXPECT_EQ(2U, mVfs->Count(FileOperation::Sync));
}

TEST_F(GitDurability, AFlushSyncsNothing)
{
    ASSERT_NE(nullptr, Commit({{"a", "1"}}, "second"));
    mVfs->ResetCounts();
    WriteText("waiting");
    EXPECT_EQ(0U, mVfs->Count(FileOperation::Write));
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    EXPECT_NE(0U, mVfs->Count(FileOperation::Write));
    EXPECT_EQ(0U, mVfs->Count(FileOperation::Sync));
}

TEST_F(GitDurability, APowerCutAtAnyMomentLeavesTheHeadBeforeOrAfterAndNothingTorn)
{
    ASSERT_NE(nullptr, Commit({{"assets/ab/text", "second"}}, "second"));
    mVfs->StartRecording(Folder());
    std::vector<std::pair<std::size_t, std::string>> promised{{0, "second"}};
    for (int round = 0; round < 4; ++round) {
        const std::string message = "round " + std::to_string(round);
        if (round == 2) {
            ASSERT_TRUE(backend::Checkpoint(mRepo));
        }
        WriteText("flushed " + message + std::string(9000, 'f'));
        ASSERT_TRUE(ng::FlushObjects(mRepo));
        ASSERT_NE(nullptr, Commit({{"assets/ab/text", message}, {"b", Filled(message)}}, message));
        promised.emplace_back(mVfs->RecordedEvents(), message);
    }
    ExpectOneOf(mVfs->StopRecording(), promised, 1);
}

TEST_F(GitDurability, APowerCutWhileALargeObjectIsWrittenLeavesTheHeadBeforeOrAfter)
{
    ASSERT_NE(nullptr, Commit({{"assets/ab/text", "second"}}, "second"));
    mVfs->StartRecording(Folder());
    std::vector<std::pair<std::size_t, std::string>> promised{{0, "second"}};
    for (const char* message : {"third", "fourth"}) {
        const Oid tree = TreeWith({{"assets/ab/text", message}, {"large", Large(message)}});
        ASSERT_NE(nullptr, ng::WriteCommit(mRepo, tree, mAuthor, mCommitter, message, "session"));
        promised.emplace_back(mVfs->RecordedEvents(), message);
    }
    const auto recording = mVfs->StopRecording();
    ASSERT_GT(recording.Events().size(), 100U);
    ExpectOneOf(recording, promised, 23);
}

TEST_F(GitDurability, APowerCutWhileObjectsAreSplitOrJoinedLosesNone)
{
    ASSERT_NE(nullptr, Commit({{"assets/ab/text", "second"}, {"b", Filled("second")}}, "second"));
    WriteText(testing_support::Noise(50000));
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    mVfs->StartRecording(Folder());
    ASSERT_TRUE(backend::DowngradeRepositoryInPlace(mRepo, 1));
    ASSERT_TRUE(backend::UpgradeRepositoryInPlace(mRepo, 5000));
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    ExpectOneOf(mVfs->StopRecording(), {{0, "second"}}, 1);
}

TEST_F(GitDurability, APowerCutWhileTheIndexIsFilledAndTheLogEmptiedLosesNoCommit)
{
    ASSERT_NE(nullptr, Commit({{"assets/ab/text", "second"}}, "second"));
    mVfs->StartRecording(Folder());
    for (int number = 0; number < 1500; ++number)
        WriteText("small " + std::to_string(number));
    ASSERT_NE(nullptr, Commit({{"assets/ab/text", "third"}, {"b", Filled("third")}}, "third"));
    const std::size_t committed = mVfs->RecordedEvents();
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    EXPECT_GT(mVfs->RecordedEvents(), committed + 10);
    ExpectOneOf(mVfs->StopRecording(), {{0, "second"}, {committed, "third"}}, 7);
}

TEST_F(GitDurability, AWriteThatFailsAnywhereWhileObjectsAreSplitOrJoinedChangesNothing)
{
    const std::string bytes = testing_support::Noise(50000);
    const Oid blob = WriteText(bytes);
    ASSERT_NE(nullptr, Commit({{"assets/ab/text", "second"}}, "second"));
    bool ended = false;
    std::size_t limit = kMaxBlobSize;
    for (unsigned nth = 1; !ended && nth < 300; ++nth) {
        mVfs->SetFault({FileOperation::Write, nth, SQLITE_FULL, false, "-wal", 0});
        const unsigned before = mVfs->FaultsReported();
        const std::size_t other = limit == 0 ? kMaxBlobSize : 0;
        const bool turned = other == 0 ? backend::DowngradeRepositoryInPlace(mRepo, 1)
                                       : backend::UpgradeRepositoryInPlace(mRepo, other);
        mVfs->ClearFaults();
        ended = mVfs->FaultsReported() == before;
        ASSERT_EQ(ended, turned);
        if (turned) limit = other;
        ASSERT_EQ(limit, backend::GetMaxBlobSize(mRepo));
        ASSERT_EQ(bytes, ng::GetBlob(mRepo, blob)->Content());
    }
    EXPECT_TRUE(ended);
    std::vector<std::string> faults;
    EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
}

TEST_F(GitDurability, WhatWaitsIsWrittenWhenTheRepositoryIsClosed)
{
    const Oid blob = WriteText("waits");
    Reopen();
    ASSERT_NE(nullptr, ng::GetBlob(mRepo, blob));
    EXPECT_FALSE(mRepo->MayLackContent());
}

TEST_F(GitDurability, WhatCannotBeWrittenWhenTheRepositoryIsClosedIsKnownToBeLost)
{
    const Oid blob = WriteText("lost");
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "-wal", 0});
    mRepo.reset();
    mVfs->ClearFaults();
    Reopen();
    EXPECT_EQ(nullptr, ng::GetBlob(mRepo, blob));
    EXPECT_TRUE(mRepo->MayLackContent());
    Reopen();
    EXPECT_TRUE(mRepo->MayLackContent());
    EXPECT_EQ("first", Message());
}

TEST_F(GitDurability, AWriteThatFailsAnywhereInACommitLeavesTheBranchAndTheCommitCanBeTriedAgain)
{
    ASSERT_NE(nullptr, Commit({{"assets/ab/text", "second"}}, "second"));
    std::string expected = "second";
    bool ended = false;
    for (unsigned nth = 1; !ended && nth < 200; ++nth) {
        const std::string message = "attempt " + std::to_string(nth);
        const Oid tree = TreeWith({{"assets/ab/text", message}, {"b", message + std::string(15000, 'b')}});
        for (const int code : {SQLITE_FULL, SQLITE_IOERR_WRITE}) {
            mVfs->SetFault({FileOperation::Write, nth, code, false, "-wal", 100});
            const unsigned before = mVfs->FaultsReported();
            const auto failed = ng::WriteCommit(mRepo, tree, mAuthor, mCommitter, message, "session");
            mVfs->ClearFaults();
            ended = mVfs->FaultsReported() == before;
            if (ended) break;
            ASSERT_EQ(nullptr, failed);
            ASSERT_FALSE(mRepo->NeedsReopen());
            ASSERT_EQ(expected, TextAtHead("assets/ab/text"));
        }
        if (ended) break;
        ASSERT_NE(nullptr, ng::WriteCommit(mRepo, tree, mAuthor, mCommitter, message, "session"));
        expected = message;
    }
    EXPECT_TRUE(ended);
    Reopen();
    std::vector<std::string> faults;
    EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
}

TEST_F(GitDurability, AFlushThatFailsIsReportedAndTheObjectsWaitOn)
{
    const Oid blob = WriteText("waits");
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "-wal", 0});
    EXPECT_FALSE(ng::FlushObjects(mRepo));
    EXPECT_NE(nullptr, ng::GetBlob(mRepo, blob));
    EXPECT_EQ(nullptr, Commit({{"a", "1"}}, "refused"));
    EXPECT_FALSE(mRepo->NeedsReopen());
    mVfs->ClearFaults();
    ASSERT_NE(nullptr, Commit({{"a", "1"}}, "taken"));
    Reopen();
    EXPECT_EQ("waits", ng::GetBlob(mRepo, blob)->Content());
    EXPECT_EQ("taken", Message());
}

TEST_F(GitDurability, WhatWaitsStaysBoundedWhileTheDiskIsFull)
{
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "-wal", 0});
    std::size_t kept = 0;
    for (int count = 0; count < 400; ++count) {
        const std::string bytes = testing_support::Noise(100000, static_cast<unsigned>(count));
        if (!WriteText(bytes).IsZero()) ++kept;
    }
    EXPECT_GT(kept, 300U);
    EXPECT_LT(kept, 350U);
    mVfs->ClearFaults();
    EXPECT_TRUE(ng::FlushObjects(mRepo));
}

TEST_F(GitDurability, AfterAFailedSyncNothingIsWrittenUntilTheRepositoryIsOpenedAnew)
{
    ASSERT_NE(nullptr, Commit({{"a", "second"}}, "second"));
    mVfs->SetFault({FileOperation::Sync, 1, SQLITE_IOERR_FSYNC, false, "-wal", 0});
    EXPECT_EQ(nullptr, Commit({{"a", "third"}}, "third"));
    EXPECT_EQ(1U, mVfs->FaultsReported());
    EXPECT_TRUE(mRepo->NeedsReopen());
    mVfs->ResetCounts();
    EXPECT_EQ(nullptr, Commit({{"a", "fourth"}}, "fourth"));
    EXPECT_FALSE(ng::FlushObjects(mRepo));
    EXPECT_FALSE(ng::SetBranchToCommit(mRepo, mFirst, "session"));
    EXPECT_FALSE(backend::Checkpoint(mRepo));
    EXPECT_EQ("second", TextAtHead("a"));
    mRepo.reset();
    EXPECT_EQ(0U, mVfs->Count(FileOperation::Sync));  // not even when it is closed
    Reopen();
    EXPECT_FALSE(mRepo->NeedsReopen());
    const std::string head = Message();
    EXPECT_TRUE(head == "second" || head == "third") << head;
    ASSERT_NE(nullptr, Commit({{"a", "fifth"}}, "fifth"));
    EXPECT_EQ("fifth", TextAtHead("a"));
}

TEST_F(GitDurability, AfterAFailedSyncNothingIsCommittedBehindALogThatIsNotInTheFile)
{
    ASSERT_NE(nullptr, Commit({{"a", "second"}}, "second"));
    mVfs->SetFault({FileOperation::Sync, 1, SQLITE_IOERR_FSYNC, false, "-wal", 0});
    EXPECT_EQ(nullptr, Commit({{"a", "third"}}, "third"));
    mVfs->ClearFaults();
    mRepo.reset();
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, "odb.sqlite3", 0});
    for (int attempt = 0; attempt < 2; ++attempt) {
        Reopen();
        EXPECT_TRUE(mRepo->NeedsReopen());
        EXPECT_NE("absent", TextAtHead("a"));
        EXPECT_EQ(nullptr, Commit({{"a", "fourth"}}, "fourth"));
    }
    mVfs->ClearFaults();
    Reopen();
    EXPECT_FALSE(mRepo->NeedsReopen());
    ASSERT_NE(nullptr, Commit({{"a", "fifth"}}, "fifth"));
}

TEST_F(GitDurability, AReadThatFailsIsNotTakenForAbsence)
{
    const auto second = Commit({{"assets/ab/text", "second"}}, "second");
    const auto tree = ng::GetTreeAtCommit(mRepo, second);
    Oid none;
    ASSERT_TRUE(Oid::FromText(std::string(40, '1'), none));
    ng::CommitPtr commit;
    Oid head;
    ng::TreeEntry entry;
    ng::ObjectType type = ng::ObjectType::Invalid;
    EXPECT_EQ(ng::Answer::Absent, ng::FindCommit(mRepo, none, commit));
    EXPECT_EQ(ng::Answer::Absent, ng::FindCommit(mRepo, second->TreeID(), commit));
    EXPECT_EQ(ng::Answer::Absent, ng::FindBranchHead(mRepo, "nowhere", head));
    EXPECT_EQ(ng::Answer::Absent, ng::FindEntry(mRepo, tree, "assets/ab/none", entry));
    EXPECT_EQ(ng::Answer::Absent, ng::FindObjectType(mRepo, none, type));
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    Reopen();
    mVfs->SetFault({FileOperation::Read, 1, SQLITE_IOERR_READ, true, "", 0});
    EXPECT_EQ(ng::Answer::Failed, ng::FindCommit(mRepo, none, commit));
    EXPECT_EQ(ng::Answer::Failed, ng::FindBranchHead(mRepo, "session", head));
    EXPECT_EQ(ng::Answer::Failed, ng::FindEntry(mRepo, tree, "assets/ab/text", entry));
    EXPECT_EQ(ng::Answer::Failed, ng::FindObjectType(mRepo, none, type));
    mVfs->ClearFaults();
    EXPECT_EQ(ng::Answer::Found, ng::FindBranchHead(mRepo, "session", head));
    EXPECT_EQ(second->ID(), head);
}

TEST_F(GitDurability, ACommitNeverFollowsTheBackupBecauseTheHeadCouldNotBeReadForOnce)
{
    ASSERT_NE(nullptr, Commit({{"a", "1"}}, "second", "backup"));
    ng::CommitPtr head = Commit({{"a", "2"}}, "third", "backup");
    ASSERT_NE(nullptr, head);
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    bool ended = false;
    for (unsigned nth = 1; !ended && nth < 100; ++nth) {
        Reopen();
        mVfs->SetFault({FileOperation::Read, nth, SQLITE_IOERR_READ, false, "", 0});
        const unsigned before = mVfs->FaultsReported();
        const auto commit = ng::WriteCommit(mRepo, head->TreeID(), mAuthor, mCommitter, "next", "session", "backup");
        ended = mVfs->FaultsReported() == before;
        mVfs->ClearFaults();
        const auto next = ng::GetCommitForBranch(mRepo, "session");
        if (next->ID() != head->ID()) {
            ASSERT_EQ(head->ID(), next->ParentID()) << nth;
        }
        EXPECT_TRUE(commit != nullptr || !ended);
        head = next;
    }
    EXPECT_TRUE(ended);
}

TEST_F(GitDurability, AFailedSyncOfACheckpointStopsWritingToo)
{
    ASSERT_NE(nullptr, Commit({{"a", "second"}}, "second"));
    mVfs->SetFault({FileOperation::Sync, 1, SQLITE_IOERR_FSYNC, false, "odb.sqlite3", 0});
    EXPECT_FALSE(backend::Checkpoint(mRepo));
    EXPECT_TRUE(mRepo->NeedsReopen());
    Reopen();
    EXPECT_EQ("second", TextAtHead("a"));
}

TEST_F(GitDurability, AKilledProcessLosesNoCommitThatReturned)
{
    mRepo.reset();
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const pid_t child = fork();
    if (child == 0) {
        mRepo = backend::OpenRepository(Folder(), 1);
        for (int round = 0; mRepo != nullptr; ++round) {
            if (Commit({{"assets/ab/text", std::to_string(round)}}, std::to_string(round)) == nullptr) break;
            if (write(ends[1], &round, sizeof(round)) != sizeof(round)) break;
        }
        _exit(1);
    }
    close(ends[1]);
    int told = -1;
    while (told < 20 && read(ends[0], &told, sizeof(told)) == sizeof(told))
        continue;
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    for (int more = 0; read(ends[0], &more, sizeof(more)) == sizeof(more);)
        told = more;
    close(ends[0]);
    ASSERT_GE(told, 20);
    Reopen();
    const int found = std::stoi(Message());
    EXPECT_TRUE(found == told || found == told + 1) << found << " after " << told;
    EXPECT_EQ(std::to_string(found), TextAtHead("assets/ab/text"));
    std::vector<std::string> faults;
    EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
}

}  // namespace
