#include "Platform/noxstorage/GitTransfer.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <thread>

#include "Tests/Support/FaultVfs.h"
#include "Tests/noxstorage/GitFixture.h"

namespace {

namespace ng = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;
namespace rope = noxstorage::git::RopeBackends;
using ng::Oid;
using testing_support::FaultVfs;
using testing_support::FileOperation;
using testing_support::Noise;

/// A repository with many texts in one row each, and an empty single file that they are brought into.
class GitTransfer : public testing_support::GitFixture
{
protected:
    explicit GitTransfer(std::size_t inMaxBlobSize = kMaxBlobSize)
    {
        mVfs = std::make_unique<FaultVfs>(mContext);
        Init(inMaxBlobSize);
        std::filesystem::create_directories(mFolder / "files");
        const auto payload = noxcore::utility::CopyToRecycledMemory("the copy");
        ng::CommitPtr first;
        EXPECT_TRUE(rope::InitRepository(mFolder.Path(), OneFile(), {{"sessionid", payload}}, mAuthor, mCommitter,
                                         "first", mCopy, first));
    }
    ~GitTransfer() override
    {
        mCopy.reset();
        mRepo.reset();
    }

    void WriteTexts(unsigned inCount, std::size_t inSize)
    {
        for (unsigned index = 0; index < inCount; ++index)
            mTexts.push_back(WriteText(Noise(inSize, index)));
        ASSERT_TRUE(ng::FlushObjects(mRepo));
        ASSERT_TRUE(backend::Checkpoint(mRepo));
    }
    /// Every so manieth text.
    [[nodiscard]] std::vector<Oid> Some(std::size_t inEvery) const
    {
        std::vector<Oid> some;
        for (std::size_t index = inEvery - 1; index < mTexts.size(); index += inEvery)
            some.push_back(mTexts[index]);
        return some;
    }
    [[nodiscard]] bool IsInCopy(const Oid& inOid) const { return ng::HasObject(mCopy, inOid); }
    void ExpectSameInCopy(const std::vector<Oid>& inOids) const
    {
        for (const Oid& oid : inOids) {
            const auto copied = ng::GetBlob(mCopy, oid);
            ASSERT_NE(nullptr, copied);
            EXPECT_EQ(ng::GetBlob(mRepo, oid)->Content(), copied->Content());
        }
    }

    std::unique_ptr<FaultVfs> mVfs;
    ng::RepoPtr mCopy;
    std::vector<Oid> mTexts;
};

TEST_F(GitTransfer, WhatLiesBesideTheWantedIsTakenWhereItIsChosenAndVisitedFromTheLastToTheFirst)
{
    WriteTexts(60, 100);
    const std::set<Oid> chosen{mTexts[2], mTexts[10], mTexts[25]};
    std::vector<Oid> visited;
    ng::Transfer transfer(mRepo, mCopy);
    EXPECT_TRUE(transfer.Copy(
        ng::InOrderOfPlaces(mRepo, Some(4)),
        [&](const Oid& inOid, ng::ObjectType inType, std::string_view inContent) {
            EXPECT_EQ(ng::ObjectType::Blob, inType);
            EXPECT_EQ(100U, inContent.size());
            visited.push_back(inOid);
            return true;
        },
        [&](const Oid& inOid) { return chosen.contains(inOid); }));
    EXPECT_TRUE(transfer.End());

    std::vector<Oid> expected;
    for (std::size_t index = mTexts.size(); index-- > 0;)
        if (index % 4 == 3 || chosen.contains(mTexts[index])) expected.push_back(mTexts[index]);
    EXPECT_EQ(expected, visited);
    ExpectSameInCopy(expected);
    EXPECT_FALSE(IsInCopy(mTexts[1]));
    std::vector<std::string> faults;
    EXPECT_TRUE(backend::Scrub(mCopy, faults)) << faults.front();
}

TEST_F(GitTransfer, AFileIsReadOnceHoweverMuchOfItIsFoundOnTheWay)
{
    constexpr unsigned kTexts = 4000;
    WriteTexts(kTexts, 3000);
    const auto placed = ng::InOrderOfPlaces(mRepo, Some(8));
    std::set<Oid> left(mTexts.begin(), mTexts.end());
    for (const Oid& oid : Some(8))
        left.erase(oid);
    std::mutex mutex;
    mVfs->ResetCounts();
    {
        ng::Transfer transfer(mRepo, mCopy);
        EXPECT_TRUE(transfer.Copy(placed, {}, [&](const Oid& inOid) {
            const std::lock_guard lock(mutex);
            return left.erase(inOid) != 0;
        }));
        EXPECT_EQ(0U, left.size());
        // A page of the source holds one text, and some beside its rows.
        EXPECT_LT(mVfs->Count(FileOperation::Read), kTexts * 5 / 4);
        EXPECT_TRUE(transfer.End());
    }
    ExpectSameInCopy({mTexts[0], mTexts[1], mTexts[kTexts - 1]});
}

TEST_F(GitTransfer, ObjectsThatLieFarFromEachOtherAreWrittenTogether)
{
    WriteTexts(2000, 100);
    mVfs->ResetCounts();
    const rope::BulkLoad load(mCopy);
    ng::Transfer transfer(mRepo, mCopy);
    EXPECT_TRUE(transfer.Copy(ng::InOrderOfPlaces(mRepo, Some(100))));
    EXPECT_LT(mVfs->Count(FileOperation::Write), 20U) << "for 20 objects in one or two pages";
    EXPECT_TRUE(transfer.End());
    ExpectSameInCopy(Some(100));
}

class GitTransferOfWholeRows : public GitTransfer
{
protected:
    GitTransferOfWholeRows() : GitTransfer(0) {}
};

TEST_F(GitTransferOfWholeRows, WantedObjectsBehindMoreThanThereIsRoomForAreAllFound)
{
    for (unsigned index = 0; index < 90; ++index)
        mTexts.push_back(WriteText(Noise(index % 15 == 14 ? 1200 * 1024 : 63 * 1024, index)));
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    ng::Transfer transfer(mRepo, mCopy);
    EXPECT_TRUE(transfer.Copy(ng::InOrderOfPlaces(mRepo, Some(15)), {}, [](const Oid&) { return false; }));
    EXPECT_TRUE(transfer.End());
    ExpectSameInCopy(Some(15));
    EXPECT_FALSE(IsInCopy(mTexts[0]));
}

TEST_F(GitTransferOfWholeRows, LargeContentThatNobodyWantsIsNotReadOnTheWay)
{
    for (unsigned index = 0; index < 300; ++index)
        mTexts.push_back(WriteText(Noise(index % 10 == 9 ? 200 : 200 * 1024, index)));
    ASSERT_TRUE(ng::FlushObjects(mRepo));
    ASSERT_TRUE(backend::Checkpoint(mRepo));
    const auto placed = ng::InOrderOfPlaces(mRepo, Some(10));
    ng::Transfer transfer(mRepo, mCopy);
    mVfs->ResetCounts();
    EXPECT_TRUE(transfer.Copy(placed, {}, [](const Oid&) { return false; }));
    EXPECT_LT(mVfs->Count(FileOperation::Read), 1000U) << "of 15000 pages";
    EXPECT_TRUE(transfer.End());
    ExpectSameInCopy(Some(10));
}

TEST_F(GitTransfer, ARowThatCannotBeReadIsNobodysLossUnlessItIsWanted)
{
    WriteTexts(40, 6000);
    const std::string damaged = Noise(6000, 20);
    mRepo.reset();
    {
        // The chain of the row's pages leads nowhere.
        constexpr std::size_t kPage = 4096;
        const std::string path = Folder() + "/odb.sqlite3";
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        const std::size_t start = bytes.find(damaged.substr(0, 500));
        ASSERT_NE(std::string::npos, start);
        const std::size_t endOfLocal = (start / kPage + 1) * kPage;
        std::size_t common = 500;
        while (bytes.compare(start, common, damaged, 0, common) == 0 && start + common < endOfLocal)
            ++common;
        const std::size_t pointer = start + common - 1;
        file.seekp(static_cast<std::streamoff>(pointer));
        file.write("\x7f\x7f\x7f\x7f", 4);
    }
    Reopen();
    for (const std::size_t every : {std::size_t{1}, std::size_t{2}, std::size_t{11}, std::size_t{23}}) {
        SCOPED_TRACE(every);
        std::vector<Oid> wanted = Some(every);
        const bool isWanted = std::erase(wanted, mTexts[20]) != 0 && every == 1;
        if (isWanted) wanted.push_back(mTexts[20]);
        ng::Transfer transfer(mRepo, mCopy);
        EXPECT_EQ(!isWanted, transfer.Copy(ng::InOrderOfPlaces(mRepo, wanted), {}, [](const Oid&) { return false; }));
        EXPECT_TRUE(transfer.End());
        if (!isWanted) ExpectSameInCopy(wanted);
    }
}

TEST_F(GitTransfer, WhatCouldNotBePressedOntoTheDiskIsNeverToldAsDurable)
{
    WriteTexts(100, 200 * 1024);
    const rope::BulkLoad load(mCopy);
    ng::Transfer transfer(mRepo, mCopy);
    EXPECT_TRUE(transfer.Copy(ng::InOrderOfPlaces(mRepo, Some(1))));
    mVfs->ResetCounts();
    mVfs->SetFault({FileOperation::Sync, 1, SQLITE_IOERR_FSYNC, false, ".lyr"});
    // The index is written when the disk has been given what came before it.
    mVfs->SetHook(FileOperation::Write, [&] {
        while (mVfs->Count(FileOperation::Sync) == 0)
            std::this_thread::yield();
    });
    EXPECT_FALSE(transfer.End());
    mVfs->SetHook(FileOperation::Write, {});
    EXPECT_EQ(1U, mVfs->FaultsReported());
    EXPECT_EQ(nullptr, backend::CommitScope::Begin(mCopy)) << "what was written before a failed sync may be lost";
}

TEST_F(GitTransfer, AFileThatWasPressedOntoTheDiskIsLockedAsBefore)
{
    WriteTexts(100, 200 * 1024);
    {
        const rope::BulkLoad load(mCopy);
        ng::Transfer transfer(mRepo, mCopy);
        EXPECT_TRUE(transfer.Copy(ng::InOrderOfPlaces(mRepo, Some(1))));
        mVfs->ResetCounts();
        EXPECT_TRUE(transfer.End());
    }
    const pid_t other = fork();
    if (other == 0) {
        // The locks of a database are those of fcntl on bytes of its file; a child keeps away from SQLite itself.
        const int file = open(OneFile().c_str(), O_RDWR | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_start = 0x40000000;
        lock.l_len = 512;
        _exit(file >= 0 && fcntl(file, F_SETLK, &lock) != 0 ? 0 : 1);
    }
    int status = 1;
    EXPECT_EQ(other, waitpid(other, &status, 0));
    EXPECT_EQ(0, status) << "another process got the file";
    ExpectSameInCopy({mTexts.front(), mTexts.back()});
}

}  // namespace
