// What a store does whose disk is full, on volumes that only seem full and on a small real one.

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <random>

#include "Inc/Model/ComplaintBox.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/SmallVolume.h"
#include "Tests/Support/StoreTest.h"
#include "Tests/Support/VolumeFiles.h"

namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kMB = 1048576;

std::vector<std::string> ComplaintsOf(const ImmutableString& inSessionID)
{
    std::vector<std::string> texts;
    ComplaintBox::Table table = ComplaintBox::Instance()->SessionComplaints();
    for (const auto& [id, complaint] : table[inSessionID.Text()])
        texts.push_back(complaint.mErrorString);
    return texts;
}

/// A store on one volume, which is full when the test says so.
class AutosaveDiskSpaceTest : public StoreTest
{
protected:
    AutosaveDiskSpaceTest() : AutosaveDiskSpaceTest(std::make_shared<VolumeFiles>()) {}
    ~AutosaveDiskSpaceTest() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
        mVfs.reset();
    }

    void FillDisk()
    {
        Volume().mFree = 0;
        for (const char* log : {"odb.sqlite3-wal", "session.sqlite3-wal", "sync.sqlite3-wal"})
            mVfs->SetFault({FileOperation::Write, 1, SQLITE_FULL, true, log, 0});
    }
    void MakeRoom()
    {
        Volume().mFree = 100 * kMB;
        mVfs->ClearFaults();
    }
    void Look() { mScheduler->Advance(1000); }
    VolumeFiles::Volume& Volume() { return mVolumes->mVolumes[mHome.Path()]; }

    int CommitAnAsset()
    {
        const auto transaction = OpenTransaction(mSession.mIdentifier);
        Add(transaction, MakeAsset("clip", "clip", {{"proxy", "payload"}}));
        return Commit(transaction);
    }
    int AddLocator()
    {
        dto::MediaLocator locator;
        locator.mMediaLocatorID = std::to_string(++mLastNumber);
        locator.mProperties = dto::RawJSON("{}");
        return mStore->AddMediaLocator(mSession.mIdentifier, WriteMode::LocalEdit, locator);
    }
    int AddUserEnclosure()
    {
        dto::UserEnclosure enclosure;
        enclosure.mName = "_userdata.notes";
        return mStore->AddUserEnclosure(mSession.mIdentifier, "anna", WriteMode::LocalEdit, Bytes("x"), enclosure);
    }
    static int StatusOf(bool inDone) { return inDone ? 200 : 500; }
    int WriteLink()
    {
        AssociationForSync association;
        association.mSessionID = std::to_string(++mLastNumber);
        return StatusOf(mStore->WriteAssociationForSync(mSession.mIdentifier, association));
    }
    int WriteSyncPoint()
    {
        SyncPoint point;
        point.mLocalRevision = mSession.mRevision;
        point.mRemoteRevision = std::to_string(++mLastNumber);
        std::int64_t count = 0;
        return StatusOf(mStore->WriteSyncPoint(mSession.mIdentifier, point, count));
    }
    int SetExchanged(bool (ProjectBox::*inSet)(const ImmutableString&, const SyncChangeCount&))
    {
        return StatusOf(((*mStore).*inSet)(mSession.mIdentifier, SyncChangeCount{++mLastNumber}));
    }
    int FlushContent()
    {
        const auto transaction = OpenTransaction(mSession.mIdentifier);
        Look();  // the one that every transaction asks for
        EnclosureContent enclosure;
        enclosure.mPayload = Bytes("content " + std::to_string(++mLastNumber));
        dto::Enclosure stored;
        EXPECT_EQ(200, mStore->AddOrUpdateProductionEnclosure(transaction, enclosure, stored));
        return mStore->FlushTransactionContent(transaction);
    }

private:
    explicit AutosaveDiskSpaceTest(std::shared_ptr<VolumeFiles> inFiles)
        : StoreTest(inFiles), mVolumes(std::move(inFiles))
    {
        Volume().mFree = 100 * kMB;
    }

protected:
    const std::shared_ptr<VolumeFiles> mVolumes;
    std::unique_ptr<FaultVfs> mVfs = std::make_unique<FaultVfs>(mContext);
    const dto::Session mSession = CreateSession();
    int mLastNumber = 0;
};

TEST_F(AutosaveDiskSpaceTest, EveryKindOfWriteThatFailsOnAFullDiskComplainsUntilAnotherFindsRoom)
{
    const std::pair<const char*, std::function<int()>> writes[] = {
        {"commit", [&] { return CommitAnAsset(); }},
        {"content", [&] { return FlushContent(); }},
        {"media locator", [&] { return AddLocator(); }},
        {"user enclosure", [&] { return AddUserEnclosure(); }},
        {"revert",
         [&] {
             ImmutableString revision;
             return mStore->RevertSession(mSession.mIdentifier, mSession.mRevision, revision);
         }},
        {"production", [&] { return mStore->AdvanceProduction(mSession.mIdentifier, mSession.mRevision); }},
        {"link", [&] { return WriteLink(); }},
        {"sync point", [&] { return WriteSyncPoint(); }},
        {"user of the link", [&] { return StatusOf(mStore->WriteUserID(mSession.mIdentifier, "anna", "a")); }},
        {"exchanged locators", [&] { return SetExchanged(&ProjectBox::SetMediaLocatorSyncChangeCount); }},
        {"exchanged enclosures", [&] { return SetExchanged(&ProjectBox::SetUserEnclosureSyncChangeCount); }},
        {"nothing exchanged", [&] { return StatusOf(mStore->ResetMediaLocatorSyncChangeCount(mSession.mIdentifier)); }},
        {"tag of enclosures", [&] { return StatusOf(mStore->SetUserEnclosureSyncEtag(mSession.mIdentifier, "e")); }},
        {"deleted date", [&] { return StatusOf(mStore->WriteDeletedDate(mSession.mIdentifier, "2023-01-01")); }},
        {"local only", [&] { return StatusOf(mStore->WriteLocalOnlyMode(mSession.mIdentifier)); }},
        {"synchronized", [&] { return StatusOf(mStore->WriteSynchronizedMode(mSession.mIdentifier)); }},
    };
    for (const auto& [name, write] : writes) {
        SCOPED_TRACE(name);
        EXPECT_EQ(200, write());
        FillDisk();
        EXPECT_EQ(500, write());
        Look();
        EXPECT_THAT(ComplaintsOf(mSession.mIdentifier),
                    ElementsAre("Disk space on volume '" + mHome.Path() + "' is critically low"));
        EXPECT_EQ(500, write());
        Look();
        EXPECT_EQ(1u, ComplaintsOf(mSession.mIdentifier).size());
        MakeRoom();
        EXPECT_EQ(200, write());
        Look();
        EXPECT_THAT(ComplaintsOf(mSession.mIdentifier), IsEmpty());
    }
}

TEST_F(AutosaveDiskSpaceTest, ASessionThatFailedForAnotherReasonIsLookedAtOnceAndNotComplainedAbout)
{
    mVfs->SetFault({FileOperation::Write, 1, SQLITE_IOERR_WRITE, true, "odb.sqlite3-wal", 0});
    EXPECT_EQ(500, CommitAnAsset());
    mVfs->ClearFaults();
    Look();
    EXPECT_EQ(1u, Volume().mAsked);
    EXPECT_THAT(ComplaintsOf(mSession.mIdentifier), IsEmpty());
    EXPECT_EQ(200, CommitAnAsset());
    Look();
    EXPECT_EQ(1u, Volume().mAsked);
}

TEST_F(AutosaveDiskSpaceTest, RoomThatComesWhileALookIsUnderWayIsSeenByTheNext)
{
    FillDisk();
    EXPECT_EQ(500, CommitAnAsset());
    Volume().mMeanwhile = [&] {
        MakeRoom();
        EXPECT_EQ(200, AddLocator());
    };
    Look();
    EXPECT_EQ(1u, ComplaintsOf(mSession.mIdentifier).size()) << "the look saw no room";
    Look();
    EXPECT_THAT(ComplaintsOf(mSession.mIdentifier), IsEmpty());
    EXPECT_EQ(200, AddLocator());
    Look();
    EXPECT_EQ(2u, Volume().mAsked) << "nothing is left to watch";
}

TEST_F(AutosaveDiskSpaceTest, AWriteThatFailsWhileALookSeesRoomIsLookedAtByTheNext)
{
    FillDisk();
    EXPECT_EQ(500, CommitAnAsset());
    MakeRoom();
    Volume().mMeanwhile = [&] {
        FillDisk();
        EXPECT_EQ(500, AddLocator());
    };
    Look();
    EXPECT_THAT(ComplaintsOf(mSession.mIdentifier), IsEmpty()) << "the look saw room";
    Look();
    EXPECT_EQ(1u, ComplaintsOf(mSession.mIdentifier).size());
    MakeRoom();
}

TEST_F(AutosaveDiskSpaceTest, SessionsWhoseWritesSucceedAreNotWatched)
{
    Volume().mFree = 0;
    EXPECT_EQ(200, CommitAnAsset());
    EXPECT_EQ(200, AddLocator());
    Look();
    EXPECT_EQ(0u, Volume().mAsked);
    EXPECT_TRUE(GitBox::Sandboxes::Instance()->VolumeIsLowOnAutosaveSpace(mHome.Path()));
}

TEST_F(AutosaveDiskSpaceTest, SeveralSessionsThatFailOnOneVolumeMakeOneComplaint)
{
    const dto::Session other = CreateSession();
    FillDisk();
    EXPECT_EQ(500, CommitAnAsset());
    EXPECT_EQ(500, Commit(OpenTransaction(other.mIdentifier)));
    Look();
    EXPECT_EQ(1u, Volume().mAsked);
    EXPECT_EQ(1u, ComplaintsOf(mSession.mIdentifier).size() + ComplaintsOf(other.mIdentifier).size());
}

TEST_F(AutosaveDiskSpaceTest, ADeletedSessionIsNotWatchedAnyMore)
{
    FillDisk();
    EXPECT_EQ(500, CommitAnAsset());
    Look();
    EXPECT_EQ(1u, ComplaintsOf(mSession.mIdentifier).size());
    EXPECT_EQ(200, mStore->DeletePersistedSessionData(mSession.mIdentifier));
    mStore->CheckAutosaveDiskSpace();
    Look();
    EXPECT_THAT(ComplaintsOf(mSession.mIdentifier), IsEmpty());
}

TEST_F(AutosaveDiskSpaceTest, ASingleFileIsWatchedFromItsMakingOnWhateverBecomesOfItsWrites)
{
    Volume().mFree = 0;
    const std::string complaint = "Disk space on volume '" + mHome.Path() + "' is critically low";
    dto::Session film;
    ASSERT_EQ(201, mStore->CreateRopeFile(mHome / "Film.lyr", {dto::RawJSON("{}"), {}}, false, film));
    EXPECT_THAT(ComplaintsOf(film.mIdentifier), IsEmpty()) << "a new file is not kept waiting for the look";
    Look();
    EXPECT_THAT(ComplaintsOf(film.mIdentifier), ElementsAre(complaint));
    // More of them on the volume, and commits that find their room all the same, make no further one.
    dto::Session other;
    ASSERT_EQ(201, mStore->CreateRopeFile(mHome / "Other.lyr", {dto::RawJSON("{}"), {}}, false, other));
    Look();
    ASSERT_EQ(200, Commit(OpenTransaction(film.mIdentifier)));
    Look();
    EXPECT_EQ(3u, Volume().mAsked);
    EXPECT_THAT(ComplaintsOf(film.mIdentifier), ElementsAre(complaint));
    EXPECT_THAT(ComplaintsOf(other.mIdentifier), IsEmpty());
    Volume().mFree = 100 * kMB;
    ASSERT_EQ(200, Commit(OpenTransaction(other.mIdentifier)));
    Look();
    EXPECT_THAT(ComplaintsOf(film.mIdentifier), IsEmpty());
    EXPECT_THAT(ComplaintsOf(mSession.mIdentifier), IsEmpty());
    Volume().mFree = 0;
    ASSERT_EQ(200, Commit(OpenTransaction(other.mIdentifier)));
    Look();
    EXPECT_EQ(1u, ComplaintsOf(film.mIdentifier).size() + ComplaintsOf(other.mIdentifier).size()) << "it is low again";
}

TEST_F(AutosaveDiskSpaceTest, TheComplaintOfAClosedFileGoesWithIt)
{
    Volume().mFree = 0;
    dto::Session film;
    ASSERT_EQ(201, mStore->CreateRopeFile(mHome / "Film.lyr", {dto::RawJSON("{}"), {}}, false, film));
    Look();
    EXPECT_EQ(1u, ComplaintsOf(film.mIdentifier).size());
    ASSERT_EQ(200, mStore->ClearSandbox(film.mIdentifier));
    mStore->CheckAutosaveDiskSpace();
    Look();
    EXPECT_THAT(ComplaintsOf(film.mIdentifier), IsEmpty());
}

class FullVolumeTest : public StoreTest
{
protected:
    FullVolumeTest()
    {
        noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.MinAutosaveDiskSpaceInMB", "1");
        mStore.reset();
        mVolume = std::make_unique<SmallVolume>(mHome.Path(), "size=2m");
        ReopenStore();
    }
    ~FullVolumeTest() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
    }

    /// A commit of an asset with content that does not compress; its name tells which.
    int CommitNoise(const ImmutableString& inSessionID, int inNumber)
    {
        std::mt19937_64 generator(static_cast<std::uint64_t>(inNumber));
        std::string noise(32768, '\0');
        for (char& byte : noise)
            byte = static_cast<char>(generator());
        const auto transaction = OpenTransaction(inSessionID);
        Add(transaction, MakeAsset(std::to_string(inNumber), "clip", {{"proxy", noise}}));
        return Commit(transaction);
    }

    std::unique_ptr<SmallVolume> mVolume;
};

TEST_F(FullVolumeTest, AFullDiskLeavesTheSessionAtItsLastCommitAndRoomLetsItGoOn)
{
    if (!mVolume->IsMounted()) GTEST_SKIP() << "This user may not mount a file system";
    const std::string ballast = mHome / "ballast";
    ASSERT_TRUE(noxcore::filesupport::Files().WriteNewFile(ballast, std::string(1300 * 1024, 'b')));
    const dto::Session session = CreateSession();
    int commits = 0;
    int status = 200;
    while (commits < 1000 && (status = CommitNoise(session.mIdentifier, commits)) == 200)
        ++commits;
    EXPECT_EQ(500, status);
    EXPECT_LT(0, commits);
    const auto expectLastCommit = [&] {
        const dto::Session found = GetSession(session.mIdentifier);
        EXPECT_EQ(commits, static_cast<int>(GetAssets(session.mIdentifier).size()));
        std::vector<StoredVersion> versions;
        std::size_t total = 0;
        EXPECT_EQ(200, mStore->GetSessionHistory(session.mIdentifier, 0, 1, versions, total));
        EXPECT_EQ(static_cast<std::size_t>(commits) + 1, total);
        return found.mRevision;
    };
    const ImmutableString revision = expectLastCommit();
    EXPECT_THAT(ComplaintsOf(session.mIdentifier), IsEmpty());
    mScheduler->Advance(1000);
    EXPECT_THAT(ComplaintsOf(session.mIdentifier),
                ElementsAre("Disk space on volume '" + mHome.Path() + "' is critically low"));

    ReopenStore();  // a hub that starts on a full disk
    EXPECT_EQ(revision, expectLastCommit());

    ASSERT_TRUE(noxcore::filesupport::Files().DeleteFile(ballast));
    EXPECT_EQ(200, CommitNoise(session.mIdentifier, commits));
    ++commits;
    EXPECT_NE(revision, expectLastCommit());
    mScheduler->Advance(1000);
    EXPECT_THAT(ComplaintsOf(session.mIdentifier), IsEmpty());
}

}  // namespace
