// The power goes after each thing that the store does to a file; what was answered to be committed is there, side data
// are as they were at some moment before, and the hub goes on.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "Tests/Durability/Audit.h"
#include "Tests/Durability/Scenarios.h"

namespace durability {
namespace {

using testing_support::FileOperation;
using testing_support::FileRecording;
using testing_support::FolderImage;

// Of a scenario, in a short run.
constexpr std::size_t kMoments = 3;
constexpr std::size_t kFailedSyncs = 2;

/// How often the power goes at a moment: each time something else is lost of what was not synced.
std::uint64_t CutsAtAMoment()
{
    return TriesAllPoints() ? 3 : 1;
}

/// Which sync fails.
struct FailedSync
{
    FileOperation mOperation = FileOperation::Sync;
    unsigned mNth = 0;  ///< none
};

/// A run of a scenario: all that was done to files, and what had been answered when.
struct Recorded
{
    FileRecording mRecording;
    std::vector<std::pair<std::size_t, Ledger>> mLedgers;  ///< from so many events on
    std::vector<FailedSync> mSyncs;                        ///< that may fail

    /// The moments at which the ledger changed.
    [[nodiscard]] std::set<std::size_t> Answers() const
    {
        std::set<std::size_t> moments;
        for (const auto& [moment, ledger] : mLedgers)
            moments.insert(moment);
        return moments;
    }

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
    /// Runs a scenario until its files are closed. Where a sync of it fails the store goes on afterwards.
    Recorded Record(FailedSync inFailed = {}) const
    {
        const Beginning& beginning = mScenario.mBeginning();
        TestHub hub(beginning.mHome, beginning.mLedger, TestHub::Ids::OfTheScenario);
        Recorded recorded;
        const auto note = [&] { recorded.mLedgers.emplace_back(hub.Vfs().RecordedEvents(), hub.GetLedger()); };
        hub.Vfs().StartRecording(hub.Home());
        note();
        hub.OnChange([&](Work::Phase, const Write&) { note(); });
        if (!mScenario.mOpensTheStore) hub.Open();
        hub.Vfs().ResetCounts();
        if (inFailed.mNth != 0) hub.Vfs().SetFault({inFailed.mOperation, inFailed.mNth, SQLITE_IOERR_FSYNC});
        mScenario.mRun(hub, beginning.mSession);
        hub.Rest();
        for (const FileOperation operation : {FileOperation::Sync, FileOperation::SyncFolder}) {
            for (unsigned nth = 1; nth <= hub.Vfs().Count(operation); ++nth)
                recorded.mSyncs.push_back({operation, nth});
        }
        if (inFailed.mNth != 0) {
            hub.Vfs().ClearFaults();
            // A store that could not read a session when it was opened learns of it when it is opened again.
            if (mScenario.mOpensTheStore && !hub.Store().SessionExists(beginning.mSession)) {
                hub.Close();
                hub.Open();
            }
            EXPECT_EQ("", Audit(hub.Store(), hub.GetLedger(), Loss::Nothing));
            note();
            EXPECT_EQ("", hub.MakeWork().GoOn());
            hub.Rest();
        }
        hub.Close();
        recorded.mRecording = hub.Vfs().StopRecording();
        return recorded;
    }

    static std::string FaultIn(const FolderImage& inHome, const Ledger& inLedger, Loss inLoss)
    {
        TestHub hub(inHome, inLedger, TestHub::Ids::OfTheNext);
        hub.Open();
        std::string fault = AuditLeftovers();
        if (fault.empty()) fault = Audit(hub.Store(), hub.GetLedger(), inLoss);
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
    // Right after an answer is when the most can have been promised that is not on the disk.
    std::set<std::size_t> moments = recorded.Answers();
    for (const std::size_t moment : ChosenPoints(events + 1, kMoments, seed))
        moments.insert(moment);
    for (const std::size_t moment : moments) {
        const Ledger& ledger = recorded.LedgerAt(moment);
        EXPECT_EQ("", FaultIn(recorded.mRecording.AfterKill(moment), ledger, Loss::Nothing))
            << mScenario.mName << " killed after event " << moment;
        for (std::uint64_t cut = seed; cut < seed + CutsAtAMoment(); ++cut) {
            EXPECT_EQ("", FaultIn(recorded.mRecording.AfterPowerCut(moment, cut), ledger, Loss::LatestSideData))
                << mScenario.mName << " without power after event " << moment << ", seed " << cut;
        }
    }
    std::printf("%s: %zu of %zu moments, a kill and %llu power cuts at each\n", mScenario.mName, moments.size(),
                events + 1, static_cast<unsigned long long>(CutsAtAMoment()));
    EXPECT_GT(events, 0U);
    EXPECT_GT(moments.size(), 0U);
}

TEST_P(PowerCut, AfterAFailedSyncLosesNothingThatWasAnsweredSince)
{
    const std::uint64_t seed = testing_support::FreshTestSeed();
    const auto syncs = Record().mSyncs;
    const auto chosen = ChosenPoints(syncs.size(), kFailedSyncs, seed);
    for (const std::size_t index : chosen) {
        const Recorded recorded = Record(syncs[index]);
        const auto moments = TriesAllPoints() ? recorded.Answers() : std::set{recorded.mLedgers.back().first};
        for (const std::size_t moment : moments) {
            EXPECT_EQ("", FaultIn(recorded.mRecording.AfterPowerCut(moment, seed), recorded.LedgerAt(moment),
                                  Loss::LatestSideData))
                << mScenario.mName << ", sync " << index << " failed, without power after event " << moment;
        }
    }
    std::printf("%s: %zu of %zu syncs failed\n", mScenario.mName, chosen.size(), syncs.size());
    EXPECT_GT(chosen.size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Store, PowerCut, testing::Range<std::size_t>(0, Scenarios().size()),
                         [](const auto& inInfo) { return std::string(Scenarios()[inInfo.param].mName); });

}  // namespace
}  // namespace durability
