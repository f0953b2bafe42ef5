// The power goes after each thing that the store does to a file; what was answered to be committed is there, side data
// are as they were at some moment before, and the hub goes on.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "Tests/Durability/Audit.h"
#include "Tests/Durability/Scenarios.h"

namespace durability {
namespace {

using testing_support::FileRecording;
using testing_support::FolderImage;

constexpr std::size_t kMomentsOfAShortRun = 10;  ///< of a scenario
constexpr std::uint64_t kCutsAtAMoment = 3;      ///< each loses something else of what was not synced

/// A run of a scenario: all that was done to files, and what had been answered when.
struct Recorded
{
    FileRecording mRecording;
    std::vector<std::pair<std::size_t, Ledger>> mLedgers;  ///< from so many events on

    [[nodiscard]] const Ledger& LedgerAt(std::size_t inMoment) const
    {
        const auto later = std::find_if(mLedgers.begin(), mLedgers.end(),
                                        [&](const auto& inEntry) { return inEntry.first > inMoment; });
        return std::prev(later)->second;
    }
};

class PowerCut : public testing::TestWithParam<std::size_t>
{
protected:
    Recorded Record() const
    {
        const Beginning& beginning = mScenario.mBeginning();
        TestHub hub(beginning.mHome, beginning.mLedger);
        Recorded recorded;
        const auto note = [&] { recorded.mLedgers.emplace_back(hub.Vfs().RecordedEvents(), hub.GetLedger()); };
        hub.Vfs().StartRecording(hub.Home());
        note();
        hub.OnChange([&](Work::Phase, const Write&) { note(); });
        if (!mScenario.mOpensTheStore) hub.Open();
        mScenario.mRun(hub, beginning.mSession);
        hub.Rest();
        hub.Close();
        recorded.mRecording = hub.Vfs().StopRecording();
        return recorded;
    }

    static std::string FaultIn(const FolderImage& inHome, const Ledger& inLedger, Loss inLoss)
    {
        TestHub hub(inHome, inLedger);
        hub.Open();
        std::string fault = Audit(hub.Store(), hub.GetLedger(), inLoss);
        if (fault.empty()) fault = hub.MakeWork().GoOn();
        return fault.empty() ? fault : fault + hub.Log();
    }

    const Scenario& mScenario = Scenarios()[GetParam()];
};

TEST_P(PowerCut, LosesNothingThatWasAnsweredAndKeepsNothingByHalf)
{
    const std::uint64_t seed = testing_support::FreshTestSeed();
    const Recorded recorded = Record();
    const std::size_t events = recorded.mRecording.Events().size();
    const auto moments = ChosenPoints(events + 1, kMomentsOfAShortRun, seed);
    for (const std::size_t moment : moments) {
        const Ledger& ledger = recorded.LedgerAt(moment);
        EXPECT_EQ("", FaultIn(recorded.mRecording.AfterKill(moment), ledger, Loss::Nothing))
            << mScenario.mName << " killed after event " << moment;
        for (std::uint64_t cut = seed; cut < seed + kCutsAtAMoment; ++cut) {
            EXPECT_EQ("", FaultIn(recorded.mRecording.AfterPowerCut(moment, cut), ledger, Loss::LatestSideData))
                << mScenario.mName << " without power after event " << moment << ", seed " << cut;
        }
    }
    std::printf("%s: %zu of %zu moments, a kill and %llu power cuts at each\n", mScenario.mName, moments.size(),
                events + 1, static_cast<unsigned long long>(kCutsAtAMoment));
    EXPECT_GT(events, 0U);
    EXPECT_GT(moments.size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Store, PowerCut, testing::Range<std::size_t>(0, Scenarios().size()),
                         [](const auto& inInfo) { return std::string(Scenarios()[inInfo.param].mName); });

}  // namespace
}  // namespace durability
