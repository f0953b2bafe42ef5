#include "Platform/noxstorage/GitTransfer.h"

#include <sqlite3.h>

#include <filesystem>
#include <mutex>
#include <set>

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

TEST_F(GitTransfer, WhatCouldNotBePressedOntoTheDiskIsNeverToldAsDurable)
{
    WriteTexts(100, 100);
    const rope::BulkLoad load(mCopy);
    ng::Transfer transfer(mRepo, mCopy);
    EXPECT_TRUE(transfer.Copy(ng::InOrderOfPlaces(mRepo, Some(1))));
    // Whoever comes to the one sync that fails, the end of the transfer or the commit behind it.
    mVfs->SetFault({FileOperation::Sync, 1, SQLITE_IOERR_FSYNC, false, ".lyr"});
    const auto commit = [&] {
        const auto scope = backend::CommitScope::Begin(mCopy);
        return scope != nullptr && scope->SetReference("refs/heads/session", Some(1).front()) && scope->Commit();
    };
    EXPECT_FALSE(transfer.End() && commit());
    EXPECT_EQ(1U, mVfs->FaultsReported());
    EXPECT_FALSE(commit()) << "what was written before a failed sync may be lost";
}

}  // namespace
