#include <git2.h>
#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <set>

#include "Platform/noxstorage/GitHandles.h"
#include "Platform/noxstorage/OdbStore.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/VirtualHub.h"
#include "Tests/noxstorage/GitFixture.h"

namespace {

namespace ng = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;
using ng::ObjectType;
using ng::Oid;
using testing_support::GitFixture;
using testing_support::Noise;

std::string Text(std::size_t inSize)
{
    std::string text;
    while (text.size() < inSize)
        text += "line " + std::to_string(text.size()) + ";";
    text.resize(inSize);
    return text;
}

class GitObjects : public GitFixture
{
protected:
    void SetUp() override { Init(); }

    std::string Read(const Oid& inOid)
    {
        const auto blob = ng::GetBlob(mRepo, inOid);
        return blob != nullptr ? std::string(blob->Content()) : "absent";
    }
};

TEST_F(GitObjects, ReadersOfALargeBlobShareItsBytesWhileOneOfThemHoldsThem)
{
    const std::string large = Noise(200000);
    const std::string small = Noise(2000);
    const Oid largeID = ng::WriteBlob(mRepo, large.data(), large.size());
    const Oid smallID = ng::WriteBlob(mRepo, small.data(), small.size());
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    const auto first = ng::GetBlob(mRepo, largeID);
    const auto second = ng::GetBlob(mRepo, largeID);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->Owner(), second->Owner());
    EXPECT_EQ(large, second->Content());
    EXPECT_NE(ng::GetBlob(mRepo, smallID)->Owner(), ng::GetBlob(mRepo, smallID)->Owner());
}

TEST(GitOid, ATextThatIsNot40HexadecimalDigitsIsRefused)
{
    Oid oid;
    EXPECT_FALSE(Oid::FromText("", oid));
    EXPECT_FALSE(Oid::FromText(std::string(39, 'a'), oid));
    EXPECT_FALSE(Oid::FromText(std::string(41, 'a'), oid));
    EXPECT_FALSE(Oid::FromText(std::string(39, 'a') + "g", oid));
    EXPECT_TRUE(oid.IsZero());
    ASSERT_TRUE(Oid::FromText("0123456789ABCDEFabcdef0123456789aBcDeF01", oid));
    EXPECT_EQ("0123456789abcdefabcdef0123456789abcdef01", oid.Text());
}

TEST(GitOid, TheIdOfBytesIsTheOneThatGitComputes)
{
    EXPECT_EQ("e69de29bb2d1d6434b8b29ae775ad8c2e48c5391", ng::ComputeObjectID(ObjectType::Blob, "").Text());
    EXPECT_EQ("4b825dc642cb6eb9a060e54bf8d69288fbee4904", ng::ComputeObjectID(ObjectType::Tree, "").Text());
    for (const std::size_t size : {1U, 55U, 56U, 64U, 4096U, 100000U}) {
        const std::string bytes = Noise(size);
        git_oid expected;
        ASSERT_EQ(0, git_odb_hash(&expected, bytes.data(), bytes.size(), GIT_OBJECT_BLOB));
        EXPECT_EQ(Oid(expected.id), ng::ComputeObjectID(ObjectType::Blob, bytes));
    }
}

TEST_F(GitObjects, BlobsOfEverySizeComeBackBeforeAFlushAfterItAndAfterOpeningAnew)
{
    std::map<Oid, std::string> written;
    for (const std::size_t size : {0U, 1U, 2047U, 2048U, 4095U, 4096U, 9999U, 10000U, 10001U, 20000U, 45000U, 2500000U})
        for (const std::string& bytes : {Noise(size), Text(size)})
            written[ng::WriteBlob(mRepo, bytes.data(), bytes.size())] = bytes;
    for (const auto& [oid, bytes] : written)
        EXPECT_EQ(bytes, Read(oid));
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    for (const auto& [oid, bytes] : written)
        EXPECT_EQ(bytes, Read(oid));
    Reopen();
    for (const auto& [oid, bytes] : written)
        EXPECT_EQ(bytes, Read(oid));
    EXPECT_TRUE(backend::Checkpoint(mRepo));  // all in the index now
    for (const auto& [oid, bytes] : written)
        EXPECT_EQ(bytes, Read(oid));
    std::vector<std::string> faults;
    EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
}

TEST_F(GitObjects, ALargeBlobIsReadInPiecesNoLargerThanARow)
{
    const std::string bytes = Noise(35000);
    const Oid oid = ng::WriteBlob(mRepo, bytes.data(), bytes.size());
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    std::string read;
    std::size_t pieces = 0;
    ObjectType type = ObjectType::Invalid;
    ASSERT_TRUE(ng::ReadObjectInPieces(mRepo, oid, type, [&](std::string_view inPiece) {
        EXPECT_LE(inPiece.size(), kMaxBlobSize);
        read.append(inPiece);
        ++pieces;
        return true;
    }));
    EXPECT_EQ(ObjectType::Blob, type);
    EXPECT_EQ(4U, pieces);
    EXPECT_EQ(bytes, read);
    std::uint64_t size = 0;
    ASSERT_TRUE(ng::ReadObjectHeader(mRepo, oid, type, size));
    EXPECT_EQ(35000U, size);
}

TEST_F(GitObjects, TheSameContentIsStoredOnce)
{
    const std::string small = "same";
    const std::string large = Noise(6000);
    for (int round = 0; round < 3; ++round) {
        WriteText(small);
        WriteText(large);
        ASSERT_TRUE(ng::FlushObjects(mRepo));
        if (round == 1) {
            ASSERT_TRUE(backend::Checkpoint(mRepo));
        }
    }
    std::multiset<Oid> objects;
    ASSERT_TRUE(ng::ForEachObject(mRepo, [&](const Oid& inOid, ObjectType, std::uint64_t, std::string_view inPiece) {
        if (inPiece.empty()) objects.insert(inOid);
        return true;
    }));
    EXPECT_EQ(1U, objects.count(ng::ComputeObjectID(ObjectType::Blob, small)));
    EXPECT_EQ(1U, objects.count(ng::ComputeObjectID(ObjectType::Blob, large)));
}

TEST_F(GitObjects, IdsInTheSetOfWrittenOnesAreNotWrittenAgain)
{
    ng::OidSet written;
    const Oid known = ng::ComputeObjectID(ObjectType::Blob, "elsewhere");
    written.insert(known);
    EXPECT_EQ(known, ng::WriteBlob(mRepo, "elsewhere", 9, &written));
    EXPECT_FALSE(ng::HasObject(mRepo, known));
    const Oid fresh = ng::WriteBlob(mRepo, "here", 4, &written);
    EXPECT_TRUE(written.contains(fresh));
}

TEST_F(GitObjects, AMissingBlobIsNullAndReportedOnce)
{
    Oid oid;
    ASSERT_TRUE(Oid::FromText(std::string(40, '7'), oid));
    EXPECT_EQ(nullptr, ng::GetBlob(mRepo, oid));
    const auto records = mLog->Find("Git operation error");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("noxstorage", records[0].mCategory);
    EXPECT_EQ("-3", records[0].Value("result"));
    EXPECT_EQ(std::string(40, '7'), records[0].Value("arg1"));
    EXPECT_FALSE(records[0].Value("message").empty());
    EXPECT_FALSE(ng::HasObject(mRepo, oid));
    EXPECT_EQ(nullptr, ng::GetBlob(mRepo, ng::GetTreeAtCommit(mRepo, mFirst), "no/such/path"));
    EXPECT_EQ(1U, mLog->Count("Git operation error"));
}

TEST_F(GitObjects, ACommitTellsWhoMadeItWhenAndWhy)
{
    const auto commit = Commit({{"properties", "{}"}}, "\nfirst line\nsecond line\n");
    ASSERT_NE(nullptr, commit);
    EXPECT_EQ("Ada Editor", commit->Author().mName);
    EXPECT_EQ("", commit->Author().mEmail);
    EXPECT_EQ(1700000000, commit->Author().mTime);
    EXPECT_EQ(1700000001, commit->Time());
    EXPECT_EQ(-90, commit->Committer().mOffsetMinutes);
    EXPECT_EQ("first line\nsecond line\n", commit->Message());
    ASSERT_EQ(1U, commit->ParentCount());
    EXPECT_EQ(mFirst->ID(), commit->ParentID());
    EXPECT_EQ("{}", TextAtHead("properties"));
    EXPECT_EQ("the session", TextAtHead("sessionid"));

    ng::Wrapped<git_commit> handle;  // libgit2 reads the same
    git_oid oid;
    ASSERT_EQ(0, git_oid_fromstr(&oid, commit->ID().Text().c_str()));
    ASSERT_EQ(0, git_commit_lookup(handle.Out(), mRepo->Handle(), &oid));
    EXPECT_EQ(commit->Message(), git_commit_message(handle.Get()));
    EXPECT_EQ(-90, git_commit_committer(handle.Get())->when.offset);
}

TEST_F(GitObjects, WalkingFirstParentsEndsAtTheRoot)
{
    for (const char* message : {"second", "third"})
        ASSERT_NE(nullptr, Commit({{"a", message}}, message));
    std::string messages;
    const auto visit = [&](const ng::CommitPtr& inCommit) {
        messages += inCommit->Message() + " ";
        return true;
    };
    EXPECT_TRUE(ng::WalkFirstParents(mRepo, ng::GetCommitForBranch(mRepo, "session"), visit));
    EXPECT_EQ("third second first ", messages);
}

TEST_F(GitObjects, ReferencesAndRevisionsAreLibgit2sToo)
{
    const auto second = Commit({{"a", "1"}}, "second");
    ASSERT_TRUE(ng::SetBranchToCommit(mRepo, mFirst, "production"));
    git_oid oid;
    ASSERT_EQ(0, git_reference_name_to_id(&oid, mRepo->Handle(), "refs/heads/session"));
    EXPECT_EQ(second->ID(), Oid(oid.id));
    ng::Wrapped<git_object> object;
    ASSERT_EQ(0, git_revparse_single(object.Out(), mRepo->Handle(), "HEAD^{tree}"));
    EXPECT_EQ(second->TreeID(), Oid(git_object_id(object.Get())->id));
    ASSERT_EQ(0, git_revparse_single(object.Out(), mRepo->Handle(), "session~1"));
    EXPECT_EQ(mFirst->ID(), Oid(git_object_id(object.Get())->id));
    ASSERT_EQ(0, git_revparse_single(object.Out(), mRepo->Handle(), second->ID().Text().substr(0, 12).c_str()));
    EXPECT_EQ(second->ID(), Oid(git_object_id(object.Get())->id));
    std::vector<std::string> branches;
    ASSERT_TRUE(ng::ListBranches(mRepo, branches));
    EXPECT_EQ((std::vector<std::string>{"production", "session"}), branches);
    EXPECT_EQ(second->ID(), ng::GetBranchHead(mRepo, "HEAD"));
    EXPECT_TRUE(ng::SwitchToBranch(mRepo, "production"));
    EXPECT_EQ(mFirst->ID(), ng::GetBranchHead(mRepo, "HEAD"));
    EXPECT_FALSE(ng::SwitchToBranch(mRepo, "no good name"));
}

TEST_F(GitObjects, ReferencesWrittenByLibgit2KeepItsRules)
{
    git_oid oid;
    ASSERT_EQ(0, git_oid_fromstr(&oid, mFirst->ID().Text().c_str()));
    ng::Wrapped<git_reference> reference;
    ASSERT_EQ(0, git_reference_create(reference.Out(), mRepo->Handle(), "refs/heads/other", &oid, 0, nullptr));
    EXPECT_EQ(mFirst->ID(), ng::GetBranchHead(mRepo, "other"));
    EXPECT_EQ(GIT_EEXISTS,
              git_reference_create(reference.Out(), mRepo->Handle(), "refs/heads/other", &oid, 0, nullptr));
    ASSERT_EQ(0, git_reference_lookup(reference.Out(), mRepo->Handle(), "refs/heads/other"));
    ASSERT_EQ(0, git_reference_delete(reference.Get()));
    EXPECT_TRUE(ng::GetBranchHead(mRepo, "other").IsZero());
}

TEST_F(GitObjects, ACommitOnAnUnknownBranchMakesIt)
{
    const auto commit = ng::WriteCommit(mRepo, mFirst->TreeID(), mAuthor, mCommitter, "points", "syncpoint");
    ASSERT_NE(nullptr, commit);
    EXPECT_EQ(0U, commit->ParentCount());
    EXPECT_EQ(commit->ID(), ng::GetBranchHead(mRepo, "syncpoint"));
}

TEST_F(GitObjects, ACommitOfATreeThatIsNotThereFailsAndMovesNothing)
{
    Oid tree;
    ASSERT_TRUE(Oid::FromText(std::string(40, '3'), tree));
    EXPECT_EQ(nullptr, ng::WriteCommit(mRepo, tree, mAuthor, mCommitter, "lost", "session"));
    EXPECT_EQ(mFirst->ID(), ng::GetBranchHead(mRepo, "session"));
}

TEST_F(GitObjects, ACommitThatExpectsAnotherHeadFailsAndMovesNothing)
{
    const auto second = Commit({{"a", "1"}}, "second");
    const Oid old = mFirst->ID();
    EXPECT_EQ(nullptr, ng::WriteCommit(mRepo, mFirst->TreeID(), mAuthor, mCommitter, "late", "session", {}, &old));
    EXPECT_EQ(second->ID(), ng::GetBranchHead(mRepo, "session"));
    const Oid now = second->ID();
    EXPECT_NE(nullptr, ng::WriteCommit(mRepo, mFirst->TreeID(), mAuthor, mCommitter, "in time", "session", {}, &now));
}

TEST_F(GitObjects, TheBackupBranchHoldsTheOldHeadAndServesWhereTheBranchCannotBeRead)
{
    const auto second = Commit({{"a", "1"}}, "second", "session_backup");
    EXPECT_EQ(mFirst->ID(), ng::GetBranchHead(mRepo, "session_backup"));
    EXPECT_EQ(second->ID(), ng::GetCommitForBranch(mRepo, "session", "session_backup")->ID());
    {
        const auto scope = backend::CommitScope::Begin(mRepo);
        Oid lost;
        ASSERT_TRUE(Oid::FromText(std::string(40, '5'), lost));
        ASSERT_TRUE(scope->SetReference("session", lost));
        ASSERT_TRUE(scope->Commit());
    }
    EXPECT_EQ(nullptr, ng::GetCommitForBranch(mRepo, "session"));
    EXPECT_EQ(mFirst->ID(), ng::GetCommitForBranch(mRepo, "session", "session_backup")->ID());
    EXPECT_EQ(nullptr, ng::WriteCommit(mRepo, mFirst->TreeID(), mAuthor, mCommitter, "no", "session"));
    const auto third =
        ng::WriteCommit(mRepo, mFirst->TreeID(), mAuthor, mCommitter, "again", "session", "session_backup");
    ASSERT_NE(nullptr, third);
    EXPECT_EQ(mFirst->ID(), third->ParentID());
    ASSERT_TRUE(ng::DeleteBranch(mRepo, "session"));
    EXPECT_EQ(mFirst->ID(), ng::GetCommitForBranch(mRepo, "session", "session_backup")->ID());
}

TEST_F(GitObjects, AScopeOfReadingKeepsItsSnapshotButSeesTheThreadsOwnWrites)
{
    const ng::ReadScope scope(mRepo);
    EXPECT_EQ(mFirst->ID(), ng::GetBranchHead(mRepo, "session"));
    const Oid blob = WriteText("written inside");
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    backend::Checkpoint(mRepo);  // as far as the scope lets it
    EXPECT_EQ("written inside", Read(blob));
    {
        const ng::ReadScope inner(mRepo);
        const auto second = Commit({{"a", "1"}}, "second");
        EXPECT_EQ(second->ID(), ng::GetBranchHead(mRepo, "session"));
    }
    EXPECT_EQ("1", TextAtHead("a"));
}

TEST_F(GitObjects, EachScopeOfReadingShowsWhatWasCommittedBeforeItAndHoldsUpNoReuseOfTheLog)
{
    const std::string log = Folder() + "/odb.sqlite3-wal";
    std::uintmax_t sizeOfOneRound = 0;
    for (int round = 0; round < 20; ++round) {
        const std::string text = std::to_string(round);
        ASSERT_NE(nullptr, Commit({{"a", text}}, text));
        {
            const ng::ReadScope scope(mRepo);
            EXPECT_EQ(text, TextAtHead("a"));
        }
        {
            const ng::ReadScope scope(mRepo);  // goes on where the one before ended
            EXPECT_EQ(text, TextAtHead("a"));
        }
        ASSERT_TRUE(backend::Checkpoint(mRepo));
        if (round == 2) sizeOfOneRound = std::filesystem::file_size(log);
    }
    EXPECT_LE(std::filesystem::file_size(log), 2 * sizeOfOneRound);
}

TEST_F(GitObjects, SeveralCommitsAndForeignRowsGoInOneTransaction)
{
    auto scope = backend::CommitScope::Begin(mRepo);
    const Oid zero;
    const Oid one = scope->AddCommit(mFirst->TreeID(), mFirst->ID(), mAuthor, mCommitter, "one");
    const Oid two = scope->AddCommit(mFirst->TreeID(), one, mAuthor, mCommitter, "two");
    EXPECT_FALSE(scope->SetReference("session", two, &zero));
    EXPECT_TRUE(scope->SetReference("session", two, &mFirst->ID()));
    EXPECT_EQ(two, scope->GetReference("session"));
    EXPECT_EQ(mFirst->ID(), ng::GetBranchHead(mRepo, "session"));  // outside: not yet
    EXPECT_TRUE(scope->Commit());
    EXPECT_FALSE(scope->Commit());
    scope.reset();
    EXPECT_EQ("two", Message());
    {
        const auto dropped = backend::CommitScope::Begin(mRepo);
        ASSERT_TRUE(dropped->SetReference("session", mFirst->ID()));
    }
    EXPECT_EQ("two", Message());
}

TEST_F(GitObjects, UpgradingAndDowngradingKeepsEveryObject)
{
    std::map<Oid, std::string> written;
    for (const std::size_t size : {10U, 9000U, 10000U, 10001U, 33000U, 1200000U})
        for (const std::string& bytes : {Noise(size), Text(size)})
            written[WriteText(bytes)] = bytes;
    ASSERT_NE(nullptr, Commit({{"a", "1"}}, "second"));
    for (const std::size_t limit : {0U, 5000U, 0U, 10000U, 7000U}) {
        if (limit == 0) {
            ASSERT_TRUE(backend::DowngradeRepositoryInPlace(mRepo, 1));
        } else {
            ASSERT_TRUE(backend::UpgradeRepositoryInPlace(mRepo, limit));
        }
        EXPECT_EQ(limit, backend::GetMaxBlobSize(mRepo));
        const std::string later = Noise(12000, static_cast<std::uint32_t>(limit) + 7);
        written[WriteText(later)] = later;
        for (const auto& [oid, bytes] : written)
            ASSERT_EQ(bytes, Read(oid));
        Reopen();
        written[WriteText("after " + std::to_string(limit))] = "after " + std::to_string(limit);
        ASSERT_TRUE(ng::FlushObjects(mRepo));
        Reopen();
        EXPECT_EQ(limit, backend::GetMaxBlobSize(mRepo));
        for (const auto& [oid, bytes] : written)
            ASSERT_EQ(bytes, Read(oid));
        std::vector<std::string> faults;
        EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
        EXPECT_EQ("second", Message());
    }
}

TEST_F(GitObjects, AnObjectIsKnownFromMemoryWithItsTypeAndFromTheIndexWithout)
{
    const Oid blob = WriteText("a blob");
    const Oid none = ng::ComputeObjectID(ObjectType::Blob, "not stored");
    ObjectType type = ObjectType::Commit;
    EXPECT_EQ(ng::Answer::Absent, ng::FindObject(mRepo, none, type));
    for (const bool flushed : {false, true}) {
        if (flushed) {
            ASSERT_TRUE(ng::FlushObjects(mRepo));
        }
        ASSERT_EQ(ng::Answer::Found, ng::FindObject(mRepo, blob, type));
        EXPECT_EQ(ObjectType::Blob, type);
    }
    Reopen();
    ASSERT_EQ(ng::Answer::Found, ng::FindObject(mRepo, mFirst->TreeID(), type));
    EXPECT_EQ(ObjectType::Tree, type);
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    for (const bool reopened : {false, true}) {
        if (reopened) Reopen();
        ASSERT_EQ(ng::Answer::Found, ng::FindObject(mRepo, blob, type));
        EXPECT_EQ(ObjectType::Invalid, type);
        ASSERT_EQ(ng::Answer::Found, ng::FindObjectType(mRepo, blob, type));
        EXPECT_EQ(ObjectType::Blob, type);
        EXPECT_EQ(ng::Answer::Absent, ng::FindObject(mRepo, none, type));
    }
}

TEST_F(GitObjects, ABadBranchNameIsRefusedWithARecord)
{
    mLog->Clear();
    EXPECT_FALSE(ng::SwitchToBranch(mRepo, "no..branch"));
    const auto records = mLog->Find("Git operation error");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("no..branch", records[0].Value("arg1"));
}

TEST_F(GitObjects, AFileHasOneRepositoryThatWrites)
{
    ng::RepoPtr second;
    EXPECT_EQ(backend::OpenResult::Refused, backend::TryOpenRepository(Folder(), backend::kReadWrite, second));
    EXPECT_EQ(backend::OpenResult::Opened, backend::TryOpenRepository(Folder(), backend::kReadOnly, second));
    {
        const ng::ReadScope scope(mRepo);
        mRepo.reset();
        EXPECT_EQ(backend::OpenResult::Refused, backend::TryOpenRepository(Folder(), backend::kReadWrite, second));
    }
    EXPECT_EQ(backend::OpenResult::Opened, backend::TryOpenRepository(Folder(), backend::kReadWrite, second));
}

TEST_F(GitObjects, AScrubFindsWhatCommitsTreesAndBranchesNameAndIsNotThere)
{
    const auto second = Commit({{"assets/ab/one", "the blob"}, {"assets/cd/two", "the other"}}, "second");
    const auto third = Commit({{"a", "1"}}, "third");
    const ng::TreePtr root = ng::GetTreeAtCommit(mRepo, third);
    const Oid bucket = ng::GetTree(mRepo, root, "assets/cd")->ID();
    const Oid assets = ng::GetTree(mRepo, root, "assets")->ID();
    const Oid blob = ng::GetBlob(mRepo, root, "assets/ab/one")->ID();
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    const struct
    {
        Oid mLost;
        std::vector<std::string> mFaults;
    } rows[] = {{blob, {"tree " + ng::GetTree(mRepo, root, "assets/ab")->ID().Text()}},
                {bucket, {"tree " + assets.Text()}},
                {second->TreeID(), {"commit " + second->ID().Text()}},
                {mFirst->ID(), {"commit " + second->ID().Text()}},
                {third->ID(), {"reference refs/heads/session"}}};
    for (const auto& row : rows) {
        const auto lose = [&](const char* inCommand) {
            const auto scope = backend::CommitScope::Begin(mRepo);
            ASSERT_EQ(0, sqlite3_exec(scope->Handle(), inCommand, nullptr, nullptr, nullptr)) << inCommand;
            ASSERT_TRUE(scope->Commit());
        };
        const std::string where = " WHERE oid=x'" + row.mLost.Text() + "'";
        lose(("CREATE TABLE kept AS SELECT * FROM objects" + where + ";DELETE FROM objects" + where).c_str());
        std::vector<std::string> faults;
        EXPECT_FALSE(backend::Scrub(mRepo, faults));
        ASSERT_EQ(row.mFaults.size(), faults.size()) << faults.front();
        EXPECT_EQ(row.mFaults[0] + ": " + row.mLost.Text() + " is missing or of another type", faults[0]);
        lose("INSERT INTO objects SELECT * FROM kept;DROP TABLE kept");
        EXPECT_TRUE(backend::Scrub(mRepo, faults)) << faults.front();
    }
}

TEST_F(GitObjects, AScrubNamesDamagedRowsAndGoesOnBehindThem)
{
    std::vector<Oid> oids;
    for (std::uint32_t number = 0; number < 60; ++number)
        oids.push_back(WriteText(Noise(3000, number)));
    const Oid split = WriteText(Noise(30000));
    ASSERT_NE(nullptr, Commit({{"a", "1"}}, "second"));
    const auto change = [&](const std::string& inCommand) {
        const auto scope = backend::CommitScope::Begin(mRepo);
        ASSERT_EQ(0, sqlite3_exec(scope->Handle(), inCommand.c_str(), nullptr, nullptr, nullptr)) << inCommand;
        ASSERT_TRUE(scope->Commit());
    };
    change("UPDATE objects SET data=x'00' WHERE oid=x'" + oids[3].Text() + "'");
    change("UPDATE objects SET data=zeroblob(3000) WHERE oid=x'" + oids[50].Text() + "'");
    change("DELETE FROM objects WHERE row=(SELECT base+1 FROM objects WHERE oid=x'" + split.Text() + "')");
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    const std::vector<std::string> rowFaults{"object " + oids[3].Text() + ": cannot be read",
                                             "object " + oids[50].Text() + ": its content has another id",
                                             "object " + split.Text() + ": cannot be read"};
    std::vector<std::string> faults;
    EXPECT_FALSE(backend::Scrub(mRepo, faults));
    EXPECT_EQ(rowFaults, faults);

    // A page in the middle of the rows; each holds one of them here.
    mRepo.reset();
    const auto files = noxcore::filesupport::MakeFileSystem();
    std::string bytes;
    ASSERT_TRUE(files->ReadFile(Folder() + "/odb.sqlite3", bytes));
    const std::size_t place = bytes.find(Noise(3000, 30).substr(0, 500));
    ASSERT_NE(std::string::npos, place);
    const std::size_t page = place / 4096 * 4096;
    bytes.replace(page, 4096, std::string(4096, '\x55'));
    ASSERT_TRUE(files->WriteFileDurably(Folder() + "/odb.sqlite3", bytes));
    mRepo = backend::OpenRepository(Folder(), backend::kReadWrite);
    ASSERT_NE(nullptr, mRepo);
    EXPECT_FALSE(backend::Scrub(mRepo, faults));
    ASSERT_EQ(4U, faults.size()) << faults.front();
    EXPECT_EQ(rowFaults[0], faults[0]);
    EXPECT_TRUE(faults[1].starts_with("rows ")) << faults[1];
    EXPECT_EQ(rowFaults[1], faults[2]);
    EXPECT_EQ(rowFaults[2], faults[3]);
}

TEST_F(GitObjects, ARepositoryOpenedForReadingRefusesWritesAndSeesWhatIsWrittenMeanwhile)
{
    const auto reader = backend::OpenRepository(Folder(), backend::kReadOnly);
    ASSERT_NE(nullptr, reader);
    const auto second = Commit({{"a", "new"}}, "second");
    EXPECT_EQ(
        "new",
        ng::GetBlob(reader, ng::GetTreeAtCommit(reader, ng::GetCommitForBranch(reader, "session")), "a")->Content());
    EXPECT_TRUE(ng::WriteBlob(reader, "x", 1).IsZero());
    EXPECT_FALSE(ng::SetBranchToCommit(reader, mFirst, "session"));
}

TEST(GitRepository, WhatIsNoRepositoryIsAbsentRefusedOrDamaged)
{
    const testing_support::TempFolder folder;
    const auto context = noxcore::HubContext::Create({});
    const noxcore::HubContext::Scope scope(context);
    context->SetLog(std::make_shared<testing_support::LogCapture>());
    const auto files = noxcore::filesupport::MakeFileSystem();
    ng::Startup();
    ng::RepoPtr repo;
    EXPECT_EQ(backend::OpenResult::Absent, backend::TryOpenRepository(folder / "none", 1, repo));
    ASSERT_TRUE(files->WriteFileDurably(folder / "odb.sqlite3", std::string(5000, 'x')));
    EXPECT_EQ(backend::OpenResult::Damaged, backend::TryOpenRepository(folder.Path(), 1, repo));
    EXPECT_EQ(nullptr, repo);
    ng::CommitPtr commit;
    ASSERT_TRUE(backend::InitRepository(folder.Path(), {}, {}, {}, "", 16384, 0, 1, repo, commit));
    repo.reset();
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    ASSERT_TRUE(files->ListDirectory(folder.Path(), entries));
    EXPECT_EQ(2U, entries.size());  // the new file and the damaged one: nothing else stays when it is closed
    {
        testing_support::FaultVfs vfs(context);
        vfs.SetFault({testing_support::FileOperation::Open, 1, 14 /* SQLITE_CANTOPEN */, true, "", 0});
        EXPECT_EQ(backend::OpenResult::Refused, backend::TryOpenRepository(folder.Path(), 1, repo));
    }
    EXPECT_EQ(backend::OpenResult::Opened, backend::TryOpenRepository(folder.Path(), 1, repo));
    repo.reset();
    ng::Shutdown();
}

/// A repository whose maintenance runs when the test lets time pass.
class GitMaintenance : public testing::Test
{
protected:
    void SetUp() override
    {
        ng::Startup();
        ng::CommitPtr commit;
        ASSERT_TRUE(backend::InitRepository(mFolder / "git", {}, {}, {}, "", 4096, 0, 1, mRepo, commit));
    }
    void TearDown() override
    {
        mRepo.reset();
        ng::Shutdown();
    }

    const testing_support::TempFolder mFolder;
    const std::shared_ptr<testing_support::VirtualScheduler> mScheduler =
        std::make_shared<testing_support::VirtualScheduler>(testing_support::TestSeed());
    const noxcore::HubContext::Scope mScope{mScheduler->MakeContext(std::make_shared<testing_support::LogCapture>())};
    ng::RepoPtr mRepo;
};

TEST_F(GitMaintenance, WhatTheIndexDoesNotKnowStaysBoundedWhereMaintenanceHasNoTime)
{
    std::size_t most = 0;
    Oid first;
    for (std::uint32_t number = 0; number < 160000; ++number) {
        const Oid oid = ng::WriteBlob(mRepo, &number, sizeof(number));
        if (number == 0) first = oid;
        if (number % 10000 == 0) {
            ASSERT_TRUE(ng::FlushObjects(mRepo));
        }
        most = std::max(most, mRepo->GetStore().NotIndexed());
    }
    EXPECT_GE(most, 130000U);  // it did come to the bound
    EXPECT_LE(most, 142000U);
    EXPECT_NE(nullptr, ng::GetBlob(mRepo, first));
}

TEST_F(GitMaintenance, IdleTimeMovesTheLogIntoTheFileAndTheIdsIntoTheIndexButBusyTimeDoesNot)
{
    const auto write = [&](int inNumber) {
        const std::string text = "small " + std::to_string(inNumber) + Noise(4000);
        return ng::WriteBlob(mRepo, text.data(), text.size());
    };
    for (int number = 0; number < 3000; ++number)
        write(number);
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    mScheduler->RunUntilIdle();
    const ng::odb::Store& store = mRepo->GetStore();
    EXPECT_GE(store.NotIndexed(), 3000U);
    for (int look = 0; look < 5; ++look) {  // a write between every two looks
        write(10000 + look);
        ASSERT_TRUE(ng::FlushObjects(mRepo));
        mScheduler->Advance(1000);
    }
    EXPECT_GE(store.NotIndexed(), 3000U);
    EXPECT_GT(store.LogBytes(), 8 << 20);
    mScheduler->Advance(2500);
    EXPECT_EQ(0U, store.NotIndexed());
    EXPECT_EQ(0, store.LogBytes());
    const Oid known = write(7);
    EXPECT_NE(nullptr, ng::GetBlob(mRepo, known));
    EXPECT_EQ(0U, store.NotIndexed());
}

}  // namespace
