#include "Platform/noxstorage/RopeBackends.h"

#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "Platform/noxstorage/SQLite.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/noxstorage/GitFixture.h"

namespace {

namespace ng = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;
namespace rope = noxstorage::git::RopeBackends;
using ng::Oid;
using testing_support::FaultVfs;
using testing_support::FileOperation;
using testing_support::FolderImage;
using testing_support::Noise;

std::string ReadFile(const std::string& inPath)
{
    std::ifstream file(inPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The system's files as a volume or a user without rights gives them: to be read and nothing else. By way of SQLite,
/// since a test that runs as the administrator has all rights.
class ReadOnlyVfs
{
public:
    explicit ReadOnlyVfs(noxcore::HubContext& inContext)
        : mContext(inContext), mBefore(inContext.GetInstance<noxstorage::sqlite::VfsChoice>())
    {
        mVfs = *sqlite3_vfs_find(nullptr);
        mVfs.zName = "read-only";
        mVfs.xOpen = [](sqlite3_vfs*, const char* inPath, sqlite3_file* outFile, int inFlags, int* outFlags) {
            constexpr int kWriting = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
            sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
            if ((inFlags & SQLITE_OPEN_MAIN_DB) == 0) return SQLITE_CANTOPEN;  // a journal would have to be made
            return system->xOpen(system, inPath, outFile, (inFlags & ~kWriting) | SQLITE_OPEN_READONLY, outFlags);
        };
        mVfs.xDelete = [](sqlite3_vfs*, const char*, int) { return SQLITE_IOERR_DELETE; };
        sqlite3_vfs_register(&mVfs, 0);
        mContext.SetInstance(
            std::make_shared<noxstorage::sqlite::VfsChoice>(noxstorage::sqlite::VfsChoice{mVfs.zName}));
    }
    ~ReadOnlyVfs()
    {
        mContext.SetInstance(mBefore);
        sqlite3_vfs_unregister(&mVfs);
    }
    ReadOnlyVfs(const ReadOnlyVfs&) = delete;
    ReadOnlyVfs& operator=(const ReadOnlyVfs&) = delete;

private:
    noxcore::HubContext& mContext;
    const std::shared_ptr<noxstorage::sqlite::VfsChoice> mBefore;
    sqlite3_vfs mVfs = {};
};

class RopeBackends : public testing_support::GitFixture
{
protected:
    RopeBackends()
    {
        std::filesystem::create_directories(mFolder / "files");
        mVfs = std::make_unique<FaultVfs>(mContext);
        InitOneFile();
    }
    ~RopeBackends() override { mRepo.reset(); }

    /// Names of what lies in the folder of the file.
    [[nodiscard]] std::set<std::string> Beside() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mFolder / "files"))
            names.insert(entry.path().filename());
        return names;
    }

    /// What a file that lay in a folder of its own holds when it is opened: the message of its head, if all that
    /// belongs to it is there.
    std::string HeadOf(const FolderImage& inImage)
    {
        testing_support::WriteFolderImage(inImage, mFolder / "after");
        ng::RepoPtr repo;
        if (!rope::OpenRepository(mFolder.Path(), mFolder / "after/Film.lyr", repo)) return "not opened";
        const auto head = ng::GetCommitForBranch(repo, "session");
        if (head == nullptr) return "no head";
        const auto blob = ng::GetBlob(repo, ng::GetTreeAtCommit(repo, head), "text");
        if (head->Message() != "first" && (blob == nullptr || blob->Content() != head->Message())) return "torn";
        std::vector<std::string> faults;
        return backend::Scrub(repo, faults) ? head->Message() : faults.front();
    }

    std::unique_ptr<FaultVfs> mVfs;
};

TEST_F(RopeBackends, AFileIsAloneInItsFolderWhenItIsClosedAndNeedsNoSharedMemoryWhileItIsOpen)
{
    ASSERT_NE(nullptr, Commit({{"a", "1"}}, "second"));
    const Oid large = WriteText(Noise(25 * 1024 * 1024, 1));  // three rows
    for (const std::string& name : Beside())
        EXPECT_TRUE(name == "Film.lyr" || name == "Film.lyr-journal") << name;
    mRepo.reset();
    EXPECT_EQ(std::set<std::string>{"Film.lyr"}, Beside());

    std::filesystem::rename(OneFile(), mFolder / "files/moved");
    std::filesystem::create_directories(mFolder / "elsewhere");
    std::filesystem::rename(mFolder / "files/moved", mFolder / "elsewhere/Film.lyr");
    ASSERT_TRUE(rope::OpenRepository(mFolder.Path(), mFolder / "elsewhere/Film.lyr", mRepo));
    EXPECT_EQ("1", TextAtHead("a"));
    EXPECT_EQ("second", Message());
    EXPECT_EQ(Noise(25 * 1024 * 1024, 1), ng::GetBlob(mRepo, large)->Content());
    std::vector<std::string> branches;
    ASSERT_TRUE(ng::ListBranches(mRepo, branches));
    EXPECT_EQ(std::vector<std::string>{"session"}, branches);
    std::vector<std::string> faults;
    EXPECT_TRUE(backend::Scrub(mRepo, faults));
}

TEST_F(RopeBackends, TheFileHoldsObjectsAndReferencesUnderAnApplicationIDOfItsOwn)
{
    mRepo.reset();
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(OneFile().c_str(), &db));
    std::set<std::string> tables;
    const auto collect = [](void* outTables, int, char** inValues, char**) {
        static_cast<std::set<std::string>*>(outTables)->insert(inValues[0]);
        return 0;
    };
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, "SELECT name FROM sqlite_schema WHERE type='table'", collect, &tables, {}));
    EXPECT_EQ((std::set<std::string>{"objects", "oids", "collided", "refs", "settings"}), tables);
    std::set<std::string> pragmas;
    sqlite3_exec(db, "PRAGMA application_id", collect, &pragmas, {});
    sqlite3_exec(db, "PRAGMA journal_mode", collect, &pragmas, {});
    EXPECT_EQ((std::set<std::string>{std::to_string(0x4c595246), "delete"}), pragmas);
    sqlite3_close(db);
    EXPECT_EQ(nullptr, backend::OpenRepository(mFolder / "files", backend::kReadWrite));
}

TEST_F(RopeBackends, AFileThatIsThereIsNotMadeAnew)
{
    mRepo.reset();
    const std::string before = ReadFile(OneFile());
    ng::RepoPtr repo;
    ng::CommitPtr commit;
    EXPECT_FALSE(rope::InitRepository(mFolder.Path(), OneFile(), {}, mAuthor, mCommitter, "again", repo, commit));
    EXPECT_EQ(nullptr, repo);
    EXPECT_EQ(before, ReadFile(OneFile()));
}

TEST_F(RopeBackends, AFileThatCannotBeMadeLeavesNothing)
{
    for (unsigned nth = 1; nth < 200; ++nth) {
        mVfs->ClearFaults();
        mVfs->SetFault({.mOperation = FileOperation::Write, .mNth = nth, .mCode = SQLITE_FULL, .mFromThenOn = true});
        const std::string file = mFolder / "files/Other.lyr";
        ng::RepoPtr repo;
        ng::CommitPtr commit;
        const auto payload = noxcore::utility::CopyToRecycledMemory("x");
        const bool made = rope::InitRepository(mFolder.Path(), file, {{"sessionid", payload}}, mAuthor, mCommitter,
                                               "first", repo, commit);
        mVfs->ClearFaults();
        repo.reset();
        if (made) {
            EXPECT_GT(nth, 3U);
            return;
        }
        EXPECT_EQ(std::set<std::string>{"Film.lyr"}, [&] {
            auto names = Beside();
            names.erase("Film.lyr-journal");  // of the one that is open
            return names;
        }()) << nth;
    }
    FAIL() << "it was never made";
}

TEST_F(RopeBackends, WhatIsNoFileOfThisKindIsRefusedAndStaysAsItIs)
{
    mRepo.reset();
    const std::string whole = ReadFile(OneFile());
    std::string newer = whole;
    newer[63] = 2;  // the schema's version, big-endian
    std::string session = whole;
    session[68] = 'X';  // the application's id
    const std::map<std::string, std::string> contents{{"newer.lyr", newer},
                                                      {"other.lyr", session},
                                                      {"empty.lyr", ""},
                                                      {"text.lyr", std::string(5000, 'x')},
                                                      {"half.lyr", whole.substr(0, whole.size() / 2)},
                                                      {"header.lyr", whole.substr(0, 50)}};
    for (const auto& [name, content] : contents) {
        const std::string path = mFolder / ("files/" + name);
        std::ofstream(path, std::ios::binary) << content;
        ng::RepoPtr repo;
        const bool opened = rope::OpenRepository(mFolder.Path(), path, repo);
        // Half a file may open; what it lacks shows where it is read.
        std::vector<std::string> faults;
        if (opened) EXPECT_FALSE(backend::Scrub(repo, faults)) << name;
        EXPECT_TRUE(!opened || name == "half.lyr") << name;
        repo.reset();
        if (!opened) EXPECT_EQ(content, ReadFile(path)) << name;
    }
    ng::RepoPtr repo;
    EXPECT_FALSE(rope::OpenRepository(mFolder.Path(), mFolder / "files/none.lyr", repo));
    EXPECT_FALSE(std::filesystem::exists(mFolder / "files/none.lyr"));
    EXPECT_FALSE(rope::OpenRepository(mFolder.Path(), mFolder / "files", repo));
}

TEST_F(RopeBackends, AFileThatMayOnlyBeReadIsRefusedAndStaysAsItIs)
{
    ASSERT_TRUE(Commit({{"text", "second"}}, "second"));
    mRepo.reset();
    const std::string before = ReadFile(OneFile());
    {
        const ReadOnlyVfs readOnly(*mContext);
        ng::RepoPtr repo;
        bool isInUse = true;
        EXPECT_FALSE(rope::OpenRepository(mFolder.Path(), OneFile(), repo, isInUse));
        EXPECT_EQ(nullptr, repo);
        EXPECT_FALSE(isInUse) << "nobody has it open";
        ng::CommitPtr commit;
        const auto payload = noxcore::utility::CopyToRecycledMemory("x");
        EXPECT_FALSE(rope::InitRepository(mFolder.Path(), mFolder / "files/New.lyr", {{"sessionid", payload}}, mAuthor,
                                          mCommitter, "first", repo, commit));
    }
    EXPECT_LT(0U, mLog->Count("Git operation error"));
    EXPECT_EQ(before, ReadFile(OneFile()));
    EXPECT_EQ(std::set<std::string>{"Film.lyr"}, Beside());
    ASSERT_TRUE(OpenOneFile()) << "nothing holds it";
    EXPECT_EQ("second", TextAtHead("text"));
    EXPECT_TRUE(Commit({{"text", "third"}}, "third"));
}

TEST_F(RopeBackends, ADatabaseOfSomebodyElseStaysInItsMode)
{
    const std::string path = mFolder / "files/theirs.lyr";
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, "PRAGMA journal_mode=WAL; CREATE TABLE t(x)", {}, {}, {}));
    sqlite3_close(db);
    const std::string before = ReadFile(path);
    ng::RepoPtr repo;
    EXPECT_FALSE(rope::OpenRepository(mFolder.Path(), path, repo));
    EXPECT_EQ(before, ReadFile(path));
}

TEST_F(RopeBackends, AnOpenFileIsLockedAgainstEverybodyElse)
{
    ng::RepoPtr second;
    bool isInUse = false;
    EXPECT_FALSE(rope::OpenRepository(mFolder.Path(), OneFile(), second, isInUse));
    EXPECT_TRUE(isInUse);
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(OneFile().c_str(), &db));
    EXPECT_EQ(SQLITE_BUSY, sqlite3_exec(db, "SELECT count(*) FROM objects", {}, {}, {}));
    sqlite3_close(db);
    mRepo.reset();
    EXPECT_TRUE(rope::OpenRepository(mFolder.Path(), OneFile(), second));
}

TEST_F(RopeBackends, ALittleContentWaitsForItsCommitAndMuchOfItDoesNot)
{
    mVfs->ResetCounts();
    const Oid little = WriteText("little");
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    EXPECT_EQ(0U, mVfs->Count(FileOperation::Write));
    EXPECT_EQ("little", ng::GetBlob(mRepo, little)->Content());
    for (unsigned count = 0; count < 12; ++count)
        WriteText(Noise(500000, count));
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    EXPECT_NE(0U, mVfs->Count(FileOperation::Write));
    mRepo.reset();
    ASSERT_TRUE(OpenOneFile());
    EXPECT_EQ("little", ng::GetBlob(mRepo, little)->Content());
}

TEST_F(RopeBackends, APowerCutAtAnyMomentLeavesTheHeadBeforeOrAfterAndNothingTorn)
{
    ASSERT_NE(nullptr, Commit({{"text", "second"}}, "second"));
    mVfs->StartRecording(mFolder / "files");
    std::vector<std::pair<std::size_t, std::string>> promised{{0, "second"}};
    for (int round = 0; round < 4; ++round) {
        const std::string message = "round " + std::to_string(round);
        WriteText("beside " + message + Noise(90000, static_cast<std::uint64_t>(round)));
        ASSERT_NE(nullptr, Commit({{"text", message}, {"b", message + "b"}}, message));
        promised.emplace_back(mVfs->RecordedEvents(), message);
    }
    mRepo.reset();
    const auto recording = mVfs->StopRecording();
    ASSERT_GT(recording.Events().size(), 30U);
    for (std::size_t events = 0; events <= recording.Events().size(); ++events) {
        const auto after = std::find_if(promised.begin(), promised.end(),
                                        [&](const auto& inPromise) { return inPromise.first > events; });
        const std::string least = std::prev(after)->second;
        const std::string most = after == promised.end() ? least : after->second;
        for (std::uint64_t seed = 0; seed < 3; ++seed) {
            const std::string head = HeadOf(recording.AfterPowerCut(events, 1000 * seed + events));
            ASSERT_TRUE(head == least || head == most) << head << " after event " << events << ", seed " << seed;
        }
        const std::string killed = HeadOf(recording.AfterKill(events));
        ASSERT_TRUE(killed == least || killed == most) << killed << " killed after event " << events;
    }
}

TEST_F(RopeBackends, EachOperationThatFailsLeavesTheHeadBeforeOrAfterAndTheFileUsable)
{
    const auto text = [](unsigned inCount) { return "commit " + std::to_string(inCount); };
    ASSERT_NE(nullptr, Commit({{"text", text(0)}}, text(0)));
    unsigned committed = 0;
    for (const FileOperation operation : {FileOperation::Write, FileOperation::Sync, FileOperation::Truncate}) {
        unsigned failures = 0;
        for (unsigned nth = 1; nth < 100; ++nth) {
            mVfs->ClearFaults();
            const int code = operation == FileOperation::Sync ? SQLITE_IOERR_FSYNC : SQLITE_IOERR_WRITE;
            mVfs->SetFault({.mOperation = operation, .mNth = nth, .mCode = code});
            const unsigned reported = mVfs->FaultsReported();
            const unsigned next = committed + 1;
            const bool done = Commit({{"text", text(next)}}, text(next)) != nullptr;
            mVfs->ClearFaults();
            const bool failed = mVfs->FaultsReported() != reported;
            ASSERT_TRUE(OpenOneFile()) << nth;
            const std::string head = Message();
            if (done) committed = next;
            ASSERT_TRUE(head == text(committed) || head == text(next)) << head << " at " << nth;
            ASSERT_EQ(head, TextAtHead("text"));
            if (head == text(next)) committed = next;
            if (!failed) break;
            ++failures;
        }
        EXPECT_NE(0U, failures);
    }
}

}  // namespace
