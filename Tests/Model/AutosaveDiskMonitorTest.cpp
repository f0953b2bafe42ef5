#include "Inc/Model/AutosaveDiskMonitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Inc/Model/ComplaintBox.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Tests/Support/VirtualHub.h"
#include "Tests/Support/VolumeFiles.h"

namespace {

using namespace testing_support;
using namespace VantryLocalHub;
using GitBox::AutosaveDiskMonitor;
using noxcore::utility::ImmutableString;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kMB = 1048576;
constexpr const char* kThreshold = "VY.Config.LocalHub.MinAutosaveDiskSpaceInMB";

/// A monitor of places that the test names, on volumes that the test fills.
class AutosaveDiskMonitorTest : public testing::Test
{
protected:
    AutosaveDiskMonitorTest()
    {
        mFiles->mVolumes["/disk"].mFree = 100 * kMB;
        mFiles->mVolumes["/stick"].mFree = 100 * kMB;
    }

    static void SetThreshold(std::string_view inMegabytes)
    {
        noxcore::debug::DebugDatabase::Instance()->SetEntry(kThreshold, inMegabytes);
    }

    /// As somebody who wrote something does, and then the look itself. The monitor is made with the first.
    void Look()
    {
        Monitor().Queue();
        mScheduler->Advance(1000);
    }

    AutosaveDiskMonitor& Monitor()
    {
        if (!mMonitor) {
            mMonitor = AutosaveDiskMonitor::Create({[this] {
                                                        ++mLooks;
                                                        return mPlaces;
                                                    },
                                                    [this](const AutosaveDiskMonitor::Place& inPlace) {
                                                        mSettled.push_back(inPlace.mSessionID.Text() + ": " +
                                                                           std::to_string(inPlace.mFailedWrites));
                                                    }});
        }
        return *mMonitor;
    }

    /// Session and text of each complaint.
    static std::vector<std::string> Complaints()
    {
        std::vector<std::string> texts;
        for (const auto& [session, complaints] : ComplaintBox::Instance()->SessionComplaints()) {
            for (const auto& [id, complaint] : complaints) {
                EXPECT_EQ(507, complaint.mErrorCode);
                texts.push_back(session + ": " + complaint.mErrorString);
            }
        }
        return texts;
    }

    const std::shared_ptr<VirtualScheduler> mScheduler = std::make_shared<VirtualScheduler>(TestSeed());
    const std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    const std::shared_ptr<VolumeFiles> mFiles = std::make_shared<VolumeFiles>();
    const std::shared_ptr<noxcore::HubContext> mContext = mScheduler->MakeContext(mLog, mFiles);
    const noxcore::HubContext::Scope mScope{mContext};
    std::vector<AutosaveDiskMonitor::Place> mPlaces = {{"s-1", "/disk/a/s-1"}};
    unsigned mLooks = 0;
    std::vector<std::string> mSettled;  ///< session and how many of its writes had failed
    std::shared_ptr<AutosaveDiskMonitor> mMonitor;
};

TEST_F(AutosaveDiskMonitorTest, AVolumeIsLowBelowFiveMegabytesWhereNothingElseIsSet)
{
    for (const auto& [free, low] : {std::pair(5 * kMB - 1, true), {5 * kMB, false}, {0, true}}) {
        mFiles->mVolumes["/disk"].mFree = free;
        EXPECT_EQ(low, Monitor().VolumeIsLowOnAutosaveSpace("/disk")) << free;
    }
}

TEST_F(AutosaveDiskMonitorTest, TheThresholdIsTheOneThatStoodWhenTheMonitorWasMade)
{
    SetThreshold("200");
    EXPECT_TRUE(Monitor().VolumeIsLowOnAutosaveSpace("/disk"));
    SetThreshold("1");
    EXPECT_TRUE(Monitor().VolumeIsLowOnAutosaveSpace("/disk"));
}

TEST_F(AutosaveDiskMonitorTest, AThresholdPastAllDisksIsNoSmallOne)
{
    SetThreshold("9223372036854775807");
    mFiles->mVolumes["/disk"].mFree = std::uint64_t{1} << 60;
    EXPECT_TRUE(Monitor().VolumeIsLowOnAutosaveSpace("/disk"));
}

TEST_F(AutosaveDiskMonitorTest, WithANegativeThresholdNothingIsEverLow)
{
    SetThreshold("-1");
    mFiles->mVolumes["/disk"].mFree = 0;
    EXPECT_FALSE(Monitor().VolumeIsLowOnAutosaveSpace("/disk"));
    Look();
    EXPECT_EQ(1u, mLooks);
    EXPECT_THAT(Complaints(), IsEmpty());
    EXPECT_EQ(0u, mFiles->mVolumes["/disk"].mAsked);
}

TEST_F(AutosaveDiskMonitorTest, ALookComesASecondAfterTheFirstQuestionAndAnswersThoseAskedMeanwhile)
{
    Monitor().Queue();
    mScheduler->Advance(500);
    Monitor().Queue();
    mScheduler->Advance(499);
    EXPECT_EQ(0u, mLooks);
    mScheduler->Advance(1);
    EXPECT_EQ(1u, mLooks);
    mScheduler->Advance(100000);
    EXPECT_EQ(1u, mLooks);
}

TEST_F(AutosaveDiskMonitorTest, AVolumeThatIsLowIsComplainedAboutOnceUntilItHasRoom)
{
    const auto setFree = [&](std::uint64_t inBytes) { mFiles->mVolumes["/disk"].mFree = inBytes; };
    const std::string text = "s-1: Disk space on volume '/disk' is critically low";
    Look();
    EXPECT_THAT(Complaints(), IsEmpty());
    for (const std::size_t times : {1, 2}) {
        setFree(kMB);
        Look();
        Look();
        EXPECT_THAT(Complaints(), ElementsAre(text));
        EXPECT_EQ(times, mLog->Count("Filed complaint"));
        setFree(100 * kMB);
        Look();
        EXPECT_THAT(Complaints(), IsEmpty());
    }
}

TEST_F(AutosaveDiskMonitorTest, EachVolumeIsAskedOnceHoweverManySessionsLieOnIt)
{
    mPlaces = {{"s-3", "/disk/a"}, {"s-1", "/disk/b"}, {"s-2", "/stick/c"}, {"s-4", "/disk/d"}};
    mFiles->mVolumes["/disk"].mFree = 0;
    mFiles->mVolumes["/stick"].mFree = 1;
    Look();
    EXPECT_EQ(1u, mFiles->mVolumes["/disk"].mAsked);
    EXPECT_EQ(1u, mFiles->mVolumes["/stick"].mAsked);
    EXPECT_THAT(Complaints(), ElementsAre("s-1: Disk space on volume '/disk' is critically low",
                                          "s-2: Disk space on volume '/stick' is critically low"));
    mFiles->mVolumes["/disk"].mFree = 50 * kMB;
    Look();
    EXPECT_THAT(Complaints(), ElementsAre("s-2: Disk space on volume '/stick' is critically low"));
}

TEST_F(AutosaveDiskMonitorTest, APlaceIsSettledWhenItsVolumeIsSeenToHaveRoom)
{
    mPlaces = {{"s-1", "/disk/a", 1}, {"s-2", "/disk/b", 2}, {"s-3", "/stick/c", 3}, {"s-4", "/nowhere", 4}};
    mFiles->mVolumes["/disk"].mFree = 0;
    Look();
    EXPECT_THAT(mSettled, ElementsAre("s-3: 3"));
    mSettled.clear();
    mFiles->mVolumes["/disk"].mFree = 100 * kMB;
    mFiles->mVolumes["/stick"].mFree = std::nullopt;
    Look();
    EXPECT_THAT(mSettled, testing::UnorderedElementsAre("s-1: 1", "s-2: 2"));
}

TEST_F(AutosaveDiskMonitorTest, AVolumeWhoseSpaceCannotBeToldIsNotLowAndStaysWhatItWas)
{
    SetThreshold("3");
    auto& disk = mFiles->mVolumes["/disk"];
    const auto expectUnknown = [&](const char* inReason) {
        mLog->Clear();
        EXPECT_FALSE(Monitor().VolumeIsLowOnAutosaveSpace("/disk"));
        const auto records = mLog->Find("Exception thrown checking for disk space");
        ASSERT_EQ(1u, records.size());
        EXPECT_EQ("3145728", records[0].Value("minAutosaveDiskSpace"));
        EXPECT_EQ(inReason, records[0].Value("exception"));
    };
    disk.mFree = std::nullopt;
    expectUnknown("The volume does not tell its free space");
    Look();
    EXPECT_THAT(Complaints(), IsEmpty());
    disk.mFree = 0;
    Look();
    EXPECT_EQ(1u, Complaints().size());
    disk.mThrows = true;
    expectUnknown("no such disk");
    Look();
    EXPECT_EQ(1u, Complaints().size());
    disk = {.mFree = 100 * kMB};
    Look();
    EXPECT_THAT(Complaints(), IsEmpty());
}

TEST_F(AutosaveDiskMonitorTest, APlaceWithoutAVolumeIsReportedAndTheOthersAreLookedAt)
{
    mPlaces = {{"s-1", "/nowhere/a"}, {"s-2", "/disk/b"}};
    mFiles->mVolumes["/disk"].mFree = 0;
    Look();
    const auto records = mLog->Find("Could not obtain the volume path for disk containing autosave directory");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("/nowhere/a", records[0].Value("autoSavePath"));
    EXPECT_THAT(Complaints(), ElementsAre("s-2: Disk space on volume '/disk' is critically low"));
}

TEST_F(AutosaveDiskMonitorTest, AVolumeStaysLowWhileItCannotBeToldWhereItsSessionLies)
{
    mFiles->mVolumes["/disk"].mFree = 0;
    Look();
    const auto complaints = Complaints();
    ASSERT_EQ(1u, complaints.size());
    mPlaces = {{"s-1", "/nowhere/a"}};
    Look();
    EXPECT_EQ(complaints, Complaints());
    mPlaces = {};
    Look();
    EXPECT_THAT(Complaints(), IsEmpty());
}

TEST_F(AutosaveDiskMonitorTest, AComplaintPassesToAnotherSessionWhenItsOwnHasGone)
{
    mPlaces = {{"s-1", "/disk/a"}, {"s-2", "/disk/b"}};
    mFiles->mVolumes["/disk"].mFree = 0;
    Look();
    EXPECT_THAT(Complaints(), ElementsAre("s-1: Disk space on volume '/disk' is critically low"));
    mPlaces.erase(mPlaces.begin());
    Look();
    EXPECT_THAT(Complaints(), ElementsAre("s-2: Disk space on volume '/disk' is critically low"));
    mPlaces.clear();
    const unsigned asked = mFiles->mVolumes["/disk"].mAsked;
    Look();
    EXPECT_THAT(Complaints(), IsEmpty());
    EXPECT_EQ(asked, mFiles->mVolumes["/disk"].mAsked);
}

TEST_F(AutosaveDiskMonitorTest, AMonitorThatHasGoneLooksNoMore)
{
    mFiles->mVolumes["/disk"].mFree = 0;
    Monitor().Queue();
    mMonitor.reset();
    mScheduler->Advance(1000);
    EXPECT_EQ(0u, mLooks);
    EXPECT_THAT(Complaints(), IsEmpty());
}

}  // namespace
