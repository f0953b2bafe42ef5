#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Inc/Model/GitBox.h"
#include "Tests/Durability/Ledger.h"
#include "Tests/Durability/Work.h"
#include "Tests/Support/FaultFiles.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace durability {

/// A home that lies at one path for all hubs of a test, since single-file projects go by ids that their paths give. The
/// home of a hub that is still there lies elsewhere meanwhile; what it has open stays open.
class HomeFolder
{
public:
    HomeFolder();
    ~HomeFolder();
    HomeFolder(const HomeFolder&) = delete;
    HomeFolder& operator=(const HomeFolder&) = delete;
    [[nodiscard]] const std::string& Path() const { return mPath; }

private:
    const std::string mPath;
    const std::string mAside;  ///< where the home of the other hub lies; empty: there is none
};

/// A store in a home of its own whose databases and plain files fail and are recorded together, with what it answered.
class TestHub
{
public:
    /// Where the ids of what is made come from: the same in each run, so that its points are, but never again the ids
    /// of what lies there already.
    enum class Ids
    {
        OfTheFirst,
        OfTheBeginning,
        OfTheScenario,
        OfTheNext
    };

    /// In a home that holds these files; what is known of them already.
    TestHub(const testing_support::FolderImage& inHome, Ledger inLedger, Ids inIds);
    ~TestHub();
    TestHub(const TestHub&) = delete;
    TestHub& operator=(const TestHub&) = delete;

    void Open();
    void Close();
    /// An idle while: maintenance runs, and the files of the sessions are closed.
    void Rest();

    [[nodiscard]] testing_support::FaultVfs& Vfs() { return *mVfs; }
    [[nodiscard]] const std::string& Home() const { return mHome.Path(); }
    [[nodiscard]] GitBox& Store() { return *mStore; }
    [[nodiscard]] Ledger& GetLedger() { return mLedger; }
    /// Over the open store.
    [[nodiscard]] Work MakeWork()
    {
        Work work(*mStore, mLedger);
        work.OnChange(mListener);
        return work;
    }
    /// Called after each change of the ledger.
    void OnChange(Work::Listener inListener) { mListener = std::move(inListener); }
    /// What was logged, for a report.
    [[nodiscard]] std::string Log() const;

private:
    const HomeFolder mHome;
    /// For what need not outlive the process: not in the home, so that nobody looks for it after a crash.
    const testing_support::TempFolder mTemporary;
    const std::shared_ptr<testing_support::VirtualScheduler> mScheduler;
    const std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();
    const std::shared_ptr<testing_support::FaultFiles> mFiles = std::make_shared<testing_support::FaultFiles>();
    const std::shared_ptr<noxcore::HubContext> mContext;
    const noxcore::HubContext::Scope mScope;
    std::unique_ptr<testing_support::FaultVfs> mVfs;
    std::shared_ptr<GitBox> mStore;
    Ledger mLedger;
    Work::Listener mListener;
};

/// What lies there before a scenario, as a killed process left it.
struct Beginning
{
    testing_support::FolderImage mHome;
    Ledger mLedger;
    std::string mSession;  ///< that the scenario works on; empty: none yet
};

/// Something that is asked of the store, and everything that can go wrong on its way.
struct Scenario
{
    const char* mName;
    const Beginning& (*mBeginning)();
    void (*mRun)(TestHub& inHub, const std::string& inSession);
    bool mOpensTheStore = false;  ///< by itself, on its way

    /// Whether it is about a project in a single file.
    [[nodiscard]] bool IsOfFile() const { return std::string_view(mName).find("File") != std::string_view::npos; }
};

/// The table of scenarios: one more is one more row.
const std::vector<Scenario>& Scenarios();

/// Whether every point is to be tried, which takes long, or some of them from a random first one on.
bool TriesAllPoints();
/// Which of so many points are to be tried: all, or about inWanted of them, evenly spread.
std::vector<std::size_t> ChosenPoints(std::size_t inCount, std::size_t inWanted, std::uint64_t inSeed);

}  // namespace durability
