// Each operation on a file that the store makes on its way fails in turn, in three manners; nothing that was answered
// is lost, nothing half done is seen, and the hub goes on.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdio>

#include "Tests/Durability/Audit.h"
#include "Tests/Durability/Scenarios.h"

namespace durability {
namespace {

using testing_support::FileFault;
using testing_support::FileOperation;

constexpr std::size_t kPointsOfAShortRun = 3;  ///< of a scenario and a manner

/// An operation that is made to fail, with the code that a database's file reports then.
struct Kind
{
    FileOperation mOperation;
    const char* mName;
    int mCode;
    bool mNeedsRoom = false;
};
constexpr Kind kKinds[] = {{FileOperation::Open, "open", SQLITE_CANTOPEN},
                           {FileOperation::Write, "write", SQLITE_IOERR_WRITE, true},
                           {FileOperation::Sync, "sync", SQLITE_IOERR_FSYNC},
                           {FileOperation::Truncate, "truncate", SQLITE_IOERR_TRUNCATE},
                           {FileOperation::Delete, "delete", SQLITE_IOERR_DELETE},
                           {FileOperation::ReadPlain, "read a plain file", SQLITE_IOERR},
                           {FileOperation::Look, "look", SQLITE_IOERR},
                           {FileOperation::WritePlain, "write a plain file", SQLITE_IOERR, true},
                           {FileOperation::MakeFolder, "make a folder", SQLITE_IOERR, true},
                           {FileOperation::Rename, "rename", SQLITE_IOERR},
                           {FileOperation::DeletePlain, "delete a plain file", SQLITE_IOERR},
                           {FileOperation::DeleteFolder, "delete a folder", SQLITE_IOERR},
                           {FileOperation::SyncFolder, "sync a folder", SQLITE_IOERR}};

enum class Manner
{
    Error,     ///< nothing happens
    DiskFull,  ///< nothing happens, and nothing that needs room succeeds afterwards
    CutShort   ///< half of it happens
};
constexpr std::pair<Manner, const char*> kManners[] = {
    {Manner::Error, "I/O error"}, {Manner::DiskFull, "disk full"}, {Manner::CutShort, "cut short"}};

struct Point
{
    const Kind* mKind;
    unsigned mNth;
};

void Arm(testing_support::FaultVfs& inVfs, const Point& inPoint, Manner inManner)
{
    FileFault fault;
    fault.mOperation = inPoint.mKind->mOperation;
    fault.mNth = inPoint.mNth;
    fault.mCode = inManner == Manner::DiskFull && inPoint.mKind->mNeedsRoom ? SQLITE_FULL : inPoint.mKind->mCode;
    fault.mFillsDisk = inManner == Manner::DiskFull;
    fault.mHappensInPart = inManner == Manner::CutShort;
    inVfs.SetFault(fault);
}

class FaultSweep : public testing::TestWithParam<std::size_t>
{
protected:
    static void RunUntilRest(TestHub& inHub, const Scenario& inScenario)
    {
        inScenario.mRun(inHub, inScenario.mBeginning().mSession);
        inHub.Rest();
    }

    static std::unique_ptr<TestHub> Begin(const Scenario& inScenario)
    {
        const Beginning& beginning = inScenario.mBeginning();
        auto hub = std::make_unique<TestHub>(beginning.mHome, beginning.mLedger, TestHub::Ids::OfTheScenario);
        if (!inScenario.mOpensTheStore) hub->Open();
        return hub;
    }

    /// Everything that can fail, found by a run in which nothing does.
    std::vector<Point> FindPoints() const
    {
        const auto hub = Begin(mScenario);
        hub->Vfs().ResetCounts();
        RunUntilRest(*hub, mScenario);
        std::vector<Point> points;
        for (const Kind& kind : kKinds) {
            for (unsigned nth = 1; nth <= hub->Vfs().Count(kind.mOperation); ++nth)
                points.push_back({&kind, nth});
        }
        EXPECT_EQ("", Audit(hub->Store(), hub->GetLedger(), Loss::Nothing)) << "without any fault";
        return points;
    }

    /// As a killed process would leave it now: a new one finds it sound and goes on.
    static std::string FaultAfterAKill(const TestHub& inHub, const Ledger& inLedger)
    {
        TestHub next(testing_support::ReadFolderImage(inHub.Home()), inLedger, TestHub::Ids::OfTheNext);
        next.Open();
        std::string fault = AuditLeftovers();
        if (fault.empty()) fault = Audit(next.Store(), next.GetLedger(), Loss::Nothing);
        if (fault.empty()) fault = next.MakeWork().GoOn();
        return fault.empty() ? fault : "opened anew: " + fault + next.Log();
    }

    std::string FaultAfter(const Point& inPoint, Manner inManner) const
    {
        const auto hub = Begin(mScenario);
        Arm(hub->Vfs(), inPoint, inManner);
        RunUntilRest(*hub, mScenario);
        const bool reached = hub->Vfs().FaultsReported() != 0;
        hub->Vfs().ClearFaults();
        if (!reached) return "the point was not reached";
        Ledger& ledger = hub->GetLedger();
        if (inManner == Manner::DiskFull && inPoint.mKind->mNeedsRoom) {
            for (auto& [id, session] : ledger.mSessions)
                session.mAttempt.reset();
        }
        std::string fault = FaultAfterAKill(*hub, ledger);
        // A store that could not read a session when it was opened learns of it when it is opened again.
        const std::string& session = mScenario.mBeginning().mSession;
        const bool usable = !mScenario.mOpensTheStore || hub->Store().SessionExists(session);
        if (fault.empty() && usable) fault = Audit(hub->Store(), ledger, Loss::Nothing);
        if (fault.empty() && usable) fault = hub->MakeWork().GoOn();
        if (fault.empty()) {
            hub->Close();
            hub->Open();
            fault = Audit(hub->Store(), ledger, Loss::Nothing);
            if (!fault.empty()) fault = "went on and opened again: " + fault;
        }
        return fault.empty() ? fault : fault + hub->Log();
    }

    const Scenario& mScenario = Scenarios()[GetParam()];
};

TEST_P(FaultSweep, LosesNothingThatWasAnsweredAndKeepsNothingByHalf)
{
    const std::uint64_t seed = testing_support::FreshTestSeed();
    const std::vector<Point> points = FindPoints();
    for (const auto& [manner, mannerName] : kManners) {
        const auto chosen = ChosenPoints(points.size(), kPointsOfAShortRun, seed + static_cast<std::uint64_t>(manner));
        std::size_t faults = 0;
        for (const std::size_t index : chosen) {
            const Point& point = points[index];
            const std::string fault = FaultAfter(point, manner);
            if (fault.empty()) continue;
            ++faults;
            ADD_FAILURE() << mScenario.mName << ", " << mannerName << " at " << point.mKind->mName << " number "
                          << point.mNth << ": " << fault;
        }
        std::printf("%s, %s: %zu of %zu points, %zu with a fault\n", mScenario.mName, mannerName, chosen.size(),
                    points.size(), faults);
        EXPECT_GT(chosen.size(), 0U) << mScenario.mName << ", " << mannerName;
    }
}

INSTANTIATE_TEST_SUITE_P(Store, FaultSweep, testing::Range<std::size_t>(0, Scenarios().size()),
                         [](const auto& inInfo) { return std::string(Scenarios()[inInfo.param].mName); });

}  // namespace
}  // namespace durability
